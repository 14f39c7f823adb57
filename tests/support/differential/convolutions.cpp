#include <cmath>

#include "qrt_core/runtime/model/conv_info.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/conv_setup.h"
#include "tests/support/differential/operation.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"

// Convolutions of all three geometries. What a kernel makes may be off from the portable one by the
// bounds that the catalogue states, once for each of the two; sums of small integers are exact.

namespace marlo::test {

using kernel::LineGeometry;
using kernel::PlaneGeometry;
using kernel::TransposedGeometry;
using runtime::BlockSize;
using runtime::LayoutType;

namespace {

/// A layer with its data.
struct Layer {
  ConvCase sizes;
  ConvData data;
  bool exact = false;  // sums of small integers
};

// What a sum is made of stays small enough for a thousand layers a second.
constexpr uint64_t kMostProducts = 100000;

void choose_any_window(Choices& choices, ConvCase& sizes) {
  sizes.kernel_y = choices.size(1, 6);
  sizes.kernel_x = choices.size(1, 6);
  sizes.stride_y = choices.size(1, 3);
  sizes.stride_x = choices.size(1, 3);
  sizes.dilation_y = choices.size(1, 3);
  sizes.dilation_x = choices.size(1, 3);
}

// One that kernels are made for, or any.
void choose_window(Choices& choices, ConvCase& sizes) {
  struct Window {
    uint32_t kernel_y, kernel_x, stride;
  };
  static const std::vector<Window> kUsual = {{3, 3, 1}, {3, 3, 2}, {1, 1, 1}, {1, 1, 2}, {1, 3, 1},
                                             {3, 1, 1}, {5, 5, 1}, {5, 5, 2}, {7, 7, 2}, {7, 7, 1}};
  const uint32_t number = choices.below(static_cast<uint32_t>(kUsual.size()) + 2);
  if (number >= kUsual.size()) return choose_any_window(choices, sizes);
  sizes.kernel_y = kUsual[number].kernel_y;
  sizes.kernel_x = kUsual[number].kernel_x;
  sizes.stride_y = sizes.stride_x = kUsual[number].stride;
}

void choose_paddings(Choices& choices, ConvCase& sizes) {
  if (choices.yes()) {
    sizes.padding_l = sizes.padding_r = (sizes.extent_x() - 1) / 2;
    sizes.padding_t = sizes.padding_b = (sizes.extent_y() - 1) / 2;
  } else if (choices.yes()) {
    sizes.padding_l = choices.between(0, 4);
    sizes.padding_r = choices.between(0, 4);
    sizes.padding_t = choices.between(0, 4);
    sizes.padding_b = choices.between(0, 4);
  }
}

void choose_channels(Choices& choices, ConvCase& sizes) {
  const auto blocks = [&](uint32_t block) { return block * choices.size(1, 4); };
  const auto any = [&] { return choices.size(1, 20); };
  sizes.groups = 1;
  switch (choices.below(8)) {
    case 0:
    case 1:
    case 2:
      sizes.in_channels = blocks(8);
      sizes.out_channels = blocks(8);
      return;
    case 3:
      sizes.in_channels = blocks(4);
      sizes.out_channels = blocks(4);
      return;
    case 4:
      sizes.in_channels = choices.yes() ? 3 : blocks(8);
      sizes.out_channels = sizes.in_channels == 3 ? blocks(8) : choices.one_of({1u, 3u});
      return;
    case 5:
      sizes.groups = sizes.in_channels = sizes.out_channels = choices.yes() ? blocks(8) : any();
      return;
    case 6:
      sizes.groups = choices.size(1, 4);
      sizes.in_channels = sizes.groups * choices.size(1, 9);
      sizes.out_channels = sizes.groups * choices.size(1, 9);
      return;
    default:
      sizes.in_channels = any();
      sizes.out_channels = any();
  }
}

ConvCase choose_sizes(Choices& choices) {
  ConvCase sizes;
  choose_window(choices, sizes);
  choose_paddings(choices, sizes);
  choose_channels(choices, sizes);
  sizes.height = choices.size(1, 14);
  sizes.width = choices.size(1, 19);
  sizes.bias = choices.yes();
  const auto products = [&] { return uint64_t{sizes.weight_size()} * sizes.height * sizes.width; };
  while (products() > kMostProducts) (sizes.height > 1 ? sizes.height : sizes.width) /= 2;
  return sizes;
}

template <typename Geometry>
Layer choose_layer(Choices& choices) {
  Layer layer;
  layer.sizes = fitted<Geometry>(choose_sizes(choices));
  const auto kind = choices.one_of({Numbers::integers, Numbers::floats, Numbers::uneven});
  const uint32_t seed = choices.seed();
  layer.exact = kind == Numbers::integers;
  layer.data.input = numbers(kind, seed, layer.sizes.input_size());
  layer.data.weight = numbers(kind, seed + 1, layer.sizes.weight_size());
  layer.data.bias = numbers(kind, seed + 2, layer.sizes.bias_size());
  return layer;
}

template <typename Geometry>
Setting setting_of(const Layer& layer) {
  const ConvCase& sizes = layer.sizes;
  Setting setting;
  setting.info = describe<Geometry>(sizes, layer.data);
  PlanarTensor planes;
  planes.dims = dims_of<Geometry>(sizes.in_channels, static_cast<int>(sizes.height),
                                  static_cast<int>(sizes.width));
  planes.layout = planes.dims.size() == 2 ? LayoutType::CL : LayoutType::CHW;
  planes.values = layer.data.input;
  setting.inputs = {planes};
  return setting;
}

/// What the portable kernel makes, and of what magnitudes it adds it up.
struct Reference {
  bool exists = false;
  Expectation expected;
  std::vector<double> magnitudes;
};

template <typename Geometry>
Reference reference_of(const char* portable, const Layer& layer) {
  Reference reference;
  const Outcome result = run_planar(portable, setting_of<Geometry>(layer));
  if (!result.ran) return reference;
  reference.exists = true;
  reference.expected.dims = result.shape.dims;
  reference.expected.values = result.values;
  reference.expected.errors.assign(result.values.size(), 0.0);
  if (layer.exact) return reference;
  Layer positive = layer;
  positive.data.input = magnitudes(layer.data.input);
  positive.data.weight = magnitudes(layer.data.weight);
  positive.data.bias = magnitudes(layer.data.bias);
  const Outcome sums = run_planar(portable, setting_of<Geometry>(positive));
  reference.magnitudes.assign(sums.values.begin(), sums.values.end());
  return reference;
}

// Two sums of the same terms in any order, each off by n eps S.
std::vector<double> order_errors(const Layer& layer, const Reference& reference) {
  const ConvCase& sizes = layer.sizes;
  const double terms = double{1.0} + sizes.ins() * sizes.kernel_y * sizes.kernel_x;
  std::vector<double> errors;
  for (const double sum : reference.magnitudes) errors.push_back(2.0 * terms * kEpsilon * sum);
  return errors;
}

// 18^d (k^2 + 6 k) eps max|weight| max|input|, and the bias, which is added last.
double strassen_error(const Layer& layer) {
  const ConvCase& sizes = layer.sizes;
  uint32_t rows = sizes.out_channels / 8;
  uint32_t inner = sizes.in_channels / 8;
  uint32_t pixels = sizes.height * sizes.width;
  double growth = 1.0;
  double k = sizes.in_channels;
  for (int d = 0; d < 2 && rows % 2 == 0 && inner % 2 == 0 && pixels % 2 == 0; ++d) {
    rows /= 2, inner /= 2, pixels /= 2;
    growth *= 18.0;
    k /= 2;
  }
  growth *= k * k + 6 * k;
  return kEpsilon * (growth * largest(layer.data.weight) * largest(layer.data.input) +
                     largest(layer.data.bias));
}

// (C + 14) eps / 2 of the sum in which all numbers and factors are magnitudes, with the largest
// input for each: a patch is 4 of them, and 9 elements of a tile reach an output.
// The tiles of the second set have matrices with larger numbers.
std::vector<double> filtering_errors(const std::string& kernel, const Layer& layer,
                                     const Reference& reference) {
  double factor = 36.0;
  if (has_part(kernel, "Winograd4")) factor = 564.0;
  if (has_part(kernel, "Winograd6")) factor = 4580.0;
  const double roundings = layer.sizes.in_channels + (factor == 36.0 ? 14.0 : 80.0);
  const ConvCase& sizes = layer.sizes;
  const size_t taps = size_t{sizes.in_channels} * 9;
  const size_t pixels = reference.expected.values.size() / sizes.out_channels;
  std::vector<double> errors;
  for (size_t o = 0; o < sizes.out_channels; ++o) {
    double weights = 0.0;
    for (size_t i = 0; i < taps; ++i) weights += std::abs(double{layer.data.weight[o * taps + i]});
    const double sum = factor * weights * largest(layer.data.input) + largest(layer.data.bias);
    errors.insert(errors.end(), pixels, roundings * kEpsilon / 2 * sum);
  }
  return errors;
}

void add(std::vector<double>& errors, double error) {
  for (double& one : errors) one += error;
}

Expectation expected_sums(const std::string& kernel, const Layer& layer,
                          const Reference& reference) {
  Expectation expected = reference.expected;
  const bool has_thirds = has_part(kernel, "Winograd4") || has_part(kernel, "Winograd6");
  if (layer.exact && !has_thirds) return expected;
  if (!layer.exact) expected.errors = order_errors(layer, reference);
  if (has_part(kernel, "Strassen")) add(expected.errors, strassen_error(layer));
  if (has_part(kernel, "Winograd")) {
    const auto more = filtering_errors(kernel, layer, reference);
    for (size_t i = 0; i < more.size(); ++i) expected.errors[i] += more[i];
  }
  return expected;
}

Expectation expectation(const std::string& kernel, const Layer& layer, const Reference& reference) {
  Expectation expected = expected_sums(kernel, layer, reference);
  const kernel::Epilogue epilogue = epilogue_of(kernel);
  if (epilogue == kernel::Epilogue::none) return expected;
  for (size_t i = 0; i < expected.values.size(); ++i) {
    const double sum = expected.values[i];
    // The reference's result is rounded once more.
    expected.errors[i] =
        epilogue_error(epilogue, sum, expected.errors[i]) + 0x1p-22 * std::abs(sum);
    expected.values[i] = static_cast<float>(exact_epilogue(epilogue, sum));
  }
  return expected;
}

constexpr uint32_t kLargestBlock = 8;

// Kernels of one group accept several, those of blocks channels that don't fill one, and those of
// depthwise layers others: none of them then computes all of the result.
bool computes_all(const std::string& kernel, const ConvCase& sizes, const Outcome& outcome) {
  if (has_part(kernel, "_G1_") && sizes.groups != 1) return false;
  const bool depthwise = sizes.groups == sizes.in_channels && sizes.groups == sizes.out_channels;
  if (has_part(kernel, "Depthwise") && !depthwise) return false;
  const uint32_t out_block = outcome.ran ? BlockSize(outcome.shape.layout) : kLargestBlock;
  return sizes.in_channels % BlockSize(outcome.layout) == 0 && sizes.out_channels % out_block == 0;
}

/// The kernel for one output channel leaves an odd last row and column as they were, which is the
/// bias or 0.
void leave_odd_ends(const ConvCase& sizes, Expectation& expected, const ConvData& data) {
  const uint32_t height = expected.dims[1];
  const uint32_t width = expected.dims[2];
  const float start = sizes.bias ? data.bias[0] : 0.0f;
  for (uint32_t i = 0; i < height * width; ++i) {
    const uint32_t y = i / width;
    const uint32_t x = i % width;
    if ((y + 1 == height && height % 2 != 0) || (x + 1 == width && width % 2 != 0)) {
      expected.values[i] = start;
    }
  }
}

/// Convolutions of one geometry.
template <typename Geometry>
class Convolutions : public Operation {
 public:
  Convolutions(const char* portable, std::vector<std::string> families)
      : portable_(portable), families_(std::move(families)) {}

  std::vector<std::string> families() const override { return families_; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    const Layer layer = choose_layer<Geometry>(choices);
    const Setting setting = setting_of<Geometry>(layer);
    const Reference reference = reference_of<Geometry>(portable_, layer);
    for (const std::string& kernel : kernels) {
      for (const LayoutType layout :
           {setting.inputs[0].layout, LayoutType::C4HW4, LayoutType::C8HW8}) {
        if (setting.inputs[0].dims.size() == 2 && layout != LayoutType::CL) continue;
        compare(kernel, layer, reference, run_kernel(kernel, setting, layout));
      }
    }
  }

 protected:
  static std::string sentence(const Layer& layer) {
    const ConvCase& s = layer.sizes;
    const auto pair = [](const char* what, auto a, auto b) {
      return std::string(what) + std::to_string(a) + "x" + std::to_string(b);
    };
    return pair("size ", s.height, s.width) + pair(", channels ", s.in_channels, s.out_channels) +
           pair(", window ", s.kernel_y, s.kernel_x) + pair(", stride ", s.stride_y, s.stride_x) +
           pair(", dilation ", s.dilation_y, s.dilation_x) + ", groups " +
           std::to_string(s.groups) + pair(", padding ", s.padding_l, s.padding_r) +
           pair(" ", s.padding_t, s.padding_b) + (s.bias ? ", bias" : "");
  }

  static void compare(const std::string& kernel, const Layer& layer, const Reference& reference,
                      const Outcome& outcome) {
    const bool comparable = reference.exists && (outcome.ran || !outcome.refusal.empty());
    if (!comparable || !computes_all(kernel, layer.sizes, outcome)) return;
    Expectation expected = expectation(kernel, layer, reference);
    if (has_part(kernel, "_1Out_")) leave_odd_ends(layer.sizes, expected, layer.data);
    expect_agreement(kernel, outcome, expected, sentence(layer) + outcome.refusal);
  }

  const char* const portable_;

 private:
  const std::vector<std::string> families_;
};

// The fixed-point kernel takes an INT16 tensor, and numbers that its steps hold exactly.
class PlaneConvolutions final : public Convolutions<PlaneGeometry> {
 public:
  using Convolutions::Convolutions;

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    Convolutions::run(choices, kernels);
    if (choices.yes()) return;
    Layer layer = choose_layer<PlaneGeometry>(choices);
    for (auto* values : {&layer.data.input, &layer.data.weight, &layer.data.bias}) {
      for (float& value : *values) value = in_256ths(value);
    }
    layer.exact = false;
    auto param = std::make_shared<runtime::InferenceParamConv2DQuant>();
    param->weight_step_size = static_cast<int16_t>(choices.between(8, 12));
    param->output_step_size = static_cast<int16_t>(choices.between(8, 12));
    Setting setting = setting_of<PlaneGeometry>(layer);
    setting.param = param;
    setting.inputs[0].step = static_cast<uint16_t>(param->output_step_size);
    const Reference reference = reference_of<PlaneGeometry>(portable_, layer);
    for (const std::string& kernel : kernels) {
      const Outcome outcome = run_kernel(kernel, setting, LayoutType::C8HW8);
      if (outcome.ran)
        compare_fixed_point(kernel, layer, param->output_step_size, reference, outcome);
    }
  }

 private:
  // At most 1/4, so that products and sums stay in 16 bits, and no -0, which they do not have.
  static float in_256ths(float value) {
    return std::round(std::min(1.0f, std::max(-1.0f, value)) * 64.0f) / 256.0f + 0.0f;
  }

  // Each product is shifted, which drops what is below the step.
  static void compare_fixed_point(const std::string& kernel, const Layer& layer, int step,
                                  const Reference& reference, const Outcome& outcome) {
    const bool comparable = reference.exists && computes_all(kernel, layer.sizes, outcome);
    if (!comparable) return;
    Expectation expected = reference.expected;
    const double dropped = std::ldexp(layer.sizes.in_channels + 1.0, -step);
    expected.errors = order_errors(layer, reference);
    add(expected.errors, dropped);
    expect_agreement(kernel, outcome, expected, sentence(layer));
  }
};

class TransposedConvolutions final : public Convolutions<TransposedGeometry> {
 public:
  using Convolutions::Convolutions;

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    std::vector<std::string> same_meaning;
    for (const std::string& kernel : kernels) {
      if (!cuts_off(kernel)) same_meaning.push_back(kernel);
    }
    Convolutions::run(choices, same_meaning);
    const Layer layer = choose_layer<TransposedGeometry>(choices);
    if (layer.sizes.groups != 1) return;
    for (const std::string& kernel : kernels) {
      if (cuts_off(kernel)) run_cutting(kernel, layer);
    }
  }

 private:
  // Fast kernels: a padding is what is cut off, and weights are [out, in].
  static bool cuts_off(const std::string& kernel) { return has_part(kernel, "_K3x3_"); }

  // Their layer is described as a convolution's, whose weights and margins are turned round.
  void run_cutting(const std::string& kernel, const Layer& layer) const {
    const ConvCase& sizes = layer.sizes;
    Layer same = layer;
    const size_t window = size_t{sizes.kernel_y} * sizes.kernel_x;
    for (size_t o = 0; o < sizes.out_channels; ++o) {
      for (size_t i = 0; i < sizes.in_channels; ++i) {
        const auto from = layer.data.weight.begin() +
                          static_cast<std::ptrdiff_t>((o * sizes.in_channels + i) * window);
        std::copy_n(from, window,
                    same.data.weight.begin() +
                        static_cast<std::ptrdiff_t>((i * sizes.out_channels + o) * window));
      }
    }
    // The portable kernel appends stride - 1 rows and columns, which the full result doesn't have.
    same.sizes.padding_t = sizes.extent_y() - 1 - sizes.padding_t;
    same.sizes.padding_l = sizes.extent_x() - 1 - sizes.padding_l;
    same.sizes.padding_b = sizes.extent_y() - static_cast<int>(sizes.stride_y) - sizes.padding_b;
    same.sizes.padding_r = sizes.extent_x() - static_cast<int>(sizes.stride_x) - sizes.padding_r;
    const Setting setting = setting_of<TransposedGeometry>(layer);
    const Reference reference = has_output<TransposedGeometry>(same.sizes)
                                    ? reference_of<TransposedGeometry>(portable_, same)
                                    : Reference();
    for (const LayoutType layout : {LayoutType::CHW, LayoutType::C4HW4, LayoutType::C8HW8}) {
      compare(kernel, layer, reference, run_kernel(kernel, setting, layout));
    }
  }
};

}  // namespace

std::unique_ptr<Operation> plane_convolutions() {
  return std::make_unique<PlaneConvolutions>("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
                                             std::vector<std::string>{"conv2d", "depthwise"});
}

std::unique_ptr<Operation> transposed_convolutions() {
  return std::make_unique<TransposedConvolutions>(
      "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
      std::vector<std::string>{"convtranspose2d"});
}

std::unique_ptr<Operation> line_convolutions() {
  return std::make_unique<Convolutions<LineGeometry>>("Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1",
                                                      std::vector<std::string>{"conv1d"});
}

}  // namespace marlo::test
