#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "qrt_core/kernel/epilogue.h"
#include "tests/support/oracle.h"

namespace marlo::test {

/// Whether two arrays hold the same bits; all NaNs count as one.
testing::AssertionResult same_bits(const std::vector<float>& found,
                                   const std::vector<float>& expected);

/// Whether each number is exactly the sum, as it must be for products of small integers.
testing::AssertionResult exactly(const std::vector<float>& found, const std::vector<Sum>& expected);

/// Whether each number is as close to the sum as `scale * Sum::bound()`.
testing::AssertionResult within_bounds(const std::vector<float>& found,
                                       const std::vector<Sum>& expected, double scale = 1.0);

/// Whether each number is as close to the epilogue of the sum as `epilogue_error` of
/// `scale * Sum::bound()`.
testing::AssertionResult within_bounds_after(kernel::Epilogue epilogue,
                                             const std::vector<float>& found,
                                             const std::vector<Sum>& expected, double scale = 1.0);

}  // namespace marlo::test
