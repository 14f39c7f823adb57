#include "qrt_toolkit/bench/bench.h"

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>

#include "qrt_toolkit/bench/lane.h"
#include "tests/support/kernels.h"
#include "tests/support/paths.h"

namespace marlo::toolkit {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

const std::string kDigits = marlo::test::source_path("models/digits/digits.qrtmodel");

BenchSubject digits() {
  BenchSubject subject;
  subject.name = "digits";
  subject.open = [] { return utility::Model(kDigits); };
  return subject;
}

// A few passes: what is tested is that everything is measured, not how long it takes.
BenchOptions short_options() {
  BenchOptions options;
  options.sampling.most_warm_ms = 1.0;
  options.sampling.least_rounds = options.sampling.most_rounds = 4;
  return options;
}

#if QRT_WITH_SSE
TEST(MadeUpNumbers, FillTensorsAndRefuseWhatNoTensorHolds) {
  using runtime::DataType;
  using runtime::LayoutType;
  using runtime::TensorShape;
  utility::Model model(kDigits);
  const utility::Network& network = model.at(size_t{0});
  const auto numbers = [&network](const TensorShape& shape) {
    return made_up_numbers(shape, *network.net(), network.inputs().at(0).layer);
  };
  const TensorShape some({2, 3}, DataType::FLOAT32, LayoutType::CHW);
  EXPECT_THAT(numbers(some), SizeIs(24));
  EXPECT_EQ(numbers(some), numbers(some));
  const TensorShape none({0, 1u << 31, 4}, DataType::FLOAT32, LayoutType::CHW);
  EXPECT_THAT(numbers(none), SizeIs(0));
  // In 32 bits these are 0 bytes.
  for (const std::vector<uint32_t>& sizes :
       {std::vector<uint32_t>{1u << 30}, {1u << 16, 1u << 16}, {1u << 31, 1u << 31, 1u << 31}}) {
    const TensorShape shape(sizes, DataType::FLOAT32, LayoutType::CHW);
    try {
      numbers(shape);
      ADD_FAILURE() << "4 GiB of numbers";
    } catch (const std::invalid_argument& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("input: expected a shape below 4 GiB, found FLOAT32"));
    }
  }
}

TEST(Bench, MeasuresAllOfANetwork) {
  BenchOptions options = short_options();
  uint64_t count = 0;
  options.allocations = [&] { return count += 3; };
  const BenchResult result = bench({digits()}, options);
  ASSERT_THAT(result.networks, SizeIs(1));
  const BenchedNetwork& network = result.networks[0];
  EXPECT_EQ(network.name, "digits");
  EXPECT_FALSE(network.network.empty());
  EXPECT_THAT(network.passes, SizeIs(4));
  EXPECT_EQ(network.latency.count, 4u);
  EXPECT_GT(network.latency.minimum, 0.0);
  EXPECT_LE(network.latency.minimum, network.latency.median);
  EXPECT_LE(network.latency.median, network.latency.p99);
  EXPECT_GT(network.passes_a_second, 0.0);
  EXPECT_GT(network.load_ms, 0.0);
  EXPECT_GT(network.first_pass_ms, 0.0);
  EXPECT_GE(network.warm_passes, 3u);
  EXPECT_GT(network.static_pool_bytes, 0u);
  EXPECT_GT(network.dynamic_pool_bytes, 0u);
  EXPECT_EQ(network.pool_growth_bytes, 0u);
  EXPECT_EQ(network.allocations_a_pass, 3.0);
  EXPECT_GT(result.resident_bytes, 0u);
  EXPECT_GE(result.peak_resident_bytes, result.resident_bytes);
  EXPECT_THAT(result.ratios, SizeIs(0));
}

TEST(Bench, ComparesTheOthersWithTheFirst) {
  const BenchResult result = bench({digits(), digits(), digits()}, short_options());
  EXPECT_THAT(result.networks, SizeIs(3));
  ASSERT_THAT(result.ratios, SizeIs(2));
  EXPECT_EQ(result.ratios[1].first, 0u);
  EXPECT_EQ(result.ratios[1].second, 2u);
  EXPECT_LE(result.ratios[1].time.low, result.ratios[1].time.high);
  EXPECT_EQ(result.networks[0].allocations_a_pass, std::nullopt);
}

TEST(Bench, ThreadsRunClonesOfOneModel) {
  std::atomic<int> opened{0};
  BenchSubject subject = digits();
  subject.open = [&] {
    ++opened;
    return utility::Model(kDigits);
  };
  BenchOptions options = short_options();
  options.threads = 3;
  options.sampling.least_rounds = options.sampling.most_rounds = 2;
  const BenchResult result = bench({subject}, options);
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(result.threads, 3u);
  EXPECT_EQ(result.networks[0].passes.size() % (3 * 2), 0u);
  EXPECT_GE(result.networks[0].passes.size(), 6u);
}

TEST(Bench, ACallBeforeASampleMayEndIt) {
  for (const unsigned threads : {1U, 2U}) {
    BenchOptions options = short_options();
    options.threads = threads;
    int calls = 0;
    options.before_sample = [&calls] {
      if (++calls == 3) throw std::out_of_range("enough");
    };
    EXPECT_THROW(bench({digits()}, options), std::out_of_range);
    EXPECT_EQ(calls, 3);
  }
}

TEST(Bench, WhatCannotBeMeasuredIsSaid) {
  EXPECT_THROW(bench({}, {}), std::invalid_argument);
  BenchOptions options = short_options();
  options.threads = 0;
  EXPECT_THROW(bench({digits()}, options), std::invalid_argument);
  options.threads = 1;
  options.cpu = 1 << 20;
  EXPECT_THROW(bench({digits()}, options), std::invalid_argument);

  BenchSubject other = digits();
  other.network = "absent";
  try {
    bench({other}, short_options());
    ADD_FAILURE();
  } catch (const std::invalid_argument& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("\"absent\""));
  }
  BenchSubject misfit = digits();
  misfit.inputs[0] =
      runtime::TensorShape({3, 5, 5}, runtime::DataType::FLOAT32, runtime::LayoutType::CHW);
  EXPECT_THROW(bench({misfit}, short_options()), utility::Error);
  misfit.open = []() -> utility::Model { throw std::runtime_error("gone"); };
  EXPECT_THROW(bench({misfit}, short_options()), std::runtime_error);
}
#endif

}  // namespace
}  // namespace marlo::toolkit
