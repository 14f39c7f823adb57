#include "tools/qrt/description_fit.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "tools/qrt/errors.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::Base64Decode;
using marlo::runtime::Base64Encode;
using marlo::runtime::BatchNorm2dInfo;
using marlo::runtime::ConcatenateInfo;
using marlo::runtime::Conv2dInfo;
using marlo::runtime::ConvTranspose2dInfo;
using marlo::runtime::LayerInfo;

namespace {

[[noreturn]] void refuse(const std::string& why) { throw ToolError(kModelError, why); }

std::vector<float> numbers_of(const std::string& blob) {
  const std::string bytes = Base64Decode(blob);
  std::vector<float> numbers(bytes.size() / sizeof(float));
  if (!numbers.empty()) std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(float));
  return numbers;
}

std::string blob_of(const std::vector<float>& numbers) {
  return Base64Encode(reinterpret_cast<const unsigned char*>(numbers.data()),
                      numbers.size() * sizeof(float));
}

// The padding of the convolution over the spread input, of which `cut` leaves the result.
int16_t inner_padding(int64_t kernel, int64_t dilation, int64_t cut) {
  const int64_t padding = (kernel - 1) * dilation - cut;
  if (padding < std::numeric_limits<int16_t>::min() ||
      padding > std::numeric_limits<int16_t>::max()) {
    refuse("the portable kernel would need a padding of " + std::to_string(padding) +
           "; expected at most 32767");
  }
  return static_cast<int16_t>(padding);
}

// [groups][rows][columns] of runs of `length` numbers as [groups][columns][rows].
std::vector<float> with_axes_swapped(const std::vector<float>& numbers, size_t groups, size_t rows,
                                     size_t columns, size_t length) {
  std::vector<float> swapped(numbers.size());
  const float* source = numbers.data();
  for (size_t group = 0; group < groups; ++group) {
    for (size_t row = 0; row < rows; ++row) {
      for (size_t column = 0; column < columns; ++column) {
        float* target = &swapped[((group * columns + column) * rows + row) * length];
        std::memcpy(target, source, length * sizeof(float));
        source += length;
      }
    }
  }
  return swapped;
}

std::shared_ptr<LayerInfo> for_portable_kernel(const ConvTranspose2dInfo& layer) {
  auto info = std::make_shared<ConvTranspose2dInfo>(layer);
  // The portable kernel counts a whole stride behind the last input, the others its first pixel.
  info->padding_l = inner_padding(layer.kernel_x, layer.dilation_x, layer.padding_l);
  info->padding_t = inner_padding(layer.kernel_y, layer.dilation_y, layer.padding_t);
  info->padding_r =
      inner_padding(layer.kernel_x, layer.dilation_x, layer.padding_r + layer.stride_x - 1);
  info->padding_b =
      inner_padding(layer.kernel_y, layer.dilation_y, layer.padding_b + layer.stride_y - 1);
  const size_t groups = layer.groups;
  const size_t outs = layer.out_channels / groups;
  const size_t ins = layer.in_channels / groups;
  info->weight = blob_of(with_axes_swapped(numbers_of(layer.weight), groups, outs, ins,
                                           size_t{layer.kernel_y} * layer.kernel_x));
  return info;
}

std::shared_ptr<LayerInfo> as_convolution(const BatchNorm2dInfo& layer) {
  const std::vector<float> scale = numbers_of(layer.scale);
  const std::vector<float> shift = numbers_of(layer.shift);
  const std::vector<float> variance = numbers_of(layer.variance);
  const std::vector<float> mean = numbers_of(layer.mean);
  std::vector<float> weights;
  std::vector<float> biases;
  constexpr double kLargest = 65504;  // of a half, in which the binary form holds weights
  for (size_t channel = 0; channel < layer.num_features; ++channel) {
    const double factor = scale[channel] / std::sqrt(double{variance[channel]} + double{layer.eps});
    const double offset = shift[channel] - mean[channel] * factor;
    // False for a NaN, too.
    if (!(std::fabs(factor) <= kLargest && std::fabs(offset) <= kLargest)) {
      refuse("channel " + std::to_string(channel) + " would be x * " + float_text(factor) + " + " +
             float_text(offset) + "; expected numbers of at most 65504");
    }
    weights.push_back(static_cast<float>(factor));
    biases.push_back(static_cast<float>(offset));
  }
  auto info = std::make_shared<Conv2dInfo>();
  static_cast<LayerInfo&>(*info).id = layer.id;
  info->input_ids = layer.input_ids;
  info->read_count = layer.read_count;
  info->in_channels = info->out_channels = info->groups = layer.num_features;
  info->kernel_x = info->kernel_y = 1;
  info->if_bias = true;
  info->weight = blob_of(weights);
  info->bias = blob_of(biases);
  return info;
}

bool is_convolution_kernel(const std::string& kernel) {
  return kernel.rfind("Conv2D_", 0) == 0 || kernel.rfind("Conv2d_", 0) == 0 ||
         kernel.rfind("Depthwise_", 0) == 0;
}

}  // namespace

std::shared_ptr<LayerInfo> fitted(const std::shared_ptr<LayerInfo>& info,
                                  const std::string& kernel) {
  if (const auto* layer = dynamic_cast<const ConvTranspose2dInfo*>(info.get())) {
    // Kernels of any window share the portable one's meaning of a description.
    const bool takes_any_window = kernel.find("_Knxm_") != std::string::npos;
    return takes_any_window ? for_portable_kernel(*layer) : info;
  }
  if (const auto* layer = dynamic_cast<const ConcatenateInfo*>(info.get())) {
    if (kernel != "Concatenate_MainMemory_Fallback") return info;
    auto changed = std::make_shared<ConcatenateInfo>(*layer);
    changed->dim = static_cast<uint16_t>(layer->dim - 1);
    return changed;
  }
  if (const auto* layer = dynamic_cast<const BatchNorm2dInfo*>(info.get())) {
    return is_convolution_kernel(kernel) ? as_convolution(*layer) : info;
  }
  return info;
}

}  // namespace qrt_tool
