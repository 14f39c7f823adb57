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

std::string big_endian(size_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

std::string chunk(const std::string& type, const std::string& data) {
  return big_endian(data.size()) + type + data + std::string(4, '\0');
}

// A grey picture of 8 bits whose data are what `count` zeros pack to.
std::string png_of_zeros(size_t width, size_t height, size_t count) {
  std::vector<unsigned char> zeros(count);
  int size = 0;
  unsigned char* packed = stbi_zlib_compress(zeros.data(), static_cast<int>(count), &size, 5);
  const std::string data(reinterpret_cast<char*>(packed), static_cast<size_t>(size));
  free(packed);
  return "\x89PNG\r\n\x1A\n" +
         chunk("IHDR", big_endian(width) + big_endian(height) + std::string("\x08\0\0\0\0", 5)) +
         chunk("IDAT", data) + chunk("IEND", "");
}

TEST(Picture, DataThatUnpackToMoreThanThePictureAreRefused) {
  EXPECT_EQ(refusal(png_of_zeros(8, 8, 72)), "accepted");
  const std::string bomb = png_of_zeros(8, 8, size_t{24} << 20);
  EXPECT_LT(bomb.size(), size_t{1} << 18);
  EXPECT_THAT(refusal(bomb),
              HasSubstr("its data unpack to more than a picture of 8 x 8 pixels needs"));
}

TEST(Picture, MemoryIsGivenBackAfterARefusal) {
  const std::string bomb = png_of_zeros(8, 8, size_t{4} << 20);
  for (int i = 0; i < 5; ++i) EXPECT_NE(refusal(bomb), "accepted");
  EXPECT_EQ(refusal(png_of_zeros(300, 200, 301 * 200)), "accepted");
}

TEST(Picture, LargePicturesOfEveryFormatAreRead) {
  const int width = 700, height = 500;
  std::vector<uint8_t> rgb(static_cast<size_t>(width) * height * 3);
  for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = static_cast<uint8_t>(i * 7919 >> 4);
  std::string png, bmp, jpeg;
  stbi_write_png_to_func(append, &png, width, height, 3, rgb.data(), width * 3);
  stbi_write_bmp_to_func(append, &bmp, width, height, 3, rgb.data());
  stbi_write_jpg_to_func(append, &jpeg, width, height, 3, rgb.data(), 95);
  const std::string ppm = "P6 700 500 255\n" + std::string(rgb.begin(), rgb.end());
  for (const std::string& bytes : {png, bmp, jpeg, ppm}) {
    for (const uint32_t channels : {1u, 3u}) {
      EXPECT_EQ(parse_picture(bytes, channels).samples.size(), size_t{350000} * channels);
    }
  }
}

TEST(Picture, EveryByteOfAHeaderMayLie) {
  const std::vector<uint8_t> rgb(8 * 8 * 3, 77);
  std::string png, bmp, jpeg;
  stbi_write_png_to_func(append, &png, 8, 8, 3, rgb.data(), 24);
  stbi_write_bmp_to_func(append, &bmp, 8, 8, 3, rgb.data());
  stbi_write_jpg_to_func(append, &jpeg, 8, 8, 3, rgb.data(), 95);
  const std::string ppm = "P6 8 8 255\n" + std::string(rgb.begin(), rgb.end());
  size_t refused = 0;
  for (const std::string& bytes : {png, bmp, jpeg, ppm}) {
    for (size_t at = 0; at < std::min<size_t>(bytes.size(), 64); ++at) {
      for (const char lie : {'\0', '\x01', '\x7F', '\x80', '\xFF', '9'}) {
        std::string changed = bytes;
        changed[at] = lie;
        refused += refusal(changed) == "accepted" ? 0 : 1;
      }
    }
  }
  EXPECT_GT(refused, 200u);
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
