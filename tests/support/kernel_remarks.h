#pragma once

#include <string>
#include <vector>

namespace marlo::test {

/// What the catalogue says of a kernel that can't be read off its row.
struct KernelRemark {
  std::string name;
  std::string difference;
  std::string agreement;  ///< instead of the family's; empty for that
};

const std::vector<KernelRemark>& kernel_remarks();

}  // namespace marlo::test
