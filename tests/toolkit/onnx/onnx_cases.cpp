#include "onnx_cases.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

namespace marlo::toolkit::test {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> numbered(const fs::path& folder, const std::string& prefix) {
  std::vector<fs::path> files;
  for (int i = 0;; ++i) {
    fs::path file = folder / (prefix + std::to_string(i) + ".pb");
    if (!fs::exists(file)) return files;
    files.push_back(std::move(file));
  }
}

std::vector<fs::path> sorted_folders(const fs::path& root) {
  std::vector<fs::path> folders;
  if (!fs::is_directory(root)) return folders;
  for (const auto& entry : fs::directory_iterator(root)) {
    if (entry.is_directory()) folders.push_back(entry.path());
  }
  std::sort(folders.begin(), folders.end());
  return folders;
}

}  // namespace

std::vector<OnnxCase> onnx_cases(const fs::path& root) {
  std::vector<OnnxCase> cases;
  for (const fs::path& kind : sorted_folders(root)) {
    for (const fs::path& folder : sorted_folders(kind)) {
      OnnxCase one{
          kind.filename().string() + "/" + folder.filename().string(), folder / "model.onnx", {}};
      if (!fs::exists(one.model)) continue;
      for (const fs::path& data : sorted_folders(folder)) {
        one.data.push_back({numbered(data, "input_"), numbered(data, "output_")});
      }
      cases.push_back(std::move(one));
    }
  }
  return cases;
}

std::map<std::string, std::string> refused_cases(const fs::path& table) {
  std::map<std::string, std::string> refused;
  std::ifstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    const size_t gap = line.find(": ");
    refused[line.substr(0, gap)] = gap == std::string::npos ? "" : line.substr(gap + 2);
  }
  return refused;
}

std::string difference(const Numbers& result, const Numbers& expected) {
  if (result.type != expected.type || result.shape != expected.shape) {
    return std::string(name_of(result.type)) + " " + text_of(result.shape) + " instead of " +
           name_of(expected.type) + " " + text_of(expected.shape);
  }
  // The published numbers of this type are cut off, not rounded to the nearest.
  const double relative = expected.type == ElementType::bfloat16 ? 1.0 / 128 : 1e-3;
  for (size_t i = 0; i < static_cast<size_t>(expected.count()); ++i) {
    const double a = result.real(i);
    const double b = expected.real(i);
    const bool same = a == b || (std::isnan(a) && std::isnan(b)) ||
                      (std::isfinite(b) && std::fabs(a - b) <= 1e-5 + relative * std::fabs(b));
    if (!same) {
      std::ostringstream text;
      text << "element " << i << " is ";
      if (std::isnan(a)) {
        text << "NaN";
      } else {
        text << a;
      }
      text << " instead of " << b;
      return text.str();
    }
  }
  return "";
}

}  // namespace marlo::toolkit::test
