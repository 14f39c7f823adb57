#include "tools/qrt/image_steps.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "tools/qrt/errors.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

using marlo::kernel::ImageProcessFallback;
using marlo::kernel::ImageProcessSSE;
namespace functional = marlo::kernel::functional;

constexpr uint32_t kLargestSide = 32768;

// Codes of ImageProcess::ConvertPixel.
enum Code {
  kRgbToBgr = 4,
  kRgbToGray = 7,
  kNv12 = 22,
  kNv21 = 24,
  kIyuv = 32,
  kNormalizedWarp = 55,
  kForward = 56,
  kInverseNearest = 57,
  kInverseBilinear = 58,
  kToPlanes = 60,
  kToPixels = 61,
  kToFloats = 65,
  kCropNearest = 85,  // of one channel; the codes of more follow
};

[[noreturn]] void refuse(const std::string& text) { throw ToolError(kUsageError, text); }

// A whole number at the start of a text, which it leaves behind.
bool take_number(std::string_view& text, int64_t& number) {
  const char* const end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<size_t>(next - text.data()));
  return true;
}

bool take(std::string_view& text, char character) {
  if (text.empty() || text.front() != character) return false;
  text.remove_prefix(1);
  return true;
}

bool is_side(int64_t number) { return number >= 1 && number <= kLargestSide; }

// "WxH" at the start of a text.
bool take_size(std::string_view& text, PictureSize& size) {
  int64_t width = 0;
  int64_t height = 0;
  if (!take_number(text, width) || !take(text, 'x') || !take_number(text, height)) return false;
  if (!is_side(width) || !is_side(height) || width * height > kMostPicturePixels) return false;
  size = {static_cast<uint32_t>(height), static_cast<uint32_t>(width)};
  return true;
}

// An offset with its sign.
bool take_offset(std::string_view& text, int& offset) {
  if (text.empty() || (text.front() != '+' && text.front() != '-')) return false;
  const bool negative = text.front() == '-';
  text.remove_prefix(1);
  int64_t number = 0;
  if (!take_number(text, number) || number < 0 || number > kLargestSide) return false;
  offset = static_cast<int>(negative ? -number : number);
  return true;
}

Picture empty_picture(const PictureSize& size, uint32_t channels) {
  return {size.height, size.width, channels,
          std::vector<uint8_t>(size_t{size.height} * size.width * channels)};
}

}  // namespace

PictureSize parse_picture_size(const std::string& what, const std::string& text) {
  PictureSize size;
  std::string_view rest = text;
  if (!take_size(rest, size) || !rest.empty()) {
    refuse(what + " " + in_quotes(text) +
           ": expected WIDTHxHEIGHT, such as 320x240, with sides up to " +
           std::to_string(kLargestSide) + " and at most " + std::to_string(kMostPicturePixels) +
           " pixels");
  }
  return size;
}

std::vector<float> parse_numbers(const std::string& what, const std::string& text,
                                 const std::vector<size_t>& counts) {
  std::vector<float> numbers;
  const char* next = text.c_str();
  const char* const end = next + text.size();
  while (true) {
    float number = 0.0f;
    const auto [after, error] = std::from_chars(next, end, number);
    if (error != std::errc() || !std::isfinite(number)) {
      refuse(what + " " + in_quotes(text) + ": expected numbers between commas");
    }
    numbers.push_back(number);
    if (after == end) break;
    if (*after != ',') refuse(what + " " + in_quotes(text) + ": expected numbers between commas");
    next = after + 1;
  }
  if (std::find(counts.begin(), counts.end(), numbers.size()) == counts.end()) {
    std::string expected;
    for (size_t i = 0; i + 1 < counts.size(); ++i) expected += std::to_string(counts[i]) + " or ";
    refuse(what + " " + in_quotes(text) + ": expected " + expected +
           counted(counts.back(), "number") + " between commas; found " +
           std::to_string(numbers.size()));
  }
  return numbers;
}

ImageSteps::ImageSteps() { marlo::utility::create_context(context_, 32); }

ImageSteps::ImageSteps(std::shared_ptr<marlo::runtime::Context> context)
    : context_(std::move(context)) {}

// The functions read their inputs only, but a tensor knows no constant buffers.
ImageSteps::TensorPointer ImageSteps::tensor_of(const Picture& picture) const {
  return context_->cpu->CreateU8HWCMainMemExternal(
      {picture.height, picture.width, picture.channels},
      const_cast<uint8_t*>(picture.samples.data()));
}

Picture ImageSteps::apply(const Picture& picture, const ImageStep& step) const {
  const auto size = [&] { return parse_picture_size("--" + step.name, step.argument); };
  if (step.name == "resize") return resized(picture, size());
  if (step.name == "nearest") return nearest(picture, size());
  if (step.name == "crop") return cropped(picture, step.argument);
  if (step.name == "rotate") return rotated(picture, step.argument);
  if (step.name == "flip") return flipped(picture, step.argument);
  if (step.name == "gray") return gray(picture);
  if (step.name == "swap") return with_red_and_blue_swapped(picture);
  if (step.name == "planes") return planes_below_each_other(picture);
  if (step.name == "zoom") return zoomed(picture, step.argument);
  return warped(picture, step.name, step.argument);
}

Picture ImageSteps::resized(const Picture& picture, const PictureSize& size) const {
  Picture result = empty_picture(size, picture.channels);
  TensorPointer output = tensor_of(result);
  if (picture.channels == 1) {
    functional::F_Resize_Bilinear_HWC_U8_C1_Fallback(tensor_of(picture), output);
  } else {
    functional::F_Resize_Bilinear_HWC_U8_C3_Fallback(tensor_of(picture), output);
  }
  return result;
}

Picture ImageSteps::nearest(const Picture& picture, const PictureSize& size) const {
  Picture result = empty_picture(size, picture.channels);
  TensorPointer output = tensor_of(result);
  if (picture.channels == 1) {
    functional::F_Resize_Nearest_HWC_U8_C1_Fallback(tensor_of(picture), output);
  } else {
    functional::F_Resize_Nearest_HWC_U8_C3_Fallback(tensor_of(picture), output);
  }
  return result;
}

Picture ImageSteps::cropped(const Picture& picture, const std::string& text) const {
  PictureSize size;
  int left = 0;
  int top = 0;
  std::string_view rest = text;
  bool understood = take_size(rest, size);
  if (understood && rest.empty()) {
    left = (static_cast<int>(picture.width) - static_cast<int>(size.width)) / 2;
    top = (static_cast<int>(picture.height) - static_cast<int>(size.height)) / 2;
  } else {
    understood = understood && take_offset(rest, left) && take_offset(rest, top) && rest.empty();
  }
  if (!understood) {
    refuse("--crop " + in_quotes(text) +
           ": expected WIDTHxHEIGHT+LEFT+TOP, such as 200x100+10-5, or " +
           "WIDTHxHEIGHT for the middle of the picture");
  }
  Picture result = empty_picture(size, picture.channels);
  TensorPointer output = tensor_of(result);
  constexpr uint8_t kBlack = 0;
  functional::F_Crop_U8_HWC_Memcpy(tensor_of(picture), top, left, static_cast<int>(size.height),
                                   static_cast<int>(size.width), kBlack, output);
  return result;
}

Picture ImageSteps::zoomed(const Picture& picture, const std::string& text) const {
  const std::vector<float> corners = parse_numbers("--zoom", text, {4});
  Picture result = empty_picture({picture.height, picture.width}, picture.channels);
  const TensorPointer from = tensor_of(picture);
  const TensorPointer to = tensor_of(result);
  from->shape.layout = to->shape.layout = marlo::runtime::LayoutType::FLEXIABLE;
  ImageProcessFallback().ConvertPixel(from, to, corners[0], corners[1], corners[2], corners[3],
                                      kCropNearest + static_cast<int>(picture.channels) - 1,
                                      context_);
  return result;
}

Picture ImageSteps::rotated(const Picture& picture, const std::string& degrees) const {
  const bool half = degrees == "180";
  const PictureSize same{picture.height, picture.width};
  Picture result =
      empty_picture(half ? same : PictureSize{same.width, same.height}, picture.channels);
  TensorPointer output = tensor_of(result);
  if (degrees == "90") {
    functional::F_Rotate_Clockwise90_HWC_Fallback(tensor_of(picture), output);
  } else if (half) {
    functional::F_Rotate_Clockwise180_HWC_Fallback(tensor_of(picture), output);
  } else if (degrees == "270") {
    functional::F_Rotate_Clockwise270_HWC_Fallback(tensor_of(picture), output);
  } else {
    refuse("--rotate " + in_quotes(degrees) + ": expected 90, 180 or 270");
  }
  return result;
}

Picture ImageSteps::flipped(const Picture& picture, const std::string& direction) const {
  Picture result = empty_picture({picture.height, picture.width}, picture.channels);
  TensorPointer output = tensor_of(result);
  if (direction == "horizontal") {
    functional::F_HFlip_HWC_Fallback(tensor_of(picture), output);
  } else if (direction == "vertical") {
    functional::F_VFlip_HWC_Fallback(tensor_of(picture), output);
  } else {
    refuse("--flip " + in_quotes(direction) + ": expected horizontal or vertical");
  }
  return result;
}

Picture ImageSteps::gray(const Picture& picture) const {
  if (picture.channels == 1) return picture;
  Picture result = empty_picture({picture.height, picture.width}, 1);
  const auto output = context_->cpu->CreateU8CHWMainMemExternal({1, picture.height, picture.width},
                                                                result.samples.data());
  ImageProcessFallback().ConvertPixel(tensor_of(picture), output, kRgbToGray, context_);
  return result;
}

Picture ImageSteps::with_red_and_blue_swapped(const Picture& picture) const {
  if (picture.channels == 1) return picture;
  const auto swapped =
      context_->cpu->CreateU8CHWMainMem({3, picture.height, picture.width}, nullptr);
  ImageProcessFallback().ConvertPixel(tensor_of(picture), swapped, kRgbToBgr, context_);
  return picture_of_planes(swapped);
}

Picture ImageSteps::planes_below_each_other(const Picture& picture) const {
  Picture result = empty_picture({picture.channels * picture.height, picture.width}, 1);
  const auto output = context_->cpu->CreateU8CHWMainMemExternal(
      {picture.channels, picture.height, picture.width}, result.samples.data());
  ImageProcessFallback().ConvertPixel(tensor_of(picture), output, kToPlanes, context_);
  return result;
}

ImageSteps::TensorPointer ImageSteps::planes(const TensorPointer& pixels) const {
  const auto& dims = pixels->shape.dims;
  const auto result = context_->cpu->CreateU8CHWMainMem({dims[2], dims[0], dims[1]}, nullptr);
  ImageProcessFallback().ConvertPixel(pixels, result, kToPlanes, context_);
  return result;
}

Picture ImageSteps::picture_of_planes(const TensorPointer& planes) const {
  const auto& dims = planes->shape.dims;
  Picture result = empty_picture({dims[1], dims[2]}, dims[0]);
  ImageProcessFallback().ConvertPixel(planes, tensor_of(result), kToPixels, context_);
  return result;
}

Picture ImageSteps::warped(const Picture& picture, const std::string& name,
                           const std::string& text) const {
  const std::vector<float> matrix = parse_numbers("--" + name, text, {6});
  const std::vector<uint32_t> dims{picture.channels, picture.height, picture.width};
  const auto from = context_->cpu->CreateF32CHWMainMem(dims, nullptr);
  const auto to = context_->cpu->CreateZeroF32CHWMainMem(dims[0], dims[1], dims[2]);
  ImageProcessFallback().ConvertPixel(planes(tensor_of(picture)), from, kToFloats, context_);
  if (name == "warp") {
    ImageProcessSSE().ConvertPixel(from, to, matrix.data(), kNormalizedWarp, context_);
  } else {
    const int code = name == "affine"           ? kInverseBilinear
                     : name == "affine-nearest" ? kInverseNearest
                                                : kForward;
    ImageProcessFallback().ConvertPixel(from, to, matrix.data(), code, context_);
  }
  // Outside of the picture the normalised warp goes on as the border does, beyond black and white.
  const auto bytes = context_->cpu->CreateU8CHWMainMem(dims, nullptr);
  const auto* const values = static_cast<const float*>(to->RawPointer());
  auto* const samples = static_cast<uint8_t*>(bytes->RawPointer());
  for (size_t i = 0; i < picture.samples.size(); ++i) {
    samples[i] = static_cast<uint8_t>(std::clamp(std::round(values[i]), 0.0f, 255.0f));
  }
  return picture_of_planes(bytes);
}

std::vector<float> ImageSteps::normalized(const Picture& picture, std::vector<float> mean,
                                          std::vector<float> scale) const {
  mean.resize(picture.channels, mean.at(0));
  scale.resize(picture.channels, scale.at(0));
  std::vector<float> values(picture.samples.size());
  TensorPointer output = context_->cpu->CreateF32CHWMainMemExternal(
      {picture.channels, picture.height, picture.width}, values.data());
  functional::F_Normalize_CHW_U8_To_CHW_F32_Fallback(
      planes(tensor_of(picture)),
      context_->cpu->CreateF32CMainMemory(picture.channels, mean.data()),
      context_->cpu->CreateF32CMainMemory(picture.channels, scale.data()), output);
  return values;
}

Picture ImageSteps::from_yuv(const std::string& format, const PictureSize& size,
                             std::string bytes) const {
  const int code = format == "nv12" ? kNv12 : format == "nv21" ? kNv21 : kIyuv;
  if (code == kIyuv && format != "iyuv") {
    refuse("--yuv " + in_quotes(format) + ": expected nv12, nv21 or iyuv");
  }
  if (size.height % 2 != 0 || size.width % 2 != 0) {
    refuse("--yuv: a picture of " + sizes_text({size.width, size.height}) +
           " has an odd side; its chrominance has half of each");
  }
  const uint64_t expected = marlo::kernel::yuv420_bytes(size.height, size.width);
  if (bytes.size() != expected) {
    throw ToolError(kInputError, "the file has " + std::to_string(bytes.size()) +
                                     " bytes; a picture of " +
                                     sizes_text({size.width, size.height}) + " in " + format +
                                     " has " + std::to_string(expected));
  }
  const auto input =
      marlo::kernel::yuv420_image(*context_->cpu, size.height, size.width, bytes.data());
  const auto rgb = context_->cpu->CreateRGBUInt8CHWTensor(size.height, size.width, nullptr);
  ImageProcessFallback().ConvertPixel(input, rgb, code, context_);
  return picture_of_planes(rgb);
}

}  // namespace qrt_tool
