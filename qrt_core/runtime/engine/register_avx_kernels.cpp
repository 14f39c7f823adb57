#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/engine/registration.h"

#if QRT_WITH_AVX

namespace marlo::runtime {

using namespace kernel;

void register_avx_kernels(KernelRegistry& kernels) { QRT_AVX_KERNELS(QRT_ADD_KERNEL) }

namespace entries {
QRT_AVX_KERNELS(QRT_DEFINE_KERNEL_ENTRY)
}  // namespace entries

}  // namespace marlo::runtime

#endif
