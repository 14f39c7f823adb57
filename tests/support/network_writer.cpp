#include "tests/support/network_writer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "tests/support/kernels.h"
#include "tests/support/oracle.h"

namespace marlo::test {

using runtime::LayoutType;

namespace {

// The kind of a layer from planes into the layout.
constexpr char kFirst[] = "first";

constexpr char kPortableConv[] = "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";

template <typename Info>
std::shared_ptr<Info> pooling(uint16_t window) {
  auto info = std::make_shared<Info>();
  info->kernel_x = info->kernel_y = info->stride_x = info->stride_y = window;
  return info;
}

}  // namespace

std::vector<Form> all_forms() {
  Form portable;
  portable.name = "portable";
  Form planes;
  planes.name = "planes";
  planes.relu = "ReLU_SSE_Float_M1";
  planes.add = "Elementwise_Add_SSE_Float_M1";
  planes.max2 = "Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1";
  planes.mean4 = "Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1";
  planes.upsample = "Upsampling2D_Bilinear_SSE_CHW_Float_M1";
  Form fours = planes;
  fours.name = "blocks of 4";
  fours.layout = LayoutType::C4HW4;
  fours.to_layout = "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2";
  fours.from_layout = "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1";
  fours.max2 = "";
  fours.mean4 = "Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1";
  fours.upsample = "Upsampling2D_Bilinear_SSE_C4HW4_Float_M2";
  fours.shuffle = "PixelShuffle_Upscale2_SSE_C4HW4_Float_M1";
  Form eights;
  eights.name = "blocks of 8";
  eights.layout = LayoutType::C8HW8;
  eights.to_layout = "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M2";
  eights.from_layout = "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2";
  eights.relu = "ReLU_AVX_Float_M1";
  eights.add = "Elementwise_Add_AVX_Float_M1";
  eights.max2 = "Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1";
  eights.mean4 = "Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1";
  eights.upsample = "Upsampling2D_Bilinear_AVX_C8HW8_Float_M2";
  eights.shuffle = "PixelShuffle_Upscale2_AVX_C8HW8_Float_M1";
  return {portable, planes, fours, eights};
}

std::vector<Form> convolution_forms() {
  std::vector<Form> forms = all_forms();
  forms[1].convolutions = {
      {"1x1", "Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1"},
      {"1x1 by 2", "Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1"},
      {"3x3", "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2"},
      {"3x3 by 2", "Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1"},
      {"depthwise 3x3", "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1"},
      {"depthwise 3x3 by 2", "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1"},
      {"first 3x3", "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1"}};
  forms[2].convolutions = {
      {"1x1", "Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2"},
      {"1x1 by 2", "Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1"},
      {"3x3", "Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1"},
      {"3x3 by 2", "Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1"},
      {"depthwise 3x3", "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1"},
      {"depthwise 3x3 by 2", "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1"},
      {"first 3x3", "Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1"}};
  forms[3].convolutions = {
      {"1x1", "Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3"},
      {"1x1 by 2", "Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1"},
      {"3x3", "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1"},
      {"3x3 by 2", "Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1"},
      {"depthwise 3x3", "Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1"},
      {"depthwise 3x3 by 2", "Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1"},
      {"depthwise 5x5", "Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1"},
      {"first 3x3", "Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1"}};
  return forms;
}

std::string why_not_here(const Form& form) {
  std::vector<std::string> kernels = {form.to_layout, form.from_layout, form.relu,
                                      form.add,       form.max2,        form.mean4,
                                      form.upsample,  form.shuffle};
  for (const auto& [layer, kernel] : form.convolutions) kernels.push_back(kernel);
  for (const std::string& kernel : kernels) {
    if (kernel.empty()) continue;
    if (all_kernels().Create(kernel) == nullptr) return kernel + " isn't in this build";
    const std::string reason = why_not_here(kernel);
    if (!reason.empty()) return reason;
  }
  return "";
}

NetworkWriter::NetworkWriter(Form form, const Planes& input) : form_(std::move(form)) {
  model_.input("input");
  values_["input"] = input;
  planar_["input"] = true;
}

std::vector<float> NetworkWriter::halves(size_t count, float scale) {
  std::vector<float> numbers(count);
  // Multiples of 1/128 up to 1 have few enough bits for a half; so have they times a power of two.
  const float step = std::exp2(std::round(std::log2(scale))) / 128;
  for (float& number : numbers) number = step * static_cast<float>(random_.integer(-128, 128));
  return numbers;
}

std::string NetworkWriter::add_layer(const std::string& kind,
                                     const std::vector<std::string>& sources,
                                     std::shared_ptr<runtime::LayerInfo> info,
                                     const std::string& blocked, const std::string& portable,
                                     Planes value) {
  const bool runs_in_layout = !blocked.empty();
  const std::string id = kind + std::to_string(values_.size());
  model_.layer(id, sources, std::move(info), runs_in_layout ? blocked : portable);
  const bool has_layout = form_.layout != LayoutType::CHW;
  const bool reads_layout = runs_in_layout && kind != kFirst;
  for (size_t i = 0; has_layout && i < sources.size(); ++i) {
    const bool planar = is_planar(sources[i]);
    if (reads_layout == !planar) continue;
    model_.input_converter(std::to_string(i), planar ? form_.to_layout : form_.from_layout);
  }
  for (const double number : value.values) magnitude_ = std::max(magnitude_, std::abs(number));
  const bool back_to_layout = has_layout && !runs_in_layout && value.height * value.width > 1 &&
                              value.channels % runtime::BlockSize(form_.layout) == 0;
  if (back_to_layout) model_.output_converter("0", form_.to_layout);
  planar_[id] = !has_layout || !(runs_in_layout || back_to_layout);
  values_[id] = std::move(value);
  return id;
}

std::string NetworkWriter::conv(const std::string& source, uint32_t outs, uint32_t kernel,
                                uint32_t stride) {
  PlaneFilter sizes;
  sizes.out_channels = outs;
  sizes.kernel = kernel;
  sizes.stride = stride;
  return add_convolution(source, sizes, "conv");
}

std::string NetworkWriter::first_conv(const std::string& source, uint32_t outs, uint32_t kernel,
                                      uint32_t stride) {
  PlaneFilter sizes;
  sizes.out_channels = outs;
  sizes.kernel = kernel;
  sizes.stride = stride;
  return add_convolution(source, sizes, kFirst);
}

std::string NetworkWriter::depthwise(const std::string& source, uint32_t kernel, uint32_t stride) {
  PlaneFilter sizes;
  sizes.out_channels = sizes.groups = values_.at(source).channels;
  sizes.kernel = kernel;
  sizes.stride = stride;
  return add_convolution(source, sizes, "depthwise");
}

std::string NetworkWriter::add_convolution(const std::string& source, const PlaneFilter& sizes,
                                           const std::string& layer) {
  const Planes& input = values_.at(source);
  PlaneFilter filter = sizes;
  filter.padding = filter.kernel / 2;
  const size_t terms = size_t{input.channels / filter.groups} * filter.kernel * filter.kernel;
  filter.weights = halves(terms * filter.out_channels, 1.5f / std::sqrt(static_cast<float>(terms)));
  filter.bias = halves(filter.out_channels, 0.25f);
  terms_ += terms + 1;
  auto info = std::make_shared<runtime::Conv2dInfo>(plane_convolution(
      static_cast<uint16_t>(input.channels), static_cast<uint16_t>(filter.out_channels),
      static_cast<uint16_t>(filter.kernel), filter.weights, filter.bias));
  info->groups = static_cast<uint16_t>(filter.groups);
  info->stride_x = info->stride_y = static_cast<uint16_t>(filter.stride);
  info->padding_l = info->padding_r = info->padding_t = info->padding_b =
      static_cast<uint16_t>(filter.padding);
  const std::string size = std::to_string(filter.kernel);
  std::string name = layer == "conv" ? "" : layer + " ";
  name += size + "x" + size;
  if (filter.stride != 1) name += " by " + std::to_string(filter.stride);
  const auto found = form_.convolutions.find(name);
  return add_layer(layer, {source}, info, found == form_.convolutions.end() ? "" : found->second,
                   kPortableConv, convolved(input, filter));
}

std::string NetworkWriter::relu(const std::string& source) {
  return add_layer("relu", {source}, std::make_shared<runtime::ActivationInfo>(), form_.relu,
                   "ReLU_Fallback_Float_M1",
                   mapped(values_.at(source), [](double x) { return std::max(x, 0.0); }));
}

std::string NetworkWriter::add(const std::string& a, const std::string& b) {
  terms_ += 1;
  return add_layer("add", {a, b}, std::make_shared<runtime::ElementWiseOperatorInfo>(), form_.add,
                   "Elementwise_Fallback_Float_M1", sum_of(values_.at(a), values_.at(b)));
}

std::string NetworkWriter::max2(const std::string& source) {
  auto info = pooling<runtime::MaxPool2dInfo>(2);
  info->dilation_x = info->dilation_y = 1;
  return add_layer("max", {source}, info, form_.max2, "Pooling2D_Max_Fallback_Float_M1",
                   largest_in(values_.at(source), 2));
}

std::string NetworkWriter::mean4(const std::string& source) {
  terms_ += 17;
  return add_layer("mean", {source}, pooling<runtime::AvgPool2dInfo>(4), form_.mean4,
                   "Pooling2D_Avg_Fallback_Float_M1", mean_in(values_.at(source), 4));
}

std::string NetworkWriter::concatenate(const std::string& a, const std::string& b) {
  auto info = std::make_shared<runtime::ConcatenateInfo>();
  info->dim = 1;
  // One kernel for all three layouts.
  constexpr char kKernel[] = "Concatenate_C_Fallback_CnHWn_M1";
  return add_layer("join", {a, b}, info, kKernel, kKernel,
                   behind_each_other(values_.at(a), values_.at(b)));
}

std::string NetworkWriter::upsample(const std::string& source) {
  auto info = std::make_shared<runtime::Upsample2dInfo>();
  info->scale_factor_x = info->scale_factor_y = 2;
  info->unsample_type = 1;
  terms_ += 4;
  return add_layer("up", {source}, info, form_.upsample, "Upsampling2D_Fallback_CHW_Float_M1",
                   twice_as_large(values_.at(source)));
}

std::string NetworkWriter::shuffle(const std::string& source) {
  auto info = std::make_shared<runtime::PixelShuffleInfo>();
  info->upscale_factor = 2;
  return add_layer("shuffle", {source}, info, form_.shuffle, "Pixelshuffle_Fallback_CHW_Float_M1",
                   shuffled_to_pixels(values_.at(source)));
}

std::string NetworkWriter::sigmoid(const std::string& source) {
  // No layout matters to it, so it runs as it is.
  constexpr char kKernel[] = "Sigmoid_Fallback_Float_M1";
  terms_ += 4;
  return add_layer("sigmoid", {source}, std::make_shared<runtime::ActivationInfo>(),
                   is_planar(source) ? "" : kKernel, kKernel,
                   mapped(values_.at(source), exact_sigmoid));
}

std::string NetworkWriter::flat(const std::string& source) {
  auto info = std::make_shared<runtime::TensorReshapeInfo>();
  info->new_shape = {1, -1};
  const std::string id = "flat" + std::to_string(values_.size());
  // It gathers blocks by itself.
  model_.layer(id, {source}, info, "Reshape_Fallback_CnHWn_To_C_M1");
  values_[id] = values_.at(source);
  planar_[id] = true;
  return id;
}

std::string NetworkWriter::full_connection(const std::string& source, uint32_t outs) {
  const Planes& input = values_.at(source);
  const size_t ins = input.values.size();
  const std::vector<float> weights = halves(ins * outs, 1.5f / std::sqrt(static_cast<float>(ins)));
  const std::vector<float> bias = halves(outs, 0.25f);
  auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->in_features = static_cast<uint16_t>(ins);
  info->out_features = static_cast<uint16_t>(outs);
  info->if_bias = true;
  info->weight = weight_text(weights);
  info->bias = weight_text(bias);
  terms_ += ins + 1;
  return add_layer("full", {source}, info, "", "FullConnection_Fallback_C_Float_M1",
                   connected(input, outs, weights, bias));
}

std::string NetworkWriter::softmax(const std::string& source) {
  auto info = std::make_shared<runtime::SoftmaxInfo>();
  info->dim = 1;
  terms_ += 8;
  return add_layer("softmax", {source}, info, "", "Softmax_Fallback_Float_M1",
                   softmax_of(values_.at(source)));
}

void NetworkWriter::output(const std::string& source) {
  output_ = source;
  if (!is_planar(source)) model_.output_converter("0", form_.from_layout);
  model_.outputs({source});
}

}  // namespace marlo::test
