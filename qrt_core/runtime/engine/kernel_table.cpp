#include <unordered_map>

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
  // Tools ask for every kernel of every layer, so the names are looked up and not walked through.
  // Kept to the end of the process, as whoever asks may go after what is static here.
  static const auto* const table = [] {
    auto* const made = new std::unordered_map<std::string_view, InstructionSet>;
    const auto add = [made](const kernel::KernelRow& row) { made->emplace(row.name, row.needs); };
    kernel::for_each_row(add);
    kernel::for_each_extension_row(add);
    return made;
  }();
  const auto found = table->find(kernel);
  return found != table->end() ? found->second : InstructionSet::baseline;
}

// By the names alone: loading asks, and rows would keep every kernel in programs that register few.
bool is_extension([[maybe_unused]] std::string_view kernel) {
#define QRT_IS_NAMED(Name, row) \
  if (kernel == #Name) return true;
  QRT_EXTENSION_KERNELS(QRT_IS_NAMED)
#undef QRT_IS_NAMED
  return false;
}

}  // namespace marlo::runtime
