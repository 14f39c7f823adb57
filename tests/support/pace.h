#pragma once

#include <cstdlib>

#include "tests/support/sanitizer.h"

namespace marlo::test {

/// Whether everything takes many times as long here as it would on the processor itself: under a sanitizer, or on an
/// emulated processor. Tests that walk through thousands of cases then take those where something changes.
inline bool runs_slowly() {
#if defined(QRT_UNDER_SANITIZER)
  return true;
#else
  static const bool emulated = std::getenv("QRT_TEST_LAUNCHER") != nullptr;
  return emulated;
#endif
}

/// From which case to which next one a walk through hundreds of whole runs goes: every one, or where everything is slow
/// every 7th, which meets cases of all kinds.
inline unsigned stride_of_runs() { return runs_slowly() ? 7 : 1; }

}  // namespace marlo::test
