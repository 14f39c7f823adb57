#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "qrt_toolkit/import_onnx.h"
#include "qrt_toolkit/verify_import.h"
#include "tools/qrt/commands.h"

// Networks in files of another form, which become models.

namespace qrt_tool {

/// Whether a path is that of an ONNX file, by its name.
bool is_onnx(const std::string& path);

/// What the command line says of a network's inputs.
struct SourceInputs {
  marlo::toolkit::ImportOptions options;  ///< for the import
  /// Numbers that were given in files, by the name of their input.
  std::map<std::string, marlo::toolkit::GivenTensor> tensors;
};

/// Reads `--input`, `--set` and `--output`.
/// @throws ToolError: kUsageError for what makes no sense, kInputError for a file that can't be
///   read, naming it
SourceInputs read_source_options(const SourceOptions& options);

/// The preparation of pictures that a model is to hold.
/// @throws ToolError (kUsageError)
marlo::toolkit::PicturePreparation preparation_of(const PictureOptions& options);

/// Imports a network; everything that can't be imported is printed before this throws.
/// @throws ToolError: kImportError with their number, kModelError for a file that can't be read
marlo::toolkit::ImportedModel import_source(const std::string& path,
                                            const marlo::toolkit::ImportOptions& options);

/// The model of a network that is imported in memory only. Sizes that its file leaves open are those
/// of `inputs`.
/// @param inputs as commands take them for models: "SIZES", "FILE" or "LAYER=FILE"
/// @param set the kernels to choose from; without it those of this processor
/// @throws ToolError as `import_source`
std::shared_ptr<marlo::runtime::QRTModel> imported_model(
    const std::string& path, const std::vector<std::string>& inputs,
    std::optional<marlo::toolkit::KernelSet> set = std::nullopt);

/// The same, run beside its source, with a line of progress on a terminal.
marlo::toolkit::VerifiedImport import_and_verify_source(
    const std::string& path, const marlo::toolkit::ImportOptions& options,
    const marlo::toolkit::VerifyOptions& verify);

/// Runs `work`; what it throws about a file is printed and becomes a ToolError as above.
template <class Work>
auto explaining_refusals(const std::string& path, Work&& work) -> decltype(work());

/// Prints what is wrong with a file, and throws.
[[noreturn]] void refuse_source(const std::string& path, const marlo::toolkit::ImportError& error);

template <class Work>
auto explaining_refusals(const std::string& path, Work&& work) -> decltype(work()) {
  try {
    return work();
  } catch (const marlo::toolkit::ImportError& error) {
    refuse_source(path, error);
  }
}

}  // namespace qrt_tool
