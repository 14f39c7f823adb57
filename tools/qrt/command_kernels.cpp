#include <fnmatch.h>

#include <algorithm>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/kernel_catalogue.h"
#include "tools/qrt/kernel_trial.h"
#include "tools/qrt/network.h"
#include "tools/qrt/processor.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/suggestion.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

// A pattern has to match the whole name, other text a part of it; case never matters.
bool matches(const std::string& name, const std::string& filter) {
  if (filter.find_first_of("*?[") == std::string::npos) {
    return lower_case(name).find(lower_case(filter)) != std::string::npos;
  }
  return fnmatch(lower_case(filter).c_str(), lower_case(name).c_str(), 0) == 0;
}

/// A kernel as it is shown.
struct ShownKernel {
  std::string name;
  std::string missing;
  std::string needs;
  CatalogueEntry entry;
};

ShownKernel shown_kernel(const std::string& name) {
  return {name, missing_instructions(name), PrintedName(marlo::runtime::needs_of(name)),
          catalogue_entry(name)};
}

std::string not_here(const std::string& missing) {
  return missing.empty() ? "" : "(not on this processor: no " + missing + ")";
}

std::string kernels_json(const std::vector<ShownKernel>& kernels) {
  JsonText json;
  json.begin_object();
  json.begin_array("kernels");
  for (const ShownKernel& kernel : kernels) {
    json.begin_object();
    json.text("name", kernel.name);
    json.boolean("runs_here", kernel.missing.empty());
    if (!kernel.missing.empty()) json.text("missing", kernel.missing);
    json.text("needs", kernel.needs);
    json.text("accepts", kernel.entry.accepts);
    json.text("in", kernel.entry.in);
    json.text("out", kernel.entry.out);
    json.text("differs", kernel.entry.differs);
    json.text("agreement", kernel.entry.agreement);
    json.end_object();
  }
  json.end_array();
  json.end_object();
  return json.finish();
}

// Everything about one kernel.
std::string kernel_page(const ShownKernel& kernel) {
  std::string text = printable(kernel.name) + '\n';
  const auto add = [&](const std::string& title, const std::string& value) {
    if (!value.empty()) text += "  " + title + std::string(11 - title.size(), ' ') + value + '\n';
  };
  add("needs", kernel.needs + (kernel.missing.empty() ? "" : "  " + not_here(kernel.missing)));
  add("accepts", kernel.entry.accepts);
  add("in", kernel.entry.in);
  add("out", kernel.entry.out);
  add("differs", kernel.entry.differs);
  add("agreement", kernel.entry.agreement);
  return text;
}

std::string kernels_table(const std::vector<ShownKernel>& kernels, size_t width) {
  Table table({{"kernel"},
               {"needs"},
               {"accepts", false, true},
               {"in", false, true},
               {"out", false, true},
               {"differs", false, true},
               {"agreement", false, true}});
  for (const ShownKernel& kernel : kernels) {
    table.add({kernel.name, kernel.needs, kernel.entry.accepts, kernel.entry.in, kernel.entry.out,
               kernel.entry.differs, kernel.entry.agreement});
  }
  return table.text(width);
}

// "MODEL:LAYER", where LAYER is an id or an index.
const LayerReport& layer_named(const NetworkReport& report, const std::string& name) {
  std::vector<std::string> ids;
  for (const LayerReport& layer : report.layers) {
    if (layer.id == name) return layer;
    ids.push_back(layer.id);
  }
  for (const LayerReport& layer : report.layers) {
    if (std::to_string(layer.index) == name) return layer;
  }
  throw ToolError(kUsageError, "network " + in_quotes(report.id) + " has no layer " +
                                   in_quotes(name) + did_you_mean(name, ids));
}

// What the kernel of a layer gets: after input converters, as far as shapes are known.
std::vector<marlo::runtime::TensorShape> inputs_of(const NetworkReport& report,
                                                   const LayerReport& layer,
                                                   const InputShapes& given) {
  std::vector<marlo::runtime::TensorShape> shapes;
  if (layer.is_input) {
    const auto found = given.find(layer.index);
    if (found != given.end()) shapes.push_back(found->second);
    return shapes;
  }
  for (const uint32_t source : layer.sources) {
    if (report.layers[source].outputs.empty()) return {};
    shapes.push_back(report.layers[source].outputs[0]);
  }
  for (const auto& [position, converter] : layer.input_converters) {
    if (position >= shapes.size() || converter.kernel == nullptr) continue;
    const auto converted = converter.kernel->InferOutputShapes({shapes[position]});
    if (!converted.empty()) shapes[position] = converted[0];
  }
  return shapes;
}

const char* word_of(Trial result) {
  switch (result) {
    case Trial::fits:
      return "fits";
    case Trial::needs_other:
      return "needs a converter";
    case Trial::refuses:
      break;
  }
  return "refuses";
}

std::string trials_json(const std::string& layer, const std::vector<TriedKernel>& kernels) {
  JsonText json;
  json.begin_object();
  json.text("layer", layer);
  json.begin_array("kernels");
  for (const TriedKernel& kernel : kernels) {
    json.begin_object();
    json.text("name", kernel.name);
    json.text("result", word_of(kernel.result));
    json.boolean("runs_here", kernel.missing.empty());
    json.begin_array("reasons");
    for (const std::string& reason : kernel.reasons) json.text(reason);
    json.end_array();
    json.end_object();
  }
  json.end_array();
  json.end_object();
  return json.finish();
}

std::string trials_text(const std::vector<TriedKernel>& kernels) {
  std::string text;
  for (const TriedKernel& kernel : kernels) {
    text += printable(kernel.name) + "  " + word_of(kernel.result);
    if (!kernel.missing.empty()) text += "  " + not_here(kernel.missing);
    if (!kernel.reasons.empty()) text += ": " + joined(kernel.reasons, "; ");
    text += '\n';
  }
  return text;
}

void show_trials(const KernelsOptions& options) {
  const size_t colon = options.layer.rfind(':');
  if (colon == std::string::npos) {
    throw ToolError(kUsageError, "--for " + printable(options.layer) + ": expected MODEL:LAYER");
  }
  const std::string path = options.layer.substr(0, colon);
  const auto model = read_model(path, std::nullopt);
  const std::string id = choose_network(*model, path, options.network);
  Library library;
  // The layer's own kernel may be the wrong one, so that the network needn't be one that loads.
  NetworkReport report = inspect_network(id, *model->model_arr->infos.at(id), config_of(*model, id),
                                         library.kernels, library.context);
  const LayerReport& layer = layer_named(report, options.layer.substr(colon + 1));
  const InputShapes given = options.inputs.empty()
                                ? known_input_shapes(report)
                                : given_input_shapes(report, options.inputs, false);
  infer_shapes(report, given, library.context);
  std::vector<TriedKernel> kernels = try_kernels(library, layer, inputs_of(report, layer, given));
  const auto is_left_out = [&](const TriedKernel& kernel) {
    return !std::all_of(options.filters.begin(), options.filters.end(),
                        [&](const auto& filter) { return matches(kernel.name, filter); });
  };
  kernels.erase(std::remove_if(kernels.begin(), kernels.end(), is_left_out), kernels.end());
  print(options.json ? trials_json(layer.id, kernels) : trials_text(kernels));
}

}  // namespace

void run_kernels(const KernelsOptions& options) {
  if (!options.layer.empty()) return show_trials(options);
  const Library library;
  std::vector<std::string> names;
  for (const std::string& name : library.kernels.Keys()) {
    const bool chosen = std::all_of(options.filters.begin(), options.filters.end(),
                                    [&](const auto& filter) { return matches(name, filter); });
    if (chosen) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  if (names.empty() && !options.json) {
    const std::string words = joined(options.filters, " ");
    throw ToolError(kRunError, "no kernel matches " + in_quotes(words) +
                                   " (`qrt kernels` lists all)" +
                                   did_you_mean(words, library.kernels.Keys()));
  }
  // The whole name of a kernel asks for that one, although others may hold it.
  const bool is_one = options.filters.size() == 1 &&
                      std::find(names.begin(), names.end(), options.filters[0]) != names.end();
  if (is_one) names = {options.filters[0]};
  std::vector<ShownKernel> kernels;
  kernels.reserve(names.size());
  for (const std::string& name : names) kernels.push_back(shown_kernel(name));
  if (options.json) return print(kernels_json(kernels));
  if (is_one) return print(kernel_page(kernels[0]));
  if (options.is_long) return print(kernels_table(kernels, table_width(options.width)));
  std::string text;
  for (const ShownKernel& kernel : kernels) {
    text += kernel.name + (kernel.missing.empty() ? "" : "  " + not_here(kernel.missing)) + '\n';
  }
  print(text);
}

}  // namespace qrt_tool
