#include "bench/support/probe.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "qrt_toolkit/explain/probe.h"
#include "qrt_toolkit/explain/probe_cores.h"

namespace marlo::bench {
namespace {

constexpr size_t kKibi = 1024;
constexpr size_t kL1Bytes = 8 * kKibi;
constexpr size_t kL2Bytes = 256 * kKibi;
constexpr size_t kMemoryBytes = 64 * kKibi * kKibi;

using toolkit::KernelSet;

KernelSet set_of(Width width) { return width == Width::avx ? KernelSet::avx : KernelSet::sse; }

Bandwidth bandwidth(const toolkit::ProbeMemory& arena, size_t bytes, Width width) {
  if (width == Width::avx && !has_avx()) return {};
  const float* from = arena.at(0);
  const size_t count = bytes / sizeof(float);
  return {read_limit(width, from, count),
          copy_limit(width, from, arena.at(bytes + toolkit::kApart), count)};
}

void print_bandwidth(const char* level, const Bandwidth (&widths)[2]) {
  std::fprintf(stderr, "  %-17s %7.1f  %7.1f", level, widths[0].read, widths[0].copy);
  if (has_avx()) std::fprintf(stderr, "    %7.1f  %7.1f", widths[1].read, widths[1].copy);
  std::fputs("\n", stderr);
}

}  // namespace

double copy_limit(Width width, const float* from, float* to, size_t count) {
  return toolkit::copy_gigabytes(set_of(width), from, to, count);
}

double copy_limit(Width width, size_t floats) {
  std::vector<float> from(floats / 2);
  std::vector<float> to(floats / 2);
  return copy_limit(width, from.data(), to.data(), floats / 2);
}

double arithmetic_limit(Width width) { return toolkit::peak_gigaflops(set_of(width)); }

double fused_limit() { return has_fma() ? toolkit::peak_gigaflops(KernelSet::fma) : 0.0; }

double wide_limit() { return has_avx512() ? toolkit::peak_gigaflops(KernelSet::avx512) : 0.0; }

double read_limit(Width width, const float* from, size_t count) {
  return toolkit::read_gigabytes(set_of(width), from, count);
}

double clock_now() { return toolkit::clock_gigahertz(); }

Limits measure_limits() {
  Limits limits;
  limits.clock = clock_now();
  constexpr double kPerRound = 2 * toolkit::kChains;
  limits.maxima_and_sums_per_cycle =
      toolkit::giga_per_second(toolkit::max_and_sum_sse, kPerRound) / limits.clock;
  limits.sse = arithmetic_limit(Width::sse);
  if (has_avx()) limits.avx = arithmetic_limit(Width::avx);
  limits.fma = fused_limit();
  limits.avx512 = wide_limit();
  const toolkit::ProbeMemory arena(2 * kMemoryBytes + toolkit::kApart);
  for (const Width width : {Width::sse, Width::avx}) {
    const size_t i = width == Width::avx ? 1 : 0;
    limits.l1[i] = bandwidth(arena, kL1Bytes, width);
    limits.l2[i] = bandwidth(arena, kL2Bytes, width);
    limits.memory[i] = bandwidth(arena, kMemoryBytes, width);
  }
  return limits;
}

void print_limits(const Limits& limits) {
  std::fprintf(stderr, "%s at %.2f GHz\n", processor_name().c_str(), limits.clock);
  std::fprintf(stderr, "  products and sums: SSE %.1f GFLOP/s", limits.sse);
  if (has_avx()) std::fprintf(stderr, ", AVX %.1f", limits.avx);
  if (has_fma()) std::fprintf(stderr, ", AVX with FMA %.1f", limits.fma);
  if (has_avx512()) std::fprintf(stderr, ", AVX-512 %.1f", limits.avx512);
  std::fprintf(stderr, "\n  maxima and sums: %.2f per cycle together\n",
               limits.maxima_and_sums_per_cycle);
  std::fputs("  GB/s                    16 bytes wide", stderr);
  if (has_avx()) std::fputs("       32 bytes wide", stderr);
  std::fputs("\n                       read     copy", stderr);
  if (has_avx()) std::fputs("       read     copy", stderr);
  std::fputs("\n", stderr);
  print_bandwidth("L1, 8 KiB", limits.l1);
  print_bandwidth("L2, 256 KiB", limits.l2);
  print_bandwidth("memory, 64 MiB", limits.memory);
}

}  // namespace marlo::bench
