#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/engine/registration.h"

namespace marlo::runtime {

void enter_kernel(KernelRegistry& kernels, const char* name, std::shared_ptr<IKernel> (*make)()) {
  kernels.Register(name, make, false);
}

const char* PrintedName(InstructionSet set) {
  switch (set) {
    case InstructionSet::avx:
      return "AVX";
    case InstructionSet::fma:
      return "AVX and FMA";
    case InstructionSet::avx2:
      return "AVX2 and FMA";
    case InstructionSet::avx512:
      return "AVX-512";
    default:
      return "SSE2";
  }
}

InstructionSet needs_of(std::string_view kernel) {
  InstructionSet needs = InstructionSet::baseline;
  const auto read = [&](const kernel::KernelRow& row) {
    if (kernel == row.name) needs = row.needs;
  };
  kernel::for_each_row(read);
  kernel::for_each_extension_row(read);
  return needs;
}

bool is_extension(std::string_view kernel) {
  bool found = false;
  kernel::for_each_extension_row(
      [&](const kernel::KernelRow& row) { found = found || kernel == row.name; });
  return found;
}

}  // namespace marlo::runtime
