#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qrt_toolkit/bench/statistics.h"
#include "qrt_toolkit/bench/stopwatch.h"
#include "qrt_toolkit/watch/kernel_wrapper.h"

// Times of kernels, measured around them: the engine isn't involved.

namespace marlo::toolkit {

/// The medians of both times, each for itself.
Times median(const std::vector<Times>& samples);

/// Bytes of all tensors of these shapes.
uint64_t bytes_of(const std::vector<runtime::TensorShape>& shapes);

/// One kernel: of which layer, in which role, and what a pass spends in it.
struct ProfileRow {
  uint32_t layer = 0;
  std::string role;  ///< empty for the layer's own kernel, else "input 0" and the like
  std::string kernel;
  Times times;         ///< medians
  uint64_t bytes = 0;  ///< of the tensors that it reads and makes
  std::optional<uint64_t> multiply_adds;
  std::vector<runtime::TensorShape> inputs{};   ///< that it reads
  std::vector<runtime::TensorShape> outputs{};  ///< that it makes
};

/// Where the time of a pass goes; medians of the passes.
struct Profile {
  Times pass;               ///< whole passes
  double between_ms = 0.0;  ///< of the processor's time of a pass, what was in no kernel
  double others_ms = 0.0;   ///< in which the processor worked for other programs, or waited
  std::vector<ProfileRow> rows;
};

/// The passes of a network, each kernel timed.
///
/// Takes the place of every kernel of the network, and hands each call on to it.
class Profiler {
 public:
  explicit Profiler(runtime::Net& net);
  Profiler(const Profiler&) = delete;
  Profiler& operator=(const Profiler&) = delete;
  /// Gives the network its kernels back.
  ~Profiler();

  /// Ends a pass, which took so long: what the kernels took since the last call becomes one sample.
  void end_pass(const Times& pass);

  /// Forgets the samples.
  void clear();

  /// Every kernel in the order in which they run within their layer. Multiply-adds are left open.
  Profile profile() const;

 private:
  class TimedKernel;
  struct Entry;

  std::vector<Entry> entries_;
  KernelsTaken kernels_;
  std::vector<Times> passes_;
  std::vector<double> between_;
  std::vector<double> others_;
};

}  // namespace marlo::toolkit
