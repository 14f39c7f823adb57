#pragma once

#include <memory>
#include <string>

#include "qrt_core/kernel/epilogue.h"
#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/engine/kernel.h"

namespace marlo::test {

/// The kernels of both sets.
const runtime::KernelRegistry& all_kernels();

/// Those of the first set alone.
const runtime::KernelRegistry& documented_kernels();

/// A new kernel by its name. A name that isn't registered is a failure of the test, and throws.
std::shared_ptr<runtime::IKernel> make_kernel(const std::string& name);

/// What a kernel does with its results before it stores them.
kernel::Epilogue epilogue_of(const std::string& kernel);

/// Why a kernel, or another function of the library with the instructions in its name, can't run on
/// this processor; empty if it can.
std::string why_not_here(const std::string& name);

/// The text of the exception that `call` throws; empty if it throws none.
template <typename Call>
std::string failure_of(Call call) {
  try {
    call();
  } catch (const std::exception& failure) {
    return failure.what();
  }
  return "";
}

}  // namespace marlo::test

/// Skips the running test with a reason if the processor can't run a kernel.
#define QRT_SKIP_WHERE_MISSING(kernel)                            \
  do {                                                            \
    const std::string reason = marlo::test::why_not_here(kernel); \
    if (!reason.empty()) GTEST_SKIP() << reason;                  \
  } while (false)
