#include "tools/qrt/info_text.h"

#include "qrt_core/runtime/tensor/shape_text.h"
#include "tools/qrt/files.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::KernelCfgArr;
using marlo::runtime::LayerCfg;
using marlo::runtime::QRTModel;

namespace {

constexpr char kUnknown[] = "-";

struct Totals {
  uint64_t weights = 0;
  uint64_t multiply_adds = 0;
  bool is_complete = true;  // every layer that counts could be counted
};

Totals totals_of(const NetworkReport& report) {
  Totals totals;
  for (const LayerReport& layer : report.layers) {
    totals.weights += layer.weights;
    totals.multiply_adds += layer.multiply_adds.value_or(0);
    totals.is_complete = totals.is_complete && !layer.outputs.empty();
  }
  return totals;
}

std::string output_sizes(const LayerReport& layer) {
  if (layer.outputs.empty()) return kUnknown;
  std::string text = sizes_text(layer.outputs[0].dims);
  const auto layout = layer.outputs[0].layout;
  const bool is_usual = layout == float_shape(layer.outputs[0].dims).layout;
  return is_usual ? text : text + " " + LayoutText(layout);
}

std::string version_text(uint32_t major, uint32_t minor) {
  return std::to_string(major) + "." + std::to_string(minor);
}

std::string time_text(const marlo::runtime::TimeInfo& time) {
  char buffer[80];
  std::snprintf(buffer, sizeof buffer, "%04u-%02u-%02u %02u:%02u:%02u", time.year, time.moon,
                time.day, time.hour, time.min, time.sec);
  return buffer;
}

std::string kernel_cell(const KernelReport& kernel) {
  const std::string name = kernel.name.empty() ? kUnknown : kernel.name;
  return kernel.problem.empty() || kernel.name.empty() ? name : "! " + name;
}

std::string ends_text(const NetworkReport& report, const std::vector<uint32_t>& indices) {
  std::vector<std::string> parts;
  for (const uint32_t index : indices) {
    const LayerReport& layer = report.layers[index];
    std::string part = printable(layer.id);
    if (!layer.outputs.empty()) {
      part += " " + shape_text(layer.outputs[0]);
    } else if (const auto demanded = demanded_input(report, index); demanded && layer.is_input) {
      part += " (" + demanded->text() + ")";
    }
    parts.push_back(std::move(part));
  }
  return parts.empty() ? "none" : joined(parts, ", ");
}

Table layer_table(const ShownNetwork& shown) {
  Table table({{"#", true},
               {"layer", false, true},
               {"kind", false, true},
               {"kernel", false, true},
               {"output"},
               {"weights", true},
               {"mult-adds", true}});
  for (const LayerReport& layer : shown.report.layers) {
    for (const auto& [position, converter] : layer.input_converters) {
      table.add({"", "", "in " + std::to_string(position), kernel_cell(converter)});
    }
    table.add({std::to_string(layer.index), layer.id, layer.kind,
               shown.has_kernels ? kernel_cell(layer.kernel) : kUnknown, output_sizes(layer),
               layer.weights == 0 ? "" : std::to_string(layer.weights),
               layer.multiply_adds ? std::to_string(*layer.multiply_adds) : ""});
    for (const auto& [position, converter] : layer.output_converters) {
      table.add({"", "", "out " + std::to_string(position), kernel_cell(converter)});
    }
  }
  const Totals totals = totals_of(shown.report);
  table.add_rule();
  table.add({"", "all", "", "", "", std::to_string(totals.weights),
             totals.is_complete ? std::to_string(totals.multiply_adds) : kUnknown});
  return table;
}

std::string tuned_text(const marlo::toolkit::TunedFor& tuned) {
  std::string text = printable(tuned.processor);
  if (!tuned.kernels.empty()) text += ", kernels up to " + printable(tuned.kernels);
  if (!tuned.library.empty()) text += ", " + printable(tuned.library);
  if (!tuned.date.empty()) text += ", " + printable(tuned.date);
  std::vector<std::string> inputs;
  const auto add = [&](const std::map<std::string, std::string>& shapes) {
    for (const auto& [id, shape] : shapes) {
      inputs.push_back(printable(id).append(" ").append(printable(shape)));
    }
  };
  add(tuned.inputs);
  for (const auto& shapes : tuned.further) add(shapes);
  return inputs.empty() ? text : text + "; " + joined(inputs, "; ");
}

std::string network_text(const ShownNetwork& shown, size_t width) {
  const NetworkReport& report = shown.report;
  std::string text = "\n";
  if (!report.id.empty()) text += "network   " + printable(report.id) + '\n';
  std::string summary = report.header.summary;
  if (const auto described = marlo::utility::read_summary(summary)) {
    text += "source    " + printable(described->source) +
            (described->producer.empty() ? "" : ", " + printable(described->producer)) + '\n';
    // What stands behind the line for programs is for people.
    const size_t end = summary.find('\n');
    summary = end == std::string::npos ? "" : summary.substr(end + 1);
  }
  if (!summary.empty()) text += "summary   " + printable(summary) + '\n';
  text += "made      " + time_text(report.header.time) + ", version " +
          std::to_string(report.header.version) + '\n';
  text += "inputs    " + ends_text(report, report.inputs()) + '\n';
  text += "outputs   " + ends_text(report, report.outputs()) + '\n';
  if (shown.tuned) text += "tuned for " + tuned_text(*shown.tuned) + '\n';
  return text + '\n' + layer_table(shown).text(width);
}

}  // namespace

std::string networks_text(const std::string& path, const QRTModel* model,
                          const std::vector<ShownNetwork>& networks, size_t width) {
  std::string text = "file      " + shown(path) + '\n';
  if (model != nullptr) {
    text += "for       SDK " + printable(model->sdk_type) + " " +
            version_text(model->sdk_major_ver, model->sdk_minor_ver) + ", core " +
            version_text(model->core_major_ver, model->core_minor_ver) + '\n';
  }
  if (networks.size() != 1) text += "networks  " + std::to_string(networks.size()) + '\n';
  for (const ShownNetwork& network : networks) text += network_text(network, width);
  return text;
}

std::string configs_text(const std::string& path, const std::vector<NamedConfig>& configs,
                         size_t width) {
  std::string text = "file      " + shown(path) + '\n';
  for (const auto& [name, config] : configs) {
    Table table({{"#", true}, {"layer", false, true}, {"role"}, {"kernel", false, true}});
    size_t index = 0;
    for (const std::string& id : config->squential_ids) {
      const LayerCfg& layer = *config->layer_cfgs.at(id);
      const auto add_converters = [&](const KernelCfgArr& converters, const std::string& role) {
        for (const std::string& position : converters.kernel_ids) {
          std::string place = role;
          place.append(" ").append(position);
          table.add({"", "", place, converters.kernel_cfgs.at(position)->kernel_type});
        }
      };
      add_converters(*layer.input_converters, "in");
      table.add({std::to_string(index++), id, "kernel", layer.kernel->kernel_type});
      add_converters(*layer.output_converters, "out");
    }
    text += '\n';
    if (!name.empty()) text += "config    " + printable(name) + '\n';
    if (!config->summary.empty()) text += "summary   " + printable(config->summary) + '\n';
    text += table.text(width);
  }
  return text;
}

}  // namespace qrt_tool
