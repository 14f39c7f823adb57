#include "qrt_core/runtime/model/base64.h"

#include <benchmark/benchmark.h>

#include <random>
#include <stdexcept>
#include <string>

#include "bench/support/reporting.h"

// Weights are Base64 text while a model is in memory. Both directions count the bytes of the text.

namespace marlo::bench {
namespace {

constexpr size_t kTextBytes = 1 << 20;

std::string random_bytes(size_t count) {
  std::mt19937 engine(1);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(engine());
  return bytes;
}

std::string encoded(const std::string& bytes) {
  return runtime::Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

// @throws std::runtime_error unless text and bytes belong together by the standard's definition
void check(const std::string& text, const std::string& bytes) {
  static const std::string alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    const size_t value = alphabet.find(text[bit / 6]);
    const auto byte = static_cast<unsigned char>(bytes[bit / 8]);
    if ((value >> (5 - bit % 6) & 1) != (byte >> (7 - bit % 8) & 1u)) {
      throw std::runtime_error("Base64: bit " + std::to_string(bit) + " is wrong");
    }
  }
}

void decode(benchmark::State& state) {
  const std::string text = encoded(random_bytes(kTextBytes / 4 * 3));
  check(text, runtime::Base64Decode(text));
  for (auto _ : state) benchmark::DoNotOptimize(runtime::Base64Decode(text));
  report_rate(state, "GB/s", static_cast<double>(text.size()));
}

void encode(benchmark::State& state) {
  const std::string bytes = random_bytes(kTextBytes / 4 * 3);
  check(encoded(bytes), bytes);
  for (auto _ : state) benchmark::DoNotOptimize(encoded(bytes));
  report_rate(state, "GB/s", static_cast<double>(kTextBytes));
}

BENCHMARK(decode)->Name("Base64Decode/1MiB")->Unit(benchmark::kMicrosecond);
BENCHMARK(encode)->Name("Base64Encode/1MiB")->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace marlo::bench
