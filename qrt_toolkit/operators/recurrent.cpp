#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"

// Recurrent layers: one step of each cell written out, and one loop over directions, sequences and
// steps for all three.

namespace marlo::toolkit {
namespace {

using Function = std::function<double(double)>;

Function function_of(const std::string& name, double alpha, double beta) {
  if (name == "Sigmoid") return [](double x) { return 1 / (1 + std::exp(-x)); };
  if (name == "Tanh") return [](double x) { return std::tanh(x); };
  if (name == "Relu") return [](double x) { return std::fmax(0, x); };
  if (name == "Affine") return [=](double x) { return alpha * x + beta; };
  if (name == "LeakyRelu") return [=](double x) { return x < 0 ? alpha * x : x; };
  if (name == "ThresholdedRelu") return [=](double x) { return x > alpha ? x : 0; };
  if (name == "ScaledTanh") return [=](double x) { return alpha * std::tanh(beta * x); };
  if (name == "HardSigmoid") {
    return [=](double x) { return std::fmin(1, std::fmax(0, alpha * x + beta)); };
  }
  if (name == "Elu") return [=](double x) { return x < 0 ? alpha * std::expm1(x) : x; };
  if (name == "Softsign") return [](double x) { return x / (1 + std::fabs(x)); };
  if (name == "Softplus") return [](double x) { return std::log1p(std::exp(x)); };
  throw NodeFault{"activations", "\"" + name + "\" is not known"};
}

/// The constants of an activation that the node gives none for.
std::pair<double, double> default_constants(const std::string& name) {
  if (name == "LeakyRelu") return {0.01, 0};
  if (name == "HardSigmoid") return {0.2, 0.5};
  return {1, 0};
}

/// Where one direction's weights stand, and what its gates do.
struct Cell {
  int64_t gates;
  int64_t in;
  int64_t hidden;
  const double* w;  ///< [gates * hidden][in]
  const double* r;  ///< [gates * hidden][hidden]
  const double* b;  ///< input biases, then recurrent ones; null for none
  const double* p;  ///< peepholes of the gates i, o, f; null for none
  std::vector<Function> functions;
  double clip;
  bool linear_before_reset;
  bool input_forget;

  double clipped(double x) const { return std::clamp(x, -clip, clip); }

  double input_bias(int64_t row) const { return b == nullptr ? 0 : b[row]; }
  double recurrent_bias(int64_t row) const { return b == nullptr ? 0 : b[gates * hidden + row]; }

  double from_input(int64_t row, const double* x) const {
    double sum = input_bias(row);
    for (int64_t i = 0; i < in; ++i) sum += w[row * in + i] * x[i];
    return sum;
  }
  double from_state(int64_t row, const double* h) const {
    double sum = recurrent_bias(row);
    for (int64_t i = 0; i < hidden; ++i) sum += r[row * hidden + i] * h[i];
    return sum;
  }
};

using State = std::vector<double>;

void rnn_step(const Cell& cell, const double* x, State& h, State&) {
  State next(h.size());
  for (int64_t i = 0; i < cell.hidden; ++i) {
    next[static_cast<size_t>(i)] =
        cell.functions[0](cell.clipped(cell.from_input(i, x) + cell.from_state(i, h.data())));
  }
  h = std::move(next);
}

// Gates z, r, h.
void gru_step(const Cell& cell, const double* x, State& h, State&) {
  const int64_t n = cell.hidden;
  State update(h.size());
  State reset(h.size());
  for (int64_t i = 0; i < n; ++i) {
    const auto at = static_cast<size_t>(i);
    update[at] =
        cell.functions[0](cell.clipped(cell.from_input(i, x) + cell.from_state(i, h.data())));
    reset[at] = cell.functions[0](
        cell.clipped(cell.from_input(n + i, x) + cell.from_state(n + i, h.data())));
  }
  State gated(h);
  for (size_t i = 0; i < h.size(); ++i) gated[i] *= reset[i];
  State next(h.size());
  for (int64_t i = 0; i < n; ++i) {
    const auto at = static_cast<size_t>(i);
    const double state = cell.linear_before_reset ? reset[at] * cell.from_state(2 * n + i, h.data())
                                                  : cell.from_state(2 * n + i, gated.data());
    const double candidate = cell.functions[1](cell.clipped(cell.from_input(2 * n + i, x) + state));
    next[at] = (1 - update[at]) * candidate + update[at] * h[at];
  }
  h = std::move(next);
}

// Gates i, o, f, c.
void lstm_step(const Cell& cell, const double* x, State& h, State& c) {
  const int64_t n = cell.hidden;
  State next(h.size());
  for (int64_t i = 0; i < n; ++i) {
    const auto at = static_cast<size_t>(i);
    const auto gate = [&](int64_t which) {
      return cell.from_input(which * n + i, x) + cell.from_state(which * n + i, h.data());
    };
    const auto peep = [&](int64_t which, double state) {
      return cell.p == nullptr ? 0 : cell.p[which * n + i] * state;
    };
    const double input = cell.functions[0](cell.clipped(gate(0) + peep(0, c[at])));
    const double forget =
        cell.input_forget ? 1 - input : cell.functions[0](cell.clipped(gate(2) + peep(2, c[at])));
    const double candidate = cell.functions[1](cell.clipped(gate(3)));
    c[at] = forget * c[at] + input * candidate;
    const double output = cell.functions[0](cell.clipped(gate(1) + peep(1, c[at])));
    next[at] = output * cell.functions[2](c[at]);
  }
  h = std::move(next);
}

/// What distinguishes the three operators.
struct Kind {
  int64_t gates;
  size_t functions;
  const char* defaults[3];
  void (*step)(const Cell&, const double*, State&, State&);
  bool has_cell_state;
};

constexpr Kind kRnn = {1, 1, {"Tanh"}, rnn_step, false};
constexpr Kind kGru = {3, 2, {"Sigmoid", "Tanh"}, gru_step, false};
constexpr Kind kLstm = {4, 3, {"Sigmoid", "Tanh", "Tanh"}, lstm_step, true};

/// The sizes of a recurrent layer.
struct Sizes {
  bool batch_first;
  int64_t steps;
  int64_t batch;
  int64_t in;
  int64_t directions;
  int64_t hidden;
};

int64_t directions_of(const Node& node) {
  const std::string direction = node.text("direction", "forward");
  if (direction == "bidirectional") return 2;
  if (direction == "forward" || direction == "reverse") return 1;
  throw NodeFault{"direction", "\"" + direction + "\" is not known"};
}

void require(const Operands& inputs, size_t place, const Extents& shape) {
  if (inputs.has(place) && inputs[place].shape != shape) {
    throw NodeFault{"input " + std::to_string(place),
                    "expected " + text_of(shape) + ", found " + text_of(inputs[place].shape)};
  }
}

Sizes sizes_of(const Node& node, const Operands& inputs, const Kind& kind) {
  const Extents& x = inputs[0].shape;
  if (x.size() != 3) throw NodeFault{"input 0", "expected three axes, found " + text_of(x)};
  Sizes sizes;
  sizes.batch_first = node.integer("layout", 0) != 0;
  sizes.steps = x[sizes.batch_first ? 1 : 0];
  sizes.batch = x[sizes.batch_first ? 0 : 1];
  sizes.in = x[2];
  sizes.directions = directions_of(node);
  const Extents& r = inputs[2].shape;
  if (r.size() != 3) throw NodeFault{"input 2", "expected three axes, found " + text_of(r)};
  sizes.hidden = r[2];
  const int64_t rows = kind.gates * sizes.hidden;
  require(inputs, 1, {sizes.directions, rows, sizes.in});
  require(inputs, 2, {sizes.directions, rows, sizes.hidden});
  require(inputs, 3, {sizes.directions, 2 * rows});
  require(inputs, 4, {sizes.batch});
  const Extents state = sizes.batch_first ? Extents{sizes.batch, sizes.directions, sizes.hidden}
                                          : Extents{sizes.directions, sizes.batch, sizes.hidden};
  require(inputs, 5, state);
  if (kind.has_cell_state) {
    require(inputs, 6, state);
    require(inputs, 7, {sizes.directions, 3 * sizes.hidden});
  }
  return sizes;
}

std::vector<Function> functions_of(const Node& node, const Kind& kind, size_t direction) {
  std::vector<Function> functions;
  std::vector<std::string> names;
  if (const auto place = node.attributes.find("activations"); place != node.attributes.end()) {
    if (const auto* list = std::get_if<std::vector<std::string>>(&place->second)) names = *list;
  }
  const auto alphas = node.reals("activation_alpha");
  const auto betas = node.reals("activation_beta");
  for (size_t i = 0; i < kind.functions; ++i) {
    const size_t at = direction * kind.functions + i;
    const std::string name = at < names.size() ? names[at] : kind.defaults[i];
    const auto [alpha, beta] = default_constants(name);
    functions.push_back(function_of(name, at < alphas.size() ? alphas[at] : alpha,
                                    at < betas.size() ? betas[at] : beta));
  }
  return functions;
}

template <const Kind& kind>
Results recurrent(const Node& node, const Operands& inputs) {
  const Sizes sizes = sizes_of(node, inputs, kind);
  const auto [batch_first, steps, batch, in, directions, n] = sizes;
  const bool turned = batch_first;
  Numbers y(inputs[0].type,
            turned ? Extents{batch, steps, directions, n} : Extents{steps, directions, batch, n});
  const Extents state_shape =
      turned ? Extents{batch, directions, n} : Extents{directions, batch, n};
  Numbers last_h(inputs[0].type, state_shape);
  Numbers last_c(inputs[0].type, state_shape);
  const auto offset = [](const Numbers& numbers, int64_t at) {
    return numbers.reals().data() + at;
  };
  const auto state_at = [&, b_count = batch, d_count = directions, h = n](int64_t d, int64_t b) {
    return (turned ? b * d_count + d : d * b_count + b) * h;
  };
  const bool backwards_only = node.text("direction", "forward") == "reverse";
  for (int64_t d = 0; d < directions; ++d) {
    const int64_t rows = kind.gates * n;
    const Cell cell{kind.gates,
                    in,
                    n,
                    offset(inputs[1], d * rows * in),
                    offset(inputs[2], d * rows * n),
                    inputs.has(3) ? offset(inputs[3], d * 2 * rows) : nullptr,
                    kind.has_cell_state && inputs.has(7) ? offset(inputs[7], d * 3 * n) : nullptr,
                    functions_of(node, kind, static_cast<size_t>(d)),
                    node.real("clip", HUGE_VAL),
                    node.integer("linear_before_reset", 0) != 0,
                    node.integer("input_forget", 0) != 0};
    const bool backwards = d == 1 || backwards_only;
    for (int64_t b = 0; b < batch; ++b) {
      State h(static_cast<size_t>(n), 0);
      State c(static_cast<size_t>(n), 0);
      const int64_t state = state_at(d, b);
      if (inputs.has(5)) std::copy_n(offset(inputs[5], state), n, h.begin());
      if (kind.has_cell_state && inputs.has(6)) std::copy_n(offset(inputs[6], state), n, c.begin());
      const int64_t length =
          inputs.has(4) ? std::clamp<int64_t>(inputs[4].integer(static_cast<size_t>(b)), 0, steps)
                        : steps;
      for (int64_t i = 0; i < length; ++i) {
        const int64_t t = backwards ? length - 1 - i : i;
        kind.step(cell, offset(inputs[0], (turned ? b * steps + t : t * batch + b) * in), h, c);
        const int64_t at = turned ? ((b * steps + t) * directions + d) * n
                                  : ((t * directions + d) * batch + b) * n;
        std::copy(h.begin(), h.end(), y.reals().begin() + at);
      }
      std::copy(h.begin(), h.end(), last_h.reals().begin() + state);
      std::copy(c.begin(), c.end(), last_c.reals().begin() + state);
    }
  }
  return {std::move(y), std::move(last_h), std::move(last_c)};
}

void infer_recurrent(ShapeStep& step) {
  const Shape* x = step.shape(0);
  const Shape* r = step.shape(2);
  std::optional<Shape> y;
  std::optional<Shape> state;
  if (x != nullptr && r != nullptr && x->size() == 3 && r->size() == 3) {
    const int64_t directions = directions_of(step.node);
    const bool batch_first = step.node.integer("layout", 0) != 0;
    const Dimension& hidden = (*r)[2];
    y = batch_first ? Shape{(*x)[0], (*x)[1], directions, hidden}
                    : Shape{(*x)[0], directions, (*x)[1], hidden};
    state = batch_first ? Shape{(*x)[0], directions, hidden} : Shape{directions, (*x)[1], hidden};
  }
  step.set(0, step.input(0).type, y);
  step.set(1, step.input(0).type, state);
  step.set(2, step.input(0).type, state);
}

}  // namespace

std::span<const Operator> recurrent_operators() {
  static constexpr Operator kRows[] = {
      {"GRU", 7, recurrent<kGru>, infer_recurrent},
      {"LSTM", 7, recurrent<kLstm>, infer_recurrent},
      {"RNN", 7, recurrent<kRnn>, infer_recurrent},
  };
  return kRows;
}

}  // namespace marlo::toolkit
