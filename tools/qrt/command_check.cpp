#include "qrt_core/utility/check_shapes.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/findings.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/network.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::TensorShape;
using marlo::utility::Finding;
using marlo::utility::FindingCode;
using marlo::utility::LayerShapes;

namespace {

/// A network, the shapes through it, where they came from, and what else was found.
struct Verdict {
  NetworkReport report;
  std::vector<LayerShapes> layers;  ///< empty where no shapes could be walked
  bool is_own = true;               ///< the sizes are those of the model's header
  std::vector<Finding> findings;
  std::string refusal;  ///< why the network can't be built, where no finding says it

  // Whether there is a network, and sizes for it.
  bool is_walked() const { return !layers.empty(); }

  // A layer isn't judged where one that it reads gives nothing.
  bool is_judged(size_t index) const { return !layers[index].is_consequence; }
  bool fits(size_t index) const { return is_judged(index) && fault(index).empty(); }
  std::string fault(size_t index) const {
    return shapes_fault(report.layers[index], layers[index]);
  }
};

// Nothing where neither the command line nor the file says how large the inputs are.
std::optional<InputShapes> shapes_to_check(const NetworkReport& report,
                                           const CheckOptions& options) {
  if (!options.inputs.empty()) {
    return given_input_shapes(report, options.inputs, options.keep_batch);
  }
  InputShapes shapes = known_input_shapes(report);
  if (shapes.size() == report.inputs().size()) return shapes;
  return std::nullopt;
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
  json.boolean("fits", verdict.is_walked() && faults.empty());
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
  add_findings(json, verdict.findings);
  json.end_object();
  return json.finish();
}

// The finding that says what the shapes of a layer say.
const Finding* shape_finding(const Verdict& verdict, size_t layer) {
  for (const Finding& finding : verdict.findings) {
    if (finding.code == FindingCode::wrong_shape && finding.layer == layer) return &finding;
  }
  return nullptr;
}

// One for each layer that doesn't fit; what follows from it is only counted.
std::vector<std::string> faults_of(const Verdict& verdict) {
  std::vector<std::string> faults;
  if (!verdict.is_walked()) return faults;
  size_t open = 0;
  for (size_t i = 0; i < verdict.layers.size(); ++i) {
    if (verdict.fits(i)) continue;
    if (!verdict.is_judged(i)) {
      ++open;
      continue;
    }
    std::string text = verdict.report.layers[i].title() + ": " + verdict.fault(i);
    const Finding* finding = shape_finding(verdict, i);
    if (finding != nullptr && !finding->change.empty()) text += "; " + printable(finding->change);
    faults.push_back(std::move(text));
  }
  if (open != 0 && !faults.empty()) {
    faults.back() += " (" + counted(open, "layer") + " after it can't be judged)";
  }
  if (verdict.report.outputs().empty()) {
    faults.emplace_back("expected outputs in \"squential_output_ids\", found none");
  }
  return faults;
}

// Whether a fault of the shapes is the same.
bool is_fault(const Verdict& verdict, const Finding& finding) {
  if (!verdict.is_walked()) return false;
  if (finding.code == FindingCode::no_outputs) return verdict.report.outputs().empty();
  return finding.code == FindingCode::wrong_shape && finding.layer &&
         *finding.layer < verdict.layers.size() && !verdict.fits(*finding.layer);
}

// Whether the model is at fault, and not the sizes of the command line: it says so of its own
// sizes, or whatever they are.
bool is_models_fault(const Verdict& verdict, const std::string& path) {
  if (verdict.is_own || verdict.report.outputs().empty()) return true;
  return has_errors(verdict.findings) && has_errors(findings_of(path, verdict.report.id));
}

// Prints what was found, warnings first.
void report(const Verdict& verdict, const CheckOptions& options) {
  const std::vector<std::string> faults = faults_of(verdict);
  if (options.json) {
    print(as_json(verdict, options.model, faults));
  } else if (verdict.is_walked()) {
    print(as_table(verdict, table_width(options.width)));
  }
  const std::string file = shown(options.model) + ": ";
  std::vector<std::string> errors;
  for (const Finding& finding : verdict.findings) {
    if (!is_error(finding)) {
      say(file + finding_line(finding), Level::warning);
    } else if (!is_fault(verdict, finding)) {
      errors.push_back(file + finding_line(finding));
    }
  }
  for (const std::string& fault : faults) {
    errors.push_back(file);
    errors.back()
        .append("network ")
        .append(in_quotes(verdict.report.id))
        .append(", ")
        .append(fault);
  }
  if (!verdict.refusal.empty()) errors.push_back(verdict.refusal);
  if (errors.empty()) return;
  for (size_t i = 0; i + 1 < errors.size(); ++i) say(errors[i], Level::error);
  throw ToolError(is_models_fault(verdict, options.model) ? kModelError : kInputError,
                  errors.back());
}

// A network that can't be built, layer by layer.
Verdict refused(const ToolError& refusal, const std::string& path, const std::string& network) {
  Verdict verdict;
  verdict.report.id = network;
  verdict.findings = findings_of(path, network);
  const std::string text = refusal.what();
  const bool is_found =
      std::any_of(verdict.findings.begin(), verdict.findings.end(), [&](const Finding& finding) {
        return is_error(finding) && finding.layer &&
               text.find("layer " + std::to_string(*finding.layer) + " " + in_quotes(finding.id)) !=
                   std::string::npos;
      });
  if (!is_found) verdict.refusal = text;
  return verdict;
}

}  // namespace

void run_check(const CheckOptions& options) {
  std::optional<Sdk> sdk;
  if (!options.sdk.empty()) sdk = parse_sdk(options.sdk);
  const OpenModel model = open_model(options.model, sdk, options.inputs);
  const std::string id = choose_network(*model.tree, options.model, options.network);
  Library library;
  LoadedNetwork loaded;
  try {
    loaded =
        load_network(library, *model.tree, options.model, id, LoadWarnings::drop, model.weights());
  } catch (const ToolError& refusal) {
    return report(refused(refusal, options.model, id), options);
  }
  Verdict verdict;
  verdict.report = std::move(loaded.report);
  const std::optional<InputShapes> shapes = shapes_to_check(verdict.report, options);
  if (shapes) {
    verdict.layers = marlo::utility::check_shapes(
        *loaded.package->net, {shapes->begin(), shapes->end()}, library.context);
    verdict.is_own = are_model_shapes(verdict.report, *shapes);
    take_library_errors();  // the faults say the same
  }
  NetworkShapes known;
  if (shapes) add_shapes(known, verdict.report, *shapes);
  verdict.findings =
      findings_of(options.model, id, known, model, {{id, loaded.package->net.get()}});
  if (!shapes) {
    const std::string text =
        shown(options.model) + ": the file doesn't say how large its inputs are; give --input";
    if (!has_errors(verdict.findings)) throw ToolError(kUsageError, text);
    say(text);
  }
  report(verdict, options);
}

}  // namespace qrt_tool
