#pragma once

#include <string>

#include "tools/qrt/picture.h"

namespace qrt_tool {

enum class PictureFormat { png, jpeg, bmp, pnm };

/// The format that a file's name asks for: .png, .jpg, .jpeg, .bmp, .pgm, .ppm or .pnm.
/// @throws ToolError (kUsageError) for another name
PictureFormat picture_format_of(const std::string& path);

/// The bytes of a file of a picture; a PNM file is PGM for gray, and PPM for colours.
/// @throws ToolError (kRunError) if the picture can't be encoded
std::string picture_bytes(const Picture& picture, PictureFormat format);

}  // namespace qrt_tool
