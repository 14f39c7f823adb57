#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/layer_info.h"
#include "tests/support/conv_case.h"
#include "tests/support/conv_tester.h"

namespace marlo::test {

/// A convolution kernel of any geometry, as the parameter of a test.
struct ConvRow {
  std::string name;
  runtime::LayoutType layout;
  uint32_t in_block = 1;  ///< channels that stand together in the input
  runtime::LayoutType output_layout;
  kernel::Accepts accepted;
  std::string accepts;     ///< the same in words
  uint32_t out_block = 1;  ///< channels that stand together in the output
  bool is_line = false;
  bool is_transposed = false;
  bool is_reference = false;     ///< one of the portable kernels, which take every size
  bool takes_any_shape = false;  ///< any filter, stride, dilation and padding

  /// Runs `ConvTester::test`.
  std::function<bool(const ConvTester&)> test;
  /// Runs `ConvTester::output`.
  std::function<std::vector<float>(const ConvTester&, const ConvData&)> output;
  /// The description of a layer of these sizes.
  std::function<std::shared_ptr<runtime::LayerInfo>(const ConvCase&, const ConvData&)> describe;
  /// Dims of an input or output.
  std::function<std::vector<uint32_t>(uint32_t channels, int height, int width)> dims;
};

/// Every convolution kernel of this build.
std::vector<ConvRow> all_convolution_rows();

/// The kernels that aren't made for one filter.
std::vector<ConvRow> any_shape_convolution_rows();

/// The portable kernels, which define what the others compute.
std::vector<ConvRow> reference_convolution_rows();

inline void PrintTo(const ConvRow& row, std::ostream* out) { *out << row.name; }

}  // namespace marlo::test
