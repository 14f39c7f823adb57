#pragma once

#include <array>
#include <cstdint>
#include <variant>
#include <vector>

// Networks of the earlier generation as their files hold them: a header and one record per layer.

namespace marlo1 {

/// Layer codes of the old files.
enum Code : uint16_t {
  kInput = 0,
  kConv2D = 1,
  kConv2DTranspose = 2,
  kDepthWiseConv2D = 3,
  kPixelShuffle = 4,
  kPooling = 5,
  kInstanceNormalization = 6,
  kBatchNormalization = 7,
  kActivation = 8,
  kRegion = 9,
  kElementWiseOperator = 10,
  kConcatenate = 11,
  kUpsampling = 14,
  kChannelShuffle = 15,
  kDepthWiseConv2DTranspose = 16,
  kTensorInput = 17,
  kTensorReshape = 18,
  kTensorTranspose = 19,
  kTensorSqueeze = 20,
  kFullConnection = 21,
  kLSTM = 22,
  kTensorActivation = 26,
};

struct Header {
  uint32_t version = 0;
  uint32_t app_type = 0;
  uint32_t model_id = 0;
  uint32_t model_base_w = 0;
  uint32_t model_base_h = 0;
};

/// The size of a picture: a height relative to the header's, and channels.
struct Shape {
  uint16_t first = 0;
  float height = 0;  ///< as a fraction of `Header::model_base_h`
  uint16_t channels = 0;
};

/// A layer that only says where its tensor is.
struct Input {
  uint16_t location = 0;
};

/// A dense, transposed or depthwise convolution.
struct Convolution {
  uint16_t kernel_x = 0;
  uint16_t kernel_y = 0;
  uint16_t padding_x = 0;
  uint16_t padding_y = 0;
  uint16_t stride_x = 0;
  uint16_t stride_y = 0;
  uint16_t dilation_x = 0;
  uint16_t dilation_y = 0;
  bool has_bias = false;
  uint16_t activation = 0;
  uint16_t groups = 1;
  std::vector<float> weights;  ///< [group][out channel of it][ky][kx][in channel of it]
  std::vector<float> biases;   ///< one per output channel, also without `has_bias`
};

struct PixelShuffle {
  uint16_t factor = 0;
};

struct Pooling {
  uint16_t kind = 0;  ///< 0 average, 1 maximum
  uint16_t kernel_x = 0;
  uint16_t kernel_y = 0;
  uint16_t stride_x = 0;
  uint16_t stride_y = 0;
  uint16_t padding_x = 0;
  uint16_t padding_y = 0;
};

struct BatchNormalization {
  std::vector<float> scale;
  std::vector<float> shift;
  std::vector<float> variance;
  std::vector<float> mean;
};

struct Activation {
  uint16_t code = 0;
  float alpha = 0;
  float beta = 0;
};

struct ElementWiseOperator {
  uint16_t operation = 0;
  uint16_t activation = 0;
};

struct Concatenate {
  uint16_t axis = 0;
};

struct Upsampling {
  uint16_t scale_x = 0;
  uint16_t scale_y = 0;
  bool align_corner = false;
  uint16_t kind = 0;
};

struct TensorReshape {
  std::vector<uint16_t> new_shape;
};

struct TensorTranspose {
  std::vector<uint16_t> axes;
};

struct TensorSqueeze {
  uint16_t axis = 0;
};

struct FullConnection {
  uint16_t in_features = 0;
  uint16_t out_features = 0;
  bool has_bias = false;
  std::vector<float> weights;
  std::vector<float> biases;
};

/// The arrays of one stacked layer in one direction.
struct LSTMWeights {
  std::vector<float> weight_ih;
  std::vector<float> weight_hh;
  std::vector<float> bias_ih;
  std::vector<float> bias_hh;
};

struct LSTM {
  uint16_t in_size = 0;
  uint16_t hidden_size = 0;
  uint16_t num_layers = 0;
  bool has_bias = false;
  bool bidirectional = false;
  uint16_t complex_rnn_type = 0;
  std::vector<LSTMWeights> forward;
  std::vector<LSTMWeights> reverse;
};

/// A layer that has no counterpart today, so that its fields don't matter.
struct Refused {};

using Body = std::variant<Input, Convolution, PixelShuffle, Pooling, BatchNormalization, Activation,
                          ElementWiseOperator, Concatenate, Upsampling, TensorReshape,
                          TensorTranspose, TensorSqueeze, FullConnection, LSTM, Refused>;

struct Record {
  uint16_t code = 0;
  uint16_t id = 0;
  std::vector<uint16_t> inputs;  ///< ids
  Shape input;
  Shape output;
  Body body;
};

/// A network in the order of its file.
struct Network {
  Header header;
  std::vector<Record> records;
};

/// Reads a file. What it allocates is never larger than a few times the file.
/// @return whether it is a whole network of the earlier generation, whose layers read each other
bool read_network(const char* path, Network* network);

}  // namespace marlo1
