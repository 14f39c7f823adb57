#include "qrt_core/utility/check_model.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/utility/application.h"
#include "qrt_core/utility/build_options.h"
#include "qrt_core/utility/check_model_internal.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/model_source_internal.h"
#include "qrt_core/utility/nearest_name_internal.h"
#include "qrt_core/utility/quiet_log_internal.h"

namespace marlo::utility {

using runtime::QRTModel;

namespace {

// A hostile file can't fill memory with findings.
constexpr size_t kMostFindings = 1000;

std::string version_text(uint32_t major, uint32_t minor) {
  return std::to_string(major) + "." + std::to_string(minor);
}

void check_versions(const QRTModel& model, const CheckOptions& options, FindingList& findings) {
  if (model.core_major_ver > QRT_CORE_VERSION_MAJOR ||
      model.core_minor_ver > QRT_CORE_VERSION_MINOR) {
    findings.add({}, FindingCode::wrong_version, Severity::error, "core_major_ver, core_minor_ver",
                 "at most " + version_text(QRT_CORE_VERSION_MAJOR, QRT_CORE_VERSION_MINOR),
                 version_text(model.core_major_ver, model.core_minor_ver),
                 "write the version of the core that the model was made for");
  }
  if (options.sdk_type.empty()) return;
  const std::string expected =
      options.sdk_type + " " + version_text(options.sdk_major, options.sdk_minor);
  const std::string found =
      model.sdk_type + " " + version_text(model.sdk_major_ver, model.sdk_minor_ver);
  if (expected != found) {
    findings.add({}, FindingCode::wrong_version, Severity::error,
                 "sdk_type, sdk_major_ver, sdk_minor_ver", expected, found,
                 "write what the application gives to load_model, which compares them exactly");
  }
}

std::vector<std::string> keys_of(const QRTModel& model) {
  std::vector<std::string> keys;
  for (const auto& [id, info] : model.model_arr->infos) keys.push_back(id);
  return keys;
}

void check_tree(QRTModel& model, const CheckOptions& options, FindingList& findings,
                const CheckSources& sources = {}) {
  check_versions(model, options, findings);
  if (model.model_arr == nullptr || model.config_arr == nullptr) {
    findings.add({}, FindingCode::unreadable, Severity::error, "model_arr, config_arr",
                 "networks and their configurations", "a null pointer", "");
    return;
  }
  runtime::KernelRegistry all;
  const runtime::KernelRegistry* kernels = options.kernels;
  if (kernels == nullptr) {
    runtime::InferenceParamRegistry params;
    init_register_operators(all, params);
    init_register_extension_operators(all, params);
    kernels = &all;
  }
  if (model.model_arr->squential_ids.empty()) {
    findings.add({}, FindingCode::no_outputs, Severity::warning, "model_arr.squential_ids",
                 "the ids of the file's networks", "none", "list them");
  }
  std::set<std::string> seen;
  for (const std::string& id : model.model_arr->squential_ids) {
    Finding place;
    place.network = id;
    if (!seen.insert(id).second) {
      findings.add(place, FindingCode::repeated_id, Severity::warning, "model_arr.squential_ids",
                   "each id once", "\"" + id + "\" again", "remove it");
      continue;
    }
    const auto info = model.model_arr->infos.find(id);
    if (info == model.model_arr->infos.end() || info->second == nullptr) {
      findings.add(place, FindingCode::unknown_id, Severity::error, "model_arr.squential_ids",
                   "the id of a network", "\"" + id + "\"",
                   nearest_advice(id, keys_of(model), "add the network"));
      continue;
    }
    const auto cfgs = model.config_arr->cfgs.find(id);
    const runtime::QRModelMultiBackendCfgs none;
    const bool has_cfgs = cfgs != model.config_arr->cfgs.end() && cfgs->second != nullptr;
    check_network(id, info->second, has_cfgs ? *cfgs->second : none, *kernels, options, sources,
                  findings);
  }
}

void add_unreadable(const std::string& what, FindingList& findings) {
  findings.add({}, FindingCode::unreadable, Severity::error, "", "a model", what, "");
}

void check_bytes(const std::string& bytes, const CheckOptions& options, FindingList& findings) {
  const bool in_json = is_json(bytes.data(), bytes.size());
  if (in_json && !check_json_syntax(bytes, findings)) return;
  auto model = std::make_shared<QRTModel>();
  std::string fault;
  try {
    read_model(*model, bytes.data(), bytes.size());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& failure) {
    const auto* error = dynamic_cast<const Error*>(&failure);
    fault = error != nullptr ? error->message() : failure.what();
    if (fault.empty()) fault = "something else";
  }
  if (in_json) {
    const size_t before = findings.size();
    try {
      examine_json(bytes, *model, fault.empty(), findings);
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception&) {
      // The fault of reading, once more.
    }
    if (!fault.empty() && findings.size() == before) add_unreadable(fault, findings);
  } else if (!fault.empty()) {
    add_unreadable(fault, findings);
  }
  if (fault.empty()) check_tree(*model, options, findings);
}

// Whether a long string of the file, which isn't in memory, would have to be shown.
bool shows_mark(const Finding& finding) {
  return finding.found.find(runtime::kLeftInFile) != std::string::npos;
}

}  // namespace

std::optional<std::vector<Finding>> check_source(ModelSource& source, const CheckOptions& options,
                                                 const ReadyNets& nets) {
  if (source.weights() == nullptr) return std::nullopt;
  const QuietLog quiet;
  FindingList list;
  try {
    if (source.text() != nullptr) examine_json(*source.text(), source.model(), true, list);
    check_tree(source.model(), options, list, {source.weights(), &nets});
  } catch (const Error&) {
    return std::nullopt;  // a file that changes meanwhile
  }
  std::vector<Finding> findings = list.take();
  if (std::any_of(findings.begin(), findings.end(), shows_mark)) return std::nullopt;
  return findings;
}

bool FindingList::is_full() const { return findings_.size() >= kMostFindings; }

void FindingList::add(const Place& place, FindingCode code, Severity severity,
                      const std::string& member, const std::string& expected,
                      const std::string& found, const std::string& change) {
  if (is_full()) return;
  Finding finding = place;
  finding.code = code;
  finding.severity = severity;
  finding.member = member;
  finding.expected = expected;
  finding.found = found;
  finding.change = change;
  findings_.push_back(std::move(finding));
}

void FindingList::add(const Place& place, FindingCode code, Severity severity,
                      const std::vector<Misfit>& misfits, const std::string& change) {
  for (const Misfit& misfit : misfits) {
    add(place, code, severity, misfit.member, misfit.expected, misfit.found, change);
  }
}

std::string kind_of(const runtime::LayerInfo& info) {
  std::string name = runtime::LayerTypeName(info.type);
  if (name != "UnKnown") return name;
  const std::string suffix = "Info";
  const std::string& type = info.serializable_type;
  const bool is_info = type.size() > suffix.size() &&
                       type.compare(type.size() - suffix.size(), suffix.size(), suffix) == 0;
  return is_info ? type.substr(0, type.size() - suffix.size()) : type;
}

const char* code_name(FindingCode code) {
  static const char* const names[] = {
      "unreadable",           "wrong-version",    "unknown-member", "missing-member",
      "cut-number",           "wrong-class",      "unknown-id",     "repeated-id",
      "wrong-order",          "no-outputs",       "unused-layer",   "missing-configuration",
      "unused-configuration", "unknown-kernel",   "refused-layer",  "other-result",
      "wrong-weights",        "unused-bias",      "missing-bias",   "wrong-shape",
      "padded-channels",      "overwritten-input"};
  const auto index = static_cast<size_t>(code);
  return index < sizeof names / sizeof *names ? names[index] : "unknown";
}

std::string finding_text(const Finding& finding) {
  std::string text = finding.severity == Severity::error ? "error: " : "warning: ";
  if (finding.line != 0) {
    text += "line " + std::to_string(finding.line) + ", column " + std::to_string(finding.column) +
            ": ";
  }
  std::string place;
  if (!finding.network.empty()) place = "network \"" + finding.network + "\"";
  if (finding.layer || !finding.id.empty()) {
    place += place.empty() ? "layer" : ", layer";
    if (finding.layer) place += " " + std::to_string(*finding.layer);
    if (!finding.id.empty()) place += " \"" + finding.id + "\"";
    if (!finding.kind.empty()) place += " (" + finding.kind + ")";
  }
  if (!finding.kernel.empty()) place += (place.empty() ? "kernel " : ", kernel ") + finding.kernel;
  text += place + (place.empty() ? "" : ": ");
  text += misfit_text({finding.member, finding.expected, finding.found});
  if (!finding.change.empty()) text += "; " + finding.change;
  return text;
}

std::vector<Finding> check_model(const std::string& path, const CheckOptions& options) {
  const QuietLog quiet;
  try {
    std::error_code fault;
    if (std::filesystem::is_regular_file(path, fault)) {
      ModelSource source(path);
      if (auto found = check_source(source, options)) return *std::move(found);
    }
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    // What is read whole can tell what is wrong with it.
  }
  FindingList findings;
  std::string bytes;
  try {
    bytes = read_bytes(path);
  } catch (const Error& failure) {
    findings.add({}, FindingCode::unreadable, Severity::error, "", "a file that can be read",
                 failure.message(), "look at the path and the file's permissions");
    return findings.take();
  }
  check_bytes(bytes, options, findings);
  return findings.take();
}

std::vector<Finding> check_model(const void* bytes, size_t size, const CheckOptions& options) {
  const QuietLog quiet;
  try {
    if (bytes != nullptr) {
      ModelSource source(static_cast<const char*>(bytes), size);
      if (auto found = check_source(source, options)) return *std::move(found);
    }
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    // As of a file.
  }
  FindingList findings;
  const std::string copy =
      bytes != nullptr ? std::string(static_cast<const char*>(bytes), size) : std::string();
  check_bytes(copy, options, findings);
  return findings.take();
}

std::vector<Finding> check_model(const std::shared_ptr<QRTModel>& model,
                                 const CheckOptions& options) {
  const QuietLog quiet;
  FindingList findings;
  if (model == nullptr) {
    add_unreadable("a null pointer", findings);
  } else {
    check_tree(*model, options, findings);
  }
  return findings.take();
}

}  // namespace marlo::utility
