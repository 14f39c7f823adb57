#include "python/src/facts.h"

#include <pybind11/stl.h>

#include <algorithm>

#include "python/src/arrays.h"
#include "python/src/bind.h"
#include "python/src/errors.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/utility/application.h"
#include "tools/qrt/processor.h"

namespace qrt_python {

using marlo::runtime::InstructionSet;
using marlo::utility::Finding;
using marlo::utility::Network;
using marlo::utility::Port;
using qrt_tool::missing_instructions;

namespace {

/// One kernel of the library.
struct KernelName {
  std::string name;
  InstructionSet needs;
};

std::vector<KernelName> all_kernels() {
  const Kernels library;
  std::vector<KernelName> all;
  for (const std::string& name : library.kernels.Keys()) {
    all.push_back({name, marlo::runtime::needs_of(name)});
  }
  std::sort(all.begin(), all.end(),
            [](const KernelName& a, const KernelName& b) { return a.name < b.name; });
  return all;
}

const char* name_of(InstructionSet set) {
  switch (set) {
    case InstructionSet::baseline:
      return "baseline";
    case InstructionSet::avx:
      return "avx";
    case InstructionSet::fma:
      return "fma";
    case InstructionSet::avx2:
      return "avx2";
    case InstructionSet::avx512:
      return "avx512";
  }
  return "";
}

std::map<uint32_t, std::string> names_of(
    const std::map<uint32_t, std::shared_ptr<marlo::runtime::IKernel>>& converters) {
  std::map<uint32_t, std::string> names;
  for (const auto& [position, converter] : converters) {
    if (converter != nullptr) names[position] = converter->GetKernelName();
  }
  return names;
}

py::object shape_of(const Port& port) {
  if (!port.shape) return py::none();
  return tuple_of(port.shape->dims);
}

py::object dtype_of_port(const Port& port) {
  if (!port.shape) return py::none();
  return dtype_of(port.shape->data_type);
}

py::object layout_of_port(const Port& port) {
  const char* name = port.shape ? marlo::runtime::PrintedName(port.shape->layout) : nullptr;
  return name == nullptr ? py::object(py::none()) : py::str(name);
}

std::string repr_of(const Port& port) {
  const py::str text("Port(id={!r}, shape={!r})");
  return text.format(port.id, shape_of(port)).cast<std::string>();
}

std::string repr_of(const LayerFacts& layer) {
  const py::str text("Layer(index={}, id={!r}, kind={!r}, kernel={!r})");
  return text.format(layer.index, layer.id, layer.kind, layer.kernel).cast<std::string>();
}

std::string severity_of(const Finding& finding) {
  return finding.severity == marlo::utility::Severity::error ? "error" : "warning";
}

void bind_layers(py::module_& module) {
  py::class_<Port>(module, "Port", "An input or an output of a network.")
      .def_readonly("id", &Port::id, "The id of its layer.")
      .def_readonly("layer", &Port::layer, "The index of its layer.")
      .def_property_readonly("shape", &shape_of,
                             "Sizes, outermost first and without a batch: of an input what the "
                             "model tells, of an output that of the last run. None where unknown.")
      .def_property_readonly("dtype", &dtype_of_port, "NumPy's type of its numbers, or None.")
      .def_property_readonly("layout", &layout_of_port,
                             "Its order in memory, such as 'CHW', or None where unknown.")
      .def("__repr__", py::overload_cast<const Port&>(&repr_of));
  py::class_<LayerFacts>(module, "Layer", "One layer of a network that is ready to run.")
      .def_readonly("index", &LayerFacts::index, "Its place in the order in which layers run.")
      .def_readonly("id", &LayerFacts::id, "Its name in the network.")
      .def_readonly("kind", &LayerFacts::kind, "What it computes, such as 'Conv2d'.")
      .def_readonly("kernel", &LayerFacts::kernel, "The kernel that computes it.")
      .def_readonly("input_converters", &LayerFacts::input_converters,
                    "Kernels that change an input's layout first, by position.")
      .def_readonly("output_converters", &LayerFacts::output_converters,
                    "Kernels that change an output's layout afterwards, by position.")
      .def_readonly("inputs", &LayerFacts::inputs, "The ids of the layers that it reads.")
      .def_readonly("is_input", &LayerFacts::is_input, "Whether the caller gives its tensor.")
      .def_readonly("is_output", &LayerFacts::is_output, "Whether the network returns its result.")
      .def("__repr__", py::overload_cast<const LayerFacts&>(&repr_of));
}

void bind_findings(py::module_& module) {
  const auto or_none = [](const std::string& text) {
    return text.empty() ? py::object(py::none()) : py::str(text);
  };
  const auto member = [&](std::string Finding::*text) {
    return [or_none, text](const Finding& finding) { return or_none(finding.*text); };
  };
  py::class_<Finding>(module, "Finding", "One point in which a model isn't what it says.")
      .def_property_readonly(
          "code", [](const Finding& finding) { return marlo::utility::code_name(finding.code); },
          "What kind of point it is, such as 'refused-layer'.")
      .def_property_readonly("severity", &severity_of, "'error' or 'warning'.")
      .def_readonly("network", &Finding::network, "The id of the network; may be empty.")
      .def_readonly("layer", &Finding::layer, "The index of the layer, or None.")
      .def_property_readonly("id", member(&Finding::id), "The id of the layer, or None.")
      .def_property_readonly("kind", member(&Finding::kind), "What the layer computes, or None.")
      .def_property_readonly("kernel", member(&Finding::kernel),
                             "The kernel or converter that is concerned, or None.")
      .def_property_readonly("member", member(&Finding::member),
                             "What is at fault, by its key in the file, or None.")
      .def_property_readonly("expected", member(&Finding::expected), "In words, or None.")
      .def_property_readonly("found", member(&Finding::found), "In the same words, or None.")
      .def_property_readonly("change", member(&Finding::change), "What to change, or None.")
      .def_readonly("line", &Finding::line, "Of the JSON text, from 1; 0 where not known.")
      .def_readonly("column", &Finding::column, "In that line, from 1; 0 where not known.")
      .def("__str__", &marlo::utility::finding_text)
      .def("__repr__", [](const Finding& finding) {
        return "<Finding " + marlo::utility::finding_text(finding) + ">";
      });
}

void bind_kernels(py::module_& module) {
  py::class_<KernelName>(module, "Kernel", "One kernel that a model file can name.")
      .def_readonly("name", &KernelName::name, "Its name in model files.")
      .def_property_readonly(
          "needs", [](const KernelName& kernel) { return name_of(kernel.needs); },
          "The instructions without which it can't run: 'baseline', 'avx', 'fma', 'avx2' or "
          "'avx512'.")
      .def_property_readonly(
          "runs_here",
          [](const KernelName& kernel) { return missing_instructions(kernel.name).empty(); },
          "Whether this processor has them.")
      .def("__repr__", [](const KernelName& kernel) {
        return "Kernel(name=" + quoted(kernel.name) + ", needs='" + name_of(kernel.needs) + "')";
      });
  module.def("kernels", &all_kernels,
             "All kernels of this build.\n\nReturns:\n    A list of Kernel, by name.");
}

}  // namespace

Kernels::Kernels() {
  marlo::utility::init_register_operators(kernels, params);
  marlo::utility::init_register_extension_operators(kernels, params);
}

std::vector<LayerFacts> layers_of(const Network& network) {
  const auto& layers = network.net()->layers;
  std::vector<LayerFacts> all;
  for (const auto& layer : layers) {
    LayerFacts facts;
    facts.index = static_cast<uint32_t>(all.size());
    facts.id = layer->id;
    facts.kind = layer->name;
    if (layer->kernel != nullptr) facts.kernel = layer->kernel->GetKernelName();
    facts.input_converters = names_of(layer->input_converters);
    facts.output_converters = names_of(layer->output_converters);
    for (const auto& [source, output] : layer->inputs) {
      if (source < layers.size()) facts.inputs.push_back(layers[source]->id);
    }
    const auto stands_in = [&](const std::vector<Port>& ports) {
      return std::any_of(ports.begin(), ports.end(),
                         [&](const Port& port) { return port.layer == facts.index; });
    };
    facts.is_input = stands_in(network.inputs());
    facts.is_output = stands_in(network.outputs());
    if (facts.is_input) facts.inputs.clear();
    all.push_back(std::move(facts));
  }
  return all;
}

void require_processor(const Network& network) {
  for (const LayerFacts& layer : layers_of(network)) {
    std::vector<std::string> kernels{layer.kernel};
    for (const auto& [position, name] : layer.input_converters) kernels.push_back(name);
    for (const auto& [position, name] : layer.output_converters) kernels.push_back(name);
    for (const std::string& kernel : kernels) {
      const std::string missing = missing_instructions(kernel);
      if (missing.empty()) continue;
      py::dict fields;
      fields["network"] = network.id();
      fields["layer"] = layer.index;
      fields["id"] = layer.id;
      fields["kind"] = layer.kind;
      fields["kernel"] = kernel;
      raise("ProcessorError",
            "network " + quoted(network.id()) + ", layer " + quoted(layer.id) + ": kernel " +
                kernel + " needs " + missing + ", which this processor lacks",
            fields);
    }
  }
}

void bind_facts(py::module_& module) {
  bind_layers(module);
  bind_findings(module);
  bind_kernels(module);
}

}  // namespace qrt_python
