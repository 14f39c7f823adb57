#include "qrt_core/kernel/matrix/full_connection.h"

#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <vector>

#include "qrt_core/runtime/model/conv_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// Full connections against their definition and, bit for bit, against the order in which each adds.

namespace marlo::test {
namespace {

using kernel::FullConnectionRow;
using runtime::DataType;
using runtime::FullConnectionInfo;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;
using Floats = std::vector<float>;

struct Data {
  uint32_t ins;
  uint32_t outs;
  Floats weight;
  Floats input;
  Floats bias;  // empty for none
};

template <typename Fill>
Data data_of(uint32_t ins, uint32_t outs, bool bias, Fill fill) {
  return {ins, outs, fill(size_t{ins} * outs), fill(ins), bias ? fill(outs) : Floats()};
}

Data integers(uint32_t ins, uint32_t outs, bool bias) {
  Random random(ins * 100 + outs);
  return data_of(ins, outs, bias, [&random](size_t count) { return random.small_integers(count); });
}

Data uneven(uint32_t ins, uint32_t outs, bool bias) {
  Random random(ins * 100 + outs);
  return data_of(ins, outs, bias,
                 [&random](size_t count) { return random.uneven_floats(count, 8); });
}

std::shared_ptr<FullConnectionInfo> describe(const Data& data) {
  auto info = std::make_shared<FullConnectionInfo>();
  info->in_features = static_cast<uint16_t>(data.ins);
  info->out_features = static_cast<uint16_t>(data.outs);
  info->if_bias = !data.bias.empty();
  info->weight = weight_text(data.weight);
  info->bias = weight_text(data.bias);
  return info;
}

// One configured kernel and its memory.
class Configured {
 public:
  Configured(const FullConnectionRow& row, const Data& data)
      : row_(row), data_(data), kernel_(make_kernel(row.name)) {
    EXPECT_TRUE(kernel_->Config(describe(data), nullptr, context_));
  }

  // The output for the data's input, as row 0 of `rows` where the kernel takes a batch.
  Floats output(uint32_t rows = 1) {
    std::vector<uint32_t> dims = {data_.ins};
    std::vector<uint32_t> out_dims = {data_.outs};
    Floats values = data_.input;
    if (row_.is_batch) {
      dims.insert(dims.begin(), rows);
      out_dims.insert(out_dims.begin(), rows);
      values.resize(size_t{rows} * data_.ins, 1e30f);
    }
    const auto input = context_.external_floats(dims, row_.layout, values);
    EXPECT_EQ(kernel_->CheckInputs({input}), 0);
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel_->Forward({input}, outputs, context_), 0);
    context_.pool().check();
    EXPECT_TRUE(outputs.at(0)->shape == TensorShape(out_dims, DataType::FLOAT32, row_.layout));
    EXPECT_EQ(kernel_->CheckOutputs(outputs), 0);
    EXPECT_TRUE(same_bits(values_of(*input), values)) << "the input changed";
    Floats found = values_of(*outputs[0]);
    found.resize(data_.outs);
    return found;
  }

  IKernel& kernel() { return *kernel_; }
  TestContext& context() { return context_; }

 private:
  const FullConnectionRow& row_;
  const Data data_;
  TestContext context_;
  std::shared_ptr<IKernel> kernel_;
};

std::vector<Sum> definition(const Data& data) {
  std::vector<Sum> sums(data.outs);
  for (uint32_t o = 0; o < data.outs; ++o) {
    if (!data.bias.empty()) sums[o].add(data.bias[o]);
    for (uint32_t i = 0; i < data.ins; ++i) {
      sums[o].add(double{data.weight[size_t{o} * data.ins + i]} * data.input[i]);
    }
  }
  return sums;
}

// The products of one output, each rounded.
Floats products_of(const Data& data, uint32_t o) {
  Floats products(data.ins);
  for (uint32_t i = 0; i < data.ins; ++i) {
    products[i] = data.weight[size_t{o} * data.ins + i] * data.input[i];
  }
  return products;
}

float in_turn(float start, const Floats& p) {
  for (const float product : p) start += product;
  return start;
}

// For each four products (p0 + p1) + (p2 + p3).
float in_pairs(float start, const Floats& p) {
  for (size_t i = 0; i < p.size(); i += 4) start += (p[i] + p[i + 1]) + (p[i + 2] + p[i + 3]);
  return start;
}

// Sums of `lanes` lanes: blocks that fill all of them, then as many as `steps` says, if there are.
struct LaneSums {
  LaneSums(const Floats& p, size_t lanes, size_t sums, std::vector<size_t> steps)
      : sums_(sums, Floats(lanes)) {
    while (p.size() - done_ >= sums * lanes) take(p, sums);
    for (const size_t step : steps) {
      if (p.size() - done_ >= step * lanes) take(p, step);
    }
  }

  float total() const {
    Floats all = sums_[0];
    if (sums_.size() == 4) {
      for (size_t l = 0; l < all.size(); ++l) {
        all[l] = (sums_[3][l] + sums_[2][l]) + (sums_[1][l] + sums_[0][l]);
      }
    }
    float sum = all[0];
    for (size_t l = 1; l < all.size(); ++l) sum += all[l];
    return sum;
  }

  Floats rest(const Floats& p) const {
    return Floats(p.begin() + static_cast<ptrdiff_t>(done_), p.end());
  }

 private:
  void take(const Floats& p, size_t count) {
    for (size_t s = 0; s < count; ++s) {
      for (float& lane : sums_[s]) lane += p[done_++];
    }
  }

  std::vector<Floats> sums_;
  size_t done_ = 0;
};

// What a kernel makes of one output, from its bias or zero.
using Model = float (*)(float start, const Floats& products);

const std::map<std::string, Model>& models() {
  static const std::map<std::string, Model> models = {
      {"FullConnection_Fallback_C_Float_M1", in_turn},
      {"FullConnection_AVX_C_Float_M2", in_turn},
      {"FullConnection_SSE_C44_Float_M1", in_pairs},
      {"FullConnection_AVX_C88_Float_M1", in_pairs},
      {"FullConnection_SSE_C_Float_M1",
       [](float start, const Floats& p) {
         const LaneSums sums(p, 4, 4, {2, 1});
         return start + (sums.total() + in_turn(0.0f, sums.rest(p)));
       }},
      {"FullConnection_AVX_C_Float_M1",
       [](float start, const Floats& p) {
         const LaneSums sums(p, 8, 4, {3, 2, 1});
         return start + (sums.total() + in_turn(0.0f, sums.rest(p)));
       }},
      {"FullConnection_AVX_C_Float_M3",
       [](float start, const Floats& p) {
         const LaneSums sums(p, 8, 1, {});
         Floats rest = sums.rest(p);
         float sum = sums.total();
         if (rest.size() >= 4) {
           sum += ((rest[0] + rest[1]) + rest[2]) + rest[3];
           rest.erase(rest.begin(), rest.begin() + 4);
         }
         return start + in_turn(sum, rest);
       }},
      {"FullConnection_SSE_BC_Float_M1",
       [](float start, const Floats& p) {
         const LaneSums sums(p, 4, 1, {});
         return (sums.total() + in_turn(0.0f, sums.rest(p))) + start;
       }},
  };
  return models;
}

bool accepts(const FullConnectionRow& row, uint32_t ins, uint32_t outs) {
  return row.accepts(ins, outs);
}

class FullConnectionKernel : public testing::TestWithParam<const FullConnectionRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const FullConnectionRow& row() const { return *GetParam(); }
  bool is_refused() const { return row().core == nullptr; }

  // Calls `test` for every number of inputs that ends loops differently, and several of outputs.
  template <typename Test>
  int for_sizes(Test test) {
    int ran = 0;
    std::vector<uint32_t> all_ins(70);
    std::iota(all_ins.begin(), all_ins.end(), 1u);
    // Long rows are read in parts.
    for (const uint32_t ins : {255u, 256u, 272u, 287u, 512u, 536u, 800u}) all_ins.push_back(ins);
    for (const uint32_t ins : all_ins) {
      for (const uint32_t outs : {1u, 2u, 3u, 5u, 8u, 16u, 40u, ins}) {
        if (!accepts(row(), ins, outs)) continue;
        const testing::ScopedTrace trace(
            "", 0, std::to_string(ins) + " inputs, " + std::to_string(outs) + " outputs");
        test(ins, outs);
        ++ran;
      }
    }
    return ran;
  }

  int verdict(uint32_t ins, uint32_t outs) {
    const auto info = std::make_shared<FullConnectionInfo>();
    info->in_features = static_cast<uint16_t>(ins);
    info->out_features = static_cast<uint16_t>(outs);
    return make_kernel(row().name)->CheckConfig(info, nullptr);
  }
};

TEST_P(FullConnectionKernel, AgreesWithTheDefinition) {
  if (is_refused()) GTEST_SKIP() << "a name without a kernel";
  const int ran = for_sizes([this](uint32_t ins, uint32_t outs) {
    const Data exact = integers(ins, outs, ins % 3 != 0);
    EXPECT_TRUE(exactly(Configured(row(), exact).output(), definition(exact)));
    const Data rounded = uneven(ins, outs, ins % 3 != 0);
    EXPECT_TRUE(within_bounds(Configured(row(), rounded).output(), definition(rounded)));
  });
  EXPECT_GT(ran, 10);
}

TEST_P(FullConnectionKernel, AddsInItsOrder) {
  const auto model = models().find(row().name);
  if (model == models().end()) GTEST_SKIP() << "its order is free";
  for_sizes([&](uint32_t ins, uint32_t outs) {
    const Data data = uneven(ins, outs, outs % 2 == 0);
    Floats expected(outs);
    for (uint32_t o = 0; o < outs; ++o) {
      expected[o] = model->second(data.bias.empty() ? 0.0f : data.bias[o], products_of(data, o));
    }
    EXPECT_TRUE(same_bits(Configured(row(), data).output(), expected));
  });
}

TEST_P(FullConnectionKernel, GivesTheSameAgainAndForgetsAnEarlierBias) {
  if (is_refused()) GTEST_SKIP() << "a name without a kernel";
  const Data with = integers(16, 16, true);
  Data without = with;
  without.bias.clear();
  Configured configured(row(), with);
  const Floats first = configured.output();
  EXPECT_TRUE(same_bits(configured.output(), first));
  ASSERT_TRUE(configured.kernel().Config(describe(without), nullptr, configured.context()));
  EXPECT_TRUE(exactly(configured.output(), definition(without)));
}

TEST_P(FullConnectionKernel, ChecksItsConfiguration) {
  const auto kernel = make_kernel(row().name);
  const auto info = describe(integers(16, 16, true));
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::Conv2dInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(info, std::make_shared<runtime::InferenceParam>()), -1);
  EXPECT_EQ(kernel->CheckConfig(info, nullptr), is_refused() ? -1 : 0);
  EXPECT_EQ(verdict(0, 16), -1);
  EXPECT_EQ(verdict(16, 0), -1);
}

TEST_P(FullConnectionKernel, RefusesTooFewWeights) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  Data data = integers(16, 16, true);
  data.weight.pop_back();
  EXPECT_FALSE(kernel->Config(describe(data), nullptr, context));
  data = integers(16, 16, true);
  data.bias.pop_back();
  EXPECT_FALSE(kernel->Config(describe(data), nullptr, context));
  EXPECT_FALSE(kernel->IsConfigured());
}

// Layout 24 is that of a vector; the members that take any give it all the same.
TEST_P(FullConnectionKernel, InfersAVector) {
  if (is_refused()) GTEST_SKIP() << "a name without a kernel";
  Configured configured(row(), integers(16, 16, true));
  const auto shapes = configured.kernel().InferOutputShapes(
      {TensorShape({3, 16}, DataType::FLOAT32, LayoutType::FLEXIABLE)});
  ASSERT_EQ(shapes.size(), 1u);
  const std::vector<uint32_t> dims =
      row().is_batch ? std::vector<uint32_t>{3, 16} : std::vector<uint32_t>{16};
  EXPECT_TRUE(shapes[0] == TensorShape(dims, DataType::FLOAT32,
                                       row().is_batch ? LayoutType::BC : LayoutType::C));
}

// A reshape or a permutation in front gives a layout and dims of its own.
TEST_P(FullConnectionKernel, ReadsItsNumbersWhateverTheirDimsAndLayoutAreCalled) {
  if (is_refused() || row().is_batch) GTEST_SKIP() << "a name without a kernel, or one of rows";
  Configured configured(row(), integers(16, 16, true));
  Floats numbers(16);
  for (size_t i = 0; i < numbers.size(); ++i) numbers[i] = static_cast<float>(i) - 7.0f;
  const auto result = [&](std::vector<uint32_t> dims, LayoutType layout) {
    IKernel::Tensors outputs;
    configured.kernel().Forward({configured.context().floats(dims, layout, numbers)}, outputs,
                                configured.context());
    return values_of(*outputs.at(0));
  };
  const Floats expected = result({16}, row().layout);
  EXPECT_EQ(result({16}, LayoutType::FLEXIABLE), expected);
  EXPECT_EQ(result({16, 1, 1}, LayoutType::CHW), expected);
  EXPECT_EQ(result({1, 16}, LayoutType::SC), expected);
}

TEST_P(FullConnectionKernel, ChecksTensorsAndRefusesToReadOthers) {
  if (is_refused()) GTEST_SKIP() << "a name without a kernel";
  Configured configured(row(), integers(16, 16, true));
  const auto tensor = [&](std::vector<uint32_t> dims, LayoutType layout, DataType type) {
    return IKernel::Tensors{
        configured.context().device()->CreateTensor(TensorShape(dims, type, layout), nullptr)};
  };
  const auto fails = [&](const IKernel::Tensors& inputs) {
    IKernel::Tensors outputs;
    return !failure_of([&] {
              configured.kernel().Forward(inputs, outputs, configured.context());
            }).empty();
  };
  const auto expect = [&](const IKernel::Tensors& tensors, bool passes, bool runs) {
    EXPECT_EQ(configured.kernel().CheckInputs(tensors), passes ? 0 : -2);
    EXPECT_EQ(configured.kernel().CheckOutputs(tensors), passes ? 0 : -2);
    EXPECT_EQ(fails(tensors), !runs);
  };
  const auto vector = [&](uint32_t features) {
    return row().is_batch ? std::vector<uint32_t>{2, features} : std::vector<uint32_t>{features};
  };
  // A pass refuses what it can't read; what its checks refuse as well may still hold the numbers.
  const bool one_vector = !row().is_batch;
  expect(tensor(vector(16), row().layout, DataType::FLOAT32), true, true);
  expect(tensor(vector(16), LayoutType::FLEXIABLE, DataType::FLOAT32), row().takes_any_layout,
         one_vector);
  expect(tensor(vector(15), row().layout, DataType::FLOAT32), false, false);
  expect(tensor(vector(17), row().layout, DataType::FLOAT32), false, one_vector);
  expect(tensor(vector(16), row().layout, DataType::FLOAT16), false, false);
  expect({}, false, false);
  IKernel::Tensors two = tensor(vector(16), row().layout, DataType::FLOAT32);
  two.push_back(two[0]);
  EXPECT_EQ(configured.kernel().CheckInputs(two), -2);
}

INSTANTIATE_TEST_SUITE_P(Rows, FullConnectionKernel,
                         testing::ValuesIn(kernel::full_connection_rows),
                         [](const auto& test) { return test.param->name; });

#if QRT_WITH_SSE || QRT_WITH_AVX

const FullConnectionRow* find_row(const std::string& name) {
  for (const FullConnectionRow* row : kernel::full_connection_rows) {
    if (row->name == name) return row;
  }
  return nullptr;
}

bool row_accepts(const std::string& name, uint32_t ins, uint32_t outs) {
  const FullConnectionRow* row = find_row(name);
  return row != nullptr && row->accepts(ins, outs);
}

#endif

#if QRT_WITH_SSE

// Its loops exchange the two counts, which is right only where they are equal.
TEST(FullConnectionC44, IsRefusedUnlessBothCountsAreEqual) {
  EXPECT_FALSE(row_accepts("FullConnection_SSE_C44_Float_M1", 16, 8));
  EXPECT_FALSE(row_accepts("FullConnection_SSE_C44_Float_M1", 8, 16));
  EXPECT_FALSE(row_accepts("FullConnection_SSE_C44_Float_M1", 6, 6));
  EXPECT_TRUE(row_accepts("FullConnection_SSE_C44_Float_M1", 12, 12));
}

TEST(FullConnectionBatch, ComputesRowZeroAlone) {
  const auto& row = kernel::rows::FullConnection_SSE_BC_Float_M1;
  const Data data = integers(13, 7, true);
  EXPECT_TRUE(exactly(Configured(row, data).output(3), definition(data)));
}

TEST(FullConnectionSse, TakesThreeInputsInItsScalarTail) {
  const auto& row = kernel::rows::FullConnection_SSE_C_Float_M1;
  const Data data = uneven(3, 4, false);
  Floats expected;
  for (uint32_t o = 0; o < 4; ++o) expected.push_back(in_turn(0.0f, products_of(data, o)));
  EXPECT_TRUE(same_bits(Configured(row, data).output(), expected));
}

// What they store and what they compute don't fit together, so no size is accepted.
TEST(FullConnectionInBlocks, IsRefused) {
  for (uint32_t ins = 1; ins <= 64; ++ins) {
    for (uint32_t outs = 1; outs <= 64; ++outs) {
      EXPECT_FALSE(row_accepts("FullConnection_SSE_C4HW4_Float_M1", ins, outs));
      EXPECT_FALSE(row_accepts("FullConnection_AVX_C8HW8_Float_M1", ins, outs));
    }
  }
  TestContext context;
  const auto kernel = make_kernel("FullConnection_SSE_C4HW4_Float_M1");
  EXPECT_FALSE(kernel->Config(describe(integers(4, 1, true)), nullptr, context));
  IKernel::Tensors outputs;
  const auto input = context.floats({4}, LayoutType::FLEXIABLE, Floats(4));
  EXPECT_NE(failure_of([&] { kernel->Forward({input}, outputs, context); }), "");
}

#endif

#if QRT_WITH_AVX

TEST(FullConnectionInBlocksOf8, WantsWholeBlocks) {
  for (const char* name : {"FullConnection_AVX_C_Float_M2", "FullConnection_AVX_C88_Float_M1"}) {
    EXPECT_TRUE(row_accepts(name, 8, 16));
    EXPECT_TRUE(row_accepts(name, 16, 8));
    EXPECT_FALSE(row_accepts(name, 12, 16));
    EXPECT_FALSE(row_accepts(name, 16, 12));
  }
}

#endif

}  // namespace
}  // namespace marlo::test
