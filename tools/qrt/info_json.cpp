#include "tools/qrt/info_text.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/shapes.h"

namespace qrt_tool {

using marlo::runtime::KernelCfgArr;
using marlo::runtime::LayerCfg;
using marlo::runtime::QRTModel;

namespace {

void add_kernel(JsonText& json, const KernelReport& kernel) {
  json.text("kernel", kernel.name);
  json.boolean("runs_here", kernel.kernel != nullptr && kernel.problem.empty());
  if (!kernel.problem.empty()) json.text("problem", kernel.problem);
}

void add_converters(JsonText& json, const char* key,
                    const std::map<uint32_t, KernelReport>& converters) {
  json.begin_array(key);
  for (const auto& [position, converter] : converters) {
    json.begin_object();
    json.integer("position", position);
    add_kernel(json, converter);
    json.end_object();
  }
  json.end_array();
}

void add_layer(JsonText& json, const ShownNetwork& shown, const LayerReport& layer) {
  json.begin_object();
  json.integer("index", layer.index);
  json.text("id", layer.id);
  json.text("kind", layer.kind);
  json.boolean("is_input", layer.is_input);
  json.boolean("is_output", layer.is_output);
  json.sizes("reads", layer.sources);
  if (shown.has_kernels) {
    add_kernel(json, layer.kernel);
    add_converters(json, "input_converters", layer.input_converters);
    add_converters(json, "output_converters", layer.output_converters);
  }
  if (!layer.outputs.empty()) add_shape(json, "output", layer.outputs[0]);
  json.integer("weights", layer.weights);
  if (layer.multiply_adds) json.integer("multiply_adds", *layer.multiply_adds);
  json.end_object();
}

void add_network(JsonText& json, const ShownNetwork& shown) {
  const NetworkReport& report = shown.report;
  uint64_t weights = 0;
  uint64_t multiply_adds = 0;
  bool is_complete = true;
  json.begin_object();
  json.text("id", report.id);
  json.text("summary", report.header.summary);
  json.integer("version", report.header.version);
  json.integer("base_height", report.header.model_base_h);
  json.integer("base_width", report.header.model_base_w);
  json.sizes("inputs", report.inputs());
  json.sizes("outputs", report.outputs());
  if (shown.tuned) {
    json.begin_object("tuned_for");
    json.text("processor", shown.tuned->processor);
    json.text("kernels", shown.tuned->kernels);
    json.text("library", shown.tuned->library);
    json.text("date", shown.tuned->date);
    json.begin_object("inputs");
    for (const auto& [id, shape] : shown.tuned->inputs) json.text(id.c_str(), shape);
    json.end_object();
    json.begin_array("further_inputs");
    for (const auto& inputs : shown.tuned->further) {
      json.begin_object();
      for (const auto& [id, shape] : inputs) json.text(id.c_str(), shape);
      json.end_object();
    }
    json.end_array();
    json.end_object();
  }
  json.begin_array("layers");
  for (const LayerReport& layer : report.layers) {
    add_layer(json, shown, layer);
    weights += layer.weights;
    multiply_adds += layer.multiply_adds.value_or(0);
    is_complete = is_complete && !layer.outputs.empty();
  }
  json.end_array();
  json.integer("weights", weights);
  if (is_complete) {
    json.integer("multiply_adds", multiply_adds);
  } else {
    json.null("multiply_adds");
  }
  json.end_object();
}

void add_config_converters(JsonText& json, const char* key, const KernelCfgArr& converters) {
  json.begin_array(key);
  for (const std::string& position : converters.kernel_ids) {
    json.begin_object();
    json.text("position", position);
    json.text("kernel", converters.kernel_cfgs.at(position)->kernel_type);
    json.end_object();
  }
  json.end_array();
}

}  // namespace

std::string networks_json(const std::string& path, const QRTModel* model,
                          const std::vector<ShownNetwork>& networks) {
  JsonText json;
  json.begin_object();
  json.text("file", path);
  if (model != nullptr) {
    json.text("sdk_type", model->sdk_type);
    json.integer("sdk_major", model->sdk_major_ver);
    json.integer("sdk_minor", model->sdk_minor_ver);
    json.integer("core_major", model->core_major_ver);
    json.integer("core_minor", model->core_minor_ver);
  }
  json.begin_array("networks");
  for (const ShownNetwork& network : networks) add_network(json, network);
  json.end_array();
  json.end_object();
  return json.finish();
}

std::string configs_json(const std::string& path, const std::vector<NamedConfig>& configs) {
  JsonText json;
  json.begin_object();
  json.text("file", path);
  json.begin_array("configs");
  for (const auto& [name, config] : configs) {
    json.begin_object();
    json.text("name", name);
    json.text("summary", config->summary);
    json.begin_array("layers");
    for (const std::string& id : config->squential_ids) {
      const LayerCfg& layer = *config->layer_cfgs.at(id);
      json.begin_object();
      json.text("id", id);
      json.text("kernel", layer.kernel->kernel_type);
      add_config_converters(json, "input_converters", *layer.input_converters);
      add_config_converters(json, "output_converters", *layer.output_converters);
      json.end_object();
    }
    json.end_array();
    json.end_object();
  }
  json.end_array();
  json.end_object();
  return json.finish();
}

}  // namespace qrt_tool
