#include <algorithm>
#include <cmath>
#include <limits>

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
  const auto model = read_model(path, std::nullopt);
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

// Whether the sizes agree but for channels that one of them has more: those that fill up a block.
bool are_comparable(const TensorShape& first, const TensorShape& second) {
  if (first.dims.size() != second.dims.size() || first.dims.empty()) return false;
  if (first.dims == second.dims) return true;
  const bool rest = std::equal(first.dims.begin() + 1, first.dims.end(), second.dims.begin() + 1);
  const uint32_t difference =
      std::max(first.dims[0], second.dims[0]) - std::min(first.dims[0], second.dims[0]);
  return rest && first.dims.size() == 3 && difference < 8;
}

Difference difference_of(const RunNetwork& first, const LayerRecord& a, const LayerRecord& b) {
  Difference difference;
  difference.layer = &first.layer_of(a);
  difference.position = a.position;
  difference.first = a.shape;
  difference.second = b.shape;
  difference.is_comparable = are_comparable(a.shape, b.shape);
  if (!difference.is_comparable) return difference;
  const std::vector<double> ours = a.values();
  const std::vector<double> theirs = b.values();
  const size_t count = std::min(ours.size(), theirs.size());
  double squares = 0.0;
  for (size_t i = 0; i < count; ++i) {
    // What both networks make alike, infinite or not a number, is no difference.
    const bool is_same = ours[i] == theirs[i] || (std::isnan(ours[i]) && std::isnan(theirs[i]));
    double off = is_same ? 0.0 : std::fabs(ours[i] - theirs[i]);
    if (std::isnan(off)) off = std::numeric_limits<double>::infinity();
    difference.largest = std::max(difference.largest, off);
    squares += off * off;
    if (std::isfinite(ours[i])) {
      difference.largest_value = std::max(difference.largest_value, std::fabs(ours[i]));
    }
  }
  difference.rms = count == 0 ? 0.0 : std::sqrt(squares / static_cast<double>(count));
  return difference;
}

std::vector<Difference> differences_of(const RunNetwork& first, const RunNetwork& second) {
  std::vector<Difference> differences;
  for (const LayerRecord& a : first.records) {
    const auto b =
        std::find_if(second.records.begin(), second.records.end(), [&](const LayerRecord& other) {
          return other.position == a.position && second.layer_of(other).id == first.layer_of(a).id;
        });
    if (b != second.records.end()) differences.push_back(difference_of(first, a, *b));
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
