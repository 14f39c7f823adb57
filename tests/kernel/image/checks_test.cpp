#include <gtest/gtest.h>

#include "qrt_core/kernel/image/color_functions.h"
#include "qrt_core/kernel/image/geometry_functions.h"
#include "qrt_core/kernel/image/image_process.h"
#include "tests/support/image_tensors.h"

// What operations and functions check, in which order, and with which message.

namespace marlo::test {
namespace {

using kernel::ImageProcessFallback;
using kernel::YUVCvtMatrix;
using runtime::DataType;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorShape;
using namespace kernel::functional;

// A tensor that isn't one of the CPU.
class ForeignTensor final : public runtime::Tensor {
 public:
  explicit ForeignTensor(const TensorShape& same) : Tensor(same, {}, nullptr) {}

 private:
  std::function<void(void*)> GetDeleter() override { return {}; }
};

// The tensors of a call. Each step spoils one more property, from the last check to the first, so
// that every message shows its place in the order.
struct Operands {
  explicit Operands(std::vector<TensorPointer> tensors) : all(std::move(tensors)) {}
  TensorPointer& operator[](size_t i) { return all[i]; }

  void set_layout(size_t i, LayoutType layout) { all[i]->shape.layout = layout; }
  void set_type(size_t i, DataType type) { all[i]->shape.data_type = type; }
  void move_away(size_t i) { all[i]->shape.location = LocationType::OpenGLImage; }
  void replace(size_t i) { all[i] = std::make_shared<ForeignTensor>(all[i]->shape); }

  std::vector<TensorPointer> all;
};

struct Step {
  std::function<void(Operands&)> spoil;
  std::string message;  // empty for a failure without one
};

void expect_order(Operands operands, const std::function<void(Operands&)>& call,
                  const std::vector<Step>& steps) {
  EXPECT_EQ(refusal_of([&] { call(operands); }).text, "");
  for (size_t i = 0; i < steps.size(); ++i) {
    SCOPED_TRACE(i);
    steps[i].spoil(operands);
    if (steps[i].message.empty()) {
      expect_silent_failure([&] { call(operands); });
    } else {
      expect_message(steps[i].message, [&] { call(operands); });
    }
  }
}

Step layout_step(size_t i, LayoutType layout, const std::string& message) {
  return {[=](Operands& o) { o.set_layout(i, layout); }, message};
}
Step type_step(size_t i, DataType type, const std::string& message) {
  return {[=](Operands& o) { o.set_type(i, type); }, message};
}
Step away_step(size_t i, const std::string& message) {
  return {[=](Operands& o) { o.move_away(i); }, message};
}
Step foreign_step(size_t i, const std::string& message) {
  return {[=](Operands& o) { o.replace(i); }, message};
}

constexpr char kInputCpu[] = "i_img must be a TensorCPUPtr.";
constexpr char kOutputCpu[] = "o_img must be a TensorCPUPtr.";
constexpr char kInputByte[] = "i_img must be a UInt8 DataType Tensor.";
constexpr char kOutputByte[] = "o_img must be a UInt8 DataType Tensor.";
constexpr char kInputChw[] = "i_img must be a CHW Layout Tensor.";
constexpr char kOutputChw[] = "o_img must be a CHW Layout Tensor.";
constexpr char kInputMain[] = "i_img must be a MainMemory Location Tensor.";
constexpr char kOutputMain[] = "o_img must be a MainMemory Location Tensor.";

class Checks : public testing::Test {
 protected:
  TensorPointer byte_tensor(const std::vector<uint32_t>& dims, LayoutType layout) {
    return tensors_.byte_output(dims, layout);
  }
  TensorPointer float_tensor(const std::vector<uint32_t>& dims, LayoutType layout) {
    return tensors_.output(dims, DataType::FLOAT32, layout);
  }
  void convert(const TensorPointer& from, const TensorPointer& to, int code) {
    ImageProcessFallback().ConvertPixel(from, to, code, tensors_);
  }

  ImageTensors tensors_;
};

TEST_F(Checks, OfPixelsToPlanesSayChwWhereHwcIsTested) {
  const auto operands = [&] {
    return Operands(
        {byte_tensor({2, 2, 4}, LayoutType::HWC), byte_tensor({3, 2, 2}, LayoutType::CHW)});
  };
  expect_order(
      operands(),
      [](Operands& o) { F_ColorCvt_BGRA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(o[0], o[1]); },
      {away_step(1, kOutputMain), layout_step(1, LayoutType::HWC, kOutputChw),
       type_step(1, DataType::INT8, kOutputByte), away_step(0, kInputMain),
       layout_step(0, LayoutType::CHW, kInputChw), type_step(0, DataType::INT8, kInputByte),
       foreign_step(1, kOutputCpu), foreign_step(0, kInputCpu)});
  // No data types are tested here.
  Operands signed_ones = operands();
  signed_ones.set_type(0, DataType::INT8);
  signed_ones.set_type(1, DataType::INT8);
  expect_order(signed_ones,
               [](Operands& o) { F_ColorCvt_RGBA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(o[0], o[1]); },
               {away_step(1, kOutputMain), layout_step(1, LayoutType::HWC, kOutputChw),
                away_step(0, kInputMain), layout_step(0, LayoutType::CHW, kInputChw),
                foreign_step(1, kOutputCpu), foreign_step(0, kInputCpu)});
}

TEST_F(Checks, OfYuvInTwoPlanes) {
  bool with_matrix = true;
  expect_order(
      Operands({byte_tensor({4, 4, 1}, LayoutType::HWC), byte_tensor({2, 2, 2}, LayoutType::HWC),
                byte_tensor({3, 4, 4}, LayoutType::CHW)}),
      [&](Operands& o) {
        const auto matrix = with_matrix ? std::make_shared<YUVCvtMatrix>() : nullptr;
        F_ColorCvt_YUV_2Plane_UInt8_To_CHW_UInt8_Fallback(o[0], o[1], matrix, o[2]);
      },
      {{[](Operands& o) {
          o[1]->shape.dims = {2, 1, 2};
        },
        "Shapes of Luminance Plane and Chrominance Plane mismatched."},
       {[](Operands& o) {
          o[1]->shape.dims = {1, 2, 2};
        },
        "Shapes of Luminance Plane and Chrominance Plane mismatched."},
       away_step(2, kOutputMain),
       type_step(2, DataType::INT8, kOutputByte),
       layout_step(2, LayoutType::HWC, kOutputChw),
       {[&](Operands&) { with_matrix = false; }, "i_cvtMat must be a vaild shared pointer."},
       type_step(1, DataType::INT8, "i_chrominancePlane must be a UInt8 DataType Tensor."),
       away_step(1, "i_chrominancePlane must be a MainMemory Location Tensor."),
       type_step(0, DataType::INT8, "i_luminancePlane must be a UInt8 DataType Tensor."),
       away_step(0, "i_luminancePlane must be a MainMemory Location Tensor.")});
}

TEST_F(Checks, OfYuvInThreePlanes) {
  bool with_matrix = true;
  expect_order(
      Operands({byte_tensor({4, 4, 1}, LayoutType::HWC), byte_tensor({2, 2, 1}, LayoutType::HWC),
                byte_tensor({2, 2, 1}, LayoutType::HWC), byte_tensor({3, 4, 4}, LayoutType::CHW)}),
      [&](Operands& o) {
        const auto matrix = with_matrix ? std::make_shared<YUVCvtMatrix>() : nullptr;
        F_ColorCvt_YUV_3Plane_UInt8_To_CHW_UInt8_Fallback(o[0], o[1], o[2], matrix, o[3]);
      },
      {{[](Operands& o) {
          o[2]->shape.dims = {2, 1, 1};
        },
        "Shapes of Luminance Plane and ChrominanceR Plane mismatched."},
       {[](Operands& o) {
          o[1]->shape.dims = {1, 2, 1};
        },
        "Shapes of Luminance Plane and ChrominanceB Plane mismatched."},
       away_step(3, kOutputMain),
       type_step(3, DataType::INT8, kOutputByte),
       layout_step(3, LayoutType::HWC, kOutputChw),
       {[&](Operands&) { with_matrix = false; }, "i_cvtMat must be a vaild shared pointer."},
       type_step(2, DataType::INT8, "i_chrominanceRPlane must be a UInt8 DataType Tensor."),
       away_step(2, "i_chrominanceRPlane must be a MainMemory Location Tensor."),
       type_step(1, DataType::INT8, "i_chrominanceBPlane must be a UInt8 DataType Tensor."),
       away_step(1, "i_chrominanceBPlane must be a MainMemory Location Tensor."),
       type_step(0, DataType::INT8, "i_luminancePlane must be a UInt8 DataType Tensor."),
       away_step(0, "i_luminancePlane must be a MainMemory Location Tensor.")});
}

TEST_F(Checks, OfNormalizedBytes) {
  const auto resize = [](size_t i, std::vector<uint32_t> dims, const std::string& message) {
    return Step{[=](Operands& o) { o[i]->shape.dims = dims; }, message};
  };
  expect_order(
      Operands({byte_tensor({2, 3, 3}, LayoutType::CHW), float_tensor({2}, LayoutType::C),
                float_tensor({2}, LayoutType::C), float_tensor({2, 3, 3}, LayoutType::CHW)}),
      [](Operands& o) { F_Normalize_CHW_U8_To_CHW_F32_Fallback(o[0], o[1], o[2], o[3]); },
      {resize(3, {2, 3, 2}, ""), resize(2, {1}, ""), resize(1, {1}, ""), away_step(3, kOutputMain),
       type_step(3, DataType::UINT8, "o_img must be a Float32 DataType Tensor."),
       layout_step(3, LayoutType::HWC, kOutputChw),
       type_step(2, DataType::UINT8, "i_mul must be a Float32 DataType Tensor."),
       resize(2, {1, 1}, "i_mul must be a 1D DataType Tensor."),
       type_step(1, DataType::UINT8, "i_sub must be a Float32 DataType Tensor."),
       resize(1, {1, 1}, "i_sub must be a 1D Tensor."), away_step(0, kInputMain),
       type_step(0, DataType::INT8, kInputByte), layout_step(0, LayoutType::HWC, kInputChw),
       foreign_step(3, kOutputCpu), foreign_step(2, "i_mul must be a TensorCPUPtr."),
       foreign_step(1, "i_sub must be a TensorCPUPtr."), foreign_step(0, kInputCpu)});
}

TEST_F(Checks, OfNormalizedFloats) {
  const std::vector<float> numbers(2, 1.0f);
  expect_order(Operands({float_tensor({2, 3, 3}, LayoutType::CHW),
                         float_tensor({2, 3, 3}, LayoutType::CHW)}),
               [&](Operands& o) { Normalize_CHW_Float_SSE(o[0], o[1], numbers.data(), nullptr); },
               {{[](Operands& o) {
                   o[1]->shape.dims = {2, 3, 2};
                 },
                 "Normalize_CHW_Float_SSE: a tensor of 48 bytes is too small, 72 bytes are needed"},
                layout_step(0, LayoutType::HWC, "")});
}

using CropFunction = void (*)(const TensorPointer&, const unsigned int&, const unsigned int&,
                              const unsigned int&, const unsigned int&, TensorPointer&);

TEST_F(Checks, OfCrops) {
  struct Case {
    LayoutType layout;
    std::string name;
    std::vector<uint32_t> in, out, other_channels;
    CropFunction function;
  };
  const std::vector<Case> cases{
      {LayoutType::CHW, "CHW", {2, 4, 4}, {2, 2, 2}, {1, 2, 2}, F_Crop_CHW_Memcpy},
      {LayoutType::HWC, "HWC", {4, 4, 2}, {2, 2, 2}, {2, 2, 1}, F_Crop_HWC_Memcpy},
      {LayoutType::C4HW4, "C4HW4", {2, 4, 4, 4}, {2, 2, 2, 4}, {1, 2, 2, 4}, F_Crop_C4HW4_Memcpy},
      {LayoutType::C8HW8, "C8HW8", {2, 4, 4, 8}, {2, 2, 2, 8}, {1, 2, 2, 8}, F_Crop_C8HW8_Memcpy},
  };
  for (const Case& use : cases) {
    SCOPED_TRACE(use.name);
    unsigned int top = 2, height = 2;
    expect_order(
        Operands({byte_tensor(use.in, use.layout), byte_tensor(use.out, use.layout)}),
        [&](Operands& o) { use.function(o[0], top, 1, height, 2, o[1]); },
        {{[&](Operands&) { top = 3; }, ""},
         {[&](Operands&) { top = 0xFFFFFFFF; }, ""},
         {[&](Operands& o) { top = 0, o[1]->shape.dims = use.other_channels; }, ""},
         {[&](Operands& o) { o[1]->shape.dims = use.out, height = 1; }, ""},
         {[&](Operands& o) { height = 2, o.set_type(1, DataType::INT8); }, ""},
         away_step(1, kOutputMain),
         layout_step(1, LayoutType::FLEXIABLE, "o_img must be a " + use.name + " Layout Tensor."),
         away_step(0, kInputMain),
         layout_step(0, LayoutType::FLEXIABLE, "i_img must be a " + use.name + " Layout Tensor.")});
  }
  // Blocks of another size than the layout's.
  Operands blocks(
      {byte_tensor({2, 4, 4, 3}, LayoutType::C4HW4), byte_tensor({2, 2, 2, 3}, LayoutType::C4HW4)});
  expect_silent_failure([&] { F_Crop_C4HW4_Memcpy(blocks[0], 0, 0, 2, 2, blocks[1]); });
}

TEST_F(Checks, OfCropsThatFill) {
  int height = 2;
  expect_order(
      Operands({byte_tensor({4, 4, 3}, LayoutType::HWC), byte_tensor({2, 2, 3}, LayoutType::HWC)}),
      [&](Operands& o) { F_Crop_U8_HWC_Memcpy(o[0], -1, 1, height, 2, 0, o[1]); },
      {{[&](Operands& o) {
          o[0]->shape.dims = {4, 4, 2};
        },
        ""},
       {[&](Operands& o) {
          o[0]->shape.dims = {4, 4, 3}, height = -2;
        },
        ""},
       away_step(1, kOutputMain),
       layout_step(1, LayoutType::CHW, "o_img must be a HWC Layout Tensor."),
       type_step(1, DataType::INT8, kOutputByte),
       away_step(0, kInputMain),
       layout_step(0, LayoutType::CHW, "i_img must be a HWC Layout Tensor."),
       type_step(0, DataType::INT8, kInputByte)});
}

TEST_F(Checks, OfFlipsSayChwWhereHwcIsTested) {
  for (const auto flip : {F_HFlip_HWC_Fallback, F_VFlip_HWC_Fallback}) {
    expect_order(Operands({byte_tensor({2, 3, 3}, LayoutType::HWC),
                           byte_tensor({2, 3, 3}, LayoutType::HWC)}),
                 [&](Operands& o) { flip(o[0], o[1]); },
                 {{[](Operands& o) {
                     o[1]->shape.dims = {3, 2, 3};
                   },
                   ""},
                  away_step(1, kOutputMain),
                  layout_step(1, LayoutType::CHW, kOutputChw),
                  away_step(0, kInputMain),
                  layout_step(0, LayoutType::CHW, kInputChw),
                  foreign_step(1, kOutputCpu),
                  foreign_step(0, kInputCpu)});
  }
}

TEST_F(Checks, OfTurnsSayChwWhereHwcIsTested) {
  const std::vector<uint32_t> dims{2, 3, 3};
  for (const auto turn : {F_Rotate_Clockwise90_HWC_Fallback, F_Rotate_Clockwise180_HWC_Fallback,
                          F_Rotate_Clockwise270_HWC_Fallback}) {
    const bool half = turn == F_Rotate_Clockwise180_HWC_Fallback;
    const std::vector<uint32_t> turned{3, 2, 3};
    expect_order(Operands({byte_tensor(dims, LayoutType::HWC),
                           byte_tensor(half ? dims : turned, LayoutType::HWC)}),
                 [&](Operands& o) { turn(o[0], o[1]); },
                 {{[&](Operands& o) { o[1]->shape.dims = half ? turned : dims; }, ""},
                  type_step(1, DataType::INT8, ""),
                  foreign_step(1, ""),
                  away_step(1, kOutputMain),
                  layout_step(1, LayoutType::CHW, kOutputChw),
                  away_step(0, kInputMain),
                  layout_step(0, LayoutType::CHW, kInputChw),
                  {[](Operands& o) { o[1] = nullptr; }, "o_img must not be nullptr."},
                  {[](Operands& o) { o[0] = nullptr; }, "i_img must not be nullptr."}});
  }
}

TEST_F(Checks, OfTheClassHaveNoMessage) {
  const auto pixels = byte_tensor({2, 2, 4}, LayoutType::HWC);
  const auto planes = byte_tensor({4, 2, 2}, LayoutType::CHW);
  const auto other = byte_tensor({2, 2, 4}, LayoutType::FLEXIABLE);
  for (const int code : {1, 3, 6, 7, 11}) {
    expect_silent_failure([&] { convert(pixels, pixels, code); });
    expect_silent_failure([&] { convert(pixels, other, code); });
  }
  expect_silent_failure([&] { convert(planes, planes, 60); });
  expect_silent_failure([&] { convert(pixels, pixels, 60); });
  expect_silent_failure([&] { convert(pixels, pixels, 61); });
  expect_silent_failure([&] { convert(planes, planes, 61); });
  expect_silent_failure([&] { convert(float_tensor({1, 2, 2}, LayoutType::CHW), planes, 65); });
}

TEST_F(Checks, OfElementsWithoutASize) {
  const auto unknown = static_cast<DataType>(9);
  const auto pixels = tensors_.output({2, 2, 3}, unknown, LayoutType::HWC);
  const auto planes = tensors_.output({3, 2, 2}, unknown, LayoutType::CHW);
  expect_message("Not Implemented.", [&] { convert(pixels, planes, 60); });
  expect_message("Not Implemented.", [&] { convert(planes, pixels, 61); });
}

TEST_F(Checks, KeepTheClassInsideItsBuffers) {
  const auto pixels = byte_tensor({2, 2, 4}, LayoutType::HWC);
  const auto larger = byte_tensor({3, 3, 3}, LayoutType::CHW);
  const auto flat = byte_tensor({9, 3}, LayoutType::CHW);
  const auto floats = float_tensor({4, 2, 2}, LayoutType::CHW);
  expect_message("ConvertRGBAtoRGB: a tensor of 16 bytes is too small, 36 bytes are needed",
                 [&] { convert(pixels, larger, 1); });
  expect_message("ConvertRGBtoBGR: a tensor of 16 bytes is too small, 27 bytes are needed",
                 [&] { convert(pixels, larger, 4); });
  expect_message("ConvertRGB2Gray: a tensor of 16 bytes is too small, 27 bytes are needed",
                 [&] { convert(pixels, larger, 7); });
  expect_message("ConvertBGR2Gray: a tensor has 2 dims, and 3 are needed",
                 [&] { convert(pixels, flat, 6); });
  expect_message(
      "ConvertYUV2RGB_NV12: the output must have the height and the width of the luminance",
      [&] { convert(pixels, larger, 22); });
  expect_message("HWC2CHW: both tensors must have the same height, width and channels",
                 [&] { convert(pixels, larger, 60); });
  expect_message("HWC2CHW: both tensors must have elements of one size",
                 [&] { convert(pixels, floats, 60); });
  expect_message("Convert8U_To_32F: a tensor of 27 bytes is too small, 64 bytes are needed",
                 [&] { convert(pixels, larger, 65); });
  TensorPointer small = byte_tensor({1, 1, 1}, LayoutType::HWC);
  expect_message(
      "F_ColorCvt_BGRA8888_To_Gray8_Fallback: a tensor of 1 bytes is too small, 4 bytes are needed",
      [&] { F_ColorCvt_BGRA8888_To_Gray8_Fallback(pixels, small); });
}

}  // namespace
}  // namespace marlo::test
