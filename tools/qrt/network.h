#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "qrt_core/utility/model_source_internal.h"
#include "qrt_toolkit/assign/kernel_set.h"
#include "tools/qrt/network_report.h"

// Loading networks, with messages that say what is wrong.

namespace qrt_tool {

/// The library as it is set up once: every kernel of this build, and a context.
struct Library {
  Library();

  std::shared_ptr<marlo::runtime::Context> context;
  /// Where kernels are configured: their weights, and what these are made of, go back at once.
  std::shared_ptr<marlo::runtime::Context> weights;
  marlo::runtime::KernelRegistry kernels;
  marlo::runtime::InferenceParamRegistry params;
};

/// The SDK that a model must have been made for.
struct Sdk {
  std::string name;
  uint16_t major = 0;
  uint16_t minor = 0;
};

/// Reads "NAME:MAJOR.MINOR".
/// @throws ToolError (kUsageError)
Sdk parse_sdk(const std::string& text);

/// Reads a model, and checks that this library and the demanded SDK can run it.
/// @param sdk without it, that of the file
/// @param inputs of the command, for a network that is imported: see `imported_model`
/// @param set the kernels that an import may choose; without it those of this processor
/// @throws ToolError (kModelError), naming the file
std::shared_ptr<marlo::runtime::QRTModel> read_model(
    const std::string& path, const std::optional<Sdk>& sdk,
    const std::vector<std::string>& inputs = {},
    std::optional<marlo::toolkit::KernelSet> set = std::nullopt);

/// A model whose weights may still be in its file.
struct OpenModel {
  std::shared_ptr<marlo::utility::ModelSource> source;  ///< null where the tree holds its weights
  std::shared_ptr<marlo::runtime::QRTModel> tree;       ///< what is described

  /// Where the weights are, as `load_network` takes it.
  const marlo::runtime::WeightPlaces* weights() const {
    return source != nullptr ? source->weights() : nullptr;
  }
};

/// The same as `read_model`, with weights left in the file where that can be.
OpenModel open_model(const std::string& path, const std::optional<Sdk>& sdk,
                     const std::vector<std::string>& inputs = {});

/// The id to use: `wanted`, or the only one there is.
/// @throws ToolError: kUsageError where the choice is open, kModelError where there is none
std::string choose_network(const marlo::runtime::QRTModel& model, const std::string& path,
                           const std::string& wanted);

/// The configuration that this library runs; null if the model has none for the network.
const marlo::runtime::QRModelCfg* config_of(const marlo::runtime::QRTModel& model,
                                            const std::string& network);

/// A network that is ready to run.
struct LoadedNetwork {
  std::shared_ptr<marlo::utility::_NetworkPackage> package;
  NetworkReport report;
};

/// Whether loading says what the library lets pass.
enum class LoadWarnings { say, drop };

/// Builds one network of a model.
/// @param weights where those of the tree are; null where it holds them
/// @throws ToolError (kModelError), naming the file and the layer that can't be built
LoadedNetwork load_network(Library& library, const marlo::runtime::QRTModel& model,
                           const std::string& path, const std::string& network,
                           LoadWarnings warnings = LoadWarnings::say,
                           const marlo::runtime::WeightPlaces* weights = nullptr);

}  // namespace qrt_tool
