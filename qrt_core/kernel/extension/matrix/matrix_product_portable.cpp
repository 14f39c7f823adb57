#include "qrt_core/kernel/extension/matrix/matrix_product_internal.h"

namespace marlo::kernel::matrix {

static_assert(kProductPortable.lanes == SseVector::kLanes &&
              kProductPortable.panel == kPanelColumns<SseVector>);

void multiply_portable(const ProductTask& task) noexcept { multiply<SseVector>(task); }

void pack_portable(const ColumnSource& source, float* packed) noexcept {
  pack_columns<SseVector>(source, packed);
}

}  // namespace marlo::kernel::matrix
