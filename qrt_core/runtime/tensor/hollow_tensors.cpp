#include "qrt_core/runtime/tensor/hollow_tensors.h"

namespace marlo::runtime {

std::vector<std::shared_ptr<Tensor>> HollowTensors(const std::vector<TensorShape>& shapes,
                                                   DeviceCPU& device) {
  static char nothing[64];
  std::vector<std::shared_ptr<Tensor>> tensors;
  tensors.reserve(shapes.size());
  for (const TensorShape& shape : shapes) {
    tensors.push_back(device.CreateTensorExternal(shape, nothing));
  }
  return tensors;
}

}  // namespace marlo::runtime
