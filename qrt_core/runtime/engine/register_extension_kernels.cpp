#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/engine/registration.h"

namespace marlo::runtime {

using namespace kernel;

void register_extension_kernels([[maybe_unused]] KernelRegistry& kernels) {
  QRT_EXTENSION_KERNELS(QRT_ADD_KERNEL)
}

namespace entries {
QRT_EXTENSION_KERNELS(QRT_DEFINE_KERNEL_ENTRY)
}  // namespace entries

}  // namespace marlo::runtime
