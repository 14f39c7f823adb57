#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"
#include "tools/qrt/npy.h"
#include "tools/qrt/picture.h"

// `qrt image`, and what `qrt run` does to pictures first.

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string pgm(uint32_t width, uint32_t height, const std::vector<uint8_t>& samples) {
  return "P5\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n" +
         std::string(samples.begin(), samples.end());
}

std::string ppm(uint32_t width, uint32_t height, const std::vector<uint8_t>& samples) {
  std::string bytes = pgm(width, height, samples);
  bytes[1] = '6';
  return bytes;
}

class ImageTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    write_text(path("gray.pgm"), pgm(3, 2, {1, 2, 3, 4, 5, 6}));
    write_text(path("color.ppm"), ppm(2, 1, {255, 0, 0, 10, 20, 30}));
  }

  // The picture that the operations make, as a PNM file.
  std::string made(const std::string& input, const std::vector<std::string>& operations) {
    const Outcome outcome = image(input, "out.pnm", operations);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    return file_text(path("out.pnm"));
  }

  Outcome image(const std::string& input, const std::string& output,
                const std::vector<std::string>& operations) {
    const std::string shell = joined_arguments(operations);
    return qrt({"image", path(input), path(output) + shell});
  }

  // Arguments that stand behind one that the runner puts between quotation marks.
  static std::string joined_arguments(const std::vector<std::string>& arguments) {
    std::string text;
    for (const std::string& argument : arguments) text += "' '" + argument;
    return text;
  }
};

TEST_F(ImageTest, StandardOutputIsPnm) {
  const Outcome gray = qrt({"image", "-", "-", "--flip", "horizontal"}, path("gray.pgm"));
  EXPECT_EQ(gray.code, 0) << gray.err;
  EXPECT_EQ(gray.out, pgm(3, 2, {3, 2, 1, 6, 5, 4}));
  EXPECT_EQ(gray.err, "");
  EXPECT_EQ(qrt({"image", path("color.ppm"), "-", "--swap"}).out,
            ppm(2, 1, {0, 0, 255, 30, 20, 10}));
}

TEST_F(ImageTest, CopiesAPictureWithoutOperations) {
  EXPECT_EQ(made("gray.pgm", {}), pgm(3, 2, {1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(made("color.ppm", {}), ppm(2, 1, {255, 0, 0, 10, 20, 30}));
}

TEST_F(ImageTest, TurnsAndFlips) {
  EXPECT_EQ(made("gray.pgm", {"--rotate", "90"}), pgm(2, 3, {4, 1, 5, 2, 6, 3}));
  EXPECT_EQ(made("gray.pgm", {"--rotate", "180"}), pgm(3, 2, {6, 5, 4, 3, 2, 1}));
  EXPECT_EQ(made("gray.pgm", {"--rotate", "270"}), pgm(2, 3, {3, 6, 2, 5, 1, 4}));
  EXPECT_EQ(made("gray.pgm", {"--flip", "horizontal"}), pgm(3, 2, {3, 2, 1, 6, 5, 4}));
  EXPECT_EQ(made("gray.pgm", {"--flip", "vertical"}), pgm(3, 2, {4, 5, 6, 1, 2, 3}));
}

TEST_F(ImageTest, AppliesOperationsInTheOrderGiven) {
  EXPECT_EQ(made("gray.pgm", {"--rotate", "90", "--flip", "horizontal"}),
            pgm(2, 3, {1, 4, 2, 5, 3, 6}));
  EXPECT_EQ(made("gray.pgm", {"--flip", "horizontal", "--rotate", "90"}),
            pgm(2, 3, {6, 3, 5, 2, 4, 1}));
  EXPECT_EQ(made("gray.pgm", {"--rotate", "90", "--crop", "2x1+0+0", "--rotate", "90"}),
            pgm(1, 2, {4, 1}));
  EXPECT_EQ(made("color.ppm", {"--swap", "--gray"}), pgm(2, 1, {28, 21}));
  EXPECT_EQ(made("color.ppm", {"--gray", "--swap"}), pgm(2, 1, {76, 18}));
}

TEST_F(ImageTest, CropsInsideOutsideAndTheMiddle) {
  EXPECT_EQ(made("gray.pgm", {"--crop", "2x1+1+1"}), pgm(2, 1, {5, 6}));
  EXPECT_EQ(made("gray.pgm", {"--crop", "2x2-1+1"}), pgm(2, 2, {0, 4, 0, 0}));
  EXPECT_EQ(made("gray.pgm", {"--crop", "1x2"}), pgm(1, 2, {2, 5}));
  EXPECT_EQ(made("color.ppm", {"--crop", "1x1+1+0"}), ppm(1, 1, {10, 20, 30}));
}

TEST_F(ImageTest, Resizes) {
  EXPECT_EQ(made("gray.pgm", {"--nearest", "6x1"}), pgm(6, 1, {1, 1, 2, 2, 3, 3}));
  EXPECT_EQ(made("gray.pgm", {"--resize", "3x2"}), pgm(3, 2, {1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(made("color.ppm", {"--resize", "1x1"}), ppm(1, 1, {133, 10, 15}));
  EXPECT_EQ(made("color.ppm", {"--nearest", "1x2"}), ppm(1, 2, {255, 0, 0, 255, 0, 0}));
}

TEST_F(ImageTest, Warps) {
  // Each pixel comes from its right neighbour; the last row and column have none to mix with.
  EXPECT_EQ(made("gray.pgm", {"--affine", "1,0,1,0,1,0"}), pgm(3, 2, {2, 0, 0, 0, 0, 0}));
  EXPECT_EQ(made("gray.pgm", {"--warp", "-1,0,0,0,1,0"}), pgm(3, 2, {2, 2, 1, 2, 2, 1}));
  EXPECT_EQ(made("color.ppm", {"--warp", "1,0,0,0,1,0"}), ppm(2, 1, {255, 0, 0, 255, 0, 0}));
}

TEST_F(ImageTest, WarpsToTheNearestPixelsAndForward) {
  EXPECT_EQ(made("gray.pgm", {"--affine-nearest", "1,0,1,0,1,0"}), pgm(3, 2, {2, 3, 0, 5, 6, 0}));
  // Each pixel goes to its right neighbour.
  EXPECT_EQ(made("gray.pgm", {"--affine-forward", "1,0,1,0,1,0"}), pgm(3, 2, {0, 1, 2, 0, 4, 5}));
  EXPECT_EQ(made("color.ppm", {"--affine-forward", "1,0,1,0,1,0"}),
            ppm(2, 1, {0, 0, 0, 255, 0, 0}));
}

TEST_F(ImageTest, ZoomsAndTakesChannelsApart) {
  write_text(path("four.pgm"), pgm(4, 2, {1, 2, 3, 4, 5, 6, 7, 8}));
  // Columns 2 and 3, of whose halves the first lies in column 1.
  EXPECT_EQ(made("four.pgm", {"--zoom", "0.5,0,0.75,0.5"}), pgm(4, 2, {2, 3, 3, 4, 6, 7, 7, 8}));
  // What reaches outside stays black.
  EXPECT_EQ(made("four.pgm", {"--zoom", "0,0,1.75,0.5"}), pgm(4, 2, {1, 3, 0, 0, 5, 7, 0, 0}));
  EXPECT_EQ(made("color.ppm", {"--planes"}), pgm(2, 3, {255, 10, 0, 20, 0, 30}));
  EXPECT_EQ(made("gray.pgm", {"--planes"}), pgm(3, 2, {1, 2, 3, 4, 5, 6}));
}

TEST_F(ImageTest, ReadsRawYuv) {
  write_text(path("raw"), std::string("\x50\x51\x52\x53\x80\xC0", 6));
  // v - 128 = 64 adds 90 to red and takes 46 from green.
  EXPECT_EQ(made("raw", {"--yuv", "nv12:2x2"}),
            ppm(2, 2, {170, 34, 80, 171, 35, 81, 172, 36, 82, 173, 37, 83}));
  EXPECT_EQ(made("raw", {"--yuv", "iyuv:2x2"}), made("raw", {"--yuv", "nv12:2x2"}));
  // u - 128 = 64 takes 22 from green and adds 113 to blue.
  EXPECT_EQ(made("raw", {"--yuv", "nv21:2x2", "--crop", "1x1+0+0"}), ppm(1, 1, {80, 58, 193}));
}

TEST_F(ImageTest, WritesWhatTheNameSays) {
  const auto samples = [&](const std::string& name) {
    const Outcome outcome = image("color.ppm", name, {});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(outcome.err,
                AllOf(StartsWith("qrt: wrote "), HasSubstr("2x1, red, green and blue")));
    return qrt_tool::parse_picture(file_text(path(name)), 0).samples;
  };
  const std::vector<uint8_t> exact{255, 0, 0, 10, 20, 30};
  EXPECT_EQ(samples("o.png"), exact);
  EXPECT_EQ(samples("o.bmp"), exact);
  EXPECT_EQ(samples("o.PPM"), exact);
  EXPECT_EQ(samples("o.jpg").size(), exact.size());
  EXPECT_THAT(file_text(path("o.png")), StartsWith("\x89PNG"));
  EXPECT_THAT(file_text(path("o.jpg")), StartsWith("\xFF\xD8"));
  EXPECT_THAT(image("gray.pgm", "g.png", {}).err, HasSubstr("3x2, gray"));
}

TEST_F(ImageTest, FaultsSayWhatWasExpected) {
  struct Fault {
    std::vector<std::string> operations;
    std::string text;
  };
  const std::vector<Fault> faults{
      {{"--resize", "3"}, "--resize \"3\": expected WIDTHxHEIGHT, such as 320x240"},
      {{"--resize", "0x4"}, "--resize \"0x4\": expected WIDTHxHEIGHT"},
      {{"--resize", "-2x4"}, "--resize \"-2x4\": expected WIDTHxHEIGHT"},
      {{"--resize", "32769x1"}, "with sides up to 32768 and at most 67108864 pixels"},
      {{"--resize", "32768x32768"}, "at most 67108864 pixels"},
      {{"--nearest", "9x9x9"}, "--nearest \"9x9x9\": expected WIDTHxHEIGHT"},
      {{"--crop", "2x2+1"}, "--crop \"2x2+1\": expected WIDTHxHEIGHT+LEFT+TOP"},
      {{"--crop", "2x2+1+99999"}, "such as 200x100+10-5, or WIDTHxHEIGHT for the middle"},
      {{"--crop", "2x2+-1+1"}, "--crop \"2x2+-1+1\""},
      {{"--rotate", "45"}, "--rotate \"45\": expected 90, 180 or 270"},
      {{"--flip", "left"}, "--flip \"left\": expected horizontal or vertical"},
      {{"--warp", "1,0,0"}, "--warp \"1,0,0\": expected 6 numbers between commas; found 3"},
      {{"--affine", "1,0,x,0,1,0"}, "--affine \"1,0,x,0,1,0\": expected numbers between commas"},
      {{"--affine-nearest", "1"}, "--affine-nearest \"1\": expected 6 numbers between commas"},
      {{"--zoom", "0,0,1"}, "--zoom \"0,0,1\": expected 4 numbers between commas; found 3"},
      {{"--affine", "1,0,nan,0,1,0"}, "expected numbers between commas"},
      {{"--warp", "1,0,0,0,1,0,"}, "expected numbers between commas"},
      {{"--yuv", "nv12"}, "--yuv \"nv12\": expected FORMAT:WIDTHxHEIGHT, such as nv12:640x480"},
      {{"--yuv", "yuyv:2x2"}, "--yuv \"yuyv\": expected nv12, nv21 or iyuv"},
      {{"--yuv", "nv12:3x2"}, "--yuv: a picture of 3x2 has an odd side"},
  };
  for (const Fault& fault : faults) {
    const Outcome outcome = image("gray.pgm", "out.pgm", fault.operations);
    EXPECT_EQ(outcome.code, 2) << fault.text;
    EXPECT_THAT(outcome.err, AllOf(StartsWith("qrt: "), HasSubstr(fault.text)));
    EXPECT_FALSE(fs::exists(path("out.pgm")));
  }
}

TEST_F(ImageTest, FilesThatDoNotFit) {
  Outcome outcome = image("none.pgm", "out.pgm", {});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, HasSubstr("none.pgm"));
  write_text(path("text.png"), "no picture");
  outcome = image("text.png", "out.pgm", {});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, HasSubstr("text.png: not a picture that can be read"));
  outcome = image("gray.pgm", "out.gif", {});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err,
              HasSubstr("expected a name that ends in .png, .jpg, .bmp, .pgm or .ppm"));
  write_text(path("raw"), "12345");
  outcome = image("raw", "out.pgm", {"--yuv", "nv12:2x2"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, HasSubstr("raw: the file has 5 bytes; a picture of 2x2 in nv12 has 6"));
  EXPECT_EQ(image("gray.pgm", "no/such/out.pgm", {}).code, 5);
}

TEST_F(ImageTest, HelpTellsOfTheOrder) {
  const Outcome outcome = qrt({"image", "--help"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("--resize WxH"), HasSubstr("--warp MATRIX"),
                                 HasSubstr("in the order of the command line")));
  EXPECT_THAT(qrt({"--help"}).out, HasSubstr("qrt image photo.jpg small.png"));
}

// The toy network doubles its one plane of 3 x 2, and adds a half.
class PreparedInputTest : public ImageTest {
 protected:
  void SetUp() override {
    ImageTest::SetUp();
    toy_model()->ToFile(path("m.qrtmodel").c_str(), "bin");
  }

  Outcome run(const std::string& input, const std::vector<std::string>& options) {
    return qrt({"run", path("m.qrtmodel"), "--input", path(input) + joined_arguments(options)});
  }

  // The first plane that the network gives.
  std::vector<float> first_plane(const std::string& input, std::vector<std::string> options) {
    options.insert(options.end(), {"--output", path("y.npy")});
    const Outcome outcome = run(input, options);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    auto values = qrt_tool::parse_npy(file_text(path("y.npy"))).values;
    values.resize(values.size() / 2);
    return values;
  }
};

TEST_F(PreparedInputTest, MeanAndScaleReplaceTheDivision) {
  EXPECT_THAT(first_plane("gray.pgm", {"--mean", "2", "--scale", "0.5"}),
              ElementsAre(0.0f, 0.5f, 1.5f, 2.5f, 3.5f, 4.5f));
  EXPECT_THAT(first_plane("gray.pgm", {"--mean", "-1", "--scale", "1"}),
              ElementsAre(4.5f, 6.5f, 8.5f, 10.5f, 12.5f, 14.5f));
  const float mean_only = 2.0f * ((6.0f - 4.0f) * (1.0f / 255.0f)) + 0.5f;
  EXPECT_FLOAT_EQ(first_plane("gray.pgm", {"--mean", "4"})[5], mean_only);
}

TEST_F(PreparedInputTest, CropsAndThenResizes) {
  write_text(path("large.pgm"), pgm(8, 4, std::vector<uint8_t>(32, 10)));
  const Outcome refused = run("large.pgm", {});
  EXPECT_EQ(refused.code, 3);
  EXPECT_THAT(refused.err, HasSubstr("the picture is 8x4 (width by height); the model expects 3x2. "
                                     "--resize model resizes it"));
  for (const std::vector<std::string>& options :
       {std::vector<std::string>{"--resize", "model"}, std::vector<std::string>{"--resize", "3x2"},
        std::vector<std::string>{"--crop", "6x4", "--resize", "model"},
        std::vector<std::string>{"--resize", "model", "--crop", "2x2+3+1"},
        std::vector<std::string>{"--crop", "3x2+5+2"}}) {
    auto all = options;
    all.insert(all.end(), {"--scale", "1"});
    EXPECT_EQ(first_plane("large.pgm", all), std::vector<float>(6, 20.5f));
  }
}

TEST_F(PreparedInputTest, MakesGrayOfColors) {
  write_text(path("c.ppm"), ppm(1, 1, {255, 0, 0}));
  const auto gray = first_plane("c.ppm", {"--resize", "3x2", "--color", "gray", "--scale", "1"});
  EXPECT_EQ(gray, std::vector<float>(6, 2.0f * 76.0f + 0.5f));
}

TEST_F(PreparedInputTest, FaultsNameTheOption) {
  const auto fault = [&](const std::vector<std::string>& options) {
    const Outcome outcome = run("gray.pgm", options);
    EXPECT_EQ(outcome.code, 2);
    return outcome.err;
  };
  EXPECT_THAT(fault({"--color", "cmyk"}), HasSubstr("--color \"cmyk\": expected rgb, bgr or gray"));
  EXPECT_THAT(fault({"--color", "bgr"}), HasSubstr("the network expects one plane; expected gray"));
  EXPECT_THAT(fault({"--mean", "1,2,3"}), HasSubstr("expected 1 number between commas; found 3"));
  EXPECT_THAT(fault({"--scale", "a"}), HasSubstr("--scale \"a\": expected numbers between commas"));
  EXPECT_THAT(fault({"--resize", "4"}), HasSubstr("--resize \"4\": expected WIDTHxHEIGHT"));
  EXPECT_THAT(fault({"--crop", "4"}), HasSubstr("--crop \"4\": expected WIDTHxHEIGHT+LEFT+TOP"));
}

}  // namespace
}  // namespace qrt_tool_test
