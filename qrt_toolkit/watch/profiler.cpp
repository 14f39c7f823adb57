#include "qrt_toolkit/watch/profiler.h"

#include <algorithm>

namespace marlo::toolkit {

using runtime::IKernel;
using runtime::Net;
using runtime::TensorShape;

namespace {

std::string role_text(const KernelPlace& place) {
  if (place.role == KernelRole::own) return "";
  return (place.role == KernelRole::input_converter ? "input " : "output ") +
         std::to_string(place.position);
}

void take_shapes(const IKernel::Tensors& tensors, size_t first, std::vector<TensorShape>& shapes) {
  shapes.resize(tensors.size() - first);
  for (size_t i = first; i < tensors.size(); ++i) {
    // In the shapes' own memory: from the second pass on nothing is allocated.
    if (tensors[i] != nullptr) shapes[i - first] = tensors[i]->shape;
  }
}

}  // namespace

uint64_t bytes_of(const std::vector<TensorShape>& shapes) {
  uint64_t bytes = 0;
  for (const TensorShape& shape : shapes) bytes += ByteSize(shape);
  return bytes;
}

/// A kernel that notes how long another one takes.
class Profiler::TimedKernel final : public KernelWrapper {
 public:
  using KernelWrapper::KernelWrapper;

  int PrepareForward(const ContextPointer& context, Tensors& inputs, bool& transient,
                     Tensors& outputs) override {
    const Stopwatch watch;
    const int result = KernelWrapper::PrepareForward(context, inputs, transient, outputs);
    spent_ += watch.times();
    return result;
  }
  int Forward(const Tensors& inputs, Tensors& outputs, ContextPointer context) override {
    const size_t before = outputs.size();
    const Stopwatch watch;
    const int result = KernelWrapper::Forward(inputs, outputs, std::move(context));
    spent_ += watch.times();
    take_shapes(inputs, 0, inputs_);
    take_shapes(outputs, std::min(before, outputs.size()), outputs_);
    return result;
  }

  Times take_spent() { return std::exchange(spent_, Times{}); }
  const std::vector<TensorShape>& inputs() const { return inputs_; }
  const std::vector<TensorShape>& outputs() const { return outputs_; }

 private:
  Times spent_;
  std::vector<TensorShape> inputs_;  // of the last call, as those below
  std::vector<TensorShape> outputs_;
};

/// One wrapped kernel, and where it stands in the network.
struct Profiler::Entry {
  KernelPlace place;
  std::shared_ptr<TimedKernel> timer;
  std::vector<Times> samples;
};

Times median(const std::vector<Times>& samples) {
  std::vector<double> wall;
  std::vector<double> cpu;
  for (const Times& sample : samples) {
    wall.push_back(sample.wall_ms);
    cpu.push_back(sample.cpu_ms);
  }
  return {median(std::move(wall)), median(std::move(cpu))};
}

Profiler::Profiler(Net& net)
    : kernels_(net, [this](const KernelPlace& place, const std::shared_ptr<IKernel>& kernel) {
        entries_.push_back({place, std::make_shared<TimedKernel>(kernel), {}});
        return entries_.back().timer;
      }) {}

Profiler::~Profiler() = default;

void Profiler::end_pass(const Times& pass) {
  double in_kernels = 0;
  for (Entry& entry : entries_) {
    entry.samples.push_back(entry.timer->take_spent());
    in_kernels += entry.samples.back().cpu_ms;
  }
  passes_.push_back(pass);
  between_.push_back(pass.cpu_ms - in_kernels);
  others_.push_back(pass.wall_ms - pass.cpu_ms);
}

void Profiler::clear() {
  for (Entry& entry : entries_) {
    entry.timer->take_spent();
    entry.samples.clear();
  }
  passes_.clear();
  between_.clear();
  others_.clear();
}

Profile Profiler::profile() const {
  Profile profile;
  profile.pass = median(passes_);
  profile.between_ms = std::max(0.0, median(between_));
  profile.others_ms = std::max(0.0, median(others_));
  for (const Entry& entry : entries_) {
    ProfileRow row;
    row.layer = entry.place.layer;
    row.role = role_text(entry.place);
    row.kernel = entry.timer->kernel()->GetKernelName();
    row.times = median(entry.samples);
    row.inputs = entry.timer->inputs();
    row.outputs = entry.timer->outputs();
    row.bytes = bytes_of(row.inputs) + bytes_of(row.outputs);
    profile.rows.push_back(std::move(row));
  }
  return profile;
}

}  // namespace marlo::toolkit
