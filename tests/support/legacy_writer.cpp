#include "tests/support/legacy_writer.h"

#include <cstring>
#include <fstream>

#include "qrt_core/utility/half.h"

namespace marlo::test {

namespace {

template <typename T>
void append(std::string& text, T value) {
  char bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  text.append(bytes, sizeof bytes);
}

constexpr size_t kDescriptionBytes = 28;

}  // namespace

LegacyWriter::LegacyWriter(uint32_t version, uint32_t base_h, uint32_t base_w) : version_(version) {
  const uint32_t app_type = 7;
  const uint32_t model_id = 9;
  for (const uint32_t number : {0x5555u, version, 123u, app_type, model_id, base_w, base_h}) {
    append(text_, number);
  }
  text_.resize(996, '\x2A');
  append(text_, uint32_t{0xAAAA});
}

LegacyWriter& LegacyWriter::record(uint16_t code) { return words({0xBEEF, code}); }

LegacyWriter& LegacyWriter::words(const std::vector<uint16_t>& values) {
  for (const uint16_t value : values) append(text_, value);
  return *this;
}

LegacyWriter& LegacyWriter::halves(const std::vector<float>& values) {
  for (const float value : values) append(text_, half_float::half(value));
  return *this;
}

LegacyWriter& LegacyWriter::shape(const LegacyShape& shape) {
  return words({0}).halves({shape.height}).words({shape.channels});
}

LegacyWriter& LegacyWriter::bytes(size_t count) {
  text_.append(count, '\x55');
  return *this;
}

LegacyWriter& LegacyWriter::inputs(const std::vector<uint16_t>& ids) {
  std::vector<uint16_t> slots = ids;
  slots.resize(10, 0xFFFF);
  return words({static_cast<uint16_t>(ids.size())}).words(slots);
}

LegacyWriter& LegacyWriter::input(uint16_t id, uint16_t location, LegacyShape size) {
  return record(0).words({id}).shape(size).words({location});
}

LegacyWriter& LegacyWriter::convolution(const LegacyConvolution& layer) {
  record(layer.code).words({layer.id, layer.input}).shape(layer.in).shape(layer.out);
  words({layer.kernel_x, layer.kernel_y, layer.padding_x, layer.padding_y, layer.stride_x,
         layer.stride_y, layer.dilation_x, layer.dilation_y});
  if (layer.code == 3) words({0xABCD});
  words({layer.has_bias, layer.activation});
  if (version_ > 10000) {
    if (layer.code != 3) words({layer.groups});
    if (layer.code == 2) words({0xABCD});
    words(std::vector<uint16_t>(10, 0xABCD));
  }
  return halves(layer.weights).halves(layer.biases);
}

LegacyWriter& LegacyWriter::pooling(const LegacyPooling& layer) {
  record(5).words({layer.id, layer.input}).shape(layer.in).shape(layer.out);
  return words({layer.kind, layer.kernel_x, layer.kernel_y, layer.stride_x, layer.stride_y,
                layer.padding_x, layer.padding_y});
}

LegacyWriter& LegacyWriter::pixel_shuffle(uint16_t id, uint16_t input, uint16_t factor) {
  return record(4).words({id, input}).shape({1, 4}).shape({1, 1}).words({factor});
}

LegacyWriter& LegacyWriter::batch_normalization(uint16_t id, uint16_t input, uint16_t channels,
                                                const std::vector<float>& values) {
  return record(7).words({id, input}).shape({1, channels}).shape({1, channels}).halves(values);
}

LegacyWriter& LegacyWriter::activation(uint16_t id, uint16_t input, uint16_t code, float alpha,
                                       float beta) {
  record(8).words({id, input}).shape({1, 1}).shape({1, 1});
  return words({code}).halves({alpha, beta});
}

LegacyWriter& LegacyWriter::element_wise(uint16_t id, const std::vector<uint16_t>& ids,
                                         uint16_t operation, uint16_t activation) {
  return record(10).words({id}).inputs(ids).shape({1, 1}).words({operation, activation});
}

LegacyWriter& LegacyWriter::concatenate(uint16_t id, const std::vector<uint16_t>& ids,
                                        uint16_t axis) {
  record(11).words({id}).inputs(ids);
  for (int slot = 0; slot < 10; ++slot) shape({1, 1});
  return shape({1, 2}).words({axis});
}

LegacyWriter& LegacyWriter::upsampling(uint16_t id, uint16_t input, uint16_t scale_x,
                                       uint16_t scale_y, uint16_t align_corner, uint16_t kind) {
  record(14).words({id, input}).shape({1, 1}).shape({1, 1});
  return words({scale_x, scale_y, align_corner, kind});
}

LegacyWriter& LegacyWriter::tensor_input(uint16_t id, uint16_t location) {
  return record(17).words({id, 0xFFFF, location}).bytes(kDescriptionBytes);
}

LegacyWriter& LegacyWriter::tensor_reshape(uint16_t id, uint16_t input,
                                           std::vector<uint16_t> new_shape) {
  new_shape.resize(10, 0);
  return record(18).words({id, input}).bytes(2 * kDescriptionBytes).words(new_shape);
}

LegacyWriter& LegacyWriter::tensor_transpose(uint16_t id, uint16_t input,
                                             std::vector<uint16_t> axes) {
  const auto count = static_cast<uint16_t>(axes.size());
  axes.resize(10, 0xFFFF);
  return record(19).words({id, input}).bytes(2 * kDescriptionBytes).words({count}).words(axes);
}

LegacyWriter& LegacyWriter::tensor_squeeze(uint16_t id, uint16_t input, uint16_t axis) {
  return record(20).words({id, input, axis}).bytes(2 * kDescriptionBytes);
}

LegacyWriter& LegacyWriter::full_connection(uint16_t id, uint16_t input, uint16_t ins,
                                            uint16_t outs, uint16_t has_bias,
                                            const std::vector<float>& weights,
                                            const std::vector<float>& biases) {
  record(21).words({id, input, ins, outs, has_bias}).bytes(2 * kDescriptionBytes);
  return halves(weights).halves(biases);
}

LegacyWriter& LegacyWriter::lstm(const LegacyLSTM& layer) {
  record(22).words({layer.id, layer.input, layer.in_size, layer.hidden_size, layer.num_layers,
                    layer.has_bias, layer.bidirectional, layer.complex_rnn_type});
  bytes(2 * kDescriptionBytes);
  for (const std::vector<float>& array : layer.arrays) halves(array);
  return *this;
}

LegacyWriter& LegacyWriter::tensor_activation(uint16_t id, uint16_t input, uint16_t code,
                                              float alpha, float beta) {
  record(26).words({id, input}).bytes(kDescriptionBytes);
  return words({code}).halves({alpha, beta});
}

std::string LegacyWriter::save(const std::string& path) const {
  std::ofstream(path, std::ios::binary) << text_;
  return path;
}

}  // namespace marlo::test
