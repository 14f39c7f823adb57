#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/kernel/recurrent/recurrent.h"
#include "qrt_core/runtime/model/recurrent_states_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/recurrent_case.h"
#include "tests/support/test_context.h"

// What recurrent kernels compute: against their definition, in pieces, and composed of cells.

namespace marlo::test {
namespace {

using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;
using Floats = std::vector<float>;

std::vector<std::string> cell_names() {
  std::vector<std::string> names;
  for (const auto* row : kernel::recurrent_cell_rows) names.emplace_back(row->name);
  return names;
}

std::vector<std::string> sequence_names() {
  std::vector<std::string> names;
  for (const auto* row : kernel::recurrent_sequence_rows) names.emplace_back(row->name);
#if QRT_WITH_EXTENSIONS
  for (const auto* row : kernel::wide_sequence_rows) {
    if (why_not_here(row->name).empty()) names.emplace_back(row->name);
  }
#endif
  return names;
}

std::vector<std::string> of_network(const std::vector<std::string>& names, Network network) {
  std::vector<std::string> chosen;
  for (const std::string& name : names) {
    if (network_of(name) == network) chosen.push_back(name);
  }
  return chosen;
}

// A configured kernel on hostile memory.
class Runner {
 public:
  Runner(const std::string& name, const std::shared_ptr<runtime::LayerInfo>& info)
      : kernel_(make_kernel(name)) {
    EXPECT_TRUE(kernel_->Config(info, nullptr, context_)) << name;
  }

  // One pass over a vector.
  Floats step(const Floats& input) {
    return pass({static_cast<uint32_t>(input.size())}, LayoutType::C, input);
  }

  // One pass over vectors of `width`.
  Floats sequence(const Floats& input, uint32_t width) {
    const auto steps = static_cast<uint32_t>(input.size() / width);
    return pass({steps, width}, LayoutType::FLEXIABLE, input);
  }

  void reset() { EXPECT_EQ(kernel_->ResetState(), 0); }

 private:
  Floats pass(std::vector<uint32_t> dims, LayoutType layout, const Floats& values) {
    const auto input = context_.external_floats(std::move(dims), layout, values);
    EXPECT_EQ(kernel_->CheckInputs({input}), 0);
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel_->Forward({input}, outputs, context_), 0);
    context_.pool().check();
    EXPECT_EQ(outputs.size(), 1u);
    EXPECT_EQ(kernel_->CheckOutputs(outputs), 0);
    EXPECT_TRUE(outputs[0]->shape == kernel_->InferOutputShapes({input->shape})[0]);
    EXPECT_TRUE(same_bits(values_of(*input), values)) << "the input changed";
    return values_of(*outputs[0]);
  }

  TestContext context_;
  std::shared_ptr<IKernel> kernel_;
};

// Sizes around multiples of 4 and 16, paired so that each stands on both sides.
struct Sizes {
  uint32_t ins;
  uint32_t hidden;
};
const std::vector<Sizes> kSizes = {{1, 1},   {3, 17},  {4, 33},  {5, 4},   {8, 16},
                                   {12, 31}, {15, 15}, {16, 12}, {17, 32}, {31, 5},
                                   {32, 3},  {33, 20}, {20, 8}};

std::vector<Floats> pieces_of(const Floats& all, size_t width, const std::vector<size_t>& steps) {
  std::vector<Floats> pieces;
  auto from = all.begin();
  for (const size_t count : steps) {
    const auto to = from + static_cast<std::ptrdiff_t>(count * width);
    pieces.emplace_back(from, to);
    from = to;
  }
  return pieces;
}

Floats joined(Floats first, const Floats& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class Networks : public testing::TestWithParam<Network> {
 protected:
  RecurrentCase filled(RecurrentCase layer, uint32_t seed = 1) const {
    layer.network = GetParam();
    layer.fill(seed);
    return layer;
  }
  std::vector<std::string> cells() const { return of_network(cell_names(), GetParam()); }
  std::vector<std::string> sequences() const { return of_network(sequence_names(), GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Each, Networks,
                         testing::Values(Network::rnn, Network::lstm, Network::gru));

TEST_P(Networks, CellsAreWithinTheErrorOfTheDefinition) {
  for (const Sizes& sizes : kSizes) {
    for (const bool bias : {true, false}) {
      for (const uint16_t activation : {uint16_t{2}, uint16_t{5}}) {
        RecurrentCase layer;
        layer.ins = sizes.ins;
        layer.hidden = sizes.hidden;
        layer.steps = 4;
        layer.bias = bias;
        layer.activation = activation;
        layer = filled(layer, sizes.ins);
        const auto expected = RecurrentOracle(layer).run(layer.input);
        for (const std::string& name : cells()) {
          SCOPED_TRACE(name + ", " + layer.text());
          Runner cell(name, cell_description(layer));
          Floats found;
          for (const Floats& x : pieces_of(layer.input, layer.ins, {1, 1, 1, 1})) {
            found = joined(found, cell.step(x));
          }
          ASSERT_EQ(first_beyond(found, expected), "");
        }
        if (GetParam() != Network::rnn) break;
      }
    }
  }
}

TEST_P(Networks, SequencesAreWithinTheErrorOfTheDefinition) {
  for (const Sizes& sizes : kSizes) {
    for (const uint32_t steps : {0u, 1u, 2u, 17u}) {
      for (const uint32_t layers : {1u, 2u, 3u}) {
        for (const int kind : {0, 1, 2, 3}) {
          RecurrentCase layer;
          layer.ins = sizes.ins;
          layer.hidden = sizes.hidden;
          layer.steps = steps;
          layer.layers = layers;
          layer.bias = kind % 2 == 0;
          layer.bidirectional = kind / 2 == 1;
          layer.activation = layers == 2 ? 2 : 5;
          layer = filled(layer, steps + 100 * layers);
          const auto expected = RecurrentOracle(layer).run(layer.input);
          for (const std::string& name : sequences()) {
            SCOPED_TRACE(name + ", " + layer.text());
            Runner sequence(name, sequence_description(layer));
            ASSERT_EQ(first_beyond(sequence.sequence(layer.input, layer.ins), expected), "");
          }
        }
      }
    }
  }
}

TEST_P(Networks, ASequenceInPiecesIsTheSameInOnePiece) {
  for (const Sizes& sizes : kSizes) {
    for (const uint32_t layers : {1u, 2u, 3u}) {
      RecurrentCase layer;
      layer.ins = sizes.ins;
      layer.hidden = sizes.hidden;
      layer.steps = 17;
      layer.layers = layers;
      layer = filled(layer);
      for (const std::string& name : sequences()) {
        SCOPED_TRACE(name + ", " + layer.text());
        const auto info = sequence_description(layer);
        const Floats whole = Runner(name, info).sequence(layer.input, layer.ins);
        for (const auto& steps : {std::vector<size_t>{1, 16}, {8, 0, 9}, {16, 1}, {5, 5, 7}}) {
          Runner in_pieces(name, info);
          Floats found;
          for (const Floats& piece : pieces_of(layer.input, layer.ins, steps)) {
            found = joined(found, in_pieces.sequence(piece, layer.ins));
          }
          ASSERT_TRUE(same_bits(found, whole));
        }
      }
    }
  }
}

// The reverse direction starts each piece from the state in which it left the piece before.
TEST_P(Networks, InTwoDirectionsEachPieceContinuesBothStates) {
  RecurrentCase layer;
  layer.ins = 5;
  layer.hidden = 6;
  layer.steps = 7;
  layer.layers = 2;
  layer.bidirectional = true;
  layer = filled(layer);
  RecurrentOracle oracle(layer);
  std::vector<std::vector<Approximate>> expected;
  const auto pieces = pieces_of(layer.input, layer.ins, {3, 0, 4});
  for (const Floats& piece : pieces) expected.push_back(oracle.run(piece));
  for (const std::string& name : sequences()) {
    Runner sequence(name, sequence_description(layer));
    for (size_t i = 0; i < pieces.size(); ++i) {
      EXPECT_EQ(first_beyond(sequence.sequence(pieces[i], layer.ins), expected[i]), "") << name;
    }
  }
}

// What a layer in one direction does, said with cells of the same policies.
class CellStack {
 public:
  CellStack(const std::string& cell, const RecurrentCase& layer, uint32_t direction) {
    for (uint32_t l = 0; l < layer.layers; ++l) {
      RecurrentCase one = layer;
      one.ins = layer.width(l);
      one.cells = {layer.cells[l * layer.directions() + direction]};
      cells_.push_back(std::make_unique<Runner>(cell, cell_description(one)));
    }
  }

  Floats step(uint32_t layer, const Floats& x) { return cells_[layer]->step(x); }

 private:
  std::vector<std::unique_ptr<Runner>> cells_;
};

// "GRU_SSE_SGEMM_SC_F32_M2" to "GRUCell_SSE_SGEMM_C_F32_M2"
std::string cell_of(std::string sequence) {
  sequence.insert(sequence.find('_'), "Cell");
  return sequence.replace(sequence.find("_SC_"), 4, "_C_");
}

// The second set has no cells.
std::vector<std::string> with_cells(std::vector<std::string> sequences) {
  const auto lacks = [](const std::string& name) {
    return all_kernels().Create(cell_of(name)) == nullptr;
  };
  sequences.erase(std::remove_if(sequences.begin(), sequences.end(), lacks), sequences.end());
  return sequences;
}

TEST_P(Networks, InOneDirectionASequenceIsItsCellsOneAfterTheOther) {
  RecurrentCase layer;
  layer.ins = 7;
  layer.hidden = 18;
  layer.steps = 3;
  layer.layers = 2;
  layer = filled(layer);
  for (const std::string& name : with_cells(sequences())) {
    CellStack cells(cell_of(name), layer, 0);
    Floats expected;
    for (Floats x : pieces_of(layer.input, layer.ins, {1, 1, 1})) {
      for (uint32_t l = 0; l < layer.layers; ++l) x = cells.step(l, x);
      expected = joined(expected, x);
    }
    Runner sequence(name, sequence_description(layer));
    EXPECT_TRUE(same_bits(sequence.sequence(layer.input, layer.ins), expected)) << name;
  }
}

TEST_P(Networks, InTwoDirectionsARowHoldsBothResultsForItsVector) {
  RecurrentCase layer;
  layer.ins = 7;
  layer.hidden = 18;
  layer.steps = 3;
  layer.layers = 3;
  layer.bidirectional = true;
  layer = filled(layer);
  for (const std::string& name : with_cells(sequences())) {
    CellStack forward(cell_of(name), layer, 0);
    CellStack reverse(cell_of(name), layer, 1);
    auto vectors = pieces_of(layer.input, layer.ins, {1, 1, 1});
    for (uint32_t l = 0; l < layer.layers; ++l) {
      std::vector<Floats> rows;
      for (const Floats& x : vectors) rows.push_back(forward.step(l, x));
      for (size_t t = rows.size(); t-- > 0;) rows[t] = joined(rows[t], reverse.step(l, vectors[t]));
      vectors = rows;
    }
    Floats expected;
    for (const Floats& row : vectors) expected = joined(expected, row);
    Runner sequence(name, sequence_description(layer));
    EXPECT_TRUE(same_bits(sequence.sequence(layer.input, layer.ins), expected)) << name;
  }
}

TEST_P(Networks, AResetStateIsAFreshOne) {
  RecurrentCase layer;
  layer.ins = 3;
  layer.hidden = 5;
  layer.layers = 2;
  for (const bool bidirectional : {false, true}) {
    layer.bidirectional = bidirectional;
    layer = filled(layer);
    for (const std::string& name : sequences()) {
      SCOPED_TRACE(name);
      Runner sequence(name, sequence_description(layer));
      sequence.reset();  // there is nothing to reset yet
      const Floats first = sequence.sequence(layer.input, layer.ins);
      EXPECT_FALSE(same_bits(sequence.sequence(layer.input, layer.ins), first));
      sequence.reset();
      EXPECT_TRUE(same_bits(sequence.sequence(layer.input, layer.ins), first));
    }
  }
  layer = filled(RecurrentCase());
  const Floats x(layer.input.begin(), layer.input.begin() + layer.ins);
  for (const std::string& name : cells()) {
    SCOPED_TRACE(name);
    Runner cell(name, cell_description(layer));
    cell.reset();
    const Floats first = cell.step(x);
    EXPECT_FALSE(same_bits(cell.step(x), first));
    cell.reset();
    EXPECT_TRUE(same_bits(cell.step(x), first));
  }
}

TEST_P(Networks, NoBiasIsABiasOfZeros) {
  RecurrentCase without;
  without.hidden = 9;
  without.layers = 2;
  without.bias = false;
  without = filled(without);
  RecurrentCase zeros = without;
  zeros.bias = true;
  for (CellData& cell : zeros.cells) {
    cell.bias_ih.assign(size_t{gates_of(GetParam())} * zeros.hidden, 0.0f);
    cell.bias_hh = cell.bias_ih;
  }
  for (const std::string& name : sequences()) {
    Runner a(name, sequence_description(without));
    Runner b(name, sequence_description(zeros));
    EXPECT_TRUE(
        same_bits(a.sequence(without.input, without.ins), b.sequence(zeros.input, zeros.ins)))
        << name;
  }
}

// Every sum of the RNN with the rectifier is exact on integers, whatever its order.
TEST(Rnn, IsExactOnIntegers) {
  for (const bool bidirectional : {false, true}) {
    RecurrentCase layer;
    layer.network = Network::rnn;
    layer.activation = 2;
    layer.ins = 19;
    layer.hidden = 21;
    layer.steps = 17;
    layer.layers = 3;
    layer.bidirectional = bidirectional;
    layer.fill_with_integers(7);
    Floats expected;
    for (const Approximate& number : RecurrentOracle(layer).run(layer.input)) {
      expected.push_back(static_cast<float>(number.value));
    }
    for (const std::string& name : of_network(sequence_names(), Network::rnn)) {
      Runner sequence(name, sequence_description(layer));
      EXPECT_EQ(sequence.sequence(layer.input, layer.ins), expected) << name;
    }
  }
}

#if QRT_WITH_EXTENSIONS

template <typename Stated, typename Plain>
std::shared_ptr<Stated> as_stated(const runtime::RecurrentInfo& info) {
  const auto& plain = dynamic_cast<const Plain&>(info);
  auto stated = std::make_shared<Stated>();
  stated->in_size = plain.in_size;
  stated->hidden_size = plain.hidden_size;
  stated->if_bias = plain.if_bias;
  static_cast<runtime::RecurrentSequenceWeights&>(*stated) = plain;
  if constexpr (std::is_base_of_v<runtime::RecurrentActivation, Plain>) {
    static_cast<runtime::RecurrentActivation&>(*stated) = plain;
  }
  return stated;
}

// The description of a sequence with its states, which is of no common class with them.
std::shared_ptr<runtime::RecurrentInfo> stated_description(const RecurrentCase& layer, bool first) {
  const auto plain = sequence_description(layer);
  const auto with_first = [first](const auto& info) -> std::shared_ptr<runtime::RecurrentInfo> {
    info->has_first_states = first;
    return info;
  };
  switch (layer.network) {
    case Network::rnn:
      return with_first(as_stated<runtime::RNNStatesInfo, runtime::RNNInfo>(*plain));
    case Network::lstm:
      return with_first(as_stated<runtime::LSTMStatesInfo, runtime::LSTMInfo>(*plain));
    default:
      return with_first(as_stated<runtime::GRUStatesInfo, runtime::GRUInfo>(*plain));
  }
}

class StatedSequences : public testing::TestWithParam<const kernel::KernelRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  std::string plain_name() const {
    std::string name = GetParam()->name;
    return name.erase(name.find("States"), 6);
  }
};

INSTANTIATE_TEST_SUITE_P(Rows, StatedSequences, testing::ValuesIn(kernel::stated_sequence_rows),
                         [](const auto& test) { return std::string(test.param->name); });

// A state that is handed out and given back is one that was kept.
TEST_P(StatedSequences, HandOnWhatTheOthersKeep) {
  const std::string name = GetParam()->name;
  for (const uint32_t layers : {1u, 3u}) {
    for (const bool bidirectional : {false, true}) {
      RecurrentCase layer;
      layer.network = network_of(plain_name());
      layer.ins = 5;
      layer.hidden = 7;
      layer.steps = 4;
      layer.layers = layers;
      layer.bidirectional = bidirectional;
      layer.fill(layers);
      SCOPED_TRACE(layer.text());
      Runner keeping(plain_name(), sequence_description(layer));
      TestContext context;
      const auto begins = make_kernel(name);
      const auto goes_on = make_kernel(name);
      ASSERT_TRUE(begins->Config(stated_description(layer, false), nullptr, context));
      ASSERT_TRUE(goes_on->Config(stated_description(layer, true), nullptr, context));
      const uint32_t width = layer.out_size();
      const uint32_t states = layers * (layer.network == Network::lstm ? 2 : 1);
      const auto run = [&](IKernel& kernel, const Floats& state) {
        IKernel::Tensors inputs = {
            context.external_floats({layer.steps, layer.ins}, LayoutType::FLEXIABLE, layer.input)};
        if (!state.empty()) {
          inputs.push_back(context.external_floats({states, width}, LayoutType::SC, state));
        }
        EXPECT_EQ(kernel.CheckInputs(inputs), 0);
        IKernel::Tensors outputs;
        EXPECT_EQ(kernel.Forward(inputs, outputs, context), 0);
        context.pool().check();
        EXPECT_EQ(kernel.CheckOutputs(outputs), 0);
        EXPECT_EQ(outputs[0]->shape.dims, (std::vector<uint32_t>{layer.steps + states, width}));
        return values_of(*outputs[0]);
      };
      Floats found = run(*begins, {});
      EXPECT_TRUE(same_bits(run(*begins, {}), found)) << "something was kept";
      for (int pass = 0; pass < 2; ++pass) {
        const auto end = found.end() - static_cast<std::ptrdiff_t>(states * width);
        const Floats expected = keeping.sequence(layer.input, layer.ins);
        ASSERT_TRUE(same_bits(Floats(found.begin(), end), expected)) << pass;
        found = run(*goes_on, Floats(end, found.end()));
      }
    }
  }
}

TEST_P(StatedSequences, RefuseOtherStates) {
  const std::string name = GetParam()->name;
  RecurrentCase layer;
  layer.network = network_of(plain_name());
  layer.fill(1);
  TestContext context;
  const auto kernel = make_kernel(name);
  EXPECT_NE(kernel->CheckConfig(sequence_description(layer), nullptr), 0);
  EXPECT_NE(make_kernel(plain_name())->CheckConfig(stated_description(layer, false), nullptr), 0);
  ASSERT_TRUE(kernel->Config(stated_description(layer, true), nullptr, context));
  const uint32_t states = layer.network == Network::lstm ? 2 : 1;
  const auto verdict = [&](std::vector<uint32_t> dims) {
    const auto x = context.floats({layer.steps, layer.ins}, LayoutType::SC, layer.input);
    size_t count = 1;
    for (const uint32_t dim : dims) count *= dim;
    return kernel->CheckInputs({x, context.floats(std::move(dims), LayoutType::SC, Floats(count))});
  };
  EXPECT_EQ(verdict({states, layer.hidden}), 0);
  EXPECT_NE(verdict({states + 1, layer.hidden}), 0);
  EXPECT_NE(verdict({states, layer.hidden + 1}), 0);
  EXPECT_EQ(kernel->ResetState(), -4) << "there is none";
}

#endif

}  // namespace
}  // namespace marlo::test
