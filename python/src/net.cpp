#include "python/src/net.h"

#include <algorithm>
#include <chrono>
#include <unordered_map>

#include "python/src/arguments.h"
#include "python/src/errors.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/utility/quiet_log_internal.h"

namespace qrt_python {

using marlo::runtime::IKernel;
using marlo::runtime::IKernelFacts;
using marlo::runtime::InputUse;
using marlo::runtime::Tensor;
using marlo::runtime::TensorShape;
using marlo::utility::Error;
using marlo::utility::Input;
using marlo::utility::Port;
using marlo::utility::Results;

namespace {

// A kernel that says nothing about itself may do anything.
InputUse use_of(IKernel* kernel) {
  const auto* const facts = dynamic_cast<const IKernelFacts*>(kernel);
  return facts == nullptr ? InputUse::overwrites : facts->input_use();
}

/// Follows the memory of a layer's result through the kernels that hand it on.
class MemoryWalk {
 public:
  explicit MemoryWalk(const marlo::runtime::Net& net) : net_(net), seen_(net.layers.size()) {}

  // Whether a reader writes to what `layer` has handed on.
  bool is_overwritten(uint32_t index) {
    if (seen_[index]) return false;
    seen_[index] = true;
    const marlo::runtime::Layer& layer = *net_.layers[index];
    for (const auto& [position, converter] : layer.output_converters) {
      const InputUse use = use_of(converter.get());
      if (use != InputUse::passes_on) return use == InputUse::overwrites;
    }
    for (const auto& [reader, position] : layer.consumers) {
      if (reader < net_.layers.size() && is_overwritten_by(reader, position)) return true;
    }
    return false;
  }

 private:
  bool is_overwritten_by(uint32_t reader, uint32_t position) {
    const marlo::runtime::Layer& layer = *net_.layers[reader];
    const auto converter = layer.input_converters.find(position);
    if (converter != layer.input_converters.end()) {
      const InputUse use = use_of(converter->second.get());
      if (use != InputUse::passes_on) return use == InputUse::overwrites;
    }
    const InputUse use = use_of(layer.kernel.get());
    if (use == InputUse::overwrites) return true;
    return use == InputUse::passes_on && is_overwritten(reader);
  }

  const marlo::runtime::Net& net_;
  std::vector<bool> seen_;
};

template <typename Items>
std::string listed(const Items& items) {
  std::string text;
  for (const auto& item : items) text += (text.empty() ? "" : ", ") + quoted(item.id);
  return text;
}

std::string counted(size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

bool stands_in(const Tensor& tensor, const void* data, size_t bytes) {
  const auto* const begin = static_cast<const char*>(data);
  const auto* const at = static_cast<const char*>(tensor.handle.cpu);
  return at >= begin && at < begin + bytes;
}

}  // namespace

Loaded::Loaded(marlo::utility::Model opened) : model(std::move(opened)) {
  if (model->size() != 0) pools = std::make_shared<Pools>(model->at(size_t{0}).context());
  for (const std::string& id : model->ids()) outputs[id] = model->at(id).outputs();
}

// Arrays may die on other threads meanwhile.
Loaded::~Loaded() {
  if (pools == nullptr) return;
  const Pools::Use use(*pools);
  model.reset();
}

Net::Net(std::shared_ptr<const Source> source, std::shared_ptr<Loaded> loaded,
         const std::string& id)
    : source_(std::move(source)),
      loaded_(std::move(loaded)),
      network_(loaded_->model->at(id)),
      outputs_(loaded_->outputs.at(id)) {
  const auto summary = marlo::utility::read_summary(network_.header().summary);
  for (const Port& port : network_.inputs()) {
    const auto* const described = summary ? summary->input(port.id) : nullptr;
    described_.push_back(described != nullptr ? std::optional(*described) : std::nullopt);
    is_overwritten_.push_back(MemoryWalk(*network_.net()).is_overwritten(port.layer));
  }
  for (const Port& port : outputs_) output_layers_.push_back(port.layer);
}

Net::Request Net::request(const py::handle& outputs) const {
  Request request;
  if (outputs.is_none()) {
    request.is_one = outputs_.size() == 1;
  } else if (py::isinstance<py::str>(outputs)) {
    request.is_one = true;
    request.options.outputs.push_back(outputs.cast<std::string>());
  } else {
    if (!py::isinstance<py::iterable>(outputs)) {
      refuse("outputs", "the id of a layer, or several", outputs);
    }
    for (const py::handle& layer : outputs) {
      if (!py::isinstance<py::str>(layer)) {
        raise_type_error("outputs: expected ids of layers, found " +
                         py::repr(layer).cast<std::string>());
      }
      auto& ids = request.options.outputs;
      ids.push_back(layer.cast<std::string>());
      if (std::find(ids.begin(), ids.end() - 1, ids.back()) != ids.end() - 1) {
        throw py::value_error("outputs: " + quoted(ids.back()) + " is asked for twice");
      }
    }
    if (request.options.outputs.empty()) throw py::value_error("outputs: none are asked for");
  }
  return request;
}

std::vector<Operand> Net::operands(const py::args& given, const py::kwargs& named) const {
  const std::vector<Port>& ports = network_.inputs();
  std::vector<Operand> operands;
  operands.reserve(ports.size());
  if (named.empty() && given.size() == ports.size()) {
    for (size_t i = 0; i < ports.size(); ++i) {
      operands.push_back(operand_of(given[i], ports[i], described(i)));
    }
    return operands;
  }
  const std::string inputs = "network " + quoted(id()) + " takes " +
                             counted(ports.size(), "input") +
                             (ports.empty() ? "" : " (" + listed(ports) + ")");
  if (given.size() > ports.size()) {
    raise("InputError", inputs + " and was given " + std::to_string(given.size() + named.size()));
  }
  std::vector<py::handle> values(given.begin(), given.end());
  values.resize(ports.size());
  for (const auto& [key, value] : named) {
    const std::string name = text_of(key, "inputs", "ids of inputs");
    const auto port = std::find_if(ports.begin(), ports.end(),
                                   [&](const Port& other) { return other.id == name; });
    if (port == ports.end()) raise("InputError", inputs + ", and none is named " + quoted(name));
    py::handle& place = values[static_cast<size_t>(port - ports.begin())];
    if (place) raise("InputError", "input " + quoted(name) + " was given twice");
    place = value;
  }
  for (size_t i = 0; i < ports.size(); ++i) {
    if (!values[i]) raise("InputError", inputs + ", and " + quoted(ports[i].id) + " is missing");
    operands.push_back(operand_of(values[i], ports[i], described(i)));
  }
  return operands;
}

void Net::require(const Pools::Use& use) const {
  if (use.holds()) return;
  raise("BusyError",
        "network " + quoted(id()) +
            ": another thread is running this model; clone() gives each thread a "
            "network of its own",
        py::dict(py::arg("network") = id()));
}

std::vector<Input> Net::inputs_of(const std::vector<Operand>& operands) const {
  std::vector<Input> inputs;
  inputs.reserve(operands.size());
  for (size_t i = 0; i < operands.size(); ++i) {
    const Operand& operand = operands[i];
    if (is_overwritten_[i]) {
      inputs.emplace_back(operand.shape, operand.array.data());
    } else {
      // Nothing writes to it.
      inputs.emplace_back(network_.context()->cpu->CreateTensorExternal(
          operand.shape, const_cast<void*>(operand.array.data())));
    }
  }
  return inputs;
}

py::object Net::object_of(const std::shared_ptr<Tensor>& tensor, const std::vector<Numbers>& inputs,
                          bool is_shared) const {
  is_shared = is_shared || std::any_of(inputs.begin(), inputs.end(), [&](const Numbers& input) {
                return stands_in(*tensor, input.data, input.bytes);
              });
  // A kernel that keeps its result, as a state, must not see it written to.
  is_shared = is_shared || tensor.use_count() > 1;
  return is_shared ? copy_of(*tensor) : array_of(loaded_->pools, tensor);
}

py::object Net::result_of(const Made& made, const std::vector<Numbers>& inputs, bool is_one) const {
  std::vector<std::pair<const std::string*, py::object>> arrays;
  arrays.reserve(made.size());
  for (size_t i = 0; i < made.size(); ++i) {
    const std::shared_ptr<Tensor>& tensor = made[i].second;
    bool is_shared = false;
    for (size_t j = 0; j < i; ++j) {
      is_shared = is_shared || made[j].second->handle.cpu == tensor->handle.cpu;
    }
    arrays.emplace_back(made[i].first, object_of(tensor, inputs, is_shared));
  }
  if (is_one && arrays.size() == 1) return std::move(arrays[0].second);
  py::dict by_id;
  for (auto& [id, array] : arrays) {
    const py::str key(*id);
    if (!by_id.contains(key)) {
      by_id[key] = std::move(array);
    } else if (py::isinstance<py::list>(by_id[key])) {
      by_id[key].cast<py::list>().append(std::move(array));
    } else {
      py::list several;
      several.append(by_id[key]);
      several.append(std::move(array));
      by_id[key] = std::move(several);
    }
  }
  if (is_one) return by_id[py::str(*arrays[0].first)];
  return by_id;
}

void Net::note_shape(const std::string& output, const TensorShape& shape) const {
  for (Port& port : outputs_) {
    if (port.id == output && port.shape != shape) port.shape = shape;
  }
}

void Net::remember(const std::vector<Operand>& operands) const {
  last_ = {};
  for (size_t i = 0; i < operands.size(); ++i) {
    const TensorShape& shape = operands[i].shape;
    const Port& port = network_.inputs()[i];
    std::vector<uint32_t> with_batch = shape.dims;
    with_batch.insert(with_batch.begin(), 1);
    last_.takes_batch.push_back(shape_for(std::move(with_batch), port, described(i)) == shape);
    last_.shapes.push_back(shape);
    last_.numbers.push_back({nullptr, marlo::runtime::ByteSize(shape)});
    last_.places.push_back(&last_.tensors[port.layer]);
  }
  last_.is_known = true;
}

bool Net::take_up(const std::vector<Operand>& operands) const {
  if (!last_.is_known || operands.size() != last_.shapes.size()) return false;
  for (size_t i = 0; i < operands.size(); ++i) {
    if (operands[i].shape != last_.shapes[i]) return false;
    last_.numbers[i].data = operands[i].array.data();
  }
  return true;
}

bool Net::take_up(const py::tuple& arrays) const {
  if (!last_.is_known || arrays.size() != last_.shapes.size()) return false;
  for (size_t i = 0; i < last_.shapes.size(); ++i) {
    const void* const data =
        numbers_of(PyTuple_GET_ITEM(arrays.ptr(), i), last_.shapes[i], last_.takes_batch[i]);
    if (data == nullptr) return false;
    last_.numbers[i].data = data;
  }
  return true;
}

py::object Net::pass_again() const {
  const marlo::utility::QuietLog quiet;
  const auto& context = network_.context();
  context->cpu->dynamic_mode = false;  // a pass that failed has left it on
  std::unordered_map<unsigned int, marlo::runtime::Net::Tensors> results;
  {
    // Copies are the pass's own, and go back while the pools may be used, also if it fails.
    struct Copies {
      const Net& net;
      ~Copies() {
        for (size_t i = 0; i < net.last_.places.size(); ++i) {
          if (net.is_overwritten_[i]) net.last_.places[i]->reset();
        }
      }
    } const copies{*this};
    for (size_t i = 0; i < last_.places.size(); ++i) {
      std::shared_ptr<Tensor>& tensor = *last_.places[i];
      auto* const data = const_cast<void*>(last_.numbers[i].data);
      if (is_overwritten_[i]) {
        tensor = context->cpu->CreateTensor(last_.shapes[i], data);
      } else if (tensor == nullptr || tensor.use_count() > 1) {
        tensor = context->cpu->CreateTensorExternal(last_.shapes[i], data);
      } else {
        tensor->handle.cpu = data;
      }
    }
    const py::gil_scoped_release released;
    results = network_.net()->Forward(last_.tensors, output_layers_, context, nullptr, nullptr);
  }
  if (outputs_.size() == 1 && results.begin()->second.size() == 1) {
    const std::shared_ptr<Tensor> tensor = std::move(results.begin()->second[0]);
    note_shape(outputs_[0].id, tensor->shape);
    return object_of(tensor, last_.numbers, false);
  }
  Made made;
  made.reserve(outputs_.size());
  for (const Port& port : outputs_) {
    auto& tensors = results[port.layer];
    if (!tensors.empty()) note_shape(port.id, tensors[0]->shape);
    for (auto& tensor : tensors) made.emplace_back(&port.id, std::move(tensor));
  }
  results.clear();
  return result_of(made, last_.numbers, outputs_.size() == 1);
}

py::object Net::run_again(const py::tuple& arrays) const {
  const Pools::Use use(*loaded_->pools);
  if (!use.holds() || !take_up(arrays)) return {};
  try {
    return pass_again();
  } catch (Error& failure) {
    failure.in_network(id());
    raise("InputError", failure);
  }
}

py::object Net::run(const std::vector<Operand>& operands, const Request& request) const {
  const Pools::Use use(*loaded_->pools);
  require(use);
  try {
    const bool is_usual = request.options.outputs.empty();
    if (is_usual && take_up(operands)) return pass_again();
    const std::vector<Input> inputs = inputs_of(operands);
    Results results;
    {
      const py::gil_scoped_release released;
      results = network_.run(inputs, request.options);
    }
    Made made;
    for (const auto& result : results) made.emplace_back(&result.id(), result.tensor());
    // Backwards, so that the first stays of several results of a layer.
    for (size_t i = made.size(); i-- > 0;) note_shape(*made[i].first, made[i].second->shape);
    if (is_usual) remember(operands);
    std::vector<Numbers> numbers;
    for (const Operand& operand : operands) {
      numbers.push_back({operand.array.data(), static_cast<size_t>(operand.array.nbytes())});
    }
    return result_of(made, numbers, request.is_one);
  } catch (Error& failure) {
    failure.in_network(id());
    raise("InputError", failure);
  }
}

qrt_tool::Profile Net::measure(const std::vector<Operand>& operands, int repeat) const {
  const Pools::Use use(*loaded_->pools);
  require(use);
  try {
    qrt_tool::Profiler profiler(*network_.net());
    // The first pass, which takes memory and checks shapes, isn't counted.
    for (int pass = -1; pass < repeat; ++pass) {
      const std::vector<Input> inputs = inputs_of(operands);
      {
        const py::gil_scoped_release released;
        const qrt_tool::Stopwatch watch;
        network_.run(inputs);
        profiler.end_pass(watch.times());
        if (pass < 0) profiler.clear();
      }
      for (const Port& port : network_.outputs()) {
        if (port.shape) note_shape(port.id, *port.shape);
      }
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }
    return profiler.profile();
  } catch (const Error& failure) {
    raise("InputError", failure);
  }
}

double Net::time_passes(const std::vector<Operand>& operands, int count) const {
  run(operands, request(py::none()));  // shapes that fit
  const Pools::Use use(*loaded_->pools);
  require(use);
  const auto& context = network_.context();
  context->cpu->dynamic_mode = false;
  std::unordered_map<unsigned int, std::shared_ptr<Tensor>> inputs;
  for (size_t i = 0; i < operands.size(); ++i) {
    inputs[network_.inputs()[i].layer] =
        context->cpu->CreateTensor(operands[i].shape, operands[i].array.data());
  }
  const py::gil_scoped_release released;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < count; ++i) {
    network_.net()->Forward(inputs, output_layers_, context, nullptr, nullptr);
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void Net::reset() const {
  const Pools::Use use(*loaded_->pools);
  require(use);
  network_.reset();
}

Net Net::clone() const {
  const Pools::Use use(*loaded_->pools);
  require(use);
  auto copy = std::make_shared<Loaded>(loaded_->model->clone());
  copy->outputs = loaded_->outputs;
  return Net(source_, std::move(copy), id());
}

}  // namespace qrt_python
