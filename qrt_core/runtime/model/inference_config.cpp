#include "qrt_core/runtime/model/inference_config.h"

#include <cstdlib>
#include <typeinfo>

#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/json_visitor.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/object_table.h"
#include "qrt_core/runtime/model/write_check_internal.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

KernelCfg::KernelCfg() { serializable_type = "KernelCfg"; }

// Whether a parameter is visited follows from the object and not from its class name, so that an
// unknown name reads as a kernel without parameters.
void KernelCfg::VisitAttr(std::shared_ptr<Visitor> visitor) {
  QRT_VISIT(visitor, kernel_type);
  QRT_VISIT(visitor, infer_param_type);
  if (infer_param == nullptr) infer_param = CreateInferenceParam(infer_param_type.c_str());
  if (infer_param == nullptr) return;
  if (const auto check = std::dynamic_pointer_cast<WriteCheck>(visitor)) {
    const auto named = CreateInferenceParam(infer_param_type.c_str());
    const InferenceParam* const read = named.get();
    const InferenceParam& held = *infer_param;
    if (read == nullptr || typeid(*read) != typeid(held)) {
      check->Refuse(
          "its parameter is of class %s, which \"infer_param_type\" (\"%s\") does not name",
          infer_param->GetClassTypeNameWithNamespace().c_str(), infer_param_type.c_str());
    }
  }
  visitor->Visit(infer_param.get(), "infer_param");
}

KernelCfgArr::KernelCfgArr() { serializable_type = "KernelCfgArr"; }

void KernelCfgArr::VisitAttr(std::shared_ptr<Visitor> visitor) {
  QRT_VISIT(visitor, kernel_ids);
  VisitTable(*visitor, kernel_ids, kernel_cfgs);
}

LayerCfg::LayerCfg()
    : input_converters(std::make_shared<KernelCfgArr>()),
      kernel(std::make_shared<KernelCfg>()),
      output_converters(std::make_shared<KernelCfgArr>()) {
  serializable_type = "LayerCfg";
}

void LayerCfg::VisitAttr(std::shared_ptr<Visitor> visitor) {
  QRT_VISIT(visitor, summary);
  VisitHeld(*visitor, input_converters, "input_converters");
  VisitHeld(*visitor, kernel, "kernel");
  VisitHeld(*visitor, output_converters, "output_converters");
}

QRModelCfg::QRModelCfg() { serializable_type = "QRModelCfg"; }

void QRModelCfg::VisitAttr(std::shared_ptr<Visitor> visitor) {
  QRT_VISIT(visitor, summary);
  QRT_VISIT(visitor, squential_ids);
  VisitTable(*visitor, squential_ids, layer_cfgs);
}

QRModelMultiBackendCfgs::QRModelMultiBackendCfgs()
    : cpu_sse(std::make_shared<QRModelCfg>()),
      cpu_avx(std::make_shared<QRModelCfg>()),
      cpu_armv7(std::make_shared<QRModelCfg>()),
      cpu_armv8(std::make_shared<QRModelCfg>()),
      cpu_armv82(std::make_shared<QRModelCfg>()),
      gpu_opengl(std::make_shared<QRModelCfg>()),
      gpu_metal(std::make_shared<QRModelCfg>()),
      gpu_cuda(std::make_shared<QRModelCfg>()) {
  serializable_type = "QRModelMultiBackendCfgs";
}

// The order is that of the files: "cpu_armv82" came later and stands last.
void QRModelMultiBackendCfgs::VisitAttr(std::shared_ptr<Visitor> visitor) {
  VisitHeld(*visitor, cpu_sse, "cpu_sse");
  VisitHeld(*visitor, cpu_avx, "cpu_avx");
  VisitHeld(*visitor, cpu_armv7, "cpu_armv7");
  VisitHeld(*visitor, cpu_armv8, "cpu_armv8");
  VisitHeld(*visitor, gpu_opengl, "gpu_opengl");
  VisitHeld(*visitor, gpu_metal, "gpu_metal");
  VisitHeld(*visitor, gpu_cuda, "gpu_cuda");
  if (visitor->_serialization_protocol_version < 20008) return;
  VisitHeld(*visitor, cpu_armv82, "cpu_armv82");
}

QRModelMultiBackendCfgsArr::QRModelMultiBackendCfgsArr() {
  serializable_type = "QRModelMultiBackendCfgsArr";
}

void QRModelMultiBackendCfgsArr::VisitAttr(std::shared_ptr<Visitor> visitor) {
  QRT_VISIT(visitor, squential_ids);
  VisitTable(*visitor, squential_ids, cfgs);
}

KernelInferenceConfig::KernelInferenceConfig(const InferenceParamRegistry* params)
    : params_(params) {
  serializable_type = "KernelInferenceConfig";
}

void KernelInferenceConfig::VisitAttr(std::shared_ptr<Visitor> visitor) {
  QRT_VISIT(visitor, kernel_type);
  QRT_VISIT(visitor, infer_param_type);
  if (infer_param_type.empty()) return;
  if (infer_param == nullptr && params_ != nullptr) infer_param = params_->Create(infer_param_type);
  Assert(infer_param != nullptr, "infer_param_type \"%s\" of kernel \"%s\" is not registered",
         infer_param_type.c_str(), kernel_type.c_str());
  visitor->Visit(infer_param.get(), "infer_param");
}

namespace {

std::shared_ptr<KernelInferenceConfig> read_kernel(json::Value& value,
                                                   InferenceParamRegistry& registry) {
  auto kernel = std::make_shared<KernelInferenceConfig>(&registry);
  kernel->VisitAttr(std::make_shared<JSONNodeGetter>(value, 0));
  return kernel;
}

// Keys are indices in decimal; one that isn't a number stands for 0, and the last of equal ones
// wins.
std::map<int, std::shared_ptr<KernelInferenceConfig>> read_converters(
    json::Value& entry, const char* key, InferenceParamRegistry& registry) {
  std::map<int, std::shared_ptr<KernelInferenceConfig>> converters;
  const auto found = entry.FindMember(key);
  if (found == entry.MemberEnd() || found->value.IsNull()) return converters;
  Assert(found->value.IsObject(), "\"%s\" of a layer's configuration: expected an object, found %s",
         key, json::kind_of(found->value));
  for (auto& member : found->value.GetObject()) {
    converters[std::atoi(member.name.GetString())] = read_kernel(member.value, registry);
  }
  return converters;
}

}  // namespace

std::shared_ptr<InferenceConfig> CreateConfigFromJSON(const std::string& json,
                                                      InferenceParamRegistry& registry) {
  json::Document document;
  json::parse(document, json.c_str());
  Assert(document.IsObject(), "the configuration text is not a JSON object");
  auto config = std::make_shared<InferenceConfig>();
  const auto list = document.FindMember("config");
  if (list == document.MemberEnd() || list->value.IsNull()) return config;
  Assert(list->value.IsArray(), "\"config\": expected an array, found %s",
         json::kind_of(list->value));

  for (auto& entry : list->value.GetArray()) {
    const size_t index = config->layers.size();
    Assert(entry.IsObject(), "entry %zu of \"config\": expected an object, found %s", index,
           json::kind_of(entry));
    LayerInferenceConfig layer;
    layer.input_converters = read_converters(entry, "input_converters", registry);
    const auto kernel = entry.FindMember("kernel");
    Assert(kernel != entry.MemberEnd(), "\"kernel\" is missing in entry %zu of \"config\"", index);
    layer.kernel = read_kernel(kernel->value, registry);
    layer.output_converters = read_converters(entry, "output_converters", registry);
    config->layers.push_back(std::move(layer));
  }
  return config;
}

}  // namespace marlo::runtime
