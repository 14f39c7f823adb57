#pragma once

#include <map>
#include <string>

namespace marlo::test {

/// What the catalogue says of one kernel.
struct KernelFacts {
  std::string accepts;     ///< what of a description
  std::string input;       ///< layouts
  std::string output;      ///< layouts
  std::string difference;  ///< what sets it apart from its siblings; may be empty
  std::string agreement;   ///< its class of numerical agreement
  std::string needs = {};  ///< instructions
};

/// The facts of every kernel that has a row, by name. They are read off the rows; what a row can't
/// say stands in a table of remarks.
std::map<std::string, KernelFacts> kernel_facts();

/// The remarks of names that no kernel has.
std::string stale_remarks();

/// docs/kernel-catalogue.md.
std::string kernel_catalogue();

/// docs/kernel-catalogue-extensions.md.
std::string extension_catalogue();

}  // namespace marlo::test
