#include "tests/support/conv_setup.h"

namespace marlo::test {

using kernel::LineGeometry;
using kernel::PlaneGeometry;
using kernel::TransposedGeometry;

namespace {

template <typename Info>
std::shared_ptr<Info> plane_info(const ConvCase& sizes, const ConvData& data) {
  auto info = std::make_shared<Info>();
  info->in_channels = static_cast<uint16_t>(sizes.in_channels);
  info->out_channels = static_cast<uint16_t>(sizes.out_channels);
  describe_window(sizes, *info);
  describe_dilation(sizes, *info);
  info->groups = static_cast<uint16_t>(sizes.groups);
  info->if_bias = sizes.bias;
  info->weight = weight_text(data.weight);
  info->bias = weight_text(data.bias);
  return info;
}

bool window_fits(const ConvCase& sizes) {
  const int height = static_cast<int>(sizes.height) + sizes.padding_t + sizes.padding_b;
  const int width = static_cast<int>(sizes.width) + sizes.padding_l + sizes.padding_r;
  return height >= sizes.extent_y() && width >= sizes.extent_x();
}

template <typename Fill>
ConvData data_from(const ConvCase& sizes, Fill fill) {
  ConvData data;
  data.input = fill(sizes.input_size());
  data.weight = fill(sizes.weight_size());
  data.bias = fill(sizes.bias_size());
  return data;
}

}  // namespace

template <>
ConvCase fitted<PlaneGeometry>(const ConvCase& sizes) {
  return sizes;
}

template <>
ConvCase fitted<TransposedGeometry>(const ConvCase& sizes) {
  return sizes;
}

template <>
ConvCase fitted<LineGeometry>(const ConvCase& sizes) {
  ConvCase line = sizes;
  line.height = line.kernel_y = line.stride_y = line.dilation_y = 1;
  line.padding_t = line.padding_b = 0;
  return line;
}

template <>
std::shared_ptr<runtime::Conv2dInfo> describe<PlaneGeometry>(const ConvCase& sizes,
                                                             const ConvData& data) {
  return plane_info<runtime::Conv2dInfo>(sizes, data);
}

template <>
std::shared_ptr<runtime::ConvTranspose2dInfo> describe<TransposedGeometry>(const ConvCase& sizes,
                                                                           const ConvData& data) {
  return plane_info<runtime::ConvTranspose2dInfo>(sizes, data);
}

template <>
std::shared_ptr<runtime::Conv1dInfo> describe<LineGeometry>(const ConvCase& sizes,
                                                            const ConvData& data) {
  auto info = std::make_shared<runtime::Conv1dInfo>();
  info->in_channels = static_cast<uint16_t>(sizes.in_channels);
  info->out_channels = static_cast<uint16_t>(sizes.out_channels);
  info->kernel_size = static_cast<uint16_t>(sizes.kernel_x);
  info->padding_f = static_cast<uint16_t>(sizes.padding_l);
  info->padding_b = static_cast<uint16_t>(sizes.padding_r);
  info->stride = static_cast<uint16_t>(sizes.stride_x);
  info->dilation = static_cast<uint16_t>(sizes.dilation_x);
  info->groups = static_cast<uint16_t>(sizes.groups);
  info->if_bias = sizes.bias;
  info->weight = weight_text(data.weight);
  info->bias = weight_text(data.bias);
  return info;
}

template <>
std::vector<uint32_t> dims_of<PlaneGeometry>(uint32_t channels, int height, int width) {
  return {channels, static_cast<uint32_t>(height), static_cast<uint32_t>(width)};
}

template <>
std::vector<uint32_t> dims_of<TransposedGeometry>(uint32_t channels, int height, int width) {
  return dims_of<PlaneGeometry>(channels, height, width);
}

template <>
std::vector<uint32_t> dims_of<LineGeometry>(uint32_t channels, int, int width) {
  return {channels, static_cast<uint32_t>(width)};
}

template <>
ConvOracle oracle_of<PlaneGeometry>(const ConvCase& sizes, const ConvData& data) {
  return convolution(sizes, data);
}

template <>
ConvOracle oracle_of<TransposedGeometry>(const ConvCase& sizes, const ConvData& data) {
  return transposed_convolution(sizes, data);
}

template <>
ConvOracle oracle_of<LineGeometry>(const ConvCase& sizes, const ConvData& data) {
  return convolution(sizes, data);
}

template <>
bool has_output<PlaneGeometry>(const ConvCase& sizes) {
  return window_fits(sizes);
}

template <>
bool has_output<LineGeometry>(const ConvCase& sizes) {
  return window_fits(sizes);
}

template <>
bool has_output<TransposedGeometry>(const ConvCase& sizes) {
  const int height = static_cast<int>(sizes.height * sizes.stride_y) - sizes.extent_y() + 1 +
                     sizes.padding_t + sizes.padding_b;
  const int width = static_cast<int>(sizes.width * sizes.stride_x) - sizes.extent_x() + 1 +
                    sizes.padding_l + sizes.padding_r;
  return height > 0 && width > 0;
}

ConvData integer_data(const ConvCase& sizes, uint32_t seed) {
  Random random(seed);
  return data_from(sizes, [&random](size_t count) { return random.small_integers(count); });
}

ConvData float_data(const ConvCase& sizes, uint32_t seed) {
  Random random(seed);
  return data_from(sizes, [&random](size_t count) { return random.floats(count); });
}

ConvData uneven_data(const ConvCase& sizes, uint32_t seed) {
  Random random(seed);
  return data_from(sizes, [&random](size_t count) { return random.uneven_floats(count, 8); });
}

}  // namespace marlo::test
