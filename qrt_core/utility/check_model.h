#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/tensor/tensor_shape.h"
#include "qrt_core/utility/export.h"

// Whether a model means what it says. Loading accepts whatever the kernels accept; some layers
// load, fit, and compute something else than their description asks for. This judges the meaning.

namespace marlo::utility {

/// How much a finding matters.
enum class Severity : uint8_t {
  warning,  ///< it runs, and may not be what was meant
  error,    ///< it can't run, or computes something else than the description says
};

/// What was found.
enum class FindingCode : uint8_t {
  unreadable,             ///< the file can't be opened or isn't a model
  wrong_version,          ///< another SDK, or a core above this library's
  unknown_member,         ///< a member of a JSON object that nothing reads
  missing_member,         ///< a JSON member that is absent and then 0
  cut_number,             ///< a number that doesn't fit its attribute and is cut
  wrong_class,            ///< a description's class or code contradicts the list of types
  unknown_id,             ///< an id that names nothing
  repeated_id,            ///< an id that stands twice in a list
  wrong_order,            ///< a layer that reads one that doesn't stand before it
  no_outputs,             ///< a network that returns nothing
  unused_layer,           ///< a layer whose result nobody reads and the network doesn't return
  missing_configuration,  ///< a layer or network without an entry in "cpu_sse"
  unused_configuration,   ///< a kernel or converter that is configured where nothing reads it
  unknown_kernel,         ///< a kernel that is not in the registry
  refused_layer,          ///< a kernel that can't take its description
  other_result,           ///< a kernel that takes its description and computes something else
  wrong_weights,          ///< numbers missing or left over, or a text that isn't Base64
  unused_bias,            ///< numbers for a bias that is switched off
  missing_bias,           ///< a bias that is switched on without numbers
  wrong_shape,            ///< inputs that a kernel refuses, or an output that can't be
  padded_channels,        ///< channels that readers see and the description doesn't have
  overwritten_input,      ///< an in-place kernel on a tensor that is still needed
};

/// The code as a word: "unknown-member".
QRT_API const char* code_name(FindingCode code);

/// One point in which a model doesn't mean what it says. All threads may read it.
struct Finding {
  FindingCode code = FindingCode::unreadable;  ///< what kind of point it is
  Severity severity = Severity::error;         ///< how much it matters
  std::string network;                         ///< id of the network; may be empty
  std::optional<uint32_t> layer;               ///< index of the layer, where one is concerned
  std::string id;                              ///< id of the layer
  std::string kind;                            ///< kind of the layer, such as "Conv2d"
  std::string kernel;                          ///< its kernel or converter, where one is concerned
  std::string member;                          ///< what is at fault, by its key in the file
  std::string expected;                        ///< in words
  std::string found;                           ///< in the same words
  std::string change;                          ///< what to change
  uint32_t line = 0;                           ///< in the JSON text, from 1; 0 where not known
  uint32_t column = 0;                         ///< in that line, from 1
};

/// `error: network "n", layer 4 "block0" (Conv2d), kernel K: groups: expected 1, found 64; ...`
QRT_API std::string finding_text(const Finding& finding);

/// What a check may know beside the model. All threads may read it.
struct CheckOptions {
  /// Kernels of the application; null stands for all that this build has.
  const runtime::KernelRegistry* kernels = nullptr;
  /// What the application gives to `load_model`; nothing is said about the SDK if it is empty.
  std::string sdk_type;
  uint16_t sdk_major = 0;  ///< with `sdk_type`
  uint16_t sdk_minor = 0;  ///< with `sdk_type`
  /// Shapes of inputs by network and layer id. Without them those that the header and the first
  /// layers tell are tried.
  std::map<std::string, std::map<std::string, runtime::TensorShape>> inputs;
};

/// Checks a model file. Its kernels are configured, which takes the memory of their packed weights;
/// no pass runs, and nothing is logged.
///
/// @code
/// for (const auto& finding : check_model("net.json")) {
///   std::cerr << finding_text(finding) << '\n';
/// }
/// @endcode
///
/// @param path a JSON file or a .qrtmodel
/// @param options what is known beside the file
/// @return every point that was found, in the order of the file; empty for a model that is right. A
///   file that can't be read gives one finding, so no exception but std::bad_alloc leaves.
QRT_API std::vector<Finding> check_model(const std::string& path, const CheckOptions& options = {});

/// The same of a model in memory, in either form.
QRT_API std::vector<Finding> check_model(const void* bytes, size_t size,
                                         const CheckOptions& options = {});

/// The same of a model tree. What only a file has, such as members that nothing reads, is not
/// judged.
QRT_API std::vector<Finding> check_model(const std::shared_ptr<runtime::QRTModel>& model,
                                         const CheckOptions& options = {});

}  // namespace marlo::utility
