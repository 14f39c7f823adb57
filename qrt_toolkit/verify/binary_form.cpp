#include "qrt_toolkit/verify/binary_form.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

#include "qrt_core/runtime/model/half_rounding.h"
#include "qrt_core/runtime/model/layer_info.h"

namespace marlo::toolkit {
namespace {

/// A file that is gone with this.
class TemporaryFile {
 public:
  TemporaryFile() : path_((std::filesystem::temp_directory_path() / "qrt-verify-XXXXXX").string()) {
    const int descriptor = mkstemp(path_.data());
    if (descriptor < 0) throw std::runtime_error(path_ + ": can't be made");
    close(descriptor);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { unlink(path_.c_str()); }

  const char* path() const { return path_.c_str(); }

 private:
  std::string path_;
};

/// Weights of a model as they were, put back at the end.
class RoundedWeights {
 public:
  explicit RoundedWeights(runtime::QRTModel& model) {
    for (auto& [id, network] : model.model_arr->infos) {
      for (auto& [layer_id, layer] : network->layers) {
        for (const runtime::LayerWeight& weight : runtime::WeightsOf(*layer)) {
          kept_.emplace_back(weight.blob, *weight.blob);
          runtime::RoundToHalves(*weight.blob);
        }
      }
    }
  }
  RoundedWeights(const RoundedWeights&) = delete;
  RoundedWeights& operator=(const RoundedWeights&) = delete;
  ~RoundedWeights() {
    for (auto& [blob, before] : kept_) *blob = std::move(before);
  }

 private:
  std::vector<std::pair<runtime::WeightBlob*, runtime::WeightBlob>> kept_;
};

}  // namespace

runtime::QRTModel as_binary_form(runtime::QRTModel& model) {
  const TemporaryFile file;
  {
    const RoundedWeights rounded(model);
    model.ToFile(file.path(), "bin");
  }
  runtime::QRTModel read;
  read.FromFile(file.path(), "bin");
  return read;
}

}  // namespace marlo::toolkit
