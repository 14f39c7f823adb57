#include "tools/qrt/picture_writer.h"

#include <map>

#include "tools/qrt/errors.h"
#include "tools/qrt/text.h"

#define STBI_WRITE_NO_STDIO
#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb_image_write.h>

namespace qrt_tool {
namespace {

constexpr int kJpegQuality = 92;

void append(void* text, void* bytes, int size) {
  static_cast<std::string*>(text)->append(static_cast<const char*>(bytes),
                                          static_cast<size_t>(size));
}

std::string pnm_bytes(const Picture& picture) {
  std::string bytes = picture.channels == 1 ? "P5\n" : "P6\n";
  bytes += std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
  bytes.append(picture.samples.begin(), picture.samples.end());
  return bytes;
}

}  // namespace

PictureFormat picture_format_of(const std::string& path) {
  static const std::map<std::string, PictureFormat> kFormats{
      {".png", PictureFormat::png}, {".jpg", PictureFormat::jpeg}, {".jpeg", PictureFormat::jpeg},
      {".bmp", PictureFormat::bmp}, {".pgm", PictureFormat::pnm},  {".ppm", PictureFormat::pnm},
      {".pnm", PictureFormat::pnm}};
  const size_t dot = path.rfind('.');
  const std::string suffix = dot == std::string::npos ? "" : lower_case(path.substr(dot));
  const auto found = kFormats.find(suffix);
  if (found == kFormats.end()) {
    throw ToolError(
        kUsageError,
        printable(path) + ": expected a name that ends in .png, .jpg, .bmp, .pgm or .ppm");
  }
  return found->second;
}

std::string picture_bytes(const Picture& picture, PictureFormat format) {
  if (format == PictureFormat::pnm) return pnm_bytes(picture);
  std::string bytes;
  const int width = static_cast<int>(picture.width);
  const int height = static_cast<int>(picture.height);
  const int channels = static_cast<int>(picture.channels);
  const uint8_t* const samples = picture.samples.data();
  int written = 0;
  if (format == PictureFormat::png) {
    written =
        stbi_write_png_to_func(append, &bytes, width, height, channels, samples, width * channels);
  } else if (format == PictureFormat::bmp) {
    written = stbi_write_bmp_to_func(append, &bytes, width, height, channels, samples);
  } else {
    written =
        stbi_write_jpg_to_func(append, &bytes, width, height, channels, samples, kJpegQuality);
  }
  if (written == 0) throw ToolError(kRunError, "the picture can't be encoded");
  return bytes;
}

}  // namespace qrt_tool
