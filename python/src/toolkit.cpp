#include "python/src/toolkit.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "python/src/arguments.h"
#include "python/src/arrays.h"
#include "python/src/bind.h"
#include "python/src/errors.h"
#include "python/src/progress.h"
#include "python/src/source.h"
#include "qrt_toolkit/verify_import.h"

// What prepares models.

namespace qrt_python {

using marlo::toolkit::GivenTensor;
using marlo::toolkit::ImportedModel;
using marlo::toolkit::ImportedTensor;
using marlo::toolkit::ImportOptions;
using marlo::toolkit::ImportReport;
using marlo::toolkit::KernelSet;
using marlo::toolkit::Verification;
using marlo::toolkit::VerifiedImport;
using marlo::toolkit::VerifiedLayer;
using marlo::toolkit::VerifyOptions;

namespace {

constexpr char kKernelWords[] = "'portable', 'sse', 'avx', 'fma', 'avx2' or 'avx512'";

GivenTensor tensor_of(const py::handle& value, const std::string& name) {
  const auto array = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(value);
  // NumPy makes a NaN of None.
  if (value.is_none() || !array) refuse(name, "an array of numbers", value);
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

std::map<std::string, GivenTensor> tensors_by_name(const py::object& arrays, const char* what) {
  std::map<std::string, GivenTensor> tensors;
  if (arrays.is_none()) return tensors;
  const char* const expected = "arrays by name";
  for (const auto& [key, value] : dict_of(arrays, what, expected)) {
    const std::string name = text_of(key, what, expected);
    tensors[name] = tensor_of(value, std::string(what) + ": " + quoted(name));
  }
  return tensors;
}

ImportOptions import_options(const py::object& inputs, const py::object& constants,
                             const py::object& network, const py::object& kernels) {
  ImportOptions options;
  if (!kernels.is_none()) options.kernels = kernels_of(kernels);
  if (!inputs.is_none()) {
    const char* const expected = "shapes by name";
    for (const auto& [key, shape] : dict_of(inputs, "inputs", expected)) {
      const std::string name = text_of(key, "inputs", expected);
      options.shapes[name] = sizes_of<int64_t>(shape, "input " + quoted(name));
    }
  }
  options.constants = tensors_by_name(constants, "constants");
  if (!network.is_none()) options.network = text_of(network, "network", "a str or None");
  return options;
}

std::string path_of(const py::object& path) {
  return py::module_::import("os").attr("fspath")(path).cast<std::string>();
}

// @throws OSError for a file that isn't there
void expect_file(const py::object& path) { py::module_::import("os").attr("stat")(path); }

PyModel model_of(ImportedModel& imported) {
  // This form holds the weights as exactly as the tree does.
  return PyModel(Source(bytes_of(imported.model, "json")), report_of(imported.report));
}

PyModel import_onnx(const py::object& path, const py::object& inputs, const py::object& constants,
                    const py::object& network, const py::object& kernels) {
  const ImportOptions options = import_options(inputs, constants, network, kernels);
  const std::string file = path_of(path);
  expect_file(path);
  ImportedModel imported = [&] {
    const py::gil_scoped_release released;
    return marlo::toolkit::import_onnx(file, options);
  }();
  return model_of(imported);
}

py::list rows_of(const std::vector<VerifiedLayer>& layers) {
  py::list rows;
  for (const VerifiedLayer& layer : layers) {
    rows.append(py::make_tuple(layer.layer, layer.node, layer.kernel, tuple_of(layer.shape),
                               layer.largest_value, layer.exact.absolute, layer.exact.relative,
                               layer.bound, layer.halves.absolute, layer.halves.relative,
                               layer.place));
  }
  return rows;
}

// The model, the rows of its layers and of a folder's outputs, and how many layers have none.
py::tuple verify(const py::object& path, const py::object& inputs, const py::object& constants,
                 const py::object& network, const py::object& kernels, const py::object& data,
                 const py::object& test_data, uint32_t seed, const py::object& progress) {
  const ImportOptions options = import_options(inputs, constants, network, kernels);
  const std::string file = path_of(path);
  VerifyOptions with;
  if (data.is_none() || is_mapping(data)) {
    with.inputs = tensors_by_name(data, "data");
  } else {
    with.inputs[""] = tensor_of(data, "data");
  }
  if (!test_data.is_none()) with.test_data = path_of(test_data);
  with.seed = seed;
  Progress steps(progress);
  with.progress = [&steps](size_t done, size_t of) {
    if (!steps.step(done, of)) throw Interrupted();
  };
  expect_file(path);
  VerifiedImport verified = [&] {
    try {
      const py::gil_scoped_release released;
      return marlo::toolkit::import_and_verify(file, options, with);
    } catch (const Interrupted&) {
      steps.raise();
      throw;
    }
  }();
  const Verification& found = verified.verification;
  return py::make_tuple(model_of(verified.imported), rows_of(found.layers),
                        rows_of(found.test_data), found.not_compared);
}

}  // namespace

KernelSet kernels_of(const py::object& word) {
  if (word.is_none()) return marlo::toolkit::processor_kernels();
  const std::string text = text_of(word, "kernels", std::string(kKernelWords) + " or None");
  const auto set = marlo::toolkit::kernel_set_of(text);
  if (set) return *set;
  throw py::value_error("kernels " + quoted(text) + ": expected " + kKernelWords);
}

Chosen choose(const PyModel& model, const py::object& network, const py::object& inputs) {
  // States of the caller's own networks stay as they are.
  PyModel own(Source(*model.source()));
  const Net net = own.chosen(network);
  Chosen chosen{net.id(), input_shapes(net, inputs), {}};
  const py::object zeros = py::module_::import("numpy").attr("zeros");
  std::vector<Operand> operands;
  for (const auto& port : net.network().inputs()) {
    const auto& shape = chosen.inputs.at(port.id);
    chosen.inputs_by_layer[port.layer] = shape;
    operands.push_back({zeros(tuple_of(shape.dims), dtype_of(shape.data_type)), shape});
  }
  net.run(operands, net.request(py::none()));
  return chosen;
}

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
      "A Model, whose `report` says what was imported.\n\nRaises:\n    OSError: for a file that "
      "isn't there.\n    OnnxFileError: for a file that can't be read.\n    UnsupportedError: for "
      "a network that can't be imported; "
      "`refusals` says why, node by node.");
  module.def("_verify", &verify, py::arg("path"), py::arg("inputs"), py::arg("constants"),
             py::arg("network"), py::arg("kernels"), py::arg("data"), py::arg("test_data"),
             py::arg("seed"), py::arg("progress"));
  bind_tune(module);
  bind_bench(module);
  bind_explain(module);
}

}  // namespace qrt_python
