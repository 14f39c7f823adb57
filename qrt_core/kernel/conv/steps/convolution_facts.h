#pragma once

#include <string>
#include <vector>

#include "qrt_core/kernel/conv/steps/acceptance.h"
#include "qrt_core/kernel/epilogue.h"
#include "qrt_core/runtime/tensor/tensor_shape.h"

// What a convolution kernel can say about layers and inputs beyond its checks.

namespace marlo::kernel {

/// What a kernel demands of the tensor on one of its sides. Data types that a check lets pass are
/// not always computed: a pass refuses FLOAT16, so that a configuration can fall back before it.
struct ConvolutionSide {
  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of the tensor
  bool passes_half = false;    ///< the check accepts FLOAT16 beside FLOAT32
  bool tests_channels = true;  ///< the check compares the channels with the description
};

/// What a core computes of the channels that its kernel accepts.
enum class Computes {
  first_group,        ///< groups aren't read: one group, with the first one's weights
  all_groups,         ///< all channels that the groups divide evenly
  filter_per_channel  ///< one output channel for each group, from one input channel
};

/// Why a text of numbers is too short; nothing if it isn't.
std::vector<runtime::Misfit> missing_numbers(const char* member, const std::string& text,
                                             const std::vector<uint32_t>& dims);

/// Why the inputs' check refuses shapes.
/// @param type of the numbers @param planar_dims how many an input has that isn't blocked
std::vector<runtime::Misfit> input_misfits(const ConvolutionSide& side, runtime::DataType type,
                                           uint32_t channels, size_t planar_dims,
                                           const std::vector<runtime::TensorShape>& inputs);

/// Where what is computed of an accepted layer isn't what its description says: groups, and
/// channels that don't fill the blocks of a layout.
std::vector<runtime::Misfit> channel_differences(Computes computes, runtime::LayoutType input,
                                                 runtime::LayoutType output,
                                                 const Conv2dParams& params);

}  // namespace marlo::kernel
