#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"

// Times of kernels, measured around them: the engine isn't involved.

namespace qrt_tool {

/// The middle of the samples, or the mean of the two in the middle; 0 without samples.
double median(std::vector<double> samples);

/// The passes of a network, each kernel timed by a steady clock.
///
/// Takes the place of every kernel of the network, and hands each call on to it.
class Profiler {
 public:
  explicit Profiler(marlo::runtime::Net& net);
  Profiler(const Profiler&) = delete;
  Profiler& operator=(const Profiler&) = delete;
  /// Gives the network its kernels back.
  ~Profiler();

  /// Ends a pass: what the kernels took since the last call becomes one sample.
  void end_pass();

  /// Forgets the samples.
  void clear();

  /// One kernel: of which layer, and in which role.
  struct Row {
    uint32_t layer;
    std::string role;  ///< empty for the layer's own kernel, else "input 0" and the like
    std::string kernel;
    double median_ms;
  };

  /// Every kernel in the order in which they run within their layer.
  std::vector<Row> rows() const;

 private:
  class TimedKernel;
  struct Entry;

  void wrap(uint32_t layer, const std::string& role,
            std::shared_ptr<marlo::runtime::IKernel>& kernel);

  std::vector<Entry> entries_;
};

}  // namespace qrt_tool
