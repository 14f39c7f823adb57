#include "bench/support/probe.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>
#include <vector>

#include "bench/support/probe_cores.h"
#include "bench/support/timing.h"

namespace marlo::bench {
namespace {

constexpr size_t kKibi = 1024;
constexpr size_t kL1Bytes = 8 * kKibi;
constexpr size_t kL2Bytes = 256 * kKibi;
constexpr size_t kMemoryBytes = 64 * kKibi * kKibi;
// Loads that follow a store to the same place of another page wait for it, so source and target
// stand half a page apart.
constexpr size_t kApart = 2 * kKibi;
constexpr size_t kPage = 4 * kKibi;

constexpr size_t kRuns = 9;
constexpr double kRunSeconds = 0.0005;

// Seconds of one call, as the median of several runs of many calls.
template <typename Function>
double seconds_per_call(Function call) {
  const size_t calls = calls_longer_than(kRunSeconds, call);
  std::vector<double> runs;
  for (size_t i = 0; i < kRuns; ++i) runs.push_back(seconds_of(call, calls));
  return median(runs) / static_cast<double>(calls);
}

size_t in_whole_steps(size_t count) { return count - count % kCopyStep; }

double per_second(PeakCore core, double operations_per_round) {
  constexpr size_t kRounds = 10000;
  volatile float one = 1.0f;
  volatile float zero = 0.0f;
  const double seconds = seconds_per_call([&] { core(kRounds, one, zero); });
  return operations_per_round * static_cast<double>(kRounds) / seconds;
}

double gigaflops(PeakCore core, size_t lanes) {
  return 1e-9 * per_second(core, static_cast<double>(2 * kChains * lanes));
}

class Arena {
 public:
  explicit Arena(size_t bytes)
      : memory_(static_cast<float*>(::operator new(bytes, std::align_val_t(kPage)))) {
    std::fill_n(memory_, bytes / sizeof(float), 1.0f);
  }
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;
  ~Arena() { ::operator delete(memory_, std::align_val_t(kPage)); }
  float* at(size_t offset) const { return memory_ + offset / sizeof(float); }

 private:
  float* memory_;
};

Bandwidth bandwidth(const Arena& arena, size_t bytes, Width width) {
  if (width == Width::avx && !has_avx()) return {};
  const float* from = arena.at(0);
  const size_t count = bytes / sizeof(float);
  const ReadCore read = width == Width::avx ? read_avx : read_sse;
  const double seconds = seconds_per_call([&] { read(from, count); });
  return {1e-9 * static_cast<double>(bytes) / seconds,
          copy_limit(width, from, arena.at(bytes + kApart), count)};
}

void print_bandwidth(const char* level, const Bandwidth (&widths)[2]) {
  std::fprintf(stderr, "  %-17s %7.1f  %7.1f", level, widths[0].read, widths[0].copy);
  if (has_avx()) std::fprintf(stderr, "    %7.1f  %7.1f", widths[1].read, widths[1].copy);
  std::fputs("\n", stderr);
}

}  // namespace

double copy_limit(Width width, const float* from, float* to, size_t count) {
  count = in_whole_steps(count);
  const CopyCore copy = width == Width::avx ? copy_avx : copy_sse;
  const double seconds = seconds_per_call([&] { copy(from, to, count); });
  return 1e-9 * static_cast<double>(2 * count * sizeof(float)) / seconds;
}

double copy_limit(Width width, size_t floats) {
  std::vector<float> from(floats / 2);
  std::vector<float> to(floats / 2);
  return copy_limit(width, from.data(), to.data(), floats / 2);
}

double arithmetic_limit(Width width) {
  return width == Width::avx ? gigaflops(peak_avx, 8) : gigaflops(peak_sse, 4);
}

double fused_limit() { return has_fma() ? gigaflops(peak_fma, 8) : 0.0; }

double wide_limit() { return has_avx512() ? gigaflops(peak_avx512, 16) : 0.0; }

double read_limit(Width width, const float* from, size_t count) {
  count = in_whole_steps(count);
  const ReadCore read = width == Width::avx ? read_avx : read_sse;
  const double seconds = seconds_per_call([&] { read(from, count); });
  return 1e-9 * static_cast<double>(count * sizeof(float)) / seconds;
}

double clock_now() {
  constexpr uint64_t kCycles = 1 << 16;
  return 1e-9 * static_cast<double>(kCycles) / seconds_per_call([] { count_cycles(kCycles); });
}

Limits measure_limits() {
  Limits limits;
  limits.clock = clock_now();
  limits.maxima_and_sums_per_cycle = 1e-9 * per_second(max_and_sum_sse, 2 * kChains) / limits.clock;
  limits.sse = gigaflops(peak_sse, 4);
  if (has_avx()) limits.avx = gigaflops(peak_avx, 8);
  limits.fma = fused_limit();
  limits.avx512 = wide_limit();
  const Arena arena(2 * kMemoryBytes + kPage);
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
