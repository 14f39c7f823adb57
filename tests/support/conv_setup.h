#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qrt_core/kernel/conv/steps/conv_geometry.h"
#include "tests/support/conv_case.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"

// From the sizes of a convolution to what its kernels take, for each geometry.

namespace marlo::test {

/// What a geometry makes of sizes: a line has height 1, and nothing else in that direction.
template <typename Geometry>
ConvCase fitted(const ConvCase& sizes);

/// The description of a layer.
template <typename Geometry>
std::shared_ptr<typename Geometry::Info> describe(const ConvCase& sizes, const ConvData& data);

/// The dims of a tensor of one channel count: [channels, height, width], or [channels, width].
template <typename Geometry>
std::vector<uint32_t> dims_of(uint32_t channels, int height, int width);

/// The definition.
template <typename Geometry>
ConvOracle oracle_of(const ConvCase& sizes, const ConvData& data);

/// Whether the output has any elements: each window fits, or the transposed result isn't cut away.
template <typename Geometry>
bool has_output(const ConvCase& sizes);

/// Data whose sums are exact in float.
ConvData integer_data(const ConvCase& sizes, uint32_t seed);

/// Data from -1 to 1.
ConvData float_data(const ConvCase& sizes, uint32_t seed);

/// Data of very different magnitudes: any change in the order of a sum shows in its bits.
ConvData uneven_data(const ConvCase& sizes, uint32_t seed);

}  // namespace marlo::test
