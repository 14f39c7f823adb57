#pragma once

#include <string>

#include "qrt_toolkit/tune/tune.h"

// What a tuned configuration says of itself.

namespace marlo::toolkit {

/// A summary with the line that says what it was tuned for, in place of one that it had.
std::string with_mark(const std::string& summary, const TuneOptions& options);

/// The library that measurements belong to: "qrt_core 1.0, 216 kernels".
std::string library_name(const runtime::KernelRegistry& kernels);

}  // namespace marlo::toolkit
