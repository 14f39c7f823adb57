#include "tools/qrt/profile.h"

#include <algorithm>

namespace qrt_tool {

using marlo::runtime::IKernel;
using marlo::runtime::Net;

namespace {

std::string role_text(const KernelPlace& place) {
  if (place.role == KernelRole::own) return "";
  return (place.role == KernelRole::input_converter ? "input " : "output ") +
         std::to_string(place.position);
}

uint64_t bytes_of(const IKernel::Tensors& tensors) {
  uint64_t bytes = 0;
  for (const auto& tensor : tensors) {
    if (tensor != nullptr) bytes += ByteSize(tensor->shape);
  }
  return bytes;
}

}  // namespace

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
    const auto first = outputs.begin() + static_cast<std::ptrdiff_t>(before);
    bytes_ = bytes_of(inputs) + bytes_of({first, outputs.end()});
    return result;
  }

  Times take_spent() { return std::exchange(spent_, Times{}); }
  uint64_t bytes() const { return bytes_; }

 private:
  Times spent_;
  uint64_t bytes_ = 0;  // of the last call's tensors
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
    row.bytes = entry.timer->bytes();
    profile.rows.push_back(std::move(row));
  }
  return profile;
}

}  // namespace qrt_tool
