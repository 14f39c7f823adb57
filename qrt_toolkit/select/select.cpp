#include "qrt_toolkit/select/select.h"

#include <algorithm>
#include <stdexcept>

#include "qrt_core/utility/application.h"

namespace marlo::toolkit {

using runtime::KernelCfg;
using runtime::LayerCfg;

namespace {

using Registries = void (*)(runtime::KernelRegistry&, runtime::InferenceParamRegistry&);

/// A function of the library that registers kernels.
struct Registration {
  const char* name;
  Registries function;
};

constexpr Registration kRegistrations[] = {
    {"init_register_operators", utility::init_register_operators},
    {"init_register_extension_operators", utility::init_register_extension_operators},
};

/// What one such function registers.
struct Registered {
  explicit Registered(Registries function) { function(kernels, params); }

  bool has_kernel(const std::string& name) const { return has(kernels.Keys(), name); }
  bool has_param(const std::string& name) const { return has(params.Keys(), name); }

  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;

 private:
  static bool has(const std::vector<std::string>& keys, const std::string& name) {
    return std::find(keys.begin(), keys.end(), name) != keys.end();
  }
};

std::vector<Registered> all_registered() {
  std::vector<Registered> all;
  for (const Registration& registration : kRegistrations) all.emplace_back(registration.function);
  return all;
}

/// Adds what configurations name.
class Selector {
 public:
  explicit Selector(Selection& selection) : selection_(selection), sets_(all_registered()) {}

  void add(const LayerCfg& layer, const std::string& place) {
    for (const auto& converters : {layer.input_converters, layer.output_converters}) {
      if (converters == nullptr) continue;
      for (const auto& [position, kernel] : converters->kernel_cfgs) add(kernel.get(), place);
    }
    add(layer.kernel.get(), place);
  }

 private:
  void add(const KernelCfg* kernel, const std::string& place) {
    if (kernel == nullptr) return;
    const std::string& name = kernel->kernel_type;
    const auto knows = [&](const Registered& set) { return set.has_kernel(name); };
    if (std::none_of(sets_.begin(), sets_.end(), knows)) {
      throw std::invalid_argument(place + ": this build has no kernel \"" + name + "\"");
    }
    selection_.kernels.insert(name);
    const std::string& param = kernel->infer_param_type;
    const auto has = [&](const Registered& set) { return set.has_param(param); };
    // Others are read as well, and nobody looks them up.
    if (std::any_of(sets_.begin(), sets_.end(), has)) selection_.params.insert(param);
  }

  Selection& selection_;
  std::vector<Registered> sets_;
};

std::string function_text(const char* name, const std::vector<std::string>& kernels,
                          const std::vector<std::string>& params) {
  const auto argument = [](bool is_used, const char* text) {
    return is_used ? std::string(" ") + text : std::string();
  };
  std::string text = std::string("void ") + name + "(runtime::KernelRegistry&" +
                     argument(!kernels.empty(), "kernels") + ",\n" +
                     std::string(std::string("void ").size() + std::string(name).size() + 1, ' ') +
                     "runtime::InferenceParamRegistry&" + argument(!params.empty(), "params") +
                     ") {\n";
  for (const std::string& kernel : kernels)
    text += "  runtime::entries::" + kernel + "(kernels);\n";
  for (const std::string& param : params) text += "  runtime::entries::" + param + "(params);\n";
  return text + "}\n";
}

}  // namespace

void select_kernels(const runtime::QRTModel& model, Selection& selection,
                    const std::string& network) {
  Selector selector(selection);
  bool found = false;
  for (const std::string& id : model.model_arr->squential_ids) {
    if (!network.empty() && id != network) continue;
    found = true;
    const auto cfgs = model.config_arr->cfgs.find(id);
    if (cfgs == model.config_arr->cfgs.end() || cfgs->second == nullptr ||
        cfgs->second->cpu_sse == nullptr || cfgs->second->cpu_sse->layer_cfgs.empty()) {
      throw std::invalid_argument("network \"" + id + "\" has no configuration");
    }
    for (const auto& [layer, cfg] : cfgs->second->cpu_sse->layer_cfgs) {
      if (cfg == nullptr) continue;
      std::string where = "network \"" + id;
      where += "\", layer \"";
      where += layer;
      where += '"';
      selector.add(*cfg, where);
    }
  }
  if (!found) {
    throw std::invalid_argument(network.empty() ? "the model holds no network"
                                                : "there is no network \"" + network + "\"");
  }
}

std::string registration_source(const Selection& selection,
                                const std::vector<std::string>& models) {
  std::string text =
      "// Written by `qrt select`. Link it with the static library, and with --gc-sections: the "
      "program\n"
      "// then has the kernels that these models name, and no others.\n";
  for (const std::string& model : models) text += "//   " + model + "\n";
  text +=
      "\n#include <qrt_core/runtime/engine/kernel_entries.h>\n"
      "#include <qrt_core/utility/application.h>\n"
      "\nnamespace marlo::runtime::entries {\n";
  for (const std::string& kernel : selection.kernels) {
    text += "QRT_DECLARE_KERNEL_ENTRY(" + kernel + ")\n";
  }
  text +=
      "}  // namespace marlo::runtime::entries\n"
      "\n// These take the places of the library's functions, which register all of its kernels.\n"
      "namespace marlo::utility {\n";
  for (const Registration& registration : kRegistrations) {
    const Registered registered(registration.function);
    std::vector<std::string> kernels;
    for (const std::string& kernel : selection.kernels) {
      if (registered.has_kernel(kernel)) kernels.push_back(kernel);
    }
    std::vector<std::string> params;
    for (const std::string& param : selection.params) {
      if (registered.has_param(param)) params.push_back(param);
    }
    text += "\n" + function_text(registration.name, kernels, params);
  }
  return text + "\n}  // namespace marlo::utility\n";
}

}  // namespace marlo::toolkit
