#include "qrt_core/kernel/recurrent/recurrent.h"
#include "qrt_core/kernel/recurrent/recurrent_checks_internal.h"
#include "qrt_core/kernel/tensor_checks.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorCPU;
using utility::Assert;

namespace {

bool is_vector(const KernelFamily::Tensors& tensors, uint32_t size) {
  if (!is_one_float_of(tensors, LayoutType::C)) return false;
  const auto& dims = tensors[0]->shape.dims;
  return !dims.empty() && dims[0] == size;
}

float* values(const std::shared_ptr<TensorCPU>& tensor) {
  return tensor == nullptr ? nullptr : static_cast<float*>(tensor->RawPointer());
}

}  // namespace

RecurrentCell::RecurrentCell(const RecurrentCellRow& row)
    : RecurrentLayer(row.name, row.network), row_(row) {}

int RecurrentCell::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  if (param != nullptr) return runtime::KERNEL_REFUSED;
  const auto description = row_.describe(info);
  if (description.sizes == nullptr) return recurrent::OTHER_CLASS;
  const int verdict = size_verdict(*description.sizes);
  if (verdict != runtime::KERNEL_OK) return verdict;
  if (!recurrent::is_runnable(description.activation)) return recurrent::CELL_ACTIVATION;
  return runtime::KERNEL_OK;
}

bool RecurrentCell::Configure(const LayerInfo* info, const InferenceParam*,
                              const Context& context) {
  const auto description = row_.describe(info);
  h_ = nullptr;
  c_ = nullptr;
  start(*description.sizes, description.activation);
  const runtime::RecurrentCellWeights& weights = *description.weights;
  // A bias that isn't there is none.
  const bool has_bias =
      description.sizes->if_bias && !weights.bias_ih.empty() && !weights.bias_hh.empty();
  const RecurrentWeights::Texts texts = {weights.weight_ih, weights.weight_hh,
                                         has_bias ? &weights.bias_ih : nullptr,
                                         has_bias ? &weights.bias_hh : nullptr};
  if (!weights_.decode(texts, rows(), in_size_, hidden_size_, context)) return false;
  begin_own_state(context);
  return true;
}

void RecurrentCell::begin_own_state(const Context& context) {
  h_ = nullptr;
  // The cell state never leaves the kernel, so every pass works in this one tensor.
  if (network_.has_cell_state) c_ = context.cpu->CreateZeroF32CMainMem(hidden_size_);
  finish(context);
}

KernelFamily::Shapes RecurrentCell::InferOutputShapes(const Shapes&) const {
  return {{{hidden_size_}, DataType::FLOAT32, LayoutType::C}};
}

int RecurrentCell::ResetState() {
  recurrent::fill_with_zeros(h_);
  recurrent::fill_with_zeros(c_);
  return runtime::KERNEL_OK;
}

int RecurrentCell::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_vector(tensors, in_size_));
}

int RecurrentCell::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_vector(tensors, hidden_size_));
}

int RecurrentCell::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) {
  const TensorCPU& input = float_input(name_, inputs);
  require_configured();
  // A vector counts, whatever its dims and its layout are called.
  const bool fits =
      is_float_in_main_memory(input.shape) && runtime::ElementCount(input.shape) >= in_size_;
  Assert(fits, "%s: the input must be a FLOAT32 vector of %u elements in main memory", name_,
         in_size_);
  runtime::DeviceCPU& device = pass.device();
  // A zero state is made here and not earlier: from the second pass on, the new state stands in
  // the block of the one before the last, and there must be such a block.
  const auto h = h_ != nullptr ? h_ : device.CreateZeroF32CMainMem(hidden_size_);
  // The old state is the application's output too, which may have been given another shape.
  auto next = device.CreateTensor(
      runtime::TensorShape({hidden_size_}, runtime::DataType::FLOAT32, runtime::LayoutType::C),
      h->RawPointer());
  Tensors result = {next};
  recurrent::StepTask task = step_task(weights_, values(next), values(c_));
  task.input = static_cast<const float*>(input.RawPointer());
  // From here on nothing fails.
  recurrent::run_step(network_, task);
  h_ = std::move(next);
  outputs.swap(result);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
