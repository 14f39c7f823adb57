#include "qrt_toolkit/write/write.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <ctime>
#include <set>
#include <utility>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::toolkit {
namespace {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

/// Ids that differ from one another.
class Ids {
 public:
  void take(const std::string& id) { used_.insert(id); }

  /// `wanted`, or the first of wanted#2, wanted#3, ... that is free.
  std::string unique(const std::string& wanted) {
    std::string base = wanted.empty() ? "layer" : wanted;
    if (used_.insert(base).second) return base;
    int& number = next_[base];
    for (number = std::max(number, 2);; ++number) {
      std::string id = base + "#" + std::to_string(number);
      if (used_.insert(id).second) return id;
    }
  }

 private:
  std::set<std::string> used_;
  std::map<std::string, int> next_;
};

std::vector<std::string> ids_of(const Graph& graph, const Plan& plan,
                                const std::vector<size_t>& outputs, const ModelHeader& header) {
  const auto& layers = plan.layers();
  std::vector<std::string> ids(layers.size());
  Ids given;
  // An output that is an input of the graph as well is another layer.
  for (size_t i = 0; i < layers.size(); ++i) {
    if (layers[i].info->type == 0) ids[i] = given.unique(graph.value(layers[i].value).name);
  }
  for (size_t i = 0; i < outputs.size(); ++i) {
    ids[outputs[i]] = given.unique(header.output_names[i]);
  }
  for (size_t i = 0; i < layers.size(); ++i) {
    if (!ids[i].empty()) continue;
    const PlannedLayer& layer = layers[i];
    const bool named = layer.value != kAbsent && !graph.value(layer.value).name.empty();
    ids[i] = given.unique(named ? graph.value(layer.value).name : layer.node);
  }
  return ids;
}

runtime::TimeInfo now() {
  const std::time_t seconds = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  runtime::TimeInfo time;
  time.year = static_cast<uint32_t>(parts.tm_year + 1900);
  time.moon = static_cast<uint32_t>(parts.tm_mon + 1);
  time.day = static_cast<uint32_t>(parts.tm_mday);
  time.hour = static_cast<uint32_t>(parts.tm_hour);
  time.min = static_cast<uint32_t>(parts.tm_min);
  time.sec = static_cast<uint32_t>(parts.tm_sec);
  return time;
}

void write_tensor(JsonWriter& json, const std::string& name, const runtime::TensorShape& shape) {
  json.Key("name");
  json.String(name.c_str());
  json.Key("shape");
  json.StartArray();
  for (const uint32_t size : shape.dims) json.Uint(size);
  json.EndArray();
  json.Key("layout");
  json.String(runtime::LayoutText(shape.layout).c_str());
}

void write_numbers(JsonWriter& json, const char* key, const std::vector<double>& numbers) {
  if (numbers.empty()) return;
  json.Key(key);
  json.StartArray();
  for (const double number : numbers) json.Double(number);
  json.EndArray();
}

void write_preparation(JsonWriter& json, const PicturePreparation& preparation) {
  if (preparation.empty()) return;
  json.Key("picture");
  json.StartObject();
  if (!preparation.color.empty()) {
    json.Key("color");
    json.String(preparation.color.c_str());
  }
  write_numbers(json, "mean", preparation.mean);
  write_numbers(json, "scale", preparation.scale);
  json.EndObject();
}

/// One line of JSON behind the fixed first key "qrt_model".
std::string summary_of(const Plan& plan, const std::vector<std::string>& ids,
                       const std::vector<size_t>& outputs, const ModelHeader& header) {
  rapidjson::StringBuffer text;
  JsonWriter json(text);
  json.StartObject();
  json.Key("qrt_model");
  json.Uint(1);
  json.Key("source");
  json.String(header.source.c_str());
  json.Key("producer");
  json.String(header.producer.c_str());
  json.Key("inputs");
  json.StartArray();
  size_t number = 0;
  for (size_t i = 0; i < ids.size(); ++i) {
    if (plan.layer(i).info->type != 0) continue;
    json.StartObject();
    write_tensor(json, ids[i], plan.shape(i));
    const bool has_batch = number < header.input_batches.size() && header.input_batches[number];
    const size_t axis = has_batch ? header.input_batches[number].value_or(0) : 0;
    json.Key("batch");
    json.Bool(has_batch);
    if (axis != 0) {
      json.Key("batch_axis");
      json.Uint(static_cast<unsigned>(axis));
    }
    if (plan.shape(i).dims.size() == 3) write_preparation(json, header.preparation);
    json.EndObject();
    ++number;
  }
  json.EndArray();
  json.Key("outputs");
  json.StartArray();
  for (const size_t output : outputs) {
    json.StartObject();
    write_tensor(json, ids[output], plan.shape(output));
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
  return text.GetString();
}

/// Height and width of the first input that is a picture.
void set_base_size(const Plan& plan, runtime::NetExtraInfo& info) {
  for (const PlannedLayer& layer : plan.layers()) {
    if (layer.info->type != 0 || layer.shape.dims.size() != 3) continue;
    info.model_base_h = layer.shape.dims[1];
    info.model_base_w = layer.shape.dims[2];
    return;
  }
}

}  // namespace

WrittenModel write_model(const Graph& graph, Plan plan, const std::vector<size_t>& outputs,
                         const ModelHeader& header) {
  const std::vector<std::string> ids = ids_of(graph, plan, outputs, header);
  WrittenModel written;
  auto network = std::make_shared<runtime::QRModelInfo>();
  auto configs = std::make_shared<runtime::QRModelMultiBackendCfgs>();
  runtime::QRModelCfg& config = *configs->cpu_sse;
  for (size_t i = 0; i < ids.size(); ++i) {
    PlannedLayer& layer = plan.layer(i);
    layer.info->id = ids[i];
    for (const size_t input : layer.inputs) layer.info->input_ids.push_back(ids[input]);
    network->squential_ids.push_back(ids[i]);
    network->squential_types.push_back(layer.info->type);
    network->layers[ids[i]] = layer.info;
    network->extra_info.fmlas += layer.products;
    written.node_of_layer[ids[i]] = layer.node;
    if (layer.value != kAbsent) written.value_of_layer[ids[i]] = layer.value;
    auto entry = std::make_shared<runtime::LayerCfg>();
    entry->kernel->kernel_type = layer.kernel;
    config.squential_ids.push_back(ids[i]);
    config.layer_cfgs[ids[i]] = std::move(entry);
  }
  for (const size_t output : outputs) network->squential_output_ids.push_back(ids[output]);
  network->extra_info.time = now();
  network->extra_info.device = "cpu";
  network->extra_info.summary = summary_of(plan, ids, outputs, header);
  set_base_size(plan, network->extra_info);
  network->GetOutputIDs();
  runtime::QRTModel& model = written.model;
  model.core_major_ver = 1;
  model.model_arr->squential_ids = {header.network};
  model.model_arr->infos[header.network] = std::move(network);
  model.config_arr->squential_ids = {header.network};
  model.config_arr->cfgs[header.network] = std::move(configs);
  return written;
}

}  // namespace marlo::toolkit
