#pragma once

#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"

// What the binary form, which holds weights as halves, makes of a model's weights.

namespace qrt_tool {

/// What all weights of an object lose.
struct HalfReport {
  marlo::runtime::HalfLoss loss;
  /// The weights in which numbers become infinite or zero: `network "net", layer 3 "conv2"
  /// (Conv2d), "weight": 2 of 4640 numbers become infinite, 1 becomes 0`.
  std::vector<std::string> lost;
  std::vector<std::string> infinite;  ///< those of them in which numbers become infinite

  /// "78010 numbers as halves: relative error at most 0.00098, rms 0.00042"
  std::string summary() const;
};

/// What the weights of a model, a network or networks would lose; nothing in other objects.
HalfReport measure_halves(const marlo::runtime::Serializable& object,
                          marlo::runtime::HalfConversion conversion);

/// Rounds them to the nearest halves. The report is as that of `measure_halves`.
HalfReport round_to_halves(marlo::runtime::Serializable& object);

}  // namespace qrt_tool
