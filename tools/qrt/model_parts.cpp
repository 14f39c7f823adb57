#include "tools/qrt/model_parts.h"

#include <vector>

#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/network.h"
#include "tools/qrt/suggestion.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::QRModelCfg;
using marlo::runtime::QRModelInfo;
using marlo::runtime::QRModelInfoArr;
using marlo::runtime::QRModelMultiBackendCfgs;
using marlo::runtime::QRModelMultiBackendCfgsArr;
using marlo::runtime::QRTModel;
using marlo::runtime::Serializable;

namespace {

std::string chosen_id(const std::vector<std::string>& ids, const std::string& path,
                      const std::string& wanted) {
  if (wanted.empty() && ids.size() == 1) return ids[0];
  for (const std::string& id : ids) {
    if (id == wanted) return id;
  }
  std::vector<std::string> names;
  names.reserve(ids.size());
  for (const std::string& id : ids) names.push_back(in_quotes(id));
  const std::string held = "it holds " + (names.empty() ? "none" : joined(names, ", "));
  throw ToolError(kUsageError,
                  shown(path) + ": " +
                      (wanted.empty() ? held + "; choose one with --network"
                                      : "there is no network " + in_quotes(wanted) + "; " + held));
}

std::shared_ptr<QRModelCfg> config_part(const QRModelMultiBackendCfgsArr& configs,
                                        const std::string& path, const std::string& network) {
  return configs.cfgs.at(chosen_id(configs.squential_ids, path, network))->cpu_sse;
}

}  // namespace

std::shared_ptr<Serializable> part_of(const std::shared_ptr<Serializable>& object, ObjectKind from,
                                      ObjectKind to, const std::string& path,
                                      const std::string& network) {
  if (from == to) return object;
  std::shared_ptr<QRModelInfoArr> networks;
  std::shared_ptr<QRModelMultiBackendCfgsArr> configs;
  if (from == ObjectKind::model) {
    const auto& model = dynamic_cast<const QRTModel&>(*object);
    networks = model.model_arr;
    configs = model.config_arr;
  }
  if (from == ObjectKind::networks) networks = std::dynamic_pointer_cast<QRModelInfoArr>(object);
  if (from == ObjectKind::configs) {
    configs = std::dynamic_pointer_cast<QRModelMultiBackendCfgsArr>(object);
  }
  if (to == ObjectKind::networks && networks != nullptr) return networks;
  if (to == ObjectKind::configs && configs != nullptr) return configs;
  if (to == ObjectKind::network && networks != nullptr) {
    return networks->infos.at(chosen_id(networks->squential_ids, path, network));
  }
  if (to == ObjectKind::config && configs != nullptr) return config_part(*configs, path, network);
  const bool could_join =
      to == ObjectKind::model && (from == ObjectKind::network || from == ObjectKind::networks);
  throw ToolError(kUsageError,
                  shown(path) + ": " + phrase_for(from) + " holds no " + word_for(to) +
                      (could_join ? "; --with adds the configuration that makes one" : ""));
}

std::shared_ptr<QRTModel> joined_model(const std::shared_ptr<Serializable>& networks,
                                       const std::shared_ptr<Serializable>& configs,
                                       const std::string& network, const std::string& sdk) {
  auto model = std::make_shared<QRTModel>();
  const Sdk made_for = parse_sdk(sdk.empty() ? "qrt:1.0" : sdk);
  model->sdk_type = made_for.name;
  model->sdk_major_ver = made_for.major;
  model->sdk_minor_ver = made_for.minor;
  model->core_major_ver = 1;
  if (const auto several = std::dynamic_pointer_cast<QRModelInfoArr>(networks)) {
    model->model_arr = several;
  } else if (const auto one = std::dynamic_pointer_cast<QRModelInfo>(networks)) {
    model->model_arr->squential_ids = {network};
    model->model_arr->infos[network] = one;
  } else {
    throw ToolError(kUsageError, "--with expects IN to be a network or networks");
  }
  if (const auto several = std::dynamic_pointer_cast<QRModelMultiBackendCfgsArr>(configs)) {
    model->config_arr = several;
  } else if (const auto one = std::dynamic_pointer_cast<QRModelCfg>(configs)) {
    if (model->model_arr->squential_ids.size() != 1) {
      throw ToolError(kUsageError, "one configuration can't serve " +
                                       counted(model->model_arr->squential_ids.size(), "network"));
    }
    auto back_ends = std::make_shared<QRModelMultiBackendCfgs>();
    back_ends->cpu_sse = one;
    model->config_arr->squential_ids = model->model_arr->squential_ids;
    model->config_arr->cfgs[model->model_arr->squential_ids[0]] = back_ends;
  } else {
    throw ToolError(kUsageError, "--with expects a configuration (.qrcfg, .qrcfgs or .json)");
  }
  for (const std::string& id : model->model_arr->squential_ids) {
    if (model->config_arr->cfgs.count(id) != 0) continue;
    throw ToolError(kModelError, "no configuration is for network " + in_quotes(id) +
                                     did_you_mean(id, model->config_arr->squential_ids));
  }
  return model;
}

}  // namespace qrt_tool
