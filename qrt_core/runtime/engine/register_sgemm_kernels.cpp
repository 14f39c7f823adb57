#include "qrt_core/runtime/engine/registration.h"
#include "qrt_core/utility/build_options.h"

#if QRT_WITH_SGEMM

namespace marlo::runtime {

// The group of matrix products is part of the order of registration; its kernels come with the
// products themselves.
void register_sgemm_kernels(KernelRegistry& kernels) { (void)kernels; }

}  // namespace marlo::runtime

#endif
