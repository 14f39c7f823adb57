#include "qrt_toolkit/text/picture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <stdexcept>

#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/resize_functions.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/utility/application.h"

namespace marlo::toolkit {
namespace {

using Tensor = std::shared_ptr<runtime::Tensor>;

void demand_pixels(const GreyPicture& picture) {
  if (picture.height == 0 || picture.width == 0) {
    throw std::invalid_argument("the picture has no pixels");
  }
  if (picture.samples.size() != size_t{picture.height} * picture.width) {
    throw std::invalid_argument("the picture's samples are not its height times its width");
  }
}

std::shared_ptr<runtime::Context> new_context() {
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  return context;
}

GreyPicture resized_once(runtime::DeviceCPU& device, const GreyPicture& picture, uint32_t height,
                         uint32_t width) {
  GreyPicture result{height, width, std::vector<uint8_t>(size_t{height} * width)};
  // The function only reads its input, though a tensor over memory is over memory that may change.
  auto* const samples = const_cast<uint8_t*>(picture.samples.data());
  const Tensor input = device.CreateGray8TensorExternal(picture.height, picture.width, samples);
  Tensor output = device.CreateGray8TensorExternal(height, width, result.samples.data());
  kernel::functional::F_Resize_Bilinear_HWC_U8_C1_Fallback(input, output);
  return result;
}

/// The middle one of the grey levels around a picture.
uint8_t border_grey(const GreyPicture& picture) {
  std::vector<uint8_t> border;
  border.reserve(2 * (size_t{picture.height} + picture.width));
  for (uint32_t x = 0; x < picture.width; ++x) {
    border.push_back(picture.samples[x]);
    border.push_back(picture.samples[size_t{picture.height - 1} * picture.width + x]);
  }
  for (uint32_t y = 0; y < picture.height; ++y) {
    border.push_back(picture.samples[size_t{y} * picture.width]);
    border.push_back(picture.samples[size_t{y} * picture.width + picture.width - 1]);
  }
  const auto middle = border.begin() + static_cast<std::ptrdiff_t>(border.size() / 2);
  std::nth_element(border.begin(), middle, border.end());
  return *middle;
}

}  // namespace

GreyPicture resized(const GreyPicture& picture, uint32_t height, uint32_t width) {
  demand_pixels(picture);
  if (height == 0 || width == 0) throw std::invalid_argument("a picture can't have no pixels");
  const auto context = new_context();
  GreyPicture halved;
  const GreyPicture* source = &picture;
  while (source->height > 2 * height || source->width > 2 * width) {
    const uint32_t rows = source->height > 2 * height ? (source->height + 1) / 2 : source->height;
    const uint32_t columns = source->width > 2 * width ? (source->width + 1) / 2 : source->width;
    halved = resized_once(*context->cpu, *source, rows, columns);
    source = &halved;
  }
  return resized_once(*context->cpu, *source, height, width);
}

GreyPicture cut_out(const GreyPicture& picture, const PixelBox& box) {
  demand_pixels(picture);
  if (box.left >= box.right || box.top >= box.bottom || box.right > picture.width ||
      box.bottom > picture.height) {
    throw std::invalid_argument("the box is empty or reaches outside of the picture");
  }
  GreyPicture part{box.bottom - box.top, box.right - box.left, {}};
  part.samples.reserve(size_t{part.height} * part.width);
  for (uint32_t y = box.top; y < box.bottom; ++y) {
    const uint8_t* const row = picture.samples.data() + size_t{y} * picture.width;
    part.samples.insert(part.samples.end(), row + box.left, row + box.right);
  }
  return part;
}

GreyPicture turned(const GreyPicture& picture, double degrees) {
  demand_pixels(picture);
  if (!(std::abs(degrees) <= 45)) throw std::invalid_argument("an angle is from -45 to 45 degrees");
  const double angle = degrees * std::numbers::pi / 180;
  const double c = std::cos(angle);
  const double s = std::sin(angle);
  const double from_width = picture.width;
  const double from_height = picture.height;
  const auto width = static_cast<uint32_t>(std::ceil(c * from_width + std::abs(s) * from_height));
  const auto height = static_cast<uint32_t>(std::ceil(c * from_height + std::abs(s) * from_width));

  const auto context = new_context();
  runtime::DeviceCPU& device = *context->cpu;
  const std::vector<float> levels(picture.samples.begin(), picture.samples.end());
  const Tensor input =
      device.CreateF32CHWMainMem({1, picture.height, picture.width}, levels.data());
  const std::vector<float> paper(size_t{height} * width, border_grey(picture));
  const Tensor output = device.CreateF32CHWMainMem({1, height, width}, paper.data());
  // Column and row of the picture for a column and row of the result, about both centres.
  const double x = (from_width - 1) / 2 - c * (width - 1.0) / 2 + s * (height - 1.0) / 2;
  const double y = (from_height - 1) / 2 - s * (width - 1.0) / 2 - c * (height - 1.0) / 2;
  const float matrix[] = {static_cast<float>(c), static_cast<float>(-s), static_cast<float>(x),
                          static_cast<float>(s), static_cast<float>(c),  static_cast<float>(y)};
  constexpr int kInverseBilinear = 58;
  kernel::ImageProcessFallback().ConvertPixel(input, output, matrix, kInverseBilinear, context);

  GreyPicture result{height, width, {}};
  const auto* const values = static_cast<const float*>(output->handle.cpu);
  result.samples.reserve(paper.size());
  for (size_t i = 0; i < paper.size(); ++i) {
    result.samples.push_back(static_cast<uint8_t>(std::lround(values[i])));
  }
  return result;
}

}  // namespace marlo::toolkit
