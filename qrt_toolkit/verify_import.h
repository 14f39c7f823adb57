#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/utility/export.h"
#include "qrt_toolkit/import_onnx.h"

// Whether an imported network computes what its source says.

namespace marlo::toolkit {

/// What a verification runs on. Plain data.
struct VerifyOptions {
  /// Numbers for inputs by name, in the source's shape. The name "" stands for the only input.
  /// Inputs that aren't named here get random numbers between -1 and 1.
  std::map<std::string, GivenTensor> inputs;
  /// Folder in ONNX's form for test data: input_0.pb, ..., and output_0.pb, ..., which are then
  /// compared as well. Empty for none.
  std::string test_data;
  uint32_t seed = 1;  ///< of the random numbers
  /// If not empty, is told of steps that are done, and of how many there are.
  std::function<void(size_t done, size_t of)> progress;
};

/// How a layer's numbers differ from those that the source defines. Plain data.
struct Deviation {
  double absolute = 0;  ///< the largest difference
  double relative = 0;  ///< the same over the layer's largest value
};

/// One layer that makes a tensor of the source. Plain data.
struct VerifiedLayer {
  std::string layer;            ///< its id
  std::string node;             ///< the source's node that it comes from
  std::string kernel;           ///< what runs it
  std::vector<uint32_t> shape;  ///< without batch
  double largest_value = 0;     ///< of the magnitudes that the source defines
  Deviation exact;              ///< with the weights as they were
  Deviation halves;             ///< with the weights as a binary file holds them
  size_t place = 0;             ///< of the largest difference with exact weights, in elements
  /// What `exact.absolute` may be: twice what came of disturbing every layer's numbers by as much as
  /// its kernel may be off, n eps S, n being the number of terms in a sum, S the size of the sum
  /// and eps 2^-23.
  double bound = 0;

  /// Whether the difference with exact weights exceeds the bound.
  bool is_beyond() const { return !(exact.absolute <= bound); }
};

/// The result of a verification. Plain data.
struct Verification {
  std::vector<VerifiedLayer> layers;     ///< in the order in which they run
  std::vector<VerifiedLayer> test_data;  ///< outputs against a folder's, in the graph's order
  size_t not_compared = 0;  ///< layers without a tensor of the source: parts of an operator

  /// The first layer beyond its bound, else the first output that isn't the folder's; null if all
  /// agree.
  const VerifiedLayer* first_beyond() const {
    for (const auto* list : {&layers, &test_data}) {
      for (const VerifiedLayer& layer : *list) {
        if (layer.is_beyond()) return &layer;
      }
    }
    return nullptr;
  }
};

/// An import that was verified. Plain data.
struct VerifiedImport {
  ImportedModel imported;
  Verification verification;
};

/// Imports a network, and runs it beside the source's own definition: every operator is computed
/// plainly in double precision, on the same inputs, and every layer that makes a tensor of the
/// source is compared.
/// @throws what `import_onnx` throws; FileError for test data that can't be read or doesn't fit
QRT_API VerifiedImport import_and_verify(const std::string& path, const ImportOptions& options = {},
                                         const VerifyOptions& verify = {});

}  // namespace marlo::toolkit
