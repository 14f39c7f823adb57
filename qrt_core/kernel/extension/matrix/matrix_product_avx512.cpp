#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/matrix/matrix_product_internal.h"

namespace marlo::kernel::matrix {

static_assert(kProductAvx512.lanes == Avx512Vector::kLanes &&
              kProductAvx512.panel == kPanelColumns<Avx512Vector>);

void multiply_avx512(const ProductTask& task) noexcept { multiply<Avx512Vector>(task); }

void pack_avx512(const ColumnSource& source, float* packed) noexcept {
  pack_columns<Avx512Vector>(source, packed);
}

}  // namespace marlo::kernel::matrix
