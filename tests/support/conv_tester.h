#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qrt_core/kernel/conv/reference_convolution.h"
#include "tests/support/conv_case.h"

namespace marlo::test {

/// Runs one convolution on every kind of data and compares it with its definition.
///
/// @code
/// ConvTester().channels(16, 24).size(15, 14).kernel(3, 3).stride(2).padding(1, 0, 2, 1).test(row);
/// @endcode
///
/// A failure shows the sentence that repeats it. Lines take the horizontal half of each pair.
class ConvTester {
 public:
  ConvTester& channels(uint32_t in, uint32_t out) {
    sizes_.in_channels = in;
    sizes_.out_channels = out;
    return *this;
  }
  ConvTester& size(uint32_t height, uint32_t width) {
    sizes_.height = height;
    sizes_.width = width;
    return *this;
  }
  ConvTester& kernel(uint32_t height, uint32_t width) {
    sizes_.kernel_y = height;
    sizes_.kernel_x = width;
    return *this;
  }
  ConvTester& stride(uint32_t vertical, uint32_t horizontal) {
    sizes_.stride_y = vertical;
    sizes_.stride_x = horizontal;
    return *this;
  }
  ConvTester& stride(uint32_t both) { return stride(both, both); }
  ConvTester& dilation(uint32_t vertical, uint32_t horizontal) {
    sizes_.dilation_y = vertical;
    sizes_.dilation_x = horizontal;
    return *this;
  }
  ConvTester& dilation(uint32_t both) { return dilation(both, both); }
  ConvTester& padding(int left, int right, int top, int bottom) {
    sizes_.padding_l = left;
    sizes_.padding_r = right;
    sizes_.padding_t = top;
    sizes_.padding_b = bottom;
    return *this;
  }
  ConvTester& padding(int all) { return padding(all, all, all, all); }
  ConvTester& groups(uint32_t groups) {
    sizes_.groups = groups;
    return *this;
  }
  ConvTester& bias(bool bias) {
    sizes_.bias = bias;
    return *this;
  }
  /// Of the random data.
  ConvTester& seed(uint32_t seed) {
    seed_ = seed;
    return *this;
  }

  const ConvCase& sizes() const { return sizes_; }

  /// Tests the row's kernel: small integers exactly, floats within their bound, tensors from a
  /// hostile pool and an input in an unaligned buffer of its own. A kernel that doesn't take these
  /// sizes must refuse them in `CheckConfig`. What a kernel accepts and leaves partly uncomputed,
  /// groups that it doesn't know and channels that don't fill a block, isn't run.
  /// @return whether the kernel ran
  template <typename Geometry>
  bool test(const kernel::ConvolutionRow<Geometry>& row) const;

  /// The output of the row's kernel for given data, without a comparison.
  template <typename Geometry>
  std::vector<float> output(const kernel::ConvolutionRow<Geometry>& row,
                            const ConvData& data) const;

  /// The sentence that repeats this test of a kernel.
  std::string sentence(const std::string& kernel) const;

 private:
  ConvCase sizes_;
  uint32_t seed_ = 1;
};

}  // namespace marlo::test
