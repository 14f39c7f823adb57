#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/tensor/tensor_shape.h"
#include "qrt_core/utility/export.h"
#include "qrt_toolkit/assign/kernel_set.h"

// What it costs to run a kernel on a layer.

namespace marlo::toolkit {

/// One kernel on one layer, or a converter on one tensor. Plain data.
struct Work {
  std::string kernel;                                ///< its name
  KernelSet set = KernelSet::portable;               ///< what it needs
  runtime::InputUse use = runtime::InputUse::reads;  ///< what becomes of its first input
  std::shared_ptr<runtime::LayerInfo> info;          ///< null for a converter
  std::vector<runtime::TensorShape> inputs;          ///< as it reads them
  runtime::TensorShape output;                       ///< as it makes it
  std::string epilogue;                              ///< applied before that; empty for none
  uint64_t weights = 0;                              ///< numbers in the description
  uint64_t multiply_adds = 0;                        ///< of a pass

  /// A text that is equal for work that takes equally long: kernel, description without ids and
  /// numbers, shapes.
  QRT_API std::string key() const;
};

/// Whether a kernel touches no number of its first input and hands that on, be it under other dims.
bool hands_on(runtime::InputUse use, const std::string& kernel);

/// Says what work costs. One thread at a time asks.
class QRT_API Costs {
 public:
  Costs() = default;
  Costs(const Costs&) = delete;
  Costs& operator=(const Costs&) = delete;
  virtual ~Costs();

  /// Told of several works that do the same, before it is asked about each. Does nothing.
  virtual void compare(const std::vector<Work>& rivals);

  /// Milliseconds, or any other unit that is the same for all work; not negative.
  virtual double of(const Work& work) = 0;
};

/// Costs by rule of thumb: multiply-adds over the rate of the kernel's instructions and kind, and
/// bytes over a bandwidth. The same for every machine, and nothing runs.
class QRT_API EstimatedCosts final : public Costs {
 public:
  double of(const Work& work) override;
};

/// Costs from a table of milliseconds by `Work::key`. What isn't in it is what another says.
class QRT_API RecordedCosts final : public Costs {
 public:
  /// @param otherwise outlives the object
  RecordedCosts(std::map<std::string, double> milliseconds, Costs& otherwise);
  double of(const Work& work) override;

 private:
  std::map<std::string, double> milliseconds_;
  Costs& otherwise_;
};

/// So many multiply-adds a pass takes in a layer with so many weights: each meets every pixel,
/// step or row of the result, or of the input where the layer spreads it.
uint64_t multiply_adds_of(const runtime::LayerInfo& info, uint64_t weights,
                          const runtime::TensorShape& input, const runtime::TensorShape& output);

}  // namespace marlo::toolkit
