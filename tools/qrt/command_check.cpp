#include "qrt_core/utility/check_shapes.h"

#include <algorithm>

#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/network.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::TensorShape;
using marlo::utility::LayerShapes;

namespace {

/// A network, the shapes through it, and where they came from.
struct Verdict {
  const NetworkReport& report;
  std::vector<LayerShapes> layers;
  bool is_own;  ///< the sizes are those of the model's header

  // A layer isn't judged where one that it reads gives nothing.
  bool is_judged(size_t index) const { return !layers[index].is_consequence; }
  bool fits(size_t index) const { return is_judged(index) && fault(index).empty(); }
  std::string fault(size_t index) const {
    return shapes_fault(report.layers[index], layers[index]);
  }
};

InputShapes shapes_to_check(const NetworkReport& report, const CheckOptions& options) {
  if (!options.inputs.empty()) {
    return given_input_shapes(report, options.inputs, options.keep_batch);
  }
  InputShapes shapes = known_input_shapes(report);
  if (shapes.size() == report.inputs().size()) return shapes;
  throw ToolError(kUsageError, shown(options.model) +
                                   ": the file doesn't say how large its inputs are; give --input");
}

std::string all_shapes(const std::vector<TensorShape>& shapes) {
  std::vector<std::string> texts;
  texts.reserve(shapes.size());
  for (const TensorShape& shape : shapes) texts.push_back(shape_text(shape));
  return joined(texts, ", ");
}

std::string as_table(const Verdict& verdict, size_t width) {
  Table table({{"#", true},
               {"layer", false, true},
               {"kernel", false, true},
               {"input"},
               {"output"},
               {"fits"}});
  for (size_t i = 0; i < verdict.layers.size(); ++i) {
    const LayerReport& layer = verdict.report.layers[i];
    const LayerShapes& shapes = verdict.layers[i];
    table.add({std::to_string(i), layer.id, layer.kernel.name, all_shapes(shapes.inputs),
               all_shapes(shapes.outputs),
               verdict.fits(i)        ? "yes"
               : verdict.is_judged(i) ? "NO"
                                      : "-"});
  }
  return table.text(width);
}

void add_shapes(JsonText& json, const char* name, const std::vector<TensorShape>& shapes) {
  json.begin_array(name);
  for (const TensorShape& shape : shapes) add_shape(json, shape);
  json.end_array();
}

std::string as_json(const Verdict& verdict, const std::string& path,
                    const std::vector<std::string>& faults) {
  JsonText json;
  json.begin_object();
  json.text("file", path);
  json.text("network", verdict.report.id);
  json.boolean("fits", faults.empty());
  json.begin_array("layers");
  for (size_t i = 0; i < verdict.layers.size(); ++i) {
    const LayerReport& layer = verdict.report.layers[i];
    json.begin_object();
    json.integer("index", i);
    json.text("id", layer.id);
    json.text("kind", layer.kind);
    json.text("kernel", layer.kernel.name);
    add_shapes(json, "inputs", verdict.layers[i].inputs);
    add_shapes(json, "outputs", verdict.layers[i].outputs);
    json.boolean("judged", verdict.is_judged(i));
    json.boolean("fits", verdict.fits(i));
    if (!verdict.fits(i) && verdict.is_judged(i)) {
      json.text("fault", verdict.fault(i));
    }
    json.end_object();
  }
  json.end_array();
  json.begin_array("faults");
  for (const std::string& fault : faults) json.text(fault);
  json.end_array();
  json.end_object();
  return json.finish();
}

// One for each layer that doesn't fit; what follows from it is only counted.
std::vector<std::string> faults_of(const Verdict& verdict) {
  std::vector<std::string> faults;
  size_t open = 0;
  for (size_t i = 0; i < verdict.layers.size(); ++i) {
    if (verdict.fits(i)) continue;
    if (verdict.is_judged(i)) {
      faults.push_back(verdict.report.layers[i].title() + ": " + verdict.fault(i));
    } else {
      ++open;
    }
  }
  if (open != 0 && !faults.empty()) {
    faults.back() += " (" + counted(open, "layer") + " after it can't be judged)";
  }
  if (verdict.report.outputs().empty()) {
    faults.emplace_back("expected outputs in \"squential_output_ids\", found none");
  }
  return faults;
}

}  // namespace

void run_check(const CheckOptions& options) {
  std::optional<Sdk> sdk;
  if (!options.sdk.empty()) sdk = parse_sdk(options.sdk);
  const auto model = read_model(options.model, sdk);
  const std::string id = choose_network(*model, options.model, options.network);
  Library library;
  const LoadedNetwork loaded = load_network(library, *model, options.model, id);
  const InputShapes shapes = shapes_to_check(loaded.report, options);
  const Verdict verdict{loaded.report,
                        marlo::utility::check_shapes(
                            *loaded.package->net, {shapes.begin(), shapes.end()}, library.context),
                        are_model_shapes(loaded.report, shapes)};
  take_library_errors();  // the faults say the same
  const std::vector<std::string> faults = faults_of(verdict);
  print(options.json ? as_json(verdict, options.model, faults)
                     : as_table(verdict, table_width(options.width)));
  if (faults.empty()) return;
  const std::string prefix = shown(options.model) + ": network " + quoted(id) + ", ";
  for (size_t i = 0; i + 1 < faults.size(); ++i) say(prefix + faults[i], Level::error);
  const bool is_models = verdict.is_own || verdict.report.outputs().empty();
  throw ToolError(is_models ? kModelError : kInputError, prefix + faults.back());
}

}  // namespace qrt_tool
