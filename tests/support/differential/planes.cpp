#include <algorithm>
#include <cmath>

#include "qrt_core/runtime/model/pooling_info.h"
#include "qrt_core/runtime/model/shape_info.h"
#include "tests/support/differential/operation.h"
#include "tests/support/numbers.h"

// Kernels that change the height and width of planes.

namespace marlo::test {

using runtime::BlockSize;
using runtime::LayoutType;

namespace {

constexpr LayoutType kLayouts[] = {LayoutType::CHW, LayoutType::C4HW4, LayoutType::C8HW8};

PlanarTensor choose_planes(Choices& choices) {
  PlanarTensor planes;
  const uint32_t channels = choices.yes() ? 8 * choices.size(1, 3) : choices.size(1, 12);
  planes.dims = {channels, choices.size(1, 18), choices.size(1, 20)};
  const auto kind = choices.one_of({Numbers::floats, Numbers::integers, Numbers::uneven});
  planes.values = numbers(kind, choices.seed(), count_of(planes.dims));
  return planes;
}

std::string dims_text(const PlanarTensor& planes) {
  std::string text;
  for (const uint32_t size : planes.dims) text += std::to_string(size) + " ";
  return text;
}

struct Margins {
  int left, right, top, bottom;
};

// A copy with zeros around it.
PlanarTensor padded(const PlanarTensor& planes, const Margins& m) {
  PlanarTensor result = planes;
  result.dims[1] += static_cast<uint32_t>(m.top + m.bottom);
  result.dims[2] += static_cast<uint32_t>(m.left + m.right);
  result.values.assign(count_of(result.dims), 0.0f);
  const size_t rows = size_t{planes.dims[0]} * planes.dims[1];
  for (size_t row = 0; row < rows; ++row) {
    const size_t plane = row / planes.dims[1];
    const size_t y = row % planes.dims[1] + static_cast<size_t>(m.top);
    const size_t to = (plane * result.dims[1] + y) * result.dims[2] + static_cast<size_t>(m.left);
    std::copy_n(planes.values.begin() + static_cast<std::ptrdiff_t>(row * planes.dims[2]),
                planes.dims[2], result.values.begin() + static_cast<std::ptrdiff_t>(to));
  }
  return result;
}

// The kernels for one window pad with zeros, divide by the whole window and don't dilate it. They
// are compared with the portable kernel on a padded copy, those for any window with what it makes itself.
class Poolings final : public Operation {
 public:
  std::vector<std::string> families() const override { return {"pooling2d"}; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    const Layer layer = choose_layer(choices);
    const Outcome portable = run_planar(layer.portable(), layer.setting());
    const Outcome of_padded = run_planar(layer.portable(), layer.padded_copy().setting());
    for (const std::string& kernel : kernels) {
      const bool takes_any = has_part(kernel, "_Fallback_") || has_part(kernel, "_Knxm_");
      const Outcome& result = takes_any ? portable : of_padded;
      for (const LayoutType layout : kLayouts) {
        const Outcome outcome = run_kernel(kernel, layer.setting(), layout);
        if (!outcome.ran && outcome.refusal.empty()) continue;
        if (!result.ran || (!takes_any && !layer.means_the_same_to_all())) continue;
        if (layer.planes.channels() % BlockSize(layout) != 0) continue;
        Expectation expected = layer.expectation(result);
        if (kernel == "Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1") allow_floor(outcome, expected);
        expect_agreement(kernel, outcome, expected, layer.text());
      }
    }
  }

 private:
  struct Layer {
    bool average;
    uint16_t kernel_y, kernel_x, stride_y, stride_x, dilation;
    Margins margins;
    bool ceil_mode;
    bool count_include_pad;
    PlanarTensor planes;

    const char* portable() const {
      return average ? "Pooling2D_Avg_Fallback_Float_M1" : "Pooling2D_Max_Fallback_Float_M1";
    }

    Layer padded_copy() const {
      Layer copy = *this;
      const bool cuts = std::min({margins.left, margins.right, margins.top, margins.bottom}) < 0;
      if (cuts) return copy;
      copy.planes = padded(planes, margins);
      copy.margins = {0, 0, 0, 0};
      return copy;
    }

    // A window that passes the edge reads what follows in memory.
    bool means_the_same_to_all() const {
      const bool cuts = std::min({margins.left, margins.right, margins.top, margins.bottom}) < 0;
      return !cuts && dilation == 1 && !(ceil_mode && !average);
    }

    template <typename Info>
    std::shared_ptr<Info> info() const {
      auto info = std::make_shared<Info>();
      info->kernel_x = kernel_x;
      info->kernel_y = kernel_y;
      info->stride_x = stride_x;
      info->stride_y = stride_y;
      info->padding_l = static_cast<int16_t>(margins.left);
      info->padding_r = static_cast<int16_t>(margins.right);
      info->padding_t = static_cast<int16_t>(margins.top);
      info->padding_b = static_cast<int16_t>(margins.bottom);
      info->ceil_mode = ceil_mode;
      return info;
    }

    Setting setting() const {
      if (average) {
        auto pooling = info<runtime::AvgPool2dInfo>();
        pooling->count_include_pad = count_include_pad;
        return {pooling, nullptr, {planes}};
      }
      auto pooling = info<runtime::MaxPool2dInfo>();
      pooling->dilation_x = pooling->dilation_y = dilation;
      return {pooling, nullptr, {planes}};
    }

    Expectation expectation(const Outcome& result) const {
      Expectation expected{result.shape.dims, result.values, {}};
      const double terms = 1.0 * kernel_x * kernel_y + 2.0;
      const double error = average ? 2.0 * terms * kEpsilon * largest(planes.values) : 0.0;
      expected.errors.assign(result.values.size(), error);
      return expected;
    }

    std::string text() const {
      return dims_text(planes) + "window " + std::to_string(kernel_y) + "x" +
             std::to_string(kernel_x) + " stride " + std::to_string(stride_y) + " padding " +
             std::to_string(margins.left) + " " + std::to_string(margins.right) + " " +
             std::to_string(margins.top) + " " + std::to_string(margins.bottom);
    }
  };

  // Its vectors give -999 where all is below.
  static void allow_floor(const Outcome& outcome, Expectation& expected) {
    for (size_t i = 0; i < outcome.values.size() && i < expected.values.size(); ++i) {
      if (outcome.values[i] == -999.0f && expected.values[i] < -999.0f)
        expected.values[i] = -999.0f;
    }
  }

  static Layer choose_layer(Choices& choices) {
    Layer layer{};
    layer.average = choices.yes();
    struct Window {
      uint16_t kernel, stride;
    };
    const auto window =
        layer.average
            ? choices.one_of<Window>({{2, 2}, {3, 2}, {7, 1}, {4, 4}, {4, 1}, {8, 1}, {0, 0}})
            : choices.one_of<Window>({{2, 2}, {3, 2}, {0, 0}});
    const auto any = [&](uint32_t most) { return static_cast<uint16_t>(choices.size(1, most)); };
    layer.kernel_y = window.kernel != 0 ? window.kernel : any(5);
    layer.kernel_x = window.kernel != 0 ? window.kernel : any(5);
    layer.stride_y = window.stride != 0 ? window.stride : any(4);
    layer.stride_x = window.stride != 0 ? window.stride : any(4);
    layer.dilation = choices.rarely(6) ? 2 : 1;
    layer.ceil_mode = choices.rarely(4);
    layer.count_include_pad = choices.yes();
    if (choices.yes()) {
      const int least = choices.rarely(8) ? -2 : 0;
      const auto margin = [&] { return choices.between(least, 3); };
      layer.margins = {margin(), margin(), margin(), margin()};
    }
    layer.planes = choose_planes(choices);
    if (choices.rarely(8)) {
      for (float& value : layer.planes.values) value = 10.0f * value - 1000.0f;
    }
    return layer;
  }
};

class Upsamplings final : public Operation {
 public:
  std::vector<std::string> families() const override { return {"upsampling2d"}; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    Layer layer;
    layer.nearest = choices.yes();
    layer.align = choices.rarely(3);
    layer.y = choices.one_of({2.0f, 1.0f, 3.0f, 4.0f, 1.5f, 2.5f, 0.5f});
    layer.x = choices.yes() ? layer.y : choices.one_of({2.0f, 1.0f, 3.0f, 4.0f, 1.5f, 0.7f});
    layer.planes = choose_planes(choices);
    const Outcome result = run_planar(kPortable, layer.setting());
    const Outcome twice = layer.doubled_twice();
    for (const std::string& kernel : kernels) {
      for (const LayoutType layout : kLayouts) {
        const Outcome outcome = run_kernel(kernel, layer.setting(), layout);
        if (!outcome.ran && outcome.refusal.empty()) continue;
        if (!result.ran || layer.planes.channels() % BlockSize(layout) != 0) continue;
        // Kernels for whole blocks of channels put nothing out for others.
        if (!outcome.has_output && layer.planes.channels() % 8 != 0) continue;
        const bool by_sizes = has_part(kernel, "_Bilinear_") && has_part(kernel, "_M3");
        const bool doubles = has_part(kernel, "_M2") && layer.is_by_4();
        if (by_sizes && !layer.has_whole_factors()) continue;
        Expectation expected = layer.expectation(doubles ? twice : result);
        if (by_sizes) layer.allow_sizes(expected, planar_values(outcome, layer.planes.channels()));
        expect_agreement(kernel, outcome, expected, layer.text());
      }
    }
  }

 private:
  static constexpr char kPortable[] = "Upsampling2D_Fallback_CHW_Float_M1";

  struct Layer {
    bool nearest = false;
    bool align = false;
    float y = 1.0f;
    float x = 1.0f;
    PlanarTensor planes;

    Setting setting() const {
      auto info = std::make_shared<runtime::Upsample2dInfo>();
      info->scale_factor_y = y;
      info->scale_factor_x = x;
      info->align_corner = align;
      info->unsample_type = nearest ? 0 : 1;
      return {info, nullptr, {planes}};
    }

    bool is_by_4() const { return y == 4.0f && x == 4.0f; }
    bool has_whole_factors() const { return std::floor(y) == y && std::floor(x) == x; }

    // Factors of 4 as two of 2.
    Outcome doubled_twice() const {
      Layer half = *this;
      half.y = half.x = 2.0f;
      const Outcome once = run_planar(kPortable, half.setting());
      half.planes.dims = once.shape.dims;
      half.planes.values = once.values;
      return once.ran ? run_planar(kPortable, half.setting()) : once;
    }

    Expectation expectation(const Outcome& result) const {
      return {result.shape.dims, result.values, {}};
    }

    // Positions from the sizes round otherwise, by a few units of the largest of them; those before
    // the first pixel extrapolate.
    void allow_sizes(Expectation& expected, const std::vector<float>& found) const {
      const uint32_t height = expected.dims[1];
      const uint32_t width = expected.dims[2];
      const double sizes = 8.0 * (height + width);
      expected.errors.assign(expected.values.size(),
                             sizes * kEpsilon * (largest(planes.values) + 1e-30));
      if (align || found.size() != expected.values.size()) return;
      for (size_t i = 0; i < found.size(); ++i) {
        const auto column = static_cast<float>(i % width);
        const auto row = static_cast<float>(i / width % height);
        const bool before = (row + 0.5f) / y < 0.5f || (column + 0.5f) / x < 0.5f;
        if (before) expected.values[i] = found[i];
      }
    }

    std::string text() const {
      return dims_text(planes) + (nearest ? "nearest " : "bilinear ") + std::to_string(y) + "x" +
             std::to_string(x) + (align ? " aligned" : "");
    }
  };
};

class Expansions final : public Operation {
 public:
  std::vector<std::string> families() const override { return {"expand"}; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    PlanarTensor planes;
    const uint32_t channels = choices.yes() ? 8 * choices.size(1, 3) : choices.size(1, 12);
    planes.dims = {channels, 1, 1};
    planes.values = special_numbers(choices.seed(), channels);
    auto info = std::make_shared<runtime::TensorExpandInfo>();
    const auto small = [](uint32_t number) { return static_cast<int16_t>(number); };
    const auto size = [&] { return small(choices.size(1, 19)); };
    info->new_shape = {1, choices.yes() ? int16_t{-1} : small(channels), size(), size()};
    if (choices.rarely(8)) info->new_shape[2] = -1;
    // Another expansion, which writes nothing.
    const bool other = choices.rarely(8);
    if (other) {
      planes.dims = {channels, 2, 1};
      planes.values = special_numbers(1, size_t{2} * channels);
    }
    const Outcome result = run_planar("Expand_Fallback_CHW_Float_M1", {info, nullptr, {planes}});
    for (const std::string& kernel : kernels) {
      for (const LayoutType layout : kLayouts) {
        // A shape for blocks names them.
        auto same = std::make_shared<runtime::TensorExpandInfo>(*info);
        if (layout != LayoutType::CHW) same->new_shape.push_back(small(BlockSize(layout)));
        const Outcome outcome = run_kernel(kernel, {same, nullptr, {planes}}, layout);
        if (!outcome.ran && outcome.refusal.empty()) continue;
        if (!result.ran || other || channels % BlockSize(layout) != 0) continue;
        expect_agreement(kernel, outcome, {result.shape.dims, result.values, {}},
                         dims_text(planes));
      }
    }
  }
};

class PixelShuffles final : public Operation {
 public:
  std::vector<std::string> families() const override { return {"pixelshuffle"}; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    auto info = std::make_shared<runtime::PixelShuffleInfo>();
    info->upscale_factor = choices.one_of({2.0f, 0.5f, 3.0f, 1.0f, 0.25f});
    PlanarTensor planes;
    planes.dims = {choices.one_of({32u, 8u, 9u, 4u, 64u, 18u}) * choices.size(1, 2),
                   choices.size(1, 9), choices.size(1, 13)};
    planes.values = special_numbers(choices.seed(), count_of(planes.dims));
    const Setting setting{info, nullptr, {planes}};
    const Outcome result = run_planar("Pixelshuffle_Fallback_CHW_Float_M1", setting);
    if (!result.ran) return;
    const Expectation expected{result.shape.dims, result.values, {}};
    for (const std::string& kernel : kernels) {
      for (const LayoutType layout : kLayouts) {
        const Outcome outcome = run_kernel(kernel, setting, layout);
        if (!outcome.ran && outcome.refusal.empty()) continue;
        // Channels that make no whole block on both sides are left out.
        if (planes.channels() % BlockSize(layout) != 0) continue;
        if (expected.dims[0] % BlockSize(layout) != 0) continue;
        expect_agreement(kernel, outcome, expected,
                         dims_text(planes) + "factor " + std::to_string(info->upscale_factor));
      }
    }
  }
};

}  // namespace

std::unique_ptr<Operation> poolings() { return std::make_unique<Poolings>(); }
std::unique_ptr<Operation> upsamplings() { return std::make_unique<Upsamplings>(); }
std::unique_ptr<Operation> expansions() { return std::make_unique<Expansions>(); }
std::unique_ptr<Operation> pixel_shuffles() { return std::make_unique<PixelShuffles>(); }

}  // namespace marlo::test
