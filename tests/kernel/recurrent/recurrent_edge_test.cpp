#include <gtest/gtest.h>

#include <cmath>

#include "qrt_core/kernel/basic/elementwise_functions.h"
#include "qrt_core/kernel/recurrent/recurrent.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/recurrent_case.h"
#include "tests/support/test_context.h"

// Single properties of the steps: order of sums, NaNs, and the gates.

namespace marlo::test {
namespace {

using runtime::IKernel;
using runtime::LayoutType;
using Floats = std::vector<float>;

std::vector<std::string> cells_of(Network network) {
  std::vector<std::string> names;
  for (const auto* row : kernel::recurrent_cell_rows) {
    if (network_of(row->name) == network) names.emplace_back(row->name);
  }
  return names;
}

// By the C library, as kernels compute it: a compiler's constant may differ in the last bit.
float tanh_of(float x) {
  volatile float argument = x;
  return std::tanh(argument);
}

// The outputs of a kernel that takes vectors, for one vector after the other.
std::vector<Floats> run_kernel(const std::string& name,
                               const std::shared_ptr<runtime::LayerInfo>& info,
                               const std::vector<Floats>& vectors) {
  TestContext context;
  const auto kernel = make_kernel(name);
  EXPECT_TRUE(kernel->Config(info, nullptr, context)) << name;
  std::vector<Floats> found;
  for (const Floats& x : vectors) {
    IKernel::Tensors outputs;
    const auto input = context.floats({static_cast<uint32_t>(x.size())}, LayoutType::C, x);
    EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
    found.push_back(values_of(*outputs.at(0)));
  }
  return found;
}

// weight * x + bias by the full connection of an instruction set, whose order of summation has
// tests of its own.
Floats connected(const std::string& kernel, const Floats& weight, const Floats& bias,
                 const Floats& x) {
  auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->in_features = static_cast<uint16_t>(x.size());
  info->out_features = static_cast<uint16_t>(weight.size() / x.size());
  info->if_bias = !bias.empty();
  info->weight = weight_text(weight);
  info->bias = weight_text(bias);
  return run_kernel(kernel, info, {x})[0];
}

// Three steps of the RNN with tanh, as tanh(a + b) of full connections.
void expect_full_connections(const std::string& cell, const std::string& full_connection) {
  for (const uint32_t ins : {1u, 3u, 4u, 7u, 8u, 12u, 15u, 16u, 17u, 29u, 33u}) {
    for (const bool bias : {true, false}) {
      SCOPED_TRACE(cell + " of " + std::to_string(ins));
      RecurrentCase layer;
      layer.network = Network::rnn;
      layer.ins = ins;
      layer.hidden = 34 - ins;
      layer.bias = bias;
      layer.fill(ins);
      Random random(ins);
      const CellData& weights = layer.cells[0];
      const std::vector<Floats> vectors = {random.uneven_floats(ins, 6), random.floats(ins),
                                           random.floats(ins)};
      const auto found = run_kernel(cell, cell_description(layer), vectors);
      Floats h(layer.hidden, 0.0f);
      for (size_t t = 0; t < vectors.size(); ++t) {
        const Floats a = connected(full_connection, weights.weight_ih, weights.bias_ih, vectors[t]);
        const Floats b = connected(full_connection, weights.weight_hh, weights.bias_hh, h);
        for (size_t j = 0; j < h.size(); ++j) h[j] = tanh_of(a[j] + b[j]);
        ASSERT_TRUE(same_bits(found[t], h)) << "step " << t;
      }
    }
  }
}

TEST(RecurrentProducts, SumInRisingOrderInPortableCode) {
  expect_full_connections("RNNCell_Fallback_C_F32_M1", "FullConnection_Fallback_C_Float_M1");
}

#if QRT_WITH_SSE
TEST(RecurrentProducts, SumInFourVectorsWithSse) {
  expect_full_connections("RNNCell_SSE_C_F32_M1", "FullConnection_SSE_C_Float_M1");
}

TEST(RecurrentVectors, AreTheSameInPortableCodeAndWithSse) {
  using namespace kernel::functional;
  using Function = decltype(&elementwise_add_f32_m1);
  const std::pair<Function, Function> pairs[] = {{elementwise_add_f32_m1, elementwise_add_sse_f32},
                                                 {elementwise_sub_f32_m1, elementwise_sub_sse_f32},
                                                 {elementwise_mul_f32_m1, elementwise_mul_sse_f32}};
  Random random(5);
  for (unsigned int count = 0; count <= 70; ++count) {
    Floats a = random.uneven_floats(count, 40);
    Floats b = random.uneven_floats(count, 40);
    if (count > 3) a[count - 1] = kInfinity, b[count - 2] = kNaN, a[count - 3] = kLeastDenormal;
    for (const auto& [portable, sse] : pairs) {
      Floats x(count);
      Floats y(count);
      portable(a.data(), b.data(), count, x.data());
      sse(a.data(), b.data(), count, y.data());
      EXPECT_TRUE(same_bits(y, x)) << count;
      Floats in_place = a;  // as the steps use them
      sse(in_place.data(), b.data(), count, in_place.data());
      EXPECT_TRUE(same_bits(in_place, x)) << count;
    }
  }
}
#endif

#if QRT_WITH_SSE && QRT_WITH_SGEMM
// M1 and M2 differ in the vector operations only, which give the same floats.
TEST(RecurrentVectors, MakeNoDifferenceToTheGruOfABlas) {
  RecurrentCase layer;
  layer.network = Network::gru;
  layer.ins = 21;
  layer.hidden = 35;
  layer.fill(4);
  Random random(9);
  const std::vector<Floats> vectors = {random.floats(21), random.floats(21), random.floats(21)};
  const auto info = cell_description(layer);
  EXPECT_EQ(run_kernel("GRUCell_SGEMM_C_F32_M1", info, vectors),
            run_kernel("GRUCell_SSE_SGEMM_C_F32_M2", info, vectors));
}
#endif

TEST(RecurrentRectifier, GivesZeroForNaN) {
  RecurrentCase layer;
  layer.network = Network::rnn;
  layer.activation = 2;
  layer.ins = 1;
  layer.hidden = 2;
  layer.bias = false;
  layer.cells = {{{1.0f, -1.0f}, {0.0f, 0.0f, 0.0f, 0.0f}, {}, {}}};
  for (const std::string& name : cells_of(Network::rnn)) {
    const auto found =
        run_kernel(name, cell_description(layer), {{kNaN}, {3.0f}, {-3.0f}, {kInfinity}});
    EXPECT_EQ(found[0], (Floats{0.0f, 0.0f})) << name;
    EXPECT_EQ(found[1], (Floats{3.0f, 0.0f})) << name;
    EXPECT_EQ(found[2], (Floats{0.0f, 3.0f})) << name;
    EXPECT_EQ(found[3], (Floats{kInfinity, 0.0f})) << name;
  }
}

TEST(RecurrentTanh, KeepsNaN) {
  RecurrentCase layer;
  layer.network = Network::rnn;
  layer.ins = 1;
  layer.hidden = 1;
  layer.bias = false;
  layer.cells = {{{1.0f}, {1.0f}, {}, {}}};
  for (const std::string& name : cells_of(Network::rnn)) {
    const auto found = run_kernel(name, cell_description(layer), {{kInfinity}, {kNaN}, {0.0f}});
    EXPECT_EQ(found[0], Floats{1.0f}) << name;
    EXPECT_TRUE(std::isnan(found[1][0])) << name;
    EXPECT_TRUE(std::isnan(found[2][0])) << name << ": the state is a NaN until it is reset";
  }
}

// A reset gate of 0 takes the hidden bias of the new gate along, one of 1 leaves it whole.
TEST(GruReset, ScalesTheHiddenBias) {
  RecurrentCase layer;
  layer.network = Network::gru;
  layer.ins = 1;
  layer.hidden = 1;
  for (const std::string& name : cells_of(Network::gru)) {
    for (const float reset : {-200.0f, 200.0f}) {
      // r is 0 or 1, z is 0, so h' = n.
      layer.cells = {{{0, 0, 0}, {0, 0, 0}, {reset, -200.0f, 0.25f}, {0, 0, 0.5f}}};
      const auto found = run_kernel(name, cell_description(layer), {{1.0f}});
      EXPECT_EQ(found[0][0], tanh_of(reset < 0 ? 0.25f : 0.75f)) << name;
    }
  }
}

// An update gate of 1 keeps the state, one of 0 replaces it.
TEST(GruUpdate, ChoosesBetweenStateAndNewValue) {
  RecurrentCase layer;
  layer.network = Network::gru;
  layer.ins = 1;
  layer.hidden = 1;
  // z = sigmoid(200 x), n = tanh(0.5).
  layer.cells = {{{0, 200.0f, 0}, {0, 0, 0}, {0, 0, 0.5f}, {0, 0, 0}}};
  for (const std::string& name : cells_of(Network::gru)) {
    const auto found = run_kernel(name, cell_description(layer), {{1.0f}, {-1.0f}, {1.0f}});
    EXPECT_EQ(found[0][0], 0.0f) << name;
    EXPECT_EQ(found[1][0], tanh_of(0.5f)) << name;
    EXPECT_EQ(found[2][0], tanh_of(0.5f)) << name;
  }
}

// Each of the four gates by itself: i, f, g, o.
TEST(LstmGates, StandInTheOrderInputForgetCellOutput) {
  RecurrentCase layer;
  layer.network = Network::lstm;
  layer.ins = 1;
  layer.hidden = 1;
  constexpr float kOpen = 200.0f;
  constexpr float kShut = -200.0f;
  const auto state_after = [&layer](const std::string& name, Floats bias, size_t steps) {
    layer.cells = {{{0, 0, 0, 0}, {0, 0, 0, 0}, std::move(bias), {0, 0, 0, 0}}};
    const std::vector<Floats> vectors(steps, Floats{1.0f});
    return run_kernel(name, cell_description(layer), vectors).back()[0];
  };
  const float g = tanh_of(0.5f);
  for (const std::string& name : cells_of(Network::lstm)) {
    SCOPED_TRACE(name);
    EXPECT_EQ(state_after(name, {kOpen, kShut, 0.5f, kOpen}, 3), tanh_of(g));
    EXPECT_EQ(state_after(name, {kShut, kOpen, 0.5f, kOpen}, 3), 0.0f);
    EXPECT_EQ(state_after(name, {kOpen, kOpen, 0.5f, kOpen}, 3), tanh_of(g + g + g));
    EXPECT_EQ(state_after(name, {kOpen, kOpen, 0.5f, kShut}, 3), 0.0f);
  }
}

// A cell's state is its output, and its shape is the application's to change.
TEST(RecurrentState, KeepsItsSizeWhateverBecomesOfAnOutputsShape) {
  for (const auto* row : kernel::recurrent_cell_rows) {
    if (!why_not_here(row->name).empty()) continue;
    RecurrentCase layer;
    layer.network = network_of(row->name);
    layer.ins = 2;
    layer.hidden = 6;
    layer.fill(3);
    TestContext context;
    const auto kernel = make_kernel(row->name);
    ASSERT_TRUE(kernel->Config(cell_description(layer), nullptr, context));
    const auto input = context.floats({2}, LayoutType::C, {0.5f, -0.25f});
    for (const std::vector<uint32_t>& dims : std::vector<std::vector<uint32_t>>{{1}, {60}, {}}) {
      IKernel::Tensors outputs;
      ASSERT_EQ(kernel->Forward({input}, outputs, context), 0);
      EXPECT_EQ(outputs.at(0)->shape.dims, std::vector<uint32_t>{6}) << row->name;
      context.pool().check();
      outputs[0]->shape.dims = dims;
    }
  }
}

}  // namespace
}  // namespace marlo::test
