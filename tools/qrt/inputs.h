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

/// What is done to pictures before a network sees them; empty texts leave a step out.
struct PictureOptions {
  std::string crop;       ///< as `ImageSteps` reads it
  std::string resize;     ///< "WIDTHxHEIGHT", or "model" for the size of the model's header
  std::string color;      ///< "rgb", "bgr" or "gray"
  std::string mean;       ///< one number for all channels, or one for each
  std::string scale;      ///< the same
  bool any_size = false;  ///< lets pictures of another size than the model's own through
};

/// What `--input` gives to one input.
struct GivenInput {
  uint32_t layer;
  std::string value;  ///< a file's name, or sizes
};

/// Which value of `--input` goes to which input, in the order of the inputs: by name where it is
/// "LAYER=VALUE", else in order.
/// @param what is expected, such as "input file"
/// @throws ToolError (kUsageError) where values and inputs don't match
std::vector<GivenInput> assign_inputs(const NetworkReport& report,
                                      const std::vector<std::string>& options,
                                      const std::string& what);

/// @throws ToolError (kUsageError) for an order of colours that there isn't
void check_picture_options(const PictureOptions& options);

/// Reads the files of `--input`, each "FILE" or "LAYER=FILE", for the inputs of a network, and
/// checks that every layer can take what comes of them; `report` receives the shapes.
/// @param keep_batch as `input_shape` takes it
/// @throws ToolError: kUsageError where files and inputs don't match, kInputError naming the file,
///   kModelError for a network that can't take the sizes of its own header
std::vector<InputData> read_inputs(NetworkReport& report, const std::vector<std::string>& options,
                                   const PictureOptions& pictures, bool keep_batch,
                                   const std::shared_ptr<marlo::runtime::Context>& context);

}  // namespace qrt_tool
