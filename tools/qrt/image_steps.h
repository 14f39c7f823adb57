#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "tools/qrt/picture.h"

// Operations on pictures, by the library's image functions.

namespace qrt_tool {

/// One operation: an option's name without its dashes, and its argument.
struct ImageStep {
  std::string name;
  std::string argument;
};

/// Height and width in pixels.
struct PictureSize {
  uint32_t height = 0;
  uint32_t width = 0;
};

/// Reads "WIDTHxHEIGHT".
/// @param what names the option in messages
/// @throws ToolError (kUsageError)
PictureSize parse_picture_size(const std::string& what, const std::string& text);

/// Reads numbers between commas.
/// @throws ToolError (kUsageError) unless there are as many as one of `counts`
std::vector<float> parse_numbers(const std::string& what, const std::string& text,
                                 const std::vector<size_t>& counts);

/// The operations, on tensors of one device.
class ImageSteps {
 public:
  ImageSteps();
  explicit ImageSteps(std::shared_ptr<marlo::runtime::Context> context);

  /// Applies one operation: "resize", "nearest", "crop", "zoom", "rotate", "flip", "gray", "swap",
  /// "planes", "affine", "affine-nearest", "affine-forward" or "warp".
  /// @throws ToolError (kUsageError) for an argument that makes no sense
  Picture apply(const Picture& picture, const ImageStep& step) const;

  Picture resized(const Picture& picture, const PictureSize& size) const;
  Picture gray(const Picture& picture) const;
  Picture with_red_and_blue_swapped(const Picture& picture) const;

  /// (sample - mean) * scale as planes.
  /// @param mean, scale one number for all channels, or one for each
  std::vector<float> normalized(const Picture& picture, std::vector<float> mean,
                                std::vector<float> scale) const;

  /// A picture of the luminance and chrominance of a camera.
  /// @param format "nv12", "nv21" or "iyuv"
  /// @throws ToolError: kUsageError for another format or an odd size, kInputError for a file of
  ///   another length
  Picture from_yuv(const std::string& format, const PictureSize& size, std::string bytes) const;

 private:
  using TensorPointer = std::shared_ptr<marlo::runtime::Tensor>;

  TensorPointer tensor_of(const Picture& picture) const;
  Picture nearest(const Picture& picture, const PictureSize& size) const;
  Picture cropped(const Picture& picture, const std::string& text) const;
  Picture zoomed(const Picture& picture, const std::string& text) const;
  Picture rotated(const Picture& picture, const std::string& degrees) const;
  Picture flipped(const Picture& picture, const std::string& direction) const;
  Picture warped(const Picture& picture, const std::string& name, const std::string& text) const;
  Picture planes_below_each_other(const Picture& picture) const;
  TensorPointer planes(const TensorPointer& pixels) const;
  Picture picture_of_planes(const TensorPointer& planes) const;

  std::shared_ptr<marlo::runtime::Context> context_;
};

}  // namespace qrt_tool
