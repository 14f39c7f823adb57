#pragma once

#include "qrt_core/runtime/engine/kernel_facts.h"

namespace marlo::test {

/// Whether this processor, and the system on it, runs instructions of a set.
inline bool processor_has(runtime::InstructionSet set) {
  using runtime::InstructionSet;
  const bool avx = __builtin_cpu_supports("avx") != 0;
  const bool fma = avx && __builtin_cpu_supports("fma") != 0;
  switch (set) {
    case InstructionSet::avx:
      return avx;
    case InstructionSet::fma:
      return fma;
    case InstructionSet::avx2:
      return fma && __builtin_cpu_supports("avx2") != 0;
    case InstructionSet::avx512:
      return fma && __builtin_cpu_supports("avx512f") != 0 &&
             __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
             __builtin_cpu_supports("avx512dq") != 0;
    default:
      return true;
  }
}

}  // namespace marlo::test
