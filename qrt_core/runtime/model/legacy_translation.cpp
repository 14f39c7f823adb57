#include <cmath>
#include <map>
#include <string>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/legacy_records_internal.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

constexpr char kNotImplemented[] = "Not Implemented.";

std::string name_of(uint16_t id) { return "layer-" + std::to_string(id); }

WeightBlob blob_of(const std::vector<float>& values) {
  return MakeWeightBlob(values.data(), values.size());
}

/// The activation of an old code; 0 is none.
uint16_t activation_type_of(uint16_t code) {
  constexpr int kRefused = -1;
  constexpr int kTypes[] = {0, 1, 2, 5, 6, 7, 4, kRefused, 3};
  const int type = code < std::size(kTypes) ? kTypes[code] : kRefused;
  Assert(type != kRefused, kNotImplemented);
  return static_cast<uint16_t>(type);
}

std::shared_ptr<ActivationInfo> activation_of(uint16_t code) {
  constexpr uint16_t kLeaky = 4;
  auto info = std::make_shared<ActivationInfo>();
  info->activation_type = activation_type_of(code);
  info->activation_alpha = half_float::half(info->activation_type == kLeaky ? 0.01f : 1.0f);
  info->activation_beta = half_float::half(0.0f);
  return info;
}

// Old weights have the input channels innermost, today's the columns.
std::vector<float> with_channels_outside(const marlo1::Convolution& layer, uint32_t ins,
                                         uint32_t outs) {
  const size_t in_group = ins / layer.groups;
  const size_t pixels = size_t{layer.kernel_y} * layer.kernel_x;
  std::vector<float> weights(layer.weights.size());
  const float* source = layer.weights.data();
  for (size_t out = 0; out < outs; ++out) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      for (size_t in = 0; in < in_group; ++in) {
        weights[(out * in_group + in) * pixels + pixel] = *source++;
      }
    }
  }
  return weights;
}

template <typename Info>
std::shared_ptr<Info> convolution_of(const marlo1::Record& record,
                                     const marlo1::Convolution& layer) {
  using Padding = decltype(Info::padding_l);
  auto info = std::make_shared<Info>();
  info->in_channels = record.input.channels;
  info->out_channels = record.output.channels;
  info->kernel_x = layer.kernel_x;
  info->kernel_y = layer.kernel_y;
  info->padding_l = info->padding_r = static_cast<Padding>(layer.padding_x);
  info->padding_t = info->padding_b = static_cast<Padding>(layer.padding_y);
  info->stride_x = layer.stride_x;
  info->stride_y = layer.stride_y;
  info->dilation_x = layer.dilation_x;
  info->dilation_y = layer.dilation_y;
  info->groups = layer.groups;
  info->if_bias = layer.has_bias;
  info->weight = blob_of(with_channels_outside(layer, info->in_channels, info->out_channels));
  if (layer.has_bias) info->bias = blob_of(layer.biases);
  return info;
}

/// Makes the description of a record, one overload for each body.
class Translator {
 public:
  using Result = std::shared_ptr<LayerInfo>;

  Translator(const marlo1::Header& header, const marlo1::Record& record)
      : header_(header), record_(record) {}

  Result operator()(const marlo1::Input& layer) const {
    auto info = std::make_shared<InputInfo>();
    info->location = layer.location;
    return info;
  }

  Result operator()(const marlo1::Convolution& layer) const {
    if (record_.code == marlo1::kConv2DTranspose) {
      return convolution_of<ConvTranspose2dInfo>(record_, layer);
    }
    const bool depthwise = record_.code == marlo1::kDepthWiseConv2D;
    Assert(!depthwise || record_.input.channels == record_.output.channels, nullptr);
    return convolution_of<Conv2dInfo>(record_, layer);
  }

  Result operator()(const marlo1::PixelShuffle& layer) const {
    auto info = std::make_shared<PixelShuffleInfo>();
    info->upscale_factor = layer.factor;
    return info;
  }

  Result operator()(const marlo1::Pooling& layer) const {
    constexpr uint16_t kAverage = 0;
    constexpr uint16_t kMaximum = 1;
    if (layer.kind == kMaximum) {
      auto info = pooling_of<MaxPool2dInfo>(layer);
      info->dilation_x = info->dilation_y = 1;
      return info;
    }
    Assert(layer.kind == kAverage, kNotImplemented);
    auto info = pooling_of<AvgPool2dInfo>(layer);
    info->count_include_pad = true;
    return info;
  }

  Result operator()(const marlo1::BatchNormalization& layer) const {
    auto info = std::make_shared<BatchNorm2dInfo>();
    info->num_features = record_.input.channels;
    info->scale = blob_of(layer.scale);
    info->shift = blob_of(layer.shift);
    info->variance = blob_of(layer.variance);
    info->mean = blob_of(layer.mean);
    return info;
  }

  Result operator()(const marlo1::Activation& layer) const {
    auto info = activation_of(layer.code);
    info->activation_alpha = half_float::half(layer.alpha);
    info->activation_beta = half_float::half(layer.beta);
    return info;
  }

  Result operator()(const marlo1::ElementWiseOperator& layer) const {
    constexpr uint16_t kLastOperation = 3;
    Assert(layer.operation <= kLastOperation, kNotImplemented);
    auto info = std::make_shared<ElementWiseOperatorInfo>();
    info->op_type = layer.operation;
    return info;
  }

  Result operator()(const marlo1::Concatenate& layer) const {
    constexpr uint16_t kLastAxis = 2;
    Assert(layer.axis <= kLastAxis, kNotImplemented);
    auto info = std::make_shared<ConcatenateInfo>();
    info->dim = static_cast<uint16_t>(layer.axis + 1);
    return info;
  }

  Result operator()(const marlo1::Upsampling& layer) const {
    constexpr uint16_t kLastKind = 2;
    Assert(layer.kind <= kLastKind, kNotImplemented);
    auto info = std::make_shared<Upsample2dInfo>();
    info->scale_factor_x = layer.scale_x;
    info->scale_factor_y = layer.scale_y;
    info->align_corner = layer.align_corner;
    info->unsample_type = layer.kind;
    return info;
  }

  Result operator()(const marlo1::TensorReshape& layer) const {
    auto info = std::make_shared<TensorReshapeInfo>();
    for (const uint16_t size : layer.new_shape) {
      info->new_shape.push_back(static_cast<int16_t>(size));
    }
    return info;
  }

  Result operator()(const marlo1::TensorTranspose& layer) const {
    auto info = std::make_shared<TensorTransposeInfo>();
    info->axes = layer.axes;
    return info;
  }

  Result operator()(const marlo1::TensorSqueeze& layer) const {
    auto info = std::make_shared<TensorSqueezeInfo>();
    info->dim = static_cast<int16_t>(layer.axis);
    return info;
  }

  Result operator()(const marlo1::FullConnection& layer) const {
    auto info = std::make_shared<FullConnectionInfo>();
    info->in_features = layer.in_features;
    info->out_features = layer.out_features;
    info->if_bias = layer.has_bias;
    info->weight = blob_of(layer.weights);
    if (layer.has_bias) info->bias = blob_of(layer.biases);
    return info;
  }

  Result operator()(const marlo1::LSTM& layer) const {
    auto info = std::make_shared<LSTMInfo>();
    info->in_size = layer.in_size;
    info->hidden_size = layer.hidden_size;
    info->num_layers = layer.num_layers;
    info->if_bias = layer.has_bias;
    info->bidirectional = layer.bidirectional;
    info->complex_rnn_type = layer.complex_rnn_type;
    for (const marlo1::LSTMWeights& weights : layer.forward) {
      info->weight_ih_forward.push_back(blob_of(weights.weight_ih));
      info->weight_hh_forward.push_back(blob_of(weights.weight_hh));
      info->bias_ih_forward.push_back(blob_of(weights.bias_ih));
      info->bias_hh_forward.push_back(blob_of(weights.bias_hh));
    }
    for (const marlo1::LSTMWeights& weights : layer.reverse) {
      info->weight_ih_reverse.push_back(blob_of(weights.weight_ih));
      info->weight_hh_reverse.push_back(blob_of(weights.weight_hh));
      info->bias_ih_reverse.push_back(blob_of(weights.bias_ih));
      info->bias_hh_reverse.push_back(blob_of(weights.bias_hh));
    }
    return info;
  }

  Result operator()(const marlo1::Refused&) const {
    Assert(false, kNotImplemented);
    return nullptr;
  }

 private:
  template <typename Info>
  std::shared_ptr<Info> pooling_of(const marlo1::Pooling& layer) const {
    auto info = std::make_shared<Info>();
    info->kernel_x = layer.kernel_x;
    info->kernel_y = layer.kernel_y;
    info->stride_x = layer.stride_x;
    info->stride_y = layer.stride_y;
    info->padding_l = info->padding_r = static_cast<int16_t>(layer.padding_x);
    info->padding_t = info->padding_b = static_cast<int16_t>(layer.padding_y);
    info->ceil_mode = rounds_up(layer, info->padding_t);
    return info;
  }

  // Old files don't hold the rounding, only the heights on both sides.
  bool rounds_up(const marlo1::Pooling& layer, int16_t padding) const {
    const auto base = static_cast<float>(header_.model_base_h);
    const float before = std::round(record_.input.height * base);
    const float after = std::round(record_.output.height * base);
    const float steps =
        (2.0f * static_cast<float>(padding) - static_cast<float>(layer.kernel_y) + before) /
        static_cast<float>(layer.stride_y);
    return after == std::ceil(steps) + 1.0f;
  }

  const marlo1::Header& header_;
  const marlo1::Record& record_;
};

/// The code of the activation that a record carries beside its operation, 0 for none.
uint16_t fused_activation(const marlo1::Record& record) {
  if (const auto* layer = std::get_if<marlo1::Convolution>(&record.body)) return layer->activation;
  if (const auto* layer = std::get_if<marlo1::ElementWiseOperator>(&record.body)) {
    return layer->activation;
  }
  return 0;
}

/// Puts a layer behind those that the network has.
void append(QRModelInfo& network, std::shared_ptr<LayerInfo> info, std::string id,
            std::vector<std::string> input_ids, uint16_t read_count) {
  info->id = id;
  info->input_ids = std::move(input_ids);
  info->read_count = read_count;
  network.squential_ids.push_back(id);
  network.squential_types.push_back(info->type);
  network.layers[std::move(id)] = std::move(info);
}

NetExtraInfo extra_info_of(const marlo1::Header& header) {
  NetExtraInfo info;
  info.app_type = header.app_type;
  info.model_id = header.model_id;
  info.model_base_w = header.model_base_w;
  info.model_base_h = header.model_base_h;
  // All imports carry the day on which the format ended.
  info.time.year = 2019;
  info.time.moon = 5;
  info.time.day = 28;
  info.device = "cpu";
  return info;
}

QRModelInfo translated(const marlo1::Network& source) {
  QRModelInfo network;
  network.extra_info = extra_info_of(source.header);
  std::map<uint16_t, uint16_t> read_counts;
  for (const marlo1::Record& record : source.records) {
    for (const uint16_t input : record.inputs) ++read_counts[input];
  }
  for (const marlo1::Record& record : source.records) {
    const std::string id = name_of(record.id);
    const uint16_t read_count = read_counts[record.id];
    std::vector<std::string> input_ids;
    for (const uint16_t input : record.inputs) input_ids.push_back(name_of(input));
    if (read_count == 0) network.squential_output_ids.push_back(id);

    auto info = std::visit(Translator(source.header, record), record.body);
    const uint16_t fused = fused_activation(record);
    if (fused == 0) {
      append(network, std::move(info), id, std::move(input_ids), read_count);
    } else {
      // The activation takes the old id, so that consumers need no change.
      append(network, std::move(info), id + "!", std::move(input_ids), 1);
      append(network, activation_of(fused), id, {id + "!"}, read_count);
    }
  }
  return network;
}

}  // namespace

void QRModelInfo::LoadFromQRModel1(const char* path) {
  marlo1::Network source;
  const bool result = marlo1::read_network(path, &source);
  Assert(result, "Loading qrmdel1 fail.");
  *this = translated(source);
}

}  // namespace marlo::runtime
