#pragma once

#include <functional>
#include <string>

#include "qrt_core/kernel/conv/conv_params.h"

namespace marlo::test {

/// What a convolution kernel accepts, in words: found by trying filters, strides, dilations,
/// paddings, channels and groups. "any" stands for all that were tried.
std::string accepted_in_words(const std::function<bool(const kernel::Conv2dParams&)>& accepts);

/// The same over lines, whose kernels have no second direction.
std::string accepted_in_words(const std::function<bool(const kernel::Conv1dParams&)>& accepts);

}  // namespace marlo::test
