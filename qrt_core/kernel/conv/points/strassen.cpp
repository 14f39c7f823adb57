#include "qrt_core/kernel/conv/points/strassen.h"

#include "qrt_core/kernel/conv/points/strassen_cores.h"
#include "qrt_core/kernel/layout/fill_cores.h"

#if QRT_WITH_AVX

namespace marlo::kernel::conv {

using runtime::DeviceCPU;
using runtime::TensorCPU;

namespace {

constexpr uint32_t kMostDepth = 2;
constexpr size_t kWeightUnit = 64;
constexpr size_t kPixelUnit = 8;

/// A quadrant of weights: the address of its first block, and blocks from row to row.
struct Weights {
  const float* data;
  size_t stride;
};

/// A quadrant of pixels.
struct Pixels {
  const float* data;
  size_t stride;
};

/// A quadrant of pixels that is written.
struct Result {
  float* data;
  size_t stride;

  operator Pixels() const { return {data, stride}; }
};

std::shared_ptr<TensorCPU> scratch(DeviceCPU& device, size_t rows, size_t columns, size_t unit) {
  return device.CreateF32FlexiableMainMemory(
      {static_cast<uint32_t>(rows), static_cast<uint32_t>(columns), static_cast<uint32_t>(unit)},
      nullptr);
}

float* floats_of(TensorCPU& tensor) { return static_cast<float*>(tensor.RawPointer()); }

/// One level: quadrants of half the size, and its scratch.
class Level {
 public:
  Level(size_t rows, size_t inner, size_t columns, uint32_t depth, DeviceCPU& device)
      : rows_(rows / 2),
        inner_(inner / 2),
        columns_(columns / 2),
        depth_(depth),
        device_(device),
        t1_(scratch(device, rows_, inner_, kWeightUnit)),
        t2_(scratch(device, inner_, columns_, kPixelUnit)),
        t3_(scratch(device, rows_, columns_, kPixelUnit)) {}

  // Comments give the step that each line is.
  void run(Weights a, Pixels b, Result c) {
    const Weights a11 = a, a12 = right(a, inner_, kWeightUnit);
    const Weights a21 = below(a, rows_, kWeightUnit), a22 = below(a12, rows_, kWeightUnit);
    const Pixels b11 = b, b12 = right(b, columns_, kPixelUnit);
    const Pixels b21 = below(b, inner_, kPixelUnit), b22 = below(b12, inner_, kPixelUnit);
    const Result c11 = c, c12 = right(c, columns_, kPixelUnit);
    const Result c21 = below(c, rows_, kPixelUnit), c22 = below(c12, rows_, kPixelUnit);
    float* const w = floats_of(*t1_);
    const Weights t1 = {w, inner_};
    const Result t2 = {floats_of(*t2_), columns_};
    const Result t3 = {floats_of(*t3_), columns_};

    combine_weights(MatrixSub_A, a11, a21, w);     // T1 = A11 - A21
    combine_inputs(MatrixSub_BC, b22, b12, t2);    // T2 = B22 - B12
    multiply(t1, t2, c21);                         // C21 = T1 T2
    combine_weights(MatrixAdd_A, a21, a22, w);     // T1 = A21 + A22
    combine_inputs(MatrixSub_BC, b12, b11, t2);    // T2 = B12 - B11
    multiply(t1, t2, c22);                         // C22 = T1 T2
    combine_weights(MatrixSub_A, t1, a11, w);      // T1 = T1 - A11
    combine_inputs(MatrixSub_BC, b22, t2, t2);     // T2 = B22 - T2
    multiply(t1, t2, c12);                         // C12 = T1 T2
    combine_weights(MatrixSub_A, a12, t1, w);      // T1 = A12 - T1
    multiply(t1, b22, c11);                        // C11 = T1 B22
    multiply(a11, b11, t3);                        // T3 = A11 B11
    combine_outputs(MatrixAdd_BC, t3, c12, c12);   // C12 = T3 + C12
    combine_outputs(MatrixAdd_BC, c12, c21, c21);  // C21 = C12 + C21
    combine_outputs(MatrixAdd_BC, c12, c22, c12);  // C12 = C12 + C22
    combine_outputs(MatrixAdd_BC, c21, c22, c22);  // C22 = C21 + C22
    combine_outputs(MatrixAdd_BC, c12, c11, c12);  // C12 = C12 + C11
    combine_inputs(MatrixSub_BC, t2, b21, t2);     // T2 = T2 - B21
    multiply(a22, t2, c11);                        // C11 = A22 T2
    combine_outputs(MatrixSub_BC, c21, c11, c21);  // C21 = C21 - C11
    multiply(a12, b21, c11);                       // C11 = A12 B21
    combine_outputs(MatrixAdd_BC, t3, c11, c11);   // C11 = T3 + C11
  }

 private:
  using Combine = decltype(&MatrixAdd_A);

  template <typename Matrix>
  static Matrix right(Matrix matrix, size_t columns, size_t unit) {
    return {matrix.data + columns * unit, matrix.stride};
  }

  template <typename Matrix>
  static Matrix below(Matrix matrix, size_t rows, size_t unit) {
    return {matrix.data + rows * matrix.stride * unit, matrix.stride};
  }

  void combine_weights(Combine combine, Weights a, Weights b, float* result) const {
    combine(a.data, b.data, result, rows_, inner_, a.stride, b.stride, inner_);
  }

  void combine_inputs(Combine combine, Pixels a, Pixels b, Result result) const {
    combine(a.data, b.data, result.data, inner_, columns_, a.stride, b.stride, result.stride);
  }

  void combine_outputs(Combine combine, Pixels a, Pixels b, Result result) const {
    combine(a.data, b.data, result.data, rows_, columns_, a.stride, b.stride, result.stride);
  }

  void multiply(Weights a, Pixels b, Result c) const {
    StrassenMultiply(a.data, b.data, c.data, rows_, inner_, columns_, a.stride, b.stride, c.stride,
                     depth_ + 1, device_);
  }

  size_t rows_, inner_, columns_;
  uint32_t depth_;
  DeviceCPU& device_;
  std::shared_ptr<TensorCPU> t1_, t2_, t3_;
};

}  // namespace

void StrassenMultiply(const float* a, const float* b, float* c, size_t rows, size_t inner,
                      size_t columns, size_t lda, size_t ldb, size_t ldc, uint32_t depth,
                      DeviceCPU& device) {
  const bool even = rows % 2 == 0 && inner % 2 == 0 && columns % 2 == 0;
  const bool empty = rows == 0 || inner == 0 || columns == 0;
  if (depth >= kMostDepth || !even || empty) {
    return product_of_blocks_fma(a, b, c, rows, inner, columns, lda, ldb, ldc);
  }
  Level(rows, inner, columns, depth, device).run({a, lda}, {b, ldb}, {c, ldc});
}

void point_c8_strassen(const ConvTask& task, DeviceCPU& device) {
  const size_t pixels = size_t{task.out_height} * task.out_width;
  StrassenMultiply(task.weight, task.input, task.output, task.out_blocks, task.in_blocks, pixels,
                   task.in_blocks, pixels, pixels, 0, device);
  if (task.bias == nullptr) return;
  const size_t plane = pixels * kPixelUnit;
  for (size_t block = 0; block < task.out_blocks; ++block) {
    fill::add_avx(task.output + block * plane, plane, task.bias + block * kPixelUnit);
  }
}

}  // namespace marlo::kernel::conv

#endif
