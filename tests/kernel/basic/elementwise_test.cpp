#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "qrt_core/kernel/basic/elementwise.h"
#include "qrt_core/kernel/basic/elementwise_functions.h"
#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "tests/support/compare.h"
#include "tests/support/edge_sizes.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using kernel::ElementwiseRow;
using runtime::DataType;
using runtime::ElementWiseOperatorInfo;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorShape;

constexpr const char* kWords[] = {"Add", "Sub", "Mul", "Div"};

std::shared_ptr<ElementWiseOperatorInfo> operation(uint16_t op_type) {
  auto info = std::make_shared<ElementWiseOperatorInfo>();
  info->op_type = op_type;
  return info;
}

// The operators in double, rounded once. The rounding of a double result to float is that of the
// exact one for these four.
float exact(const std::string& word, float a, float b) {
  const double x = a;
  const double y = b;
  if (word == "Add") return static_cast<float>(x + y);
  if (word == "Sub") return static_cast<float>(x - y);
  if (word == "Mul") return static_cast<float>(x * y);
  if (word == "Div") return static_cast<float>(x / y);
  if (word == "Max") return std::fmax(a, b);
  if (word == "Min") return std::fmin(a, b);
  throw std::invalid_argument(word);
}

// The same with what the kernel does besides.
float exact(const ElementwiseRow& row, const std::string& word, float a, float b) {
  const float value = exact(word, a, b);
  if (row.epilogue == kernel::Epilogue::none) return value;
  return value > 0.0f ? value : 0.0f;
}

bool works_in_place(IKernel& kernel) {
  const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(&kernel);
  return facts != nullptr && facts->input_use() == runtime::InputUse::overwrites;
}

// A kernel of the row, configured for an operator where a description can do that.
std::shared_ptr<IKernel> configured(const ElementwiseRow& row, uint16_t op_type,
                                    TestContext& context) {
  const auto kernel = make_kernel(row.name);
  const std::string word = row.word == nullptr ? kWords[op_type] : row.word;
  for (uint16_t code = 0; code < 4; ++code) {
    if (word != kWords[code]) continue;
    EXPECT_TRUE(kernel->Config(operation(code), nullptr, context));
  }
  return kernel;
}

std::vector<float> combined(IKernel& kernel, const std::vector<float>& a,
                            const std::vector<float>& b, TestContext& context, bool unaligned) {
  const std::vector<uint32_t> dims{1, static_cast<uint32_t>(a.size()), 1};
  const auto tensor = [&](const std::vector<float>& values) {
    return unaligned ? context.external_floats(dims, LayoutType::CHW, values)
                     : context.floats(dims, LayoutType::CHW, values);
  };
  const auto first = tensor(a);
  const auto second = tensor(b);
  EXPECT_EQ(kernel.CheckInputs({first, second}), 0);
  IKernel::Tensors outputs{first};
  EXPECT_EQ(kernel.Forward({first, second}, outputs, context), 0);
  EXPECT_EQ(outputs.size(), 1u) << "the outputs were not replaced";
  EXPECT_TRUE(outputs[0]->shape == first->shape);
  EXPECT_TRUE(kernel.InferOutputShapes({first->shape, second->shape}) ==
              std::vector<TensorShape>{first->shape});
  context.pool().check();
  if (works_in_place(kernel)) {
    EXPECT_EQ(outputs[0], first) << "the result stands somewhere else";
  } else {
    EXPECT_TRUE(same_bits(values_of(*first), a)) << "input 0 changed";
  }
  EXPECT_TRUE(same_bits(values_of(*second), b)) << "input 1 changed";
  return values_of(*outputs[0]);
}

class EveryElementwise : public testing::TestWithParam<const ElementwiseRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(row().name); }
  const ElementwiseRow& row() const { return *GetParam(); }
};

TEST_P(EveryElementwise, AgreesWithItsDefinitionAtEveryEdgeSize) {
  TestContext context;
  Random random(2);
  for (uint16_t op_type = 0; op_type < (row().word == nullptr ? 4 : 1); ++op_type) {
    const std::string word = row().word == nullptr ? kWords[op_type] : row().word;
    const auto kernel = configured(row(), op_type, context);
    for (const size_t size : edge_sizes(std::vector<size_t>{4, 8, 16, 32})) {
      const auto a = random.uneven_floats(size, 20);
      const auto b = random.uneven_floats(size, 20);
      std::vector<float> expected;
      for (size_t i = 0; i < size; ++i) expected.push_back(exact(row(), word, a[i], b[i]));
      for (const bool unaligned : {false, true}) {
        EXPECT_TRUE(same_bits(combined(*kernel, a, b, context, unaligned), expected))
            << size << " elements, " << word;
      }
    }
  }
}

TEST_P(EveryElementwise, TheFirstInputIsTheLeftOperand) {
  TestContext context;
  const auto kernel = configured(row(), 1, context);  // a - b, where a description decides
  const auto result =
      combined(*kernel, std::vector<float>(11, 6), std::vector<float>(11, 3), context, false);
  const std::string word = row().word == nullptr ? "Sub" : row().word;
  EXPECT_TRUE(same_bits(result, std::vector<float>(11, exact(word, 6, 3))));
}

TEST_P(EveryElementwise, AcceptsItsOperatorOnly) {
  const auto kernel = make_kernel(row().name);
  for (uint16_t code = 0; code < 4; ++code) {
    const bool accepted = row().word == nullptr || std::string(kWords[code]) == row().word;
    EXPECT_EQ(kernel->CheckConfig(operation(code), nullptr), accepted ? 0 : -1);
    TestContext context;
    EXPECT_EQ(kernel->Config(operation(code), nullptr, context), accepted);
    EXPECT_EQ(kernel->IsConfigured(), accepted);
  }
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::BroadcastOperatorInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(operation(0), std::make_shared<runtime::InferenceParam>()), -1);
}

TEST_P(EveryElementwise, AnOperatorWithoutAWordThrows) {
  TestContext context;
  const LogCapture log;
  const auto kernel = make_kernel(row().name);
  for (const uint16_t code : std::initializer_list<uint16_t>{4, 5, 65535}) {
    EXPECT_THAT(failure_of([&] { kernel->Config(operation(code), nullptr, context); }),
                testing::HasSubstr("Invalid element wise type"));
    EXPECT_FALSE(kernel->IsConfigured());
  }
}

TEST_P(EveryElementwise, ChecksItsTensors) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const auto tensor = [&](std::vector<uint32_t> dims, DataType type, LayoutType layout,
                          LocationType location, uint16_t step) {
    return context.device()->CreateTensor(
        TensorShape(std::move(dims), type, layout, location, TensorShape::Extra(step)), nullptr);
  };
  const auto memory = LocationType::MainMemory;
  const auto good = tensor({2, 3}, DataType::FLOAT32, LayoutType::CL, memory, 0);
  const auto half = tensor({2, 3}, DataType::FLOAT16, LayoutType::CL, memory, 0);
  const auto elsewhere =
      tensor({2, 3}, DataType::FLOAT32, LayoutType::CL, LocationType::OpenGLImage, 0);
  EXPECT_EQ(kernel->CheckInputs({good, good}), 0);
  for (const IKernel::Tensors& tensors : {IKernel::Tensors{},
                                          {good},
                                          {good, good, good},
                                          {good, half},
                                          {half, half},
                                          {elsewhere, elsewhere},
                                          {good, nullptr}}) {
    EXPECT_EQ(kernel->CheckInputs(tensors), -2);
  }
  const int unequal = row().word == nullptr ? 0 : -2;
  for (const auto& other : {tensor({3, 2}, DataType::FLOAT32, LayoutType::CL, memory, 0),
                            tensor({2, 3}, DataType::FLOAT32, LayoutType::SC, memory, 0),
                            tensor({2, 3}, DataType::FLOAT32, LayoutType::CL, memory, 4)}) {
    EXPECT_EQ(kernel->CheckInputs({good, other}), unequal);
  }
  EXPECT_EQ(kernel->CheckOutputs({half}), -2);
  EXPECT_EQ(kernel->CheckOutputs({elsewhere}), -2);
  EXPECT_EQ(kernel->CheckOutputs({}), -2);
  // The two whose test of outputs differs.
  const std::string name = row().name;
  const bool counts_inputs = name == "Elementwise_Max_AVX_Float_M1";
  const bool counts_nothing = name == "Elementwise_Add_AVX_Float_M1";
  EXPECT_EQ(kernel->CheckOutputs({good}), counts_inputs ? -2 : 0);
  EXPECT_EQ(kernel->CheckOutputs({good, good}), counts_inputs || counts_nothing ? 0 : -2);
  EXPECT_EQ(kernel->CheckOutputs({good, half}), counts_nothing ? 0 : -2);
}

TEST_P(EveryElementwise, RefusesASecondInputThatIsTooSmall) {
  TestContext context;
  const LogCapture log;
  const auto kernel = configured(row(), 0, context);
  const auto large = context.floats({9}, LayoutType::C, std::vector<float>(9, 1));
  const auto small = context.floats({8}, LayoutType::C, std::vector<float>(8, 1));
  IKernel::Tensors outputs;
  EXPECT_THAT(failure_of([&] {
                kernel->Forward({large, small}, outputs, context);
              }),
              testing::HasSubstr("8 elements"));
  EXPECT_THAT(failure_of([&] { kernel->Forward({large}, outputs, context); }),
              testing::HasSubstr("at least 2 inputs"));
}

TEST_P(EveryElementwise, MayReplaceItsInputs) {
  TestContext context;
  const auto kernel = configured(row(), 0, context);
  IKernel::Tensors tensors{context.floats({3}, LayoutType::C, {1, 2, 3}),
                           context.floats({3}, LayoutType::C, {1, 1, 1})};
  EXPECT_EQ(kernel->Forward(tensors, tensors, context), 0);
  EXPECT_EQ(tensors.size(), 1u);
}

// Those of both sets.
std::vector<const ElementwiseRow*> all_rows() {
  std::vector<const ElementwiseRow*> rows(kernel::elementwise_rows);
#if QRT_WITH_EXTENSIONS
  rows.insert(rows.end(), kernel::rectified_sum_rows.begin(), kernel::rectified_sum_rows.end());
#endif
  return rows;
}

INSTANTIATE_TEST_SUITE_P(Rows, EveryElementwise, testing::ValuesIn(all_rows()),
                         [](const auto& row) { return std::string(row.param->name); });

TEST(RectifiedSum, OfANaNIsZero) {
  constexpr const char* kName = "Elementwise_Add_AVX_Float_ReLU_M1";
  QRT_SKIP_WHERE_MISSING(kName);
  TestContext context;
  const auto kernel = make_kernel(kName);
  const size_t size = 8 + 4;
  std::vector<float> a(size, -1.0f);
  a[0] = a[8] = kNaN;
  a[1] = a[9] = kInfinity;
  a[2] = a[10] = -0.0f;
  const std::vector<float> b(size, -0.0f);
  std::vector<float> expected(size, 0.0f);
  expected[1] = expected[9] = kInfinity;
  EXPECT_TRUE(same_bits(combined(*kernel, a, b, context, false), expected));
}

TEST(RectifiedSum, SaysThatItIsOne) {
  constexpr const char* kName = "Elementwise_Add_AVX_Float_ReLU_M1";
  QRT_SKIP_WHERE_MISSING(kName);
  const auto kernel = make_kernel(kName);
  const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(kernel.get());
  ASSERT_NE(facts, nullptr);
  EXPECT_EQ(facts->epilogue(), "ReLU");
  const auto differences = facts->differences(*operation(0), {});
  ASSERT_EQ(differences.size(), 1u);
  EXPECT_EQ(differences[0].member, "epilogue");
}

TEST(PortableElementwise, TheFirstShapeDrivesTheLoopOverUnequalShapes) {
  TestContext context;
  const auto kernel = configured(kernel::rows::Elementwise_Fallback_Float_M1, 1, context);
  const auto a = context.floats({2, 2}, LayoutType::SC, {5, 6, 7, 8});
  const auto b = context.floats({5}, LayoutType::C, {1, 2, 3, 4, 100});
  EXPECT_EQ(kernel->CheckInputs({a, b}), 0);
  IKernel::Tensors outputs;
  kernel->Forward({a, b}, outputs, context);
  EXPECT_TRUE(outputs[0]->shape == a->shape);
  EXPECT_TRUE(same_bits(values_of(*outputs[0]), {4, 4, 4, 4}));
}

TEST(PortableElementwise, WithoutAnOperatorTheOutputStaysAsItIs) {
  TestContext context;
  const auto kernel = make_kernel("Elementwise_Fallback_Float_M1");
  const auto a = context.floats({2}, LayoutType::C, {5, 6});
  IKernel::Tensors outputs;
  EXPECT_EQ(kernel->Forward({a, a}, outputs, context), 0);
  EXPECT_EQ(bits_of(values_of(*outputs[0])[0]), kFreshBits);
}

// Maxima and minima by lanes differ from those by elements where there is no order.
class UnorderedPairs : public testing::TestWithParam<const ElementwiseRow*> {};

TEST_P(UnorderedPairs, GiveTheSecondInVectorsAndTheFirstInTheTail) {
  const ElementwiseRow& row = *GetParam();
  QRT_SKIP_WHERE_MISSING(row.name);
  TestContext context;
  const auto kernel = make_kernel(row.name);
  const std::pair<float, float> pairs[] = {{kNaN, 1}, {1, kNaN}, {0.0f, -0.0f}, {-0.0f, 0.0f}};
  for (const auto& [a, b] : pairs) {
    for (const size_t blocks : {1u, 4u, 5u}) {
      const size_t in_vectors = blocks * row.block;
      const size_t size = in_vectors + row.block - 1;
      std::vector<float> expected(size, a);
      std::fill_n(expected.begin(), in_vectors, b);
      const auto found = combined(*kernel, std::vector<float>(size, a), std::vector<float>(size, b),
                                  context, false);
      EXPECT_TRUE(same_bits(found, expected)) << a << " and " << b;
    }
  }
}

std::vector<const ElementwiseRow*> extrema() {
  std::vector<const ElementwiseRow*> rows;
  for (const ElementwiseRow* row : kernel::elementwise_rows) {
    const std::string word = row->word == nullptr ? "" : row->word;
    if (word == "Max" || word == "Min") rows.push_back(row);
  }
  return rows;
}

TEST_P(UnorderedPairs, CannotBeConfiguredFromAnyDescription) {
  TestContext context;
  const LogCapture log;
  const auto kernel = make_kernel(GetParam()->name);
  // All the codes that fit into 16 bits, thinned out above the first few.
  for (uint32_t code = 0; code < 65536; code += code < 32 ? 1 : 251) {
    const auto info = operation(static_cast<uint16_t>(code));
    bool accepted = false;
    failure_of([&] { accepted = kernel->Config(info, nullptr, context); });
    ASSERT_FALSE(accepted) << code;
    ASSERT_FALSE(kernel->IsConfigured()) << code;
  }
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(UnorderedPairs);
INSTANTIATE_TEST_SUITE_P(Rows, UnorderedPairs, testing::ValuesIn(extrema()),
                         [](const auto& row) { return std::string(row.param->name); });

#if QRT_WITH_AVX
TEST(AvxSubtraction, TheLastThreeOfEightTimesNPlusThreeAreAsTheRest) {
  QRT_SKIP_WHERE_MISSING("Elementwise_Sub_AVX_Float_M1");
  TestContext context;
  const auto kernel = configured(kernel::rows::Elementwise_Sub_AVX_Float_M1, 1, context);
  const auto result =
      combined(*kernel, std::vector<float>(27, 0.3f), std::vector<float>(27, 0.1f), context, false);
  EXPECT_TRUE(same_bits(result, std::vector<float>(27, 0.3f - 0.1f)));
}
#endif

TEST(ElementwiseFunctions, AgreeWithTheirDefinitions) {
  using namespace kernel::functional;
  using Function = void (*)(const float*, const float*, const unsigned int&, float*);
  const std::pair<const char*, Function> functions[] = {
      {"Add", elementwise_add_f32_m1}, {"Add", elementwise_add_sse_f32},
      {"Mul", elementwise_mul_f32_m1}, {"Mul", elementwise_mul_sse_f32},
      {"Sub", elementwise_sub_f32_m1}, {"Sub", elementwise_sub_sse_f32}};
  Random random(4);
  for (const auto& [word, function] : functions) {
    for (const size_t size : edge_sizes(16)) {
      const auto a = random.uneven_floats(size, 20);
      const auto b = random.uneven_floats(size, 20);
      std::vector<float> expected;
      for (size_t i = 0; i < size; ++i) expected.push_back(exact(word, a[i], b[i]));
      std::vector<float> result(size + 1, 77.0f);
      function(a.data(), b.data(), static_cast<unsigned int>(size), result.data());
      EXPECT_EQ(result.back(), 77.0f);
      result.pop_back();
      EXPECT_TRUE(same_bits(result, expected)) << word << " of " << size;
      std::vector<float> in_place = a;
      function(in_place.data(), b.data(), static_cast<unsigned int>(size), in_place.data());
      EXPECT_TRUE(same_bits(in_place, expected)) << word << " in place";
    }
  }
}

}  // namespace
}  // namespace marlo::test
