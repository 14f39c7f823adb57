#include "bench/support/configured_kernel.h"

#include <stdexcept>
#include <string>

#include "qrt_core/utility/application.h"
#include "tests/support/kernels.h"

namespace marlo::bench {

ConfiguredKernel::ConfiguredKernel(const char* name,
                                   const std::shared_ptr<runtime::LayerInfo>& info,
                                   const std::shared_ptr<runtime::InferenceParam>& param,
                                   const runtime::TensorShape& input, const void* values)
    : kernel_(test::make_kernel(name)) {
  utility::create_context(context_, 64);
  if (!kernel_->Config(info, param, context_)) {
    throw std::runtime_error(std::string(name) + " refuses the layer");
  }
  inputs_ = {context_->cpu->CreateTensor(input, values)};
}

void ConfiguredKernel::pass() {
  outputs_.clear();
  kernel_->Forward(inputs_, outputs_, context_);
}

}  // namespace marlo::bench
