#include <pybind11/stl.h>

#include <utility>

#include "python/src/arrays.h"
#include "python/src/errors.h"
#include "python/src/facts.h"
#include "python/src/progress.h"
#include "python/src/toolkit.h"
#include "qrt_toolkit/tune/tune.h"

// Kernels chosen by measurement.

namespace qrt_python {

using marlo::toolkit::AssignedLayer;
using marlo::toolkit::KernelSet;
using marlo::toolkit::TunedModel;
using marlo::toolkit::TunedSize;
using marlo::toolkit::TuneOptions;
using marlo::toolkit::TuneProgress;
using marlo::toolkit::TuneReport;
using marlo::utility::Error;

namespace {

KernelSet runnable_kernels_of(const py::object& word) {
  const KernelSet set = kernels_of(word);
  if (set > marlo::toolkit::processor_kernels()) {
    throw py::value_error("kernels " + py::repr(word).cast<std::string>() +
                          ": this processor can't run them, so they can't be measured here");
  }
  return set;
}

double tolerance_of(const py::object& numerics) {
  if (py::isinstance<py::str>(numerics)) {
    const auto known = marlo::toolkit::tolerance_of(numerics.cast<std::string>());
    if (known) return *known;
  } else if (PyNumber_Check(numerics.ptr()) != 0) {
    const auto number = py::float_(numerics).cast<double>();
    if (number >= 0) return number;
  }
  throw py::value_error("numerics " + py::repr(numerics).cast<std::string>() +
                        ": expected 'same', 'bounded', 'fast' or a number, 0 or more");
}

py::dict facts_of(const TuneReport& report, const TuneOptions& options) {
  py::list configurations;
  for (const auto& ran : report.ran) {
    configurations.append(py::make_tuple(ran.name, ran.milliseconds));
  }
  py::list layers;
  for (const AssignedLayer& layer : report.assigned.layers) {
    layers.append(py::make_tuple(layer.id, layer.before, layer.kernel, layer.candidates, layer.cost,
                                 layer.cost_before));
  }
  py::list sizes;
  for (const TunedSize& size : report.sizes) {
    py::dict inputs;
    for (const auto& [id, shape] : size.size.inputs) inputs[py::str(id)] = tuple_of(shape.dims);
    sizes.append(
        py::make_tuple(inputs, size.size.weight, size.before, size.after, size.difference));
  }
  py::dict candidates;
  py::dict refusals;
  for (const auto& [id, rivals] : report.candidates) {
    if (rivals.candidates.empty()) continue;
    candidates[py::str(id)] = tuples_of(rivals.candidates);
    refusals[py::str(id)] = tuples_of(rivals.refusals);
  }
  py::dict facts;
  facts["candidates"] = candidates;
  facts["refusals"] = refusals;
  facts["sizes"] = sizes;
  facts["changes_tried"] = report.changes_tried;
  facts["changes_kept"] = report.changes_kept;
  facts["processor"] = options.processor;
  facts["kernels"] = marlo::toolkit::word_of(options.assign.set);
  facts["tolerance"] = options.assign.tolerance;
  facts["configurations"] = configurations;
  facts["chosen"] = report.chosen;
  facts["padded"] = py::cast(report.padded);
  facts["before_ms"] = report.before;
  facts["after_ms"] = report.after;
  facts["difference"] = report.difference;
  facts["seconds"] = report.seconds;
  facts["measured"] = report.measured;
  facts["remembered"] = report.remembered;
  facts["is_complete"] = report.is_complete;
  facts["is_exact"] = report.assigned.is_exact;
  facts["layers"] = layers;
  facts["converters"] = py::cast(report.assigned.converters);
  facts["excluded"] = py::tuple(py::cast(report.excluded));
  facts["notes"] = py::tuple(py::cast(report.notes));
  return facts;
}

py::tuple tune(const PyModel& model, const py::object& network, const py::list& sizes,
               const py::object& kernels, const py::object& numerics, double budget,
               const std::string& wisdom, const std::string& date, bool with_candidates,
               const py::object& progress) {
  TuneOptions options;
  options.with_candidates = with_candidates;
  options.assign.set = runnable_kernels_of(kernels);
  options.assign.tolerance = tolerance_of(numerics);
  if (!(budget >= 0)) throw py::value_error("budget: expected seconds, 0 or more");
  for (const py::handle& size : sizes) {
    const auto [inputs, weight] = size.cast<std::pair<py::object, double>>();
    const Chosen chosen = choose(model, network, inputs);
    options.assign.network = chosen.network;
    options.further.push_back({chosen.inputs, weight});
  }
  options.assign.inputs = options.further.at(0).inputs;
  options.weight = options.further[0].weight;
  options.further.erase(options.further.begin());
  options.budget = budget;
  options.wisdom = wisdom;
  options.processor = marlo::toolkit::processor_name();
  options.date = date;
  Progress steps(progress);
  options.go_on = [&](const TuneProgress& now) {
    return steps.step(now.layers, now.of_layers, now.seconds);
  };
  const auto tree = model.source()->tree();
  TunedModel tuned = [&] {
    try {
      const py::gil_scoped_release released;
      const Kernels library;
      return marlo::toolkit::tune_model(*tree, library.kernels, options);
    } catch (const Error& failure) {
      raise("Error", failure);
    }
  }();
  // An interrupt ends the measurements, and what is known by then is chosen from.
  if (!steps.is_interrupted()) steps.raise();
  py::dict facts = facts_of(tuned.report, options);
  facts["network"] = options.assign.network;
  facts["is_interrupted"] = steps.is_interrupted();
  // This form holds the weights as exactly as the tree does.
  return py::make_tuple(bytes_of(tuned.model, "json"), facts);
}

}  // namespace

void bind_tune(py::module_& module) {
  module.def("_tune", &tune, py::arg("model"), py::arg("network"), py::arg("sizes"),
             py::arg("kernels"), py::arg("numerics"), py::arg("budget"), py::arg("wisdom"),
             py::arg("date"), py::arg("candidates"), py::arg("progress"));
}

}  // namespace qrt_python
