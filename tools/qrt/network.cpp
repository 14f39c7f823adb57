#include "tools/qrt/network.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/weight_pool.h"
#include "qrt_core/utility/load_net_internal.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/model_file.h"
#include "tools/qrt/source.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::QRModelCfg;
using marlo::runtime::QRTModel;

namespace {

constexpr unsigned int kAlignment = 64;

std::string version_text(uint16_t major, uint16_t minor) {
  return std::to_string(major) + "." + std::to_string(minor);
}

bool parse_number(const std::string& digits, uint16_t& number) {
  const bool is_number = !digits.empty() && digits.size() <= 5 &&
                         digits.find_first_not_of("0123456789") == std::string::npos;
  if (!is_number || std::stoul(digits) > UINT16_MAX) return false;
  number = static_cast<uint16_t>(std::stoul(digits));
  return true;
}

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
  throw ToolError(kModelError, shown(path) + ": " + why);
}

// Refuses a model that this library, or the demanded SDK, can't run.
void check_versions(const QRTModel& model, const std::string& path, const std::optional<Sdk>& sdk) {
  const marlo::utility::_QRTModelVerInfo versions{model.sdk_type, model.core_major_ver,
                                                  model.core_minor_ver, model.sdk_major_ver,
                                                  model.sdk_minor_ver};
  const Sdk demanded = sdk.value_or(Sdk{model.sdk_type, model.sdk_major_ver, model.sdk_minor_ver});
  const auto verdict =
      marlo::utility::check_version(demanded.name, demanded.major, demanded.minor, versions);
  if (verdict != marlo::utility::QRT_RESULT_OK) {
    unsigned int core_major = 0;
    unsigned int core_minor = 0;
    QRT_Get_Core_Version(core_major, core_minor);
    refuse(path, take_library_errors() + " (the model is for SDK " + in_quotes(model.sdk_type) +
                     " " + version_text(model.sdk_major_ver, model.sdk_minor_ver) + " and core " +
                     version_text(model.core_major_ver, model.core_minor_ver) + "; expected SDK " +
                     in_quotes(demanded.name) + " " + version_text(demanded.major, demanded.minor) +
                     " and core " + std::to_string(core_major) + "." + std::to_string(core_minor) +
                     ")");
  }
}

// The form of a model's file, told by its name.
FileFormat format_of_model(const std::string& path) {
  const FileFormat format = format_of_name(path, kModelError);
  if (format.kind && *format.kind != ObjectKind::model) {
    refuse(path, std::string("expected a model (.json, .qrtmodel), found a ") +
                     word_for(*format.kind) + ", which can't run by itself");
  }
  return format;
}

// Whether a file begins as one of a form does.
bool begins_as(const std::string& file, bool is_json) {
  constexpr size_t kBeginning = 4096;
  std::string beginning(kBeginning, '\0');
  std::ifstream stream(file, std::ios::binary);
  stream.read(beginning.data(), static_cast<std::streamsize>(beginning.size()));
  const auto count = static_cast<size_t>(stream.gcount());
  return marlo::utility::is_json(beginning.data(), count) == is_json;
}

std::string within(const std::string& network) { return "network " + in_quotes(network); }

}  // namespace

Library::Library() {
  marlo::utility::create_context(context, kAlignment);
  auto device = marlo::runtime::CreateDeviceCPU(
      marlo::runtime::DetectCPUDevice(), std::make_shared<marlo::runtime::WeightPool>(kAlignment),
      nullptr, nullptr);
  weights =
      marlo::runtime::CreateContext(std::move(device), nullptr, nullptr, nullptr, nullptr, nullptr);
  marlo::utility::init_register_operators(kernels, params);
  marlo::utility::init_register_extension_operators(kernels, params);
}

Sdk parse_sdk(const std::string& text) {
  Sdk sdk;
  const size_t colon = text.rfind(':');
  const size_t dot = text.rfind('.');
  const bool is_split = colon != std::string::npos && dot != std::string::npos && colon < dot;
  if (!is_split || !parse_number(text.substr(colon + 1, dot - colon - 1), sdk.major) ||
      !parse_number(text.substr(dot + 1), sdk.minor)) {
    throw ToolError(kUsageError,
                    "--sdk " + printable(text) + ": expected NAME:MAJOR.MINOR, such as qrt:1.0");
  }
  sdk.name = text.substr(0, colon);
  return sdk;
}

std::shared_ptr<QRTModel> read_model(const std::string& path, const std::optional<Sdk>& sdk,
                                     const std::vector<std::string>& inputs,
                                     std::optional<marlo::toolkit::KernelSet> set) {
  if (is_onnx(path)) return imported_model(path, inputs, set);
  const FileFormat format = format_of_model(path);
  auto model = std::make_shared<QRTModel>();
  read_object(*model, path, format.is_json);
  check_versions(*model, path, sdk);
  return model;
}

OpenModel open_model(const std::string& path, const std::optional<Sdk>& sdk,
                     const std::vector<std::string>& inputs) {
  if (is_onnx(path)) return {nullptr, imported_model(path, inputs)};
  const FileFormat format = format_of_model(path);
  check_readable(path, kModelError);
  const std::string file = rereadable(path, kModelError);
  OpenModel open;
  try {
    if (begins_as(file, format.is_json)) {
      open.source = std::make_shared<marlo::utility::ModelSource>(file);
    }
  } catch (const std::runtime_error&) {
    // What is read whole can tell where it is damaged.
    take_library_errors();
  }
  if (open.source == nullptr) return {nullptr, read_model(path, sdk, inputs)};
  open.tree = std::shared_ptr<QRTModel>(open.source, &open.source->model());
  check_versions(*open.tree, path, sdk);
  return open;
}

std::string choose_network(const QRTModel& model, const std::string& path,
                           const std::string& wanted) {
  const std::vector<std::string>& ids = model.model_arr->squential_ids;
  if (ids.empty()) refuse(path, "the model holds no network");
  std::vector<std::string> names;
  names.reserve(ids.size());
  for (const std::string& id : ids) names.push_back(in_quotes(id));
  if (wanted.empty()) {
    if (ids.size() == 1) return ids[0];
    throw ToolError(kUsageError, shown(path) + ": the model holds " + joined(names, ", ") +
                                     "; choose one with --network");
  }
  if (std::find(ids.begin(), ids.end(), wanted) == ids.end()) {
    throw ToolError(kUsageError, shown(path) + ": there is no " + within(wanted) + "; expected " +
                                     joined(names, ", "));
  }
  return wanted;
}

const QRModelCfg* config_of(const QRTModel& model, const std::string& network) {
  const auto found = model.config_arr->cfgs.find(network);
  return found == model.config_arr->cfgs.end() ? nullptr : found->second->cpu_sse.get();
}

LoadedNetwork load_network(Library& library, const QRTModel& model, const std::string& path,
                           const std::string& network, LoadWarnings warnings,
                           const marlo::runtime::WeightPlaces* weights) {
  const auto info = model.model_arr->infos.at(network);
  const QRModelCfg* config = config_of(model, network);
  if (config == nullptr) {
    refuse(path, within(network) + ": expected a configuration in \"config_arr\", found none");
  }
  LoadedNetwork loaded;
  loaded.package = std::make_shared<marlo::utility::_NetworkPackage>();
  loaded.package->kernels = &library.kernels;
  loaded.package->params = &library.params;
  loaded.package->context = library.weights;
  try {
    marlo::utility::load_net(loaded.package, info, model.config_arr->cfgs.at(network), "x86",
                             weights);
  } catch (const std::runtime_error& failure) {
    if (weights != nullptr) {
      for (const auto& [id, layer] : info->layers) weights->fill(*layer);
    }
    // The tool's own report of a refused layer knows more than the exception does.
    const std::string fault = take_story(failure);
    const std::string problem =
        inspect_network(network, *info, config, library.kernels, library.context).problem();
    if (!problem.empty()) refuse(path, within(network) + ", " + problem);
    refuse(path, within(network) + ": " + (fault.empty() ? "it can't be built" : fault));
  }
  loaded.package->context = library.context;
  loaded.report = inspect_network(network, *info, config, library.kernels, library.context,
                                  loaded.package->net.get(), weights);
  const std::string problem = loaded.report.problem();
  if (!problem.empty()) refuse(path, within(network) + ", " + problem);
  if (warnings == LoadWarnings::drop) return loaded;
  for (const std::string& warning : loaded.report.warnings) {
    say(shown(path) + ": " + within(network) + ", " + warning, Level::warning);
  }
  return loaded;
}

}  // namespace qrt_tool
