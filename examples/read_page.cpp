// Reads the text of a photographed or scanned page: read_page MODEL PICTURE
//
// The page may lie askew by up to 10 degrees. It is done in five steps, each a function of the
// toolkit over the library's image functions: how the lines descend, the page made level by a warp,
// its lines found by the ink in each row, each of them cut out, and read by the network.

#include <qrt_core/qrt_core.h>
#include <qrt_toolkit/text/line_reader.h>
#include <qrt_toolkit/text/page.h>
#include <qrt_toolkit/tune/open.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#include <stb_image.h>

namespace {

namespace toolkit = marlo::toolkit;

// What is printed of a line: its place on the level page, the least sure of its characters, its text.
struct Line {
  toolkit::PixelBox box;
  toolkit::ReadLine read;
};

// A picture file as grey levels; without pixels if it can't be read.
toolkit::GreyPicture load(const char* path) {
  int width = 0;
  int height = 0;
  const std::unique_ptr<unsigned char, void (*)(void*)> grey(
      stbi_load(path, &width, &height, nullptr, 1), &stbi_image_free);
  if (grey == nullptr) return {};
  toolkit::GreyPicture picture;
  picture.height = static_cast<unsigned int>(height);
  picture.width = static_cast<unsigned int>(width);
  picture.samples.assign(grey.get(), grey.get() + size_t{picture.height} * picture.width);
  return picture;
}

std::vector<Line> read_page(const toolkit::LineReader& reader, const toolkit::GreyPicture& page) {
  // Lines that descend would run into each other's rows, so the page is turned back first.
  const double degrees = toolkit::text_angle(page);
  const toolkit::GreyPicture level = degrees == 0 ? page : toolkit::turned(page, degrees);
  std::printf("the lines descend by %.1f degrees\n", degrees);

  // Where rows have ink there are lines, where they have none there is space between them.
  std::vector<Line> lines;
  for (const toolkit::PixelBox& box : toolkit::text_lines(level)) {
    lines.push_back({box, reader.read(toolkit::cut_out(level, box))});
  }
  return lines;
}

void print(const Line& line) {
  if (line.read.text.empty()) return;
  // The weakest character says more about a line than the mean does.
  const toolkit::ReadCharacter* weakest = &line.read.characters[0];
  for (const toolkit::ReadCharacter& character : line.read.characters) {
    if (character.confidence < weakest->confidence) weakest = &character;
  }
  std::printf("row %4u, column %4u, at least %3.0f %% ('%c'):  %s\n", line.box.top, line.box.left,
              100.0 * static_cast<double>(weakest->confidence), weakest->character,
              line.read.text.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: read_page MODEL PICTURE\n"), 2;
  const toolkit::GreyPicture page = load(argv[2]);
  if (page.samples.empty()) {
    return std::fprintf(stderr, "%s: %s\n", argv[2], stbi_failure_reason()), 1;
  }
  try {
    // The file names kernels that any processor runs; here they are exchanged for faster ones.
    const marlo::utility::Model model = toolkit::open_with_kernels(argv[1], {1, 32, 320});
    const toolkit::LineReader reader(model.at(0));
    for (const Line& line : read_page(reader, page)) print(line);
  } catch (const std::exception& failure) {
    return std::fprintf(stderr, "%s\n", marlo::utility::story(failure).c_str()), 1;
  }
  return 0;
}
