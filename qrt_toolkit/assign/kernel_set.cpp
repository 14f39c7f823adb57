#include "qrt_toolkit/assign/kernel_set.h"

#include <array>

namespace marlo::toolkit {
namespace {

using runtime::InstructionSet;

constexpr std::array<const char*, kKernelSets> kWords = {"portable", "sse",  "avx",
                                                         "fma",      "avx2", "avx512"};

}  // namespace

const char* word_of(KernelSet set) { return kWords.at(static_cast<size_t>(set)); }

std::optional<KernelSet> kernel_set_of(std::string_view word) {
  for (size_t i = 0; i < kWords.size(); ++i) {
    if (word == kWords[i]) return static_cast<KernelSet>(i);
  }
  return std::nullopt;
}

KernelSet processor_kernels() {
  if (__builtin_cpu_supports("avx") == 0) return KernelSet::sse;
  if (__builtin_cpu_supports("fma") == 0) return KernelSet::avx;
  if (__builtin_cpu_supports("avx2") == 0) return KernelSet::fma;
  const bool has_avx512 =
      __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512vl") != 0 &&
      __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512dq") != 0;
  return has_avx512 ? KernelSet::avx512 : KernelSet::avx2;
}

KernelSet set_of_kernel(std::string_view name, InstructionSet needs) {
  switch (needs) {
    case InstructionSet::avx:
      return KernelSet::avx;
    case InstructionSet::fma:
      return KernelSet::fma;
    case InstructionSet::avx2:
      return KernelSet::avx2;
    case InstructionSet::avx512:
      return KernelSet::avx512;
    default:
      return name.find("Fallback") != std::string_view::npos ? KernelSet::portable : KernelSet::sse;
  }
}

}  // namespace marlo::toolkit
