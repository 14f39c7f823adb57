#include "qrt_core/runtime/model/layer_catalogue.h"

#include <array>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/utility/build_options.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

struct Entry {
  uint16_t code;
  std::shared_ptr<LayerInfo> (*make)();
  bool (*is_made_of)(const LayerInfo& layer);
};

template <typename Info>
constexpr Entry entry(uint16_t code) {
  return {code, []() -> std::shared_ptr<LayerInfo> { return std::make_shared<Info>(); },
          [](const LayerInfo& layer) { return dynamic_cast<const Info*>(&layer) != nullptr; }};
}

constexpr Entry kEntries[] = {
    entry<InputInfo>(kInputLayerType),
    entry<ActivationInfo>(1),
    entry<Conv2dInfo>(2),
    entry<ConvTranspose2dInfo>(3),
    entry<AvgPool2dInfo>(6),
    entry<MaxPool2dInfo>(7),
    entry<InstanceNorm2dInfo>(8),
    entry<BatchNorm2dInfo>(9),
    entry<Upsample2dInfo>(10),
    entry<ElementWiseOperatorInfo>(11),
    entry<ConcatenateInfo>(12),
    entry<TensorReshapeInfo>(13),
    entry<TensorTransposeInfo>(14),
    entry<TensorSqueezeInfo>(15),
    entry<TensorUnSqueezeInfo>(16),
    entry<FullConnectionInfo>(17),
    entry<PixelShuffleInfo>(21),
    entry<TensorGetItemInfo>(22),
    entry<AdaptiveAvgPool2dInfo>(26),
    entry<BroadcastOperatorInfo>(29),
    entry<BatchNorm1dInfo>(30),
    entry<ClipInfo>(31),
    entry<SoftmaxInfo>(32),
    entry<RNNCellInfo>(33),
    entry<RNNInfo>(34),
    entry<LSTMCellInfo>(35),
    entry<LSTMInfo>(36),
    entry<GRUCellInfo>(37),
    entry<GRUInfo>(38),
    entry<Conv1dInfo>(40),
    entry<TensorExpandInfo>(41),
    entry<GridSampleInfo>(44),
    entry<TensorArithmeticInfo>(45),
    entry<TensorSliceInfo>(46),
    entry<LayerPlaceholderInfo>(252),
#if QRT_WITH_EXTENSIONS
    entry<ElementFunctionInfo>(1000),
    entry<BinaryFunctionInfo>(1001),
    entry<LayerNormInfo>(1002),
    entry<GroupNormInfo>(1003),
    entry<AxisSoftmaxInfo>(1004),
    entry<MatMulInfo>(1005),
    entry<DenseInfo>(1006),
    entry<AxisReductionInfo>(1007),
    entry<PadInfo>(1008),
    entry<GatherInfo>(1009),
    entry<EmbeddingInfo>(1010),
    entry<BroadcastToInfo>(1011),
    entry<ConstantInfo>(1012),
    entry<ResizeInfo>(1013),
    entry<StridedSliceInfo>(1014),
    entry<ReshapeToInfo>(1015),
    entry<RNNStatesInfo>(1016),
    entry<LSTMStatesInfo>(1017),
    entry<GRUStatesInfo>(1018),
    entry<ResizeLikeInfo>(1019),
#endif
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
    {1000, "ElementFunction"},
    {1001, "BinaryFunction"},
    {1002, "LayerNorm"},
    {1003, "GroupNorm"},
    {1004, "AxisSoftmax"},
    {1005, "MatMul"},
    {1006, "Dense"},
    {1007, "AxisReduction"},
    {1008, "Pad"},
    {1009, "Gather"},
    {1010, "Embedding"},
    {1011, "BroadcastTo"},
    {1012, "Constant"},
    {1013, "Resize"},
    {1014, "StridedSlice"},
    {1015, "ReshapeTo"},
    {1016, "RNNStates"},
    {1017, "LSTMStates"},
    {1018, "GRUStates"},
    {1019, "ResizeLike"},
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
  for (const Entry& known : kEntries) {
    if (known.code == code) return known.make();
  }
  Assert(code < kFirstExtensionLayerType || QRT_WITH_EXTENSIONS,
         "Layer type %u is one of the second set, which this build leaves out: "
         "build with -DQRT_WITH_EXTENSIONS=ON",
         code);
  Assert(false, "Unsupported Layer Type [%u].", code);
  return nullptr;
}

bool IsLayerOfType(const LayerInfo& layer, uint16_t code) {
  for (const Entry& known : kEntries) {
    if (known.code == code) return known.is_made_of(layer);
  }
  return false;
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
