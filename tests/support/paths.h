#pragma once

#include <string>

namespace marlo::test {

/// The path of `path`, which is relative to the root of the sources. Programs ask here rather than be
/// compiled with the root, so that a compiler cache serves every checkout.
std::string source_path(const std::string& path);

/// The same within tests/data.
std::string test_data_path(const std::string& path);

}  // namespace marlo::test
