#include "qrt_core/kernel/extension/recurrent/stated_sequence.h"

#include <cstring>
#include <string>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

using axes::floats_of;
using utility::Assert;

template <typename SequenceRow>
int StatedSequence<SequenceRow>::CheckConfig(const LayerInfo* info,
                                             const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

template <typename SequenceRow>
KernelFamily::Misfits StatedSequence<SequenceRow>::refusals(const LayerInfo* info,
                                                            const InferenceParam* param) const {
  Misfits found = sequence_.refusals(info, param);
  if (!found.empty()) return found;
  // What no pass runs is refused at once.
  const auto* weights = dynamic_cast<const runtime::RecurrentSequenceWeights*>(info);
  return RecurrentSequence::combination_refusals(weights->bidirectional, weights->complex_rnn_type);
}

template <typename SequenceRow>
bool StatedSequence<SequenceRow>::Configure(const LayerInfo* info, const InferenceParam* param,
                                            const Context& context) {
  if (!sequence_.Configure(info, param, context)) return false;
  const auto& sizes = static_cast<const runtime::RecurrentInfo&>(*info);
  const auto& weights = dynamic_cast<const runtime::RecurrentSequenceWeights&>(*info);
  has_first_states_ = row_.states(info)->has_first_states;
  width_ = uint32_t{sizes.hidden_size} * (weights.bidirectional ? 2 : 1);
  states_ = uint32_t{weights.num_layers} * (sequence_.states().c == nullptr ? 1 : 2);
  return true;
}

template <typename SequenceRow>
KernelFamily::Shapes StatedSequence<SequenceRow>::InferOutputShapes(const Shapes& shapes) const {
  Shapes outputs = sequence_.InferOutputShapes(shapes);
  outputs[0].dims[0] += states_;
  return outputs;
}

template <typename SequenceRow>
bool StatedSequence<SequenceRow>::is_one_of_rows(
    const std::shared_ptr<runtime::Tensor>& tensor) const {
  return axes::are_plain(Tensors{tensor}, 1) && tensor->shape.dims == axes::Dims{states_, width_};
}

template <typename SequenceRow>
int StatedSequence<SequenceRow>::CheckInputs(const Tensors& tensors) const {
  const bool fits = tensors.size() == (has_first_states_ ? 2 : 1) &&
                    sequence_.CheckInputs({tensors[0]}) == runtime::KERNEL_OK &&
                    (!has_first_states_ || is_one_of_rows(tensors[1]));
  return tensor_verdict(fits);
}

template <typename SequenceRow>
KernelFamily::Misfits StatedSequence<SequenceRow>::input_refusals(const Shapes& inputs) const {
  if (!has_first_states_) return sequence_.input_refusals(inputs);
  Expectations expected;
  expected.expect(false, "inputs",
                  "a sequence and FLOAT32 states [" + std::to_string(states_) + ", " +
                      std::to_string(width_) + "]",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

template <typename SequenceRow>
int StatedSequence<SequenceRow>::CheckOutputs(const Tensors& tensors) const {
  return sequence_.CheckOutputs(tensors);
}

template <typename SequenceRow>
int StatedSequence<SequenceRow>::Forward(const Tensors& inputs, Tensors& outputs,
                                         const Pass& pass) {
  Assert(states_ != 0, "%s: not configured", row_.name);
  Assert(
      CheckInputs(inputs) == runtime::KERNEL_OK,
      "%s: the inputs must be a sequence, and its first states where the layer has them, FLOAT32 "
      "in main memory",
      row_.name);
  const SequenceStates states = sequence_.states();
  const size_t bytes = states.count * sizeof(float);
  sequence_.ResetState();
  if (has_first_states_) {
    const float* const first = floats_of(*inputs[1]);
    std::memcpy(states.h, first, bytes);
    if (states.c != nullptr) std::memcpy(states.c, first + states.count, bytes);
  }
  Tensors results;
  const int code = sequence_.Forward({inputs[0]}, results, pass);
  const auto output = pass.create(InferOutputShapes({inputs[0]->shape})[0]);
  float* to = floats_of(*output);
  const size_t numbers = runtime::ElementCount(results[0]->shape);
  if (numbers != 0) std::memcpy(to, floats_of(*results[0]), numbers * sizeof(float));
  to += numbers;
  std::memcpy(to, states.h, bytes);
  if (states.c != nullptr) std::memcpy(to + states.count, states.c, bytes);
  outputs.push_back(output);
  return code;
}

template class StatedSequence<RecurrentSequenceRow>;
template class StatedSequence<WideSequenceRow>;

}  // namespace marlo::kernel
