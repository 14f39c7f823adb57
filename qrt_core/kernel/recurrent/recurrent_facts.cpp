#include <algorithm>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/recurrent/recurrent.h"
#include "qrt_core/kernel/recurrent/recurrent_checks_internal.h"

// What recurrent kernels say about descriptions.

namespace marlo::kernel {

using runtime::WeightBlob;

namespace {

// The demands of `CheckConfig` that the verdict tells apart.
template <typename Row>
void expect_sizes(const Row& row, const KernelFamily::LayerInfo* info,
                  const KernelFamily::InferenceParam* param, Expectations& expected) {
  const auto layer = row.describe(info);
  expected.expect(param == nullptr, "", "no inference parameter", "one");
  expected.expect(layer.sizes != nullptr, "", "a description of the network in its name",
                  class_of(info));
  if (layer.sizes == nullptr) return;
  expected.expect(layer.sizes->in_size != 0, "in_size", "above 0", "0");
  expected.expect(layer.sizes->hidden_size != 0, "hidden_size", "above 0", "0");
  if (!recurrent::is_runnable(layer.activation)) {
    expected.expect(false, "activation_type", "2, the rectifier, or 5, tanh",
                    std::to_string(layer.activation->activation_type));
  }
}

// Too few numbers are a refusal, too many a difference.
void expect_numbers(const WeightBlob& blob, const std::string& key, uint64_t count, bool too_many,
                    Expectations& expected) {
  const uint64_t found = numbers_in(blob);
  expected.expect(too_many ? found <= count : found >= count, key, counted(count, "number"),
                  std::to_string(found));
}

// One layer's weights in one direction, with the end of their keys.
struct Blobs {
  const WeightBlob& weight_ih;
  const WeightBlob& weight_hh;
  const WeightBlob& bias_ih;
  const WeightBlob& bias_hh;
  std::string suffix;
};

struct Sizes {
  uint64_t rows, width, hidden;
  bool if_bias;
};

void expect_blobs(const Blobs& blobs, const Sizes& sizes, bool too_many, Expectations& expected) {
  const auto key = [&](const char* name) { return name + blobs.suffix; };
  expect_numbers(blobs.weight_ih, key("weight_ih"), sizes.rows * sizes.width, too_many, expected);
  expect_numbers(blobs.weight_hh, key("weight_hh"), sizes.rows * sizes.hidden, too_many, expected);
  const bool both = !blobs.bias_ih.empty() && !blobs.bias_hh.empty();
  if (sizes.if_bias && both) {
    expect_numbers(blobs.bias_ih, key("bias_ih"), sizes.rows, too_many, expected);
    expect_numbers(blobs.bias_hh, key("bias_hh"), sizes.rows, too_many, expected);
  }
  if (!too_many) return;
  const bool any = !blobs.bias_ih.empty() || !blobs.bias_hh.empty();
  expected.expect(sizes.if_bias || !any, "if_bias", "true, as there is a bias", "false");
  expected.expect(!sizes.if_bias || both, "if_bias", "false, as a bias is missing", "true");
}

const WeightBlob& at(const std::vector<WeightBlob>& list, size_t layer) {
  static const WeightBlob none;
  return layer < list.size() ? list[layer] : none;
}

void expect_stack(const runtime::RecurrentInfo& sizes,
                  const runtime::RecurrentSequenceWeights& weights, uint32_t gates, bool too_many,
                  Expectations& expected) {
  const uint64_t hidden = sizes.hidden_size;
  const uint64_t directions = weights.bidirectional ? 2 : 1;
  const uint64_t stacked = weights.complex_rnn_type == 0 ? directions * hidden : hidden;
  for (size_t layer = 0; layer < weights.num_layers && expected.met(); ++layer) {
    const Sizes numbers = {gates * hidden, layer == 0 ? sizes.in_size : stacked, hidden,
                           sizes.if_bias};
    const std::string place = "[" + std::to_string(layer) + "]";
    expect_blobs({at(weights.weight_ih_forward, layer), at(weights.weight_hh_forward, layer),
                  at(weights.bias_ih_forward, layer), at(weights.bias_hh_forward, layer),
                  "_forward" + place},
                 numbers, too_many, expected);
    if (!weights.bidirectional) continue;
    expect_blobs({at(weights.weight_ih_reverse, layer), at(weights.weight_hh_reverse, layer),
                  at(weights.bias_ih_reverse, layer), at(weights.bias_hh_reverse, layer),
                  "_reverse" + place},
                 numbers, too_many, expected);
  }
}

}  // namespace

KernelFamily::Misfits RecurrentCell::refusals(const LayerInfo* info,
                                              const InferenceParam* param) const {
  Expectations expected;
  expect_sizes(row_, info, param, expected);
  if (!expected.met()) return std::move(expected).unmet();
  const auto layer = row_.describe(info);
  const uint64_t hidden = layer.sizes->hidden_size;
  expect_blobs({layer.weights->weight_ih, layer.weights->weight_hh, layer.weights->bias_ih,
                layer.weights->bias_hh, ""},
               {network_.gates * hidden, layer.sizes->in_size, hidden, layer.sizes->if_bias}, false,
               expected);
  return std::move(expected).unmet();
}

KernelFamily::Misfits RecurrentCell::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs",
                  "one FLOAT32 vector of " + counted(in_size_, "number") + " in main memory",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits RecurrentCell::differences(const LayerInfo& info, const Shapes&) const {
  Expectations expected;
  const auto layer = row_.describe(&info);
  if (layer.sizes == nullptr) return {};
  const uint64_t hidden = layer.sizes->hidden_size;
  expect_blobs({layer.weights->weight_ih, layer.weights->weight_hh, layer.weights->bias_ih,
                layer.weights->bias_hh, ""},
               {network_.gates * hidden, layer.sizes->in_size, hidden, layer.sizes->if_bias}, true,
               expected);
  return std::move(expected).unmet();
}

KernelFamily::Misfits RecurrentSequence::refusals(const LayerInfo* info,
                                                  const InferenceParam* param) const {
  Expectations expected;
  expect_sizes(row_, info, param, expected);
  const auto layer = row_.describe(info);
  if (layer.sizes != nullptr) {
    expected.expect(layer.weights->num_layers != 0, "num_layers", "above 0", "0");
  }
  if (expected.met()) {
    expect_stack(*layer.sizes, *layer.weights, network_.gates, false, expected);
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits RecurrentSequence::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs",
                  "one FLOAT32 tensor [steps, " + std::to_string(in_size_) + "] in main memory",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits RecurrentSequence::pass_refusals(const Shapes&) const {
  return combination_refusals(bidirectional_, complex_type_);
}

KernelFamily::Misfits RecurrentSequence::combination_refusals(bool bidirectional,
                                                              uint16_t complex_type) {
  Expectations expected;
  expected.expect(!bidirectional || complex_type == 0, "complex_rnn_type", "0 in two directions",
                  std::to_string(complex_type));
  return std::move(expected).unmet();
}

KernelFamily::Misfits RecurrentSequence::differences(const LayerInfo& info, const Shapes&) const {
  Expectations expected;
  const auto layer = row_.describe(&info);
  if (layer.sizes == nullptr) return {};
  const runtime::RecurrentSequenceWeights& weights = *layer.weights;
  const size_t layers =
      std::max(weights.weight_ih_forward.size(), weights.weight_ih_reverse.size());
  expected.expect(layers <= weights.num_layers, "num_layers", std::to_string(layers),
                  std::to_string(weights.num_layers));
  expected.expect(weights.bidirectional || weights.weight_ih_reverse.empty(), "bidirectional",
                  "true, as there are weights of the reverse direction", "false");
  expected.expect(!weights.bidirectional || weights.complex_rnn_type == 0, "complex_rnn_type",
                  "0 in two directions", std::to_string(weights.complex_rnn_type));
  expect_stack(*layer.sizes, weights, network_.gates, true, expected);
  return std::move(expected).unmet();
}

}  // namespace marlo::kernel
