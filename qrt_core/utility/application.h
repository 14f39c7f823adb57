#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "qrt_core/runtime/engine/class_registry.h"
#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/utility/export.h"
#include "qrt_core/utility/status.h"

// The functions with which an application begins.

namespace marlo::utility {

/// One network, ready to run: fill `input_tensors` and call `run`, or `net->Forward` for its times or for
/// other layers' outputs.
///
/// A package belongs, with its context, to one thread at a time; its registries may be shared by
/// all.
struct _NetworkPackage {
  runtime::KernelRegistry* kernels = nullptr;         ///< as given to `load_model`; not owned
  runtime::InferenceParamRegistry* params = nullptr;  ///< as given to `load_model`; not owned
  std::shared_ptr<runtime::Context> context;          ///< as given to `load_model`
  std::shared_ptr<runtime::Net> net;                  ///< the layers; keeps what they need
  runtime::NetExtraInfo extra_info;                   ///< the model's header
  /// One entry per input layer, by layer index. Key 0 is there even if layer 0 is no input.
  std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>> input_tensors{{0, nullptr}};
  /// For the application's use; the loader doesn't fill it.
  std::unordered_map<unsigned int, runtime::TensorShape> input_shapes{{0, {}}};
  std::vector<unsigned int> output_ids{0};  ///< indices of the output layers, in the model's order
};

/// What a model says about the versions that it needs. Plain data: any number of threads may read
/// it while none changes it.
struct _QRTModelVerInfo {
  std::string sdk_type;     ///< name of the SDK
  uint16_t core_major = 0;  ///< core version, 0 or 1
  uint16_t core_minor = 0;  ///< its number behind the point, 0
  uint16_t sdk_major = 0;   ///< version of the SDK
  uint16_t sdk_minor = 0;   ///< its number behind the point
};

/// Makes a context with a CPU device on two new pools, one for tensors that last and one for those
/// of a pass.
/// @param alignment of tensors, in bytes: a power of two
QRT_API void create_context(std::shared_ptr<runtime::Context>& context, unsigned int alignment);

/// Enters every kernel and every inference parameter that this build has. Call it once, before
/// `load_model`; a second call changes nothing.
QRT_API void init_register_operators(runtime::KernelRegistry& kernels,
                                     runtime::InferenceParamRegistry& params);

/// Enters the kernels of the second set: for FMA and AVX-512, with activations of their own, and others
/// that came after those of `init_register_operators`. A model that names none of them doesn't need
/// the call. A name that is there already keeps its kernel; a build without the set enters nothing.
/// @param kernels receives them
/// @param params receives parameters that they may need; there are none so far
QRT_API void init_register_extension_operators(runtime::KernelRegistry& kernels,
                                               runtime::InferenceParamRegistry& params);

/// Whether a model belongs to this SDK and version: the SDK's name and version must match exactly,
/// and the core version must be 0.0 or 1.0.
/// @return 0, or -2 after an error line in the log
[[nodiscard]] QRT_API _QRT_Result check_version(std::string sdk_type, unsigned short sdk_major,
                                                unsigned short sdk_minor, _QRTModelVerInfo info);

/// Reads a model file and makes one package per network in it.
///
/// @param path ends in ".json" or ".qrtmodel"
/// @param nets receives the packages by network id; an id that is already there keeps its package
/// @param context outlives the packages
/// @param kernels, params outlive the packages, which point at them
/// @param sdk_type, sdk_major, sdk_minor what the model must have been made for
/// @return 0; -2 after an error line in the log for a file that can't be opened or another version.
///   Packages made before a failure stay in `nets`.
/// @throws Error, a std::runtime_error, for another suffix, a malformed file, or a network that
///   can't be built, whose `story` names the network and the layer; std::out_of_range for a path
///   shorter than the suffix it is compared with
[[nodiscard]] QRT_API _QRT_Result
load_model(std::string path, std::map<std::string, std::shared_ptr<_NetworkPackage>>& nets,
           std::shared_ptr<runtime::Context>& context, runtime::KernelRegistry& kernels,
           runtime::InferenceParamRegistry& params, std::string sdk_type, unsigned short sdk_major,
           unsigned short sdk_minor);

/// Builds the network of a package whose registries and context are set.
/// @param platform "x86" takes the configuration `cpu_sse`, "metal" `gpu_metal`
/// @throws Error for a null argument, a platform without a configuration, and as `CreateNet`
QRT_API void Load_Single_Net(std::shared_ptr<_NetworkPackage>& package,
                             const std::shared_ptr<runtime::QRModelInfo>& info,
                             const std::shared_ptr<runtime::QRModelMultiBackendCfgs>& cfgs,
                             const char* platform);

/// A pass of a package: its `input_tensors` through its `net`, on its `context`.
/// @return per output layer of the network, by index (`output_ids`), its outputs
/// @throws Error for a package without a network, and as `runtime::Net::Forward`
[[nodiscard]] QRT_API std::unordered_map<unsigned int, runtime::Net::Tensors> run(
    const _NetworkPackage& package);

}  // namespace marlo::utility

/// The core version of this library: 1.0. @return 0
QRT_API marlo::utility::_QRT_Result QRT_Get_Core_Version(unsigned int& major, unsigned int& minor);
