#pragma once

#include <string>
#include <vector>

#include "qrt_core/utility/export.h"
#include "qrt_core/utility/model.h"
#include "qrt_toolkit/text/picture.h"

// Text out of pictures of single lines, by a network that was trained for it.

namespace marlo::toolkit {

/// One character of a line that was read. Plain data.
struct ReadCharacter {
  char character = ' ';  ///< printable ASCII, space included
  float confidence = 0;  ///< the network's, 0 to 1
  float left = 0;        ///< column of the line's picture where it was first seen
  float right = 0;       ///< column behind the last one
};

/// What was read from the picture of a line. Plain data.
struct ReadLine {
  std::string text;                       ///< without spaces at its ends
  float confidence = 0;                   ///< the mean of the characters', 0 without any
  std::vector<ReadCharacter> characters;  ///< of `text`, in its order
};

/// Reads lines of printed text with a model such as `models/lines/lines.qrtmodel`.
///
/// @code
/// marlo::utility::Model model("lines.qrtmodel");
/// marlo::toolkit::LineReader reader(model.at(0));
/// std::puts(reader.read(picture).text.c_str());
/// @endcode
///
/// The network takes planes [1, rows, columns] of any width, black -1 and white 1, and returns scores
/// [steps, classes] from left to right, class 0 being "nothing new" and the others the printable
/// characters of ASCII from the space on; several steps may stand in one row. It belongs to the
/// network's thread.
class QRT_API LineReader {
 public:
  /// @param network must outlive this
  /// @throws std::invalid_argument for a network that takes or returns something else
  explicit LineReader(utility::Network& network);

  /// Reads a line. Wide ones are read in pieces, so that memory stays bounded.
  /// @param line dark on light or light on dark, little more than the line itself
  /// @throws std::invalid_argument for a picture without pixels, or of more than 2000 times its
  ///   height in width; std::runtime_error where the network fails
  ReadLine read(const GreyPicture& line) const;

 private:
  std::vector<float> scores_of(const GreyPicture& line) const;

  utility::Network& network_;
};

}  // namespace marlo::toolkit
