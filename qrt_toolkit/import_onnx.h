#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/export.h"
#include "qrt_toolkit/assign/assign.h"
#include "qrt_toolkit/assign/kernel_set.h"
#include "qrt_toolkit/errors.h"

// A network from an ONNX file becomes a model that this library runs.

namespace marlo::toolkit {

/// A tensor that takes the place of a graph's input. Plain data.
struct GivenTensor {
  std::vector<int64_t> shape;   ///< empty for a single number
  std::vector<double> numbers;  ///< row by row, converted to the input's type
};

/// What is done to a picture before the network sees it: samples of 0 to 255 less `mean`, times
/// `scale`. Plain data.
struct PicturePreparation {
  std::string color;          ///< order of the planes: "rgb", "bgr" or "gray"; empty for the usual
  std::vector<double> mean;   ///< one number for all channels, or one for each; empty for 0
  std::vector<double> scale;  ///< likewise; empty for 1/255

  /// Whether it says nothing.
  bool empty() const { return color.empty() && mean.empty() && scale.empty(); }
};

/// What a caller can say of the network. Plain data: any number of threads may read it while none
/// changes it.
struct ImportOptions {
  /// The shapes of inputs that the file leaves open, as the file has them, with their batch. The
  /// name "" stands for the only input. A size of -1 stays free: the model then takes any.
  std::map<std::string, std::vector<int64_t>> shapes;
  /// Inputs that become constants.
  std::map<std::string, GivenTensor> constants;
  /// Tensors, or nodes by name, that become the outputs: what only others need is cut off. The
  /// graph's own outputs if empty.
  std::vector<std::string> outputs;
  /// Name of the network; the file's own without folder and suffix if empty.
  std::string network;
  /// The kernels to choose from, by estimated costs. Without it those that this processor can run;
  /// `KernelSet::portable` keeps the kernels that define what is computed.
  std::optional<KernelSet> kernels;
  /// What the model says about pictures for its inputs of three axes.
  PicturePreparation preparation;
};

/// One input or output of the imported network. Plain data.
struct ImportedTensor {
  std::string name;                ///< also the id of its layer
  std::vector<uint32_t> shape;     ///< without batch; 0 for a size that stays free
  bool has_batch = false;          ///< whether the source's shape begins with a batch of one
  runtime::TensorShape in_memory;  ///< as the network takes or returns it
};

/// What became of the network. Plain data.
struct ImportReport {
  std::string network;                               ///< its id
  std::string producer;                              ///< what wrote the file
  int opset = 0;                                     ///< its operator set
  std::vector<ImportedTensor> inputs;                ///< in the graph's order
  std::vector<ImportedTensor> outputs;               ///< likewise
  std::map<std::string, std::string> node_of_layer;  ///< the file's node by layer id
  uint64_t multiply_adds = 0;                        ///< of a pass
  std::vector<std::string> notes;                    ///< what was assumed, in words
  KernelSet kernels = KernelSet::portable;           ///< what the kernels were chosen from
  AssignReport assigned;                             ///< what was chosen; empty for portable ones
};

/// A model with its report. Plain data.
struct ImportedModel {
  runtime::QRTModel model;  ///< weights as exact as the file has them
  ImportReport report;
};

/// Whether this library was built with what reads ONNX files; without it `import_onnx` throws.
QRT_API bool can_read_onnx() noexcept;

/// Imports a network. Its inputs and outputs are plain float32 in the file's own order of axes,
/// less the batch, whatever layouts lie inside.
///
/// @code
/// auto imported = marlo::toolkit::import_onnx("net.onnx");
/// imported.model.ToFile("net.qrtmodel", "bin");
/// @endcode
///
/// @throws FileError for a file that can't be read
/// @throws UnsupportedError with all that can't be imported
QRT_API ImportedModel import_onnx(const std::string& path, const ImportOptions& options = {});

/// One operator that can be read. Plain data.
struct OperatorSupport {
  std::string name;         ///< "Conv"
  int since = 0;            ///< the first operator set whose meaning is read
  bool is_lowered = false;  ///< whether layers compute it; others only among constants
  std::string limits;       ///< what isn't taken, in words
};

/// All operators of the table, by name: what documents and tools tell of them.
/// @throws FileError where this library was built without what reads ONNX files
QRT_API std::vector<OperatorSupport> supported_operators();

}  // namespace marlo::toolkit
