#pragma once

#include <memory>

#include "qrt_core/runtime/engine/class_registry.h"
#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

using KernelRegistry = ClassRegistry<std::shared_ptr<IKernel>>;

/// Makes an executable network from a model and the configuration of a model file.
///
/// Every layer gets the kernel that its entry of `cfg` names, configured with the layer's
/// description, which is where weights are packed. The context must outlive the network; the model
/// need not. Don't call it during a pass on the same context.
///
/// A layer that is listed again shares the kernel of its first place, as it computes the same. A
/// kernel with a state is made anew each time, up to 16 times. A network has at most 65,536 kernels
/// and 262,144 connections, so that building it takes memory and time in proportion to its weights.
///
/// @throws utility::Error, a std::runtime_error, for a null argument, a context without a CPU
///   device, a layer without an entry in `cfg`, a kernel that isn't registered or refuses its
///   layer, an input that doesn't stand before its reader, and a network above these bounds. Its
///   `layer` says where, and why a kernel refuses as far as it can tell; its text is the log's tag
///   alone for a kernel that refuses.
QRT_API std::shared_ptr<Net> CreateNet(const std::shared_ptr<QRModelInfo>& info,
                                       const std::shared_ptr<QRModelCfg>& cfg,
                                       const KernelRegistry& kernels,
                                       const std::shared_ptr<Context>& context);

/// The same with an application's configuration: its entry at position p belongs to layer p.
///
/// A kernel that refuses its layer leaves the layer without one, which a pass that reaches it
/// reports.
QRT_API std::shared_ptr<Net> CreateNet(const std::shared_ptr<QRModelInfo>& info,
                                       std::shared_ptr<InferenceConfig> cfg,
                                       const KernelRegistry& kernels,
                                       std::shared_ptr<Context> context);

}  // namespace marlo::runtime
