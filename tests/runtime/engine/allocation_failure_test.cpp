// Memory that runs out at any point of loading or of a pass: an exception, and nothing is lost.

#include <gtest/gtest.h>

#include <new>

#include "qrt_core/qrt_core.h"
#include "tests/runtime/engine/all_layers.h"
#include "tests/support/allocator_counts.h"
#include "tests/support/counting_pool.h"
#include "tests/support/log_capture.h"
#include "tests/support/pace.h"
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {

using namespace runtime;

namespace {

using Nets = std::map<std::string, std::shared_ptr<utility::_NetworkPackage>>;

class AllocationFailureTest : public ::testing::TestWithParam<const char*> {
 protected:
  AllocationFailureTest() {
    utility::init_register_operators(kernels_, params_);
    auto model = test::all_layers();
    model.network("second").input("x").conv2d("c", "x", test::plane_convolution(1, 1, 1, {1.0f}));
    path_ = model.save(folder_.file(GetParam()));
  }

  void load(test::CountingContext& counting, Nets& nets) {
    ASSERT_EQ(utility::load_model(path_, nets, counting.context, kernels_, params_, "sdk", 1, 0),
              0);
  }

  static void pass(test::CountingContext& counting, Nets& nets) {
    utility::_NetworkPackage& package = *nets.at("net");
    package.input_tensors = test::all_layers_inputs(counting.device());
    const auto result = package.net->Forward(package.input_tensors, package.output_ids,
                                             counting.context, nullptr, nullptr);
    EXPECT_EQ(result.size(), package.output_ids.size());
  }

  // Everything that came out of a failed attempt has gone.
  static void expect_nothing_in_use(const test::CountingContext& counting, uint64_t call) {
    ASSERT_EQ(counting.static_pool->blocks_in_use(), 0u) << "call " << call;
    ASSERT_EQ(counting.dynamic_pool->blocks_in_use(), 0u) << "call " << call;
  }

  test::TemporaryFolder folder_;
  std::string path_;
  KernelRegistry kernels_;
  InferenceParamRegistry params_;
  test::LogCapture log_;
};

INSTANTIATE_TEST_SUITE_P(Formats, AllocationFailureTest,
                         ::testing::Values("model.json", "model.qrtmodel"), [](const auto& form) {
                           return form.param[6] == 'j' ? std::string("Json")
                                                       : std::string("Binary");
                         });

TEST_P(AllocationFailureTest, StaticPoolThatFailsAtTheNthCall) {
  uint64_t failures = 0;
  for (uint64_t call = 1;; ++call) {
    test::CountingContext counting;
    bool failed = false;
    {
      Nets nets;
      counting.static_pool->fail_at(call);
      try {
        load(counting, nets);
        pass(counting, nets);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
    }
    expect_nothing_in_use(counting, call);
    if (!failed) break;
    ++failures;
  }
  // Weights and biases of four convolutions, and two inputs.
  EXPECT_EQ(failures, 9u);
}

TEST_P(AllocationFailureTest, DynamicPoolThatFailsAtTheNthCallOfAPass) {
  test::CountingContext counting;
  uint64_t failures = 0;
  {
    Nets nets;
    load(counting, nets);
    const size_t weights = counting.static_pool->blocks_in_use();
    for (uint64_t call = 1;; ++call) {
      counting.dynamic_pool->fail_at(call);
      bool failed = false;
      try {
        pass(counting, nets);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      ASSERT_EQ(counting.dynamic_pool->blocks_in_use(), 0u) << "call " << call;
      ASSERT_EQ(counting.device().dynamic_mode, failed) << "call " << call;
      counting.device().dynamic_mode = false;
      if (!failed) break;
      ++failures;
    }
    nets["net"]->input_tensors.clear();
    EXPECT_EQ(counting.static_pool->blocks_in_use(), weights);
  }
  expect_nothing_in_use(counting, 0);
  EXPECT_GT(failures, 10u);
}

// Any object at all: a string of the model, a node of a table, a vector of a pass.
TEST_P(AllocationFailureTest, OperatorNewThatFailsAtTheNthCall) {
  const auto attempt = [this](uint64_t call) {
    test::CountingContext counting;
    bool threw = false;
    {
      Nets nets;
      test::fail_new_at(call);
      try {
        load(counting, nets);
        pass(counting, nets);
      } catch (const std::exception&) {
        threw = true;
      }
    }
    const bool failed = call != 0 && !test::new_failure_is_pending();
    test::fail_new_at(0);
    expect_nothing_in_use(counting, call);
    EXPECT_EQ(threw, failed) << "call " << call;
    return failed;
  };
  attempt(0);  // makes what the run-time library makes once
  log_.clear();
  uint64_t call = 1;
  for (bool failed = true; failed && !HasFatalFailure(); call += test::stride_of_runs()) {
    const int64_t objects = test::live_objects();
    failed = attempt(call);
    log_.clear();
    ASSERT_LE(test::live_objects(), objects) << "call " << call;
  }
  EXPECT_GT(call, 500u);
}

// From here on with the context and the pools that an application has.
class RealPoolsTest : public AllocationFailureTest {
 protected:
  using Outputs = std::vector<std::vector<char>>;

  static std::vector<char> bytes_of(const Tensor& tensor) {
    const auto* first = static_cast<const char*>(tensor.handle.cpu);
    return {first, first + ByteSize(tensor.shape)};
  }

  Outputs load_and_pass(std::shared_ptr<Context>& context) {
    Nets nets;
    EXPECT_EQ(utility::load_model(path_, nets, context, kernels_, params_, "sdk", 1, 0), 0);
    utility::_NetworkPackage& package = *nets.at("net");
    package.input_tensors = test::all_layers_inputs(*context->cpu);
    const auto results =
        package.net->Forward(package.input_tensors, package.output_ids, context, nullptr, nullptr);
    Outputs outputs;
    for (const unsigned int id : package.output_ids) {
      for (const auto& tensor : results.at(id)) outputs.push_back(bytes_of(*tensor));
    }
    return outputs;
  }

  // Blocks that a pool holds although nothing uses them can go; what is left was lost.
  static uint64_t bytes_left(MemoryPool& pool) {
    pool.ReleaseFreeBlocks();
    return pool.TotalBytes();
  }

  // Fails at the n-th chance, then does it all again on the same context, which then goes away.
  template <typename FailAt, typename Pending>
  uint64_t fail_at_each_call(FailAt fail_at, Pending pending, unsigned stride = 1) {
    Outputs expected;
    {
      std::shared_ptr<Context> context;
      utility::create_context(context, 32);
      expected = load_and_pass(context);
    }
    log_.clear();
    uint64_t call = 1;
    for (bool failed = true; failed && !HasFailure(); call += stride) {
      SCOPED_TRACE("call " + std::to_string(call));
      std::shared_ptr<Context> context;
      utility::create_context(context, 32);
      DeviceCPU& device = *context->cpu;
      bool threw = false;
      fail_at(call);
      try {
        load_and_pass(context);
      } catch (const std::exception&) {
        threw = true;
      }
      failed = !pending();
      fail_at(0);
      EXPECT_EQ(threw, failed);
      log_.clear();
      EXPECT_EQ(bytes_left(*device.static_pool), 0u);
      EXPECT_EQ(bytes_left(*device.dynamic_pool), 0u);
      // Whoever loads after a pass that failed leaves the pass first.
      device.dynamic_mode = false;
      EXPECT_EQ(load_and_pass(context), expected);
      EXPECT_EQ(bytes_left(*device.static_pool), 0u);
      EXPECT_EQ(bytes_left(*device.dynamic_pool), 0u);
      EXPECT_TRUE(log_.lines().empty());
    }
    return call;
  }
};

INSTANTIATE_TEST_SUITE_P(Formats, RealPoolsTest, ::testing::Values("model.json", "model.qrtmodel"),
                         [](const auto& form) {
                           return form.param[6] == 'j' ? std::string("Json")
                                                       : std::string("Binary");
                         });

TEST_P(RealPoolsTest, SystemThatRefusesTheNthBlock) {
#ifdef QRT_UNDER_SANITIZER
  GTEST_SKIP() << "the sanitizer's allocator serves all";
#endif
  EXPECT_GT(fail_at_each_call(test::refuse_block_at, test::block_refusal_is_pending), 15u);
}

TEST_P(RealPoolsTest, OperatorNewThatFailsAtTheNthCall) {
  EXPECT_GT(
      fail_at_each_call(test::fail_new_at, test::new_failure_is_pending, test::stride_of_runs()),
      500u);
}

}  // namespace
}  // namespace marlo::test
