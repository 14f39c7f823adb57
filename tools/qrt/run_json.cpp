#include "tools/qrt/json_text.h"
#include "tools/qrt/profile_output.h"
#include "tools/qrt/run_output.h"
#include "tools/qrt/shapes.h"

namespace qrt_tool {

std::string run_json(const LoadedNetwork& network, const std::vector<InputData>& inputs,
                     const PassResult& result, const std::vector<Score>& scores,
                     const RunOptions& options) {
  JsonText json;
  json.begin_object();
  json.text("file", options.model);
  json.text("network", network.report.id);
  json.begin_array("inputs");
  for (const InputData& input : inputs) {
    json.begin_object();
    json.text("layer", network.report.layers[input.layer].id);
    json.text("file", input.path);
    json.sizes("sizes", input.shape.dims);
    json.end_object();
  }
  json.end_array();
  json.begin_array("outputs");
  for (const OutputData& output : result.outputs) {
    json.begin_object();
    json.text("layer", output.id);
    json.integer("position", output.position);
    add_shape_members(json, output.tensor->shape);
    if (options.output.empty()) json.numbers("values", output.values());
    json.end_object();
  }
  json.end_array();
  if (options.top != 0) {
    json.begin_array("top");
    for (const Score& score : scores) {
      json.begin_object();
      json.integer("index", score.index);
      json.text("label", score.label);
      json.number(options.no_softmax ? "value" : "probability", score.value);
      json.end_object();
    }
    json.end_array();
  }
  json.integer("passes", options.repeat == 0 ? 1 : options.repeat);
  json.number("pass_ms", result.pass.wall_ms);
  json.number("pass_cpu_ms", result.pass.cpu_ms);
  if (result.profile) add_profile(json, network.report, *result.profile);
  json.end_object();
  return json.finish();
}

}  // namespace qrt_tool
