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

}  // namespace marlo::test
