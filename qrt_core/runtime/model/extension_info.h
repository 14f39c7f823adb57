#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_core/utility/export.h"

// Descriptions of the second set's operators. Their type codes begin at 1000, their sizes have 32
// bits and their parameters are floats. Files without them don't know of them; a build without the
// second set refuses a file that holds one.
//
// Axes are those of a layer's tensor, which has no batch: axis 0 is its first dim. A negative axis
// counts from the end, -1 being the last. Where a description has axes, its tensors are in the order
// of their dims: any layout but C4HW4 and C8HW8.

namespace marlo::runtime {

/// The first type code of the second set.
constexpr uint16_t kFirstExtensionLayerType = 1000;

/// What an `ElementFunctionInfo` computes of each x, with its `alpha` and `beta`. The kernels'
/// names begin with the function's.
enum class ElementFunction : uint32_t {
  Abs = 0,               ///< |x|
  Neg = 1,               ///< -x
  Square = 2,            ///< x * x
  Sqrt = 3,              ///< square root
  Reciprocal = 4,        ///< 1 / x
  Floor = 5,             ///< the largest whole number that isn't above x
  Ceil = 6,              ///< the smallest whole number that isn't below x
  Round = 7,             ///< the nearest whole number, ties to even
  Sign = 8,              ///< -1, 0 or 1
  Exp = 9,               ///< e to the x
  Log = 10,              ///< natural logarithm
  Erf = 11,              ///< error function
  HardSigmoid = 12,      ///< min(max(alpha x + beta, 0), 1)
  LeakyReLU = 13,        ///< x, and alpha x below 0
  Elu = 14,              ///< x, and alpha (exp(x) - 1) below 0
  Selu = 15,             ///< beta times Elu
  Celu = 16,             ///< x, and alpha (exp(x / alpha) - 1) below 0
  GELU = 17,             ///< x (1 + erf(x / sqrt 2)) / 2
  GELUTanh = 18,         ///< x (1 + tanh(sqrt(2 / pi) (x + 0.044715 x^3))) / 2
  SiLU = 19,             ///< x sigmoid(x)
  Swish = 20,            ///< x sigmoid(alpha x)
  Softplus = 21,         ///< log(1 + exp(x))
  Softsign = 22,         ///< x / (1 + |x|)
  Mish = 23,             ///< x tanh(softplus(x))
  Clip = 24,             ///< min(max(x, alpha), beta)
  ScaleShift = 25,       ///< alpha x + beta
  ThresholdedReLU = 26,  ///< x above alpha, 0 elsewhere
  Pow = 27,              ///< x to the alpha
  Sin = 28,              ///< sine
  Cos = 29,              ///< cosine
  Tan = 30,              ///< tangent
  Asin = 31,             ///< inverse sine
  Acos = 32,             ///< inverse cosine
  Atan = 33,             ///< inverse tangent
  Sinh = 34,             ///< hyperbolic sine
  Cosh = 35,             ///< hyperbolic cosine
  Asinh = 36,            ///< inverse hyperbolic sine
  Acosh = 37,            ///< inverse hyperbolic cosine
  Atanh = 38,            ///< inverse hyperbolic tangent
  Not = 39,              ///< 1 for 0, 0 for all else
  IsNaN = 40,            ///< 1 for a NaN, 0 for all else
  Shrink = 41,           ///< x + beta below -alpha, x - beta above alpha, 0 between
};

/// A function of every element of a tensor of any layout.
class QRT_API ElementFunctionInfo : public LayerInfo {
 public:
  ElementFunctionInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t function = 0;  ///< an `ElementFunction`
  float alpha = 1.0f;     ///< first parameter
  float beta = 0.0f;      ///< second parameter
};

/// What a `BinaryFunctionInfo` computes of two elements a and b. Comparisons and logic give 1 and 0;
/// logic takes all but 0 for true.
enum class BinaryFunction : uint32_t {
  Add = 0,              ///< a + b
  Sub = 1,              ///< a - b
  Mul = 2,              ///< a * b
  Div = 3,              ///< a / b
  Pow = 4,              ///< a to the b
  Min = 5,              ///< the smaller one; a NaN if one is
  Max = 6,              ///< the larger one; a NaN if one is
  Mod = 7,              ///< what a leaves when divided by b, with the sign of a
  PReLU = 8,            ///< a, and a * b where a is below 0
  Equal = 9,            ///< a = b
  Less = 10,            ///< a < b
  LessOrEqual = 11,     ///< a <= b
  Greater = 12,         ///< a > b
  GreaterOrEqual = 13,  ///< a >= b
  And = 14,             ///< both
  Or = 15,              ///< either
  Xor = 16,             ///< one alone
  Select = 17,          ///< b where a isn't 0, and 0 elsewhere, whatever b is there
};

/// A function of the elements of two tensors, whose dims broadcast from the last one on: each is
/// equal to the other's, or 1, or not there.
///
/// The second tensor may be a constant in the description: then the layer has one input.
class QRT_API BinaryFunctionInfo : public LayerInfo {
 public:
  BinaryFunctionInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t function = 0;                ///< a `BinaryFunction`
  bool has_constant = false;            ///< whether `constant` takes the place of an input
  bool constant_is_first = false;       ///< whether it is a, and the input b
  std::vector<uint32_t> constant_dims;  ///< its dims, outermost first
  std::vector<float> constant;          ///< its elements, as floats in every form
};

/// Layer normalisation: from the axis on, all elements less their mean, over the root of their
/// variance plus `eps`, then times `scale` plus `shift`.
class QRT_API LayerNormInfo : public LayerInfo {
 public:
  LayerNormInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int32_t axis = -1;  ///< the first axis that is normalised over
  float eps = 1e-5f;  ///< added to the variance
  WeightBlob scale;   ///< one for each normalised element; empty for 1
  WeightBlob shift;   ///< one for each normalised element; empty for 0
};

/// Normalisation by groups of channels, [C, ...]: each group's elements less their mean, over the
/// root of their variance plus `eps`, then times the channel's `scale` plus its `shift`. With as
/// many groups as channels it is instance normalisation.
class QRT_API GroupNormInfo : public LayerInfo {
 public:
  GroupNormInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t groups = 1;  ///< of as many channels each
  float eps = 1e-5f;    ///< added to the variance
  WeightBlob scale;     ///< one for each channel; empty for 1
  WeightBlob shift;     ///< one for each channel; empty for 0
};

/// Softmax along one axis: exp(x - m) over the sum of these, m being the largest x; or its
/// logarithm.
class QRT_API AxisSoftmaxInfo : public LayerInfo {
 public:
  AxisSoftmaxInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int32_t axis = -1;       ///< the axis
  bool logarithm = false;  ///< x - m - log(sum) instead
};

/// The product of two tensors of matrices, alpha * a * b: the last two dims are a matrix's, those
/// before them broadcast. A tensor of one dim is a row if it is a, a column if it is b, and the
/// output is without that dim.
class QRT_API MatMulInfo : public LayerInfo {
 public:
  MatMulInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  bool transpose_a = false;  ///< a's matrices are given as their transposes
  bool transpose_b = false;  ///< b's matrices are given as their transposes
  float alpha = 1.0f;        ///< factor
};

/// A full connection of every vector along the last axis: [..., in_features] to
/// [..., out_features].
class QRT_API DenseInfo : public LayerInfo {
 public:
  DenseInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t in_features = 0;   ///< elements of a vector
  uint32_t out_features = 0;  ///< elements of a result
  bool if_bias = false;       ///< has a bias
  WeightBlob weight;          ///< [out_features, in_features]
  WeightBlob bias;            ///< [out_features]
};

/// What an `AxisReductionInfo` makes of the elements along its axes.
enum class AxisReduction : uint32_t {
  Sum = 0,        ///< sum
  Mean = 1,       ///< sum over count
  Max = 2,        ///< largest; a NaN if one is
  Min = 3,        ///< smallest; a NaN if one is
  Prod = 4,       ///< product
  L1 = 5,         ///< sum of magnitudes
  L2 = 6,         ///< root of the sum of squares
  SumSquare = 7,  ///< sum of squares
  LogSum = 8,     ///< logarithm of the sum
  LogSumExp = 9,  ///< logarithm of the sum of exponentials
};

/// A reduction over any axes.
class QRT_API AxisReductionInfo : public LayerInfo {
 public:
  AxisReductionInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t function = 0;      ///< an `AxisReduction`
  std::vector<int32_t> axes;  ///< which; empty for all
  bool keep_dims = true;      ///< leaves dims of 1 in their places
};

/// What stands beyond a tensor's borders.
enum class PadMode : uint32_t {
  Constant = 0,  ///< `value`
  Reflect = 1,   ///< its elements mirrored at the outermost ones
  Edge = 2,      ///< its outermost elements
  Wrap = 3,      ///< its elements from the other side on
};

/// Padding and cropping of any axes.
class QRT_API PadInfo : public LayerInfo {
 public:
  PadInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t mode = 0;            ///< a `PadMode`
  float value = 0.0f;           ///< what a constant padding holds
  std::vector<int32_t> before;  ///< elements put in front, for each axis; negative: taken away
  std::vector<int32_t> after;   ///< elements put behind, for each axis; negative: taken away
};

/// Slices along one axis in the order of constant indices: the axis becomes the index's dims.
class QRT_API GatherInfo : public LayerInfo {
 public:
  GatherInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int32_t axis = 0;                  ///< which
  std::vector<uint32_t> index_dims;  ///< dims of the indices; empty for one index and no dim
  std::vector<int32_t> indices;      ///< places along the axis; negative: from its end
};

/// Rows of a constant table by the numbers of an input, FLOAT32 or INT32: [...] to [..., width].
class QRT_API EmbeddingInfo : public LayerInfo {
 public:
  EmbeddingInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t rows = 0;   ///< of the table
  uint32_t width = 0;  ///< elements of a row
  WeightBlob weight;   ///< [rows, width]
};

/// A tensor spread to larger dims, from the last one on: a dim of 1 is repeated.
class QRT_API BroadcastToInfo : public LayerInfo {
 public:
  BroadcastToInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<uint32_t> dims;  ///< 1 leaves a dim as it is
};

/// A tensor that stands in the description. The layer has no inputs; every pass gets a copy.
class QRT_API ConstantInfo : public LayerInfo {
 public:
  ConstantInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<uint32_t> dims;  ///< outermost first
  uint32_t layout = 23;        ///< code of the layout, 23 being FLEXIABLE
  std::vector<float> values;   ///< the elements, as floats in every form
};

/// How a `ResizeInfo` reads between pixels.
enum class ResizeMode : uint32_t {
  Nearest = 0,  ///< the nearest one, as `nearest` says
  Linear = 1,   ///< linear between two along each axis
  Cubic = 2,    ///< cubic between four along each axis
};

/// The place in the input of the centre of output pixel x; `scale` is output over input.
enum class ResizePlaces : uint32_t {
  HalfPixel = 0,        ///< (x + 0.5) / scale - 0.5
  AlignCorners = 1,     ///< x (in - 1) / (out - 1)
  Asymmetric = 2,       ///< x / scale
  HalfPixelOrZero = 3,  ///< as HalfPixel, but 0 where the output has one pixel
};

/// Which pixel is nearest to a place.
enum class ResizeRounding : uint32_t {
  PreferFloor = 0,  ///< the nearest, ties down
  PreferCeil = 1,   ///< the nearest, ties up
  Floor = 2,        ///< down
  Ceil = 3,         ///< up
};

/// Resampling along any axes.
class QRT_API ResizeInfo : public LayerInfo {
 public:
  ResizeInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t mode = 0;                 ///< a `ResizeMode`
  uint32_t places = 0;               ///< a `ResizePlaces`
  uint32_t nearest = 0;              ///< a `ResizeRounding`
  float cubic_coefficient = -0.75f;  ///< a of the cubic kernel
  bool exclude_outside = false;      ///< leaves out what the cubic kernel reads beyond the borders
  std::vector<uint32_t> sizes;       ///< output dims; empty where `scales` say them
  std::vector<float> scales;         ///< output over input for each axis; empty: by the sizes
};

/// Part of a tensor: along some axes every `step`-th element from `start` on, before `end`.
class QRT_API StridedSliceInfo : public LayerInfo {
 public:
  StridedSliceInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<int32_t> axes;    ///< which; all others stay whole
  std::vector<int32_t> starts;  ///< first element; negative: from the end. Cut to the axis
  std::vector<int32_t> ends;    ///< one beyond the last; negative: from the end. Cut to the axis
  std::vector<int32_t> steps;   ///< above 0 forward, below 0 backward
};

/// The same elements under other dims.
class QRT_API ReshapeToInfo : public LayerInfo {
 public:
  ReshapeToInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<int32_t> dims;  ///< 0: as the input's dim in this place; -1, once: what is left
  uint32_t layout = 23;       ///< code of the output's layout, 23 being FLEXIABLE
};

/// Resampling of some axes to sizes that a second tensor has; its numbers aren't read.
class QRT_API ResizeLikeInfo : public LayerInfo {
 public:
  ResizeLikeInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t mode = 0;                 ///< a `ResizeMode`
  uint32_t places = 0;               ///< a `ResizePlaces`
  uint32_t nearest = 0;              ///< a `ResizeRounding`
  float cubic_coefficient = -0.75f;  ///< a of the cubic kernel
  bool exclude_outside = false;      ///< leaves out what the cubic kernel reads beyond the borders
  std::vector<int32_t> axes;         ///< which; all others stay as they are
  std::vector<int32_t> like_axes;    ///< of the second tensor, whose size each gets
  /// Whether nothing is resampled: axes are cut, to as many elements as they share.
  bool only_cuts = false;
};

}  // namespace marlo::runtime
