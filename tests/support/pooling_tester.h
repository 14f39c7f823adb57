#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/kernel/basic/pooling.h"
#include "tests/support/oracle.h"

namespace marlo::test {

/// The sizes of one pooling. A plane is a channel, or a block of them.
struct PoolingCase {
  uint32_t planes = 1;
  uint32_t height = 1;
  uint32_t width = 1;
  uint32_t kernel_y = 1;
  uint32_t kernel_x = 1;
  uint32_t stride_y = 1;
  uint32_t stride_x = 1;
  uint32_t dilation_y = 1;
  uint32_t dilation_x = 1;
  int padding_l = 0;
  int padding_r = 0;
  int padding_t = 0;
  int padding_b = 0;
  bool ceil_mode = false;
  bool count_include_pad = false;
};

/// Runs one pooling on every kind of data and compares it with its definition.
///
/// @code
/// PoolingTester().planes(2).size(15, 14).window(3).stride(2).padding(1, 0, 2, 1).test(row);
/// @endcode
///
/// A failure shows the sentence that repeats it.
class PoolingTester {
 public:
  PoolingTester& planes(uint32_t planes) {
    sizes_.planes = planes;
    return *this;
  }
  PoolingTester& size(uint32_t height, uint32_t width) {
    sizes_.height = height;
    sizes_.width = width;
    return *this;
  }
  PoolingTester& window(uint32_t height, uint32_t width) {
    sizes_.kernel_y = height;
    sizes_.kernel_x = width;
    return *this;
  }
  PoolingTester& window(uint32_t both) { return window(both, both); }
  PoolingTester& stride(uint32_t vertical, uint32_t horizontal) {
    sizes_.stride_y = vertical;
    sizes_.stride_x = horizontal;
    return *this;
  }
  PoolingTester& stride(uint32_t both) { return stride(both, both); }
  PoolingTester& dilation(uint32_t vertical, uint32_t horizontal) {
    sizes_.dilation_y = vertical;
    sizes_.dilation_x = horizontal;
    return *this;
  }
  PoolingTester& padding(int left, int right, int top, int bottom) {
    sizes_.padding_l = left;
    sizes_.padding_r = right;
    sizes_.padding_t = top;
    sizes_.padding_b = bottom;
    return *this;
  }
  PoolingTester& padding(int all) { return padding(all, all, all, all); }
  PoolingTester& ceil_mode(bool ceil_mode) {
    sizes_.ceil_mode = ceil_mode;
    return *this;
  }
  PoolingTester& count_include_pad(bool count) {
    sizes_.count_include_pad = count;
    return *this;
  }

  /// Tests the row's kernel: small integers exactly, floats within their bound, or exactly for
  /// maxima, tensors from a hostile pool and an input in an unaligned buffer of its own.
  void test(const kernel::PoolingRow& row) const;

  /// The output of the row's kernel for given data, without a comparison.
  std::vector<float> output(const kernel::PoolingRow& row, const std::vector<float>& input) const;

  /// The layer.
  std::shared_ptr<runtime::LayerInfo> description(const kernel::PoolingRow& row) const;

  /// The dims of the input.
  std::vector<uint32_t> dims(const kernel::PoolingRow& row) const;

  /// The sentence that repeats this test of a kernel.
  std::string sentence(const std::string& kernel) const;

 private:
  PoolingCase sizes_;
};

/// The result of a pooling.
struct PoolingOracle {
  uint32_t height = 0;
  uint32_t width = 0;
  std::vector<Sum> outputs;
};

/// The definition. What a kernel made for one window leaves out of the description is left out here
/// too: see `PoolingRow`. A window that passes the edge reads on in memory, where zeros follow the
/// last plane.
PoolingOracle pooling(const kernel::PoolingRow& row, const PoolingCase& sizes,
                      const std::vector<float>& input);

}  // namespace marlo::test
