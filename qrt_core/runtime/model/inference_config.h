#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/class_registry.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

using InferenceParamRegistry = ClassRegistry<std::shared_ptr<InferenceParam>>;

// None of the classes of this file carries "serializable_type". Copies share the objects that are
// held by pointer.

/// Which kernel runs, and with which extra parameters.
class QRT_API KernelCfg : public Serializable {
 public:
  KernelCfg();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string kernel_type;       ///< registered name of the kernel
  std::string infer_param_type;  ///< class name of the parameter object, or empty
  /// The parameter object, made while reading from its class name; null for an unknown name.
  std::shared_ptr<InferenceParam> infer_param;
};

/// Converters by the decimal index of the input or output that they serve.
class QRT_API KernelCfgArr : public Serializable {
 public:
  KernelCfgArr();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<std::string> kernel_ids;  ///< decimal indices, in the order of the file
  std::map<std::string, std::shared_ptr<KernelCfg>> kernel_cfgs;  ///< by id
};

/// How one layer runs.
class QRT_API LayerCfg : public Serializable {
 public:
  LayerCfg();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string summary;                              ///< free text
  std::shared_ptr<KernelCfgArr> input_converters;   ///< applied to the inputs first
  std::shared_ptr<KernelCfg> kernel;                ///< the layer's kernel
  std::shared_ptr<KernelCfgArr> output_converters;  ///< applied to the outputs afterwards
};

/// How one network runs on one back end.
class QRT_API QRModelCfg : public Serializable {
 public:
  QRModelCfg();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string summary;                                          ///< free text
  std::vector<std::string> squential_ids;                       ///< layer ids in execution order
  std::map<std::string, std::shared_ptr<LayerCfg>> layer_cfgs;  ///< by id
};

/// How one network runs, per back end. This library runs "cpu_sse", whatever instruction set its
/// kernels use, and keeps the others.
class QRT_API QRModelMultiBackendCfgs : public Serializable {
 public:
  QRModelMultiBackendCfgs();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::shared_ptr<QRModelCfg> cpu_sse;     ///< what this library runs, AVX kernels too
  std::shared_ptr<QRModelCfg> cpu_avx;     ///< kept, never loaded
  std::shared_ptr<QRModelCfg> cpu_armv7;   ///< kept
  std::shared_ptr<QRModelCfg> cpu_armv8;   ///< kept
  std::shared_ptr<QRModelCfg> cpu_armv82;  ///< kept; since version 20008
  std::shared_ptr<QRModelCfg> gpu_opengl;  ///< kept
  std::shared_ptr<QRModelCfg> gpu_metal;   ///< kept; `Load_Single_Net` takes it for "metal"
  std::shared_ptr<QRModelCfg> gpu_cuda;    ///< kept
};

/// The configurations of the networks of a model file.
class QRT_API QRModelMultiBackendCfgsArr : public Serializable {
 public:
  QRModelMultiBackendCfgsArr();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<std::string> squential_ids;                                ///< network ids
  std::map<std::string, std::shared_ptr<QRModelMultiBackendCfgs>> cfgs;  ///< by id
};

/// Which kernel runs, as an application's configuration text says it.
class QRT_API KernelInferenceConfig : public Serializable {
 public:
  /// @param params makes the parameter object; not owned, must outlive reading
  explicit KernelInferenceConfig(const InferenceParamRegistry* params);

  /// @throws std::runtime_error for an `infer_param_type` that isn't registered
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string kernel_type;       ///< registered name of the kernel
  std::string infer_param_type;  ///< registered class name of the parameter object, or empty
  std::shared_ptr<InferenceParam> infer_param;  ///< made of that class; null without a name

 private:
  const InferenceParamRegistry* params_;
};

/// How one layer runs, as an application's configuration text says it. Plain data: any number of
/// threads may read it while none changes it.
struct LayerInferenceConfig {
  std::string name;  ///< empty when read from JSON
  std::map<int, std::shared_ptr<KernelInferenceConfig>> input_converters;   ///< by input index
  std::shared_ptr<KernelInferenceConfig> kernel;                            ///< never null
  std::map<int, std::shared_ptr<KernelInferenceConfig>> output_converters;  ///< by output index
};

/// How a network runs: one entry per layer, in execution order. Any number of threads may make
/// networks of one object while none changes it.
struct InferenceConfig {
  std::vector<LayerInferenceConfig> layers;  ///< in execution order
};

/// Reads a configuration text: an object whose member "config" is an array with one object per
/// layer, each with a member "kernel" and optionally "input_converters" and "output_converters".
///
/// @code{.json}
/// {"config": [
///   {"kernel": {"kernel_type": "Input_Fallback_M1", "infer_param_type": ""}},
///   {"kernel": {"kernel_type": "ReLU_SSE_Float_M1", "infer_param_type": ""}}
/// ]}
/// @endcode
///
/// A null counts as absent, as in model files.
///
/// @return an empty configuration for an object without "config"
/// @throws std::runtime_error for a text that isn't such an object
QRT_API std::shared_ptr<InferenceConfig> CreateConfigFromJSON(const std::string& json,
                                                              InferenceParamRegistry& registry);

}  // namespace marlo::runtime
