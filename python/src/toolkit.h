#pragma once

#include <pybind11/pybind11.h>

#include "python/src/model.h"
#include "qrt_toolkit/assign/kernel_set.h"
#include "qrt_toolkit/tune/layer_candidates.h"

// What the functions that prepare models share.

namespace qrt_python {

/// The set of kernels that a word stands for.
/// @param word a str, or None for what this processor can run
/// @throws ValueError for another word
marlo::toolkit::KernelSet kernels_of(const py::object& word);

/// A network to be worked on, and the shapes of its inputs by id.
struct Chosen {
  std::string network;
  std::map<std::string, marlo::runtime::TensorShape> inputs;
  std::map<uint32_t, marlo::runtime::TensorShape> inputs_by_layer;
};

/// Chooses a network of a model, and runs it once, on zeros, in memory of its own.
/// @param network its id, its number, or None for the only one
/// @param inputs sizes by id, or None for what the model tells
/// @throws what `PyModel::chosen`, `input_shapes` and a pass throw
Chosen choose(const PyModel& model, const py::object& network, const py::object& inputs);

/// The candidates of a layer as tuples: kernel, set, inputs, output, whether it is chosen and measured, milliseconds of
/// the kernel and of its converters, difference.
py::list tuples_of(const std::vector<marlo::toolkit::ExplainedCandidate>& candidates);

/// The kernels that can't run a layer as tuples: kernel, set, reasons.
py::list tuples_of(const std::vector<marlo::toolkit::ExplainedRefusal>& refusals);

/// Declares `_tune`.
void bind_tune(py::module_& module);

/// Declares `_explain`.
void bind_explain(py::module_& module);

/// Declares `_bench`.
void bind_bench(py::module_& module);

}  // namespace qrt_python
