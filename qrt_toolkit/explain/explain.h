#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/export.h"
#include "qrt_toolkit/assign/kernel_set.h"
#include "qrt_toolkit/explain/machine.h"
#include "qrt_toolkit/explain/roofline.h"
#include "qrt_toolkit/tune/layer_candidates.h"
#include "qrt_toolkit/tune/meter.h"

// Where the time of a network goes, and why it isn't less.

namespace marlo::toolkit {

/// How far an explanation has come. Plain data.
struct ExplainProgress {
  size_t steps = 0;     ///< done so far
  size_t of_steps = 0;  ///< that there are
};

/// What is explained, and how. Plain data.
struct ExplainOptions {
  std::string network;  ///< its id; the model's only one if empty
  /// Shapes of the network's inputs by layer id.
  std::map<std::string, runtime::TensorShape> inputs;
  double passes_ms = 1000;         ///< of passes that are timed, once warm
  size_t least_passes = 5;         ///< however long they take
  size_t most_passes = 2000;       ///< however short they are
  bool with_candidates = false;    ///< whether other kernels are looked for and measured
  KernelSet set = KernelSet::sse;  ///< the kernels to choose from; see `processor_kernels`
  double tolerance = 1e-4;         ///< of their results; as in `AssignOptions`
  double budget = 60;              ///< seconds, after which no more candidates are measured
  std::string wisdom;              ///< file of earlier measurements; empty for none
  std::string processor;           ///< what these are for; see `processor_name`
  Meter* meter = nullptr;          ///< takes candidates' times; null for the clock. Not owned
  /// The machine's limits, where they are known; else null, and they are measured. Not owned.
  const MachineLimits* machine = nullptr;
  /// Told between steps; false ends it with what is known so far. Candidates come last.
  std::function<bool(const ExplainProgress&)> go_on;
};

/// The kind of the layers that only bring numbers into another layout.
inline constexpr char kConverterKind[] = "converter";

/// A converter of a layer, before or behind its kernel. Plain data.
struct ExplainedConverter {
  std::string role;    ///< "input 0", "output 0"
  std::string kernel;  ///< its name
  double ms = 0;       ///< of a pass
  Roofline roofline;   ///< against the machine's limit
};

/// One layer of a network. Plain data.
struct ExplainedLayer {
  std::string id;                              ///< in the model
  std::string kind;                            ///< "Conv2d"
  std::string kernel;                          ///< that runs it
  KernelSet set = KernelSet::portable;         ///< what the kernel needs
  std::vector<std::string> sources;            ///< ids of the layers that it reads
  std::vector<runtime::TensorShape> inputs;    ///< as the kernel reads them
  std::vector<runtime::TensorShape> outputs;   ///< as the kernel makes them
  bool is_input = false;                       ///< the network's
  bool is_output = false;                      ///< the network's
  bool is_converter = false;                   ///< it only moves numbers into another layout
  double ms = 0;                               ///< of a pass in the kernel
  KernelWork work;                             ///< what it has to do
  Roofline roofline;                           ///< against the machine's limit
  std::vector<ExplainedConverter> converters;  ///< that the engine runs around it
  /// The kernels that could run it, the fastest first; the chosen one is among them. Empty for
  /// layers that stay as they are: inputs, and those with parameters or converters of other kinds.
  std::vector<ExplainedCandidate> candidates;
  /// The kernels for layers of its kind that can't run it, by name, and why.
  std::vector<ExplainedRefusal> refusals;
};

/// Layers of one kind together. Plain data.
struct ExplainedKind {
  std::string kind;            ///< "Conv2d", or "converter"
  size_t layers = 0;           ///< so many; of converters: kernels
  double ms = 0;               ///< of a pass
  double limit_ms = 0;         ///< the sum of their limits
  uint64_t multiply_adds = 0;  ///< of all
};

/// A network explained. Plain data.
struct Explanation {
  std::string network;                 ///< its id
  MachineLimits machine;               ///< on which it ran
  std::vector<ExplainedLayer> layers;  ///< in execution order
  std::vector<ExplainedKind> kinds;    ///< the longest first
  size_t passes = 0;                   ///< so many were timed
  double pass_ms = 0;                  ///< a pass as it is, without any kernel timed
  double kernels_ms = 0;               ///< of it, in kernels of layers
  double converters_ms = 0;            ///< in converters, whether layers or around layers
  double engine_ms = 0;                ///< between the kernels
  double limit_ms = 0;                 ///< the sum of all limits
  bool is_complete = true;             ///< whether it wasn't ended before all was measured
  std::vector<std::string> notes;      ///< what went wrong without stopping it, in words
};

/// Runs a network and says where its time goes: medians of the time that the processor worked on the
/// calling thread. Kernels are timed within passes, and what the clock itself costs is taken off;
/// whole passes are timed without.
///
/// @code
/// ExplainOptions options;
/// options.inputs["x"] = image->shape;
/// Explanation all = explain_model(model, kernels, options);
/// for (const ExplainedLayer& layer : all.layers) std::cout << layer.id << ' ' << layer.ms << '\n';
/// @endcode
///
/// Layers are empty where it was ended before any pass was timed. A network whose kernels run
/// although their shapes can't be followed has no candidates, and a note says why.
///
/// @throws std::invalid_argument for a network that isn't there, returns nothing, has an input
///   without a shape or with one of 4 GiB or more, or names a kernel that this processor lacks the
///   instructions for; utility::Error for one that can't run; std::bad_alloc where memory for it or
///   for measuring the machine isn't to be had
QRT_API Explanation explain_model(const runtime::QRTModel& model,
                                  const runtime::KernelRegistry& kernels,
                                  const ExplainOptions& options);

/// The fastest candidate but the chosen one, converters included; null where there is none.
QRT_API const ExplainedCandidate* second_of(const ExplainedLayer& layer);

/// The chosen candidate; null where a layer has none.
QRT_API const ExplainedCandidate* chosen_of(const ExplainedLayer& layer);

/// "+12.5 %": how much longer a candidate takes than the chosen one, with a tilde where either is
/// estimated; empty where nothing is chosen, or takes no time.
QRT_API std::string behind_chosen(const ExplainedCandidate& candidate, const ExplainedLayer& layer);

}  // namespace marlo::toolkit
