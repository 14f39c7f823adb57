#pragma once

#include <cstddef>
#include <memory>

#include "qrt_core/runtime/engine/kernel.h"

// A kernel that is ready to be timed.

namespace marlo::bench {

/// A registered kernel, configured, with one input.
class ConfiguredKernel {
 public:
  /// @param param null for none
  /// @param values the elements of the input
  /// @throws std::runtime_error if the kernel refuses the description
  ConfiguredKernel(const char* name, const std::shared_ptr<runtime::LayerInfo>& info,
                   const std::shared_ptr<runtime::InferenceParam>& param,
                   const runtime::TensorShape& input, const void* values);

  /// One `Forward`; the output of the pass before is given back first.
  void pass();

  /// The elements of the output of the last pass.
  template <typename Element>
  const Element* output() const {
    return static_cast<const Element*>(outputs_.at(0)->handle.cpu);
  }
  size_t output_count() const { return runtime::ElementCount(outputs_.at(0)->shape); }

 private:
  std::shared_ptr<runtime::Context> context_;
  std::shared_ptr<runtime::IKernel> kernel_;
  runtime::IKernel::Tensors inputs_;
  runtime::IKernel::Tensors outputs_;
};

}  // namespace marlo::bench
