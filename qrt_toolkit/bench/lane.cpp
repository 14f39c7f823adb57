#include "qrt_toolkit/bench/lane.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/half.h"
#include "qrt_toolkit/assign/trial.h"

namespace marlo::toolkit {

using runtime::DataType;
using runtime::TensorShape;

namespace {

utility::Network& network_of(const utility::Model& model, const BenchSubject& subject) {
  const std::vector<std::string> ids = model.ids();
  if (subject.network.empty() && ids.size() == 1) return model.at(size_t{0});
  for (const std::string& id : ids) {
    if (id == subject.network) return model.at(id);
  }
  throw std::invalid_argument(subject.name + ": expected the id of one of " +
                              std::to_string(ids.size()) + " networks, found \"" + subject.network +
                              "\"");
}

/// Bytes of a tensor, where `ByteSize` would begin again at 0.
uint64_t checked_bytes(const TensorShape& shape) {
  constexpr uint64_t kTooMany = uint64_t{1} << 32;
  uint64_t bytes = runtime::ElementSize(shape.data_type);
  for (const uint32_t size : shape.dims) bytes = std::min(bytes * size, kTooMany);
  if (bytes < kTooMany) return bytes;
  throw std::invalid_argument("input: expected a shape below 4 GiB, found " +
                              runtime::ShapeText(shape));
}

/// A model of an application's own kernels may have one that can't be copied.
utility::Model cloned(const utility::Model& model, const BenchSubject& subject) {
  try {
    return model.clone();
  } catch (const utility::Error&) {
    return subject.open();
  }
}

}  // namespace

std::vector<char> made_up_numbers(const TensorShape& shape, const runtime::Net& net,
                                  uint32_t input) {
  std::vector<char> bytes(checked_bytes(shape));
  if (chooses_rows(net, input)) return bytes;
  std::mt19937 generator(1);
  const size_t size = runtime::ElementSize(shape.data_type);
  const size_t count = size == 0 ? 0 : bytes.size() / size;
  for (size_t i = 0; i < count; ++i) {
    const auto unit = static_cast<float>(generator() >> 8) / static_cast<float>(1 << 23) - 1.0f;
    char* const to = bytes.data() + i * size;
    if (shape.data_type == DataType::FLOAT32) {
      std::memcpy(to, &unit, sizeof unit);
    } else if (shape.data_type == DataType::FLOAT16) {
      const half_float::half half(unit);
      std::memcpy(to, &half, sizeof half);
    } else {
      *to = static_cast<char>(generator() >> 25);  // 0 to 127 in the lowest byte
    }
  }
  return bytes;
}

ProcessMemory process_memory() {
  ProcessMemory memory;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    std::istringstream words(line);
    std::string name;
    uint64_t kibibytes = 0;
    if (!(words >> name >> kibibytes)) continue;
    if (name == "VmRSS:") memory.resident = kibibytes * 1024;
    if (name == "VmHWM:") memory.peak = kibibytes * 1024;
  }
  return memory;
}

void stay_on_cpu(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (cpu >= 0 && cpu < CPU_SETSIZE) CPU_SET(static_cast<size_t>(cpu), &set);
  if (pthread_setaffinity_np(pthread_self(), sizeof set, &set) != 0) {
    throw std::invalid_argument("processor " + std::to_string(cpu) + " can't be used");
  }
}

Lane::Lane(const BenchSubject& subject, const BenchOptions& options, const Lane* other)
    : options_(options) {
  const Stopwatch load;
  model_ = std::make_unique<utility::Model>(other != nullptr ? cloned(*other->model_, subject)
                                                             : subject.open());
  load_ms_ = load.times().wall_ms;
  network_ = &network_of(*model_, subject);
  make_inputs(subject);
  for (const utility::Port& port : network_->outputs()) outputs_.push_back(port.layer);

  std::vector<utility::Input> inputs;
  inputs.reserve(inputs_.size());
  for (const InputNumbers& input : inputs_) inputs.emplace_back(input.shape, input.bytes.data());
  const Stopwatch first;
  network_->run(inputs);
  first_pass_ms_ = first.times().wall_ms;
}

void Lane::make_inputs(const BenchSubject& subject) {
  for (const utility::Port& port : network_->inputs()) {
    const auto given = subject.inputs.find(port.layer);
    if (given == subject.inputs.end() && !port.shape) {
      throw std::invalid_argument(subject.name + ": the model doesn't say the shape of input \"" +
                                  port.id + "\", and none was given");
    }
    const TensorShape& shape = given != subject.inputs.end() ? given->second : *port.shape;
    inputs_.push_back({port.layer, shape, made_up_numbers(shape, *network_->net(), port.layer)});
  }
}

Times Lane::pass() {
  if (!options_.keep_state) network_->reset();
  const auto& context = network_->context();
  // New tensors for every pass: a kernel that works in place writes over its input.
  std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>> tensors;
  for (const InputNumbers& input : inputs_) {
    tensors[input.layer] = context->cpu->CreateTensor(input.shape, input.bytes.data());
  }
  const uint64_t before = options_.allocations ? options_.allocations() : 0;
  const Stopwatch watch;
  const auto results = network_->net()->Forward(tensors, outputs_, context, nullptr, nullptr);
  const Times times = watch.times();
  if (options_.allocations) allocations_ += options_.allocations() - before;
  return times;
}

uint64_t Lane::static_pool_bytes() const {
  return network_->context()->cpu->static_pool->TotalBytes();
}

uint64_t Lane::dynamic_pool_bytes() const {
  return network_->context()->cpu->dynamic_pool->TotalBytes();
}

}  // namespace marlo::toolkit
