#include "tools/qrt/network_report.h"

#include <cstdlib>
#include <unordered_map>

#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "tools/qrt/kernel_catalogue.h"
#include "tools/qrt/kernel_trial.h"
#include "tools/qrt/layer_facts.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/processor.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::Context;
using marlo::runtime::IKernel;
using marlo::runtime::KernelCfg;
using marlo::runtime::KernelCfgArr;
using marlo::runtime::KernelRegistry;
using marlo::runtime::LayerCfg;
using marlo::runtime::LayerInfo;
using marlo::runtime::Net;
using marlo::runtime::QRModelCfg;
using marlo::runtime::QRModelInfo;

namespace {

using Info = std::shared_ptr<LayerInfo>;

// What is wrong, and what the kernel takes instead.
std::string refusal_text(IKernel& kernel, const LayerInfo& info) {
  const std::vector<std::string> reasons = refusals_of(kernel, &info, nullptr);
  std::string text = reasons.empty() ? description_fault(info) : joined(reasons, "; ");
  const std::string accepts = catalogue_entry(kernel.GetKernelName()).accepts;
  const bool is_about_numbers = text.find(" numbers") != std::string::npos;
  if (!accepts.empty() && !is_about_numbers) text += "; the kernel accepts: " + accepts;
  return text;
}

// `ready` is the kernel of a network that was already built; otherwise one is made.
KernelReport report_kernel(const KernelCfg* config, const Info& info, const KernelRegistry& kernels,
                           const std::shared_ptr<Context>& context,
                           const std::shared_ptr<IKernel>& ready) {
  KernelReport report;
  if (config == nullptr) {
    report.problem = "expected an entry in the configuration \"cpu_sse\", found none";
    return report;
  }
  report.name = config->kernel_type;
  const std::string missing = missing_instructions(report.name);
  if (!missing.empty()) {
    report.problem = "expected a processor with " + missing + ", which this one lacks";
    return report;
  }
  std::shared_ptr<IKernel> kernel = ready != nullptr ? ready : kernels.Create(report.name);
  if (kernel == nullptr) {
    report.problem = "expected a registered kernel (see `qrt kernels`), found " +
                     (report.name.empty() ? "no name" : in_quotes(report.name));
    return report;
  }
  try {
    if (ready != nullptr || kernel->Config(info, config->infer_param, context)) {
      report.kernel = std::move(kernel);
    } else if (config->infer_param != nullptr) {
      report.problem = "the kernel refuses it: expected no inference parameter, found " +
                       in_quotes(config->infer_param_type);
    } else if (info == nullptr) {
      report.problem = "the kernel can't be a converter: it expects a layer's description";
    } else {
      report.problem = "the kernel refuses it: " + refusal_text(*kernel, *info);
    }
  } catch (const std::runtime_error& failure) {
    report.problem = take_fault(failure);
    if (report.problem.empty()) report.problem = "the kernel can't be configured";
  }
  return report;
}

std::map<uint32_t, KernelReport> report_converters(
    const KernelCfgArr* configs, const KernelRegistry& kernels,
    const std::shared_ptr<Context>& context,
    const std::map<uint32_t, std::shared_ptr<IKernel>>* ready) {
  std::map<uint32_t, KernelReport> reports;
  if (configs == nullptr) return reports;
  for (const std::string& id : configs->kernel_ids) {
    const auto position = static_cast<uint32_t>(std::atoi(id.c_str()));
    const auto found = configs->kernel_cfgs.find(id);
    const KernelCfg* config = found == configs->kernel_cfgs.end() ? nullptr : found->second.get();
    std::shared_ptr<IKernel> kernel;
    if (ready != nullptr && ready->count(position) != 0) kernel = ready->at(position);
    reports[position] = report_kernel(config, nullptr, kernels, context, kernel);
  }
  return reports;
}

// Finds the layers that a layer reads. Returns what is wrong with them.
std::string wire(LayerReport& layer, const std::unordered_map<std::string, uint32_t>& positions,
                 std::vector<std::string>& warnings) {
  for (const std::string& id : layer.info->input_ids) {
    const auto found = positions.find(id);
    // The library takes an id that isn't in the list for layer 0.
    const uint32_t source = found == positions.end() ? 0 : found->second;
    if (found == positions.end()) {
      warnings.push_back(layer.title() + ": there is no layer " + in_quotes(id) +
                         ", so it reads layer 0");
    }
    if (source >= layer.index) {
      return "expected inputs that stand before it, found " + in_quotes(id) + ", which is layer " +
             std::to_string(source);
    }
    layer.sources.push_back(source);
  }
  const bool reads_none = layer.is_input || dynamic_cast<const marlo::runtime::ConstantInfo*>(
                                                layer.info.get()) != nullptr;
  if (reads_none || !layer.sources.empty()) return "";
  return "expected at least one id in \"input_ids\", found none";
}

std::string problem_of(const LayerReport& layer) {
  for (const auto& [position, converter] : layer.input_converters) {
    if (converter.kernel == nullptr) {
      return "input converter " + std::to_string(position) + " (" + printable(converter.name) +
             "): " + converter.problem;
    }
  }
  for (const auto& [position, converter] : layer.output_converters) {
    if (converter.kernel == nullptr) {
      return "output converter " + std::to_string(position) + " (" + printable(converter.name) +
             "): " + converter.problem;
    }
  }
  return layer.kernel.problem;
}

}  // namespace

std::string LayerReport::title() const {
  std::string text = "layer " + std::to_string(index) + " " + in_quotes(id) + " (" + kind;
  if (!kernel.name.empty()) text += ", kernel " + printable(kernel.name);
  return text + ")";
}

std::vector<uint32_t> NetworkReport::inputs() const {
  std::vector<uint32_t> indices;
  for (const LayerReport& layer : layers) {
    if (layer.is_input) indices.push_back(layer.index);
  }
  return indices;
}

std::vector<uint32_t> NetworkReport::outputs() const {
  std::vector<uint32_t> indices;
  for (const LayerReport& layer : layers) {
    if (layer.is_output) indices.push_back(layer.index);
  }
  return indices;
}

std::string NetworkReport::problem() const {
  for (const LayerReport& layer : layers) {
    const std::string problem = problem_of(layer);
    if (!problem.empty()) return layer.title() + ": " + problem;
  }
  return "";
}

Net net_of(const NetworkReport& report) {
  std::vector<std::shared_ptr<marlo::runtime::Layer>> layers;
  layers.reserve(report.layers.size());
  for (const LayerReport& layer : report.layers) {
    auto made = std::make_shared<marlo::runtime::Layer>();
    made->name = layer.is_input ? "Input" : layer.kind;
    made->id = layer.id;
    for (const uint32_t source : layer.sources) made->inputs.emplace_back(source, 0);
    if (layer.kernel.problem.empty()) made->kernel = layer.kernel.kernel;
    for (const auto& [position, converter] : layer.input_converters) {
      made->input_converters[position] = converter.kernel;
    }
    for (const auto& [position, converter] : layer.output_converters) {
      made->output_converters[position] = converter.kernel;
    }
    layers.push_back(std::move(made));
  }
  return Net(layers, {});
}

NetworkReport inspect_network(const std::string& id, const QRModelInfo& info,
                              const QRModelCfg* config, const KernelRegistry& kernels,
                              const std::shared_ptr<Context>& context, const Net* net,
                              const marlo::runtime::WeightPlaces* weights) {
  NetworkReport report;
  report.id = id;
  report.header = info.extra_info;
  std::unordered_map<std::string, uint32_t> positions;
  uint32_t index = 0;
  for (const std::string& layer_id : info.squential_ids) positions[layer_id] = index++;

  for (index = 0; index < info.squential_ids.size(); ++index) {
    LayerReport layer;
    layer.index = index;
    layer.id = info.squential_ids[index];
    layer.info = info.layers.at(layer.id);
    layer.kind = kind_of(*layer.info);
    layer.is_input = layer.info->type == marlo::runtime::kInputLayerType;
    const marlo::runtime::FilledLayer filled(weights, info.layers.at(layer.id));
    layer.weights = weight_count(*layer.info);

    const marlo::runtime::Layer* built = net == nullptr ? nullptr : net->layers[index].get();
    const LayerCfg* layer_config = nullptr;
    if (config != nullptr && config->layer_cfgs.count(layer.id) != 0) {
      layer_config = config->layer_cfgs.at(layer.id).get();
    }
    const bool has_config = layer_config != nullptr;
    layer.kernel = report_kernel(has_config ? layer_config->kernel.get() : nullptr, layer.info,
                                 kernels, context, built == nullptr ? nullptr : built->kernel);
    if (has_config) {
      layer.input_converters =
          report_converters(layer_config->input_converters.get(), kernels, context,
                            built == nullptr ? nullptr : &built->input_converters);
      layer.output_converters =
          report_converters(layer_config->output_converters.get(), kernels, context,
                            built == nullptr ? nullptr : &built->output_converters);
    }
    const std::string wiring = wire(layer, positions, report.warnings);
    if (layer.kernel.problem.empty()) layer.kernel.problem = wiring;
    report.layers.push_back(std::move(layer));
  }
  for (const std::string& output : info.squential_output_ids) {
    const auto found = positions.find(output);
    if (found != positions.end()) report.layers[found->second].is_output = true;
  }
  return report;
}

}  // namespace qrt_tool
