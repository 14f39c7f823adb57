#include "exporter.h"

#include <qrt_core/qrt_core.h>

#include <memory>
#include <vector>

using namespace marlo;

static void add(runtime::QRModelInfo& info, runtime::QRModelCfg& cfg, uint16_t code, const char* id,
                std::vector<std::string> inputs, const char* kernel) {
  const std::shared_ptr<runtime::LayerInfo> layer = runtime::MakeLayerInfo(code);
  layer->id = id;
  layer->input_ids = std::move(inputs);
  info.squential_ids.push_back(id);
  info.squential_types.push_back(code);
  info.layers[id] = layer;
  const auto layer_cfg = std::make_shared<runtime::LayerCfg>();
  layer_cfg->kernel->kernel_type = kernel;
  cfg.squential_ids.push_back(id);
  cfg.layer_cfgs[id] = layer_cfg;
}

// Classes that are made here must be the library's own: weights round and count in it, and its
// factories make them.
static bool classes_are_shared() {
  runtime::Conv2dInfo convolution;
  const float weights[] = {0.1f, 70000.0f};
  convolution.weight = runtime::MakeWeightBlob(weights, 2);
  uint64_t infinite = 0;
  for (const runtime::LayerWeight& weight : runtime::WeightsOf(convolution)) {
    infinite += runtime::RoundToHalves(*weight.blob).infinite;
  }
  const std::shared_ptr<runtime::LayerInfo> made = runtime::MakeLayerInfo(1);
  const auto param = runtime::CreateInferenceParam("InferenceParamConv2DOpenGLCompute");
  return infinite == 1 && dynamic_cast<runtime::ActivationInfo*>(made.get()) != nullptr &&
         dynamic_cast<runtime::LSTMInfo*>(made.get()) == nullptr &&
         dynamic_cast<runtime::InferenceParamConv2DOpenGLCompute*>(param.get()) != nullptr &&
         runtime::LayerTypeName(std::make_shared<runtime::LSTMInfo>()->type) == std::string("LSTM");
}

bool export_rectifier(const std::string& path) {
  const auto info = std::make_shared<runtime::QRModelInfo>();
  const auto cfgs = std::make_shared<runtime::QRModelMultiBackendCfgs>();
  add(*info, *cfgs->cpu_sse, 0, "in", {}, "Input_Fallback_M1");
  add(*info, *cfgs->cpu_sse, 1, "relu", {"in"}, "ReLU_Fallback_Float_M1");
  info->squential_output_ids = {"relu"};
  runtime::QRTModel model;
  model.sdk_type = "install-test";
  model.core_major_ver = 1;
  model.sdk_major_ver = 2;
  model.sdk_minor_ver = 3;
  model.model_arr->squential_ids = {"net"};
  model.model_arr->infos["net"] = info;
  model.config_arr->squential_ids = {"net"};
  model.config_arr->cfgs["net"] = cfgs;
  const bool is_json = path.size() > 5 && path.compare(path.size() - 5, 5, ".json") == 0;
  return classes_are_shared() && model.ToFile(path.c_str(), is_json ? "json" : "bin");
}
