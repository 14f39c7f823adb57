#include "qrt_toolkit/assign/network.h"

#include <stdexcept>

namespace marlo::toolkit {
namespace {

[[noreturn]] void fail(const std::string& id, const std::string& why) {
  throw std::invalid_argument("network \"" + id + "\": " + why);
}

}  // namespace

std::string network_id(const runtime::QRTModel& model, const std::string& wanted) {
  if (model.model_arr == nullptr) throw std::invalid_argument("the model holds no network");
  const auto& ids = model.model_arr->squential_ids;
  if (!wanted.empty()) {
    if (model.model_arr->infos.count(wanted) == 0) fail(wanted, "the model hasn't got it");
    return wanted;
  }
  if (ids.size() == 1) return ids[0];
  throw std::invalid_argument("the model holds " + std::to_string(ids.size()) +
                              " networks; expected the id of one");
}

const runtime::QRModelInfo& network_of(const runtime::QRTModel& model, const std::string& id) {
  const auto found = model.model_arr->infos.find(id);
  if (found == model.model_arr->infos.end() || found->second == nullptr) {
    fail(id, "the model doesn't describe it");
  }
  return *found->second;
}

const runtime::QRModelCfg& config_of(const runtime::QRTModel& model, const std::string& id) {
  if (model.config_arr == nullptr) fail(id, "the model has no configurations");
  const auto found = model.config_arr->cfgs.find(id);
  if (found == model.config_arr->cfgs.end() || found->second == nullptr ||
      found->second->cpu_sse == nullptr) {
    fail(id, "the model has no configuration for it");
  }
  return *found->second->cpu_sse;
}

}  // namespace marlo::toolkit
