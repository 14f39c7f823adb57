#include "qrt_toolkit/text/line_reader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace marlo::toolkit {
namespace {

constexpr uint32_t kRows = 32;
constexpr size_t kClasses = 96;       // nothing new, and the printable characters of ASCII
constexpr uint32_t kStepColumns = 2;  // columns of the picture behind a step
constexpr uint32_t kLeastRows = 5;    // no letter can be told in fewer
constexpr uint32_t kLeastColumns = 16;
constexpr uint32_t kMostColumns = 2000 * kRows;
constexpr uint32_t kPiece = 2048;   // columns that are read at once
constexpr uint32_t kOverlap = 256;  // columns that two pieces share
constexpr int kLeastContrast = 10;

/// Grey levels as the network takes them: the darkest in use -1 and the lightest 1. Empty where all
/// are about the same, as on paper without ink.
std::vector<float> levels_of(const GreyPicture& line) {
  std::array<size_t, 256> count{};
  for (const uint8_t sample : line.samples) ++count[sample];
  const size_t few = line.samples.size() / 200;  // that noise may make darker or lighter
  int darkest = 0;
  for (size_t seen = count[0]; seen <= few;) seen += count[static_cast<size_t>(++darkest)];
  int lightest = 255;
  for (size_t seen = count[255]; seen <= few;) seen += count[static_cast<size_t>(--lightest)];
  if (lightest - darkest < kLeastContrast) return {};
  const float scale = 2.0F / static_cast<float>(lightest - darkest);
  std::vector<float> levels;
  levels.reserve(line.samples.size());
  for (const uint8_t sample : line.samples) {
    const float level = static_cast<float>(sample - darkest) * scale - 1.0F;
    levels.push_back(std::clamp(level, -1.0F, 1.0F));
  }
  return levels;
}

/// Columns of a wide line, and those of them whose steps count.
struct Piece {
  uint32_t begin = 0;
  uint32_t end = 0;
  uint32_t from = 0;
  uint32_t to = 0;
};

std::vector<Piece> pieces_of(uint32_t width) {
  if (width <= kPiece) return {{0, width, 0, width}};
  std::vector<Piece> pieces;
  for (uint32_t begin = 0;; begin += kPiece - kOverlap) {
    const uint32_t end = std::min(width, begin + kPiece);
    const bool is_last = end == width;
    pieces.push_back(
        {begin, end, begin == 0 ? 0 : begin + kOverlap / 2, is_last ? width : end - kOverlap / 2});
    if (is_last) return pieces;
  }
}

/// The share of the best class among all of a step.
float share_of(const float* scores, size_t best) {
  float sum = 0;
  for (size_t i = 0; i < kClasses; ++i) sum += std::exp(scores[i] - scores[best]);
  return 1.0F / sum;
}

ReadLine text_of(const std::vector<float>& scores, float scale) {
  ReadLine line;
  size_t previous = 0;
  for (size_t step = 0; step < scores.size() / kClasses; ++step) {
    const float* const row = scores.data() + step * kClasses;
    const auto best = static_cast<size_t>(std::max_element(row, row + kClasses) - row);
    const float share = share_of(row, best);
    const float left = static_cast<float>(step * kStepColumns) * scale;
    const float right = static_cast<float>((step + 1) * kStepColumns) * scale;
    // The network was trained on single spaces.
    const bool is_space =
        best == 1 && !line.characters.empty() && line.characters.back().character == ' ';
    if (best != 0 && best != previous && !is_space) {
      line.characters.push_back({static_cast<char>(' ' + best - 1), share, left, right});
    } else if (best != 0) {
      ReadCharacter& last = line.characters.back();
      last.confidence = std::max(last.confidence, share);
      last.right = right;
    }
    previous = best;
  }
  auto& characters = line.characters;
  while (!characters.empty() && characters.back().character == ' ') characters.pop_back();
  const auto is_visible = [](const ReadCharacter& c) { return c.character != ' '; };
  characters.erase(characters.begin(),
                   std::find_if(characters.begin(), characters.end(), is_visible));
  for (const ReadCharacter& character : characters) {
    line.text += character.character;
    line.confidence += character.confidence / static_cast<float>(characters.size());
  }
  return line;
}

}  // namespace

LineReader::LineReader(utility::Network& network) : network_(network) {
  bool fits = network.inputs().size() == 1 && network.outputs().size() == 1;
  if (fits) {
    const std::vector<float> blank(size_t{kRows} * kLeastColumns);
    try {
      network_.reset();
      const auto results = network_.run({{1, kRows, kLeastColumns}, blank});
      fits = results[0].elements().size() == kLeastColumns / kStepColumns * kClasses;
    } catch (const utility::Error&) {
      fits = false;
    }
  }
  if (!fits) {
    throw std::invalid_argument(
        "network \"" + network.id() +
        "\" reads no lines: it doesn't make 96 scores for every 2 columns of planes of 1x32x?");
  }
}

std::vector<float> LineReader::scores_of(const GreyPicture& line) const {
  const std::vector<float> levels = levels_of(line);
  std::vector<float> scores;
  if (levels.empty()) return scores;
  std::vector<float> planes;
  for (const Piece& piece : pieces_of(line.width)) {
    const uint32_t width = piece.end - piece.begin;
    planes.clear();
    for (size_t y = 0; y < kRows; ++y) {
      const auto row = levels.begin() + static_cast<std::ptrdiff_t>(y * line.width);
      planes.insert(planes.end(), row + piece.begin, row + piece.end);
    }
    network_.reset();
    const auto results = network_.run({{1, kRows, width}, planes});
    const auto all = results[0].elements();
    const size_t first = (piece.from - piece.begin) / kStepColumns * kClasses;
    const size_t last = (piece.to - piece.begin) / kStepColumns * kClasses;
    scores.insert(scores.end(), all.begin() + static_cast<std::ptrdiff_t>(first),
                  all.begin() + static_cast<std::ptrdiff_t>(last));
  }
  return scores;
}

ReadLine LineReader::read(const GreyPicture& line) const {
  if (line.height == 0 || line.width == 0) {
    throw std::invalid_argument("the picture has no pixels");
  }
  if (line.height < kLeastRows) return {};
  const double wanted = std::round(static_cast<double>(line.width) * kRows / line.height);
  if (wanted > kMostColumns) {
    throw std::invalid_argument("the picture is " + std::to_string(line.width) + " wide and " +
                                std::to_string(line.height) + " high; a line of text isn't");
  }
  // Columns in whole steps of the network's coarsest layer.
  const uint32_t width = std::max(kLeastColumns, (static_cast<uint32_t>(wanted) + 3) / 4 * 4);
  const float scale = static_cast<float>(line.width) / static_cast<float>(width);
  return text_of(scores_of(resized(line, kRows, width)), scale);
}

}  // namespace marlo::toolkit
