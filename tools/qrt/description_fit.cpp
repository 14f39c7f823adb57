#include "tools/qrt/description_fit.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "qrt_toolkit/assign/restate.h"
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

std::shared_ptr<LayerInfo> for_portable_kernel(const ConvTranspose2dInfo& layer) {
  auto info = marlo::toolkit::with_inner_paddings(layer);
  if (info == nullptr) {
    refuse(
        "the portable kernel would need paddings beyond 32767, or the layer hasn't as many weights "
        "as its channels and its window ask for");
  }
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
