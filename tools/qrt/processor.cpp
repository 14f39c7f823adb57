#include "tools/qrt/processor.h"

#include "qrt_core/runtime/engine/kernel_facts.h"

namespace qrt_tool {

using marlo::runtime::InstructionSet;

std::string missing_instructions(const std::string& kernel) {
  const InstructionSet needs = marlo::runtime::needs_of(kernel);
  if (needs >= InstructionSet::avx && __builtin_cpu_supports("avx") == 0) return "AVX";
  if (needs >= InstructionSet::fma && __builtin_cpu_supports("fma") == 0) return "FMA";
  if (needs >= InstructionSet::avx2 && __builtin_cpu_supports("avx2") == 0) return "AVX2";
  const bool has_avx512 =
      __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512vl") != 0 &&
      __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512dq") != 0;
  return needs >= InstructionSet::avx512 && !has_avx512 ? "AVX-512" : "";
}

}  // namespace qrt_tool
