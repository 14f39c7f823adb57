#if !defined(__AVX__) || !defined(__FMA__)
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/matrix/matrix_product_internal.h"

namespace marlo::kernel::matrix {

static_assert(kProductFma.lanes == FusedVector::kLanes &&
              kProductFma.panel == kPanelColumns<FusedVector>);

void multiply_fma(const ProductTask& task) noexcept { multiply<FusedVector>(task); }

void pack_fma(const ColumnSource& source, float* packed) noexcept {
  pack_columns<FusedVector>(source, packed);
}

}  // namespace marlo::kernel::matrix
