#include "tests/support/paths.h"

namespace marlo::test {

std::string source_path(const std::string& path) { return QRT_SOURCE_DIR "/" + path; }

std::string test_data_path(const std::string& path) { return source_path("tests/data/" + path); }

}  // namespace marlo::test
