#include "tools/qrt/tune_output.h"

#include <cmath>

#include "tools/qrt/explain_output.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::toolkit::AssignedLayer;
using marlo::toolkit::TunedConfiguration;
using marlo::toolkit::TunedSize;
using marlo::toolkit::TuneOptions;
using marlo::toolkit::TuneReport;

namespace {

std::string shown_ms(double ms) { return std::isfinite(ms) ? short_decimal(ms) : "-"; }

std::string inputs_text(const TunedSize& size) {
  std::string text;
  for (const auto& [id, shape] : size.size.inputs) {
    text += (text.empty() ? "" : ", ") + printable(id) + " " + sizes_text(shape.dims);
  }
  return text;
}

/// Passes on each size; empty where there is one.
std::string sizes_table(const TuneReport& report, size_t width) {
  if (report.sizes.size() < 2) return "";
  Table sizes({{"input"}, {"weight", true}, {"given ms", true}, {"chosen ms", true}});
  for (const TunedSize& size : report.sizes) {
    sizes.add({inputs_text(size), short_decimal(size.size.weight), shown_ms(size.before),
               shown_ms(size.after)});
  }
  return sizes.text(width) + "\n";
}

/// Every layer's candidates, and why other kernels can't run it.
void add_all_candidates(JsonText& json, const TuneReport& report) {
  json.begin_object("candidates");
  for (const auto& [id, rivals] : report.candidates) {
    if (rivals.candidates.empty()) continue;
    json.begin_object(id.c_str());
    add_candidates(json, rivals.candidates, rivals.refusals);
    json.end_object();
  }
  json.end_object();
}

}  // namespace

std::string tune_text(const TuneReport& report, size_t width) {
  const char* const sum = report.sizes.size() < 2 ? "pass ms" : "weighted ms";
  Table passes({{"configuration"}, {sum, true}, {"of given", true}, {""}});
  for (const TunedConfiguration& ran : report.ran) {
    passes.add({ran.name, shown_ms(ran.milliseconds),
                ran.of_given > 0 ? short_decimal(ran.of_given) : "",
                ran.name == report.chosen ? "chosen" : ""});
  }
  std::string text = sizes_table(report, width) + passes.text(width);
  Table layers({{"layer", false, true}, {"kernel before", false, true}, {"kernel", false, true}});
  size_t changed = 0;
  for (const AssignedLayer& layer : report.assigned.layers) {
    if (layer.before == layer.kernel) continue;
    layers.add({layer.id, layer.before, layer.kernel});
    ++changed;
  }
  if (changed != 0) text += "\n" + layers.text(width);
  if (!report.padded.empty()) {
    text += "\n" + counted(report.padded.size(), "layer") +
            " with channels of zeros up to a whole block of 8\n";
  }
  text += "\n" + counted(changed, "layer") + " changed, " +
          counted(report.assigned.converters.size(), "converter") + " new; " +
          std::to_string(report.measured) + " kernels measured and " +
          std::to_string(report.remembered) + " remembered, " +
          counted(report.changes_tried, "change") + " tried in whole passes and " +
          std::to_string(report.changes_kept) + " kept, in " + short_decimal(report.seconds) +
          " s; outputs " +
          (std::isfinite(report.difference)
               ? "differ by " + short_decimal(report.difference) + " of the largest\n"
               : "weren't compared\n");
  return text;
}

std::string tune_json(const TuneReport& report, const TuneOptions& options) {
  JsonText json;
  json.begin_object();
  json.text("processor", options.processor);
  json.text("kernels", marlo::toolkit::word_of(options.assign.set));
  json.number("tolerance", options.assign.tolerance);
  json.begin_array("configurations");
  for (const TunedConfiguration& ran : report.ran) {
    json.begin_object();
    json.text("name", ran.name);
    json.number("pass_ms", ran.milliseconds);
    json.number("of_given", ran.of_given);
    json.end_object();
  }
  json.end_array();
  json.begin_array("sizes");
  for (const TunedSize& size : report.sizes) {
    json.begin_object();
    json.begin_object("inputs");
    for (const auto& [id, shape] : size.size.inputs) json.text(id.c_str(), shape_text(shape));
    json.end_object();
    json.number("weight", size.size.weight);
    json.number("before_ms", size.before);
    json.number("after_ms", size.after);
    json.number("difference", size.difference);
    json.end_object();
  }
  json.end_array();
  json.text("chosen", report.chosen);
  json.begin_object("padded_channels");
  for (const auto& [id, channels] : report.padded) json.integer(id.c_str(), channels);
  json.end_object();
  json.number("before_ms", report.before);
  json.number("after_ms", report.after);
  json.number("difference", report.difference);
  json.number("seconds", report.seconds);
  json.integer("measured", report.measured);
  json.integer("remembered", report.remembered);
  json.integer("changes_tried", report.changes_tried);
  json.integer("changes_kept", report.changes_kept);
  json.boolean("complete", report.is_complete);
  json.boolean("exact", report.assigned.is_exact);
  json.begin_array("layers");
  for (const AssignedLayer& layer : report.assigned.layers) {
    json.begin_object();
    json.text("id", layer.id);
    json.text("before", layer.before);
    json.text("kernel", layer.kernel);
    json.integer("candidates", layer.candidates);
    json.number("ms", layer.cost);
    json.number("before_ms", layer.cost_before);
    json.end_object();
  }
  json.end_array();
  json.begin_array("converters");
  for (const auto& [id, source] : report.assigned.converters) {
    json.begin_object();
    json.text("id", id);
    json.text("of", source);
    json.end_object();
  }
  json.end_array();
  add_all_candidates(json, report);
  json.begin_array("excluded");
  for (const std::string& kernel : report.excluded) json.text(kernel);
  json.end_array();
  json.begin_array("notes");
  for (const std::string& note : report.notes) json.text(note);
  json.end_array();
  json.end_object();
  return json.finish();
}

}  // namespace qrt_tool
