#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <string>

#include "fuzz/one_pass.h"
#include "qrt_core/qrt_core.h"

// What each harness does with a byte string. The tests run the kept inputs through the same
// functions.

namespace marlo::fuzz {

/// A file that only this process sees, in memory where the system has such a folder: the library
/// reads from paths.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& suffix) {
    const char* const parent = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    folder_ = std::string(parent) + "/qrt_fuzz_XXXXXX";
    if (mkdtemp(folder_.data()) == nullptr) std::abort();
    path_ = folder_ + "/input" + suffix;
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() {
    unlink(path_.c_str());
    rmdir(folder_.c_str());
  }

  const std::string& path() const { return path_; }

  void write(const uint8_t* data, size_t size) const {
    const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (file < 0 || ::write(file, data, size) != static_cast<ssize_t>(size) || close(file) != 0) {
      std::abort();
    }
  }

 private:
  std::string folder_;
  std::string path_;
};

/// The registries with everything in them. Asking for them turns the log off.
struct Library {
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;

  Library() {
    utility::init_register_operators(kernels, params);
    utility::init_register_extension_operators(kernels, params);
  }

  static Library& get() {
    static Library library;
    utility::SetLogCallback([](const char*) { return 0; });
    return library;
  }
};

/// Loads a model file as an application does, once with the SDK that it asks for and once with
/// another one, and runs one pass of what it holds.
inline void load(const std::string& path, const runtime::QRTModel& model) {
  Library& library = Library::get();
  BudgetContext budget;
  for (const std::string& sdk : {model.sdk_type, model.sdk_type + "?"}) {
    std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
    accepted([&] {
      (void)utility::load_model(path, nets, budget.context, library.kernels, library.params, sdk,
                                model.sdk_major_ver, model.sdk_minor_ver);
    });
    for (const auto& [id, package] : nets) {
      const auto info = model.model_arr->infos.find(id);
      if (package == nullptr || package->net == nullptr) continue;
      if (info != model.model_arr->infos.end()) run_passes(*package->net, *info->second, budget);
    }
  }
}

inline void read_json(const uint8_t* data, size_t size) {
  static const ScratchFile file(".json");
  Library& library = Library::get();
  file.write(data, size);
  runtime::QRTModel model;
  accepted([&] { model.FromFile(file.path().c_str()); });
  load(file.path(), model);
  const std::string text(reinterpret_cast<const char*>(data), size);
  accepted([&] { runtime::CreateConfigFromJSON(text, library.params); });
}

inline void read_qrtmodel(const uint8_t* data, size_t size) {
  static const ScratchFile file(".qrtmodel");
  file.write(data, size);
  Library::get();
  runtime::QRTModel model;
  accepted([&] { model.FromFile(file.path().c_str(), "bin"); });
  load(file.path(), model);
}

inline void read_qrmod(const uint8_t* data, size_t size) {
  static const ScratchFile one(".qrmod");
  static const ScratchFile several(".qrmods");
  Library& library = Library::get();
  one.write(data, size);
  several.write(data, size);
  const auto info = std::make_shared<runtime::QRModelInfo>();
  const bool reads = accepted([&] { info->FromFile(one.path().c_str()); });
  accepted([&] { info->GetInputIDs(); });
  accepted([&] { info->GetOutputIDs(); });
  if (reads) run_network(info, library.kernels);
  runtime::QRModelInfoArr infos;
  accepted([&] { infos.FromFile(several.path().c_str()); });
}

inline void read_qrcfg(const uint8_t* data, size_t size) {
  static const ScratchFile one(".qrcfg");
  static const ScratchFile several(".qrcfgs");
  Library::get();
  one.write(data, size);
  several.write(data, size);
  accepted([&] { runtime::QRModelCfg().FromFile(one.path().c_str()); });
  accepted([&] { runtime::QRModelMultiBackendCfgsArr().FromFile(several.path().c_str()); });
}

inline void read_legacy(const uint8_t* data, size_t size) {
  static const ScratchFile file(".qrm");
  Library& library = Library::get();
  file.write(data, size);
  const auto info = std::make_shared<runtime::QRModelInfo>();
  const bool reads = accepted([&] { info->LoadFromQRModel1(file.path().c_str()); });
  accepted([&] { info->GetOutputIDs(); });
  if (reads) run_network(info, library.kernels);
}

}  // namespace marlo::fuzz
