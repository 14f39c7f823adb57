#include <gtest/gtest.h>

#include <chrono>

#include "tests/support/compare.h"
#include "tests/support/conv_rows.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// Named edges of the portable convolutions that a comparison with the definition doesn't state, and
// inputs that they must refuse to read.

namespace marlo::test {
namespace {

using kernel::ConvolutionRow;
using kernel::TransposedGeometry;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;

const auto& kPlane = kernel::rows::Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1;
const auto& kTransposed = kernel::rows::ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1;
const auto& kLine = kernel::rows::Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1;

/// One configured kernel.
template <typename Geometry>
class Configured {
 public:
  Configured(const ConvolutionRow<Geometry>& row, const ConvTester& tester)
      : kernel_(make_kernel(row.name)) {
    const ConvCase sizes = fitted<Geometry>(tester.sizes());
    const ConvData data = integer_data(sizes, 1);
    EXPECT_TRUE(kernel_->Config(describe<Geometry>(sizes, data), nullptr, context_));
  }

  std::vector<uint32_t> inferred(const std::vector<uint32_t>& dims) {
    const auto shapes = kernel_->InferOutputShapes({{dims, DataType::FLOAT32, LayoutType::CHW}});
    EXPECT_EQ(shapes.size(), 1u);
    return shapes.at(0).dims;
  }

  // What Forward says about an input of this shape, filled with ones.
  std::string failure(const TensorShape& shape) {
    const auto input = context_.device()->CreateTensor(shape, nullptr);
    return failure_of([&] { kernel_->Forward({input}, outputs_, context_); });
  }

  IKernel& kernel() { return *kernel_; }
  TestContext& context() { return context_; }
  const IKernel::Tensors& outputs() const { return outputs_; }

 private:
  TestContext context_;
  std::shared_ptr<IKernel> kernel_;
  IKernel::Tensors outputs_;
};

TensorShape chw(std::vector<uint32_t> dims) {
  return {std::move(dims), DataType::FLOAT32, LayoutType::CHW};
}

TensorShape cl(std::vector<uint32_t> dims) {
  return {std::move(dims), DataType::FLOAT32, LayoutType::CL};
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(ConvolutionShape, KeepsTypeLayoutAndLocationOfTheInput) {
  Configured plane(kPlane, ConvTester().channels(2, 3).kernel(3, 3).padding(1));
  const TensorShape input({2, 5, 6}, DataType::FLOAT16, LayoutType::FLEXIABLE,
                          runtime::LocationType::MetalBuffer);
  const auto inferred = plane.kernel().InferOutputShapes({input});
  ASSERT_EQ(inferred.size(), 1u);
  EXPECT_TRUE(inferred[0] == TensorShape({3, 5, 6}, DataType::FLOAT16, LayoutType::FLEXIABLE,
                                         runtime::LocationType::MetalBuffer));
}

TEST(ConvolutionShape, FloorsTheDivisionByTheStride) {
  Configured plane(kPlane, ConvTester().channels(1, 2).kernel(2, 2).dilation(3).stride(2));
  EXPECT_EQ(plane.inferred({1, 5, 5}), (std::vector<uint32_t>{2, 1, 1}));
  EXPECT_EQ(plane.inferred({1, 6, 7}), (std::vector<uint32_t>{2, 2, 2}));
}

TEST(ConvolutionShape, WrapsForAWindowLargerThanThePaddedInput) {
  Configured plane(kPlane, ConvTester().channels(1, 2).kernel(5, 5));
  EXPECT_EQ(plane.inferred({1, 4, 3}), (std::vector<uint32_t>{2, 0, 0xFFFFFFFF}));
  Configured strided(kPlane, ConvTester().channels(1, 2).kernel(5, 5).stride(2));
  EXPECT_EQ(strided.inferred({1, 4, 5}), (std::vector<uint32_t>{2, 0x80000000, 1}));
  Configured line(kLine, ConvTester().channels(1, 2).kernel(1, 5));
  EXPECT_EQ(line.inferred({1, 3}), (std::vector<uint32_t>{2, 0xFFFFFFFF}));
}

TEST(ConvolutionShape, OfATransposedConvolutionAddsItsPaddings) {
  Configured usual(kTransposed, ConvTester().channels(1, 2).kernel(3, 3).stride(2).padding(1));
  EXPECT_EQ(usual.inferred({1, 5, 6}), (std::vector<uint32_t>{2, 10, 12}));
  Configured cut(kTransposed, ConvTester().channels(1, 2).kernel(3, 3).stride(2).padding(-2));
  EXPECT_EQ(cut.inferred({1, 5, 6}), (std::vector<uint32_t>{2, 4, 6}));
  EXPECT_EQ(cut.inferred({1, 3, 2}), (std::vector<uint32_t>{2, 0, 0xFFFFFFFE}));
}

TEST(ConvolutionShape, RefusesAnInputOfOtherDims) {
  Configured plane(kPlane, ConvTester().kernel(3, 3));
  Configured line(kLine, ConvTester().kernel(1, 3));
  const auto failure = [](IKernel& kernel, const std::vector<TensorShape>& shapes) {
    return failure_of([&] { kernel.InferOutputShapes(shapes); });
  };
  EXPECT_TRUE(contains(failure(plane.kernel(), {chw({5, 5})}), "must have 3 dims"));
  EXPECT_TRUE(contains(failure(plane.kernel(), {chw({})}), "must have 3 dims"));
  EXPECT_TRUE(contains(failure(plane.kernel(), {}), kPlane.name));
  EXPECT_TRUE(contains(failure(line.kernel(), {chw({1, 5, 5})}), "must have 2 dims"));
}

TEST(ConvolutionInput, RefusesAWindowLargerThanThePaddedInput) {
  Configured plane(kPlane, ConvTester().channels(1, 2).kernel(5, 4).padding(1, 0, 0, 1));
  const char* const text = "the window is larger than the padded input";
  EXPECT_TRUE(contains(plane.failure(chw({1, 3, 9})), text));
  EXPECT_TRUE(contains(plane.failure(chw({1, 9, 2})), text));
  EXPECT_TRUE(contains(plane.failure(chw({1, 0, 9})), text));
  EXPECT_TRUE(plane.outputs().empty());
  EXPECT_EQ(plane.failure(chw({1, 4, 3})), "");
  Configured line(kLine, ConvTester().channels(1, 2).kernel(1, 5).padding(1, 0, 0, 0));
  EXPECT_TRUE(contains(line.failure(cl({1, 3})), text));
  EXPECT_EQ(line.failure(cl({1, 4})), "");
}

TEST(ConvolutionInput, RefusesTooFewChannelsAndOtherDims) {
  const ConvTester tester = ConvTester().channels(4, 2).groups(2);
  Configured plane(kPlane, tester);
  EXPECT_TRUE(contains(plane.failure(chw({3, 2, 2})), "3 dims and 4 channels"));
  EXPECT_TRUE(contains(plane.failure(chw({4, 2})), "3 dims and 4 channels"));
  Configured transposed(kTransposed, tester);
  EXPECT_TRUE(contains(transposed.failure(chw({3, 2, 2})), "3 dims and 4 channels"));
  Configured line(kLine, tester);
  EXPECT_TRUE(contains(line.failure(cl({3, 2})), "2 dims and 4 channels"));
}

// The transposed kernel makes no padded copy, and reads what is there as planes.
TEST(ConvolutionInput, RefusesAnotherLayoutOrType) {
  const ConvTester tester = ConvTester().channels(1, 2);
  for (const LayoutType layout : {LayoutType::HWC, LayoutType::FLEXIABLE}) {
    const TensorShape shape({1, 2, 2}, DataType::FLOAT32, layout);
    EXPECT_TRUE(contains(Configured(kPlane, tester).failure(shape), kPlane.name));
    EXPECT_EQ(Configured(kTransposed, tester).failure(shape), "");
  }
  for (const DataType type : {DataType::INT32, DataType::FLOAT16, DataType::INT8}) {
    const TensorShape shape({1, 2, 2}, type, LayoutType::CHW);
    EXPECT_TRUE(contains(Configured(kPlane, tester).failure(shape), kPlane.name));
    EXPECT_TRUE(contains(Configured(kTransposed, tester).failure(shape), kTransposed.name));
  }
  EXPECT_TRUE(contains(
      Configured(kLine, tester).failure({{1, 2}, DataType::FLOAT32, LayoutType::FLEXIABLE}),
      kLine.name));
}

TEST(ConvolutionInput, IsRefusedByAKernelWithoutConfiguration) {
  TestContext context;
  for (const ConvRow& row : reference_convolution_rows()) {
    const auto input = context.floats(row.dims(1, 1, 2), row.layout, {1.0f, 2.0f});
    IKernel::Tensors outputs;
    const auto kernel = make_kernel(row.name);
    EXPECT_TRUE(
        contains(failure_of([&] { kernel->Forward({input}, outputs, context); }), row.name));
  }
}

TEST(ConvolutionInput, IsRefusedWithoutADevice) {
  for (const ConvRow& row : reference_convolution_rows()) {
    TestContext context;
    const ConvCase sizes = ConvTester().size(1, 2).sizes();
    const ConvData data = integer_data(sizes, 1);
    const auto kernel = make_kernel(row.name);
    ASSERT_TRUE(kernel->Config(row.describe(sizes, data), nullptr, context));
    const auto input = context.floats(row.dims(1, 1, 2), row.layout, data.input);
    IKernel::Tensors outputs;
    EXPECT_TRUE(
        contains(failure_of([&] { kernel->Forward({input}, outputs, nullptr); }), row.name));
  }
}

TEST(Convolution, LeavesChannelsBeyondTheGroupsAtZero) {
  const ConvTester tester = ConvTester().channels(5, 7).size(2, 2).groups(3);
  const ConvCase& sizes = tester.sizes();
  ConvData data = integer_data(sizes, 3);
  data.bias.assign(6, 1.0f);
  for (const auto& output : {tester.output(kPlane, data), tester.output(kTransposed, data)}) {
    ASSERT_EQ(output.size(), 28u);
    for (size_t i = 24; i < 28; ++i) EXPECT_EQ(bits_of(output[i]), 0u);
  }
  // Channels 3 and 4 of the input belong to no group: what they hold isn't read.
  for (size_t i = 12; i < 20; ++i) data.input[i] = kNaN;
  for (const float number : tester.output(kPlane, data)) EXPECT_FALSE(std::isnan(number));
  for (const float number : tester.output(kTransposed, data)) EXPECT_FALSE(std::isnan(number));
}

TEST(Convolution, AppendsToItsOutputs) {
  Configured plane(kPlane, ConvTester().channels(1, 2));
  EXPECT_EQ(plane.failure(chw({1, 2, 2})), "");
  EXPECT_EQ(plane.failure(chw({1, 3, 3})), "");
  ASSERT_EQ(plane.outputs().size(), 2u);
  EXPECT_EQ(plane.outputs()[0]->shape.dims, (std::vector<uint32_t>{2, 2, 2}));
  EXPECT_EQ(plane.outputs()[1]->shape.dims, (std::vector<uint32_t>{2, 3, 3}));
}

TEST(Convolution, MakesAPaddedCopyAlsoWithoutPadding) {
  Configured plane(kPlane, ConvTester().channels(1, 2));
  const size_t before = plane.context().pool().allocations();
  EXPECT_EQ(plane.failure(chw({1, 2, 2})), "");
  // The input, its copy and the output; the copy is gone.
  EXPECT_EQ(plane.context().pool().allocations(), before + 3);
  EXPECT_EQ(plane.context().pool().blocks_in_use(), 3u) << "weight, bias and output";
}

TEST(TransposedConvolution, IsCutByNegativePaddings) {
  const ConvTester base = ConvTester().channels(2, 3).size(5, 6).kernel(3, 3).stride(2);
  EXPECT_TRUE(ConvTester(base).padding(-1).test(kTransposed));
  EXPECT_TRUE(ConvTester(base).padding(-1, 2, 0, -3).test(kTransposed));
  EXPECT_TRUE(ConvTester(base).padding(2, -3, -2, 1).dilation(2).test(kTransposed));
  EXPECT_TRUE(ConvTester(base).padding(-4, 0, -4, 0).test(kTransposed));
}

TEST(TransposedConvolution, AgreesWithTheDefinitionForRandomSignedPaddings) {
  Random random(99);
  int ran = 0;
  for (uint32_t seed = 1; ran < 200; ++seed) {
    const auto pick = [&random](int least, int most) {
      return static_cast<uint32_t>(random.integer(least, most));
    };
    ConvTester tester;
    tester.channels(pick(1, 5), pick(1, 5)).size(pick(1, 7), pick(1, 9)).seed(seed);
    tester.kernel(pick(1, 4), pick(1, 4)).stride(pick(1, 4), pick(1, 4));
    tester.dilation(pick(1, 3), pick(1, 3)).groups(pick(1, 2));
    tester.padding(random.integer(-4, 4), random.integer(-4, 4), random.integer(-4, 4),
                   random.integer(-4, 4));
    if (tester.test(kTransposed)) ++ran;
  }
}

// 0 columns of 2^32 - 2 rows are an empty tensor: there is nothing to compute, in no time.
TEST(TransposedConvolution, GivesAnEmptyTensorWhereNothingIsLeft) {
  Configured cut(kTransposed,
                 ConvTester().channels(3, 4).kernel(3, 3).stride(2).padding(0, -4, 0, -6));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(cut.failure(chw({3, 3, 3})), "");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  ASSERT_EQ(cut.outputs().size(), 1u);
  EXPECT_EQ(cut.outputs()[0]->shape.dims, (std::vector<uint32_t>{4, 0xFFFFFFFE, 0}));
}

TEST(TransposedConvolution, RefusesAWrappedSizeThatNoMemoryHolds) {
  Configured cut(kTransposed, ConvTester().channels(1, 1).kernel(3, 3).padding(-1));
  EXPECT_TRUE(contains(cut.failure(chw({1, 9, 3})), "4 GiB"));
  EXPECT_TRUE(cut.outputs().empty());
}

TEST(TransposedConvolution, TurnsTheFilterAround) {
  const ConvTester tester = ConvTester().size(1, 1).kernel(2, 3).padding(2, 2, 1, 1).bias(false);
  ConvData data;
  data.input = {1.0f};
  data.weight = {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f};
  EXPECT_TRUE(same_bits(tester.output(kTransposed, data), data.weight));
}

}  // namespace
}  // namespace marlo::test
