#include "qrt_core/runtime/model/layer_info.h"

#include <exception>

#include "qrt_core/utility/log.h"

namespace marlo::runtime {

LayerInfo::LayerInfo() { serializable_type = "LayerInfo"; }

LayerInfo::LayerInfo(uint16_t code, const char* class_name) : type(code) {
  serializable_type = class_name;
}

void LayerInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  Serializable::VisitAttr(visitor);
  try {
    QRT_VISIT(visitor, type);
  } catch (const std::exception&) {
    utility::Log(utility::LOG_WARNING, "This may be a old version model file.");
  }
  QRT_VISIT(visitor, id);
  QRT_VISIT(visitor, input_ids);
  QRT_VISIT(visitor, read_count);
}

InputInfo::InputInfo() : LayerInfo(0, "InputInfo") {}

void InputInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, location);
}

LayerPlaceholderInfo::LayerPlaceholderInfo() : LayerInfo(252, "LayerPlaceholderInfo") {}

void LayerPlaceholderInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, input_shapes);
  QRT_VISIT(visitor, output_shape);
  QRT_VISIT(visitor, desc);
}

}  // namespace marlo::runtime
