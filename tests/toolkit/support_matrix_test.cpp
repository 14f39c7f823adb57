#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "qrt_toolkit/import_onnx.h"
#include "tests/support/paths.h"

namespace marlo::toolkit {
namespace {

// The table of docs/import.md is the table of operators.
TEST(SupportMatrix, IsThatOfTheDocument) {
  std::vector<std::string> expected;
  for (const OperatorSupport& row : supported_operators()) {
    expected.push_back("| " + row.name + " | " + std::to_string(row.since) + " | " +
                       (row.is_lowered ? "layers" : "constants") + " | " + row.limits + " |");
  }
  std::vector<std::string> found;
  std::ifstream lines(marlo::test::source_path("docs/import.md"));
  for (std::string line; std::getline(lines, line);) {
    const bool row = line.size() > 2 && line[0] == '|' && line[2] >= 'A' && line[2] <= 'Z';
    if (row) found.push_back(line);
  }
  EXPECT_THAT(found, ::testing::ElementsAreArray(expected));
}

}  // namespace
}  // namespace marlo::toolkit
