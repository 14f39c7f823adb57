#include <algorithm>
#include <map>
#include <utility>

#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/recurrent_info.h"
#include "qrt_core/utility/input_demand_internal.h"
#include "qrt_core/utility/model_summary.h"

namespace marlo::utility {

using runtime::DataType;
using runtime::LayerInfo;
using runtime::LayoutType;
using runtime::TensorShape;

namespace {

std::optional<Demand> demand_of(const LayerInfo& info) {
  if (const auto* c = dynamic_cast<const runtime::Conv2dInfo*>(&info)) {
    return Demand{Demand::planes, c->in_channels};
  }
  if (const auto* c = dynamic_cast<const runtime::ConvTranspose2dInfo*>(&info)) {
    return Demand{Demand::planes, c->in_channels};
  }
  if (const auto* c = dynamic_cast<const runtime::Conv1dInfo*>(&info)) {
    return Demand{Demand::line, c->in_channels};
  }
  if (const auto* c = dynamic_cast<const runtime::FullConnectionInfo*>(&info)) {
    return Demand{Demand::vector, c->in_features};
  }
  if (const auto* c = dynamic_cast<const runtime::RecurrentInfo*>(&info)) {
    const bool is_cell = dynamic_cast<const runtime::RecurrentCellWeights*>(&info) != nullptr;
    return Demand{is_cell ? Demand::vector : Demand::sequence, c->in_size};
  }
  return std::nullopt;
}

bool keeps_channels(const LayerInfo& info) {
  return dynamic_cast<const runtime::ActivationInfo*>(&info) != nullptr ||
         dynamic_cast<const runtime::MaxPool2dInfo*>(&info) != nullptr ||
         dynamic_cast<const runtime::AvgPool2dInfo*>(&info) != nullptr ||
         dynamic_cast<const runtime::Upsample2dInfo*>(&info) != nullptr;
}

TensorShape floats(std::vector<uint32_t> dims, LayoutType layout) {
  return TensorShape(std::move(dims), DataType::FLOAT32, layout);
}

}  // namespace

std::optional<Demand> demand_on(const runtime::QRModelInfo& info, const std::string& input) {
  std::map<std::string, bool> reached{{input, true}};
  for (const std::string& id : info.squential_ids) {
    const auto found = info.layers.find(id);
    if (found == info.layers.end() || found->second == nullptr) continue;
    const LayerInfo& layer = *found->second;
    if (layer.type == runtime::kInputLayerType) continue;
    bool reads = false;
    for (const std::string& source : layer.input_ids) reads |= reached.count(source) != 0;
    if (!reads) continue;
    if (const auto demand = demand_of(layer)) return demand;
    if (!keeps_channels(layer)) return std::nullopt;
    reached[id] = true;
  }
  return std::nullopt;
}

std::vector<TensorShape> forms_of(const Demand& demand, uint32_t height, uint32_t width) {
  const uint32_t c = demand.channels;
  switch (demand.form) {
    case Demand::line:
      return {floats({c, width}, LayoutType::CL)};
    case Demand::vector:
      return {floats({c}, LayoutType::C), floats({c, 1, 1}, LayoutType::CHW),
              floats({1, c}, LayoutType::BC)};
    case Demand::sequence:
      return {floats({height, c}, LayoutType::SC)};
    case Demand::planes:
      break;
  }
  return {floats({c, height, width}, LayoutType::CHW),
          floats({(c + 3) / 4, height, width, 4}, LayoutType::C4HW4),
          floats({(c + 7) / 8, height, width, 8}, LayoutType::C8HW8)};
}

std::optional<TensorShape> told_shape(const runtime::QRModelInfo& info, const std::string& id) {
  if (const auto summary = read_summary(info.extra_info.summary)) {
    const DescribedTensor* const described = summary->input(id);
    const auto& sizes = described != nullptr ? described->sizes : std::vector<uint32_t>();
    if (!sizes.empty() && std::find(sizes.begin(), sizes.end(), 0u) == sizes.end()) {
      return described_shape(*described, sizes);
    }
  }
  const auto demand = demand_on(info, id);
  if (!demand || demand->channels == 0) return std::nullopt;
  const auto& header = info.extra_info;
  if (demand->form == Demand::vector) return forms_of(*demand, 1, 1)[0];
  // A header speaks of one picture.
  const bool has_size = header.model_base_h != 0 && header.model_base_w != 0;
  if (demand->form != Demand::planes || !has_size) return std::nullopt;
  return forms_of(*demand, header.model_base_h, header.model_base_w)[0];
}

}  // namespace marlo::utility
