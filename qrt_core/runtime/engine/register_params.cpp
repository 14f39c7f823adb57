#include "qrt_core/runtime/engine/kernel_entries.h"
#include "qrt_core/runtime/engine/registration.h"
#include "qrt_core/runtime/model/inference_param.h"

namespace marlo::runtime {
namespace {

template <typename Param>
void add_param(InferenceParamRegistry& params, const char* name) {
  const auto make = []() -> std::shared_ptr<InferenceParam> { return std::make_shared<Param>(); };
  params.Register(name, make, false);
}

}  // namespace

void register_quantisation_params(InferenceParamRegistry& params) {
  register_convolution_quantisation_param(params);
  entries::InferenceParamUpsampling2DQuant(params);
}

void register_convolution_quantisation_param(InferenceParamRegistry& params) {
  entries::InferenceParamConv2DQuant(params);
}

namespace entries {

void InferenceParamConv2DQuant(InferenceParamRegistry& params) {
  add_param<runtime::InferenceParamConv2DQuant>(params, "InferenceParamConv2DQuant");
}

void InferenceParamUpsampling2DQuant(InferenceParamRegistry& params) {
  add_param<runtime::InferenceParamUpsampling2DQuant>(params, "InferenceParamUpsampling2DQuant");
}

}  // namespace entries

}  // namespace marlo::runtime
