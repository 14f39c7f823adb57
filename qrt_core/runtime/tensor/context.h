#pragma once

#include <memory>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

class DeviceOpenGL;
class DeviceMetalCompute;
class DeviceCUDAStream;
class DeviceVulkan;
class Profiler;

/// The devices that a network may use. Only `cpu` is ever filled by this library. A context, and
/// all that was made on it, belongs to one thread at a time; different contexts share nothing but
/// the log, so that each thread may have its own.
struct Context {
  std::shared_ptr<DeviceCPU> cpu;             ///< makes the tensors of every network
  std::shared_ptr<DeviceOpenGL> opengl;       ///< kept, never used
  std::shared_ptr<DeviceMetalCompute> metal;  ///< kept, never used
  std::shared_ptr<DeviceCUDAStream> cuda;     ///< kept, never used
  std::shared_ptr<DeviceVulkan> vulkan;       ///< kept, never used
  std::shared_ptr<Profiler> profiler;         ///< kept, never used
};

/// A context of the given devices, any of which may be empty.
QRT_API std::shared_ptr<Context> CreateContext(std::shared_ptr<DeviceCPU> cpu,
                                               std::shared_ptr<DeviceOpenGL> opengl,
                                               std::shared_ptr<DeviceMetalCompute> metal,
                                               std::shared_ptr<DeviceVulkan> vulkan,
                                               std::shared_ptr<DeviceCUDAStream> cuda,
                                               std::shared_ptr<Profiler> profiler);

}  // namespace marlo::runtime
