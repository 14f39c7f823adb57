#include "tools/qrt/kernel_candidates.h"

#include "tools/qrt/layer_facts.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::ActivationInfo;
using marlo::runtime::ConcatenateInfo;
using marlo::runtime::Conv2dInfo;
using marlo::runtime::ConvTranspose2dInfo;
using marlo::runtime::LayerInfo;
using marlo::runtime::TensorReshapeInfo;

namespace {

constexpr char kPortableConvolution[] = "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
constexpr char kSseConvolution[] = "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1";

Candidates none(const std::string& why) { return {{}, why}; }

Candidates choice(OldKernelSet set, std::vector<std::string> sse, const std::string& portable) {
  if (set == OldKernelSet::portable) sse.clear();
  sse.push_back(portable);
  return {std::move(sse), ""};
}

// Fast sigmoids and hyperbolic tangents are approximations, so they need a rule.
Candidates for_activation(const ActivationInfo& layer, OldKernelSet set) {
  switch (layer.activation_type) {
    case 0:
      return choice(set, {}, "Straight_Through_Fallback_M1");
    case 2:
      return choice(set, {"ReLU_SSE_Float_M1"}, "ReLU_Fallback_Float_M1");
    case 4:
      return choice(set, {"Leaky_SSE_Float_M1"}, "Leaky_Fallback_Float_M1");
    case 5:
      return choice(set, {}, "TanH_Fallback_Float_M1");
    default:
      break;
  }
  const std::string type = std::to_string(layer.activation_type);
  return none("files don't say which function an activation of type " + type +
              " is; expected a rule such as \"Activation " + type +
              " = Sigmoid_Fallback_Float_M1\" in the file of --config");
}

Candidates for_concatenation(const ConcatenateInfo& layer, OldKernelSet set) {
  constexpr uint16_t kChannels = 1;
  if (layer.dim == kChannels) return choice(set, {}, "Concatenate_C_Fallback_CnHWn_M1");
  if (layer.input_ids.size() < 2) {
    return none("it joins 1 input; expected at least 2 along rows or columns");
  }
  return choice(set, {}, "Concatenate_MainMemory_Fallback");
}

// By the number of sizes; the first counts a batch.
Candidates for_reshape(const TensorReshapeInfo& layer, OldKernelSet set) {
  const std::vector<int16_t>& sizes = layer.new_shape;
  if (sizes.size() < 2) {
    return none("it has " + counted(sizes.size(), "size") +
                "; expected at least 2, of which the first counts a batch");
  }
  if (sizes.size() == 2) return choice(set, {}, "Reshape_Fallback_To_C_M1");
  if (sizes.size() == 3 && sizes[0] == 1) return choice(set, {}, "Reshape_Fallback_To_SC_M1");
  if (sizes.size() == 4) return choice(set, {}, "Reshape_Fallback_To_CHW_M1");
  return choice(set, {}, "Transform_MainMemory_Reshape_Fallback");
}

Candidates for_operator(const LayerInfo& layer, OldKernelSet set) {
  if (layer.input_ids.size() != 2) {
    return none("it has " + counted(layer.input_ids.size(), "input") +
                "; expected 2, which is what kernels of operators take");
  }
  return choice(set,
                {"Elementwise_Add_SSE_Float_M1", "Elementwise_Sub_SSE_Float_M1",
                 "Elementwise_Mul_SSE_Float_M1", "Elementwise_Div_SSE_Float_M1"},
                "Elementwise_Fallback_Float_M1");
}

}  // namespace

uint32_t groups_of(const LayerInfo& info) {
  if (const auto* layer = dynamic_cast<const Conv2dInfo*>(&info)) return layer->groups;
  if (const auto* layer = dynamic_cast<const ConvTranspose2dInfo*>(&info)) return layer->groups;
  return 1;
}

Candidates candidates_for(const LayerInfo& info, OldKernelSet set) {
  const std::string kind = kind_of(info);
  if (const auto* layer = dynamic_cast<const ActivationInfo*>(&info)) {
    return for_activation(*layer, set);
  }
  if (const auto* layer = dynamic_cast<const ConcatenateInfo*>(&info)) {
    return for_concatenation(*layer, set);
  }
  if (const auto* layer = dynamic_cast<const TensorReshapeInfo*>(&info)) {
    return for_reshape(*layer, set);
  }
  if (kind == "ElementWiseOperator") return for_operator(info, set);
  if (kind == "Input") return choice(set, {}, "Input_Fallback_M1");
  if (kind == "Conv2d") {
    return choice(
        set,
        {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", "Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1",
         "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", "Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1",
         "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
         "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1", kSseConvolution},
        kPortableConvolution);
  }
  if (kind == "BatchNorm2d") return choice(set, {kSseConvolution}, kPortableConvolution);
  if (kind == "ConvTranspose2d") {
    return choice(set, {"ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1"},
                  "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  }
  // Fast poolings treat padding, and windows that reach beyond the picture, otherwise.
  if (kind == "MaxPool2d") return choice(set, {}, "Pooling2D_Max_Fallback_Float_M1");
  if (kind == "AvgPool2d") return choice(set, {}, "Pooling2D_Avg_Fallback_Float_M1");
  // Fast upsamplings want channels in blocks.
  if (kind == "Upsample2d") return choice(set, {}, "Upsampling2D_Fallback_CHW_Float_M1");
  if (kind == "PixelShuffle") return choice(set, {}, "Pixelshuffle_Fallback_CHW_Float_M1");
  if (kind == "TensorTranspose") return choice(set, {}, "Transform_MainMemory_Permute_Fallback");
  if (kind == "FullConnection") {
    return choice(set, {"FullConnection_SSE_C_Float_M1"}, "FullConnection_Fallback_C_Float_M1");
  }
  if (kind == "LSTM") return choice(set, {"LSTM_SSE_SC_F32_M1"}, "LSTM_Fallback_SC_F32_M1");
  return none("no kernel knows it; expected a rule such as \"" + kind +
              " = Straight_Through_Fallback_M1\" in the file of --config, where what reads it "
              "doesn't mind");
}

}  // namespace qrt_tool
