#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/utility/export.h"
#include "qrt_core/utility/half.h"

namespace marlo::runtime {

/// Extra parameters of a kernel, beyond the layer's description. Carries no "serializable_type".
class QRT_API InferenceParam : public Serializable {
 public:
  InferenceParam() { serializable_type = "InferenceParam"; }
  void VisitAttr(std::shared_ptr<Visitor> visitor) override { (void)visitor; }
};

/// Fixed-point steps of a convolution: fractional bits of weights and output.
class QRT_API InferenceParamConv2DQuant : public InferenceParam {
 public:
  InferenceParamConv2DQuant();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int16_t weight_step_size = 0;  ///< fractional bits of the weights
  int16_t output_step_size = 0;  ///< fractional bits of the output
};

/// Fixed-point steps of a full connection.
class QRT_API InferenceParamFullConnectionQuant : public InferenceParam {
 public:
  InferenceParamFullConnectionQuant();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int16_t weight_step_size = 0;  ///< fractional bits of the weights
  int16_t output_step_size = 0;  ///< fractional bits of the output
};

/// Fixed-point step of an activation.
class QRT_API InferenceParamActQuant : public InferenceParam {
 public:
  InferenceParamActQuant();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int16_t output_step_size = 0;  ///< fractional bits of the output
};

/// Fixed-point step of an upsampling.
class QRT_API InferenceParamUpsampling2DQuant : public InferenceParam {
 public:
  InferenceParamUpsampling2DQuant();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int16_t output_step_size = 0;  ///< fractional bits of the output
};

// The classes from here on belong to back ends that this library doesn't have. Files that hold them
// are read and written all the same.

/// Work-group size of an OpenGL compute kernel.
class QRT_API InferenceParamOpenGLCompute : public InferenceParam {
 public:
  InferenceParamOpenGLCompute();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t local_x = 1;  ///< work items along x
  uint32_t local_y = 1;  ///< work items along y
  uint32_t local_z = 1;  ///< work items along z
};

/// An OpenGL compute kernel with an activation fused into it.
class QRT_API InferenceParamOpenGLActivation : public InferenceParamOpenGLCompute {
 public:
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string activation;             ///< name of the activation
  int32_t activation_type = 0;        ///< code of the activation
  half_float::half activation_alpha;  ///< first parameter of the activation
  half_float::half activation_beta;   ///< second parameter of the activation
  int16_t num_parameters = 0;         ///< numbers in `weight`
  std::string weight;                 ///< parameters, one per channel
};

/// Scripts of a Metal compute kernel.
class QRT_API InferenceParamLuaCustomMetalCompute : public InferenceParam {
 public:
  InferenceParamLuaCustomMetalCompute();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string lua_script;  ///< source of the script
  std::string mtl_shader;  ///< source of the shader
};

/// A Metal compute kernel with an activation fused into it.
class QRT_API InferenceParamMetalComputeFusedActivation : public InferenceParam {
 public:
  InferenceParamMetalComputeFusedActivation();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string activation = "none";  ///< name of the activation
  int32_t activation_type = 0;      ///< code of the activation
  float activation_alpha = 1.0f;    ///< first parameter of the activation
  float activation_beta = 0.0f;     ///< second parameter of the activation
};

/// Scripts of a Metal compute kernel with an activation fused into it.
class QRT_API InferenceParamMetalComputeCommon : public InferenceParam {
 public:
  InferenceParamMetalComputeCommon();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string lua_script;           ///< source of the script
  std::string mtl_shader;           ///< source of the shader
  uint32_t write_slice_offset = 0;  ///< first slice that is written
  uint32_t activation_type = 0;     ///< code of the activation
  float activation_alpha = 1.0f;    ///< first parameter of the activation
  float activation_beta = 0.0f;     ///< second parameter of the activation
};

/// A parameter class that adds nothing to its base but its name.
#define QRT_NAMED_PARAM(name, base)             \
  class QRT_API name : public base {            \
   public:                                      \
    name() { this->serializable_type = #name; } \
  };

QRT_NAMED_PARAM(InferenceParamConv2DOpenGLCompute, InferenceParamOpenGLActivation)
QRT_NAMED_PARAM(InferenceParamElementwiseOpenGLCompute, InferenceParamOpenGLActivation)
QRT_NAMED_PARAM(InferenceParamActivationOpenGLCompute, InferenceParamOpenGLActivation)
QRT_NAMED_PARAM(InferenceParamConcatOpenGLCompute, InferenceParamOpenGLCompute)
QRT_NAMED_PARAM(InferenceParamPixelShuffleOpenGLCompute, InferenceParamOpenGLCompute)
QRT_NAMED_PARAM(InferenceParamPooling2DOpenGLCompute, InferenceParamOpenGLCompute)
QRT_NAMED_PARAM(InferenceParamFullConnectionOpenGLCompute, InferenceParamOpenGLCompute)
QRT_NAMED_PARAM(InferenceParamTensorReshapeOpenGLCompute, InferenceParamOpenGLCompute)
QRT_NAMED_PARAM(InferenceParamTensorExpandOpenGLCompute, InferenceParamOpenGLCompute)
QRT_NAMED_PARAM(InferenceParamBroadcastOpenGLCompute, InferenceParamOpenGLCompute)
QRT_NAMED_PARAM(InferenceParamUpsampling2DOpenGLCompute, InferenceParamOpenGLCompute)
QRT_NAMED_PARAM(InferenceParamConv2dMetalCompute, InferenceParamMetalComputeFusedActivation)
QRT_NAMED_PARAM(InferenceParamElementwiseMetalCompute, InferenceParamMetalComputeFusedActivation)
QRT_NAMED_PARAM(InferenceParamConcatenateMetalCompute, InferenceParamMetalComputeFusedActivation)

#undef QRT_NAMED_PARAM

/// A default parameter object of the named class, or null for an unknown name or none.
QRT_API std::shared_ptr<InferenceParam> CreateInferenceParam(const char* name);

}  // namespace marlo::runtime
