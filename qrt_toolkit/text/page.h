#pragma once

#include <vector>

#include "qrt_core/utility/export.h"
#include "qrt_toolkit/text/picture.h"

// Where text is on a page. Lines are taken to be level or nearly so, dark on light or the reverse.

namespace marlo::toolkit {

/// By how many degrees the lines of text descend to the right; negative where they ascend.
///
/// Of all angles, the lines' own puts their ink into the fewest rows. 0 where there is too little
/// text to tell.
/// @param most the largest angle that is looked for, in degrees, 0 to 45
/// @throws std::invalid_argument as `resized`
QRT_API double text_angle(const GreyPicture& picture, double most = 10);

/// The lines of text of a page that stands upright, from top to bottom, and from left to right where
/// there are several beside each other with wide gaps between them. Boxes have the margins that a
/// `LineReader` was trained with. None where there is no ink.
/// @throws std::invalid_argument as `resized`
QRT_API std::vector<PixelBox> text_lines(const GreyPicture& picture);

}  // namespace marlo::toolkit
