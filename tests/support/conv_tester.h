#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qrt_core/kernel/conv/reference/reference_convolution.h"
#include "tests/support/conv_case.h"

namespace marlo::test {

/// Runs one convolution on every kind of data and compares it with its definition.
///
/// @code
/// ConvTester().channels(16, 24).size(15, 14).kernel(3, 3).stride(2).padding(1, 0, 2, 1).test(row);
/// @endcode
///
/// A failure shows the sentence that repeats it. Lines take the horizontal half of each pair.
class ConvTester : public WindowSetters<ConvTester, ConvCase> {
 public:
  ConvTester& channels(uint32_t in, uint32_t out) {
    sizes_.in_channels = in;
    sizes_.out_channels = out;
    return *this;
  }
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
  uint32_t seed_ = 1;
};

}  // namespace marlo::test
