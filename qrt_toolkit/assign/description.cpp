#include "qrt_toolkit/assign/description.h"

#include <string_view>
#include <type_traits>
#include <typeinfo>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/weight_blob.h"

namespace marlo::toolkit {
namespace {

using runtime::LayerInfo;
using runtime::Serializable;
using runtime::Visitor;

/// Writes attributes as text.
class KeyWriter final : public Visitor,
                        public runtime::WeightsAsText,
                        public std::enable_shared_from_this<KeyWriter> {
 public:
#define QRT_WRITE(type) \
  void Visit(type* value, const char* key) override { write(*value, key); }
  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_WRITE)
#undef QRT_WRITE

  std::string text;

 private:
  // A weight of more characters counts by its length.
  static constexpr size_t kLongest = 256;

  template <typename T>
  void write(T& value, const char* key) {
    const std::string_view name = key == nullptr ? "" : key;
    if (name == "id" || name == "input_ids" || name == "read_count") return;
    text += name;
    text += '=';
    put(value);
    text += ';';
  }

  void put(Serializable& value) { value.VisitAttr(shared_from_this()); }
  void put(const std::string& value) {
    text += value.size() > kLongest ? "#" + std::to_string(value.size()) : value;
  }
  void put(half_float::half value) { text += std::to_string(static_cast<float>(value)); }
  template <typename T>
  void put(const std::vector<T>& values) {
    text += '[';
    for (const T& value : values) {
      put(value);
      text += ',';
    }
    text += ']';
  }
  template <typename T>
  requires std::is_arithmetic_v<T>
  void put(T value) { text += std::to_string(value); }
};

template <typename... Class>
std::shared_ptr<LayerInfo> copy_as(const LayerInfo& info) {
  std::shared_ptr<LayerInfo> copy;
  const auto try_one = [&]<typename T>(const T* layer) {
    if (layer != nullptr && typeid(*layer) == typeid(T)) copy = std::make_shared<T>(*layer);
  };
  (try_one(dynamic_cast<const Class*>(&info)), ...);
  return copy;
}

}  // namespace

std::string key_of(LayerInfo& info) {
  const auto writer = std::make_shared<KeyWriter>();
  // A walk gives an object its class's name; one that only looks leaves the name that was read.
  const std::string name = info.serializable_type;
  writer->text = std::string(typeid(info).name()) + ' ' + std::to_string(info.type) + ' ';
  info.VisitAttr(writer);
  info.serializable_type = name;
  return writer->text;
}

std::shared_ptr<LayerInfo> copy_of(const LayerInfo& info) {
  using namespace runtime;
  return copy_as<InputInfo, LayerPlaceholderInfo, Conv2dInfo, ConvTranspose2dInfo, Conv1dInfo,
                 FullConnectionInfo, ActivationInfo, ElementWiseOperatorInfo, BroadcastOperatorInfo,
                 ClipInfo, SoftmaxInfo, TensorArithmeticInfo, InstanceNorm2dInfo, BatchNormInfo,
                 BatchNorm2dInfo, AvgPool2dInfo, MaxPool2dInfo, AdaptiveAvgPool2dInfo,
                 Upsample2dInfo, ConcatenateInfo, TensorReshapeInfo, TensorTransposeInfo,
                 TensorSqueezeInfo, TensorUnSqueezeInfo, PixelShuffleInfo, TensorExpandInfo,
                 GridSampleInfo, TensorSliceInfo, TensorGetItemInfo, LSTMInfo, GRUInfo, RNNInfo,
                 ElementFunctionInfo, BinaryFunctionInfo, LayerNormInfo, GroupNormInfo,
                 AxisSoftmaxInfo, MatMulInfo, DenseInfo, AxisReductionInfo, PadInfo, GatherInfo,
                 EmbeddingInfo, BroadcastToInfo, ConstantInfo, ResizeInfo, StridedSliceInfo,
                 ReshapeToInfo, RNNStatesInfo, LSTMStatesInfo, GRUStatesInfo, ResizeLikeInfo>(info);
}

uint64_t weight_count(LayerInfo& info) {
  constexpr uint64_t kCharacters = 4;  // of three bytes
  uint64_t bytes = 0;
  for (const runtime::LayerWeight& weight : runtime::WeightsOf(info)) {
    bytes += weight.blob->size() / kCharacters * 3;
  }
  return bytes / sizeof(float);
}

}  // namespace marlo::toolkit
