#include <algorithm>
#include <cstdlib>
#include <exception>
#include <map>
#include <set>
#include <utility>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/utility/application.h"
#include "qrt_core/utility/check_model_internal.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/nearest_name_internal.h"

namespace marlo::utility {
namespace {

using runtime::IKernel;
using runtime::IKernelFacts;
using runtime::KernelCfg;
using runtime::KernelCfgArr;
using runtime::Layer;
using runtime::LayerCfg;
using runtime::LayerInfo;
using runtime::QRModelCfg;
using runtime::QRModelInfo;

constexpr char kInputName[] = "Input";
constexpr uint32_t kMostAdvice = 20;

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

/// The checks of one network's ids and kernels.
class NetworkCheck {
 public:
  NetworkCheck(const std::string& id, QRModelInfo& info,
               const runtime::QRModelMultiBackendCfgs& cfgs, const runtime::KernelRegistry& kernels,
               const CheckSources& sources, FindingList& findings)
      : info_(info),
        cfgs_(cfgs),
        kernels_(kernels),
        weights_(sources.weights),
        findings_(findings) {
    network_.network = id;
    if (sources.nets != nullptr && sources.nets->count(id) != 0) ready_ = sources.nets->at(id);
    for (uint32_t p = 0; p < info.squential_ids.size(); ++p) {
      positions_[info.squential_ids[p]] = p;
    }
    create_context(context_, 32);
  }

  void run() {
    if (info_.squential_ids.empty()) {
      findings_.add(network_, FindingCode::no_outputs, Severity::error, "squential_ids",
                    "the ids of the network's layers", "none", "list them in execution order");
    }
    check_configurations();
    std::set<std::string> seen;
    for (uint32_t p = 0; p < info_.squential_ids.size(); ++p) {
      layers_.push_back(check_layer(p, !seen.insert(info_.squential_ids[p]).second));
    }
    check_outputs();
  }

  const std::vector<CheckedLayer>& layers() const { return layers_; }
  const std::vector<uint32_t>& outputs() const { return outputs_; }
  const std::shared_ptr<runtime::Context>& context() const { return context_; }

 private:
  void check_configurations() {
    const QRModelCfg& used = *cfgs_.cpu_sse;
    if (used.layer_cfgs.empty() && !info_.squential_ids.empty()) {
      const bool is_in_avx = cfgs_.cpu_avx != nullptr && !cfgs_.cpu_avx->layer_cfgs.empty();
      findings_.add(network_, FindingCode::missing_configuration, Severity::error,
                    "config_arr.cpu_sse", "an entry for each layer",
                    is_in_avx ? "none; \"cpu_avx\" has some" : "none",
                    is_in_avx ? "move them to \"cpu_sse\", which is read whatever the kernels are"
                              : "add them");
      has_configuration_ = false;
    }
    for (const auto& [id, cfg] : used.layer_cfgs) {
      if (positions_.count(id) != 0) continue;
      findings_.add(network_, FindingCode::unused_configuration, Severity::warning,
                    "config_arr.cpu_sse", "the id of a layer", quoted(id),
                    nearest_advice(id, info_.squential_ids, "remove the entry"));
    }
    if (!has_configuration_ || cfgs_.cpu_avx == nullptr) return;
    for (const auto& [id, cfg] : cfgs_.cpu_avx->layer_cfgs) {
      const auto entry = used.layer_cfgs.find(id);
      if (entry != used.layer_cfgs.end() || positions_.count(id) == 0) continue;
      findings_.add(network_, FindingCode::unused_configuration, Severity::error,
                    "config_arr.cpu_avx", "the entry of " + quoted(id) + " in \"cpu_sse\"",
                    "one in \"cpu_avx\" only", "move it to \"cpu_sse\"");
    }
  }

  CheckedLayer check_layer(uint32_t position, bool is_repeated) {
    const std::string& id = info_.squential_ids[position];
    CheckedLayer checked;
    checked.place = network_;
    checked.place.layer = position;
    checked.place.id = id;
    const auto found = info_.layers.find(id);
    if (found == info_.layers.end() || found->second == nullptr) {
      findings_.add(checked.place, FindingCode::unknown_id, Severity::error, "squential_ids",
                    "the id of a layer of the network", quoted(id), "describe the layer");
      return checked;
    }
    checked.info = found->second;
    checked.place.kind = kind_of(*checked.info);
    checked.layer = std::make_shared<Layer>();
    checked.layer->name = runtime::LayerTypeName(checked.info->type);
    checked.layer->id = id;
    if (is_repeated) {
      findings_.add(checked.place, FindingCode::repeated_id, Severity::error, "squential_ids",
                    "each id once", quoted(id) + " again",
                    "remove it: its readers get the result of the last place");
    } else {
      check_identity(checked);
    }
    check_sources(checked, position, is_repeated);
    const runtime::FilledLayer filled(weights_, found->second);
    make_kernels(checked, id, is_repeated);
    if (!is_repeated) check_weights(*checked.info, checked.place, findings_);
    return checked;
  }

  void check_identity(const CheckedLayer& checked) {
    const LayerInfo& info = *checked.info;
    if (info.id != checked.place.id) {
      findings_.add(checked.place, FindingCode::unknown_id, Severity::warning, "id",
                    quoted(checked.place.id) + ", as it is listed", quoted(info.id),
                    "make both the same: connections are entered under the one in the layer");
    }
    if (checked.layer->name == kInputName && !info.input_ids.empty()) {
      findings_.add(checked.place, FindingCode::wrong_order, Severity::error, "input_ids",
                    "none: an input layer takes its tensor from the caller",
                    quoted(info.input_ids[0]), "empty the list");
    } else if (checked.layer->name != kInputName && info.input_ids.empty() &&
               dynamic_cast<const runtime::ConstantInfo*>(&info) == nullptr) {
      findings_.add(checked.place, FindingCode::unknown_id, Severity::error, "input_ids",
                    "the ids of the layers that it reads", "none", "list them");
    }
  }

  void check_sources(CheckedLayer& checked, uint32_t position, bool is_repeated) {
    const std::vector<std::string>& ids = checked.info->input_ids;
    for (uint32_t j = 0; j < ids.size(); ++j) {
      const auto source = positions_.find(ids[j]);
      const std::string member = "input_ids[" + std::to_string(j) + "]";
      uint32_t index = 0;
      if (source == positions_.end()) {
        if (!is_repeated) {
          findings_.add(checked.place, FindingCode::unknown_id, Severity::error, member,
                        "the id of a layer", quoted(ids[j]) + ", which counts as layer 0",
                        nearest_advice(ids[j], info_.squential_ids, "name a layer"));
        }
      } else {
        index = source->second;
      }
      if (index >= position) {
        if (checked.layer->name != kInputName && source != positions_.end()) {
          findings_.add(checked.place, FindingCode::wrong_order, Severity::error, member,
                        "a layer that stands before this one",
                        quoted(ids[j]) + ", layer " + std::to_string(index),
                        "sort \"squential_ids\" and \"squential_types\"");
        }
        continue;
      }
      checked.layer->inputs.emplace_back(index, 0);
      if (layers_[index].layer != nullptr) {
        layers_[index].layer->consumers.emplace_back(position, j);
      }
    }
  }

  void make_kernels(CheckedLayer& checked, const std::string& id, bool is_repeated) {
    if (!has_configuration_) return;
    const auto found = cfgs_.cpu_sse->layer_cfgs.find(id);
    if (found == cfgs_.cpu_sse->layer_cfgs.end() || found->second == nullptr ||
        found->second->kernel == nullptr) {
      if (!is_repeated) {
        findings_.add(checked.place, FindingCode::missing_configuration, Severity::error,
                      "config_arr.cpu_sse", "an entry for the layer", "none", "add one");
      }
      return;
    }
    const LayerCfg& cfg = *found->second;
    if (take_ready_kernels(checked)) {
      checked.place.kernel = cfg.kernel->kernel_type;
      return;
    }
    // A layer that is listed again shares the kernels of its first place.
    if (is_repeated) {
      for (const CheckedLayer& before : layers_) {
        if (before.place.id != id || before.layer == nullptr) continue;
        checked.layer->kernel = before.layer->kernel;
        checked.layer->input_converters = before.layer->input_converters;
        checked.layer->output_converters = before.layer->output_converters;
        checked.place.kernel = before.place.kernel;
        return;
      }
    }
    make_converters(checked, cfg.input_converters.get(), "input_converters",
                    checked.layer->input_converters);
    checked.layer->kernel = make_kernel(checked, *cfg.kernel, checked.info, "kernel");
    make_converters(checked, cfg.output_converters.get(), "output_converters",
                    checked.layer->output_converters);
    checked.place.kernel = cfg.kernel->kernel_type;
  }

  // @return whether there are some; one that was refused has to say why
  bool take_ready_kernels(const CheckedLayer& checked) const {
    const uint32_t position = *checked.place.layer;
    if (ready_ == nullptr || position >= ready_->layers.size()) return false;
    const Layer& ready = *ready_->layers[position];
    const auto is_there = [](const auto& converter) { return converter.second != nullptr; };
    if (ready.kernel == nullptr ||
        !std::all_of(ready.input_converters.begin(), ready.input_converters.end(), is_there) ||
        !std::all_of(ready.output_converters.begin(), ready.output_converters.end(), is_there)) {
      return false;
    }
    checked.layer->kernel = ready.kernel;
    checked.layer->input_converters = ready.input_converters;
    checked.layer->output_converters = ready.output_converters;
    return true;
  }

  void make_converters(const CheckedLayer& checked, const KernelCfgArr* cfgs, const char* key,
                       std::map<uint32_t, std::shared_ptr<IKernel>>& converters) {
    if (cfgs == nullptr) return;
    for (const std::string& index : cfgs->kernel_ids) {
      const std::string member = std::string(key) + "." + index;
      const auto cfg = cfgs->kernel_cfgs.find(index);
      if (cfg == cfgs->kernel_cfgs.end() || cfg->second == nullptr) {
        findings_.add(checked.place, FindingCode::missing_configuration, Severity::error, member,
                      "a converter", "none", "describe it, or take it out of \"kernel_ids\"");
        continue;
      }
      if (index.empty() || index.find_first_not_of("0123456789") != std::string::npos) {
        findings_.add(checked.place, FindingCode::unknown_id, Severity::warning, member,
                      "the index of an input or output in decimal", quoted(index),
                      "what is no number counts as 0");
      }
      converters[static_cast<uint32_t>(std::atoi(index.c_str()))] =
          make_kernel(checked, *cfg->second, nullptr, member);
    }
  }

  std::shared_ptr<IKernel> make_kernel(const CheckedLayer& checked, const KernelCfg& cfg,
                                       const std::shared_ptr<LayerInfo>& info,
                                       const std::string& member) {
    Finding place = checked.place;
    place.kernel = cfg.kernel_type;
    if (!cfg.infer_param_type.empty() && cfg.infer_param == nullptr) {
      findings_.add(place, FindingCode::unknown_kernel, Severity::warning,
                    member + ".infer_param_type", "the class of a parameter object",
                    quoted(cfg.infer_param_type), "make it \"\" for none");
    }
    std::shared_ptr<IKernel> kernel = kernels_.Create(cfg.kernel_type);
    if (kernel == nullptr) {
      findings_.add(place, FindingCode::unknown_kernel, Severity::error, member,
                    "the name of a kernel of this build", quoted(cfg.kernel_type),
                    unknown_kernel_advice(cfg, info));
      return nullptr;
    }
    std::string fault;
    try {
      if (kernel->Config(info, cfg.infer_param, context_)) return kernel;
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& failure) {
      const auto* error = dynamic_cast<const Error*>(&failure);
      fault = error != nullptr ? error->message() : failure.what();
    }
    add_refusal(place, *kernel, cfg, info, fault);
    return nullptr;
  }

  void add_refusal(const Finding& place, IKernel& kernel, const KernelCfg& cfg,
                   const std::shared_ptr<LayerInfo>& info, const std::string& fault) {
    std::vector<Misfit> misfits;
    if (const auto* facts = dynamic_cast<const IKernelFacts*>(&kernel)) {
      try {
        misfits = facts->refusals(info.get(), cfg.infer_param.get());
      } catch (const std::exception&) {
        misfits.clear();
      }
    }
    if (misfits.empty()) {
      misfits.push_back(
          {"kernel", "one that takes the layer", fault.empty() ? "one that refuses it" : fault});
    }
    for (Misfit& misfit : misfits) {
      if (misfit.member.empty()) misfit.member = "kernel";
    }
    findings_.add(place, FindingCode::refused_layer, Severity::error, misfits,
                  takers_advice(cfg, info));
  }

  // The kernels that take a description, those of similar names first.
  std::vector<std::string> takers(const KernelCfg& cfg, const std::shared_ptr<LayerInfo>& info) {
    std::vector<std::string> names;
    for (const std::string& name : kernels_.Keys()) {
      try {
        const auto kernel = kernels_.Create(name);
        if (kernel->CheckConfig(info, cfg.infer_param) == runtime::KERNEL_OK) {
          names.push_back(name);
        }
      } catch (const std::exception&) {
        continue;  // a kernel of the application that refuses in its own way
      }
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string takers_advice(const KernelCfg& cfg, const std::shared_ptr<LayerInfo>& info) {
    // Every kernel is asked; a file of thousands of such layers has another fault.
    if (++advised_ > kMostAdvice) return "docs/kernel-catalogue.md says what each kernel takes";
    const std::vector<std::string> names = takers(cfg, info);
    if (names.empty()) return "no kernel of this build takes it as it is: change the description";
    const std::string nearest = nearest_name(cfg.kernel_type, names);
    return (nearest.empty() ? names[0] : nearest) + " would take it" +
           (names.size() > 1 ? ", and " + std::to_string(names.size() - 1) + " others" : "");
  }

  std::string unknown_kernel_advice(const KernelCfg& cfg, const std::shared_ptr<LayerInfo>& info) {
    const std::string nearest = nearest_name(cfg.kernel_type, kernels_.Keys());
    return nearest.empty() ? takers_advice(cfg, info) : "did you mean \"" + nearest + "\"?";
  }

  void check_outputs() {
    std::set<std::string> seen;
    for (const std::string& id : info_.squential_output_ids) {
      const auto found = positions_.find(id);
      if (found == positions_.end()) {
        findings_.add(network_, FindingCode::unknown_id, Severity::error, "squential_output_ids",
                      "the id of a layer", quoted(id),
                      nearest_advice(id, info_.squential_ids, "name a layer"));
      } else {
        outputs_.push_back(found->second);
      }
      if (!seen.insert(id).second) {
        findings_.add(network_, FindingCode::repeated_id, Severity::warning, "squential_output_ids",
                      "each id once", quoted(id) + " again", "remove it");
      }
    }
    if (info_.squential_ids.empty()) return;
    if (info_.squential_output_ids.empty()) {
      findings_.add(network_, FindingCode::no_outputs, Severity::error, "squential_output_ids",
                    "the ids of the layers that the network returns", "none",
                    "list them: without any a pass computes nothing");
      return;
    }
    for (uint32_t p = 0; p < layers_.size(); ++p) {
      const CheckedLayer& checked = layers_[p];
      if (checked.layer == nullptr || !checked.layer->consumers.empty()) continue;
      if (positions_.at(checked.place.id) != p || seen.count(checked.place.id) != 0) continue;
      findings_.add(checked.place, FindingCode::unused_layer, Severity::warning,
                    "squential_output_ids", "a layer that another reads, or that is returned",
                    "neither", "list it, or remove it");
    }
  }

  QRModelInfo& info_;
  const runtime::QRModelMultiBackendCfgs& cfgs_;
  const runtime::KernelRegistry& kernels_;
  const runtime::WeightPlaces* weights_;
  const runtime::Net* ready_ = nullptr;
  FindingList& findings_;
  Finding network_;
  std::map<std::string, uint32_t> positions_;
  std::shared_ptr<runtime::Context> context_;  // goes after the kernels
  std::vector<CheckedLayer> layers_;
  std::vector<uint32_t> outputs_;
  bool has_configuration_ = true;
  uint32_t advised_ = 0;
};

}  // namespace

void check_network(const std::string& id, const std::shared_ptr<QRModelInfo>& info,
                   const runtime::QRModelMultiBackendCfgs& cfgs,
                   const runtime::KernelRegistry& kernels, const CheckOptions& options,
                   const CheckSources& sources, FindingList& findings) {
  if (cfgs.cpu_sse == nullptr) {
    Finding place;
    place.network = id;
    findings.add(place, FindingCode::missing_configuration, Severity::error, "config_arr.cpu_sse",
                 "a configuration", "a null pointer", "add one");
    return;
  }
  NetworkCheck check(id, *info, cfgs, kernels, sources, findings);
  check.run();
  const auto inputs = options.inputs.find(id);
  check_network_shapes(check.layers(), *info,
                       inputs != options.inputs.end()
                           ? inputs->second
                           : std::map<std::string, runtime::TensorShape>(),
                       check.context(), findings);
  check_overwritten(check.layers(), check.outputs(), findings);
}

}  // namespace marlo::utility
