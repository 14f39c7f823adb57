#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/utility/export.h"

namespace marlo::utility {

/// The monotonic high-resolution counter, in ticks.
QRT_API double getTickCount();

/// Ticks per second of `getTickCount`.
QRT_API double getTickFrequency();

/// UTC wall-clock time in milliseconds since 1 January 1970, to the millisecond; not monotonic.
QRT_API double get_time_in_ms();

/// A stopwatch that keeps every sample since the last `clear` and their statistics.
///
/// All times are in seconds unless said otherwise. One object belongs to one thread.
///
/// @code
/// TimeMetrics timer;
/// timer.tic();
/// work();
/// timer.toc();
/// std::printf("%f s\n", timer.avg());
/// @endcode
class QRT_API TimeMetrics {
 public:
  TimeMetrics();

  /// Starts a sample. @return the raw counter value, in ticks
  double tic();

  /// Adds the time since the last `tic` as one sample.
  /// @return the raw counter value just read, in ticks, not the elapsed time
  double toc();

  /// Mean of the samples; 0 without samples.
  double avg() const;
  /// Population variance of the samples; 0 without samples.
  double var() const;
  /// Square root of `var`.
  double std() const;
  /// Sum of the samples.
  double sum() const;
  /// Number of samples.
  uint64_t cnt() const;
  /// Smallest sample; 3.4028234663852886e38 without samples.
  double tmin() const;
  /// Largest sample; 1.1754943508222875e-38 without samples.
  double tmax() const;
  /// Ticks per second of the counter, read afresh.
  double feq() const;
  /// Forgets all samples and keeps the memory that held them.
  void clear();

 private:
  double minimum_;
  double maximum_;
  double sum_;
  uint64_t count_;
  std::vector<double> samples_;
  double last_tick_;
};

}  // namespace marlo::utility
