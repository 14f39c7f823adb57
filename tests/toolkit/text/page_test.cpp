#include "qrt_toolkit/text/page.h"

#include <gmock/gmock.h>

#include <cmath>
#include <stdexcept>

// Where text is on drawn pages: letters are dark bars of differing heights.

namespace marlo::toolkit {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr uint8_t kPaper = 230;
constexpr uint8_t kBlack = 25;

GreyPicture blank(uint32_t height, uint32_t width, uint8_t grey = kPaper) {
  return {height, width, std::vector<uint8_t>(size_t{height} * width, grey)};
}

void fill(GreyPicture& picture, const PixelBox& box, uint8_t grey = kBlack) {
  for (uint32_t y = box.top; y < box.bottom; ++y) {
    for (uint32_t x = box.left; x < box.right; ++x) {
      picture.samples[size_t{y} * picture.width + x] = grey;
    }
  }
}

/// A line of words: letters of 12 rows over a baseline, every third taller by 6, every fifth with 4
/// rows below.
void write_line(GreyPicture& page, uint32_t left, uint32_t base, uint32_t right) {
  uint32_t letter = 0;
  for (uint32_t x = left; x + 4 <= right; x += letter % 6 == 0 ? 14 : 8) {
    ++letter;
    const uint32_t top = base - (letter % 3 == 0 ? 18 : 12);
    const uint32_t bottom = base + (letter % 5 == 0 ? 4 : 0);
    fill(page, {x, top, x + 4, bottom});
  }
}

GreyPicture written_page() {
  GreyPicture page = blank(300, 400);
  write_line(page, 30, 60, 370);
  write_line(page, 30, 90, 360);
  write_line(page, 30, 120, 120);
  write_line(page, 30, 200, 370);
  return page;
}

GreyPicture inverted(GreyPicture picture) {
  for (uint8_t& sample : picture.samples) sample = static_cast<uint8_t>(255 - sample);
  return picture;
}

TEST(TextLines, AreFoundFromTopToBottomWithMargins) {
  const std::vector<PixelBox> lines = text_lines(written_page());
  ASSERT_THAT(lines, SizeIs(4));
  const uint32_t bases[] = {60, 90, 120, 200};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_LT(lines[i].top, bases[i] - 18);
    EXPECT_GT(lines[i].bottom, bases[i] + 4);
    EXPECT_LT(lines[i].bottom - lines[i].top, 34U);
    EXPECT_LT(lines[i].left, 30U);
  }
  EXPECT_GT(lines[0].right, 360U);
  EXPECT_LT(lines[2].right, 140U) << "a short line isn't as wide as the page";
}

TEST(TextLines, AreFoundLightOnDark) {
  EXPECT_THAT(text_lines(inverted(written_page())), SizeIs(4));
}

TEST(TextLines, AreFoundInUnevenLight) {
  GreyPicture page = written_page();
  for (size_t i = 0; i < page.samples.size(); ++i) {
    const double light = 1 - 0.6 * static_cast<double>(i % page.width) / page.width;
    page.samples[i] = static_cast<uint8_t>(page.samples[i] * light);
  }
  EXPECT_THAT(text_lines(page), SizeIs(4));
}

TEST(TextLines, TouchingEachOtherArePartedWhereThereIsLeastInk) {
  GreyPicture page = written_page();
  for (uint32_t x = 50; x < 54; ++x) fill(page, {x, 60, x + 1, 90});
  EXPECT_THAT(text_lines(page), SizeIs(4));
}

TEST(TextLines, PartsWithWideGapsBetweenAreApart) {
  GreyPicture page = blank(80, 500);
  write_line(page, 20, 50, 150);
  write_line(page, 350, 50, 480);
  const std::vector<PixelBox> parts = text_lines(page);
  ASSERT_THAT(parts, SizeIs(2));
  EXPECT_LT(parts[0].right, parts[1].left);
  EXPECT_EQ(parts[0].top, parts[1].top);
}

TEST(TextLines, RulesAndSpecksAreNone) {
  GreyPicture page = written_page();
  fill(page, {20, 150, 380, 153});
  fill(page, {200, 250, 202, 252});
  EXPECT_THAT(text_lines(page), SizeIs(4));
}

TEST(TextLines, ThereAreNoneOnBlankPaper) {
  for (const auto& [height, width] :
       {std::pair(1U, 1U), std::pair(1U, 20000U), std::pair(60U, 90U)}) {
    EXPECT_THAT(text_lines(blank(height, width)), IsEmpty());
    EXPECT_EQ(text_angle(blank(height, width)), 0);
  }
}

TEST(TextAngle, IsThatOfTheLines) {
  EXPECT_EQ(text_angle(written_page()), 0);
  for (const double degrees : {-9.0, -3.3, 1.5, 6.0, 9.7}) {
    EXPECT_NEAR(text_angle(turned(written_page(), -degrees)), degrees, 0.3);
  }
}

TEST(TextAngle, TurnsThePageBack) {
  const GreyPicture askew = turned(written_page(), 7);
  const GreyPicture level = turned(askew, text_angle(askew));
  EXPECT_THAT(text_lines(level), SizeIs(4));
}

TEST(TextAngle, OutOfRangeIsRefused) {
  EXPECT_THROW(text_angle(written_page(), 46), std::invalid_argument);
  EXPECT_THROW(text_angle(written_page(), std::nan("")), std::invalid_argument);
  EXPECT_THROW(turned(written_page(), -46), std::invalid_argument);
}

TEST(GreyPictures, KeepTheirGreyWhenTheyAreResized) {
  for (const auto& [height, width] : {std::pair(7U, 5U), std::pair(300U, 2U), std::pair(1U, 1U)}) {
    const GreyPicture result = resized(blank(61, 113, 99), height, width);
    EXPECT_EQ(result.height, height);
    EXPECT_EQ(result.width, width);
    EXPECT_EQ(result.samples, std::vector<uint8_t>(size_t{height} * width, 99));
  }
}

TEST(GreyPictures, LoseNoThinStrokeWhenTheyShrink) {
  GreyPicture picture = blank(64, 64, 0);
  fill(picture, {37, 0, 38, 64}, 255);
  const GreyPicture small = resized(picture, 8, 8);
  uint32_t sum = 0;
  for (uint32_t x = 0; x < 8; ++x) sum += small.samples[x];
  EXPECT_GT(sum, 10U) << "one column of eight that are mixed into one";
}

TEST(GreyPictures, AreCutWhereTheBoxSays) {
  GreyPicture picture = blank(4, 6, 0);
  fill(picture, {2, 1, 5, 3}, 200);
  const GreyPicture part = cut_out(picture, {2, 1, 5, 3});
  EXPECT_EQ(part.height, 2U);
  EXPECT_EQ(part.width, 3U);
  EXPECT_EQ(part.samples, std::vector<uint8_t>(6, 200));
}

TEST(GreyPictures, ThatMakeNoSenseAreRefused) {
  EXPECT_THROW(resized({}, 4, 4), std::invalid_argument);
  EXPECT_THROW(resized(blank(4, 4), 0, 4), std::invalid_argument);
  EXPECT_THROW(resized({4, 4, std::vector<uint8_t>(15)}, 2, 2), std::invalid_argument);
  EXPECT_THROW(cut_out(blank(4, 4), {0, 0, 5, 4}), std::invalid_argument);
  EXPECT_THROW(cut_out(blank(4, 4), {2, 2, 2, 4}), std::invalid_argument);
  EXPECT_THROW(text_lines({}), std::invalid_argument);
}

}  // namespace
}  // namespace marlo::toolkit
