#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "python/src/bind.h"
#include "python/src/errors.h"
#include "python/src/source.h"
#include "qrt_toolkit/import_onnx.h"

// What prepares models.

namespace qrt_python {

using marlo::toolkit::GivenTensor;
using marlo::toolkit::ImportedModel;
using marlo::toolkit::ImportedTensor;
using marlo::toolkit::ImportOptions;
using marlo::toolkit::ImportReport;

namespace {

GivenTensor tensor_of(const py::handle& value) {
  const auto array = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(value);
  if (!array) throw py::error_already_set();
  GivenTensor tensor;
  tensor.shape.assign(array.shape(), array.shape() + array.ndim());
  tensor.numbers.assign(array.data(), array.data() + array.size());
  return tensor;
}

py::list tensors_of(const std::vector<ImportedTensor>& tensors) {
  py::list all;
  for (const ImportedTensor& tensor : tensors) {
    py::dict facts;
    facts["name"] = tensor.name;
    facts["shape"] = py::tuple(py::cast(tensor.shape));
    facts["has_batch"] = tensor.has_batch;
    all.append(std::move(facts));
  }
  return all;
}

py::dict report_of(const ImportReport& report) {
  py::dict facts;
  facts["network"] = report.network;
  facts["producer"] = report.producer;
  facts["opset"] = report.opset;
  facts["inputs"] = tensors_of(report.inputs);
  facts["outputs"] = tensors_of(report.outputs);
  facts["node_of_layer"] = py::cast(report.node_of_layer);
  facts["multiply_adds"] = report.multiply_adds;
  facts["notes"] = py::cast(report.notes);
  facts["kernels"] = marlo::toolkit::word_of(report.kernels);
  return facts;
}

py::object import_onnx(const py::object& path, const py::object& inputs,
                       const py::object& constants, const py::object& network,
                       const py::object& kernels) {
  ImportOptions options;
  if (!kernels.is_none()) {
    options.kernels = marlo::toolkit::kernel_set_of(kernels.cast<std::string>());
    if (!options.kernels) {
      throw py::value_error("kernels " + py::repr(kernels).cast<std::string>() +
                            ": expected 'portable', 'sse', 'avx', 'fma', 'avx2' or 'avx512'");
    }
  }
  if (!inputs.is_none()) {
    for (const auto& [name, shape] : inputs.cast<py::dict>()) {
      options.shapes[name.cast<std::string>()] = shape.cast<std::vector<int64_t>>();
    }
  }
  if (!constants.is_none()) {
    for (const auto& [name, value] : constants.cast<py::dict>()) {
      options.constants[name.cast<std::string>()] = tensor_of(value);
    }
  }
  if (!network.is_none()) options.network = network.cast<std::string>();
  const auto file = py::module_::import("os").attr("fspath")(path).cast<std::string>();
  ImportedModel imported = [&] {
    const py::gil_scoped_release released;
    return marlo::toolkit::import_onnx(file, options);
  }();
  // This form holds the weights as exactly as the tree does.
  const py::bytes bytes = bytes_of(imported.model, "json");
  return py::module_::import("qrt_core._core").attr("_model_of")(bytes, report_of(imported.report));
}

}  // namespace

void bind_toolkit(py::module_& module) {
  module.def(
      "import_onnx", &import_onnx, py::arg("path"), py::kw_only(), py::arg("inputs") = py::none(),
      py::arg("constants") = py::none(), py::arg("network") = py::none(),
      py::arg("kernels") = py::none(),
      "Makes a model of an ONNX file.\n\nArgs:\n    path: the file, "
      "str or os.PathLike.\n    inputs: shapes of inputs that the file leaves open, by name and "
      "with their batch: {'x': (1, 3, 224, 224)}.\n    constants: arrays that take the place of "
      "inputs, by name.\n    network: the network's id; None for the file's name.\n    kernels: "
      "the set to choose from by estimated costs: 'portable', 'sse', 'avx', 'fma', 'avx2' or "
      "'avx512'; None for what this processor can run.\n\nReturns:\n    "
      "A Model, whose `report` says what was imported.\n\nRaises:\n    OnnxFileError: for a file "
      "that can't be read.\n    UnsupportedError: for a network that can't be imported; "
      "`refusals` says why, node by node.");
}

}  // namespace qrt_python
