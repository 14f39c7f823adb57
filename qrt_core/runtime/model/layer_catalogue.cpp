#include "qrt_core/runtime/model/layer_catalogue.h"

#include <array>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

struct Entry {
  uint16_t code;
  std::shared_ptr<LayerInfo> (*make)();
};

template <typename Info>
std::shared_ptr<LayerInfo> make() {
  return std::make_shared<Info>();
}

constexpr Entry kEntries[] = {
    {kInputLayerType, make<InputInfo>},
    {1, make<ActivationInfo>},
    {2, make<Conv2dInfo>},
    {3, make<ConvTranspose2dInfo>},
    {6, make<AvgPool2dInfo>},
    {7, make<MaxPool2dInfo>},
    {8, make<InstanceNorm2dInfo>},
    {9, make<BatchNorm2dInfo>},
    {10, make<Upsample2dInfo>},
    {11, make<ElementWiseOperatorInfo>},
    {12, make<ConcatenateInfo>},
    {13, make<TensorReshapeInfo>},
    {14, make<TensorTransposeInfo>},
    {15, make<TensorSqueezeInfo>},
    {16, make<TensorUnSqueezeInfo>},
    {17, make<FullConnectionInfo>},
    {21, make<PixelShuffleInfo>},
    {22, make<TensorGetItemInfo>},
    {26, make<AdaptiveAvgPool2dInfo>},
    {29, make<BroadcastOperatorInfo>},
    {30, make<BatchNorm1dInfo>},
    {31, make<ClipInfo>},
    {32, make<SoftmaxInfo>},
    {33, make<RNNCellInfo>},
    {34, make<RNNInfo>},
    {35, make<LSTMCellInfo>},
    {36, make<LSTMInfo>},
    {37, make<GRUCellInfo>},
    {38, make<GRUInfo>},
    {40, make<Conv1dInfo>},
    {41, make<TensorExpandInfo>},
    {44, make<GridSampleInfo>},
    {45, make<TensorArithmeticInfo>},
    {46, make<TensorSliceInfo>},
    {252, make<LayerPlaceholderInfo>},
};

struct Name {
  uint16_t code;
  const char* text;
};

constexpr Name kNames[] = {
    {kInputLayerType, "Input"},
    {1, "Activation"},
    {2, "Conv2d"},
    {3, "ConvTranspose2d"},
    {6, "AvgPool2d"},
    {7, "MaxPool2d"},
    {8, "InstanceNorm2d"},
    {9, "BatchNorm2d"},
    {10, "Upsample2d"},
    {11, "ElementWiseOperator"},
    {12, "Concatenate"},
    {13, "TensorReshape"},
    {14, "TensorTranspose"},
    {15, "TensorSqueeze"},
    {16, "TensorUnSqueeze"},
    {17, "FullConnection"},
    {21, "PixelShuffle"},
    {22, "TensorGetItem"},
    {29, "Blob"},
    {36, "LSTM"},
    {46, "TensorSlice"},
    {254, "Blob"},
};

template <size_t count>
const char* word_of(const std::array<const char*, count>& words, uint16_t number,
                    const char* failure) {
  Assert(number < count, "%s", failure);
  return words[number];
}

constexpr std::array<const char*, 3> kSamplingWords = {"Nearest", "Bilinear", "Bicubic"};

}  // namespace

std::shared_ptr<LayerInfo> MakeLayerInfo(uint16_t code) {
  for (const Entry& entry : kEntries) {
    if (entry.code == code) return entry.make();
  }
  Assert(false, "Unsupported Layer Type [%u].", code);
  return nullptr;
}

const char* LayerTypeName(uint16_t code) {
  for (const Name& name : kNames) {
    if (name.code == code) return name.text;
  }
  return "UnKnown";
}

const char* ElementWiseWord(uint16_t op_type) {
  return word_of(std::array{"Add", "Sub", "Mul", "Div"}, op_type, "Invalid element wise type");
}

const char* UpsampleWord(uint16_t unsample_type) {
  return word_of(kSamplingWords, unsample_type, "Invalid upsample2d type");
}

const char* GridSampleWord(uint16_t mode) {
  return word_of(kSamplingWords, mode, "Invalid gridsample mode");
}

const char* GridSamplePaddingWord(uint16_t padding_mode) {
  return word_of(std::array{"Zeros", "Border", "Reflection"}, padding_mode,
                 "Invalid gridsample padding_mode");
}

const char* ArithmeticWord(uint16_t arith_type) {
  return word_of(std::array{"Sum", "Mean"}, arith_type, "Invalid arithmetic type");
}

}  // namespace marlo::runtime
