#pragma once

#include <cstddef>
#include <cstdint>

namespace marlo::toolkit {

// The loops that find the machine's limits. Each keeps enough work in flight that only the
// processor's ports and caches hold it back.

/// Copies `count` floats, a multiple of `kCopyStep`. `from` and `to` may be the same array.
using CopyCore = void (*)(const float* from, float* to, size_t count) noexcept;

/// Reads `count` floats, a multiple of `kCopyStep`.
using ReadCore = void (*)(const float* from, size_t count) noexcept;

constexpr size_t kCopyStep = 128;

void copy_sse(const float* from, float* to, size_t count) noexcept;
void copy_avx(const float* from, float* to, size_t count) noexcept;
void copy_avx512(const float* from, float* to, size_t count) noexcept;
void read_sse(const float* from, size_t count) noexcept;
void read_avx(const float* from, size_t count) noexcept;
void read_avx512(const float* from, size_t count) noexcept;

/// Runs `rounds` rounds of independent arithmetic: `kChains` products and as many sums per round
/// and lane, or with FMA `kChains` pairs of them in one instruction.
/// @param one, zero 1 and 0, where the compiler can't see them
using PeakCore = void (*)(size_t rounds, float one, float zero) noexcept;

constexpr size_t kChains = 7;

void peak_sse(size_t rounds, float one, float zero) noexcept;
void peak_avx(size_t rounds, float one, float zero) noexcept;
void peak_fma(size_t rounds, float one, float zero) noexcept;
void peak_avx512(size_t rounds, float one, float zero) noexcept;

/// As above with `kChains` maxima and as many sums. Processors differ in whether these share ports.
void max_and_sum_sse(size_t rounds, float one, float zero) noexcept;

/// `rounds` additions of integers, each waiting for the one before: a clock cycle each.
void count_cycles(uint64_t rounds) noexcept;

}  // namespace marlo::toolkit
