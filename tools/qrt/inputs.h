#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/qrt/network.h"
#include "tools/qrt/picture.h"

namespace qrt_tool {

/// One input of a network, read from a file.
struct InputData {
  uint32_t layer = 0;
  std::string path;
  marlo::runtime::TensorShape shape;  ///< FLOAT32 in main memory
  std::vector<float> values;
  std::optional<Picture> picture;  ///< where the file was one
};

/// Reads the files of `--input`, each "FILE" or "LAYER=FILE", for the inputs of a network, and
/// checks that every layer can take what comes of them; `report` receives the shapes.
/// @param any_size lets pictures of another size than the model's own through
/// @throws ToolError: kUsageError where files and inputs don't match, kInputError naming the file
std::vector<InputData> read_inputs(NetworkReport& report, const std::vector<std::string>& options,
                                   bool any_size, marlo::runtime::DeviceCPU& device);

}  // namespace qrt_tool
