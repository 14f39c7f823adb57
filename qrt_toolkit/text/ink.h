#pragma once

#include <cstdint>
#include <vector>

#include "qrt_toolkit/text/picture.h"

namespace marlo::toolkit {

/// Which pixels of a picture are ink: darker than what is around them, or lighter where the text is.
struct Ink {
  uint32_t height = 0;
  uint32_t width = 0;
  std::vector<uint8_t> marks;  ///< height x width, 1 for ink

  /// Pixels of ink in a row, from one column to before another.
  uint32_t in_row(uint32_t row, uint32_t from, uint32_t to) const;
  /// Pixels of ink in a column, from one row to before another.
  uint32_t in_column(uint32_t column, uint32_t from, uint32_t to) const;
};

/// Tells ink from paper by each pixel's surroundings, so that uneven light doesn't matter.
Ink ink_of(const GreyPicture& picture);

}  // namespace marlo::toolkit
