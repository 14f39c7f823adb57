#include "qrt_toolkit/tune/open.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "qrt_core/utility/application.h"
#include "qrt_core/utility/errors.h"
#include "qrt_toolkit/assign/assign.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/tune/tune.h"

namespace marlo::toolkit {
namespace {

/// A file in memory, for what is only written to files; where no /proc gives it a path, a temporary one.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("qrt", MFD_CLOEXEC)) {
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    if (descriptor_ >= 0 && access(path_.c_str(), W_OK) != 0) make_temporary();
    if (descriptor_ < 0) throw utility::Error("there is no memory for a copy of the model");
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() {
    close(descriptor_);
    if (is_temporary_) unlink(path_.c_str());
  }

  const std::string& path() const { return path_; }

  std::string bytes() const {
    struct stat status {};
    fstat(descriptor_, &status);
    std::string text(static_cast<size_t>(status.st_size), '\0');
    size_t done = 0;
    while (done < text.size()) {
      const ssize_t count =
          pread(descriptor_, text.data() + done, text.size() - done, static_cast<off_t>(done));
      if (count <= 0) throw utility::Error("the copy of the model can't be read");
      done += static_cast<size_t>(count);
    }
    return text;
  }

 private:
  void make_temporary() {
    std::error_code fault;
    path_ = (std::filesystem::temp_directory_path(fault) / "qrt_XXXXXX").string();
    close(descriptor_);
    descriptor_ = mkostemp(path_.data(), O_CLOEXEC);
    is_temporary_ = descriptor_ >= 0;
  }

  int descriptor_;
  std::string path_;
  bool is_temporary_ = false;
};

bool is_json(const std::string& path) {
  return path.size() > 5 && path.compare(path.size() - 5, 5, ".json") == 0;
}

}  // namespace

utility::Model open_with_kernels(const std::string& path, const std::vector<uint32_t>& sizes,
                                 KernelSet set) {
  utility::Model given(path);
  if (given.size() != 1 || given.at(0).inputs().size() != 1) {
    throw utility::Error("expected a model of one network with one input");
  }
  runtime::QRTModel model;
  const char* const form = is_json(path) ? "json" : "bin";
  model.FromFile(path.c_str(), form);
  if (tuned_processor(config_of(model, given.at(0).id()).summary) == processor_name()) return given;
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  utility::init_register_extension_operators(kernels, params);
  AssignOptions options;
  options.set = set;
  const utility::Port& input = given.at(0).inputs()[0];
  options.inputs[input.id] = utility::Input(sizes, static_cast<const float*>(nullptr)).shape();
  EstimatedCosts costs;
  AssignedModel assigned;
  try {
    assigned = assign_kernels(model, kernels, costs, options);
  } catch (const std::invalid_argument&) {
    return given;  // sizes that don't fit are told of when it runs
  }
  const MemoryFile file;
  if (!assigned.model.ToFile(file.path().c_str(), form)) {
    throw utility::Error("a copy of the model with other kernels can't be written to " +
                         file.path());
  }
  const std::string bytes = file.bytes();
  return utility::Model::from_bytes(bytes.data(), bytes.size());
}

}  // namespace marlo::toolkit
