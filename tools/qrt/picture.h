#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Picture files, as a network reads them.

namespace qrt_tool {

/// A picture of 8 bits per sample: grey, or interleaved red, green and blue.
struct Picture {
  uint32_t height = 0;
  uint32_t width = 0;
  uint32_t channels = 0;  ///< 1 or 3
  std::vector<uint8_t> samples;
};

/// The most pixels that a picture may have.
constexpr int64_t kMostPicturePixels = int64_t{1} << 26;

/// Reads a PNG, JPEG, BMP or PNM (PGM, PPM) picture out of the bytes of a file. Samples of 16 bits
/// are cut to 8, transparency is dropped, and colours become grey or the other way round.
/// @param channels 1 for grey, 3 for red, green and blue, 0 for what the file holds
/// @throws ToolError (kInputError) with a text without the file's name
Picture parse_picture(const std::string& bytes, uint32_t channels);

/// The samples divided by 255, one plane per channel.
std::vector<float> planes_of(const Picture& picture);

/// The grey levels of a picture, 0 to 255.
std::vector<uint8_t> grey_levels(const Picture& picture);

}  // namespace qrt_tool
