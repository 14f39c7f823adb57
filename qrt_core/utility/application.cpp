#include "qrt_core/utility/application.h"

#include <cstring>
#include <set>

#include "qrt_core/runtime/engine/create_net_internal.h"
#include "qrt_core/runtime/tensor/align_up_pool.h"
#include "qrt_core/utility/build_options.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/load_net_internal.h"
#include "qrt_core/utility/log.h"

namespace marlo::utility {

using runtime::AlignUpPool;
using runtime::QRModelCfg;
using runtime::QRModelInfo;
using runtime::QRModelMultiBackendCfgs;
using runtime::QRTModel;

namespace {

constexpr char kPlatform[] = "x86";

bool has_suffix(const std::string& path, const std::string& suffix) {
  return path.substr(path.size() - suffix.size()) == suffix;
}

const char* format_of(const std::string& path) {
  if (has_suffix(path, ".json")) return "json";
  if (has_suffix(path, ".qrtmodel")) return "bin";
  Assert(false, "Unknow file type, file path: %s.", path.c_str());
  return nullptr;
}

_QRTModelVerInfo versions_of(const QRTModel& model) {
  return {model.sdk_type, model.core_major_ver, model.core_minor_ver, model.sdk_major_ver,
          model.sdk_minor_ver};
}

std::shared_ptr<QRModelCfg> choose_configuration(const QRModelMultiBackendCfgs& cfgs,
                                                 const char* platform) {
  if (std::strcmp(platform, "x86") == 0) return cfgs.cpu_sse;
  if (std::strcmp(platform, "metal") == 0 && cfgs.gpu_metal != nullptr &&
      !cfgs.gpu_metal->summary.empty()) {
    return cfgs.gpu_metal;
  }
  return nullptr;
}

}  // namespace

void create_context(std::shared_ptr<runtime::Context>& context, unsigned int alignment) {
  const auto dynamic_pool = std::make_shared<AlignUpPool>(alignment);
  const auto static_pool = std::make_shared<AlignUpPool>(alignment);
  auto device =
      runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), static_pool, nullptr, dynamic_pool);
  context = runtime::CreateContext(std::move(device), nullptr, nullptr, nullptr, nullptr, nullptr);
}

_QRT_Result check_version(std::string sdk_type, unsigned short sdk_major, unsigned short sdk_minor,
                          _QRTModelVerInfo info) {
  if (info.sdk_type != sdk_type) {
    Log(LOG_ERROR, "Model type is %s, can not match sdk type", info.sdk_type.c_str());
    return QRT_RESULT_FAILED;
  }
  if (info.core_major > QRT_CORE_VERSION_MAJOR || info.core_minor > QRT_CORE_VERSION_MINOR) {
    Log(LOG_ERROR, "qrt_core version required by model is larger than actually used!");
    return QRT_RESULT_FAILED;
  }
  if (info.sdk_major == sdk_major && info.sdk_minor == sdk_minor) return QRT_RESULT_OK;
  Log(LOG_ERROR, "sdk version required by model: %d.%d", info.sdk_major, info.sdk_minor);
  Log(LOG_ERROR, "sdk version used now: %d.%d", sdk_major, sdk_minor);
  return QRT_RESULT_FAILED;
}

_QRT_Result load_model(std::string path,
                       std::map<std::string, std::shared_ptr<_NetworkPackage>>& nets,
                       std::shared_ptr<runtime::Context>& context, runtime::KernelRegistry& kernels,
                       runtime::InferenceParamRegistry& params, std::string sdk_type,
                       unsigned short sdk_major, unsigned short sdk_minor) {
  QRTModel model;
  if (!model.FromFile(path.c_str(), format_of(path))) return QRT_RESULT_FAILED;
  const _QRT_Result checked =
      check_version(std::move(sdk_type), sdk_major, sdk_minor, versions_of(model));
  if (checked != QRT_RESULT_OK) return checked;

  std::set<std::string> built;
  for (const std::string& id : model.model_arr->squential_ids) {
    // An id listed again stands for the same network.
    if (!built.insert(id).second) continue;
    auto package = std::make_shared<_NetworkPackage>();
    package->kernels = &kernels;
    package->params = &params;
    package->context = context;
    auto& cfgs = model.config_arr->cfgs[id];
    if (cfgs == nullptr) cfgs = std::make_shared<QRModelMultiBackendCfgs>();
    try {
      Load_Single_Net(package, model.model_arr->infos[id], cfgs, kPlatform);
    } catch (Error& failure) {
      failure.in_network(id);
      throw;
    }
    nets.emplace(id, std::move(package));
  }
  return QRT_RESULT_OK;
}

void Load_Single_Net(std::shared_ptr<_NetworkPackage>& package,
                     const std::shared_ptr<QRModelInfo>& info,
                     const std::shared_ptr<QRModelMultiBackendCfgs>& cfgs, const char* platform) {
  load_net(package, info, cfgs, platform, nullptr);
}

void load_net(const std::shared_ptr<_NetworkPackage>& package,
              const std::shared_ptr<QRModelInfo>& info,
              const std::shared_ptr<QRModelMultiBackendCfgs>& cfgs, const char* platform,
              const runtime::WeightPlaces* weights) {
  Assert(package != nullptr && info != nullptr && cfgs != nullptr && platform != nullptr,
         "a network needs a package, a model, configurations and a platform");
  Assert(package->kernels != nullptr, "the package has no registry of kernels");
  std::map<std::string, unsigned int> positions;
  for (unsigned int p = 0; p < info->squential_ids.size(); ++p) {
    positions[info->squential_ids[p]] = p;
  }
  for (const std::string& id : info->GetInputIDs()) package->input_tensors[positions[id]] = nullptr;
  package->output_ids.clear();
  for (const std::string& id : info->squential_output_ids) {
    const auto found = positions.find(id);
    Assert(found != positions.end(), "output \"%s\" is not a layer of the network", id.c_str());
    package->output_ids.push_back(found->second);
  }

  const auto cfg = choose_configuration(*cfgs, platform);
  Assert(cfg != nullptr, "there is no configuration for platform \"%s\"", platform);
  package->net = runtime::CreateNet(info, cfg, *package->kernels, package->context, weights);
  package->extra_info = info->extra_info;
}

std::unordered_map<unsigned int, runtime::Net::Tensors> run(const _NetworkPackage& package) {
  Assert(package.net != nullptr, "the package has no network");
  return package.net->Forward(package.input_tensors, package.output_ids, package.context, nullptr,
                              nullptr);
}

}  // namespace marlo::utility

marlo::utility::_QRT_Result QRT_Get_Core_Version(unsigned int& major, unsigned int& minor) {
  major = QRT_CORE_VERSION_MAJOR;
  minor = QRT_CORE_VERSION_MINOR;
  return marlo::utility::QRT_RESULT_OK;
}
