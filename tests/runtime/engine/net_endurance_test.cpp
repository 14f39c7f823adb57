// A process that runs for months: after a million passes, and after ten thousand models that came
// and went, it holds no more memory and no more open files than at the start.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "qrt_core/qrt_core.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {

using namespace runtime;

namespace {

using Nets = std::map<std::string, std::shared_ptr<utility::_NetworkPackage>>;

constexpr int kPasses = 1000000;
constexpr int kLoads = 10000;
// An allocator may still ask for a page or two when all that it serves comes and goes.
constexpr size_t kSlack = 128 * 1024;

// What the system says of this process.
struct Footprint {
  size_t resident = 0;     // bytes
  size_t descriptors = 0;  // open files

  static Footprint now() {
    Footprint footprint;
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    footprint.resident = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const std::filesystem::directory_iterator open("/proc/self/fd");
    footprint.descriptors = static_cast<size_t>(std::distance(begin(open), end(open)));
    return footprint;
  }
};

void expect_flat(const Footprint& before, const Footprint& after) {
  EXPECT_LE(after.resident, before.resident + kSlack);
  EXPECT_EQ(after.descriptors, before.descriptors);
}

class NetEndurance : public ::testing::Test {
 protected:
  NetEndurance() {
    utility::init_register_operators(kernels_, params_);
    utility::create_context(context_, 32);
    path_ = model().save(folder_.file("model.qrtmodel"));
  }

  // One layer that computes, one that is cheap, and a converter.
  static test::ModelBuilder model() {
    return test::ModelBuilder()
        .input("x")
        .conv2d("c", "x", test::plane_convolution(1, 2, 2, test::ramp(8), {0.5f, -0.5f}))
        .output_converter("0", "Straight_Through_Fallback_M1",
                          std::make_shared<InferenceParamConv2DQuant>())
        .activation("y", "c", "ReLU_Fallback_Float_M1")
        .outputs({"y"});
  }

  int load(const std::string& path, Nets& nets) {
    return utility::load_model(path, nets, context_, kernels_, params_, "sdk", 1, 0);
  }

  // The last result of a pass over an image of four pixels.
  float pass(utility::_NetworkPackage& package) {
    const float image[] = {1.0f, 2.0f, 3.0f, 4.0f};
    package.input_tensors[0] = context_->cpu->CreateF32CHWMainMem({1, 2, 2}, image);
    const auto results =
        package.net->Forward(package.input_tensors, package.output_ids, context_, nullptr, nullptr);
    package.input_tensors.clear();
    return static_cast<const float*>(results.at(package.output_ids[0])[0]->handle.cpu)[1];
  }

  uint64_t pool_bytes() const {
    return context_->cpu->static_pool->TotalBytes() + context_->cpu->dynamic_pool->TotalBytes();
  }

  test::TemporaryFolder folder_;
  std::string path_;
  std::shared_ptr<Context> context_;
  KernelRegistry kernels_;
  InferenceParamRegistry params_;
  test::LogCapture log_;
};

TEST_F(NetEndurance, AMillionPassesLeaveMemoryAsItWas) {
  Nets nets;
  ASSERT_EQ(load(path_, nets), 0);
  utility::_NetworkPackage& package = *nets.at("net");
  // 5 + 12 + 21 + 32, less one half.
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(pass(package), 69.5f);
  const uint64_t pools = pool_bytes();
  const Footprint before = Footprint::now();
  for (int i = 0; i < kPasses; ++i) ASSERT_EQ(pass(package), 69.5f) << "pass " << i;
  expect_flat(before, Footprint::now());
  EXPECT_EQ(pool_bytes(), pools);
}

TEST_F(NetEndurance, TenThousandModelsComeAndGoInOneContext) {
  const std::string text_path = model().save(folder_.file("model.json"));
  const auto rounds = [&](int count) {
    for (int i = 0; i < count; ++i) {
      Nets nets;
      ASSERT_EQ(load(i % 8 == 0 ? text_path : path_, nets), 0) << "load " << i;
      ASSERT_EQ(pass(*nets.at("net")), 69.5f) << "load " << i;
    }
  };
  rounds(200);
  log_.clear();
  const uint64_t pools = pool_bytes();
  const Footprint before = Footprint::now();
  rounds(kLoads);
  log_.clear();
  expect_flat(before, Footprint::now());
  EXPECT_EQ(pool_bytes(), pools);
}

TEST_F(NetEndurance, AThousandContextsComeAndGo) {
  const auto rounds = [&](int count) {
    for (int i = 0; i < count; ++i) {
      utility::create_context(context_, 32);
      Nets nets;
      ASSERT_EQ(load(path_, nets), 0) << "context " << i;
      ASSERT_EQ(pass(*nets.at("net")), 69.5f) << "context " << i;
    }
  };
  rounds(100);
  log_.clear();
  const Footprint before = Footprint::now();
  rounds(1000);
  log_.clear();
  expect_flat(before, Footprint::now());
}

// A service that is sent broken files again and again.
TEST_F(NetEndurance, ThousandsOfFilesThatEndTooEarlyLeaveNothingOpen) {
  std::ifstream file(path_, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  ASSERT_GT(bytes.size(), 100u);
  std::vector<std::string> broken;
  for (size_t end = 0; end < bytes.size(); end += bytes.size() / 40) {
    broken.push_back(folder_.file(std::to_string(end) + ".qrtmodel"));
    std::ofstream(broken.back(), std::ios::binary) << bytes.substr(0, end);
  }
  const auto rounds = [&](size_t count) {
    for (size_t i = 0; i < count; ++i) {
      Nets nets;
      bool refused = false;
      try {
        refused = load(broken[i % broken.size()], nets) != 0;
      } catch (const std::exception&) {
        refused = true;
      }
      ASSERT_TRUE(refused) << broken[i % broken.size()];
      log_.clear();
    }
  };
  rounds(500);
  const uint64_t pools = pool_bytes();
  const Footprint before = Footprint::now();
  rounds(10000);
  expect_flat(before, Footprint::now());
  EXPECT_EQ(pool_bytes(), pools);
}

}  // namespace
}  // namespace marlo::test
