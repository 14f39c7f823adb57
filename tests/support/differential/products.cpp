#include <cmath>

#include "qrt_core/runtime/model/conv_info.h"
#include "tests/support/differential/operation.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/recurrent_case.h"

// Full connections and recurrent layers: products of a matrix with a vector.

namespace marlo::test {

using runtime::LayoutType;

namespace {

class FullConnections final : public Operation {
 public:
  std::vector<std::string> families() const override { return {"fullconnection"}; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    const Layer layer = choose_layer(choices);
    const Outcome result = run_planar(kPortable, layer.setting());
    if (!result.ran) return;
    Expectation expected{{layer.outs}, result.values, {}};
    expected.errors.assign(layer.outs, 0.0);
    if (!layer.exact) {
      const Outcome sums = run_planar(kPortable, layer.positive().setting());
      const double terms = 2.0 * (layer.ins + 1.0);
      for (size_t i = 0; i < sums.values.size(); ++i) {
        expected.errors[i] = terms * kEpsilon * sums.values[i];
      }
    }
    for (const std::string& kernel : kernels) compare(kernel, layer, expected, choices);
  }

 private:
  static constexpr char kPortable[] = "FullConnection_Fallback_C_Float_M1";

  struct Layer {
    uint32_t ins;
    uint32_t outs;
    bool bias;
    bool exact;
    std::vector<float> input, weights, biases;

    Setting setting() const {
      auto info = std::make_shared<runtime::FullConnectionInfo>();
      info->in_features = static_cast<uint16_t>(ins);
      info->out_features = static_cast<uint16_t>(outs);
      info->if_bias = bias;
      info->weight = weight_text(weights);
      info->bias = weight_text(biases);
      return {info, nullptr, {{{ins}, LayoutType::C, input}}};
    }

    Layer positive() const {
      Layer layer = *this;
      layer.input = magnitudes(input);
      layer.weights = magnitudes(weights);
      layer.biases = magnitudes(biases);
      return layer;
    }
  };

  static Layer choose_layer(Choices& choices) {
    Layer layer{};
    const uint32_t unit = choices.one_of({1u, 4u, 8u});
    layer.ins = unit * choices.size(1, unit == 1 ? 80 : 12);
    layer.outs = choices.yes() ? layer.ins : unit * choices.size(1, unit == 1 ? 80 : 12);
    layer.bias = choices.yes();
    const auto kind = choices.one_of({Numbers::integers, Numbers::floats, Numbers::uneven});
    layer.exact = kind == Numbers::integers;
    const uint32_t seed = choices.seed();
    layer.input = numbers(kind, seed, layer.ins);
    layer.weights = numbers(kind, seed + 1, size_t{layer.ins} * layer.outs);
    if (layer.bias) layer.biases = numbers(kind, seed + 2, layer.outs);
    return layer;
  }

  // A batch is rows of features, of which row 0 is computed.
  static void compare(const std::string& kernel, const Layer& layer, const Expectation& expected,
                      Choices& choices) {
    Setting setting = layer.setting();
    const bool batch = has_part(kernel, "_BC_");
    PlanarTensor& input = setting.inputs[0];
    if (batch) {
      const uint32_t rows = choices.size(1, 3);
      input.dims = {rows, layer.ins};
      input.layout = LayoutType::BC;
      for (uint32_t row = 1; row < rows; ++row) {
        input.values.insert(input.values.end(), layer.input.begin(), layer.input.end());
      }
    }
    Outcome outcome = run_planar(kernel, setting);
    if (!outcome.ran && outcome.refusal.empty()) return;
    if (batch && outcome.ran) {
      outcome.shape.dims = {layer.outs};
      outcome.values.resize(layer.outs);
    }
    expect_agreement(kernel, outcome, expected,
                     std::to_string(layer.ins) + " to " + std::to_string(layer.outs) +
                         (layer.bias ? " with bias " : " ") + outcome.refusal);
  }
};

// Sequences and cells of all three networks. The errors come from a computation in double precision
// that carries them along.
class Recurrent final : public Operation {
 public:
  explicit Recurrent(bool cells) : cells_(cells) {}

  std::vector<std::string> families() const override {
    if (cells_) return {"rnncell", "lstmcell", "grucell"};
    return {"rnn", "lstm", "gru"};
  }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    const RecurrentCase layer = choose_layer(choices);
    Setting setting;
    setting.passes = choices.between(1, 2);
    if (cells_) {
      setting.info = cell_description(layer);
      setting.inputs = {{{layer.ins}, LayoutType::C, layer.input}};
    } else {
      setting.info = sequence_description(layer);
      setting.inputs = {{{layer.steps, layer.ins}, LayoutType::SC, layer.input}};
    }
    const std::string portable = portable_of(layer.network);
    const Outcome result = run_planar(portable, setting);
    if (!result.ran) return;
    count_run(portable);
    Expectation expected{result.shape.dims, result.values, errors_of(layer, setting.passes)};
    // All passes together are compared as one longer output.
    expected.dims[0] *= static_cast<uint32_t>(setting.passes);
    for (const std::string& kernel : kernels) {
      if (kernel == portable) continue;
      Outcome outcome = run_planar(kernel, setting);
      if (!outcome.ran) continue;
      outcome.shape.dims[0] *= static_cast<uint32_t>(setting.passes);
      expect_agreement(kernel, outcome, expected, layer.text());
    }
  }

 private:
  std::string portable_of(Network network) const {
    const char* const names[] = {"RNN", "LSTM", "GRU"};
    const std::string name = names[static_cast<size_t>(network)];
    return cells_ ? name + "Cell_Fallback_C_F32_M1" : name + "_Fallback_SC_F32_M1";
  }

  RecurrentCase choose_layer(Choices& choices) const {
    RecurrentCase layer;
    layer.network = choices.one_of({Network::rnn, Network::lstm, Network::gru});
    layer.ins = choices.size(1, 36);
    layer.hidden = choices.size(1, 36);
    layer.bias = choices.yes();
    layer.activation = choices.one_of<uint16_t>({2, 5});
    layer.steps = cells_ ? 1 : choices.size(1, 4);
    layer.layers = cells_ ? 1 : choices.size(1, 3);
    layer.bidirectional = !cells_ && choices.yes();
    layer.fill(choices.seed());
    return layer;
  }

  // Both computations may be off.
  static std::vector<double> errors_of(const RecurrentCase& layer, int passes) {
    RecurrentOracle oracle(layer);
    std::vector<double> errors;
    for (int pass = 0; pass < passes; ++pass) {
      for (const Approximate& number : oracle.run(layer.input)) errors.push_back(2 * number.error);
    }
    return errors;
  }

  const bool cells_;
};

}  // namespace

std::unique_ptr<Operation> full_connections() { return std::make_unique<FullConnections>(); }
std::unique_ptr<Operation> recurrent_sequences() { return std::make_unique<Recurrent>(false); }
std::unique_ptr<Operation> recurrent_cells() { return std::make_unique<Recurrent>(true); }

}  // namespace marlo::test
