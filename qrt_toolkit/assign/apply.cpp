#include "qrt_toolkit/assign/apply.h"

#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/assign/description.h"
#include "qrt_toolkit/assign/epilogue.h"

namespace marlo::toolkit {
namespace {

using runtime::KernelCfg;
using runtime::KernelCfgArr;
using runtime::LayerCfg;
using runtime::LayerInfo;

std::shared_ptr<KernelCfg> naming(const std::string& kernel) {
  auto cfg = std::make_shared<KernelCfg>();
  cfg->kernel_type = kernel;
  return cfg;
}

void add_converter(KernelCfgArr& converters, size_t place, const std::string& kernel) {
  const std::string index = std::to_string(place);
  converters.kernel_ids.push_back(index);
  converters.kernel_cfgs[index] = naming(kernel);
}

/// Writes one network anew.
class Writer {
 public:
  Writer(const runtime::QRModelInfo& network, const Problem& problem, const Assignment& assignment)
      : given_(network),
        problem_(problem),
        assignment_(assignment),
        network_(std::make_shared<runtime::QRModelInfo>(network)),
        config_(std::make_shared<runtime::QRModelCfg>()) {
    network_->squential_ids.clear();
    network_->squential_types.clear();
    for (const auto& [id, layer] : network.layers) used_.insert(id);
  }

  void run() {
    for (size_t v = 0; v < problem_.layers.size(); ++v) {
      add_layer(v);
      for (const Conversion& conversion : assignment_.converters[v])
        add_converter_layer(v, conversion);
    }
    count_readers(given_.layers);
    report_.cost = assignment_.cost - kBeyondSet * static_cast<double>(report_.beyond.size());
    report_.is_exact = assignment_.is_exact;
  }

  std::shared_ptr<runtime::QRModelInfo> network() const { return network_; }
  std::shared_ptr<runtime::QRModelCfg> config() const { return config_; }
  AssignReport take_report() { return std::move(report_); }

 private:
  const Option& chosen(size_t v) const {
    return problem_.options[v].options[assignment_.choices[v]];
  }

  void add_layer(size_t v) {
    const ReferenceLayer& layer = problem_.layers[v];
    const Option& option = chosen(v);
    const size_t choice = assignment_.choices[v];
    std::shared_ptr<LayerInfo> info = option.info;
    auto cfg =
        layer.is_fixed ? std::make_shared<LayerCfg>(*layer.cfg) : std::make_shared<LayerCfg>();
    if (!layer.is_fixed) {
      cfg->summary = layer.cfg->summary;
      cfg->kernel = naming(option.candidate.kernel);
      if (!option.output_converter.empty()) {
        add_converter(*cfg->output_converters, 0, option.output_converter);
      }
    }
    if (!layer.is_input) connect(v, problem_.graph[v].choices[choice], info);
    const auto made = problem_.graph[v].choices[choice].output;
    ids_[{v, made}] = layer.id;
    append(layer.id, info, cfg);
    AssignedLayer entry;
    entry.id = layer.id;
    entry.before = layer.kernel;
    entry.kernel = option.candidate.kernel;
    entry.candidates = problem_.options[v].options.size();
    entry.cost = option.cost;
    entry.cost_before = problem_.options[v].options[0].cost;
    if (problem_.graph[v].choices[choice].cost >= kBeyondSet) report_.beyond.push_back(layer.id);
    report_.layers.push_back(std::move(entry));
  }

  /// Lets a layer read the forms that its choice reads.
  void connect(size_t v, const Choice& choice, std::shared_ptr<LayerInfo>& info) const {
    std::vector<std::string> ids;
    for (size_t i = 0; i < choice.inputs.size(); ++i) {
      ids.push_back(ids_.at({problem_.layers[v].inputs[i], choice.inputs[i]}));
    }
    if (ids == info->input_ids) return;
    // The weights are copied with it; few layers read what a converter made.
    std::shared_ptr<LayerInfo> copy = copy_of(*info);
    if (copy == nullptr) {
      throw std::invalid_argument("layer \"" + problem_.layers[v].id +
                                  "\": its description can't be copied");
    }
    copy->input_ids = std::move(ids);
    info = std::move(copy);
  }

  void add_converter_layer(size_t v, const Conversion& conversion) {
    const Form& to = problem_.options[v].forms[conversion.to];
    auto info = std::make_shared<runtime::ActivationInfo>();
    auto cfg = std::make_shared<LayerCfg>();
    // Converters take no description: a layer hands the tensor on, and its output is converted.
    cfg->kernel = naming(kStraightThrough);
    add_converter(*cfg->output_converters, 0,
                  problem_.options[v].converters[conversion.from][conversion.to]);
    const std::string id =
        unique(problem_.layers[v].id + "#" + runtime::LayoutText(to.shape.layout));
    static_cast<LayerInfo&>(*info).id = id;
    info->input_ids = {ids_.at({v, conversion.from})};
    ids_[{v, conversion.to}] = id;
    append(id, info, cfg);
    report_.converters[id] = problem_.layers[v].id;
  }

  using Counts = std::map<std::string, uint16_t>;
  using Layers = std::unordered_map<std::string, std::shared_ptr<LayerInfo>>;

  static Counts readers_of(const Layers& layers) {
    Counts counts;
    for (const auto& [id, info] : layers) {
      for (const std::string& input : info->input_ids) ++counts[input];
    }
    return counts;
  }

  /// Descriptions that the given model shares keep their counts: one whose readers change is copied.
  void count_readers(const Layers& given) {
    Counts before = readers_of(given);
    Counts after = readers_of(network_->layers);
    for (auto& [id, info] : network_->layers) {
      if (before[id] == after[id]) continue;
      if (std::shared_ptr<LayerInfo> copy = copy_of(*info)) info = std::move(copy);
      info->read_count = after[id];
    }
  }

  std::string unique(const std::string& wanted) {
    std::string id = wanted;
    for (int number = 2; !used_.insert(id).second; ++number) {
      id = wanted + "#" + std::to_string(number);
    }
    return id;
  }

  void append(const std::string& id, const std::shared_ptr<LayerInfo>& info,
              const std::shared_ptr<LayerCfg>& cfg) {
    network_->squential_ids.push_back(id);
    network_->squential_types.push_back(info->type);
    network_->layers[id] = info;
    config_->squential_ids.push_back(id);
    config_->layer_cfgs[id] = cfg;
  }

  const runtime::QRModelInfo& given_;
  const Problem& problem_;
  const Assignment& assignment_;
  std::shared_ptr<runtime::QRModelInfo> network_;
  std::shared_ptr<runtime::QRModelCfg> config_;
  std::map<std::pair<size_t, FormIndex>, std::string> ids_;  // of layer and form
  std::set<std::string> used_;
  AssignReport report_;
};

}  // namespace

AssignedModel apply_assignment(const runtime::QRTModel& model, const std::string& network,
                               const Problem& problem, const Assignment& assignment) {
  Writer writer(*model.model_arr->infos.at(network), problem, assignment);
  writer.run();
  AssignedModel assigned;
  assigned.model = model;
  // Copies of a model share its parts; these get other contents.
  assigned.model.model_arr = std::make_shared<runtime::QRModelInfoArr>(*model.model_arr);
  assigned.model.model_arr->infos[network] = writer.network();
  assigned.model.config_arr =
      std::make_shared<runtime::QRModelMultiBackendCfgsArr>(*model.config_arr);
  auto configs =
      std::make_shared<runtime::QRModelMultiBackendCfgs>(*model.config_arr->cfgs.at(network));
  const std::string summary = configs->cpu_sse->summary;
  configs->cpu_sse = writer.config();
  configs->cpu_sse->summary = summary;
  assigned.model.config_arr->cfgs[network] = std::move(configs);
  assigned.report = writer.take_report();
  return assigned;
}

}  // namespace marlo::toolkit
