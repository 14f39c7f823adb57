#pragma once

#include <memory>

#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/kernel/matrix/full_connection_cores.h"

// Full connections: output = weights * input + bias for one vector. Weights are
// [out_features, in_features].

namespace marlo::kernel {

class FullConnection;

/// One full connection.
struct FullConnectionRow : KernelRow {
  using Family = FullConnection;
  using TensorPointer = std::shared_ptr<runtime::TensorCPU>;

  /// Whether the kernel can run these numbers of features, both above zero.
  bool (*accepts)(uint32_t in_features, uint32_t out_features) = nullptr;
  runtime::LayoutType layout = runtime::LayoutType::C;  ///< of the output, and of what checks pass
  bool takes_any_layout = false;                        ///< the checks don't compare it
  /// Input and output are [rows, features]. Row 0 alone is computed, and the other rows of the
  /// output stay as the allocator left them; models rely on no more.
  bool is_batch = false;
  /// Outputs of a block, and inputs: the core reads weights packed as [out/n, in/n, n, n].
  uint32_t block = 1;
  matrix::FullConnectionCore core = nullptr;  ///< adds onto the biases
};

/// See `FullConnectionRow`. Immutable once configured.
class FullConnection : public KernelFamily {
 public:
  explicit FullConnection(const FullConnectionRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  bool passes(const Tensors& tensors, uint32_t features) const;
  const float* readable_input(const Tensors& inputs) const;
  void start_output(runtime::TensorCPU& output) const;

  const FullConnectionRow& row_;
  uint32_t in_features_ = 0;
  uint32_t out_features_ = 0;
  std::shared_ptr<runtime::TensorCPU> weight_;
  std::shared_ptr<runtime::TensorCPU> bias_;  // empty without a bias
};

/// @name Acceptance of features
/// @{
bool accepts_any_features(uint32_t in_features, uint32_t out_features);
/// Both fill blocks of eight.
bool accepts_blocks_of_8(uint32_t in_features, uint32_t out_features);
/// Both fill blocks of four, and are equal: the kernel's loops exchange the two counts, and would
/// leave both tensors if they differed.
bool accepts_square_blocks_of_4(uint32_t in_features, uint32_t out_features);
/// None. What these two kernels store and what they would compute don't fit together: plain weights
/// of two dimensions that a core walks by a third stride, or weights that their packing refuses, so
/// that there are none. Either would read outside of tensors, and give no full connection.
bool accepts_no_features(uint32_t in_features, uint32_t out_features);
/// @}

/// Over vectors.
constexpr FullConnectionRow full_connection(matrix::FullConnectionCore core) {
  FullConnectionRow row;
  row.accepts = accepts_any_features;
  row.core = core;
  return row;
}

/// Over vectors that come in any layout.
constexpr FullConnectionRow full_connection_of_any(matrix::FullConnectionCore core) {
  FullConnectionRow row = full_connection(core);
  row.takes_any_layout = true;
  return row;
}

/// With weights in blocks.
constexpr FullConnectionRow in_blocks_of(uint32_t block,
                                         decltype(FullConnectionRow::accepts) accepts,
                                         FullConnectionRow row) {
  row.block = block;
  row.accepts = accepts;
  return row;
}

constexpr FullConnectionRow full_connection_of_batch(matrix::FullConnectionCore core) {
  FullConnectionRow row = full_connection(core);
  row.layout = runtime::LayoutType::BC;
  row.is_batch = true;
  return row;
}

/// A registered name without a kernel that could run.
constexpr FullConnectionRow refused_full_connection() {
  FullConnectionRow row = full_connection(nullptr);
  row.accepts = accepts_no_features;
  row.layout = runtime::LayoutType::FLEXIABLE;
  return row;
}

// clang-format off
#define QRT_FULL_CONNECTION_KERNELS(KERNEL) \
  KERNEL(FullConnection_Fallback_C_Float_M1, full_connection(matrix::dot_portable))

#define QRT_FULL_CONNECTION_KERNELS_SGEMM(KERNEL) \
  KERNEL(FullConnection_SGEMM_C_Float_M1, full_connection(matrix::dot_sgemm))

#define QRT_FULL_CONNECTION_KERNELS_SSE(KERNEL)                                            \
  KERNEL(FullConnection_SSE_C_Float_M1, full_connection(matrix::dot_sse))                  \
  KERNEL(FullConnection_SSE_C44_Float_M1,                                                  \
         in_blocks_of(4, accepts_square_blocks_of_4,                                       \
                      full_connection(matrix::blocks_of_4_sse)))                           \
  KERNEL(FullConnection_SSE_BC_Float_M1, full_connection_of_batch(matrix::dot_batch_sse))  \
  KERNEL(FullConnection_SSE_C4HW4_Float_M1, refused_full_connection())

#define QRT_FULL_CONNECTION_KERNELS_AVX(KERNEL)                                            \
  KERNEL(FullConnection_AVX_C_Float_M1, on_avx(full_connection_of_any(matrix::dot_m1_avx)))        \
  KERNEL(FullConnection_AVX_C_Float_M2,                                                    \
         on_avx(in_blocks_of(8, accepts_blocks_of_8,                                              \
                      full_connection(matrix::blocks_in_order_avx))))                       \
  KERNEL(FullConnection_AVX_C_Float_M3, on_avx(full_connection(matrix::dot_m3_avx)))               \
  KERNEL(FullConnection_AVX_C88_Float_M1,                                                  \
         on_avx(in_blocks_of(8, accepts_blocks_of_8,                                              \
                      full_connection_of_any(matrix::blocks_of_8_avx))))                    \
  KERNEL(FullConnection_AVX_C8HW8_Float_M1, refused_full_connection())
// clang-format on

QRT_FULL_CONNECTION_KERNELS(QRT_KERNEL)
QRT_IF_SGEMM(QRT_FULL_CONNECTION_KERNELS_SGEMM(QRT_KERNEL))
QRT_IF_SSE(QRT_FULL_CONNECTION_KERNELS_SSE(QRT_KERNEL))
QRT_IF_AVX(QRT_FULL_CONNECTION_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const FullConnectionRow*> full_connection_rows = {
    QRT_FULL_CONNECTION_KERNELS(QRT_KERNEL_ROW)
        QRT_IF_SGEMM(QRT_FULL_CONNECTION_KERNELS_SGEMM(QRT_KERNEL_ROW))
            QRT_IF_SSE(QRT_FULL_CONNECTION_KERNELS_SSE(QRT_KERNEL_ROW))
                QRT_IF_AVX(QRT_FULL_CONNECTION_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
