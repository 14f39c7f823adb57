#include "qrt_core/runtime/model/inference_param.h"

#include <cstring>

#include "qrt_core/runtime/model/layer_info.h"

namespace marlo::runtime {

InferenceParamConv2DQuant::InferenceParamConv2DQuant() {
  serializable_type = "InferenceParamConv2DQuant";
}

void InferenceParamConv2DQuant::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParam::VisitAttr(visitor);
  QRT_VISIT(visitor, weight_step_size);
  QRT_VISIT(visitor, output_step_size);
}

InferenceParamFullConnectionQuant::InferenceParamFullConnectionQuant() {
  serializable_type = "InferenceParamFullConnectionQuant";
}

void InferenceParamFullConnectionQuant::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParam::VisitAttr(visitor);
  QRT_VISIT(visitor, weight_step_size);
  QRT_VISIT(visitor, output_step_size);
}

InferenceParamActQuant::InferenceParamActQuant() { serializable_type = "InferenceParamActQuant"; }

void InferenceParamActQuant::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParam::VisitAttr(visitor);
  QRT_VISIT(visitor, output_step_size);
}

InferenceParamUpsampling2DQuant::InferenceParamUpsampling2DQuant() {
  serializable_type = "InferenceParamUpsampling2DQuant";
}

void InferenceParamUpsampling2DQuant::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParam::VisitAttr(visitor);
  QRT_VISIT(visitor, output_step_size);
}

InferenceParamOpenGLCompute::InferenceParamOpenGLCompute() {
  serializable_type = "InferenceParamOpenGLCompute";
}

void InferenceParamOpenGLCompute::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParam::VisitAttr(visitor);
  QRT_VISIT(visitor, local_x);
  QRT_VISIT(visitor, local_y);
  QRT_VISIT(visitor, local_z);
}

void InferenceParamOpenGLActivation::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParamOpenGLCompute::VisitAttr(visitor);
  QRT_VISIT(visitor, activation);
  QRT_VISIT(visitor, activation_type);
  QRT_VISIT(visitor, activation_alpha);
  QRT_VISIT(visitor, activation_beta);
  QRT_VISIT(visitor, num_parameters);
  QRT_VISIT(visitor, weight);
}

InferenceParamLuaCustomMetalCompute::InferenceParamLuaCustomMetalCompute() {
  serializable_type = "InferenceParamLuaCustomMetalCompute";
}

void InferenceParamLuaCustomMetalCompute::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParam::VisitAttr(visitor);
  QRT_VISIT(visitor, lua_script);
  QRT_VISIT(visitor, mtl_shader);
}

InferenceParamMetalComputeFusedActivation::InferenceParamMetalComputeFusedActivation() {
  serializable_type = "InferenceParamMetalComputeFusedActivation";
}

void InferenceParamMetalComputeFusedActivation::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParam::VisitAttr(visitor);
  QRT_VISIT(visitor, activation);
  QRT_VISIT(visitor, activation_type);
  QRT_VISIT(visitor, activation_alpha);
  QRT_VISIT(visitor, activation_beta);
}

InferenceParamMetalComputeCommon::InferenceParamMetalComputeCommon() {
  serializable_type = "InferenceParamMetalComputeCommon";
}

void InferenceParamMetalComputeCommon::VisitAttr(std::shared_ptr<Visitor> visitor) {
  InferenceParam::VisitAttr(visitor);
  QRT_VISIT(visitor, lua_script);
  QRT_VISIT(visitor, mtl_shader);
  QRT_VISIT(visitor, write_slice_offset);
  QRT_VISIT(visitor, activation_type);
  QRT_VISIT(visitor, activation_alpha);
  QRT_VISIT(visitor, activation_beta);
}

namespace {

template <typename Param>
std::shared_ptr<InferenceParam> make() {
  return std::make_shared<Param>();
}

struct Entry {
  const char* name;
  std::shared_ptr<InferenceParam> (*make)();
};

#define QRT_PARAM_ENTRY(name) \
  { #name, make < name> }
constexpr Entry kEntries[] = {
    QRT_PARAM_ENTRY(InferenceParamActQuant),
    QRT_PARAM_ENTRY(InferenceParamFullConnectionQuant),
    QRT_PARAM_ENTRY(InferenceParamUpsampling2DQuant),
    QRT_PARAM_ENTRY(InferenceParamConv2DQuant),
    QRT_PARAM_ENTRY(InferenceParamOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamConv2DOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamElementwiseOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamConcatOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamPixelShuffleOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamPooling2DOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamFullConnectionOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamTensorReshapeOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamTensorExpandOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamBroadcastOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamActivationOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamUpsampling2DOpenGLCompute),
    QRT_PARAM_ENTRY(InferenceParamLuaCustomMetalCompute),
    QRT_PARAM_ENTRY(InferenceParamMetalComputeFusedActivation),
    QRT_PARAM_ENTRY(InferenceParamConv2dMetalCompute),
    QRT_PARAM_ENTRY(InferenceParamElementwiseMetalCompute),
    QRT_PARAM_ENTRY(InferenceParamConcatenateMetalCompute),
    QRT_PARAM_ENTRY(InferenceParamMetalComputeCommon),
};
#undef QRT_PARAM_ENTRY

}  // namespace

std::shared_ptr<InferenceParam> CreateInferenceParam(const char* name) {
  if (name == nullptr) return nullptr;
  for (const Entry& entry : kEntries) {
    if (std::strcmp(entry.name, name) == 0) return entry.make();
  }
  return nullptr;
}

}  // namespace marlo::runtime
