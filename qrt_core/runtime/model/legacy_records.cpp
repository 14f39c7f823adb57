#include "qrt_core/runtime/model/legacy_records_internal.h"

#include <cstring>
#include <set>

#include "qrt_core/runtime/model/legacy_file_internal.h"

namespace marlo1 {

namespace {

constexpr size_t kHeaderBytes = 1000;
constexpr uint32_t kFirstMagic = 0x5555;
constexpr uint32_t kLastMagic = 0xAAAA;
constexpr uint32_t kFirstVersion = 10000;

constexpr size_t kInputSlots = 10;
constexpr size_t kDescriptionBytes = 28;

// Words that begin no record are passed over one pair after another. A file that has nothing else
// for so long isn't a network.
constexpr int kMostUnknownCodes = 1000;

void require(bool sound) {
  if (!sound) throw BadFile();
}

Header read_header(File& file) {
  unsigned char bytes[kHeaderBytes];
  file.read(bytes, sizeof bytes);
  const auto number = [&bytes](size_t offset) {
    uint32_t value = 0;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
  };
  require(number(0) == kFirstMagic && number(kHeaderBytes - 4) == kLastMagic);
  return {number(4), number(12), number(16), number(20), number(24)};
}

Shape read_shape(File& file) {
  Shape shape;
  shape.first = file.word();
  shape.height = file.half();
  shape.channels = file.word();
  return shape;
}

void read_one_input(File& file, Record& record) {
  record.id = file.word();
  record.inputs = {file.word()};
}

void read_one_input_and_shapes(File& file, Record& record) {
  read_one_input(file, record);
  record.input = read_shape(file);
  record.output = read_shape(file);
}

void read_many_inputs(File& file, Record& record) {
  record.id = file.word();
  const uint16_t count = file.word();
  record.inputs = file.words(kInputSlots);
  require(count >= 1 && count <= kInputSlots);
  record.inputs.resize(count);
}

// Twelve parameters and the arrays. Files of the first version lack the groups and the words that
// are passed over.
Convolution read_convolution(File& file, const Record& record, bool first_version) {
  Convolution layer;
  layer.kernel_x = file.word();
  layer.kernel_y = file.word();
  layer.padding_x = file.word();
  layer.padding_y = file.word();
  layer.stride_x = file.word();
  layer.stride_y = file.word();
  layer.dilation_x = file.word();
  layer.dilation_y = file.word();
  const bool depthwise = record.code == kDepthWiseConv2D;
  if (depthwise) file.word();
  layer.has_bias = file.word() > 0;
  layer.activation = file.word();
  if (!first_version && !depthwise) layer.groups = file.word();
  if (depthwise) layer.groups = record.output.channels;
  if (!first_version) {
    if (record.code == kConv2DTranspose) file.word();
    file.words(10);
  }
  const uint32_t ins = record.input.channels;
  const uint32_t outs = record.output.channels;
  require(layer.kernel_x != 0 && layer.kernel_y != 0 && layer.stride_x != 0 &&
          layer.stride_y != 0 && layer.dilation_x != 0 && layer.dilation_y != 0);
  require(ins != 0 && outs != 0 && layer.groups != 0 && outs % layer.groups == 0);
  // Unequal channels of a depthwise layer are refused later, with a reaction of their own.
  require(depthwise || ins % layer.groups == 0);
  const uint64_t in_group = depthwise ? 1 : ins / layer.groups;
  // Four factors of 16 bits each fit into 64.
  layer.weights = file.halves(in_group * outs * layer.kernel_y * layer.kernel_x);
  layer.biases = file.halves(outs);
  return layer;
}

Pooling read_pooling(File& file) {
  Pooling layer;
  layer.kind = file.word();
  layer.kernel_x = file.word();
  layer.kernel_y = file.word();
  layer.stride_x = file.word();
  layer.stride_y = file.word();
  layer.padding_x = file.word();
  layer.padding_y = file.word();
  require(layer.kernel_x != 0 && layer.kernel_y != 0 && layer.stride_x != 0 && layer.stride_y != 0);
  return layer;
}

BatchNormalization read_batch_normalization(File& file, uint16_t channels) {
  BatchNormalization layer;
  layer.scale = file.halves(channels);
  layer.shift = file.halves(channels);
  layer.variance = file.halves(channels);
  layer.mean = file.halves(channels);
  return layer;
}

Activation read_activation(File& file) {
  Activation layer;
  layer.code = file.word();
  layer.alpha = file.half();
  layer.beta = file.half();
  return layer;
}

Upsampling read_upsampling(File& file) {
  Upsampling layer;
  layer.scale_x = file.word();
  layer.scale_y = file.word();
  layer.align_corner = file.word() > 0;
  layer.kind = file.word();
  return layer;
}

// Sizes up to the first 0, which no size is.
TensorReshape read_reshape(File& file) {
  TensorReshape layer{file.words(10)};
  size_t count = 0;
  while (count < layer.new_shape.size() && layer.new_shape[count] != 0) ++count;
  layer.new_shape.resize(count);
  return layer;
}

TensorTranspose read_transpose(File& file) {
  const uint16_t count = file.word();
  TensorTranspose layer{file.words(10)};
  require(count <= layer.axes.size());
  layer.axes.resize(count);
  return layer;
}

FullConnection read_full_connection(File& file) {
  FullConnection layer;
  layer.in_features = file.word();
  layer.out_features = file.word();
  layer.has_bias = file.word() > 0;
  file.skip(2 * kDescriptionBytes);
  require(layer.in_features != 0 && layer.out_features != 0);
  layer.weights = file.halves(uint64_t{layer.in_features} * layer.out_features);
  layer.biases = file.halves(layer.out_features);
  return layer;
}

std::vector<LSTMWeights> read_direction(File& file, const LSTM& layer) {
  std::vector<LSTMWeights> direction;
  const uint64_t hidden = layer.hidden_size;
  const uint64_t gates = 4 * hidden;
  const uint64_t between = layer.complex_rnn_type == 0 && layer.bidirectional ? 2 * hidden : hidden;
  for (uint32_t l = 0; l < layer.num_layers; ++l) {
    LSTMWeights& weights = direction.emplace_back();
    weights.weight_ih = file.halves(gates * (l == 0 ? layer.in_size : between));
    weights.weight_hh = file.halves(gates * hidden);
    if (!layer.has_bias) continue;
    weights.bias_ih = file.halves(gates);
    weights.bias_hh = file.halves(gates);
  }
  return direction;
}

LSTM read_lstm(File& file) {
  LSTM layer;
  layer.in_size = file.word();
  layer.hidden_size = file.word();
  layer.num_layers = file.word();
  layer.has_bias = file.word() > 0;
  layer.bidirectional = file.word() > 0;
  layer.complex_rnn_type = file.word();
  file.skip(2 * kDescriptionBytes);
  require(layer.in_size != 0 && layer.hidden_size != 0 && layer.num_layers != 0);
  layer.forward = read_direction(file, layer);
  if (layer.bidirectional) layer.reverse = read_direction(file, layer);
  return layer;
}

// Layers over pictures. @return false for another code
bool read_picture_layer(File& file, Record& record, bool first_version) {
  switch (record.code) {
    case kInput:
      record.id = file.word();
      record.output = read_shape(file);
      record.body = Input{file.word()};
      return true;
    case kConv2D:
    case kConv2DTranspose:
    case kDepthWiseConv2D:
      read_one_input_and_shapes(file, record);
      record.body = read_convolution(file, record, first_version);
      return true;
    case kPixelShuffle:
      read_one_input_and_shapes(file, record);
      record.body = PixelShuffle{file.word()};
      return true;
    case kPooling:
      read_one_input_and_shapes(file, record);
      record.body = read_pooling(file);
      return true;
    case kBatchNormalization:
      read_one_input_and_shapes(file, record);
      record.body = read_batch_normalization(file, record.input.channels);
      return true;
    case kActivation:
      read_one_input_and_shapes(file, record);
      record.body = read_activation(file);
      return true;
    case kUpsampling:
      read_one_input_and_shapes(file, record);
      record.body = read_upsampling(file);
      return true;
    case kElementWiseOperator:
      read_many_inputs(file, record);
      record.output = read_shape(file);
      record.body = ElementWiseOperator{file.word(), file.word()};
      return true;
    case kConcatenate:
      read_many_inputs(file, record);
      for (size_t i = 0; i < kInputSlots; ++i) read_shape(file);
      record.output = read_shape(file);
      record.body = Concatenate{file.word()};
      return true;
    default:
      return false;
  }
}

// Layers over tensors of any shape. @return false for another code
bool read_tensor_layer(File& file, Record& record) {
  switch (record.code) {
    case kTensorInput:
      read_one_input(file, record);
      record.inputs.clear();  // of a layer that reads none
      record.body = Input{file.word()};
      file.skip(kDescriptionBytes);
      return true;
    case kTensorReshape:
      read_one_input(file, record);
      file.skip(2 * kDescriptionBytes);
      record.body = read_reshape(file);
      return true;
    case kTensorTranspose:
      read_one_input(file, record);
      file.skip(2 * kDescriptionBytes);
      record.body = read_transpose(file);
      return true;
    case kTensorSqueeze:
      read_one_input(file, record);
      record.body = TensorSqueeze{file.word()};
      file.skip(2 * kDescriptionBytes);
      return true;
    case kFullConnection:
      read_one_input(file, record);
      record.body = read_full_connection(file);
      return true;
    case kLSTM:
      read_one_input(file, record);
      record.body = read_lstm(file);
      return true;
    case kTensorActivation:
      read_one_input(file, record);
      file.skip(kDescriptionBytes);
      record.body = read_activation(file);
      return true;
    default:
      return false;
  }
}

bool is_refused(uint16_t code) {
  return code == kInstanceNormalization || code == kRegion || code == kChannelShuffle ||
         code == kDepthWiseConv2DTranspose;
}

void report_unknown(uint16_t code) { std::printf("\n\n\nError, Unsupport Layer Type %d.\n", code); }

std::vector<Record> read_records(File& file, uint32_t version) {
  std::vector<Record> records;
  int unknown = 0;
  uint16_t ignored = 0;
  file.next_word(&ignored);
  for (uint16_t code = 0; file.next_word(&code); file.next_word(&ignored)) {
    Record record;
    record.code = code;
    record.body = Refused();
    if (read_picture_layer(file, record, version == kFirstVersion) ||
        read_tensor_layer(file, record)) {
      records.push_back(std::move(record));
    } else if (is_refused(code)) {
      // How long such a record is doesn't matter: the network can't be translated.
      records.push_back(std::move(record));
      break;
    } else {
      report_unknown(code);
      require(++unknown <= kMostUnknownCodes);
    }
  }
  return records;
}

// Ids are unique, and each input is one of them. A reading that ended at a refused layer says
// nothing of what follows.
bool is_connected(const std::vector<Record>& records) {
  if (!records.empty() && std::holds_alternative<Refused>(records.back().body)) return true;
  std::set<uint16_t> ids;
  for (const Record& record : records) {
    if (!ids.insert(record.id).second) return false;
  }
  for (const Record& record : records) {
    for (const uint16_t input : record.inputs) {
      if (ids.count(input) == 0) return false;
    }
  }
  return true;
}

}  // namespace

bool read_network(const char* path, Network* network) {
  try {
    File file(path);
    network->header = read_header(file);
    network->records.clear();
    if (network->header.version < kFirstVersion) return true;
    network->records = read_records(file, network->header.version);
    return is_connected(network->records);
  } catch (const BadFile&) {
    return false;
  }
}

}  // namespace marlo1
