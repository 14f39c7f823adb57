#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/utility/model.h"
#include "qrt_toolkit/bench/sampling.h"
#include "qrt_toolkit/bench/statistics.h"
#include "qrt_toolkit/bench/stopwatch.h"

// How fast networks run: whole passes, and what comes before the first.

namespace marlo::toolkit {

/// A network to be measured.
struct BenchSubject {
  std::string name;  ///< what results and faults call it
  /// Opens its model; called once, on the first thread, and timed. Other threads run clones of it,
  /// which share its weights, and open their own only where a kernel can't be copied.
  std::function<utility::Model()> open;
  std::string network;  ///< id in the model; may be empty where there is only one
  /// The shape of each input, by the input's layer. The numbers are chosen by `bench`.
  std::map<uint32_t, runtime::TensorShape> inputs;
};

/// How networks are measured.
struct BenchOptions {
  unsigned threads = 1;      ///< each has a context of its own, and a clone of the network
  std::optional<int> cpu;    ///< that the first thread stays on; the next have the next numbers
  bool keep_state = false;   ///< recurrent layers begin a pass where the last one ended
  SamplingOptions sampling;  ///< when it is enough
  /// How many blocks the calling thread has taken from the allocator so far. A library can't know:
  /// where it is empty, allocations aren't counted.
  std::function<uint64_t()> allocations;
  /// If not empty, called before each sample, on the thread that takes it. What it throws ends the
  /// measurement, and goes on.
  std::function<void()> before_sample;
};

/// What was measured of one network.
struct BenchedNetwork {
  std::string name;            ///< of the subject
  std::string network;         ///< its id in the model
  double load_ms = 0.0;        ///< from nothing to a network that can run, on the first thread
  double first_pass_ms = 0.0;  ///< of it alone, with the check of the shapes
  bool is_steady = false;      ///< whether the passes settled before they were sampled
  size_t warm_passes = 0;      ///< passes of a thread before the samples, the first one included
  double warm_ms = 0.0;        ///< what these took until passes were steady
  std::vector<Times> passes;   ///< every sampled pass, of all threads
  Summary latency;             ///< of them on the wall, in ms
  Interval median;             ///< of the same
  /// Passes that all threads ended in a second, from one round to the next.
  double passes_a_second = 0.0;
  /// By how much the process grew for it and all its clones; 0 if it found room.
  uint64_t resident_bytes = 0;
  uint64_t static_pool_bytes = 0;   ///< of one context: inputs and what lasts, but for weights
  uint64_t dynamic_pool_bytes = 0;  ///< of one context: what passes need
  uint64_t pool_growth_bytes = 0;   ///< by how much both grew while passes were sampled
  std::optional<double> allocations_a_pass;  ///< calls to the allocator, where they are counted
};

/// Two networks side by side.
struct BenchRatio {
  size_t first = 0;   ///< its place among the subjects
  size_t second = 0;  ///< the same
  Interval time;  ///< of a pass of the second over one of the first; below 1 the second is faster
};

/// What a measurement gave.
struct BenchResult {
  unsigned threads = 1;                  ///< as many as were asked for
  std::vector<BenchedNetwork> networks;  ///< in the order of the subjects
  std::vector<BenchRatio> ratios;        ///< of each to the first
  uint64_t resident_bytes = 0;           ///< of the whole process in the end
  uint64_t peak_resident_bytes = 0;      ///< the most that it ever was
};

/// Measures networks, one beside the other: all run in turn, so that what disturbs the machine
/// meets all alike.
///
/// A pass is `Net::Forward`, from inputs that stand in memory to outputs. On one thread each pass is
/// a sample. On several, a sample is a slice of some milliseconds in which all of them run passes of
/// one network, and its length divided by their number.
///
/// @param subjects at least one; the others are compared with the first
/// @throws std::invalid_argument for no subject, no thread, an input without a shape, a network that
///   isn't there, or a processor that may not be used; what `open` and a pass throw
QRT_API BenchResult bench(const std::vector<BenchSubject>& subjects, const BenchOptions& options);

}  // namespace marlo::toolkit
