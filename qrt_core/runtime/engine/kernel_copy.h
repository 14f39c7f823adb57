#pragma once

#include <memory>

#include "qrt_core/runtime/engine/kernel.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// A kernel that can be copied once it is configured. A kernel class implements
/// it beside `IKernel`, so an application's own kernels can as well. Belongs to
/// one thread at a time, as its kernel does.
class QRT_API IKernelCopy {
 public:
  IKernelCopy() = default;
  IKernelCopy(const IKernelCopy&) = delete;
  IKernelCopy& operator=(const IKernelCopy&) = delete;
  virtual ~IKernelCopy();

  /// Another kernel that computes the same for passes on `context`. The two
  /// share what never changes behind `Config`, packed weights above all, and
  /// nothing else: the copy's state is that of a new kernel, and its scratch
  /// memory is its own.
  /// @throws utility::Error without a device where one is needed;
  /// std::bad_alloc
  virtual std::shared_ptr<IKernel> copy_for(const std::shared_ptr<Context>& context) const = 0;
};

}  // namespace marlo::runtime
