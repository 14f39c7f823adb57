#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/support/differential/operation.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/paths.h"

// The kept layers of the fuzz harness for kernels, each run by every kernel that accepts it and
// compared with the portable one.

namespace marlo::test {
namespace {

namespace fs = std::filesystem;

// No description configures them.
const std::set<std::string> kNeverConfigured = {
    "Elementwise_Max_SSE_Float_M1",      "Elementwise_Min_SSE_Float_M1",
    "Elementwise_Max_AVX_Float_M1",      "Elementwise_Min_AVX_Float_M1",
    "FullConnection_SSE_C4HW4_Float_M1", "FullConnection_AVX_C8HW8_Float_M1"};

void try_kept_layers() {
  const LogCapture log;
  const fs::path corpus = source_path("fuzz/corpus/kernels_fuzz");
  for (const auto& entry : fs::directory_iterator(corpus)) {
    const testing::ScopedTrace trace("", 0, entry.path().filename().string());
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    try_kernels(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
}

TEST(KeptLayers, AgreeInEveryKernelAndReachEach) {
  try_kept_layers();
  for (const std::string& key : all_kernels().Keys()) {
    if (kNeverConfigured.count(key) != 0 || has_own_description(key)) continue;
    if (!why_not_here(key).empty()) continue;
    EXPECT_EQ(comparisons().count(key), 1u) << key << " was never compared";
  }
}

TEST(KeptLayers, LoseNothingWhereverMemoryEnds) {
  const WithFailingMemory failing;
  try_kept_layers();
  EXPECT_GT(failing.failures(), 1000u);
}

TEST(KernelOperations, CoverEveryRegisteredKernel) {
  EXPECT_EQ(uncovered_kernels(), std::vector<std::string>());
}

TEST(KernelOperations, TakeNoBytesAndMany) {
  const LogCapture log;
  try_kernels(nullptr, 0);
  const std::vector<uint8_t> many(1000, 255);
  try_kernels(many.data(), many.size());
}

}  // namespace
}  // namespace marlo::test
