#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/conv_case.h"

namespace marlo::bench {

/// A convolution layer of a known network.
struct ConvShape {
  enum class Kind { plane, transposed, line };

  std::string name;      ///< "network/layer"
  Kind kind;             ///< of the convolution
  test::ConvCase sizes;  ///< with bias

  /// Products that the layer needs, each with a sum; those with padding count too.
  double multiply_adds() const;
};

/// How many places a window of that extent has in one direction, with both paddings together.
uint32_t places(uint32_t size, int paddings, int extent, uint32_t stride);

/// The layers in bench/shapes.txt.
/// @throws std::runtime_error for a file that isn't there, or a line that isn't a layer
const std::vector<ConvShape>& conv_shapes();

}  // namespace marlo::bench
