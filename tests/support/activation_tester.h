#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/kernel/basic/activation.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "tests/support/activation_reference.h"

namespace marlo::test {

/// Runs one activation and compares it bit for bit with its reference.
///
/// @code
/// ActivationTester().count(37).slope(0.25f).test(row);
/// @endcode
///
/// A failure shows the sentence that repeats it.
class ActivationTester {
 public:
  /// Elements, random from -10 to 10.
  ActivationTester& count(size_t count) {
    count_ = count;
    return *this;
  }
  /// Given elements instead.
  ActivationTester& inputs(std::vector<float> inputs) {
    inputs_ = std::move(inputs);
    count_ = inputs_.size();
    return *this;
  }
  /// Slope of Leaky and PReLU, scale of Linear: a number that half precision holds exactly.
  ActivationTester& slope(float slope) {
    parameters_.a = slope;
    return *this;
  }
  /// Offset of Linear: a number that half precision holds exactly.
  ActivationTester& offset(float offset) {
    parameters_.b = offset;
    return *this;
  }
  /// Puts the input into a buffer outside of the pools, aligned to 4 bytes only.
  ActivationTester& unaligned() {
    unaligned_ = true;
    return *this;
  }
  /// Of the random elements.
  ActivationTester& seed(uint32_t seed) {
    seed_ = seed;
    return *this;
  }

  void test(const kernel::ActivationRow& row) const;

  /// The output of the row's kernel, without a comparison.
  std::vector<float> output(const kernel::ActivationRow& row) const;

  /// The sentence that repeats this test of a kernel.
  std::string sentence(const std::string& kernel) const;

 private:
  std::vector<float> input() const;

  size_t count_ = 0;
  std::vector<float> inputs_;
  ActivationParameters parameters_{0.25f, -1.5f};
  bool unaligned_ = false;
  uint32_t seed_ = 1;
};

/// A description with these parameters, which serves every activation.
std::shared_ptr<runtime::ActivationInfo> activation_info(const ActivationParameters& parameters);

}  // namespace marlo::test
