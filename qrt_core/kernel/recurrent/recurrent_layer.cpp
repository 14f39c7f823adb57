#include "qrt_core/kernel/conv/steps/weights.h"
#include "qrt_core/kernel/recurrent/recurrent.h"
#include "qrt_core/kernel/recurrent/recurrent_checks_internal.h"
#include "qrt_core/utility/log.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::LayoutType;
using utility::Assert;

namespace {

std::shared_ptr<runtime::TensorCPU> floats(const std::string& text, std::vector<uint32_t> dims,
                                           const runtime::Context& context) {
  return decode_weights(text, {std::move(dims), DataType::FLOAT32, LayoutType::FLEXIABLE}, context);
}

const float* values(const std::shared_ptr<runtime::TensorCPU>& tensor) {
  return tensor == nullptr ? nullptr : static_cast<const float*>(tensor->RawPointer());
}

}  // namespace

bool RecurrentWeights::decode(const Texts& texts, uint32_t rows, uint32_t in_size,
                              uint32_t hidden_size, const runtime::Context& context) {
  weight_ih_ = floats(texts.weight_ih, {rows, in_size}, context);
  weight_hh_ = floats(texts.weight_hh, {rows, hidden_size}, context);
  bias_ih_ = nullptr;
  bias_hh_ = nullptr;
  if (weight_ih_ == nullptr || weight_hh_ == nullptr) return false;
  if (texts.bias_ih == nullptr) return true;
  bias_ih_ = floats(*texts.bias_ih, {rows}, context);
  bias_hh_ = floats(*texts.bias_hh, {rows}, context);
  return bias_ih_ != nullptr && bias_hh_ != nullptr;
}

recurrent::StepTask RecurrentWeights::task() const {
  recurrent::StepTask task;
  task.weight_ih = values(weight_ih_);
  task.weight_hh = values(weight_hh_);
  task.bias_ih = values(bias_ih_);
  task.bias_hh = values(bias_hh_);
  task.in_size = weight_ih_->shape.dims[1];
  task.hidden_size = weight_hh_->shape.dims[1];
  return task;
}

int RecurrentLayer::size_verdict(const runtime::RecurrentInfo& sizes) {
  if (sizes.in_size == 0) return recurrent::NO_INPUTS;
  if (sizes.hidden_size == 0) return recurrent::NO_HIDDEN_SIZE;
  return runtime::KERNEL_OK;
}

void RecurrentLayer::start(const runtime::RecurrentInfo& sizes,
                           const runtime::RecurrentActivation* activation) {
  in_size_ = sizes.in_size;
  hidden_size_ = sizes.hidden_size;
  activation_ = activation == nullptr ? nullptr : recurrent::activation_of(*activation);
  scratch_ = nullptr;
}

void RecurrentLayer::finish(const Context& context) {
  scratch_ =
      context.cpu->CreateTensor({{2, rows()}, DataType::FLOAT32, LayoutType::FLEXIABLE}, nullptr);
}

recurrent::StepTask RecurrentLayer::step_task(const RecurrentWeights& weights, float* h,
                                              float* c) const {
  recurrent::StepTask task = weights.task();
  task.activation = activation_;
  task.h = h;
  task.c = c;
  task.scratch = static_cast<float*>(scratch_->RawPointer());
  return task;
}

void RecurrentLayer::require_configured() const {
  Assert(scratch_ != nullptr, "%s: not configured", name_);
  Assert(!network_.has_activation || activation_ != nullptr, "Not Implemented.");
}

}  // namespace marlo::kernel
