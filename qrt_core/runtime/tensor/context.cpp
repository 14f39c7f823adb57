#include "qrt_core/runtime/tensor/context.h"

#include <utility>

namespace marlo::runtime {

std::shared_ptr<Context> CreateContext(std::shared_ptr<DeviceCPU> cpu,
                                       std::shared_ptr<DeviceOpenGL> opengl,
                                       std::shared_ptr<DeviceMetalCompute> metal,
                                       std::shared_ptr<DeviceVulkan> vulkan,
                                       std::shared_ptr<DeviceCUDAStream> cuda,
                                       std::shared_ptr<Profiler> profiler) {
  auto context = std::make_shared<Context>();
  context->cpu = std::move(cpu);
  context->opengl = std::move(opengl);
  context->metal = std::move(metal);
  context->cuda = std::move(cuda);
  context->vulkan = std::move(vulkan);
  context->profiler = std::move(profiler);
  return context;
}

}  // namespace marlo::runtime
