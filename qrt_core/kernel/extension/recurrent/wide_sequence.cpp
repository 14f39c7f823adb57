#include "qrt_core/kernel/extension/recurrent/wide_sequence.h"

#include <algorithm>
#include <cstring>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"

namespace marlo::kernel {

using axes::floats_of;
using runtime::DataType;
using runtime::LayoutType;
using runtime::WeightBlob;
using utility::Assert;

namespace {

// What `activation_type` says of the rectifier.
constexpr uint16_t kRectifier = 2;

// A bias that isn't there is none.
std::vector<float> bias_of(const std::vector<WeightBlob>& list, size_t layer) {
  return layer < list.size() ? runtime::WeightNumbers(list[layer]) : std::vector<float>();
}

}  // namespace

bool WideSequence::Configure(const LayerInfo* info, const InferenceParam*, const Context& context) {
  const auto description = row_.sequence.describe(info);
  in_size_ = description.sizes->in_size;
  hidden_size_ = description.sizes->hidden_size;
  bidirectional_ = description.weights->bidirectional;
  complex_type_ = description.weights->complex_rnn_type;
  cells_.clear();
  h_.clear();
  c_.clear();
  if (context.cpu == nullptr) return false;
  if (row_.update != nullptr) {
    update_ = row_.cores.*row_.update;
  } else {
    update_ = description.activation->activation_type == kRectifier ? row_.cores.rnn_rectify
                                                                    : row_.cores.rnn_tangent;
  }
  for (uint32_t layer = 0; layer < description.weights->num_layers; ++layer) {
    for (uint32_t direction = 0; direction < directions(); ++direction) {
      if (!take_cell(*description.weights, layer, direction == 1, description.sizes->if_bias,
                     context)) {
        return false;
      }
    }
  }
  h_.assign(cells_.size() * hidden_size_, 0.0f);
  if (row_.sequence.network.has_cell_state) c_.assign(h_.size(), 0.0f);
  return true;
}

bool WideSequence::take_cell(const Weights& weights, uint32_t layer, bool is_reverse, bool has_bias,
                             const Context& context) {
  const auto& ih = is_reverse ? weights.weight_ih_reverse : weights.weight_ih_forward;
  const auto& hh = is_reverse ? weights.weight_hh_reverse : weights.weight_hh_forward;
  if (layer >= ih.size() || layer >= hh.size()) return false;
  Cell cell;
  const uint32_t stacked = complex_type_ == 0 ? out_size() : hidden_size_;
  cell.width = layer == 0 ? in_size_ : stacked;
  cell.input_weights = packed(ih[layer], cell.width, context);
  cell.state_weights = packed(hh[layer], hidden_size_, context);
  if (cell.input_weights == nullptr || cell.state_weights == nullptr) return false;
  if (has_bias) {
    const auto& of_input = is_reverse ? weights.bias_ih_reverse : weights.bias_ih_forward;
    const auto& of_state = is_reverse ? weights.bias_hh_reverse : weights.bias_hh_forward;
    const std::vector<float> input = bias_of(of_input, layer);
    const std::vector<float> state = bias_of(of_state, layer);
    const bool both = !input.empty() && !state.empty();
    if (both && (input.size() < rows() || state.size() < rows())) return false;
    if (both) take_biases(input, state, cell);
  }
  if (is_gru() && cell.hidden.empty()) cell.hidden.assign(hidden_size_, 0.0f);
  cells_.push_back(std::move(cell));
  return true;
}

void WideSequence::take_biases(const std::vector<float>& input, const std::vector<float>& state,
                               Cell& cell) const {
  cell.bias.assign(input.begin(), input.begin() + rows());
  const size_t added = is_gru() ? size_t{2} * hidden_size_ : rows();
  for (size_t i = 0; i < added; ++i) cell.bias[i] += state[i];
  if (is_gru()) {
    cell.hidden.assign(state.begin() + static_cast<std::ptrdiff_t>(added), state.begin() + rows());
  }
}

// The transpose of [rows, depth] in panels; null if the text is too short.
WideSequence::Tensor WideSequence::packed(const std::string& text, uint32_t depth,
                                          const Context& context) const {
  const std::vector<float> weights = runtime::WeightNumbers(text);
  if (weights.size() < uint64_t{rows()} * depth) return nullptr;
  const size_t lanes = row_.cores.product.lanes;
  const auto columns = static_cast<uint32_t>(matrix::packed_size(1, rows(), lanes));
  Tensor tensor = context.cpu->CreateTensor(axes::plain_shape({columns, depth}), nullptr);
  row_.cores.product.pack({weights.data(), 1, depth, depth, rows()}, floats_of(*tensor));
  return tensor;
}

KernelFamily::Shapes WideSequence::InferOutputShapes(const Shapes& shapes) const {
  const bool usable = !shapes.empty() && !shapes[0].dims.empty();
  Assert(usable, "%s: there must be one input [steps, %u]", row_.name, in_size_);
  return {{{shapes[0].dims[0], out_size()}, DataType::FLOAT32, LayoutType::SC}};
}

int WideSequence::ResetState() {
  std::fill(h_.begin(), h_.end(), 0.0f);
  std::fill(c_.begin(), c_.end(), 0.0f);
  return runtime::KERNEL_OK;
}

bool WideSequence::passes(const Tensors& tensors, uint32_t width) const {
  if (!is_one_float(tensors)) return false;
  const auto& dims = tensors[0]->shape.dims;
  return dims.size() > 1 && dims[1] == width;
}

int WideSequence::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(passes(tensors, in_size_));
}

KernelFamily::Misfits WideSequence::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs",
                  "one FLOAT32 tensor [steps, " + std::to_string(in_size_) + "] in main memory",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

int WideSequence::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(passes(tensors, out_size()) && tensors[0]->shape.layout == LayoutType::SC);
}

int WideSequence::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) {
  const runtime::TensorCPU& input = float_input(row_.name, inputs);
  Assert(!cells_.empty(), "%s: not configured", row_.name);
  const bool fits = is_float_in_main_memory(input.shape) && !input.shape.dims.empty() &&
                    runtime::ElementCount(input.shape) >= uint64_t{input.shape.dims[0]} * in_size_;
  Assert(fits, "%s: the input must be a FLOAT32 tensor [steps, %u] in main memory", row_.name,
         in_size_);
  Assert(!bidirectional_ || complex_type_ == 0, "Not Implemented.");
  const uint32_t steps = input.shape.dims[0];
  const auto output = pass.create(InferOutputShapes({input.shape})[0]);
  const auto scratch = pass.create(axes::plain_shape(
      {static_cast<uint32_t>((size_t{steps} + 2) * rows() + matrix::product_scratch(steps))}));
  const size_t layers = cells_.size() / directions();
  std::shared_ptr<runtime::TensorCPU> between;
  if (layers > 1) between = pass.create(output->shape);
  outputs.push_back(output);
  // From here on nothing fails, so that the state is that of whole sequences only.
  Lines lines{};
  lines.input = floats_of(input);
  lines.steps = steps;
  lines.gates = floats_of(*scratch);
  lines.step = lines.gates + size_t{steps} * rows();
  lines.candidate = lines.step + rows();
  lines.scratch = lines.candidate + rows();
  for (size_t layer = 0; layer < layers; ++layer) {
    // By turns, so that the last layer writes to the output.
    lines.output = floats_of((layers - layer) % 2 == 1 ? *output : *between);
    for (size_t direction = 0; direction < directions(); ++direction) {
      const size_t row = layer * directions() + direction;
      run_direction(cells_[row], row, direction == 1, lines);
    }
    lines.input = lines.output;
  }
  return runtime::KERNEL_OK;
}

void WideSequence::run_direction(const Cell& cell, size_t state_row, bool is_reverse,
                                 const Lines& lines) {
  if (lines.steps == 0) return;
  matrix::ProductTask product;
  product.a = lines.input;
  product.a_row = cell.width;
  product.packed = floats_of(*cell.input_weights);
  product.bias = cell.bias.empty() ? nullptr : cell.bias.data();
  product.c = lines.gates;
  product.c_row = rows();
  product.rows = lines.steps;
  product.columns = rows();
  product.depth = cell.width;
  product.scratch = lines.scratch;
  row_.cores.product.multiply(product);
  run_steps(cell, state_row, is_reverse, lines);
}

// Step k of the reverse direction takes the k-th vector from the end.
void WideSequence::run_steps(const Cell& cell, size_t state_row, bool is_reverse,
                             const Lines& lines) {
  float* const state = h_.data() + state_row * hidden_size_;
  recurrent::WideUpdate update;
  update.gates = lines.step;
  update.h = state;
  update.c = c_.empty() ? nullptr : c_.data() + state_row * hidden_size_;
  update.size = hidden_size_;
  matrix::ProductTask product;
  product.packed = floats_of(*cell.state_weights);
  product.c = lines.step;
  product.rows = 1;
  product.columns = rows();
  product.depth = hidden_size_;
  for (size_t k = 0; k < lines.steps; ++k) {
    const size_t place = is_reverse ? lines.steps - 1 - k : k;
    float* const gates = lines.gates + place * rows();
    if (is_gru()) {
      // The input's part of the candidate stays apart from the state's.
      float* const candidate = gates + size_t{2} * hidden_size_;
      std::memcpy(lines.candidate, candidate, hidden_size_ * sizeof(float));
      std::memcpy(candidate, cell.hidden.data(), hidden_size_ * sizeof(float));
      update.candidate = lines.candidate;
    }
    product.a = update.h;
    product.bias = gates;
    row_.cores.product.multiply(product);
    update.next = lines.output + place * out_size() + (is_reverse ? hidden_size_ : 0);
    update_(update);
    update.h = update.next;
  }
  std::memcpy(state, update.h, hidden_size_ * sizeof(float));
}

}  // namespace marlo::kernel
