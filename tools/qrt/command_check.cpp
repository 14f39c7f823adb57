#include "qrt_core/utility/check_shapes.h"

#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
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

using ShapesByInput = std::unordered_map<unsigned int, TensorShape>;

ShapesByInput given_shapes(const NetworkReport& report, const CheckOptions& options) {
  const std::vector<uint32_t> inputs = report.inputs();
  ShapesByInput shapes;
  if (options.inputs.empty()) {
    for (const auto& [input, shape] : known_input_shapes(report)) shapes.emplace(input, shape);
    if (shapes.size() == inputs.size()) return shapes;
    throw ToolError(kUsageError, printable(options.model) +
                                     ": the file doesn't say how large its inputs are; give "
                                     "--input");
  }
  if (inputs.size() != options.inputs.size()) {
    throw ToolError(kUsageError, "network " + quoted(report.id) + " has " +
                                     counted(inputs.size(), "input") + "; found " +
                                     counted(options.inputs.size(), "--input"));
  }
  for (size_t i = 0; i < inputs.size(); ++i) {
    std::vector<uint32_t> sizes = parse_sizes_option(options.inputs[i]);
    if (sizes.size() == 4 && sizes[0] == 1) sizes.erase(sizes.begin());
    shapes.emplace(inputs[i], float_shape(std::move(sizes)));
  }
  return shapes;
}

std::string all_shapes(const std::vector<TensorShape>& shapes) {
  std::vector<std::string> texts;
  texts.reserve(shapes.size());
  for (const TensorShape& shape : shapes) texts.push_back(shape_text(shape));
  return joined(texts, ", ");
}

// A fault as one line, without the library's tag in front.
std::string fault_line(std::string fault) {
  constexpr char kTag[] = "[QRT]: ";
  if (fault.rfind(kTag, 0) == 0) fault.erase(0, sizeof kTag - 1);
  while (!fault.empty() && fault.back() == '\n') fault.pop_back();
  return printable(fault);
}

std::string as_table(const NetworkReport& report, const std::vector<LayerShapes>& layers,
                     size_t width) {
  Table table({{"#", true},
               {"layer", false, true},
               {"kernel", false, true},
               {"input"},
               {"output"},
               {"fits"}});
  for (size_t i = 0; i < layers.size(); ++i) {
    const LayerReport& layer = report.layers[i];
    table.add({std::to_string(i), layer.id, layer.kernel.name, all_shapes(layers[i].inputs),
               all_shapes(layers[i].outputs), layers[i].fault.empty() ? "yes" : "NO"});
  }
  return table.text(width);
}

void add_shapes(JsonText& json, const char* name, const std::vector<TensorShape>& shapes) {
  json.begin_array(name);
  for (const TensorShape& shape : shapes) json.text(shape_text(shape));
  json.end_array();
}

std::string as_json(const NetworkReport& report, const std::vector<LayerShapes>& layers) {
  JsonText json;
  json.begin_object();
  json.text("network", report.id);
  json.begin_array("layers");
  for (size_t i = 0; i < layers.size(); ++i) {
    json.begin_object();
    json.text("id", report.layers[i].id);
    json.text("kernel", report.layers[i].kernel.name);
    add_shapes(json, "inputs", layers[i].inputs);
    add_shapes(json, "outputs", layers[i].outputs);
    json.boolean("fits", layers[i].fault.empty());
    if (!layers[i].fault.empty()) json.text("fault", fault_line(layers[i].fault));
    json.end_object();
  }
  json.end_array();
  json.end_object();
  return json.finish();
}

}  // namespace

void run_check(const CheckOptions& options) {
  std::optional<Sdk> sdk;
  if (!options.sdk.empty()) sdk = parse_sdk(options.sdk);
  const auto model = read_model(options.model, sdk);
  const std::string id = choose_network(*model, options.model, options.network);
  Library library;
  const LoadedNetwork loaded = load_network(library, *model, options.model, id);
  const auto layers = marlo::utility::check_shapes(
      *loaded.package->net, given_shapes(loaded.report, options), library.context);
  take_library_errors();  // the faults say the same
  print(options.json ? as_json(loaded.report, layers)
                     : as_table(loaded.report, layers, options.width));
  std::vector<std::string> faults;
  for (size_t i = 0; i < layers.size(); ++i) {
    if (layers[i].fault.empty()) continue;
    faults.push_back(loaded.report.layers[i].title() + ": " + fault_line(layers[i].fault));
  }
  if (faults.empty()) return;
  for (size_t i = 0; i + 1 < faults.size(); ++i) say(faults[i]);
  throw ToolError(kInputError, faults.back());
}

}  // namespace qrt_tool
