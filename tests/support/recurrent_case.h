#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/recurrent_info.h"
#include "tests/support/numbers.h"

// Recurrent layers to test with, and what they are in double precision.

namespace marlo::test {

/// A network by the beginning of its kernels' names.
enum class Network { rnn, lstm, gru };

/// "RNNCell_SSE_C_F32_M1" is of the RNN.
Network network_of(const std::string& kernel);

/// Gates of a network: 1, 4 or 3.
uint32_t gates_of(Network network);

/// The weights of one layer in one direction.
struct CellData {
  std::vector<float> weight_ih;  ///< [gates * hidden, ins]
  std::vector<float> weight_hh;  ///< [gates * hidden, hidden]
  std::vector<float> bias_ih;    ///< [gates * hidden], empty without
  std::vector<float> bias_hh;
};

/// A layer, and as many vectors of input as it has steps.
struct RecurrentCase {
  Network network = Network::lstm;
  uint32_t ins = 4;
  uint32_t hidden = 4;
  uint32_t steps = 3;
  uint32_t layers = 1;
  bool bidirectional = false;
  bool bias = true;
  uint16_t activation = 5;  ///< of the RNN: 2 rectifier, 5 tanh
  uint16_t complex_type = 0;

  std::vector<CellData> cells;  ///< of layer l: l, or 2 l and, for the reverse, 2 l + 1
  std::vector<float> input;     ///< [steps, ins]

  uint32_t directions() const { return bidirectional ? 2 : 1; }
  uint32_t out_size() const { return directions() * hidden; }

  /// The width of the input of a layer.
  uint32_t width(uint32_t layer) const { return layer == 0 ? ins : out_size(); }

  /// Fills weights and input with random numbers for which errors don't grow from step to step.
  void fill(uint32_t seed);

  /// The same with integers in few places, so that sums of the RNN with the rectifier are exact.
  void fill_with_integers(uint32_t seed);

  /// "LSTM 5-7, 3 steps, 2 layers, bidirectional, no bias"
  std::string text() const;
};

/// The description of the first layer as a cell.
std::shared_ptr<runtime::RecurrentInfo> cell_description(const RecurrentCase& layer);

/// The description of the whole as a sequence.
std::shared_ptr<runtime::RecurrentInfo> sequence_description(const RecurrentCase& layer);

/// A number, and how far a float computation of it may be off.
struct Approximate {
  double value = 0.0;
  double error = 0.0;
};

/// A sequence in double precision with a state that stays, written from the formulas.
class RecurrentOracle {
 public:
  explicit RecurrentOracle(const RecurrentCase& layer);

  /// The outputs [steps, out_size] of the vectors of an input.
  std::vector<Approximate> run(const std::vector<float>& input);

  /// The same of vectors that are results themselves.
  std::vector<Approximate> run_on(const std::vector<Approximate>& input);

 private:
  using Vector = std::vector<Approximate>;
  struct State {
    Vector h;
    Vector c;
  };

  void step(uint32_t cell, const Vector& x);

  const RecurrentCase layer_;
  std::vector<State> states_;  // as `RecurrentCase::cells`
};

/// The first number that is further off than its error allows, or whose error allows so much that
/// this says nothing; empty if there is none.
std::string first_beyond(const std::vector<float>& found, const std::vector<Approximate>& expected);

}  // namespace marlo::test
