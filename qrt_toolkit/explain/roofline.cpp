#include "qrt_toolkit/explain/roofline.h"

#include <algorithm>

namespace marlo::toolkit {
namespace {

// A billion a second is a million a millisecond.
constexpr double kPerMillisecond = 1e6;

double milliseconds(double count, double giga_per_second) {
  return giga_per_second > 0 ? count / giga_per_second / kPerMillisecond : 0;
}

/// Milliseconds for bytes that are read and written at one level.
double moving(uint64_t read, uint64_t written, const Bandwidth& bandwidth) {
  const uint64_t copied = std::min(read, written);
  const uint64_t rest = std::max(read, written) - copied;
  const double rate = read > written ? bandwidth.read : bandwidth.copy;
  return milliseconds(static_cast<double>(2 * copied), bandwidth.copy) +
         milliseconds(static_cast<double>(rest), rate);
}

}  // namespace

Roofline roofline_of(const KernelWork& work, double ms, uint64_t pass_bytes, KernelSet set,
                     const MachineLimits& machine) {
  Roofline found;
  found.set = set;
  const auto s = static_cast<size_t>(set);
  const double operations = 2.0 * static_cast<double>(work.multiply_adds);
  const uint64_t tensors = work.read + work.written;
  const auto bytes = static_cast<double>(tensors + work.weights);
  if (bytes > 0) found.intensity = operations / bytes;
  found.arithmetic_ms = milliseconds(operations, machine.gigaflops.at(s));
  found.tensor_level = level_of(machine, tensors + work.weights);
  found.weight_level = std::max(found.tensor_level, level_of(machine, pass_bytes));
  if (!machine.levels.empty()) {
    const Bandwidth& near = machine.levels[found.tensor_level].bandwidth.at(s);
    const Bandwidth& far = machine.levels[found.weight_level].bandwidth.at(s);
    found.tensors_ms = moving(work.read, work.written, near);
    found.weights_ms = moving(work.weights, 0, far);
  }
  const double memory_ms = found.tensors_ms + found.weights_ms;
  found.limit_ms = std::max(found.arithmetic_ms, memory_ms);
  if (found.limit_ms > 0) {
    found.bound = found.arithmetic_ms >= memory_ms ? Bound::arithmetic : Bound::memory;
  }
  if (ms > 0) {
    found.gigaflops = operations / ms / kPerMillisecond;
    found.gigabytes = bytes / ms / kPerMillisecond;
    found.share = found.limit_ms / ms;
  }
  return found;
}

std::string limit_name(const Roofline& roofline, const MachineLimits& machine) {
  if (roofline.bound == Bound::none) return "";
  if (roofline.bound == Bound::arithmetic) return word_of(roofline.set);
  const bool is_weights = roofline.weights_ms > roofline.tensors_ms;
  return machine.levels.at(is_weights ? roofline.weight_level : roofline.tensor_level).name;
}

}  // namespace marlo::toolkit
