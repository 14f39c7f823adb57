#include "qrt_toolkit/assign/epilogue.h"

#include <algorithm>
#include <cmath>

namespace marlo::toolkit {
namespace {

double rectifier(double x) { return std::max(x, 0.0); }
double up_to_six(double x) { return std::clamp(x, 0.0, 6.0); }
double hard_sigmoid(double x) { return up_to_six(x + 3) / 6; }
double hard_swish(double x) { return hard_sigmoid(x) * x; }
double sigmoid(double x) { return 1 / (1 + std::exp(-x)); }
double silu(double x) { return sigmoid(x) * x; }
double tangent(double x) { return std::tanh(x); }

struct Entry {
  std::string_view epilogue;
  EpilogueFunction function;
};

constexpr Entry kFunctions[] = {
    {"ReLU", rectifier},  {"ReLU6", up_to_six}, {"HSigmoid", hard_sigmoid}, {"HSwish", hard_swish},
    {"Sigmoid", sigmoid}, {"SiLU", silu},       {"Tanh", tangent},
};

}  // namespace

EpilogueFunction epilogue_function(std::string_view epilogue) {
  for (const Entry& entry : kFunctions) {
    if (entry.epilogue == epilogue) return entry.function;
  }
  return nullptr;
}

std::vector<float> finished(std::vector<float> numbers, EpilogueFunction function) {
  if (function == nullptr) return numbers;
  for (float& number : numbers) number = static_cast<float>(function(double{number}));
  return numbers;
}

}  // namespace marlo::toolkit
