#pragma once

#include <memory>
#include <string_view>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/inference_config.h"

namespace marlo::runtime {

// One function per group, so that a build can leave a group out. A kernel that several groups name
// is entered once: the first registration of a key stays.

void register_common_kernels(KernelRegistry& kernels);
void register_portable_kernels(KernelRegistry& kernels);
void register_sse_kernels(KernelRegistry& kernels);
void register_avx_kernels(KernelRegistry& kernels);
void register_sgemm_kernels(KernelRegistry& kernels);

/// The second set, as far as this build has it.
void register_extension_kernels(KernelRegistry& kernels);

/// Whether a kernel is one of the second set.
bool is_extension(std::string_view kernel);

/// "InferenceParamConv2DQuant" and "InferenceParamUpsampling2DQuant".
void register_quantisation_params(InferenceParamRegistry& params);

/// "InferenceParamConv2DQuant".
void register_convolution_quantisation_param(InferenceParamRegistry& params);

/// Enters a factory under a key that isn't there yet.
void enter_kernel(KernelRegistry& kernels, const char* name, std::shared_ptr<IKernel> (*make)());

/// Enters kernel class `Kernel` under its name.
template <typename Kernel>
void add_kernel(KernelRegistry& kernels) {
  enter_kernel(kernels, Kernel::name,
               [] { return std::shared_ptr<IKernel>(static_cast<IKernel*>(new Kernel)); });
}

/// The same for one entry of a family's list; see `QRT_KERNEL`.
#define QRT_ADD_KERNEL(Name, row) add_kernel<Name>(kernels);

/// Defines the function of kernel_entries.h for one entry of a family's list. Each group's are
/// compiled into sections of their own, from which a linker takes those that are called.
#define QRT_DEFINE_KERNEL_ENTRY(Name, row) \
  void Name(KernelRegistry& kernels) { add_kernel<kernel::Name>(kernels); }

}  // namespace marlo::runtime
