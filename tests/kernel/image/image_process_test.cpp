#include "qrt_core/kernel/image/image_process.h"

#include <gtest/gtest.h>

#include <set>

#include "qrt_core/kernel/image/yuv_image.h"
#include "tests/support/image_tensors.h"

// The classes, the codes, and which class has what.

namespace marlo::test {
namespace {

using kernel::ImageProcess;
using kernel::ImageProcessFallback;
using kernel::ImageProcessSSE;
using runtime::DataType;
using runtime::LayoutType;

const std::set<int> kPlainCodes{1,  3,  4,  6,  7,  11, 22, 24, 32, 50, 51,
                                52, 53, 54, 60, 61, 65, 77, 81, 82, 83, 84};
const std::set<int> kCropCodes{85, 86, 87, 88, 100, 101, 102, 103};
const std::set<int> kWarpCodes{55, 56, 57, 58};
constexpr float kIdentity[6] = {1, 0, 0, 0, 1, 0};

// Calls all three overloads with one code, on tensors that no operation can use.
struct Calls {
  explicit Calls(int code) : code_(code) {}

  Refusal plain(ImageProcess& process) const {
    return refusal_of([&] { process.ConvertPixel(nullptr, nullptr, code_, nullptr); });
  }
  Refusal crop(ImageProcess& process) const {
    return refusal_of(
        [&] { process.ConvertPixel(nullptr, nullptr, 0.0f, 0.0f, 1.0f, 1.0f, code_, nullptr); });
  }
  Refusal warp(ImageProcess& process) const {
    return refusal_of([&] { process.ConvertPixel(nullptr, nullptr, kIdentity, code_, nullptr); });
  }

  int code_;
};

const std::string kNotImplemented = "[QRT]: Not Implemented.\n";

void expect_not_implemented(const Refusal& refusal) {
  EXPECT_EQ(refusal.text, kNotImplemented);
  EXPECT_EQ(refusal.lines, std::vector<std::string>{kNotImplemented});
}

void expect_nothing(const Refusal& refusal) {
  EXPECT_EQ(refusal.text, "");
  EXPECT_TRUE(refusal.lines.empty());
}

// An operation that is there refuses a missing tensor by its own name.
void expect_there(const Refusal& refusal) {
  EXPECT_NE(refusal.text, kNotImplemented);
  EXPECT_NE(refusal.text.find("both tensors must be tensors of the CPU"), std::string::npos)
      << refusal.text;
}

TEST(ImageProcess, HasNoOperationOfItsOwn) {
  ImageProcess process;
  for (int code = -2; code < 300; ++code) {
    SCOPED_TRACE(code);
    const Calls calls(code);
    const auto check = [](bool known, const Refusal& refusal) {
      known ? expect_not_implemented(refusal) : expect_nothing(refusal);
    };
    check(kPlainCodes.count(code) == 1, calls.plain(process));
    check(kCropCodes.count(code) == 1, calls.crop(process));
    check(kWarpCodes.count(code) == 1, calls.warp(process));
  }
}

TEST(ImageProcessFallback, LacksTheNormalizedWarpOnly) {
  ImageProcessFallback process;
  for (int code = -2; code < 300; ++code) {
    SCOPED_TRACE(code);
    const Calls calls(code);
    const auto check = [](bool known, const Refusal& refusal) {
      known ? expect_there(refusal) : expect_nothing(refusal);
    };
    check(kPlainCodes.count(code) == 1, calls.plain(process));
    check(kCropCodes.count(code) == 1, calls.crop(process));
    if (code == 55) {
      expect_not_implemented(calls.warp(process));
    } else {
      check(kWarpCodes.count(code) == 1, calls.warp(process));
    }
  }
}

TEST(ImageProcessSSE, HasTheQuarterTurnsAndTheNormalizedWarpOnly) {
  ImageProcessSSE process;
  for (const int code : kPlainCodes) {
    SCOPED_TRACE(code);
    const Refusal refusal = Calls(code).plain(process);
    code == 50 || code == 52 ? expect_there(refusal) : expect_not_implemented(refusal);
  }
  for (const int code : kCropCodes) expect_not_implemented(Calls(code).crop(process));
  for (const int code : kWarpCodes) {
    SCOPED_TRACE(code);
    const Refusal refusal = Calls(code).warp(process);
    code == 55 ? expect_there(refusal) : expect_not_implemented(refusal);
  }
  expect_nothing(Calls(76).plain(process));
}

TEST(ImageProcessFallback, IgnoresACodeOfAnotherOverload) {
  ImageTensors tensors;
  const auto input = tensors.floats({1, 2, 2}, LayoutType::CHW, {1, 2, 3, 4});
  const auto output = tensors.output({1, 2, 2}, DataType::FLOAT32, LayoutType::CHW);
  const auto before = bytes_of(output);
  ImageProcessFallback process;
  for (const int code : kWarpCodes) process.ConvertPixel(input, output, code, tensors);
  for (const int code : kPlainCodes) process.ConvertPixel(input, output, kIdentity, code, tensors);
  EXPECT_EQ(bytes_of(output), before);
}

TEST(ImageProcess, IsCopiedAndUsedThroughItsBase) {
  ImageProcessFallback original;
  const ImageProcessFallback copy = original;
  original = copy;
  ImageProcess& base = original;
  ImageTensors tensors;
  const auto input = tensors.bytes({1, 1, 3}, LayoutType::CHW, {1, 2, 255});
  const auto output = tensors.output({1, 1, 3}, DataType::FLOAT32, LayoutType::CHW);
  base.ConvertPixel(input, output, 65, tensors);
  EXPECT_EQ(values_of(*output), (std::vector<float>{1.0f, 2.0f, 255.0f}));
  const ImageProcess sliced = original;
  expect_not_implemented(
      refusal_of([&] { ImageProcess(sliced).ConvertPixel(input, output, 65, tensors); }));
}

TEST(YuvImage, HasTheChrominanceBehindIt) {
  ImageTensors tensors;
  EXPECT_EQ(kernel::yuv420_bytes(4, 6), 36u);
  const auto storage = tensors.device()->CreateU8HWCMainMem({6, 6, 1}, random_bytes(36, 1).data());
  auto picture = kernel::yuv420_image(*tensors.device(), 4, 6, storage);
  EXPECT_EQ(picture->RawPointer(), storage->RawPointer());
  EXPECT_EQ(picture->shape.dims, (std::vector<uint32_t>{4, 6, 1}));
  EXPECT_EQ(storage.use_count(), 2);
  picture.reset();
  EXPECT_EQ(storage.use_count(), 1);
  expect_message("yuv420_image: the storage is smaller than a picture of 6 x 8",
                 [&] { kernel::yuv420_image(*tensors.device(), 8, 6, storage); });
}

}  // namespace
}  // namespace marlo::test
