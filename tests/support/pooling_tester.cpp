#include "tests/support/pooling_tester.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "qrt_core/runtime/model/pooling_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {

using kernel::PoolingKind;
using kernel::PoolingRow;
using runtime::DataType;
using runtime::IKernel;
using runtime::TensorShape;

namespace {

enum class Buffer { from_pool, unaligned };

template <typename Info>
std::shared_ptr<Info> describe(const PoolingCase& sizes) {
  auto info = std::make_shared<Info>();
  describe_window(sizes, *info);
  info->ceil_mode = sizes.ceil_mode;
  return info;
}

size_t count_of(const std::vector<uint32_t>& dims) {
  size_t count = 1;
  for (const uint32_t size : dims) count *= size;
  return count;
}

// Runs the kernel twice on one input.
std::vector<float> run(const PoolingTester& tester, const PoolingRow& row,
                       const std::vector<float>& data, Buffer buffer) {
  TestContext context;
  const auto kernel = make_kernel(row.name);
  EXPECT_TRUE(kernel->Config(tester.description(row), nullptr, context));
  EXPECT_TRUE(kernel->IsConfigured());
  const auto input = buffer == Buffer::from_pool
                         ? context.floats(tester.dims(row), row.layout, data)
                         : context.external_floats(tester.dims(row), row.layout, data);
  EXPECT_EQ(kernel->CheckInputs({input}), 0);
  IKernel::Tensors outputs;
  EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
  EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
  EXPECT_EQ(outputs.size(), 2u) << "an output was not appended";
  EXPECT_TRUE(outputs[0]->shape == kernel->InferOutputShapes({input->shape})[0]);
  EXPECT_EQ(kernel->CheckOutputs({outputs[0]}), 0);
  context.pool().check();
  EXPECT_TRUE(same_bits(values_of(*input), data)) << "the input changed";
  EXPECT_TRUE(same_bits(values_of(*outputs[1]), values_of(*outputs[0]))) << "a second run differs";
  return values_of(*outputs[0]);
}

// Results that float holds exactly but for one rounding.
std::vector<float> rounded(const std::vector<Sum>& sums) {
  std::vector<float> numbers;
  for (const Sum& sum : sums) numbers.push_back(static_cast<float>(sum.value));
  return numbers;
}

// An average over nothing but margin that doesn't count is 0 / 0.
testing::AssertionResult close_or_both_nan(std::vector<float> found, std::vector<Sum> expected) {
  for (size_t i = 0; i < expected.size() && i < found.size(); ++i) {
    if (!std::isnan(expected[i].value) || !std::isnan(found[i])) continue;
    expected[i] = Sum();
    found[i] = 0.0f;
  }
  return within_bounds(found, expected);
}

}  // namespace

void PoolingTester::test(const PoolingRow& row) const {
  const testing::ScopedTrace trace("", 0, "repeat with " + sentence(row.name));
  Random random(1);
  const size_t count = count_of(dims(row));
  const std::vector<float> integers = random.small_integers(count);
  const PoolingOracle exact = pooling(row, sizes_, integers);
  EXPECT_TRUE(same_bits(run(*this, row, integers, Buffer::from_pool), rounded(exact.outputs)));

  TestContext context;
  const auto kernel = make_kernel(row.name);
  kernel->Config(description(row), nullptr, context);
  const auto shapes =
      kernel->InferOutputShapes({TensorShape(dims(row), DataType::FLOAT32, row.layout)});
  ASSERT_EQ(shapes.size(), 1u);
  EXPECT_EQ(shapes[0].dims[0], sizes_.planes);
  EXPECT_EQ(shapes[0].dims[1], exact.height);
  EXPECT_EQ(shapes[0].dims[2], exact.width);

  const std::vector<float> floats = random.floats(count);
  const PoolingOracle bounded = pooling(row, sizes_, floats);
  for (const Buffer buffer : {Buffer::from_pool, Buffer::unaligned}) {
    const std::vector<float> found = run(*this, row, floats, buffer);
    if (row.kind == PoolingKind::maximum) {
      EXPECT_TRUE(same_bits(found, rounded(bounded.outputs)));
    } else {
      EXPECT_TRUE(close_or_both_nan(found, bounded.outputs));
    }
  }
}

std::vector<float> PoolingTester::output(const PoolingRow& row,
                                         const std::vector<float>& input) const {
  return run(*this, row, input, Buffer::from_pool);
}

std::shared_ptr<runtime::LayerInfo> PoolingTester::description(const PoolingRow& row) const {
  if (row.kind == PoolingKind::average) {
    auto info = describe<runtime::AvgPool2dInfo>(sizes_);
    info->count_include_pad = sizes_.count_include_pad;
    return info;
  }
  auto info = describe<runtime::MaxPool2dInfo>(sizes_);
  describe_dilation(sizes_, *info);
  return info;
}

std::vector<uint32_t> PoolingTester::dims(const PoolingRow& row) const {
  std::vector<uint32_t> dims{sizes_.planes, sizes_.height, sizes_.width};
  if (row.block != 1) dims.push_back(row.block);
  return dims;
}

std::string PoolingTester::sentence(const std::string& kernel) const {
  const PoolingCase& s = sizes_;
  std::ostringstream text;
  text << "PoolingTester().planes(" << s.planes << ").size(" << s.height << ", " << s.width
       << ").kernel(" << s.kernel_y << ", " << s.kernel_x << ").stride(" << s.stride_y << ", "
       << s.stride_x << ").dilation(" << s.dilation_y << ", " << s.dilation_x << ").padding("
       << s.padding_l << ", " << s.padding_r << ", " << s.padding_t << ", " << s.padding_b
       << ").ceil_mode(" << (s.ceil_mode ? "true" : "false") << ").count_include_pad("
       << (s.count_include_pad ? "true" : "false") << ").test(kernel::rows::" << kernel << ")";
  return text.str();
}

}  // namespace marlo::test
