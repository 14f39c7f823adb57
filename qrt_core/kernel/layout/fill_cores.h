#pragma once

#include <cstddef>

namespace marlo::kernel::fill {

/// Floats of a pattern: one channel repeated, one block of 8 channels, or two equal blocks of 4.
constexpr size_t kPatternFloats = 8;

/// Writes a pattern of `kPatternFloats` over and over, `count` floats in all.
using Core = void (*)(float* output, size_t count, const float* pattern) noexcept;

void repeat_portable(float* output, size_t count, const float* pattern) noexcept;
void repeat_sse(float* output, size_t count, const float* pattern) noexcept;
void repeat_avx(float* output, size_t count, const float* pattern) noexcept;

/// The same, added onto what is there.
void add_portable(float* output, size_t count, const float* pattern) noexcept;
void add_avx(float* output, size_t count, const float* pattern) noexcept;

}  // namespace marlo::kernel::fill
