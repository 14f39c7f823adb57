#include "qrt_toolkit/watch/kernel_wrapper.h"

namespace marlo::toolkit {

KernelsTaken::KernelsTaken(runtime::Net& net,
                           const std::function<Kernel(const KernelPlace&, const Kernel&)>& wrap) {
  const auto take = [&](const KernelPlace& place, Kernel& kernel) {
    if (kernel == nullptr) return;
    taken_.emplace_back(&kernel, kernel);
    kernel = wrap(place, kernel);
  };
  for (uint32_t index = 0; index < net.layers.size(); ++index) {
    runtime::Layer& layer = *net.layers[index];
    for (auto& [position, kernel] : layer.input_converters) {
      take({index, KernelRole::input_converter, position}, kernel);
    }
    take({index, KernelRole::own, 0}, layer.kernel);
    for (auto& [position, kernel] : layer.output_converters) {
      take({index, KernelRole::output_converter, position}, kernel);
    }
  }
}

KernelsTaken::~KernelsTaken() {
  for (auto& [place, kernel] : taken_) *place = kernel;
}

}  // namespace marlo::toolkit
