#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/utility/export.h"

// Which kernels a network may be given.

namespace marlo::toolkit {

/// Kernels by the instructions that they need; each set holds those before it.
enum class KernelSet : uint8_t {
  portable,  ///< written without instructions of a kind: "Fallback" in their names
  sse,       ///< SSE2, which every x86-64 processor has
  avx,       ///< AVX
  fma,       ///< AVX and FMA
  avx2,      ///< AVX2 and FMA
  avx512,    ///< AVX-512 F, VL, BW and DQ
};

/// So many sets there are.
inline constexpr size_t kKernelSets = 6;

/// "portable", "sse", "avx", "fma", "avx2" or "avx512".
QRT_API const char* word_of(KernelSet set);

/// The set of a word; empty for another word.
QRT_API std::optional<KernelSet> kernel_set_of(std::string_view word);

/// The largest set that this processor can run.
QRT_API KernelSet processor_kernels();

/// The smallest set that holds a kernel.
/// @param needs what the kernel says of itself
QRT_API KernelSet set_of_kernel(std::string_view name, runtime::InstructionSet needs);

}  // namespace marlo::toolkit
