#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/engine/registration.h"

namespace marlo::runtime {

using namespace kernel;

// Six of these stand in the portable group as well; the first entry of a key stays.
void register_common_kernels(KernelRegistry& kernels) {
  QRT_COMMON_KERNELS(QRT_ADD_KERNEL)
  add_kernel<Input_Fallback_M1>(kernels);
  add_kernel<Concatenate_MainMemory_Fallback>(kernels);
  add_kernel<Transform_MainMemory_Reshape_Fallback>(kernels);
  add_kernel<BroadcastOperator_Fallback_Float_M1>(kernels);
  add_kernel<HSigmoid_Fallback_Float_M1>(kernels);
  add_kernel<HSwish_Fallback_Float_M1>(kernels);
}

void register_portable_kernels(KernelRegistry& kernels) { QRT_PORTABLE_KERNELS(QRT_ADD_KERNEL) }

namespace entries {
QRT_COMMON_KERNELS(QRT_DEFINE_KERNEL_ENTRY)
QRT_PORTABLE_KERNELS(QRT_DEFINE_KERNEL_ENTRY)
}  // namespace entries

}  // namespace marlo::runtime
