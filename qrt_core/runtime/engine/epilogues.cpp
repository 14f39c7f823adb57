#include "qrt_core/runtime/engine/epilogues.h"

#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"

namespace marlo::runtime {
namespace {

constexpr float kSix = 6.0f;

bool may_be(const ActivationInfo& layer, std::string_view epilogue) {
  constexpr uint16_t kRectifier = 2;
  constexpr uint16_t kLeaky = 4;
  constexpr uint16_t kTangent = 5;
  if (layer.activation_type == kRectifier) return epilogue == "ReLU";
  if (layer.activation_type == kTangent) return epilogue == "Tanh";
  return layer.activation_type != kLeaky;
}

bool is(const ElementFunctionInfo& layer, std::string_view epilogue) {
  switch (static_cast<ElementFunction>(layer.function)) {
    case ElementFunction::SiLU:
      return epilogue == "SiLU";
    case ElementFunction::Swish:
      return epilogue == "SiLU" && layer.alpha == 1;
    case ElementFunction::HardSigmoid:
      return epilogue == "HSigmoid" && layer.alpha == 1 / kSix && layer.beta == 0.5f;
    case ElementFunction::Clip:
      return epilogue == "ReLU6" && layer.alpha == 0 && layer.beta == kSix;
    default:
      return false;
  }
}

}  // namespace

bool may_be_epilogue(const LayerInfo& layer, std::string_view epilogue) {
  if (const auto* activation = dynamic_cast<const ActivationInfo*>(&layer)) {
    return may_be(*activation, epilogue);
  }
  if (const auto* function = dynamic_cast<const ElementFunctionInfo*>(&layer)) {
    return is(*function, epilogue);
  }
  const auto* clip = dynamic_cast<const ClipInfo*>(&layer);
  return clip != nullptr && epilogue == "ReLU6" && static_cast<float>(clip->minimum_value) == 0 &&
         static_cast<float>(clip->maximum_value) == kSix;
}

}  // namespace marlo::runtime
