#include "tools/qrt/explain_output.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/shapes.h"

namespace qrt_tool {

using marlo::toolkit::Bound;
using marlo::toolkit::ExplainedCandidate;
using marlo::toolkit::ExplainedConverter;
using marlo::toolkit::ExplainedKind;
using marlo::toolkit::ExplainedLayer;
using marlo::toolkit::ExplainedRefusal;
using marlo::toolkit::Explanation;
using marlo::toolkit::KernelSet;
using marlo::toolkit::MachineLimits;
using marlo::toolkit::MemoryLevel;
using marlo::toolkit::Roofline;

namespace {

void add_machine(JsonText& json, const MachineLimits& machine) {
  json.begin_object("machine");
  json.text("processor", machine.processor);
  json.number("gigahertz", machine.gigahertz);
  json.begin_object("gflops");
  for (size_t s = 0; s < machine.gigaflops.size(); ++s) {
    if (machine.gigaflops.at(s) <= 0) continue;
    json.number(word_of(static_cast<KernelSet>(s)), machine.gigaflops.at(s));
  }
  json.end_object();
  json.begin_array("levels");
  for (const MemoryLevel& level : machine.levels) {
    json.begin_object();
    json.text("name", level.name);
    if (level.bytes != 0) json.integer("bytes", level.bytes);
    json.begin_object("gigabytes_a_second");
    for (size_t s = 0; s < level.bandwidth.size(); ++s) {
      if (level.bandwidth.at(s).copy <= 0) continue;
      json.begin_object(word_of(static_cast<KernelSet>(s)));
      json.number("read", level.bandwidth.at(s).read);
      json.number("copy", level.bandwidth.at(s).copy);
      json.end_object();
    }
    json.end_object();
    json.end_object();
  }
  json.end_array();
  json.end_object();
}

void add_roofline(JsonText& json, const Roofline& roofline, double ms, const Explanation& all) {
  json.number("ms", ms);
  if (roofline.gigaflops > 0) json.number("gflops", roofline.gigaflops);
  if (roofline.gigabytes > 0) json.number("gigabytes_a_second", roofline.gigabytes);
  if (roofline.intensity > 0) json.number("intensity", roofline.intensity);
  if (roofline.bound == Bound::none) return;
  json.text("limit", limit_name(roofline, all.machine));
  json.number("limit_ms", roofline.limit_ms);
  if (ms > 0) json.number("of_limit", roofline.share);
}

void add_shapes(JsonText& json, const char* key,
                const std::vector<marlo::runtime::TensorShape>& shapes) {
  json.begin_array(key);
  for (const auto& shape : shapes) add_shape(json, shape);
  json.end_array();
}

void add_candidate(JsonText& json, const ExplainedCandidate& candidate) {
  json.begin_object();
  json.text("kernel", candidate.kernel);
  json.text("needs", word_of(candidate.set));
  add_shapes(json, "inputs", candidate.inputs);
  add_shape(json, "output", candidate.output);
  json.boolean("chosen", candidate.is_chosen);
  json.boolean("measured", candidate.is_measured);
  json.number("ms", candidate.ms);
  json.number("converters_ms", candidate.converters_ms);
  json.number("difference", candidate.difference);
  json.end_object();
}

void add_layer(JsonText& json, const ExplainedLayer& layer, const Explanation& all) {
  json.begin_object();
  json.text("id", layer.id);
  json.text("kind", layer.kind);
  json.text("kernel", layer.kernel);
  json.text("needs", word_of(layer.set));
  json.boolean("input", layer.is_input);
  json.boolean("output", layer.is_output);
  json.boolean("converter", layer.is_converter);
  json.begin_array("sources");
  for (const std::string& source : layer.sources) json.text(source);
  json.end_array();
  add_shapes(json, "inputs", layer.inputs);
  add_shapes(json, "outputs", layer.outputs);
  json.integer("multiply_adds", layer.work.multiply_adds);
  json.integer("bytes_read", layer.work.read);
  json.integer("bytes_written", layer.work.written);
  json.integer("bytes_of_weights", layer.work.weights);
  add_roofline(json, layer.roofline, layer.ms, all);
  json.begin_array("converters");
  for (const ExplainedConverter& converter : layer.converters) {
    json.begin_object();
    json.text("role", converter.role);
    json.text("kernel", converter.kernel);
    add_roofline(json, converter.roofline, converter.ms, all);
    json.end_object();
  }
  json.end_array();
  add_candidates(json, layer.candidates, layer.refusals);
  json.end_object();
}

}  // namespace

void add_candidates(JsonText& json, const std::vector<ExplainedCandidate>& candidates,
                    const std::vector<ExplainedRefusal>& refusals) {
  json.begin_array("candidates");
  for (const ExplainedCandidate& candidate : candidates) add_candidate(json, candidate);
  json.end_array();
  json.begin_array("refusals");
  for (const ExplainedRefusal& refusal : refusals) {
    json.begin_object();
    json.text("kernel", refusal.kernel);
    json.text("needs", word_of(refusal.set));
    json.begin_array("reasons");
    for (const std::string& reason : refusal.reasons) json.text(reason);
    json.end_array();
    json.end_object();
  }
  json.end_array();
}

std::string explain_json(const Explanation& explanation) {
  JsonText json;
  json.begin_object();
  json.text("network", explanation.network);
  add_machine(json, explanation.machine);
  json.integer("passes", explanation.passes);
  json.number("pass_ms", explanation.pass_ms);
  json.number("kernels_ms", explanation.kernels_ms);
  json.number("converters_ms", explanation.converters_ms);
  json.number("engine_ms", explanation.engine_ms);
  json.number("limit_ms", explanation.limit_ms);
  json.boolean("complete", explanation.is_complete);
  json.begin_array("notes");
  for (const std::string& note : explanation.notes) json.text(note);
  json.end_array();
  json.begin_array("kinds");
  for (const ExplainedKind& kind : explanation.kinds) {
    json.begin_object();
    json.text("kind", kind.kind);
    json.integer("kernels", kind.layers);
    json.number("ms", kind.ms);
    json.number("limit_ms", kind.limit_ms);
    json.integer("multiply_adds", kind.multiply_adds);
    json.end_object();
  }
  json.end_array();
  json.begin_array("layers");
  for (const ExplainedLayer& layer : explanation.layers) add_layer(json, layer, explanation);
  json.end_array();
  json.end_object();
  return json.finish();
}

}  // namespace qrt_tool
