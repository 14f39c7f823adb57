#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qrt_core/kernel/epilogue.h"
#include "tests/support/conv_case.h"

// What the operators are, in double precision and written from their formulas. Nothing here shares
// code or order of computation with a kernel.

namespace marlo::test {

/// One output of a sum of products, and what bounds the error of computing it in float.
struct Sum {
  double value = 0.0;      ///< sum of a * b
  double magnitude = 0.0;  ///< sum of |a * b|
  size_t terms = 0;        ///< summands

  void add(double term);

  /// How far a float result may be off, in whatever order it was summed: each of the products and
  /// sums rounds once, and no partial sum is larger than `magnitude`.
  double bound() const;
};

/// The result of a convolution: [out_channels, height, width].
struct ConvOracle {
  int height = 0;
  int width = 0;
  std::vector<Sum> sums;
};

/// A convolution over a plane: the window of output (y, x) begins at (y * stride_y - padding_t,
/// x * stride_x - padding_l), and what lies outside of the picture is zero.
ConvOracle convolution(const ConvCase& sizes, const ConvData& data);

/// A transposed convolution: each input adds the filter, times itself, to the outputs from
/// (y * stride_y - p_t, x * stride_x - p_l) on, where p = (kernel - 1) * dilation - padding.
ConvOracle transposed_convolution(const ConvCase& sizes, const ConvData& data);

/// Functions of one element.
double exact_sigmoid(double x);
double exact_hard_sigmoid(double x);

/// What an epilogue makes of a sum.
double exact_epilogue(kernel::Epilogue epilogue, double x);

/// How far the epilogue of a sum may be off that is off by `error` itself: that times the function's
/// steepest slope, and for what isn't a rectifier 8 eps of the larger of 1 and the sum.
double epilogue_error(kernel::Epilogue epilogue, double sum, double error);

/// An activation by the name that begins a kernel's name: "ReLU", "ReLU6", "HSigmoid", "HSwish",
/// "Leaky", "PReLU", "Linear", "Sigmoid" or "TanH".
/// @param a, b slope; or scale and offset
/// @throws std::invalid_argument for another name
double exact_activation(const std::string& function, double x, double a, double b);

}  // namespace marlo::test
