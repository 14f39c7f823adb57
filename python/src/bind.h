#pragma once

#include <pybind11/pybind11.h>

// The parts of the module, each entered by one call.

namespace qrt_python {

namespace py = pybind11;

void bind_facts(py::module_& module);  ///< layers, ports, kernels, findings
void bind_model(py::module_& module);  ///< Model, Net and load
void bind_image(py::module_& module);  ///< what `qrt_core.image` calls
void bind_toolkit(
    py::module_& module);            ///< import_onnx, and what verify, tune, bench and explain call
void bind_log(py::module_& module);  ///< log lines go to `logging`

}  // namespace qrt_python
