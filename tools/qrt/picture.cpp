#include "tools/qrt/picture.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "tools/qrt/errors.h"

// A picture's data can unpack to a thousand times their size, so the decoder's memory is counted
// and bounded by what its size in pixels needs.
namespace qrt_tool {
namespace {

size_t picture_memory_left = 0;
bool picture_memory_ended = false;

constexpr size_t kBlockHead = alignof(std::max_align_t);

void* picture_malloc(size_t size) {
  if (size > picture_memory_left) {
    picture_memory_ended = true;
    return nullptr;
  }
  auto* block = static_cast<char*>(std::malloc(kBlockHead + size));
  if (block == nullptr) return nullptr;
  std::memcpy(block, &size, sizeof size);
  picture_memory_left -= size;
  return block + kBlockHead;
}

void picture_free(void* data) {
  if (data == nullptr) return;
  char* block = static_cast<char*>(data) - kBlockHead;
  size_t size;
  std::memcpy(&size, block, sizeof size);
  picture_memory_left += size;
  std::free(block);
}

void* picture_realloc(void* data, size_t old_size, size_t size) {
  void* moved = picture_malloc(size);
  if (moved == nullptr || data == nullptr) return moved;
  std::memcpy(moved, data, old_size < size ? old_size : size);
  picture_free(data);
  return moved;
}

}  // namespace
}  // namespace qrt_tool

#define STBI_MALLOC(size) qrt_tool::picture_malloc(size)
#define STBI_REALLOC_SIZED(data, old_size, size) qrt_tool::picture_realloc(data, old_size, size)
#define STBI_FREE(data) qrt_tool::picture_free(data)
#define STBI_MAX_DIMENSIONS 32768
#define STBI_ONLY_BMP
#define STBI_ONLY_JPEG
#define STBI_ONLY_PNG
#define STBI_ONLY_PNM
#define STBI_NO_STDIO
#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#include <stb_image.h>

namespace qrt_tool {
namespace {

[[noreturn]] void refuse(const std::string& text) { throw ToolError(kInputError, text); }

[[noreturn]] void refuse_format() {
  const char* reason = stbi_failure_reason();
  refuse(std::string("not a picture that can be read (") +
         (reason == nullptr ? "unknown reason" : reason) + "); expected PNG, JPEG, BMP or PGM");
}

// Bytes that decoding may hold at one time: two copies of the file, and for each pixel what the
// largest form takes, four samples of 16 bits, as it is unpacked, put together and converted.
// Progressive JPEG counts in blocks of up to 32 pixels.
size_t memory_for(size_t file_size, int width, int height) {
  constexpr size_t kBytesPerPixel = 32;
  constexpr size_t kAnyPicture = size_t{1} << 20;
  constexpr size_t kMost = size_t{768} << 20;
  const size_t pixels = (static_cast<size_t>(width) + 64) * (static_cast<size_t>(height) + 64);
  return std::min(kMost, 4 * file_size + kBytesPerPixel * pixels + kAnyPicture);
}

}  // namespace

Picture parse_picture(const std::string& bytes, uint32_t channels) {
  const auto* data = reinterpret_cast<const stbi_uc*>(bytes.data());
  const int length = static_cast<int>(bytes.size());
  int width = 0;
  int height = 0;
  int present = 0;
  picture_memory_left = size_t{1} << 20;
  picture_memory_ended = false;
  // The size is looked at first: a small file can promise a huge picture.
  if (stbi_info_from_memory(data, length, &width, &height, &present) == 0) refuse_format();
  if (width <= 0 || height <= 0) refuse("the picture is empty");
  if (int64_t{width} * height > kMostPicturePixels) {
    refuse("the picture is " + std::to_string(width) + " x " + std::to_string(height) +
           "; expected at most " + std::to_string(kMostPicturePixels) + " pixels");
  }
  if (channels == 0) channels = present >= 3 ? 3 : 1;
  picture_memory_left = memory_for(bytes.size(), width, height);
  const std::unique_ptr<stbi_uc, void (*)(void*)> samples(
      stbi_load_from_memory(data, length, &width, &height, &present, static_cast<int>(channels)),
      &stbi_image_free);
  if (samples == nullptr && picture_memory_ended) {
    refuse("its data unpack to more than a picture of " + std::to_string(width) + " x " +
           std::to_string(height) + " pixels needs");
  }
  if (samples == nullptr) refuse_format();

  Picture picture;
  picture.width = static_cast<uint32_t>(width);
  picture.height = static_cast<uint32_t>(height);
  picture.channels = channels;
  const size_t count = size_t{picture.width} * picture.height * channels;
  picture.samples.assign(samples.get(), samples.get() + count);
  return picture;
}

std::vector<float> planes_of(const Picture& picture) {
  const size_t pixels = size_t{picture.width} * picture.height;
  std::vector<float> planes(pixels * picture.channels);
  for (size_t channel = 0; channel < picture.channels; ++channel) {
    for (size_t i = 0; i < pixels; ++i) {
      planes[channel * pixels + i] =
          static_cast<float>(picture.samples[i * picture.channels + channel]) / 255.0f;
    }
  }
  return planes;
}

std::vector<uint8_t> grey_levels(const Picture& picture) {
  if (picture.channels == 1) return picture.samples;
  std::vector<uint8_t> levels(size_t{picture.width} * picture.height);
  for (size_t i = 0; i < levels.size(); ++i) {
    const uint8_t* rgb = &picture.samples[3 * i];
    levels[i] = static_cast<uint8_t>((77 * rgb[0] + 150 * rgb[1] + 29 * rgb[2]) >> 8);
  }
  return levels;
}

}  // namespace qrt_tool
