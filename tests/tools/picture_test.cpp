#include "tools/qrt/picture.h"

#include <gmock/gmock.h>

#include "tools/qrt/errors.h"
#include "tools/qrt/preview.h"

#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb_image_write.h>

namespace qrt_tool {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string pgm(int width, int height, const std::string& samples) {
  return "P5 " + std::to_string(width) + " " + std::to_string(height) + " 255\n" + samples;
}

void append(void* text, void* data, int size) {
  static_cast<std::string*>(text)->append(static_cast<const char*>(data),
                                          static_cast<size_t>(size));
}

std::string refusal(const std::string& bytes) {
  try {
    parse_picture(bytes, 0);
  } catch (const ToolError& error) {
    EXPECT_EQ(error.exit_code(), kInputError);
    return error.what();
  }
  return "accepted";
}

TEST(Picture, ReadsGreyLevelsRowByRow) {
  const Picture picture = parse_picture(pgm(3, 2, std::string("\0\x01\x02\xFD\xFE\xFF", 6)), 0);
  EXPECT_EQ(picture.width, 3u);
  EXPECT_EQ(picture.height, 2u);
  EXPECT_EQ(picture.channels, 1u);
  EXPECT_THAT(picture.samples, ElementsAre(0, 1, 2, 253, 254, 255));
}

TEST(Picture, ReadsPngBmpAndJpeg) {
  const std::vector<uint8_t> rgb(8 * 8 * 3, 200);
  std::string png, bmp, jpeg;
  stbi_write_png_to_func(append, &png, 8, 8, 3, rgb.data(), 24);
  stbi_write_bmp_to_func(append, &bmp, 8, 8, 3, rgb.data());
  stbi_write_jpg_to_func(append, &jpeg, 8, 8, 3, rgb.data(), 95);
  for (const std::string& bytes : {png, bmp, jpeg}) {
    const Picture picture = parse_picture(bytes, 0);
    EXPECT_EQ(picture.channels, 3u);
    EXPECT_EQ(picture.samples.size(), rgb.size());
    EXPECT_THAT(picture.samples, Each(::testing::AllOf(::testing::Ge(198), ::testing::Le(202))));
  }
}

TEST(Picture, TurnsColoursIntoGreyAndBack) {
  const std::string colour = std::string("P6 1 1 255\n\xFF") + std::string(2, '\0');
  EXPECT_THAT(parse_picture(colour, 1).samples, ElementsAre(76));
  EXPECT_THAT(parse_picture(pgm(1, 1, "\x07"), 3).samples, ElementsAre(7, 7, 7));
}

TEST(Picture, PlanesAreSamplesDividedBy255) {
  const std::string colour =
      std::string("P6 2 1 255\n") + std::string("\xFF\x00\x33\x00\x66\xFF", 6);
  EXPECT_THAT(planes_of(parse_picture(colour, 3)),
              ElementsAre(1.0f, 0.0f, 0.0f, 102 / 255.0f, 51 / 255.0f, 1.0f));
}

TEST(Picture, RefusesWhatIsNoPicture) {
  EXPECT_THAT(refusal("hello"), HasSubstr("expected PNG, JPEG, BMP or PGM"));
}

TEST(Picture, RefusesAHugePromise) {
  EXPECT_THAT(refusal(pgm(30000, 30000, "")), HasSubstr("at most 67108864 pixels"));
  EXPECT_NE(refusal(pgm(2000000000, 2000000000, "")), "accepted");
}

TEST(Picture, EveryTruncatedPngIsReadOrRefused) {
  const std::vector<uint8_t> grey(16 * 16, 90);
  std::string png;
  stbi_write_png_to_func(append, &png, 16, 16, 1, grey.data(), 16);
  size_t refused = 0;
  for (size_t size = 0; size < png.size(); ++size)
    refused += refusal(png.substr(0, size)) != "accepted";
  EXPECT_GT(refused, png.size() / 2);
}

TEST(Preview, DrawsTwoPixelsPerCharacter) {
  const Picture picture = parse_picture(pgm(2, 2, std::string("\xFF\0\xFF\xFF", 4)), 0);
  EXPECT_THAT(render_preview(picture, 28, true), ElementsAre("\u2588\u2584"));
  EXPECT_THAT(render_preview(picture, 28, false), ElementsAre("@="));
}

TEST(Preview, ReducesAndNeverEnlarges) {
  const Picture picture = parse_picture(pgm(40, 20, std::string(800, '\xFF')), 0);
  const auto rows = render_preview(picture, 10, false);
  EXPECT_THAT(rows, ElementsAre("@@@@@@@@@@", "@@@@@@@@@@", "@@@@@@@@@@"));
  EXPECT_EQ(render_preview(picture, 400, false)[0].size(), 40u);
}

TEST(Preview, ExtremeShapesGiveAtLeastOneCharacter) {
  EXPECT_EQ(render_preview(parse_picture(pgm(1000, 1, std::string(1000, ' ')), 0), 5, true).size(),
            1u);
  EXPECT_EQ(render_preview(parse_picture(pgm(1, 9, std::string(9, ' ')), 0), 5, true).size(), 5u);
}

}  // namespace
}  // namespace qrt_tool
