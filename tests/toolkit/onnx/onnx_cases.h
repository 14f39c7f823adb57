#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "qrt_toolkit/graph/numbers.h"

// The test cases that ONNX publishes with itself: folders with a model, inputs and outputs.

namespace marlo::toolkit::test {

/// One set of data of a case.
struct DataSet {
  std::vector<std::filesystem::path> inputs;
  std::vector<std::filesystem::path> outputs;
};

struct OnnxCase {
  std::string name;  ///< "node/test_add"
  std::filesystem::path model;
  std::vector<DataSet> data;
};

/// All cases below `root`, by name; none where the folder isn't there.
std::vector<OnnxCase> onnx_cases(const std::filesystem::path& root);

/// The committed table of cases that aren't supported: name and reason.
std::map<std::string, std::string> refused_cases(const std::filesystem::path& table);

/// Where `result` leaves the expected numbers by more than a relative 1e-3 and an absolute 1e-5, or
/// has another type or shape; empty where it doesn't.
std::string difference(const Numbers& result, const Numbers& expected);

}  // namespace marlo::toolkit::test
