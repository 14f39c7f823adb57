#pragma once

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/inference_config.h"

// For programs that are linked against the static library and know their models: kernels one by one.
// What `qrt select` writes includes this.

namespace marlo::runtime::entries {

/// Declares the function that enters kernel `Name`, and no other, in a registry. The static library
/// has it for every kernel of its build; a program that calls it for a few carries only those.
/// Stands in this namespace, once for each kernel.
#define QRT_DECLARE_KERNEL_ENTRY(Name) void Name(marlo::runtime::KernelRegistry& kernels);

/// Enters a class of parameters: an application's configuration may name it.
void InferenceParamConv2DQuant(InferenceParamRegistry& params);
/// The same.
void InferenceParamUpsampling2DQuant(InferenceParamRegistry& params);

}  // namespace marlo::runtime::entries
