#include "python/src/model.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "python/src/arguments.h"
#include "python/src/arrays.h"
#include "python/src/bind.h"
#include "python/src/errors.h"
#include "python/src/facts.h"
#include "qrt_core/utility/check_shapes.h"

// The classes Model and Net.

namespace qrt_python {

using marlo::runtime::TensorShape;
using marlo::utility::CheckOptions;
using marlo::utility::Port;

namespace {

constexpr char kCallDoc[] = R"(Runs one pass.

Args:
    inputs: one array for each of `Net.inputs`, in that order or by name. C-contiguous arrays of
        the input's type, float32 as a rule, go in without a copy; others that NumPy calls
        "same_kind" are converted. Shapes are without a batch; a leading axis of one is left out
        where the model tells the input's shape.
    outputs: the id of a layer, or several ids; None stands for the network's outputs.

Returns:
    An array where the network has one output, or where `outputs` is one id; else a dict of arrays
    by layer id. Arrays stay valid after later calls and after the network is gone.

Raises:
    TypeError: for an input that has no numbers, or none that convert.
    InputError: for too few, too many or unknown inputs, or an unknown layer in `outputs`.
    LayerError: for a layer that doesn't fit; its fields say which one and why.
    BusyError: while another thread runs a network of this model.)";

constexpr char kProfileDoc[] = R"(Runs the network `repeat` times and tells where the time goes.

Args:
    inputs: as of a call.
    repeat: how many passes are measured, behind one that is not; 1 or more.

Returns:
    A Profile: printed it is a table, `to_dict()` is for pandas.

Raises:
    ValueError: for fewer than one pass.
    TypeError, InputError, LayerError, BusyError: as a call.)";

std::string listed(const std::vector<std::string>& ids) {
  std::string text;
  for (const std::string& id : ids) text += (text.empty() ? "" : ", ") + quoted(id);
  return text;
}

std::vector<uint32_t> sizes_of_input(const py::handle& sizes, const std::string& id) {
  return sizes_of<uint32_t>(sizes, "input " + quoted(id));
}

CheckOptions check_options(const py::object& inputs) {
  CheckOptions options;
  if (inputs.is_none()) return options;
  const char* const expected = "shapes by network and input id";
  for (const auto& [network, shapes] : dict_of(inputs, "inputs", expected)) {
    auto& by_id = options.inputs[text_of(network, "inputs", expected)];
    for (const auto& [key, sizes] : dict_of(shapes, "inputs", expected)) {
      const std::string id = text_of(key, "inputs", expected);
      const std::vector<uint32_t> dims = sizes_of_input(sizes, id);
      by_id[id] = marlo::utility::Input(dims, static_cast<const float*>(nullptr)).shape();
    }
  }
  return options;
}

py::object profile_of(const Net& net, const std::vector<Operand>& operands, int repeat) {
  if (repeat < 1) throw py::value_error("repeat: expected 1 or more");
  const qrt_tool::Profile times = net.measure(operands, repeat);
  std::unordered_map<unsigned int, TensorShape> shapes;
  const auto& ports = net.network().inputs();
  for (size_t i = 0; i < ports.size(); ++i) shapes[ports[i].layer] = operands[i].shape;
  const auto fits =
      marlo::utility::check_shapes(*net.network().net(), shapes, net.network().context());
  const auto& layers = net.network().net()->layers;
  py::list rows;
  for (const qrt_tool::ProfileRow& row : times.rows) {
    py::object shape = py::none();
    const auto& made = fits[row.layer].outputs;
    if (row.role.empty() && !made.empty()) shape = tuple_of(made[0].dims);
    rows.append(py::make_tuple(row.layer, layers[row.layer]->id, layers[row.layer]->name, row.role,
                               row.kernel, shape, row.times.cpu_ms, row.bytes));
  }
  return py::module_::import("qrt_core.profile")
      .attr("Profile")(net.id(), rows, repeat, times.pass.wall_ms, times.pass.cpu_ms);
}

// The binding's own way from a call to its function takes longer than small networks. This is the
// slot of the type, and `__call__` what it falls back on.
PyObject* call_net(PyObject* self, PyObject* args, PyObject* named) noexcept {
  try {
    const bool is_plain = named == nullptr || PyDict_GET_SIZE(named) == 0;
    auto* const instance = reinterpret_cast<py::detail::instance*>(self);
    if (is_plain && instance->simple_layout && instance->simple_holder_constructed) {
      const auto* const net = static_cast<const Net*>(instance->simple_value_holder[0]);
      py::object result = net->run_again(py::reinterpret_borrow<py::tuple>(args));
      if (result) return result.release().ptr();
    }
    const py::object method = py::handle(self).attr("__call__");
    return PyObject_Call(method.ptr(), args, named);
  } catch (py::error_already_set& failure) {
    failure.restore();
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& failure) {
    PyErr_SetString(PyExc_RuntimeError, failure.what());
  }
  return nullptr;
}

void bind_net(py::module_& module) {
  py::class_<Net> type(
      module, "Net",
      "One network of a model, ready to run: call it with arrays.\n\nIt belongs to one "
      "thread at a time, together with the other networks of its model.");
  type.def_property_readonly("id", &Net::id, "Its id in the model.")
      .def_property_readonly(
          "inputs", [](const Net& net) { return net.network().inputs(); },
          "What it takes, a list of Port in the order of a call.")
      .def_property_readonly(
          "outputs", [](const Net& net) { return net.outputs(); },
          "What it returns, a list of Port.")
      .def_property_readonly(
          "layers", [](const Net& net) { return layers_of(net.network()); },
          "Its layers, a list of Layer in the order in which they run.")
      .def(
          "__call__",
          [](const Net& net, const py::args& inputs, const py::object& outputs,
             const py::kwargs& named) {
            return net.run(net.operands(inputs, named), net.request(outputs));
          },
          py::kw_only(), py::arg("outputs") = py::none(), kCallDoc)
      .def(
          "run",
          [](const Net& net, const py::object& inputs, const py::object& outputs) {
            const bool several =
                py::isinstance<py::tuple>(inputs) || py::isinstance<py::list>(inputs);
            if (!several && is_mapping(inputs)) {
              const py::kwargs by_id(dict_of(inputs, "inputs", "arrays by id"));
              return net.run(net.operands(py::args(py::tuple(0)), by_id), net.request(outputs));
            }
            const py::tuple given = several ? py::tuple(inputs) : py::make_tuple(inputs);
            return net.run(net.operands(py::args(given), {}), net.request(outputs));
          },
          py::arg("inputs"), py::arg("outputs") = py::none(),
          "As a call, with the inputs as one object, for ids that are no names in Python.\n\nArgs:"
          "\n    inputs: arrays as a call takes them: a mapping by id, a tuple or list in their "
          "order, "
          "or the array of the only one.\n    outputs: as in a call.\n\nReturns:\n    What a call "
          "returns.\n\nRaises:\n    TypeError, InputError, LayerError, BusyError: as a call.")
      .def(
          "profile",
          [](const Net& net, const py::args& inputs, int repeat, const py::kwargs& named) {
            return profile_of(net, net.operands(inputs, named), repeat);
          },
          py::kw_only(), py::arg("repeat") = 10, kProfileDoc)
      .def(
          "_time_passes",
          [](const Net& net, const py::args& inputs, int count) {
            return net.time_passes(net.operands(inputs, {}), count);
          },
          py::kw_only(), py::arg("count"))
      .def("reset", &Net::reset,
           "Clears the state that recurrent layers carry from call to call.\n\nRaises:\n    "
           "BusyError: while another thread runs a network of this model.")
      .def("clone", &Net::clone,
           "Another network that computes the same, for another thread or another stream.\n\nThe "
           "two "
           "share the weights; memory and states are each one's own, and the clone's states are "
           "those "
           "of a new network.\n\nReturns:\n    A Net.\n\nRaises:\n    BusyError: while another "
           "thread "
           "runs a network of this model.")
      .def("__repr__",
           [](const Net& net) {
             return "<Net " + quoted(net.id()) + ", " +
                    std::to_string(net.network().net()->layers.size()) + " layers>";
           })
      .def("_repr_html_",
           [](const py::object& net) {
             return py::module_::import("qrt_core._shown").attr("net_html")(net);
           })
      .def("__reduce__", [](const Net& net) {
        return py::make_tuple(py::module_::import("qrt_core._pickled").attr("net_of"),
                              py::make_tuple(net.source()->bytes(), net.id()));
      });
  reinterpret_cast<PyTypeObject*>(type.ptr())->tp_call = &call_net;
}

void bind_model_class(py::module_& module) {
  py::class_<PyModel>(module, "Model",
                      "The networks of a model file.\n\n`model[id]` or `model[number]` is a Net, "
                      "`len(model)` their number, `list(model)` their ids. A model can be pickled, "
                      "as its bytes.")
      .def("__len__", [](PyModel& model) { return model.ids().size(); })
      .def("__iter__", [](PyModel& model) { return py::iter(py::cast(model.ids())); })
      .def("__contains__",
           [](PyModel& model, const py::object& id) { return py::cast(model.ids()).contains(id); })
      .def("__getitem__", &PyModel::at, py::arg("network"))
      .def_property_readonly("networks", &PyModel::ids, "The ids of its networks, a list of str.")
      .def_property_readonly(
          "path", [](const PyModel& model) { return model.source()->path(); },
          "The file that it comes from, a str, or None.")
      .def_property_readonly(
          "report", [](const PyModel& model) { return model.report(); },
          "What import_onnx() tells of the import, a dict; None for other models.")
      .def_property_readonly(
          "tuning", [](const PyModel& model) { return model.tuning(); },
          "What tune() tells of its choice, a Tuning; None for other models.")
      .def("save", &PyModel::save, py::arg("path"),
           "Writes the model to a file.\n\nArgs:\n    path: ends in .qrtmodel, which holds weights "
           "as halves, or in .json, which holds them as they are. An existing file is replaced at "
           "once or not at all.\n\nRaises:\n    ValueError: for another suffix.\n    OSError: for "
           "a file that can't be written.")
      .def("to_bytes", &PyModel::to_bytes, py::arg("form") = "qrtmodel",
           "The model as bytes.\n\nArgs:\n    form: 'qrtmodel', which holds weights as halves, or "
           "'json', which holds them as they are.\n\nReturns:\n    The bytes of a file in this "
           "form.\n\nRaises:\n    ValueError: for another form.\n    ModelError, OSError: for a "
           "file "
           "that has changed since it was loaded, or is gone.")
      .def(
          "check",
          [](const PyModel& model, const py::object& inputs) {
            return model.source()->check(check_options(inputs));
          },
          py::arg("inputs") = py::none(),
          "Judges whether the model means what it says.\n\nArgs:\n    inputs: shapes by network "
          "and input id, {'net': {'x': (3, 224, 224)}}; None for those that the model tells."
          "\n\nReturns:\n    A list of Finding, empty for a model that is right.\n\nRaises:\n    "
          "TypeError: for inputs that aren't shapes by network and input id.")
      .def("_info", [](const PyModel& model) { return info_of(*model.source()->tree()); })
      .def("__repr__", [](PyModel& model) { return "<Model of " + listed(model.ids()) + ">"; })
      .def("_repr_html_",
           [](const py::object& model) {
             return py::module_::import("qrt_core._shown").attr("model_html")(model);
           })
      .def("__reduce__", [](const PyModel& model) {
        return py::make_tuple(
            py::module_::import("qrt_core._pickled").attr("model_of"),
            py::make_tuple(model.source()->bytes(), model.report(), model.tuning()));
      });
}

}  // namespace

const std::shared_ptr<Loaded>& PyModel::loaded() {
  if (loaded_ == nullptr) loaded_ = std::make_shared<Loaded>(source_->open());
  return loaded_;
}

Net PyModel::network(const std::string& id) {
  Net net(source_, loaded(), id);
  require_processor(net.network());
  return net;
}

Net PyModel::at(const py::handle& key) {
  const std::vector<std::string> all = ids();
  if (py::isinstance<py::int_>(key)) {
    const auto count = static_cast<py::ssize_t>(all.size());
    auto index = key.cast<py::ssize_t>();
    if (index < 0) index += count;
    if (index < 0 || index >= count) {
      throw py::index_error("the model has " + std::to_string(count) + " networks");
    }
    return network(all[static_cast<size_t>(index)]);
  }
  if (!py::isinstance<py::str>(key)) {
    raise_type_error("a network is named by its id or its number, and not by " +
                     py::repr(key).cast<std::string>());
  }
  const auto id = key.cast<std::string>();
  if (std::find(all.begin(), all.end(), id) == all.end()) {
    raise("NotFoundError", "there is no network " + quoted(id) + "; there is " + listed(all));
  }
  return network(id);
}

Net PyModel::chosen(const py::object& id) {
  if (!id.is_none()) return at(id);
  const std::vector<std::string> all = ids();
  if (all.size() == 1) return network(all[0]);
  throw py::value_error("network: the model has " + std::to_string(all.size()) +
                        ", expected one of " + listed(all));
}

void PyModel::save(const py::handle& path) const {
  const auto name = py::module_::import("os").attr("fspath")(path);
  const py::bytes bytes = to_bytes(form_of(name.cast<std::string>()));
  py::module_::import("qrt_core._files").attr("replace_file")(name, bytes);
}

py::bytes PyModel::to_bytes(const std::string& form) const {
  const py::bytes bytes = source_->bytes();
  const bool is_json =
      PyBytes_GET_SIZE(bytes.ptr()) != 0 && PyBytes_AS_STRING(bytes.ptr())[0] == '{';
  if (is_json == (form == "json") && (form == "json" || form == "qrtmodel")) return bytes;
  return bytes_of(*source_->tree(), form);
}

std::map<std::string, TensorShape> input_shapes(const Net& net, const py::object& given) {
  std::map<std::string, TensorShape> shapes;
  const char* const expected = "shapes by input id";
  const py::dict sizes = given.is_none() ? py::dict() : dict_of(given, "inputs", expected);
  const std::vector<Port>& ports = net.network().inputs();
  for (size_t i = 0; i < ports.size(); ++i) {
    const Port& port = ports[i];
    const py::str id(port.id);
    if (sizes.contains(id)) {
      shapes[port.id] = shape_for(sizes_of_input(sizes[id], port.id), port, net.described(i));
    } else if (port.shape) {
      shapes[port.id] = *port.shape;
    } else {
      raise("InputError", "network " + quoted(net.id()) + " doesn't say how large its input " +
                              quoted(port.id) + " is: inputs={" + quoted(port.id) +
                              ": (...)} does");
    }
  }
  for (const auto& [key, value] : sizes) {
    const std::string id = text_of(key, "inputs", expected);
    if (shapes.count(id) == 0) {
      std::vector<std::string> names;
      for (const Port& port : ports) names.push_back(port.id);
      raise("InputError", "network " + quoted(net.id()) + " has no input " + quoted(id) +
                              "; it has " + listed(names));
    }
  }
  return shapes;
}

void bind_model(py::module_& module) {
  bind_net(module);
  bind_model_class(module);
  module.def(
      "load",
      [](const py::object& source) {
        PyModel model(Source::of(source));
        model.loaded();
        return model;
      },
      py::arg("source"),
      "Loads a model.\n\nArgs:\n    source: a path (str or os.PathLike) to a .qrtmodel or .json "
      "file, or the bytes of one.\n\nReturns:\n    A Model, whose networks are ready to run."
      "\n\nRaises:\n    OSError: for a file that can't be read.\n    ModelError: for bytes that "
      "are no model.\n    LayerError: for a layer that its kernel refuses.");
  module.def("_model_of",
             [](const py::bytes& bytes, const py::object& report, const py::object& tuning) {
               return PyModel(Source(bytes), report, tuning);
             });
  module.def("_source_of", [](const py::object& source) { return PyModel(Source::of(source)); });
}

}  // namespace qrt_python
