#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "qrt_core/runtime/model/half_rounding.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_toolkit/import_onnx.h"
#include "tests/toolkit/onnx/network_run.h"
#include "tools/qrt/npy.h"

// Imports the networks that export.py has made and compares them with the framework's own outputs,
// with the weights as they were and as halves: a line for each. It fails where a network isn't
// imported, or differs by more than 1e-4 of its largest output.

namespace {

using marlo::toolkit::ElementType;
using marlo::toolkit::Extents;
using marlo::toolkit::ImportedModel;
using marlo::toolkit::Numbers;
namespace runtime = marlo::runtime;

constexpr double kBound = 1e-4;

Numbers numbers_of_file(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const qrt_tool::NumberArray array = qrt_tool::parse_npy(bytes);
  Numbers numbers(ElementType::float32, Extents(array.sizes.begin(), array.sizes.end()));
  std::copy(array.values.begin(), array.values.end(), numbers.reals().begin());
  return numbers;
}

/// The largest difference as a part of the largest number.
double difference(const Numbers& result, const Numbers& expected) {
  if (result.count() != expected.count()) return HUGE_VAL;
  double most = 0;
  double apart = 0;
  for (size_t i = 0; i < expected.reals().size(); ++i) {
    most = std::max(most, std::fabs(expected.reals()[i]));
    const double distance = std::fabs(result.reals()[i] - expected.reals()[i]);
    apart = std::isnan(distance) ? HUGE_VAL : std::max(apart, distance);
  }
  return apart / std::max(most, 1e-30);
}

void round_to_halves(ImportedModel& model) {
  for (auto& [id, layer] : model.model.model_arr->infos.at(model.report.network)->layers) {
    for (const runtime::LayerWeight& weight : runtime::WeightsOf(*layer)) {
      runtime::RoundToHalves(*weight.blob);
    }
  }
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// One line of the table. @return whether the network agrees
bool compare(const std::filesystem::path& folder, const std::string& name) {
  const std::string stem = (folder / name).string();
  const auto start = std::chrono::steady_clock::now();
  ImportedModel model;
  try {
    model = marlo::toolkit::import_onnx(stem + ".onnx");
  } catch (const marlo::toolkit::ImportError& error) {
    std::printf("| %s | not imported: %s |\n", name.c_str(), error.what());
    return false;
  }
  const double import_time = seconds_since(start);
  const Numbers input = numbers_of_file(stem + ".input.npy");
  const std::string input_name = model.report.inputs.at(0).name;
  const auto largest = [&] {
    const auto results = marlo::toolkit::test::run_network(model, {{{input_name, input}}}).at(0);
    double most = 0;
    for (size_t i = 0; i < results.size(); ++i) {
      const Numbers expected = numbers_of_file(stem + ".output-" + std::to_string(i) + ".npy");
      most = std::max(most, difference(results[i], expected));
    }
    return most;
  };
  const double as_floats = largest();
  round_to_halves(model);
  const double as_halves = largest();
  const size_t layers = model.model.model_arr->infos.at(model.report.network)->squential_ids.size();
  std::printf("| %s | %zu | %.1f | %.2f | %.1e | %.1e |\n", name.c_str(), layers,
              static_cast<double>(model.report.multiply_adds) / 1e6, import_time, as_floats,
              as_halves);
  std::fflush(stdout);
  return as_floats <= kBound;
}

}  // namespace

int main(int count, char** words) {
  if (count < 2) {
    std::fprintf(stderr, "usage: %s FOLDER [NAME...]\n", words[0]);
    return 2;
  }
  const std::filesystem::path folder = words[1];
  std::vector<std::string> names(words + 2, words + count);
  if (names.empty()) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".onnx") names.push_back(entry.path().stem().string());
    }
    std::sort(names.begin(), names.end());
  }
  std::puts("| network | layers | million multiply-adds | import, s | float weights | halves |");
  std::puts("|---|---|---|---|---|---|");
  bool all = !names.empty();
  for (const std::string& name : names) all = compare(folder, name) && all;
  return all ? 0 : 1;
}
