#include <pybind11/stl.h>

#include <set>

#include "python/src/facts.h"
#include "qrt_core/runtime/model/base64.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/weight_blob.h"

// A model file told as dicts, without making its kernels.

namespace qrt_python {

using marlo::runtime::LayerInfo;
using marlo::runtime::QRModelCfg;
using marlo::runtime::QRModelInfo;
using marlo::runtime::QRTModel;
using marlo::runtime::Serializable;
using marlo::runtime::Visitor;

namespace {

/// Writes attributes into a dict.
class DictVisitor final : public Visitor, public marlo::runtime::WeightsAsText {
 public:
  /// @param left_out keys that are passed over
  DictVisitor(py::dict dict, std::set<std::string> left_out)
      : dict_(std::move(dict)), left_out_(std::move(left_out)) {}

#define QRT_VISIT_VALUE(type) \
  void Visit(type* value, const char* key) override { add(*value, key); }
  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_VISIT_VALUE)
#undef QRT_VISIT_VALUE

 private:
  template <typename T>
  void add(const T& value, const char* key) {
    if (key == nullptr || left_out_.count(key) != 0) return;
    dict_[key] = py::cast(value);
  }
  void add(Serializable& value, const char* key) {
    py::dict inner;
    value.VisitAttr(std::make_shared<DictVisitor>(inner, left_out_));
    add(inner, key);
  }
  void add(half_float::half value, const char* key) { add(static_cast<float>(value), key); }
  void add(const std::vector<half_float::half>& values, const char* key) {
    add(std::vector<float>(values.begin(), values.end()), key);
  }
  void add(const py::dict& value, const char* key) {
    if (key != nullptr) dict_[key] = value;
  }

  py::dict dict_;
  std::set<std::string> left_out_;
};

const char* kind_of(const LayerInfo& layer) {
  const char* const name = marlo::runtime::LayerTypeName(layer.type);
  return name == nullptr ? "" : name;
}

py::dict layer_info(LayerInfo& layer, const QRModelCfg* config) {
  py::dict facts;
  facts["id"] = layer.id;
  facts["kind"] = kind_of(layer);
  facts["inputs"] = py::cast(layer.input_ids);
  py::object kernel = py::none();
  if (config != nullptr) {
    const auto found = config->layer_cfgs.find(layer.id);
    if (found != config->layer_cfgs.end() && found->second != nullptr &&
        found->second->kernel != nullptr) {
      kernel = py::str(found->second->kernel->kernel_type);
    }
  }
  facts["kernel"] = kernel;
  // Trained numbers are counted, and not shown.
  uint64_t count = 0;
  std::set<std::string> left_out{"serializable_type", "type", "id", "input_ids", "read_count"};
  for (const auto& weight : marlo::runtime::WeightsOf(layer)) {
    left_out.insert(weight.key);
    count += marlo::runtime::WeightNumbers(*weight.blob).size();
  }
  facts["weights"] = count;
  py::dict attributes;
  layer.VisitAttr(std::make_shared<DictVisitor>(attributes, left_out));
  facts["attributes"] = attributes;
  return facts;
}

py::dict network_info(const std::string& id, QRModelInfo& network, const QRModelCfg* config) {
  py::dict facts;
  facts["id"] = id;
  facts["summary"] = network.extra_info.summary;
  facts["version"] = network.extra_info.version;
  facts["base_height"] = network.extra_info.model_base_h;
  facts["base_width"] = network.extra_info.model_base_w;
  facts["inputs"] = py::cast(network.GetInputIDs());
  facts["outputs"] = py::cast(network.squential_output_ids);
  py::list layers;
  uint64_t weights = 0;
  for (const std::string& layer : network.squential_ids) {
    const auto found = network.layers.find(layer);
    if (found == network.layers.end() || found->second == nullptr) continue;
    py::dict told = layer_info(*found->second, config);
    weights += told["weights"].cast<uint64_t>();
    layers.append(std::move(told));
  }
  facts["layers"] = layers;
  facts["weights"] = weights;
  return facts;
}

}  // namespace

py::dict info_of(QRTModel& model) {
  py::dict facts;
  facts["sdk_type"] = model.sdk_type;
  facts["sdk_version"] = py::make_tuple(model.sdk_major_ver, model.sdk_minor_ver);
  facts["core_version"] = py::make_tuple(model.core_major_ver, model.core_minor_ver);
  py::list networks;
  for (const std::string& id : model.model_arr->squential_ids) {
    const auto& network = model.model_arr->infos[id];
    if (network == nullptr) continue;
    const auto& configs = model.config_arr->cfgs[id];
    networks.append(
        network_info(id, *network, configs == nullptr ? nullptr : configs->cpu_sse.get()));
  }
  facts["networks"] = networks;
  return facts;
}

}  // namespace qrt_python
