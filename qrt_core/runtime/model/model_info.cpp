#include "qrt_core/runtime/model/model_info.h"

#include <limits>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/object_table.h"
#include "qrt_core/runtime/model/write_check_internal.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

TimeInfo::TimeInfo() { serializable_type = "TimeInfo"; }

void TimeInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  Serializable::VisitAttr(visitor);
  QRT_VISIT(visitor, year);
  QRT_VISIT(visitor, moon);
  QRT_VISIT(visitor, day);
  QRT_VISIT(visitor, hour);
  QRT_VISIT(visitor, min);
  QRT_VISIT(visitor, sec);
}

NetExtraInfo::NetExtraInfo() { serializable_type = "NetExtraInfo"; }

void NetExtraInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  const uint32_t protocol = visitor->_serialization_protocol_version;
  Serializable::VisitAttr(visitor);
  QRT_VISIT(visitor, version);
  QRT_VISIT(visitor, app_type);
  QRT_VISIT(visitor, model_id);
  QRT_VISIT(visitor, model_base_h);
  QRT_VISIT(visitor, model_base_w);
  if (protocol >= 20007) {
    QRT_VISIT(visitor, fmlas);
  } else {
    auto narrow = static_cast<uint32_t>(fmlas);
    visitor->Visit(&narrow, "fmlas");
    fmlas = narrow;
  }
  QRT_VISIT(visitor, time);
  QRT_VISIT(visitor, device);
  if (protocol >= 20004) QRT_VISIT(visitor, summary);
}

QRModelInfo::QRModelInfo() : layers(8) { serializable_type = "QRModelInfo"; }

void QRModelInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  Assert(visitor->_serialization_protocol_version <= __SERIALIZATION_PROTOCOL_VERSION__, nullptr);
  Serializable::VisitAttr(visitor);
  QRT_VISIT(visitor, squential_output_ids);
  QRT_VISIT(visitor, extra_info);
  QRT_VISIT(visitor, squential_ids);
  QRT_VISIT(visitor, squential_types);
  Assert(squential_ids.size() == squential_types.size(), "Length of layer id and type mismatch.");

  const auto check = std::dynamic_pointer_cast<WriteCheck>(visitor);
  for (size_t i = 0; i < squential_ids.size(); ++i) {
    const std::string& id = squential_ids[i];
    const uint16_t code = squential_types[i];
    if (layers.find(id) == layers.end()) {
      Assert(code != std::numeric_limits<uint16_t>::max(), "Unknow Layer Type.");
      layers.emplace(id, MakeLayerInfo(code));
    }
    const std::shared_ptr<LayerInfo> layer = layers[id];
    if (check != nullptr && layer != nullptr && !IsLayerOfType(*layer, code)) {
      check->Refuse(
          "layer \"%s\" is of class %s, which its code %u in \"squential_types\" does not stand "
          "for",
          id.c_str(), layer->GetClassTypeNameWithNamespace().c_str(), code);
      continue;
    }
    VisitHeld(*visitor, layer, id.c_str());
    if (layer->type != code) {
      utility::Log(utility::LOG_WARNING,
                   "This QRModelInfo may be a old vesion file, please verify it.");
      layer->type = code;
    }
  }
}

std::vector<std::string> QRModelInfo::GetInputIDs() {
  std::vector<std::string> ids;
  for (size_t i = 0; i < squential_ids.size() && i < squential_types.size(); ++i) {
    if (squential_types[i] == kInputLayerType) ids.push_back(squential_ids[i]);
  }
  return ids;
}

std::vector<std::string> QRModelInfo::GetOutputIDs() {
  for (const auto& [id, layer] : layers) {
    Assert(layer != nullptr, "layer \"%s\" is a null pointer", id.c_str());
    layer->read_count = 0;
  }
  for (const auto& [id, layer] : layers) {
    for (const std::string& source : layer->input_ids) {
      const auto found = layers.find(source);
      Assert(found != layers.end(), "layer \"%s\" reads layer \"%s\", which is not in the network",
             id.c_str(), source.c_str());
      ++found->second->read_count;
    }
  }
  std::vector<std::string> ids;
  for (const auto& [id, layer] : layers) {
    if (layer->read_count == 0) ids.push_back(id);
  }
  return ids;
}

QRModelInfoArr::QRModelInfoArr() { serializable_type = "QRModelInfoArr"; }

void QRModelInfoArr::VisitAttr(std::shared_ptr<Visitor> visitor) {
  Serializable::VisitAttr(visitor);
  QRT_VISIT(visitor, squential_ids);
  VisitTable(*visitor, squential_ids, infos);
}

QRTModel::QRTModel()
    : model_arr(std::make_shared<QRModelInfoArr>()),
      config_arr(std::make_shared<QRModelMultiBackendCfgsArr>()) {
  serializable_type = "QRTModel";
}

void QRTModel::VisitAttr(std::shared_ptr<Visitor> visitor) {
  QRT_VISIT(visitor, sdk_type);
  QRT_VISIT(visitor, core_major_ver);
  QRT_VISIT(visitor, core_minor_ver);
  QRT_VISIT(visitor, sdk_major_ver);
  QRT_VISIT(visitor, sdk_minor_ver);
  VisitHeld(*visitor, model_arr, "model_arr");
  VisitHeld(*visitor, config_arr, "config_arr");
}

}  // namespace marlo::runtime
