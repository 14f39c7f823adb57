#include "tests/support/recurrent_case.h"

#include <cmath>
#include <sstream>

#include "tests/support/model_builder.h"
#include "tests/support/oracle.h"

namespace marlo::test {

using runtime::RecurrentInfo;

namespace {

size_t product(size_t a, size_t b) { return a * b; }

// A comparison that allows more than this says nothing.
constexpr double kLargestError = 1e-3;

// `count` rows of `width` numbers of which only some places are not zero.
std::vector<float> sparse_rows(Random& random, size_t count, size_t width) {
  std::vector<float> rows(product(count, width));
  for (size_t row = 0; row < count; ++row) {
    const int place = random.integer(0, static_cast<int>(width) - 1);
    rows[row * width + static_cast<size_t>(place)] = random.integer(0, 1) == 0 ? 1.0f : -1.0f;
  }
  return rows;
}

template <typename Info>
std::shared_ptr<Info> sized(const RecurrentCase& layer) {
  auto info = std::make_shared<Info>();
  info->in_size = static_cast<uint16_t>(layer.ins);
  info->hidden_size = static_cast<uint16_t>(layer.hidden);
  info->if_bias = layer.bias;
  if constexpr (std::is_base_of_v<runtime::RecurrentActivation, Info>) {
    info->activation_type = layer.activation;
  }
  return info;
}

template <typename Info>
std::shared_ptr<RecurrentInfo> described_cell(const RecurrentCase& layer) {
  auto info = sized<Info>(layer);
  const CellData& cell = layer.cells.at(0);
  info->weight_ih = weight_text(cell.weight_ih);
  info->weight_hh = weight_text(cell.weight_hh);
  info->bias_ih = weight_text(cell.bias_ih);
  info->bias_hh = weight_text(cell.bias_hh);
  return info;
}

template <typename Info>
std::shared_ptr<RecurrentInfo> described_sequence(const RecurrentCase& layer) {
  auto info = sized<Info>(layer);
  info->num_layers = static_cast<uint16_t>(layer.layers);
  info->bidirectional = layer.bidirectional;
  info->complex_rnn_type = layer.complex_type;
  for (size_t i = 0; i < layer.cells.size(); ++i) {
    const bool reverse = layer.bidirectional && i % 2 == 1;
    const CellData& cell = layer.cells[i];
    const auto add = [reverse](auto& forward_list, auto& reverse_list, const auto& numbers) {
      (reverse ? reverse_list : forward_list).emplace_back(weight_text(numbers));
    };
    add(info->weight_ih_forward, info->weight_ih_reverse, cell.weight_ih);
    add(info->weight_hh_forward, info->weight_hh_reverse, cell.weight_hh);
    add(info->bias_ih_forward, info->bias_ih_reverse, cell.bias_ih);
    add(info->bias_hh_forward, info->bias_hh_reverse, cell.bias_hh);
  }
  return info;
}

// Arithmetic on numbers with errors; each operation rounds once more.

double rounding(double value) { return kEpsilon * std::abs(value); }

Approximate operator+(const Approximate& a, const Approximate& b) {
  const double value = a.value + b.value;
  const double error = a.error + b.error;
  return {value, error + rounding(std::abs(value) + error)};
}

Approximate operator*(const Approximate& a, const Approximate& b) {
  const double value = a.value * b.value;
  const double error =
      std::abs(a.value) * b.error + std::abs(b.value) * a.error + a.error * b.error;
  return {value, error + rounding(std::abs(value) + error)};
}

// The steepest slope is a quarter; exponential, sum and quotient round.
Approximate sigmoid(const Approximate& x) {
  const double value = 1.0 / (1.0 + std::exp(-x.value));
  return {value, x.error / 4 + 4 * kEpsilon * value};
}

Approximate hyperbolic_tangent(const Approximate& x) {
  const double value = std::tanh(x.value);
  return {value, x.error + 4 * kEpsilon * std::abs(value)};
}

Approximate rectified(const Approximate& x) { return {x.value > 0.0 ? x.value : 0.0, x.error}; }

// n - z * (n - h), which lies between n and h: their errors are averaged as they are themselves.
Approximate between(const Approximate& n, const Approximate& h, const Approximate& z) {
  const double distance = n.value - h.value;
  const double value = n.value - z.value * distance;
  const double error = (1.0 - z.value) * n.error + z.value * h.error +
                       z.error * (std::abs(distance) + n.error + h.error);
  return {value, error + 4 * rounding(std::abs(n.value) + std::abs(h.value))};
}

// weights * x + bias of one row.
Approximate row_product(const std::vector<float>& weights, const std::vector<float>& bias,
                        size_t row, const std::vector<Approximate>& x) {
  Sum sum;
  double inherited = 0.0;
  if (!bias.empty()) sum.add(bias[row]);
  for (size_t k = 0; k < x.size(); ++k) {
    const double weight = weights[row * x.size() + k];
    sum.add(weight * x[k].value);
    inherited += std::abs(weight) * x[k].error;
  }
  return {sum.value, sum.bound() + inherited * (1.0 + 1e-3)};
}

}  // namespace

Network network_of(const std::string& kernel) {
  if (kernel.rfind("RNN", 0) == 0) return Network::rnn;
  return kernel.rfind("LSTM", 0) == 0 ? Network::lstm : Network::gru;
}

uint32_t gates_of(Network network) {
  if (network == Network::rnn) return 1;
  return network == Network::lstm ? 4 : 3;
}

void RecurrentCase::fill(uint32_t seed) {
  Random random(seed);
  const uint32_t rows = gates_of(network) * hidden;
  cells.clear();
  for (uint32_t i = 0; i < layers * directions(); ++i) {
    const uint32_t wide = width(i / directions());
    CellData& cell = cells.emplace_back();
    cell.weight_ih = random.floats(product(rows, wide), 2.0f / static_cast<float>(wide));
    cell.weight_hh = random.floats(product(rows, hidden), 1.0f / static_cast<float>(hidden));
    if (!bias) continue;
    cell.bias_ih = random.floats(rows, 0.5f);
    cell.bias_hh = random.floats(rows, 0.5f);
  }
  input = random.floats(product(steps, ins), 2.0f);
}

void RecurrentCase::fill_with_integers(uint32_t seed) {
  Random random(seed);
  const uint32_t rows = gates_of(network) * hidden;
  cells.clear();
  for (uint32_t i = 0; i < layers * directions(); ++i) {
    CellData& cell = cells.emplace_back();
    cell.weight_ih = sparse_rows(random, rows, width(i / directions()));
    cell.weight_hh = sparse_rows(random, rows, hidden);
    if (!bias) continue;
    cell.bias_ih = random.small_integers(rows);
    cell.bias_hh = random.small_integers(rows);
  }
  input = random.small_integers(product(steps, ins));
}

std::string RecurrentCase::text() const {
  std::ostringstream text;
  const char* const names[] = {"RNN", "LSTM", "GRU"};
  text << names[static_cast<size_t>(network)] << ' ' << ins << '-' << hidden << ", " << steps
       << " steps, " << layers << " layers, " << (bidirectional ? "bidirectional, " : "")
       << (bias ? "bias" : "no bias");
  if (network == Network::rnn) text << ", activation " << activation;
  return text.str();
}

std::shared_ptr<RecurrentInfo> cell_description(const RecurrentCase& layer) {
  switch (layer.network) {
    case Network::rnn:
      return described_cell<runtime::RNNCellInfo>(layer);
    case Network::lstm:
      return described_cell<runtime::LSTMCellInfo>(layer);
    default:
      return described_cell<runtime::GRUCellInfo>(layer);
  }
}

std::shared_ptr<RecurrentInfo> sequence_description(const RecurrentCase& layer) {
  switch (layer.network) {
    case Network::rnn:
      return described_sequence<runtime::RNNInfo>(layer);
    case Network::lstm:
      return described_sequence<runtime::LSTMInfo>(layer);
    default:
      return described_sequence<runtime::GRUInfo>(layer);
  }
}

RecurrentOracle::RecurrentOracle(const RecurrentCase& layer) : layer_(layer) {
  const Vector zeros(layer.hidden);
  states_.assign(size_t{layer.layers} * layer.directions(), State{zeros, zeros});
}

void RecurrentOracle::step(uint32_t cell, const Vector& x) {
  const CellData& data = layer_.cells[cell];
  State& state = states_[cell];
  const State before = state;
  const size_t size = layer_.hidden;
  const auto a = [&](size_t gate, size_t j) {
    return row_product(data.weight_ih, data.bias_ih, gate * size + j, x);
  };
  const auto b = [&](size_t gate, size_t j) {
    return row_product(data.weight_hh, data.bias_hh, gate * size + j, before.h);
  };
  for (size_t j = 0; j < size; ++j) {
    if (layer_.network == Network::rnn) {
      const Approximate sum = a(0, j) + b(0, j);
      state.h[j] = layer_.activation == 2 ? rectified(sum) : hyperbolic_tangent(sum);
    } else if (layer_.network == Network::lstm) {
      const Approximate in = sigmoid(a(0, j) + b(0, j));
      const Approximate forget = sigmoid(a(1, j) + b(1, j));
      const Approximate cell_gate = hyperbolic_tangent(a(2, j) + b(2, j));
      const Approximate out = sigmoid(a(3, j) + b(3, j));
      state.c[j] = before.c[j] * forget + in * cell_gate;
      state.h[j] = hyperbolic_tangent(state.c[j]) * out;
    } else {
      const Approximate reset = sigmoid(a(0, j) + b(0, j));
      const Approximate update = sigmoid(a(1, j) + b(1, j));
      const Approximate fresh = hyperbolic_tangent(a(2, j) + reset * b(2, j));
      state.h[j] = between(fresh, before.h[j], update);
    }
  }
}

std::vector<Approximate> RecurrentOracle::run(const std::vector<float>& input) {
  Vector exact;
  for (const float number : input) exact.push_back({number, 0.0});
  return run_on(exact);
}

std::vector<Approximate> RecurrentOracle::run_on(const std::vector<Approximate>& input) {
  std::vector<Vector> vectors;
  for (auto x = input.begin(); x != input.end(); x += layer_.ins) {
    vectors.emplace_back(x, x + layer_.ins);
  }
  for (uint32_t layer = 0; layer < layer_.layers; ++layer) {
    std::vector<Vector> outputs(vectors.size());
    const uint32_t first = layer * layer_.directions();
    for (size_t t = 0; t < vectors.size(); ++t) {
      step(first, vectors[t]);
      outputs[t] = states_[first].h;
    }
    for (size_t t = vectors.size(); layer_.bidirectional && t-- > 0;) {
      step(first + 1, vectors[t]);
      const Vector& h = states_[first + 1].h;
      outputs[t].insert(outputs[t].end(), h.begin(), h.end());
    }
    vectors = std::move(outputs);
  }
  Vector all;
  for (const Vector& row : vectors) all.insert(all.end(), row.begin(), row.end());
  return all;
}

std::string first_beyond(const std::vector<float>& found,
                         const std::vector<Approximate>& expected) {
  std::ostringstream text;
  if (found.size() != expected.size()) {
    text << found.size() << " numbers instead of " << expected.size();
    return text.str();
  }
  for (size_t i = 0; i < found.size(); ++i) {
    const double distance = std::abs(found[i] - expected[i].value);
    if (distance <= expected[i].error && expected[i].error <= kLargestError) continue;
    text.precision(9);
    text << "number " << i << " is " << found[i] << " instead of " << expected[i].value << " +- "
         << expected[i].error;
    return text.str();
  }
  return "";
}

}  // namespace marlo::test
