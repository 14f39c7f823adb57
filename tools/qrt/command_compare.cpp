#include <algorithm>
#include <cmath>
#include <limits>

#include "qrt_toolkit/verify/difference.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/passes.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::TensorShape;

namespace {

/// A network that has run once.
struct RunNetwork {
  LoadedNetwork network;
  std::vector<LayerRecord> records;

  const LayerReport& layer_of(const LayerRecord& record) const {
    return network.report.layers[record.layer];
  }
};

/// How the outputs of two layers with one id differ.
struct Difference {
  const LayerReport* layer = nullptr;  // of the first network
  uint32_t position = 0;
  TensorShape first;
  TensorShape second;
  bool is_comparable = false;
  double largest = 0.0;        // of the differences
  double rms = 0.0;            // of the differences
  double largest_value = 0.0;  // of the first network
  double relative() const {
    if (largest == 0.0) return 0.0;
    return largest_value > 0.0 ? largest / largest_value : std::numeric_limits<double>::infinity();
  }
  bool is_beyond(double bound) const { return !is_comparable || !(relative() <= bound); }
  std::string name() const {
    return layer->id + (position == 0 ? "" : " output " + std::to_string(position));
  }
};

RunNetwork run_one(const CompareOptions& options, const std::string& path, Library& library) {
  const auto model = read_model(path, std::nullopt, options.inputs);
  const std::string id = choose_network(*model, path, options.network);
  RunNetwork run;
  run.network = load_network(library, *model, path, id);
  try {
    const auto inputs = read_inputs(run.network.report, options.inputs, options.pictures,
                                    options.keep_batch, library.context);
    PassOptions passes;
    passes.record = true;
    run.records = run_passes(run.network, inputs, passes).records;
  } catch (const ToolError& error) {
    throw ToolError(error.exit_code(), shown(path) + ": " + error.what());
  }
  return run;
}

Difference difference_of(const RunNetwork& first, const LayerRecord& a, const LayerRecord& b) {
  Difference difference;
  difference.layer = &first.layer_of(a);
  difference.position = a.position;
  difference.first = a.shape;
  difference.second = b.shape;
  difference.is_comparable = marlo::toolkit::are_comparable(a.shape.dims, b.shape.dims);
  if (!difference.is_comparable) return difference;
  const marlo::toolkit::NumberDifference numbers =
      marlo::toolkit::difference_of(a.values(), b.values());
  difference.largest = numbers.largest;
  difference.rms = numbers.rms;
  difference.largest_value = numbers.largest_value;
  return difference;
}

/// The activation that a layer's kernel applies to its results.
std::string_view epilogue_of(const LayerReport& layer) {
  const auto* facts = dynamic_cast<const marlo::runtime::IKernelFacts*>(layer.kernel.kernel.get());
  return facts == nullptr ? std::string_view() : facts->epilogue();
}

std::vector<Difference> differences_of(const RunNetwork& first, const RunNetwork& second) {
  std::vector<Difference> differences;
  for (const LayerRecord& a : first.records) {
    const auto b =
        std::find_if(second.records.begin(), second.records.end(), [&](const LayerRecord& other) {
          return other.position == a.position && second.layer_of(other).id == first.layer_of(a).id;
        });
    if (b == second.records.end()) continue;
    // Where only one applies the activation behind, both mean the same at that activation.
    if (epilogue_of(first.layer_of(a)) != epilogue_of(second.layer_of(*b))) continue;
    differences.push_back(difference_of(first, a, *b));
  }
  return differences;
}

std::string as_table(const std::vector<Difference>& differences, const CompareOptions& options) {
  Table table({{"#", true},
               {"layer", false, true},
               {"kind", false, true},
               {"output"},
               {"largest value", true},
               {"max diff", true},
               {"rms diff", true},
               {"max / largest", true},
               {""}});
  for (const Difference& difference : differences) {
    std::vector<std::string> cells{std::to_string(difference.layer->index), difference.name(),
                                   difference.layer->kind, sizes_text(difference.first.dims)};
    if (difference.is_comparable) {
      for (const double value :
           {difference.largest_value, difference.largest, difference.rms, difference.relative()}) {
        cells.push_back(short_decimal(value));
      }
      cells.emplace_back(options.bound && difference.is_beyond(*options.bound) ? "beyond" : "");
    } else {
      cells.insert(cells.end(),
                   {"", "", "", "", "other sizes: " + sizes_text(difference.second.dims)});
    }
    table.add(std::move(cells));
  }
  return table.text(table_width(options.width));
}

std::string as_json(const std::vector<Difference>& differences, const CompareOptions& options,
                    const Difference* beyond) {
  JsonText json;
  json.begin_object();
  json.text("first", options.first);
  json.text("second", options.second);
  if (options.bound) json.number("bound", *options.bound);
  json.begin_array("layers");
  for (const Difference& difference : differences) {
    json.begin_object();
    json.integer("index", difference.layer->index);
    json.text("id", difference.layer->id);
    json.text("kind", difference.layer->kind);
    json.integer("position", difference.position);
    add_shape(json, "first", difference.first);
    add_shape(json, "second", difference.second);
    json.boolean("comparable", difference.is_comparable);
    if (difference.is_comparable) {
      json.number("largest_value", difference.largest_value);
      json.number("max_difference", difference.largest);
      json.number("rms_difference", difference.rms);
      json.number("relative_difference", difference.relative());
    }
    json.end_object();
  }
  json.end_array();
  if (beyond != nullptr) json.text("first_beyond", beyond->layer->id);
  json.end_object();
  return json.finish();
}

}  // namespace

void run_compare(const CompareOptions& options) {
  Library library;
  const RunNetwork first = run_one(options, options.first, library);
  const RunNetwork second = run_one(options, options.second, library);
  const std::vector<Difference> differences = differences_of(first, second);
  if (differences.empty()) {
    throw ToolError(kModelError, shown(options.first) + " and " + shown(options.second) +
                                     ": no layer has the same id in both");
  }
  const double bound = options.bound.value_or(std::numeric_limits<double>::max());
  const auto beyond =
      std::find_if(differences.begin(), differences.end(),
                   [&](const Difference& difference) { return difference.is_beyond(bound); });
  const bool is_found = beyond != differences.end();
  print(options.json ? as_json(differences, options, is_found ? &*beyond : nullptr)
                     : as_table(differences, options));
  if (!is_found) return;
  if (!beyond->is_comparable) {
    throw ToolError(kRunError, beyond->layer->title() +
                                   ": the first that differs: " + shape_text(beyond->first) +
                                   " against " + shape_text(beyond->second));
  }
  throw ToolError(kRunError, beyond->layer->title() + ": the first beyond " + short_decimal(bound) +
                                 ": off by " + short_decimal(beyond->largest) +
                                 " where the largest value is " +
                                 short_decimal(beyond->largest_value));
}

}  // namespace qrt_tool
