#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/qrt/picture.h"

namespace qrt_tool {

/// A small rendering of a picture in characters, one text per row; light pixels are filled.
///
/// A character stands for two pixels, one above the other. The picture is reduced to `columns`
/// pixels and never enlarged.
/// @param utf8 block characters; otherwise ASCII
std::vector<std::string> render_preview(const Picture& picture, size_t columns, bool utf8);

/// Two columns of lines; the shorter one stands in the middle beside the longer one.
std::string side_by_side(const std::vector<std::string>& left,
                         const std::vector<std::string>& right);

}  // namespace qrt_tool
