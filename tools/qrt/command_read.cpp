#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <numbers>
#include <stdexcept>

#include "qrt_toolkit/text/line_reader.h"
#include "qrt_toolkit/text/page.h"
#include "qrt_toolkit/tune/open.h"
#include "tools/qrt/choice_options.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/picture_writer.h"
#include "tools/qrt/preview.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

using marlo::toolkit::GreyPicture;
using marlo::toolkit::LineReader;
using marlo::toolkit::PixelBox;
using marlo::toolkit::ReadCharacter;
using marlo::toolkit::ReadLine;

constexpr char kModelName[] = "lines.qrtmodel";
constexpr double kMostPixels = 1 << 24;  // a page of more is read in a smaller size

/// A place in the picture that was given.
struct Spot {
  double x = 0;
  double y = 0;
};

/// From a page that was made smaller and level back to the picture.
class Placing {
 public:
  Placing(const Picture& picture, const GreyPicture& level, double scale, double degrees)
      : level_(level),
        scale_(scale),
        cosine_(std::cos(degrees * std::numbers::pi / 180)),
        sine_(std::sin(degrees * std::numbers::pi / 180)),
        middle_{picture.width / 2.0, picture.height / 2.0} {}

  Spot operator()(double x, double y) const {
    const double dx = x - level_.width / 2.0;
    const double dy = y - level_.height / 2.0;
    return {middle_.x + (cosine_ * dx - sine_ * dy) / scale_,
            middle_.y + (sine_ * dx + cosine_ * dy) / scale_};
  }

  /// The corners of a part of a page, clockwise from the upper left.
  std::array<Spot, 4> corners(double left, double top, double right, double bottom) const {
    return {(*this)(left, top), (*this)(right, top), (*this)(right, bottom), (*this)(left, bottom)};
  }

 private:
  const GreyPicture& level_;
  double scale_;
  double cosine_;
  double sine_;
  Spot middle_;
};

struct PlacedLine {
  PixelBox box;
  ReadLine read;
};

/// A page that was read.
struct ReadPage {
  GreyPicture level;  ///< the picture, its lines level
  double scale = 1;   ///< of it
  double degrees = 0;
  std::vector<PlacedLine> lines;
};

/// The model beside the tool, or where an installation puts it: below the tool's own prefix, which may have been
/// moved, or below that of the build, where a system without /proc doesn't say where the tool stands.
std::string installed_model() {
  namespace fs = std::filesystem;
  std::error_code fault;
  const fs::path folder = fs::read_symlink("/proc/self/exe", fault).parent_path();
  std::vector<fs::path> places;
  if (!folder.empty()) places = {folder, folder / ".." / "share" / "qrt"};
  places.emplace_back(QRT_INSTALLED_DATA);
  std::string looked_in;
  for (const fs::path& place : places) {
    if (fs::exists(place / kModelName, fault)) return (place / kModelName).string();
    looked_in += (looked_in.empty() ? "" : ", ") + place.lexically_normal().string();
  }
  throw ToolError(kModelError, std::string("there is no ") + kModelName +
                                   " beside the tool (looked in " + looked_in +
                                   "); name the model with --model");
}

marlo::utility::Model open_model(const std::string& path, const std::string& isa) {
  const marlo::toolkit::KernelSet set = kernel_set_option(isa);
  check_readable(path, kModelError);
  try {
    return marlo::toolkit::open_with_kernels(path, {1, 32, 320}, set);
  } catch (const marlo::utility::Error& error) {
    throw ToolError(kModelError, shown(path) + ": " + printable(error.story()));
  }
}

Picture read_picture(const std::string& path) {
  const std::string bytes = read_file(path, kInputError);
  try {
    return parse_picture(bytes, 0);
  } catch (const ToolError& error) {
    throw ToolError(error.exit_code(), shown(path) + ": " + error.what());
  }
}

/// What holds all text of a picture, with the margins of lines; the whole picture where none is found.
PixelBox box_of_all_text(const GreyPicture& picture) {
  const std::vector<PixelBox> boxes = marlo::toolkit::text_lines(picture);
  if (boxes.empty()) return {0, 0, picture.width, picture.height};
  PixelBox all = boxes[0];
  for (const PixelBox& box : boxes) {
    all.left = std::min(all.left, box.left);
    all.top = std::min(all.top, box.top);
    all.right = std::max(all.right, box.right);
    all.bottom = std::max(all.bottom, box.bottom);
  }
  return all;
}

ReadPage read_page(const LineReader& reader, const Picture& picture, bool is_line) {
  ReadPage page;
  page.level = {picture.height, picture.width, grey_levels(picture)};
  if (is_line) {
    const PixelBox box = box_of_all_text(page.level);
    page.lines.push_back({box, reader.read(cut_out(page.level, box))});
    return page;
  }
  const double pixels = static_cast<double>(picture.height) * picture.width;
  if (pixels > kMostPixels) {
    page.scale = std::sqrt(kMostPixels / pixels);
    const auto scaled = [&](uint32_t size) {
      return std::max(1U, static_cast<uint32_t>(std::lround(size * page.scale)));
    };
    page.level = resized(page.level, scaled(picture.height), scaled(picture.width));
  }
  page.degrees = marlo::toolkit::text_angle(page.level);
  if (page.degrees != 0) page.level = turned(page.level, page.degrees);
  for (const PixelBox& box : marlo::toolkit::text_lines(page.level)) {
    page.lines.push_back({box, reader.read(cut_out(page.level, box))});
  }
  const auto is_empty = [](const PlacedLine& line) { return line.read.text.empty(); };
  page.lines.erase(std::remove_if(page.lines.begin(), page.lines.end(), is_empty),
                   page.lines.end());
  return page;
}

std::string plain_text(const ReadPage& page) {
  std::string text;
  const PixelBox* last = nullptr;
  for (const PlacedLine& line : page.lines) {
    if (last != nullptr) text += last->top == line.box.top ? ' ' : '\n';
    text += line.read.text;
    last = &line.box;
  }
  return text.empty() ? text : text + "\n";
}

/// The picture in characters, and beside it each line where it stands.
std::string drawn_text(const ReadPage& page, const Picture& picture, const Placing& placing,
                       uint32_t width) {
  const auto drawing = render_preview(picture, width, locale_is_utf8());
  std::vector<std::string> texts(drawing.size());
  size_t next = 0;
  for (const PlacedLine& line : page.lines) {
    const PixelBox& box = line.box;
    const double y = placing((box.left + box.right) / 2.0, (box.top + box.bottom) / 2.0).y;
    const double row = std::max(0.0, y / picture.height * static_cast<double>(drawing.size()));
    next = std::max(next, static_cast<size_t>(row));
    if (next >= texts.size()) texts.resize(next + 1);
    texts[next++] = line.read.text;
  }
  return side_by_side(drawing, texts);
}

void write_corners(JsonText& json, const std::array<Spot, 4>& corners) {
  std::vector<double> numbers;
  numbers.reserve(8);
  for (const Spot& corner : corners) {
    // Tenths of a pixel are as fine as a line is placed.
    numbers.push_back(std::round(corner.x * 10) / 10);
    numbers.push_back(std::round(corner.y * 10) / 10);
  }
  json.numbers("corners", numbers);
}

std::string json_of(const ReadPage& page, const Picture& picture, const Placing& placing) {
  JsonText json;
  json.begin_object();
  json.integer("width", picture.width);
  json.integer("height", picture.height);
  json.number("angle", page.degrees);
  json.begin_array("lines");
  for (const PlacedLine& line : page.lines) {
    const PixelBox& box = line.box;
    json.begin_object();
    json.text("text", line.read.text);
    json.number("confidence", line.read.confidence);
    write_corners(json, placing.corners(box.left, box.top, box.right, box.bottom));
    json.begin_array("characters");
    for (const ReadCharacter& character : line.read.characters) {
      json.begin_object();
      json.text("character", std::string(1, character.character));
      json.number("confidence", character.confidence);
      const double left = box.left + static_cast<double>(character.left);
      const double right = box.left + static_cast<double>(character.right);
      write_corners(json, placing.corners(left, box.top, right, box.bottom));
      json.end_object();
    }
    json.end_array();
    json.end_object();
  }
  json.end_array();
  json.end_object();
  return json.finish();
}

/// A picture in colours with a frame around each line.
Picture framed(const Picture& picture, const ReadPage& page, const Placing& placing) {
  Picture result{picture.height, picture.width, 3, {}};
  for (const uint8_t level : grey_levels(picture))
    result.samples.insert(result.samples.end(), 3, level);
  constexpr std::array<uint8_t, 3> kRed = {220, 30, 30};
  const auto mark = [&](double x, double y) {
    if (!(x >= 0 && y >= 0 && x < picture.width && y < picture.height)) return;
    const size_t place =
        size_t{static_cast<uint32_t>(y)} * picture.width + static_cast<uint32_t>(x);
    std::copy(kRed.begin(), kRed.end(),
              result.samples.begin() + static_cast<std::ptrdiff_t>(3 * place));
  };
  for (const PlacedLine& line : page.lines) {
    const auto corners =
        placing.corners(line.box.left, line.box.top, line.box.right, line.box.bottom);
    for (size_t i = 0; i < corners.size(); ++i) {
      const Spot& from = corners[i];
      const Spot& to = corners[(i + 1) % corners.size()];
      const double length = std::max({std::abs(to.x - from.x), std::abs(to.y - from.y), 1.0});
      for (double step = 0; step <= length; ++step) {
        mark(from.x + (to.x - from.x) * step / length, from.y + (to.y - from.y) * step / length);
      }
    }
  }
  return result;
}

}  // namespace

void run_read(const ReadOptions& options) {
  const PictureFormat format =
      options.draw.empty() ? PictureFormat::png : picture_format_of(options.draw);
  const Picture picture = read_picture(options.picture);
  const std::string path = options.model.empty() ? installed_model() : options.model;
  const marlo::utility::Model model = open_model(path, options.isa);
  ReadPage page;
  try {
    const LineReader reader(model.at(0));
    try {
      page = read_page(reader, picture, options.line);
    } catch (const std::invalid_argument& error) {
      throw ToolError(kInputError, shown(options.picture) + ": " + error.what());
    }
  } catch (const std::invalid_argument& error) {
    throw ToolError(kModelError, shown(path) + ": " + printable(error.what()));
  } catch (const marlo::utility::Error& error) {
    throw ToolError(kRunError, shown(path) + ": " + printable(error.story()));
  }
  const Placing placing(picture, page.level, page.scale, page.degrees);
  if (!options.draw.empty()) {
    write_file(options.draw, picture_bytes(framed(picture, page, placing), format));
  }
  if (page.lines.empty()) say(shown(options.picture) + ": no text was found");
  if (options.json) return print(json_of(page, picture, placing));
  print(options.preview ? drawn_text(page, picture, placing, options.preview_width)
                        : plain_text(page));
}

}  // namespace qrt_tool
