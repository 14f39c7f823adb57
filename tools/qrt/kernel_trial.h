#pragma once

#include <string>
#include <vector>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "tools/qrt/network.h"

// Trying every kernel on one layer.

namespace qrt_tool {

/// What came of trying a kernel.
enum class Trial {
  fits,         ///< it takes the layer as it stands
  needs_other,  ///< it takes the description, but its inputs must be converted first
  refuses,      ///< it doesn't take the description
};

/// One kernel, tried on a layer.
struct TriedKernel {
  std::string name;
  Trial result = Trial::refuses;
  /// Why not, or where what it computes is not what the description says.
  std::vector<std::string> reasons;
  std::string missing;  ///< what the processor lacks for it; empty if it runs here
};

/// Tries all kernels on a layer: those that fit first, and by name.
/// @param inputs the shapes that the layer reads; empty where they aren't known
std::vector<TriedKernel> try_kernels(Library& library, const LayerReport& layer,
                                     const std::vector<marlo::runtime::TensorShape>& inputs);

/// The points in which something isn't what a kernel takes, one line each, without those that say
/// no more than that.
std::vector<std::string> reasons_of(const std::vector<marlo::runtime::Misfit>& misfits,
                                    const std::string& kernel);

/// Why a kernel refuses a description, in its own words; empty where it has none.
std::vector<std::string> refusals_of(marlo::runtime::IKernel& kernel,
                                     const marlo::runtime::LayerInfo* info,
                                     const marlo::runtime::InferenceParam* param);

}  // namespace qrt_tool
