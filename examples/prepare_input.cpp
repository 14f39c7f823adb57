// Prepares a picture for a network that reads 224 x 224 planes of red, green and blue.
//
// usage: prepare_input PICTURE

#include <qrt_core/qrt_core.h>

#include <cstdio>
#include <exception>
#include <memory>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#include <stb_image.h>

namespace {

using TensorPointer = std::shared_ptr<marlo::runtime::Tensor>;

constexpr unsigned int kSide = 224;

// Bytes of any size to normalised planes.
TensorPointer prepare(const std::shared_ptr<marlo::runtime::Context>& context, unsigned int height,
                      unsigned int width, unsigned char* rgb) {
  using namespace marlo::kernel;
  marlo::runtime::DeviceCPU& device = *context->cpu;
  const TensorPointer picture = device.CreateRGB888TensorExternal(height, width, rgb);

  TensorPointer small = device.CreateRGB888Tensor(kSide, kSide, nullptr);
  functional::F_Resize_Bilinear_HWC_U8_C3_Fallback(picture, small);

  constexpr int kPixelsToPlanes = 60;
  const TensorPointer planes = device.CreateRGBUInt8CHWTensor(kSide, kSide, nullptr);
  ImageProcessFallback().ConvertPixel(small, planes, kPixelsToPlanes, context);

  // Mean and deviation of photographs, as most classifiers are trained with.
  const float mean[] = {123.675f, 116.28f, 103.53f};
  const float scale[] = {0.01712475f, 0.017507f, 0.01742919f};
  TensorPointer input = device.CreateF32CHWMainMem({3, kSide, kSide}, nullptr);
  functional::F_Normalize_CHW_U8_To_CHW_F32_Fallback(planes, device.CreateF32CMainMemory(3, mean),
                                                     device.CreateF32CMainMemory(3, scale), input);
  return input;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: prepare_input PICTURE\n");
    return 2;
  }
  int width = 0;
  int height = 0;
  const std::unique_ptr<unsigned char, void (*)(void*)> rgb(
      stbi_load(argv[1], &width, &height, nullptr, 3), &stbi_image_free);
  if (rgb == nullptr) {
    std::fprintf(stderr, "%s: %s\n", argv[1], stbi_failure_reason());
    return 1;
  }
  try {
    std::shared_ptr<marlo::runtime::Context> context;
    marlo::utility::create_context(context, 64);
    const TensorPointer input = prepare(context, static_cast<unsigned int>(height),
                                        static_cast<unsigned int>(width), rgb.get());
    const auto* values = static_cast<const float*>(input->handle.cpu);
    const size_t plane = size_t{kSide} * kSide;
    for (size_t c = 0; c < 3; ++c) {
      double sum = 0.0;
      for (size_t i = 0; i < plane; ++i) sum += values[c * plane + i];
      std::printf("plane %zu: mean %.3f\n", c, sum / static_cast<double>(plane));
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  return 0;
}
