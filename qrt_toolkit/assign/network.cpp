#include "qrt_toolkit/assign/network.h"

#include <algorithm>
#include <stdexcept>

#include "qrt_core/runtime/engine/kernel_facts.h"

namespace marlo::toolkit {
namespace {

[[noreturn]] void fail(const std::string& id, const std::string& why) {
  throw std::invalid_argument("network \"" + id + "\": " + why);
}

}  // namespace

std::string network_id(const runtime::QRTModel& model, const std::string& wanted) {
  if (model.model_arr == nullptr) throw std::invalid_argument("the model holds no network");
  const auto& ids = model.model_arr->squential_ids;
  if (!wanted.empty()) {
    if (model.model_arr->infos.count(wanted) == 0) fail(wanted, "the model hasn't got it");
    return wanted;
  }
  if (ids.size() == 1) return ids[0];
  throw std::invalid_argument("the model holds " + std::to_string(ids.size()) +
                              " networks; expected the id of one");
}

const runtime::QRModelInfo& network_of(const runtime::QRTModel& model, const std::string& id) {
  const auto found = model.model_arr->infos.find(id);
  if (found == model.model_arr->infos.end() || found->second == nullptr) {
    fail(id, "the model doesn't describe it");
  }
  return *found->second;
}

const runtime::QRModelCfg& config_of(const runtime::QRTModel& model, const std::string& id) {
  if (model.config_arr == nullptr) fail(id, "the model has no configurations");
  const auto found = model.config_arr->cfgs.find(id);
  if (found == model.config_arr->cfgs.end() || found->second == nullptr ||
      found->second->cpu_sse == nullptr) {
    fail(id, "the model has no configuration for it");
  }
  return *found->second->cpu_sse;
}

std::vector<std::pair<std::string, std::string>> kernels_beyond(const runtime::QRModelCfg& config,
                                                                KernelSet set) {
  std::vector<std::pair<std::string, std::string>> found;
  for (const auto& [layer, cfg] : config.layer_cfgs) {
    if (cfg == nullptr) continue;
    const auto add = [&, id = &layer](const runtime::KernelCfg* kernel) {
      if (kernel == nullptr) return;
      const std::string& name = kernel->kernel_type;
      if (set_of_kernel(name, runtime::needs_of(name)) > set) found.emplace_back(*id, name);
    };
    add(cfg->kernel.get());
    for (const auto* converters : {cfg->input_converters.get(), cfg->output_converters.get()}) {
      if (converters == nullptr) continue;
      for (const auto& [place, kernel] : converters->kernel_cfgs) add(kernel.get());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

void check_runnable(const runtime::QRModelCfg& config) {
  const KernelSet most = processor_kernels();
  const auto found = kernels_beyond(config, most);
  if (found.empty()) return;
  const auto& [layer, kernel] = found.front();
  throw std::invalid_argument("layer \"" + layer + "\": this processor can't run " + kernel +
                              ", which needs " + runtime::PrintedName(runtime::needs_of(kernel)) +
                              "; choose kernels up to " + word_of(most) +
                              " on a processor that can");
}

}  // namespace marlo::toolkit
