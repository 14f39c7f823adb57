#include "qrt_toolkit/assign/rounding.h"

namespace marlo::toolkit {
namespace {

struct Method {
  const char* part;  // of a kernel's name
  RoundingGrowth growth;
};

// The first that a name has. Magnitudes of filtering's factors: 4 of patches, 2.25 of filters, 9 of outputs; of
// Strassen's products: 18 for each of two levels of quadrants. What is usual was measured on 64 channels of normal
// numbers, halves of them below zero or replaced by it: root mean squares of the errors of 0.77e-6 and 2.98e-6 for
// filtering in tiles of 4 and 6, and 0.31e-6 for sums. Of the others a trial tells all.
constexpr Method kMethods[] = {{"Winograd6", {81, 10}},
                               {"Winograd4", {81, 2.5}},
                               {"Winograd", {81, 1}},
                               {"Strassen", {324, 1}}};

// Tiles of 6 pass 1e-4 of a network's largest output where it enlarges errors (Inception v3 with random weights:
// 2.5e-4, where tiles of 4 make 0.7e-4 and sums 0.4e-4), so a tolerance of 1e-4 doesn't take them.
constexpr double kGrowthOfTolerance = 5e4;

}  // namespace

RoundingGrowth rounding_growth(const std::string& kernel) {
  for (const Method& method : kMethods) {
    if (kernel.find(method.part) != std::string::npos) return method.growth;
  }
  return {};
}

double tolerance_for_rounding(const std::string& kernel) {
  const double growth = rounding_growth(kernel).usual;
  return growth > 1 ? growth / kGrowthOfTolerance : 0;
}

bool may_round_as(const std::string& kernel, double tolerance) {
  return tolerance >= tolerance_for_rounding(kernel);
}

}  // namespace marlo::toolkit
