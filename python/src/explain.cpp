#include "qrt_toolkit/explain/explain.h"

#include <pybind11/stl.h>

#include <utility>

#include "python/src/arrays.h"
#include "python/src/errors.h"
#include "python/src/facts.h"
#include "python/src/progress.h"
#include "python/src/toolkit.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/explain/html.h"
#include "qrt_toolkit/tune/tune.h"

// Where the time of a network goes.

namespace qrt_python {

using marlo::toolkit::ExplainedCandidate;
using marlo::toolkit::ExplainedLayer;
using marlo::toolkit::ExplainedRefusal;
using marlo::toolkit::ExplainOptions;
using marlo::toolkit::ExplainProgress;
using marlo::toolkit::Explanation;
using marlo::toolkit::KernelSet;
using marlo::toolkit::MachineLimits;
using marlo::toolkit::Roofline;
using marlo::utility::Error;

namespace {

// Measured once in a process. Called without the interpreter's lock.
const MachineLimits& limits_of_machine() {
  static const MachineLimits limits = marlo::toolkit::measure_machine();
  return limits;
}

py::dict facts_of(const MachineLimits& machine) {
  py::dict gigaflops;
  for (size_t set = 0; set < machine.gigaflops.size(); ++set) {
    if (machine.gigaflops.at(set) <= 0) continue;
    gigaflops[marlo::toolkit::word_of(static_cast<KernelSet>(set))] = machine.gigaflops.at(set);
  }
  py::list levels;
  for (const auto& level : machine.levels) {
    py::dict read;
    py::dict copy;
    for (size_t set = 0; set < level.bandwidth.size(); ++set) {
      const auto& bandwidth = level.bandwidth.at(set);
      if (bandwidth.read <= 0) continue;
      const char* const word = marlo::toolkit::word_of(static_cast<KernelSet>(set));
      read[word] = bandwidth.read;
      copy[word] = bandwidth.copy;
    }
    levels.append(py::make_tuple(level.name, level.bytes, read, copy));
  }
  py::dict facts;
  facts["processor"] = machine.processor;
  facts["gigahertz"] = machine.gigahertz;
  facts["gigaflops"] = gigaflops;
  facts["levels"] = levels;
  return facts;
}

// ms, GFLOP/s, GB/s, ms at the limit, share of the limit, name of the limit.
py::tuple times_of(double ms, const Roofline& roofline, const MachineLimits& machine) {
  return py::make_tuple(ms, roofline.gigaflops, roofline.gigabytes, roofline.limit_ms,
                        roofline.share, marlo::toolkit::limit_name(roofline, machine));
}

// Sizes and layout of a tensor as a kernel reads or makes it.
py::tuple form_of(const marlo::runtime::TensorShape& shape) {
  return py::make_tuple(tuple_of(shape.dims), marlo::runtime::LayoutText(shape.layout));
}

}  // namespace

py::list tuples_of(const std::vector<ExplainedCandidate>& candidates) {
  py::list tuples;
  for (const ExplainedCandidate& candidate : candidates) {
    py::list inputs;
    for (const auto& shape : candidate.inputs) inputs.append(form_of(shape));
    tuples.append(py::make_tuple(candidate.kernel, marlo::toolkit::word_of(candidate.set),
                                 py::tuple(inputs), form_of(candidate.output), candidate.is_chosen,
                                 candidate.is_measured, candidate.ms, candidate.converters_ms,
                                 candidate.difference));
  }
  return tuples;
}

py::list tuples_of(const std::vector<ExplainedRefusal>& refusals) {
  py::list tuples;
  for (const ExplainedRefusal& refusal : refusals) {
    tuples.append(py::make_tuple(refusal.kernel, marlo::toolkit::word_of(refusal.set),
                                 py::tuple(py::cast(refusal.reasons))));
  }
  return tuples;
}

namespace {

py::tuple row_of(const ExplainedLayer& layer, const MachineLimits& machine) {
  py::list converters;
  for (const auto& converter : layer.converters) {
    converters.append(py::make_tuple(converter.role, converter.kernel) +
                      times_of(converter.ms, converter.roofline, machine));
  }
  py::object shape = py::none();
  if (!layer.outputs.empty()) shape = tuple_of(layer.outputs[0].dims);
  const auto& work = layer.work;
  return py::make_tuple(layer.id, layer.kind, layer.kernel, shape) +
         times_of(layer.ms, layer.roofline, machine) +
         py::make_tuple(work.multiply_adds, work.read + work.written + work.weights,
                        layer.is_converter, py::tuple(py::cast(layer.sources)), converters,
                        tuples_of(layer.candidates), tuples_of(layer.refusals));
}

py::dict facts_of(const Explanation& explanation) {
  py::list layers;
  for (const ExplainedLayer& layer : explanation.layers) {
    layers.append(row_of(layer, explanation.machine));
  }
  py::list kinds;
  for (const auto& kind : explanation.kinds) {
    kinds.append(
        py::make_tuple(kind.kind, kind.layers, kind.ms, kind.limit_ms, kind.multiply_adds));
  }
  py::dict facts;
  facts["network"] = explanation.network;
  facts["machine"] = facts_of(explanation.machine);
  facts["layers"] = layers;
  facts["kinds"] = kinds;
  facts["passes"] = explanation.passes;
  facts["pass_ms"] = explanation.pass_ms;
  facts["kernels_ms"] = explanation.kernels_ms;
  facts["converters_ms"] = explanation.converters_ms;
  facts["engine_ms"] = explanation.engine_ms;
  facts["limit_ms"] = explanation.limit_ms;
  facts["is_complete"] = explanation.is_complete;
  facts["notes"] = py::tuple(py::cast(explanation.notes));
  return facts;
}

// The facts, and a page where one is asked for.
py::tuple explain(const PyModel& model, const py::object& network, const py::object& inputs,
                  double seconds, bool with_candidates, const py::object& kernels, double budget,
                  const std::string& wisdom, const py::object& title, const py::object& progress) {
  ExplainOptions options;
  if (!(seconds > 0)) throw py::value_error("seconds: expected more than 0");
  if (!(budget >= 0)) throw py::value_error("budget: expected seconds, 0 or more");
  options.with_candidates = with_candidates;
  options.set = kernels_of(kernels);
  options.budget = budget;
  options.wisdom = wisdom;
  options.processor = marlo::toolkit::processor_name();
  const Chosen chosen = choose(model, network, inputs);
  options.network = chosen.network;
  options.inputs = chosen.inputs;
  options.passes_ms = seconds * 1000.0;
  Progress steps(progress);
  options.go_on = [&](const ExplainProgress& now) { return steps.step(now.steps, now.of_steps); };
  const auto tree = model.source()->tree();
  const Explanation explanation = [&] {
    try {
      const py::gil_scoped_release released;
      const Kernels library;
      options.machine = &limits_of_machine();
      return marlo::toolkit::explain_model(*tree, library.kernels, options);
    } catch (const Error& failure) {
      raise("Error", failure);
    }
  }();
  // Once the passes are timed, an interrupt only ends the measurement of candidates.
  const bool is_kept = steps.is_interrupted() && with_candidates && !explanation.layers.empty();
  if (!is_kept) steps.raise();
  py::object page = py::none();
  if (!title.is_none()) {
    page = py::str(marlo::toolkit::explain_html(explanation, title.cast<std::string>()));
  }
  return py::make_tuple(facts_of(explanation), page);
}

}  // namespace

void bind_explain(py::module_& module) {
  module.def("_explain", &explain, py::arg("model"), py::arg("network"), py::arg("inputs"),
             py::arg("seconds"), py::arg("candidates"), py::arg("kernels"), py::arg("budget"),
             py::arg("wisdom"), py::arg("title"), py::arg("progress"));
}

}  // namespace qrt_python
