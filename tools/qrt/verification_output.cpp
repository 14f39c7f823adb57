#include "tools/qrt/verification_output.h"

#include "tools/qrt/errors.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::toolkit::Verification;
using marlo::toolkit::VerifiedLayer;

namespace {

void add_row(Table& table, const VerifiedLayer& layer, const std::string& name) {
  table.add({name, layer.node == layer.layer ? "" : layer.node, sizes_text(layer.shape),
             short_decimal(layer.largest_value), short_decimal(layer.exact.absolute),
             short_decimal(layer.exact.relative), short_decimal(layer.bound),
             short_decimal(layer.halves.absolute), short_decimal(layer.halves.relative),
             layer.is_beyond() ? "beyond" : ""});
}

void add_layers(JsonText& json, const char* key, const std::vector<VerifiedLayer>& layers) {
  json.begin_array(key);
  for (const VerifiedLayer& layer : layers) {
    json.begin_object();
    json.text("id", layer.layer);
    json.text("node", layer.node);
    json.text("kernel", layer.kernel);
    json.sizes("sizes", layer.shape);
    json.number("largest_value", layer.largest_value);
    json.number("max_difference", layer.exact.absolute);
    json.number("relative_difference", layer.exact.relative);
    json.number("bound", layer.bound);
    json.boolean("beyond", layer.is_beyond());
    json.number("halves_max_difference", layer.halves.absolute);
    json.number("halves_relative_difference", layer.halves.relative);
    json.end_object();
  }
  json.end_array();
}

}  // namespace

std::string verification_text(const Verification& verification, size_t width) {
  Table table({{"layer", false, true},
               {"node", false, true},
               {"output"},
               {"largest value", true},
               {"max diff", true},
               {"relative", true},
               {"bound", true},
               {"with halves", true},
               {"relative", true},
               {""}});
  for (const VerifiedLayer& layer : verification.layers) add_row(table, layer, layer.layer);
  if (!verification.test_data.empty()) table.add_rule();
  for (const VerifiedLayer& output : verification.test_data) {
    add_row(table, output, "test data: " + output.layer);
  }
  std::string text = table.text(width);
  if (verification.not_compared != 0) {
    text += counted(verification.not_compared, "layer") +
            " more, which compute parts of an operator, were not compared\n";
  }
  return text;
}

void add_verification(JsonText& json, const Verification& verification) {
  json.begin_object("verification");
  add_layers(json, "layers", verification.layers);
  add_layers(json, "test_data", verification.test_data);
  json.integer("not_compared", verification.not_compared);
  if (const VerifiedLayer* beyond = verification.first_beyond()) {
    json.text("first_beyond", beyond->layer);
  }
  json.end_object();
}

void require_agreement(const Verification& verification) {
  const VerifiedLayer* beyond = verification.first_beyond();
  if (beyond == nullptr) return;
  throw ToolError(kRunError, "layer " + in_quotes(beyond->layer) + " (node " +
                                 in_quotes(beyond->node) + ", kernel " + beyond->kernel +
                                 "): the first beyond its bound: off by " +
                                 short_decimal(beyond->exact.absolute) + " at element " +
                                 std::to_string(beyond->place) + " where " +
                                 short_decimal(beyond->bound) + " is expected");
}

}  // namespace qrt_tool
