#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/tensor/tensor_shape.h"
#include "qrt_core/utility/export.h"

// What a model says of its inputs and outputs in `NetExtraInfo::summary`: one line of JSON that
// begins with the key "qrt_model". Whoever imports networks writes it; any text may stand behind.

namespace marlo::utility {

/// One input or output as its model describes it. All threads may read it.
struct DescribedTensor {
  std::string name;             ///< the id of its layer
  std::vector<uint32_t> sizes;  ///< without batch, outermost first; 0 for one that is free
  runtime::LayoutType layout = runtime::LayoutType::FLEXIABLE;  ///< of the tensor
  /// Where a batch of one stands among the source's axes; nothing for a source without one.
  std::optional<size_t> batch;
  std::string color;         ///< of pictures: "rgb", "bgr" or "gray"; empty if it isn't said
  std::vector<float> mean;   ///< is subtracted from samples of 0 to 255; empty if it isn't said
  std::vector<float> scale;  ///< then multiplies them; empty if it isn't said

  /// Whether it says how pictures are prepared.
  bool has_preparation() const { return !color.empty() || !mean.empty() || !scale.empty(); }
};

/// What a model says of itself. All threads may read it.
struct ModelSummary {
  std::string source;                    ///< name of the file that it comes from
  std::string producer;                  ///< what wrote that file
  std::vector<DescribedTensor> inputs;   ///< in the order of the layers
  std::vector<DescribedTensor> outputs;  ///< in the order of the network's outputs

  /// The input of a layer; null if it isn't described.
  const DescribedTensor* input(const std::string& name) const {
    for (const DescribedTensor& described : inputs) {
      if (described.name == name) return &described;
    }
    return nullptr;
  }
};

/// Reads the line; nothing for a text that has none, or a damaged one.
/// @param summary as `NetExtraInfo` holds it
QRT_API std::optional<ModelSummary> read_summary(const std::string& summary);

/// The FLOAT32 shape of a tensor that is given with the source's sizes, with or without its batch;
/// nothing for sizes that aren't those described.
/// @param sizes outermost first
QRT_API std::optional<runtime::TensorShape> described_shape(const DescribedTensor& described,
                                                            std::vector<uint32_t> sizes);

}  // namespace marlo::utility
