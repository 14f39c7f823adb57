#include <cstring>

#include "qrt_core/kernel/recurrent/recurrent.h"
#include "qrt_core/kernel/recurrent/recurrent_checks_internal.h"
#include "qrt_core/kernel/tensor_checks.h"

namespace marlo::kernel {

using recurrent::StepTask;
using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorCPU;
using utility::Assert;

namespace {

float* row_of(const std::shared_ptr<TensorCPU>& state, uint32_t row) {
  return state == nullptr ? nullptr : static_cast<float*>(state->Locate2D(row, 0));
}

// The weights of a direction, as lists with an entry for each layer.
struct DirectionTexts {
  const std::vector<runtime::WeightBlob>& weight_ih;
  const std::vector<runtime::WeightBlob>& weight_hh;
  const std::vector<runtime::WeightBlob>& bias_ih;
  const std::vector<runtime::WeightBlob>& bias_hh;

  bool have(size_t layers) const {
    return weight_ih.size() >= layers && weight_hh.size() >= layers;
  }

  // A bias that isn't there is none.
  RecurrentWeights::Texts of(size_t layer, bool if_bias) const {
    const bool has_bias = if_bias && layer < bias_ih.size() && layer < bias_hh.size() &&
                          !bias_ih[layer].empty() && !bias_hh[layer].empty();
    return {weight_ih[layer], weight_hh[layer], has_bias ? &bias_ih[layer] : nullptr,
            has_bias ? &bias_hh[layer] : nullptr};
  }
};

}  // namespace

RecurrentSequence::RecurrentSequence(const RecurrentSequenceRow& row)
    : RecurrentLayer(row.name, row.network), row_(row) {}

int RecurrentSequence::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  if (param != nullptr) return runtime::KERNEL_REFUSED;
  const auto description = row_.describe(info);
  if (description.sizes == nullptr) return recurrent::OTHER_CLASS;
  const int verdict = size_verdict(*description.sizes);
  if (verdict != runtime::KERNEL_OK) return verdict;
  if (description.weights->num_layers == 0) return recurrent::NO_LAYERS;
  if (!recurrent::is_runnable(description.activation)) return recurrent::SEQUENCE_ACTIVATION;
  return runtime::KERNEL_OK;
}

bool RecurrentSequence::Configure(const LayerInfo* info, const InferenceParam*,
                                  const Context& context) {
  const auto description = row_.describe(info);
  h_ = nullptr;
  c_ = nullptr;
  bidirectional_ = description.weights->bidirectional;
  complex_type_ = description.weights->complex_rnn_type;
  start(*description.sizes, description.activation);
  if (!decode_cells(*description.weights, description.sizes->if_bias, context)) return false;
  begin_own_state(context);
  return true;
}

void RecurrentSequence::begin_own_state(const Context& context) {
  const std::vector<uint32_t> dims = {layers() * directions(), hidden_size_};
  h_ = context.cpu->CreateZeroF32FlexiableMainMem(dims);
  if (network_.has_cell_state) c_ = context.cpu->CreateZeroF32FlexiableMainMem(dims);
  finish(context);
}

bool RecurrentSequence::decode_cells(const Weights& weights, bool has_bias,
                                     const Context& context) {
  const DirectionTexts texts[] = {{weights.weight_ih_forward, weights.weight_hh_forward,
                                   weights.bias_ih_forward, weights.bias_hh_forward},
                                  {weights.weight_ih_reverse, weights.weight_hh_reverse,
                                   weights.bias_ih_reverse, weights.bias_hh_reverse}};
  Cells* const cells[] = {&forward_, &reverse_};
  const size_t count = weights.num_layers;
  const uint32_t stacked_width = complex_type_ == 0 ? out_size() : hidden_size_;
  forward_.clear();
  reverse_.clear();
  for (uint32_t direction = 0; direction < directions(); ++direction) {
    if (!texts[direction].have(count)) return false;
    cells[direction]->resize(count);
    for (size_t layer = 0; layer < count; ++layer) {
      const uint32_t width = layer == 0 ? in_size_ : stacked_width;
      RecurrentWeights& cell = (*cells[direction])[layer];
      if (!cell.decode(texts[direction].of(layer, has_bias), rows(), width, hidden_size_, context))
        return false;
    }
  }
  return true;
}

KernelFamily::Shapes RecurrentSequence::InferOutputShapes(const Shapes& shapes) const {
  const bool usable = !shapes.empty() && !shapes[0].dims.empty();
  Assert(usable, "%s: there must be one input [steps, %u]", name_, in_size_);
  return {{{shapes[0].dims[0], out_size()}, DataType::FLOAT32, LayoutType::SC}};
}

int RecurrentSequence::ResetState() {
  recurrent::fill_with_zeros(h_);
  recurrent::fill_with_zeros(c_);
  return runtime::KERNEL_OK;
}

SequenceStates RecurrentSequence::states() const {
  return {row_of(h_, 0), row_of(c_, 0), runtime::ElementCount(h_->shape)};
}

bool RecurrentSequence::passes(const Tensors& tensors, uint32_t width) const {
  if (!is_one_float(tensors)) return false;
  const auto& dims = tensors[0]->shape.dims;
  return dims.size() > 1 && dims[1] == width;
}

int RecurrentSequence::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(passes(tensors, in_size_));
}

int RecurrentSequence::CheckOutputs(const Tensors& tensors) const {
  const bool fits = passes(tensors, out_size()) && tensors[0]->shape.layout == LayoutType::SC;
  return tensor_verdict(fits);
}

// The floats of all steps.
const float* RecurrentSequence::readable_input(const Tensors& inputs) const {
  const TensorCPU& input = float_input(name_, inputs);
  require_configured();
  const bool fits =
      is_float_in_main_memory(input.shape) && !input.shape.dims.empty() &&
      runtime::ElementCount(input.shape) >= static_cast<uint64_t>(input.shape.dims[0]) * in_size_;
  Assert(fits, "%s: the input must be a FLOAT32 tensor [steps, %u] in main memory", name_,
         in_size_);
  return static_cast<const float*>(input.RawPointer());
}

int RecurrentSequence::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) {
  const float* input = readable_input(inputs);
  Assert(!bidirectional_ || complex_type_ == 0, "Not Implemented.");
  runtime::DeviceCPU& device = pass.device();
  const auto output = device.CreateTensor(InferOutputShapes({inputs[0]->shape})[0], nullptr);
  std::shared_ptr<TensorCPU> between;
  if (bidirectional_ && layers() > 1) between = device.CreateTensor(output->shape, nullptr);
  outputs.push_back(output);
  // From here on nothing fails, so that the state is that of whole sequences only.
  const LayerVectors vectors = {input, in_size_, static_cast<float*>(output->RawPointer()),
                                inputs[0]->shape.dims[0]};
  if (bidirectional_) {
    run_layers(vectors, row_of(between, 0));
  } else {
    run_in_time(vectors);
  }
  return runtime::KERNEL_OK;
}

StepTask RecurrentSequence::cell_task(uint32_t layer, bool is_reverse) const {
  const uint32_t row = layer * directions() + (is_reverse ? 1 : 0);
  const Cells& cells = is_reverse ? reverse_ : forward_;
  return step_task(cells[layer], row_of(h_, row), row_of(c_, row));
}

// One direction: each step goes through all layers before the next one begins.
void RecurrentSequence::run_in_time(const LayerVectors& vectors) const {
  for (size_t t = 0; t < vectors.steps; ++t) {
    const float* x = vectors.input + t * in_size_;
    for (uint32_t layer = 0; layer < layers(); ++layer) {
      StepTask task = cell_task(layer, false);
      task.input = x;
      recurrent::run_step(network_, task);
      x = task.h;
    }
    std::memcpy(vectors.output + t * hidden_size_, x, hidden_size_ * sizeof(float));
  }
}

// Two directions: each layer goes through all steps before the next one begins. Layers write to the
// output and to `between` by turns, so that the last one writes to the output.
void RecurrentSequence::run_layers(const LayerVectors& vectors, float* between) const {
  LayerVectors layer_vectors = vectors;
  for (uint32_t layer = 0; layer < layers(); ++layer) {
    const bool to_output = (layers() - layer) % 2 == 1;
    layer_vectors.output = to_output ? vectors.output : between;
    run_layer(layer, layer_vectors);
    layer_vectors.input = layer_vectors.output;
    layer_vectors.input_size = out_size();
  }
}

// Step k of the reverse direction takes the k-th vector from the end, and its result stands beside
// that of the forward direction for this vector.
void RecurrentSequence::run_layer(uint32_t layer, const LayerVectors& vectors) const {
  StepTask tasks[] = {cell_task(layer, false), cell_task(layer, true)};
  for (size_t k = 0; k < vectors.steps; ++k) {
    const size_t places[] = {k, vectors.steps - 1 - k};
    for (size_t direction = 0; direction < 2; ++direction) {
      StepTask& task = tasks[direction];
      task.input = vectors.input + places[direction] * vectors.input_size;
      recurrent::run_step(network_, task);
      std::memcpy(vectors.output + places[direction] * out_size() + direction * hidden_size_,
                  task.h, hidden_size_ * sizeof(float));
    }
  }
}

}  // namespace marlo::kernel
