#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/tensor/context.h"

// Asking kernels what they take and make, and running one alone.

namespace marlo::toolkit {

/// The kernels that may be tried, and a place to configure them. It belongs to one thread.
class Workshop {
 public:
  using Shapes = std::vector<runtime::TensorShape>;
  using Numbers = std::vector<std::vector<float>>;  ///< per tensor

  /// @param kernels outlives the workshop
  explicit Workshop(const runtime::KernelRegistry& kernels);

  /// A kernel that is configured with a description; null where it refuses.
  std::shared_ptr<runtime::IKernel> configured(const std::string& name,
                                               const std::shared_ptr<runtime::LayerInfo>& info);

  /// What a configured kernel makes of inputs of these shapes; empty where it refuses them, or
  /// makes anything but one tensor.
  std::optional<runtime::TensorShape> made_of(runtime::IKernel& kernel, const Shapes& inputs);

  /// The numbers that a configured kernel makes; empty where it fails, or makes another shape than
  /// it said.
  std::optional<std::vector<float>> run(runtime::IKernel& kernel, const Shapes& inputs,
                                        const Numbers& numbers, const runtime::TensorShape& output);

  const runtime::KernelRegistry& kernels() const { return kernels_; }
  const std::shared_ptr<runtime::Context>& context() const { return context_; }

  /// Gives back the memory of kernels that are gone.
  void clear();

 private:
  const runtime::KernelRegistry& kernels_;
  std::shared_ptr<runtime::Context> context_;
};

/// Numbers for a trial, the same ones each time: of both signs and well beyond the bounds of
/// rectifiers, none of them near zero.
/// @param is_negative_possible else none is below zero
std::vector<float> trial_numbers(size_t count, uint32_t seed, bool is_negative_possible = true);

/// The same for what a layer reads: numbers of rows, from 0 on, where it takes these from a table.
std::vector<float> trial_numbers(const runtime::LayerInfo& layer, const runtime::TensorShape& shape,
                                 uint32_t seed, bool is_negative_possible = true);

/// The same for an input of a network; zeros where its numbers choose rows of tables.
std::vector<float> trial_numbers(const runtime::Net& net, uint32_t input,
                                 const runtime::TensorShape& shape);

/// Whether layers of a type, by its name, only move numbers: none is another one behind them.
bool only_moves(const std::string& type_name);

/// Whether the numbers of a network's input choose rows of tables, as they are or through layers that
/// only move them. Every table has a row 0, and none below.
bool chooses_rows(const runtime::Net& net, uint32_t input);

/// The largest difference over the largest number of the reference; infinity where one has a number
/// and the other has none. 0 says that all bits are equal.
double relative_difference(const std::vector<float>& reference, const std::vector<float>& found);

}  // namespace marlo::toolkit
