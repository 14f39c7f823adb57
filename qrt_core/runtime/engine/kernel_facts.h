#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "qrt_core/runtime/tensor/tensor_shape.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/export.h"

// What a kernel can say about itself beyond the slots of `IKernel`: what it needs, why it refuses,
// and where it computes something else than a description asks for. Nothing in a pass reads it;
// checks, tools and whoever chooses kernels do.

namespace marlo::runtime {

class LayerInfo;
class InferenceParam;

/// The instructions that a kernel needs. Each includes those before it.
enum class InstructionSet : uint8_t {
  baseline,  ///< x86-64 with SSE2, which every processor has
  avx,       ///< AVX
  fma,       ///< AVX and FMA
  avx2,      ///< AVX2 and FMA
  avx512,    ///< AVX-512 F, VL, BW and DQ, and those before
};

/// "AVX and FMA", as a person would name it.
QRT_API const char* PrintedName(InstructionSet set);

/// What a kernel of this library needs, by its name: what `IKernelFacts::needs` says without making
/// one. `baseline` for a name that no kernel of this build has.
///
/// The library never asks what the processor has; whoever lets a configuration choose kernels
/// compares the two.
QRT_API InstructionSet needs_of(std::string_view kernel);

/// What a kernel does with the memory of its first input.
enum class InputUse : uint8_t {
  reads,       ///< the outputs are tensors of their own
  passes_on,   ///< an output is the input itself, or another view of its memory, unchanged
  overwrites,  ///< an output stands where the input stood; the input's numbers are gone
};

/// One point in which a layer is not what a kernel takes, or computes.
using utility::Misfit;

/// A kernel's facts. A kernel class implements it beside `IKernel`, so an application's own kernels
/// can as well: `dynamic_cast<const IKernelFacts*>(kernel)` is null for one that doesn't. Belongs to
/// one thread at a time, as its kernel does.
class QRT_API IKernelFacts {
 public:
  IKernelFacts() = default;
  IKernelFacts(const IKernelFacts&) = delete;
  IKernelFacts& operator=(const IKernelFacts&) = delete;
  virtual ~IKernelFacts();

  /// The instructions without which the kernel must not run.
  virtual InstructionSet needs() const = 0;

  /// What the kernel does with its first input's memory.
  virtual InputUse input_use() const = 0;

  /// The activation that the kernel applies to its results before it stores them, such as "ReLU"; empty
  /// for none. A configuration that names such a kernel names `Straight_Through_Fallback_M1` for the
  /// activation's own layer, which must be the only one to read the results.
  virtual std::string_view epilogue() const;

  /// Why `Config` would refuse a description; empty if it wouldn't. Needs no configuration.
  virtual std::vector<Misfit> refusals(const LayerInfo* info,
                                       const InferenceParam* param) const = 0;

  /// Why `CheckInputs` would refuse inputs of these shapes; empty if it wouldn't. The kernel is
  /// configured.
  virtual std::vector<Misfit> input_refusals(const std::vector<TensorShape>& inputs) const = 0;

  /// Why `Forward` would throw on inputs of these shapes although `CheckInputs` takes them; empty if
  /// it wouldn't. The kernel is configured.
  virtual std::vector<Misfit> pass_refusals(const std::vector<TensorShape>& inputs) const;

  /// Where what the kernel computes is not what the description says, although it accepts it:
  /// groups that it doesn't look at, an activation of another kind, paddings that it adds.
  /// @param info the layer's description
  /// @param inputs the shapes of the layer's inputs as far as they are known; may be empty
  virtual std::vector<Misfit> differences(const LayerInfo& info,
                                          const std::vector<TensorShape>& inputs) const = 0;
};

}  // namespace marlo::runtime
