// What a model costs that is ready: its packed weights and little else, and nothing when it is gone; and
// while it is loaded, one layer's weights besides.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "qrt_core/utility/check_model.h"
#include "qrt_core/utility/model.h"
#include "tests/support/model_builder.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {
namespace {

// Bytes of the process's pages.
size_t resident() {
  size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// The most that the process has had since `forget_peak`; 0 where the system doesn't tell.
size_t peak() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    constexpr size_t kUnit = 1024;
    if (line.rfind("VmHWM:", 0) == 0) return std::stoul(line.substr(6)) * kUnit;
  }
  return 0;
}

// @return whether the system can do that
bool forget_peak() {
  std::ofstream file("/proc/self/clear_refs");
  file << '5' << std::flush;
  return file.good();
}

// Layers of different sizes, whose texts and weights come and go among one another.
constexpr uint16_t kSizes[] = {256, 1200, 700, 1500, 900, 1400, 300, 1000,
                               900, 1000, 900, 1000, 900, 1000, 900, 1000};

size_t weight_bytes() {
  size_t floats = 0;
  for (size_t i = 0; i + 1 < std::size(kSizes); ++i) floats += size_t{kSizes[i]} * kSizes[i + 1];
  return floats * sizeof(float);
}

std::string saved_model(const TemporaryFolder& folder, const char* name) {
  ModelBuilder model;
  model.input("0");
  for (size_t i = 0; i + 1 < std::size(kSizes); ++i) {
    auto info = std::make_shared<runtime::FullConnectionInfo>();
    info->in_features = kSizes[i];
    info->out_features = kSizes[i + 1];
    info->weight = weight_text(std::vector<float>(size_t{kSizes[i]} * kSizes[i + 1], 0.5f));
    model.layer(std::to_string(i + 1), {std::to_string(i)}, info,
                "FullConnection_Fallback_C_Float_M1");
  }
  model.outputs({std::to_string(std::size(kSizes) - 1)});
  return model.save(folder.file(name));
}

class ModelMemory : public testing::TestWithParam<const char*> {};

TEST_P(ModelMemory, IsThatOfThePackedWeights) {
  const TemporaryFolder folder;
  const std::string path = saved_model(folder, GetParam());
  { const utility::Model first(path); }  // what stays of a first time stays once
  const size_t before = resident();
  constexpr size_t kSlack = 2 << 20;
  for (int round = 0; round < 3; ++round) {
    const bool knows_peak = forget_peak();
    {
      const utility::Model model(path);
      EXPECT_LE(knows_peak ? peak() : 0, before + weight_bytes() * 3 / 2 + kSlack);
      EXPECT_LE(resident(), before + weight_bytes() * 6 / 5 + kSlack);
      EXPECT_GE(resident(), before + weight_bytes() / 2) << "the weights are somewhere";
    }
    EXPECT_LE(resident(), before + kSlack);
  }
}

TEST_P(ModelMemory, IsNoMoreWhileTheModelIsChecked) {
  const TemporaryFolder folder;
  const std::string path = saved_model(folder, GetParam());
  EXPECT_TRUE(utility::check_model(path, {}).empty());
  const size_t before = resident();
  constexpr size_t kSlack = 2 << 20;
  const bool knows_peak = forget_peak();
  EXPECT_TRUE(utility::check_model(path, {}).empty());
  EXPECT_LE(knows_peak ? peak() : 0, before + weight_bytes() * 3 / 2 + kSlack);
}

INSTANTIATE_TEST_SUITE_P(Forms, ModelMemory, testing::Values("model.qrtmodel", "model.json"),
                         [](const auto& test) {
                           return std::string(test.param).find("json") != std::string::npos
                                      ? "Json"
                                      : "Binary";
                         });

}  // namespace
}  // namespace marlo::test
