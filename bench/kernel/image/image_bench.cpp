#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/image_peers.h"
#include "bench/support/pictures.h"
#include "bench/support/reporting.h"
#include "qrt_core/kernel/image/color_functions.h"
#include "qrt_core/kernel/image/geometry_functions.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/resize_functions.h"
#include "qrt_core/kernel/image/yuv_image.h"
#include "qrt_core/utility/application.h"
#include "tests/support/image_oracle.h"
#include "tests/support/processor.h"

// The image operations on pictures of cameras and of networks, beside OpenCV and libyuv.

namespace marlo::bench {
namespace {

using kernel::ImageProcessAVX2;
using kernel::ImageProcessFallback;
using kernel::ImageProcessSSE;
using runtime::DataType;
using runtime::LayoutType;
using Context = std::shared_ptr<runtime::Context>;
using Tensor = std::shared_ptr<runtime::Tensor>;
namespace functional = kernel::functional;

constexpr uint32_t kH = kPictureHeight;
constexpr uint32_t kW = kPictureWidth;

// Elements by channel and place, whatever the layout.
struct Picture {
  explicit Picture(const Tensor& tensor)
      : data(tensor->handle.cpu), is_float(tensor->shape.data_type == DataType::FLOAT32) {
    const auto& dims = tensor->shape.dims;
    if (tensor->shape.layout == LayoutType::CHW) {
      channels = dims[0], height = dims[1], width = dims[2];
      plane = height * width, row = width, column = 1;
    } else {
      height = dims[0], width = dims[1], channels = dims[2];
      plane = 1, row = width * channels, column = channels;
    }
  }

  double at(size_t c, size_t y, size_t x) const {
    const size_t index = c * plane + y * row + x * column;
    if (is_float) return static_cast<const float*>(data)[index];
    return static_cast<const uint8_t*>(data)[index];
  }
  int byte(size_t c, size_t y, size_t x) const { return static_cast<int>(at(c, y, x)); }

  void* data;
  bool is_float;
  size_t channels = 0, height = 0, width = 0;
  size_t plane = 0, row = 0, column = 0;
};

using Form = runtime::TensorShape;
// What element c, y, x of the output must be, made of the whole input.
using Element = std::function<double(size_t c, size_t y, size_t x)>;
using Expected = std::function<Element(const Picture& from)>;

struct ImageCase {
  std::string name;
  Form from, to;
  Expected expected;
  std::function<void(const Tensor& from, Tensor& to, const Context& context)> run;

  // Peers do the same beside either class.
  std::string peer_name() const { return name.substr(0, name.find(kAvx2)); }
  bool runs_here() const {
    return !name.ends_with(kAvx2) || test::processor_has(runtime::InstructionSet::avx2);
  }
  static constexpr char kAvx2[] = "_avx2";
};

Form bytes_hwc(uint32_t height, uint32_t width, uint32_t channels) {
  return {{height, width, channels}, DataType::UINT8, LayoutType::HWC};
}
Form bytes_chw(uint32_t channels, uint32_t height, uint32_t width) {
  return {{channels, height, width}, DataType::UINT8, LayoutType::CHW};
}
Form floats_chw(uint32_t channels, uint32_t height, uint32_t width) {
  return {{channels, height, width}, DataType::FLOAT32, LayoutType::CHW};
}

void fill(const Tensor& tensor) {
  const size_t size = runtime::ByteSize(tensor->shape);
  if (tensor->shape.data_type == DataType::FLOAT32) {
    std::memcpy(tensor->handle.cpu, float_pixels(size / sizeof(float)).data(), size);
  } else {
    std::memcpy(tensor->handle.cpu, byte_pixels(size).data(), size);
  }
}

void demand_results(const std::string& name, const Element& expected, const Tensor& to,
                    double tolerance) {
  const Picture result(to);
  for (size_t c = 0; c < result.channels; ++c) {
    for (size_t y = 0; y < result.height; ++y) {
      for (size_t x = 0; x < result.width; ++x) {
        const double difference = result.at(c, y, x) - expected(c, y, x);
        if (std::abs(difference) <= tolerance) continue;
        throw std::runtime_error(name + ": element " + std::to_string(c) + ", " +
                                 std::to_string(y) + ", " + std::to_string(x) + " is wrong by " +
                                 std::to_string(difference));
      }
    }
  }
}

void run(benchmark::State& state, const ImageCase& use) {
  Context context;
  utility::create_context(context, 64);
  const Tensor from = context->cpu->CreateTensor(use.from, nullptr);
  Tensor to = context->cpu->CreateTensor(use.to, nullptr);
  fill(from);
  const auto pass = [&] { use.run(from, to, context); };
  pass();
  const Element expected = use.expected(Picture(from));
  demand_results(use.name, expected, to, 0);
  for (auto _ : state) {
    pass();
    benchmark::ClobberMemory();
  }
  // Of a crop only a part is read.
  const size_t written = runtime::ByteSize(use.to);
  const size_t read = use.name.starts_with("crop") ? written : runtime::ByteSize(use.from);
  report_rate(state, "GB/s", static_cast<double>(read + written));
  for (const ImagePeer& peer : image_peers(use.peer_name(), from->handle.cpu, to->handle.cpu)) {
    peer.pass();
    if (peer.tolerance) demand_results(use.name + " " + peer.column, expected, to, *peer.tolerance);
    report_peer(state, pass, peer);
  }
}

// An operation of a class that is chosen by its code.
template <typename Class>
auto by_code(int code) {
  return [code](const Tensor& from, Tensor& to, const Context& context) {
    Class().ConvertPixel(from, to, code, context);
  };
}

template <typename Function>
auto by_function(Function function) {
  return [function](const Tensor& from, Tensor& to, const Context&) { function(from, to); };
}

double same(const Picture& from, size_t c, size_t y, size_t x) { return from.at(c, y, x); }
double backwards(const Picture& from, size_t c, size_t y, size_t x) { return from.at(2 - c, y, x); }
double gray(const Picture& from, size_t, size_t y, size_t x) {
  return test::integer_gray(from.byte(0, y, x), from.byte(1, y, x), from.byte(2, y, x));
}
double weighted_gray(const Picture& from, size_t, size_t y, size_t x) {
  return test::weighted_gray(from.byte(0, y, x), from.byte(1, y, x), from.byte(2, y, x));
}
double turned_90(const Picture& from, size_t c, size_t y, size_t x) {
  return from.at(c, from.height - 1 - x, y);
}
double turned_180(const Picture& from, size_t c, size_t y, size_t x) {
  return from.at(c, from.height - 1 - y, from.width - 1 - x);
}
double turned_270(const Picture& from, size_t c, size_t y, size_t x) {
  return from.at(c, x, from.width - 1 - y);
}
double flipped(const Picture& from, size_t c, size_t y, size_t x) {
  return from.at(c, y, from.width - 1 - x);
}
double upside_down(const Picture& from, size_t c, size_t y, size_t x) {
  return from.at(c, from.height - 1 - y, x);
}
double cropped(const Picture& from, size_t c, size_t y, size_t x) {
  return from.at(c, y + kCropTop, x + kCropLeft);
}

// Every channel has its own, near the first one's.
constexpr float mean_of(size_t c) { return kMean + static_cast<float>(c) * 0x1p-20f; }
constexpr float scale_of(size_t c) { return kScale + static_cast<float>(c) * 0x1p-30f; }
constexpr float kMeans[] = {mean_of(0), mean_of(1), mean_of(2)};
constexpr float kScales[] = {scale_of(0), scale_of(1), scale_of(2)};
double normalized(const Picture& from, size_t c, size_t y, size_t x) {
  return (static_cast<float>(from.at(c, y, x)) - kMeans[c]) * kScales[c];
}

// The tensor has one row in three more than the picture, in which the chrominance is.
double red_green_blue(const Picture& from, size_t c, size_t y, size_t x) {
  const size_t pair = kH + y / 2;
  const size_t u = x - x % 2;
  return test::yuv_pixel(from.byte(0, y, x), from.byte(0, pair, u), from.byte(0, pair, u + 1))[c];
}
void nv12(const Tensor& from, Tensor& to, const Context& context) {
  const auto picture = kernel::yuv420_image(*context->cpu, kH, kW, from->handle.cpu);
  ImageProcessFallback().ConvertPixel(picture, to, 22, context);
}

template <auto function>
void normalize_bytes(const Tensor& from, Tensor& to, const Context& context) {
  const Tensor means = context->cpu->CreateF32CMainMemory(3, kMeans);
  const Tensor scales = context->cpu->CreateF32CMainMemory(3, kScales);
  function(from, means, scales, to);
}

template <auto function>
void normalize_floats(const Tensor& from, Tensor& to, const Context&) {
  Tensor input = from;
  function(input, to, kScales, kMeans);
}

void crop(const Tensor& from, Tensor& to, const Context&) {
  functional::F_Crop_HWC_Memcpy(from, kCropTop, kCropLeft, to->shape.dims[0], to->shape.dims[1],
                                to);
}

void warp(const Tensor& from, Tensor& to, const Context& context) {
  ImageProcessSSE().ConvertPixel(from, to, kWarpMatrix, 55, context);
}

Element warped(const Picture& from) {
  const auto* const first = static_cast<const float*>(from.data);
  const int side = kWarpSide;
  const size_t count = size_t{3} * kWarpSide * kWarpSide;
  const test::PlanarPicture input{3, side, side, {first, first + count}};
  test::PlanarPicture output = input;
  std::array<float, 6> matrix;
  std::copy_n(kWarpMatrix, matrix.size(), matrix.begin());
  test::warp_normalized(input, matrix, output);
  return [output](size_t c, size_t y, size_t x) {
    return output.at(static_cast<int>(c), static_cast<int>(y), static_cast<int>(x));
  };
}

Expected resized(const ResizeCase& sizes) {
  return [sizes](const Picture& from) -> Element {
    const auto* const first = static_cast<const uint8_t*>(from.data);
    const auto output =
        test::bilinear({first, first + from.height * from.width * 3}, static_cast<int>(from.height),
                       static_cast<int>(from.width), 3, static_cast<int>(sizes.out_height),
                       static_cast<int>(sizes.out_width));
    return [output, width = sizes.out_width](size_t c, size_t y, size_t x) {
      return output[(y * width + x) * 3 + c];
    };
  };
}

Expected each(double (*element)(const Picture& from, size_t c, size_t y, size_t x)) {
  return [element](const Picture& from) -> Element {
    return [element, from](size_t c, size_t y, size_t x) { return element(from, c, y, x); };
  };
}

const Form kPixels = bytes_hwc(kH, kW, 3);
const Form kFourBytes = bytes_hwc(kH, kW, 4);
const Form kTurnedPixels = bytes_hwc(kW, kH, 3);
const Form kPlanes = bytes_chw(3, kH, kW);
const Form kPlane = bytes_chw(1, kH, kW);
const Form kTurnedPlane = bytes_chw(1, kW, kH);
const Form kFloatPlanes = floats_chw(3, kH, kW);
const Form kFloatPixels{{kH, kW, 3}, DataType::FLOAT32, LayoutType::HWC};
const Form kWarpPlanes = floats_chw(3, kWarpSide, kWarpSide);
constexpr auto portable = by_code<ImageProcessFallback>;
constexpr auto sse = by_code<ImageProcessSSE>;
constexpr auto avx2 = by_code<ImageProcessAVX2>;

// The class's resize takes other tensors than the function, over the same pixels.
void resize_avx2(const Tensor& from, Tensor& to, const Context& context) {
  const auto flexible = [&](const Tensor& tensor) {
    const auto& dims = tensor->shape.dims;
    return context->cpu->CreateTensorExternal(
        {{dims[2], dims[0], dims[1]}, DataType::UINT8, LayoutType::FLEXIABLE}, tensor->handle.cpu);
  };
  ImageProcessAVX2().ConvertPixel(flexible(from), flexible(to), 83, context);
}

// The portable cases again, by what AVX2 has other loops for.
void add_avx2_cases(std::vector<ImageCase>& all) {
  using Run = decltype(ImageCase::run);
  const std::pair<const char*, Run> runs[] = {
      {"resize_640x480x3_to_320x240", resize_avx2},
      {"gray_of_rgb", avx2(7)},
      {"gray_of_rgba", avx2(11)},
      {"gray_by_function", by_function(functional::F_ColorCvt_BGR888_To_Gray8_AVX2)},
      {"rgb_to_bgr_planes", avx2(4)},
      {"hwc_to_chw_bytes", avx2(60)},
      {"chw_to_hwc_bytes", avx2(61)},
      {"hwc_to_chw_floats", avx2(60)},
      {"chw_to_hwc_floats", avx2(61)},
      {"bytes_to_floats", avx2(65)},
      {"normalize_bytes", normalize_bytes<functional::F_Normalize_CHW_U8_To_CHW_F32_AVX2>},
      {"normalize_floats", normalize_floats<functional::Normalize_CHW_Float_AVX2>},
      {"turn_180_c1", avx2(51)},
      {"turn_180_c3", avx2(51)},
      {"flip_horizontal_c1", avx2(53)},
      {"flip_horizontal_c3", avx2(53)},
  };
  for (const auto& [name, run] : runs) {
    const auto same_name = [name = name](const ImageCase& use) { return use.name == name; };
    ImageCase use = *std::find_if(all.begin(), all.end(), same_name);
    use.name += ImageCase::kAvx2;
    use.run = run;
    if (use.runs_here()) all.push_back(use);
  }
}

std::vector<ImageCase> cases() {
  std::vector<ImageCase> all;
  for (const ResizeCase& sizes : kResizes) {
    all.push_back({sizes.name, bytes_hwc(sizes.in_height, sizes.in_width, 3),
                   bytes_hwc(sizes.out_height, sizes.out_width, 3), resized(sizes),
                   by_function(functional::F_Resize_Bilinear_HWC_U8_C3_Fallback)});
  }
  const Form nv12_bytes = bytes_hwc(kH / 2 * 3, kW, 1);
  const Form half = bytes_hwc(kH / 2, kW / 2, 3);
  const ImageCase others[] = {
      {"nv12_to_rgb", nv12_bytes, kPlanes, each(red_green_blue), nv12},
      {"gray_of_rgb", kPixels, kPlane, each(gray), portable(7)},
      {"gray_of_rgba", kFourBytes, kPlane, each(gray), portable(11)},
      {"gray_by_function", kPixels, bytes_hwc(kH, kW, 1), each(weighted_gray),
       by_function(functional::F_ColorCvt_BGR888_To_Gray8_Fallback)},
      {"rgb_to_bgr_planes", kPixels, kPlanes, each(backwards), portable(4)},
      {"hwc_to_chw_bytes", kPixels, kPlanes, each(same), portable(60)},
      {"chw_to_hwc_bytes", kPlanes, kPixels, each(same), portable(61)},
      {"hwc_to_chw_floats", kFloatPixels, kFloatPlanes, each(same), portable(60)},
      {"chw_to_hwc_floats", kFloatPlanes, kFloatPixels, each(same), portable(61)},
      {"bytes_to_floats", kPlanes, kFloatPlanes, each(same), portable(65)},
      {"normalize_bytes", kPlanes, kFloatPlanes, each(normalized),
       normalize_bytes<functional::F_Normalize_CHW_U8_To_CHW_F32_Fallback>},
      {"normalize_floats", kFloatPlanes, kFloatPlanes, each(normalized),
       normalize_floats<functional::Normalize_CHW_Float_SSE>},
      {"turn_90_c1", kPlane, kTurnedPlane, each(turned_90), portable(50)},
      {"turn_180_c1", kPlane, kPlane, each(turned_180), portable(51)},
      {"turn_270_c1", kPlane, kTurnedPlane, each(turned_270), portable(52)},
      {"turn_90_c1_sse", bytes_hwc(kH, kW, 1), bytes_hwc(kW, kH, 1), each(turned_90), sse(50)},
      {"turn_90_c3", kPixels, kTurnedPixels, each(turned_90), portable(50)},
      {"turn_180_c3", kPixels, kPixels, each(turned_180), portable(51)},
      {"turn_270_c3", kPixels, kTurnedPixels, each(turned_270), portable(52)},
      {"flip_horizontal_c1", kPlane, kPlane, each(flipped), portable(53)},
      {"flip_horizontal_c3", kPixels, kPixels, each(flipped), portable(53)},
      {"flip_vertical_c3", kPixels, kPixels, each(upside_down), portable(54)},
      {"crop_half_c3", kPixels, half, each(cropped), crop},
      {"warp_512x512x3_floats", kWarpPlanes, kWarpPlanes, warped, warp},
  };
  all.insert(all.end(), std::begin(others), std::end(others));
  add_avx2_cases(all);
  return all;
}

const bool registered = [] {
  for (const ImageCase& use : cases()) {
    benchmark::RegisterBenchmark(("image/" + use.name).c_str(),
                                 [use](benchmark::State& state) { run(state, use); });
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
