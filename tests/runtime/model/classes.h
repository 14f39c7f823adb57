#pragma once

#include <map>
#include <memory>
#include <string>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/tensor/tensor_shape.h"

namespace marlo::test {

/// A fresh object of a class of tests/data/attributes.txt.
inline std::shared_ptr<runtime::Serializable> make_object(const std::string& name) {
  using namespace runtime;
  using Make = std::shared_ptr<Serializable> (*)();
#define QRT_TEST_CLASS(type)                                                            \
  {                                                                                     \
#type, []() -> std::shared_ptr < Serializable> { return std::make_shared<type>(); } \
  }
  static const std::map<std::string, Make> classes = {
      QRT_TEST_CLASS(Serializable),
      QRT_TEST_CLASS(TimeInfo),
      QRT_TEST_CLASS(NetExtraInfo),
      QRT_TEST_CLASS(QRModelInfo),
      QRT_TEST_CLASS(QRModelInfoArr),
      QRT_TEST_CLASS(QRTModel),
      QRT_TEST_CLASS(LayerInfo),
      QRT_TEST_CLASS(InputInfo),
      QRT_TEST_CLASS(ActivationInfo),
      QRT_TEST_CLASS(Conv2dInfo),
      QRT_TEST_CLASS(ConvTranspose2dInfo),
      QRT_TEST_CLASS(AvgPool2dInfo),
      QRT_TEST_CLASS(MaxPool2dInfo),
      QRT_TEST_CLASS(InstanceNorm2dInfo),
      QRT_TEST_CLASS(BatchNorm2dInfo),
      QRT_TEST_CLASS(Upsample2dInfo),
      QRT_TEST_CLASS(ElementWiseOperatorInfo),
      QRT_TEST_CLASS(ConcatenateInfo),
      QRT_TEST_CLASS(TensorReshapeInfo),
      QRT_TEST_CLASS(TensorTransposeInfo),
      QRT_TEST_CLASS(TensorSqueezeInfo),
      QRT_TEST_CLASS(TensorUnSqueezeInfo),
      QRT_TEST_CLASS(FullConnectionInfo),
      QRT_TEST_CLASS(PixelShuffleInfo),
      QRT_TEST_CLASS(TensorGetItemInfo),
      QRT_TEST_CLASS(TensorDimemsionSamplingInfo),
      QRT_TEST_CLASS(AdaptiveAvgPool2dInfo),
      QRT_TEST_CLASS(BroadcastOperatorInfo),
      QRT_TEST_CLASS(BatchNorm1dInfo),
      QRT_TEST_CLASS(ClipInfo),
      QRT_TEST_CLASS(SoftmaxInfo),
      QRT_TEST_CLASS(RNNCellInfo),
      QRT_TEST_CLASS(RNNInfo),
      QRT_TEST_CLASS(LSTMCellInfo),
      QRT_TEST_CLASS(LSTMInfo),
      QRT_TEST_CLASS(GRUCellInfo),
      QRT_TEST_CLASS(GRUInfo),
      QRT_TEST_CLASS(Conv1dInfo),
      QRT_TEST_CLASS(TensorExpandInfo),
      QRT_TEST_CLASS(GridSampleInfo),
      QRT_TEST_CLASS(TensorArithmeticInfo),
      QRT_TEST_CLASS(TensorSliceInfo),
      QRT_TEST_CLASS(LayerPlaceholderInfo),
      QRT_TEST_CLASS(ElementFunctionInfo),
      QRT_TEST_CLASS(BinaryFunctionInfo),
      QRT_TEST_CLASS(LayerNormInfo),
      QRT_TEST_CLASS(GroupNormInfo),
      QRT_TEST_CLASS(AxisSoftmaxInfo),
      QRT_TEST_CLASS(MatMulInfo),
      QRT_TEST_CLASS(DenseInfo),
      QRT_TEST_CLASS(AxisReductionInfo),
      QRT_TEST_CLASS(PadInfo),
      QRT_TEST_CLASS(GatherInfo),
      QRT_TEST_CLASS(EmbeddingInfo),
      QRT_TEST_CLASS(BroadcastToInfo),
      QRT_TEST_CLASS(ConstantInfo),
      QRT_TEST_CLASS(ResizeInfo),
      QRT_TEST_CLASS(StridedSliceInfo),
      QRT_TEST_CLASS(ReshapeToInfo),
      QRT_TEST_CLASS(RNNStatesInfo),
      QRT_TEST_CLASS(LSTMStatesInfo),
      QRT_TEST_CLASS(GRUStatesInfo),
      QRT_TEST_CLASS(ResizeLikeInfo),
      QRT_TEST_CLASS(QRModelMultiBackendCfgsArr),
      QRT_TEST_CLASS(QRModelMultiBackendCfgs),
      QRT_TEST_CLASS(QRModelCfg),
      QRT_TEST_CLASS(LayerCfg),
      QRT_TEST_CLASS(KernelCfgArr),
      QRT_TEST_CLASS(KernelCfg),
      QRT_TEST_CLASS(InferenceParam),
      QRT_TEST_CLASS(TensorShape),
      QRT_TEST_CLASS(TensorShape::Extra),
  };
#undef QRT_TEST_CLASS
  const auto found = classes.find(name);
  return found != classes.end() ? found->second() : CreateInferenceParam(name.c_str());
}

}  // namespace marlo::test
