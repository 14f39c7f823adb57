#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bench/support/peer.h"
#include "bench/support/processor.h"
#include "qrt_core/runtime/engine/kernel.h"

// A kernel that is ready to be timed.

namespace marlo::bench {

/// A registered kernel with a context and inputs of its own.
class ConfiguredKernel {
 public:
  /// @param info null for a kernel that runs without a description: it isn't configured
  /// @throws std::runtime_error if the kernel refuses the description
  ConfiguredKernel(const char* name, const std::shared_ptr<runtime::LayerInfo>& info,
                   const std::shared_ptr<runtime::InferenceParam>& param = nullptr);

  /// Appends an input with a copy of these elements.
  void add_input(const runtime::TensorShape& shape, const void* elements);

  /// Appends an input of floats, given as they stand in memory.
  void add_floats(const std::vector<uint32_t>& dims, runtime::LayoutType layout,
                  const std::vector<float>& elements) {
    add_input({dims, runtime::DataType::FLOAT32, layout}, elements.data());
  }

  /// Appends an input of floats in a layout, given as planes.
  /// @param dims of the planes, channels first
  void add_planes(const std::vector<uint32_t>& dims, runtime::LayoutType layout,
                  const std::vector<float>& planes);

  /// One `Forward`; the output of the pass before is given back first.
  void pass() {
    outputs_.clear();
    kernel_->Forward(inputs_, outputs_, context_);
  }

  const std::string& name() const { return name_; }
  Width width() const { return width_of(name_); }

  /// @name Elements of the first input, and of the output of the last pass
  /// @{
  template <typename Element>
  std::span<Element> input() const {
    return elements_of<Element>(*inputs_.at(0));
  }
  template <typename Element>
  std::span<Element> output() const {
    return elements_of<Element>(*outputs_.at(0));
  }
  /// @}

  /// The floats of the output of the last pass as planes.
  std::vector<float> output_planes(uint32_t channels) const;

  /// Elements of all inputs and of the output of the last pass.
  size_t moved_elements() const;

 private:
  template <typename Element>
  static std::span<Element> elements_of(const runtime::Tensor& tensor) {
    return {static_cast<Element*>(tensor.handle.cpu), runtime::ElementCount(tensor.shape)};
  }

  std::string name_;
  std::shared_ptr<runtime::Context> context_;
  std::shared_ptr<runtime::IKernel> kernel_;
  runtime::IKernel::Tensors inputs_;
  runtime::IKernel::Tensors outputs_;
};

/// @name The timed loop over passes of floats, and its columns; a pass has been run before
/// @{

/// The share is that of a copy of as many floats, at the kernel's width, between new arrays.
void time_moving(benchmark::State& state, ConfiguredKernel& kernel);

/// The share is that of a copy between the kernel's own input and output.
void time_transforming(benchmark::State& state, ConfiguredKernel& kernel);

/// The share is that of `limit`, in GFLOP/s.
void time_computing(benchmark::State& state, ConfiguredKernel& kernel, double operations,
                    double limit);
/// @}

/// The column of a peer in turns with passes.
inline void report_peer(benchmark::State& state, ConfiguredKernel& kernel,
                        const std::optional<Peer>& peer) {
  report_peer(
      state, [&kernel] { kernel.pass(); }, peer);
}

}  // namespace marlo::bench
