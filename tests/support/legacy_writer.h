#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace marlo::test {

/// A size in a file of the earlier generation.
struct LegacyShape {
  float height = 0;  ///< as a fraction of the header's
  uint16_t channels = 0;
};

/// A dense, transposed or depthwise convolution in such a file.
struct LegacyConvolution {
  uint16_t code = 1;
  uint16_t id = 1;
  uint16_t input = 0;
  LegacyShape in{1, 1};
  LegacyShape out{1, 1};
  uint16_t kernel_x = 1;
  uint16_t kernel_y = 1;
  uint16_t padding_x = 0;
  uint16_t padding_y = 0;
  uint16_t stride_x = 1;
  uint16_t stride_y = 1;
  uint16_t dilation_x = 1;
  uint16_t dilation_y = 1;
  uint16_t has_bias = 1;
  uint16_t activation = 0;
  uint16_t groups = 1;
  std::vector<float> weights;  ///< [group][out channel of it][ky][kx][in channel of it]
  std::vector<float> biases;
};

/// A pooling in such a file.
struct LegacyPooling {
  uint16_t id = 1;
  uint16_t input = 0;
  LegacyShape in{1, 1};
  LegacyShape out{1, 1};
  uint16_t kind = 1;
  uint16_t kernel_x = 2;
  uint16_t kernel_y = 2;
  uint16_t stride_x = 2;
  uint16_t stride_y = 2;
  uint16_t padding_x = 0;
  uint16_t padding_y = 0;
};

/// An LSTM in such a file: the arrays of each stacked layer, all forward ones and then the reverse.
struct LegacyLSTM {
  uint16_t id = 1;
  uint16_t input = 0;
  uint16_t in_size = 1;
  uint16_t hidden_size = 1;
  uint16_t num_layers = 1;
  uint16_t has_bias = 1;
  uint16_t bidirectional = 0;
  uint16_t complex_rnn_type = 0;
  std::vector<std::vector<float>> arrays;
};

/// Writes files of the earlier generation, which the library only reads. Numbers of weights are
/// halves, so give it such.
class LegacyWriter {
 public:
  explicit LegacyWriter(uint32_t version = 10001, uint32_t base_h = 8, uint32_t base_w = 6);

  /// @name The bytes of a record
  /// @{
  LegacyWriter& record(uint16_t code);  ///< begins one
  LegacyWriter& words(const std::vector<uint16_t>& values);
  LegacyWriter& halves(const std::vector<float>& values);
  LegacyWriter& shape(const LegacyShape& shape);
  LegacyWriter& bytes(size_t count);  ///< of no meaning
  /// @}

  /// @name Whole records
  /// @{
  LegacyWriter& input(uint16_t id, uint16_t location = 1, LegacyShape shape = {1, 1});
  LegacyWriter& convolution(const LegacyConvolution& layer);
  LegacyWriter& pooling(const LegacyPooling& layer);
  LegacyWriter& pixel_shuffle(uint16_t id, uint16_t input, uint16_t factor);
  LegacyWriter& batch_normalization(uint16_t id, uint16_t input, uint16_t channels,
                                    const std::vector<float>& values);
  LegacyWriter& activation(uint16_t id, uint16_t input, uint16_t code, float alpha, float beta);
  LegacyWriter& element_wise(uint16_t id, const std::vector<uint16_t>& inputs, uint16_t operation,
                             uint16_t activation = 0);
  LegacyWriter& concatenate(uint16_t id, const std::vector<uint16_t>& inputs, uint16_t axis);
  LegacyWriter& upsampling(uint16_t id, uint16_t input, uint16_t scale_x, uint16_t scale_y,
                           uint16_t align_corner, uint16_t kind);
  LegacyWriter& tensor_input(uint16_t id, uint16_t location);
  LegacyWriter& tensor_reshape(uint16_t id, uint16_t input, std::vector<uint16_t> new_shape);
  LegacyWriter& tensor_transpose(uint16_t id, uint16_t input, std::vector<uint16_t> axes);
  LegacyWriter& tensor_squeeze(uint16_t id, uint16_t input, uint16_t axis);
  LegacyWriter& full_connection(uint16_t id, uint16_t input, uint16_t ins, uint16_t outs,
                                uint16_t has_bias, const std::vector<float>& weights,
                                const std::vector<float>& biases);
  LegacyWriter& lstm(const LegacyLSTM& layer);
  LegacyWriter& tensor_activation(uint16_t id, uint16_t input, uint16_t code, float alpha,
                                  float beta);
  /// @}

  /// The whole file so far.
  const std::string& text() const { return text_; }

  /// Writes it. @return the path
  std::string save(const std::string& path) const;

 private:
  LegacyWriter& inputs(const std::vector<uint16_t>& ids);

  uint32_t version_;
  std::string text_;
};

}  // namespace marlo::test
