#include <gtest/gtest.h>

#include "qrt_core/kernel/recurrent/recurrent.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "tests/support/compare.h"
#include "tests/support/counting_pool.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/recurrent_case.h"
#include "tests/support/test_context.h"

// What recurrent kernels accept and refuse, and where their state is.

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorShape;
using Floats = std::vector<float>;
using Info = std::shared_ptr<runtime::RecurrentInfo>;

bool is_cell(const std::string& name) { return name.find("Cell") != std::string::npos; }

std::vector<std::string> all_names() {
  std::vector<std::string> names;
  for (const auto* row : kernel::recurrent_cell_rows) names.emplace_back(row->name);
  for (const auto* row : kernel::recurrent_sequence_rows) names.emplace_back(row->name);
  return names;
}

std::vector<std::string> chosen(bool cells) {
  std::vector<std::string> names;
  for (const std::string& name : all_names()) {
    if (is_cell(name) == cells) names.push_back(name);
  }
  return names;
}

// One kernel, and a small layer that it takes: 3 inputs, 5 hidden.
class Recurrent : public testing::TestWithParam<std::string> {
 protected:
  Recurrent() {
    layer_.network = network_of(GetParam());
    layer_.ins = 3;
    layer_.hidden = 5;
    layer_.steps = is_cell(GetParam()) ? 1 : 4;
    layer_.fill(11);
  }

  Info describe() const { return describe(layer_); }

  static Info describe(const RecurrentCase& layer) {
    return is_cell(GetParam()) ? cell_description(layer) : sequence_description(layer);
  }

  std::shared_ptr<runtime::TensorCPU> input() {
    if (is_cell(GetParam())) return context_.floats({3}, LayoutType::C, layer_.input);
    return context_.floats({layer_.steps, 3}, LayoutType::SC, layer_.input);
  }

  Floats run(IKernel& kernel) {
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel.Forward({input()}, outputs, context_), 0);
    return values_of(*outputs.at(0));
  }

  std::shared_ptr<IKernel> configured() {
    auto kernel = make_kernel(GetParam());
    EXPECT_TRUE(kernel->Config(describe(), nullptr, context_));
    return kernel;
  }

  std::string failure(IKernel& kernel, const std::shared_ptr<runtime::Tensor>& tensor) {
    IKernel::Tensors outputs;
    return failure_of([&] { kernel.Forward({tensor}, outputs, context_); });
  }

  // Whether `CheckConfig` gives a code and `Config` the verdict that goes with it.
  void expect_code(const Info& info, int code) {
    const auto kernel = make_kernel(GetParam());
    EXPECT_EQ(kernel->CheckConfig(info, nullptr), code);
    EXPECT_EQ(kernel->Config(info, nullptr, context_), code == 0);
    EXPECT_EQ(kernel->IsConfigured(), code == 0);
  }

  TestContext context_;
  RecurrentCase layer_;
  LogCapture log_;
};

class RecurrentCells : public Recurrent {};
class RecurrentSequences : public Recurrent {};

const auto kByName = [](const auto& test) { return test.param; };
INSTANTIATE_TEST_SUITE_P(All, Recurrent, testing::ValuesIn(all_names()), kByName);
INSTANTIATE_TEST_SUITE_P(All, RecurrentCells, testing::ValuesIn(chosen(true)), kByName);
INSTANTIATE_TEST_SUITE_P(All, RecurrentSequences, testing::ValuesIn(chosen(false)), kByName);

TEST_P(Recurrent, HasACodeForEachRefusal) {
  expect_code(describe(), 0);
  expect_code(nullptr, -2);

  const auto param = std::make_shared<runtime::InferenceParam>();
  const auto kernel = make_kernel(GetParam());
  EXPECT_EQ(kernel->CheckConfig(describe(), param), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, param), -1);
  EXPECT_FALSE(kernel->Config(describe(), param, context_));

  Info info = describe();
  info->in_size = 0;
  expect_code(info, -3);
  info->hidden_size = 0;
  expect_code(info, -3);
  info->in_size = 3;
  expect_code(info, -4);

  for (const Network other : {Network::rnn, Network::lstm, Network::gru}) {
    RecurrentCase layer = layer_;
    layer.network = other;
    layer.fill(1);
    const Info cell = cell_description(layer);
    const Info sequence = sequence_description(layer);
    const bool same = other == network_of(GetParam());
    expect_code(cell, same && is_cell(GetParam()) ? 0 : -2);
    expect_code(sequence, same && !is_cell(GetParam()) ? 0 : -2);
  }
}

TEST_P(Recurrent, HasACodeForOtherActivations) {
  if (layer_.network != Network::rnn) return;  // there is none to choose
  for (int type = 0; type < 9; ++type) {
    layer_.activation = static_cast<uint16_t>(type);
    const bool known = type == 2 || type == 5;
    expect_code(describe(), known ? 0 : is_cell(GetParam()) ? -5 : -6);
  }
}

TEST_P(RecurrentSequences, HaveACodeForNoLayers) {
  layer_.layers = 0;
  expect_code(describe(), -5);
  layer_.activation = 1;
  expect_code(describe(), -5);
}

TEST_P(RecurrentCells, RefuseShortWeights) {
  for (Floats CellData::*list :
       {&CellData::weight_ih, &CellData::weight_hh, &CellData::bias_ih, &CellData::bias_hh}) {
    RecurrentCase layer = layer_;
    (layer.cells[0].*list).pop_back();
    const auto kernel = make_kernel(GetParam());
    EXPECT_EQ(kernel->CheckConfig(describe(layer), nullptr), 0);
    EXPECT_FALSE(kernel->Config(describe(layer), nullptr, context_));
    EXPECT_NE(failure(*kernel, input()).find("not configured"), std::string::npos);
  }
}

TEST_P(RecurrentSequences, RefuseShortWeightsOfAnyLayerAndDirection) {
  layer_.layers = 2;
  layer_.bidirectional = true;
  layer_.fill(3);
  for (size_t i = 0; i < layer_.cells.size(); ++i) {
    for (Floats CellData::*list :
         {&CellData::weight_ih, &CellData::weight_hh, &CellData::bias_ih, &CellData::bias_hh}) {
      RecurrentCase layer = layer_;
      (layer.cells[i].*list).pop_back();
      const auto kernel = make_kernel(GetParam());
      EXPECT_FALSE(kernel->Config(describe(layer), nullptr, context_));
      EXPECT_NE(failure(*kernel, input()).find("not configured"), std::string::npos);
    }
  }
}

TEST_P(RecurrentSequences, RefuseListsThatAreShorterThanTheLayers) {
  for (const bool bidirectional : {false, true}) {
    layer_.layers = 2;
    layer_.bidirectional = bidirectional;
    layer_.fill(3);
    for (const uint16_t layers : {uint16_t{3}, uint16_t{65535}}) {
      const Info info = describe();
      dynamic_cast<runtime::RecurrentSequenceWeights&>(*info).num_layers = layers;
      EXPECT_FALSE(make_kernel(GetParam())->Config(info, nullptr, context_));
    }
    const Info one = describe();
    dynamic_cast<runtime::RecurrentSequenceWeights&>(*one).bias_hh_forward.pop_back();
    EXPECT_TRUE(make_kernel(GetParam())->Config(one, nullptr, context_)) << "it has no bias";
    one->if_bias = false;
    EXPECT_TRUE(make_kernel(GetParam())->Config(one, nullptr, context_));
  }
  layer_.bidirectional = false;
  layer_.fill(3);
  const Info without_reverse = describe();
  dynamic_cast<runtime::RecurrentSequenceWeights&>(*without_reverse).bidirectional = true;
  EXPECT_FALSE(make_kernel(GetParam())->Config(without_reverse, nullptr, context_));
}

// The sizes of a file say 65535; its weights don't.
TEST_P(Recurrent, TakesNoMemoryForSizesWithoutWeights) {
  const Info info = describe();
  info->in_size = info->hidden_size = 65535;
  EXPECT_FALSE(make_kernel(GetParam())->Config(info, nullptr, context_));
  EXPECT_EQ(context_.pool().TotalBytes(), 0u);
}

TEST_P(Recurrent, StartsFreshAfterASecondConfig) {
  const auto kernel = configured();
  const Floats first = run(*kernel);
  run(*kernel);
  RecurrentCase larger = layer_;
  larger.hidden = 21;
  larger.bias = false;
  larger.fill(5);
  EXPECT_TRUE(kernel->Config(describe(larger), nullptr, context_));
  EXPECT_EQ(run(*kernel).size(), larger.hidden * layer_.steps);
  EXPECT_FALSE(kernel->Config(describe(), std::make_shared<runtime::InferenceParam>(), context_));
  EXPECT_FALSE(kernel->IsConfigured());
  EXPECT_TRUE(kernel->Config(describe(), nullptr, context_));
  EXPECT_TRUE(same_bits(run(*kernel), first));
}

TEST_P(Recurrent, RefusesToRunUnconfiguredOrWithoutADevice) {
  EXPECT_NE(failure(*make_kernel(GetParam()), input()).find("not configured"), std::string::npos);
  const auto kernel = configured();
  IKernel::Tensors outputs;
  EXPECT_NE(failure_of([&] { kernel->Forward({input()}, outputs, nullptr); }).find("no CPU device"),
            std::string::npos);
  EXPECT_TRUE(outputs.empty());
  EXPECT_FALSE(make_kernel(GetParam())->Config(describe(), nullptr, nullptr));
}

TEST_P(Recurrent, TakesOneFloatTensorOfItsWidth) {
  const auto kernel = configured();
  const auto good = input();
  EXPECT_EQ(kernel->CheckInputs({good}), 0);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckInputs({nullptr}), -2);
  EXPECT_EQ(kernel->CheckInputs({good, good}), -2);
  const auto expect_refused = [&](const TensorShape& shape) {
    const auto tensor = context_.device()->CreateTensor(shape, nullptr);
    EXPECT_EQ(kernel->CheckInputs({tensor}), -2);
    EXPECT_NE(failure(*kernel, tensor), "");
  };
  TensorShape shape = good->shape;
  shape.data_type = DataType::FLOAT16;
  expect_refused(shape);
  shape.data_type = DataType::INT32;
  expect_refused(shape);
  shape = good->shape;
  shape.location = static_cast<LocationType>(0x20001);
  expect_refused(shape);
  for (const uint32_t width : {0u, 2u}) {
    shape = good->shape;
    shape.dims.back() = width;
    expect_refused(shape);
  }
  shape.dims.back() = 4;
  EXPECT_EQ(kernel->CheckInputs({context_.device()->CreateTensor(shape, nullptr)}), -2);
  shape = good->shape;
  shape.dims.clear();
  expect_refused(shape);
  EXPECT_NE(failure(*kernel, nullptr), "");
  // The width is right, and there is nothing to read.
  shape = good->shape;
  shape.dims.push_back(0);
  EXPECT_NE(failure(*kernel, context_.device()->CreateTensor(shape, nullptr)), "");
  EXPECT_TRUE(same_bits(run(*kernel), run(*configured()))) << "a refusal changed the state";
}

TEST_P(Recurrent, ChecksOutputsByWidthAndLayout) {
  const auto kernel = configured();
  IKernel::Tensors outputs;
  kernel->Forward({input()}, outputs, context_);
  EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
  EXPECT_EQ(kernel->CheckOutputs({}), -2);
  EXPECT_EQ(kernel->CheckOutputs({outputs[0], outputs[0]}), -2);
  EXPECT_EQ(kernel->CheckOutputs({input()}), -2);
  TensorShape shape = outputs[0]->shape;
  shape.layout = LayoutType::FLEXIABLE;
  EXPECT_EQ(kernel->CheckOutputs({context_.device()->CreateTensor(shape, nullptr)}), -2);
}

TEST_P(RecurrentCells, CheckForVectorsOfLayoutCAndRunWithAnyOther) {
  const auto kernel = configured();
  const Floats expected = run(*kernel);
  for (const auto& dims : {std::vector<uint32_t>{3}, {3, 1, 1}, {1, 3}}) {
    kernel->ResetState();
    const auto other = context_.floats(dims, LayoutType::FLEXIABLE, layer_.input);
    EXPECT_EQ(kernel->CheckInputs({other}), -2);
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel->Forward({other}, outputs, context_), 0);
    EXPECT_TRUE(same_bits(values_of(*outputs.at(0)), expected));
  }
  const auto small = context_.floats({2}, LayoutType::C, {1, 2});
  EXPECT_NE(failure(*kernel, small).find("vector of 3 elements"), std::string::npos);
}

// What a description says of a bias and doesn't bring is no bias.
TEST_P(Recurrent, RunsWithoutABiasThatIsNotThere) {
  RecurrentCase without = layer_;
  for (CellData& cell : without.cells) cell.bias_ih.clear();
  const Info missing = describe(without);
  missing->if_bias = true;
  const Info none = describe(layer_);
  none->if_bias = false;
  const auto result = [&](const Info& info) {
    const auto kernel = make_kernel(GetParam());
    EXPECT_TRUE(kernel->Config(info, nullptr, context_));
    return run(*kernel);
  };
  EXPECT_TRUE(same_bits(result(missing), result(none)));
}

TEST_P(RecurrentSequences, TakeAnyLayout) {
  const auto kernel = configured();
  const Floats expected = run(*kernel);
  for (const LayoutType layout : {LayoutType::CHW, LayoutType::BC, LayoutType::FLEXIABLE}) {
    kernel->ResetState();
    const auto tensor = context_.floats({4, 3}, layout, layer_.input);
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel->CheckInputs({tensor}), 0);
    EXPECT_EQ(kernel->Forward({tensor}, outputs, context_), 0);
    EXPECT_TRUE(same_bits(values_of(*outputs.at(0)), expected));
  }
}

TEST_P(RecurrentCells, HandOutTheirStateItself) {
  const auto kernel = configured();
  IKernel::Tensors outputs = {nullptr, input()};
  kernel->Forward({input()}, outputs, context_);
  ASSERT_EQ(outputs.size(), 1u) << "what was in the vector is replaced";
  const auto first = outputs[0];
  const Floats once = values_of(*first);
  kernel->Forward({input()}, outputs, context_);
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_NE(outputs[0], first) << "each step has a new tensor";
  EXPECT_TRUE(same_bits(values_of(*first), once)) << "the last one stays as it was";

  // The bytes of the output are the state: zeroing one zeroes the other.
  const auto last = outputs[0];
  EXPECT_EQ(kernel->ResetState(), 0);
  EXPECT_EQ(values_of(*last), Floats(layer_.hidden));

  // And what is written to it is what the next step starts from.
  if (layer_.network == Network::lstm) return;  // its cell state isn't to be had
  std::copy(once.begin(), once.end(), static_cast<float*>(last->handle.cpu));
  const auto fresh = configured();
  run(*fresh);
  EXPECT_TRUE(same_bits(run(*kernel), run(*fresh)));
}

TEST_P(RecurrentSequences, AppendANewOutput) {
  const auto kernel = configured();
  IKernel::Tensors outputs = {nullptr};
  kernel->Forward({input()}, outputs, context_);
  ASSERT_EQ(outputs.size(), 2u);
  const Floats first = values_of(*outputs[1]);
  kernel->Forward({input()}, outputs, context_);
  ASSERT_EQ(outputs.size(), 3u);
  EXPECT_TRUE(same_bits(values_of(*outputs[1]), first));
}

TEST_P(RecurrentSequences, NoStepsChangeNothing) {
  for (const bool bidirectional : {false, true}) {
    layer_.bidirectional = bidirectional;
    layer_.layers = 2;
    layer_.fill(2);
    const auto kernel = configured();
    const auto plain = configured();
    const auto empty = context_.floats({0, 3}, LayoutType::SC, {});
    for (int i = 0; i < 2; ++i) {
      IKernel::Tensors outputs;
      EXPECT_EQ(kernel->Forward({empty}, outputs, context_), 0);
      EXPECT_EQ(outputs.at(0)->shape.dims, (std::vector<uint32_t>{0, bidirectional ? 10u : 5u}));
      EXPECT_TRUE(same_bits(run(*kernel), run(*plain)));
    }
  }
}

// With one direction the type has no effect. With two, the layers above the first are as wide as
// one direction, and there is no pass for them.
TEST_P(RecurrentSequences, ComplexTypesRunInOneDirectionOnly) {
  layer_.layers = 2;
  layer_.fill(6);
  const Floats expected = run(*configured());
  for (const uint16_t type : {uint16_t{1}, uint16_t{2}, uint16_t{65535}}) {
    layer_.complex_type = type;
    EXPECT_TRUE(same_bits(run(*configured()), expected));

    RecurrentCase both = layer_;
    both.bidirectional = true;
    both.fill(6);
    for (size_t cell = 2; cell < both.cells.size(); ++cell) {
      both.cells[cell].weight_ih.resize(size_t{gates_of(both.network)} * 5 * 5);
    }
    const auto kernel = make_kernel(GetParam());
    EXPECT_TRUE(kernel->Config(describe(both), nullptr, context_));
    EXPECT_NE(failure(*kernel, input()).find("Not Implemented."), std::string::npos);
    both.complex_type = 0;
    EXPECT_FALSE(make_kernel(GetParam())->Config(describe(both), nullptr, context_));
  }
}

// Whichever allocation fails, the pass has not happened.
TEST_P(Recurrent, AFailedPassLeavesTheState) {
  for (const bool bidirectional : {false, true}) {
    if (bidirectional && is_cell(GetParam())) continue;
    layer_.bidirectional = bidirectional;
    layer_.layers = is_cell(GetParam()) ? 1 : 3;
    layer_.fill(8);
    const auto plain = configured();
    const std::vector<Floats> expected = {run(*plain), run(*plain)};
    for (const int passes_before : {0, 1}) {
      bool ran = false;
      for (size_t call = 1; !ran; ++call) {
        const auto kernel = configured();
        if (passes_before == 1) run(*kernel);
        const auto tensor = input();
        IKernel::Tensors outputs = {nullptr};
        context_.pool().fail_at(call);
        try {
          kernel->Forward({tensor}, outputs, context_);
          ran = true;
        } catch (const std::bad_alloc&) {
          EXPECT_EQ(outputs, IKernel::Tensors{nullptr});
          EXPECT_TRUE(same_bits(run(*kernel), expected[static_cast<size_t>(passes_before)]))
              << "allocation " << call;
        }
        context_.pool().fail_at(0);
        ASSERT_LT(call, 10u);
      }
    }
  }
}

TEST_P(Recurrent, RunsOnTensorsOfAPassAndKeepsItsStateBeyondIt) {
  const auto expected_kernel = configured();
  CountingContext context;
  auto kernel = make_kernel(GetParam());
  ASSERT_TRUE(kernel->Config(describe(), nullptr, context.context));
  for (int i = 0; i < 3; ++i) {
    context.device().dynamic_mode = true;
    IKernel::Tensors outputs;
    kernel->Forward({input()}, outputs, context.context);
    EXPECT_TRUE(same_bits(values_of(*outputs.at(0)), run(*expected_kernel)));
    context.device().dynamic_mode = false;
    outputs.clear();
    context.device().dynamic_pool->ReleaseFreeBlocks();
  }
  kernel = nullptr;
  EXPECT_EQ(context.dynamic_pool->blocks_in_use(), 0u);
  EXPECT_EQ(context.static_pool->blocks_in_use(), 0u);
}

}  // namespace
}  // namespace marlo::test
