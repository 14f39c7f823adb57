#pragma once

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace marlo::runtime {

/// The source form of a compiler's type name.
inline std::string demangled(const char* name) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
  return status == 0 ? text.get() : name;
}

}  // namespace marlo::runtime
