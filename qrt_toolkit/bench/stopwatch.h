#pragma once

#include "qrt_core/utility/export.h"

namespace marlo::toolkit {

/// How long something took.
struct Times {
  double wall_ms = 0.0;  ///< as a clock on the wall sees it
  double cpu_ms = 0.0;   ///< of it, what the processor worked on this thread

  /// Adds both times.
  Times& operator+=(const Times& other) {
    wall_ms += other.wall_ms;
    cpu_ms += other.cpu_ms;
    return *this;
  }
};

/// Times from its making on. It belongs to one thread.
class QRT_API Stopwatch {
 public:
  /// Begins now.
  Stopwatch();
  /// What has passed since then.
  Times times() const;

 private:
  Times start_;
};

}  // namespace marlo::toolkit
