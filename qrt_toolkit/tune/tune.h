#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/export.h"
#include "qrt_toolkit/assign/assign.h"
#include "qrt_toolkit/tune/layer_candidates.h"
#include "qrt_toolkit/tune/meter.h"

// Chooses kernels and layouts by measurement.

namespace marlo::toolkit {

/// What a run of tuning tells while it works. Plain data.
struct TuneProgress {
  double seconds = 0;    ///< since the beginning
  size_t layers = 0;     ///< measured so far
  size_t of_layers = 0;  ///< that there are
};

/// Sizes of a network's inputs, and how much a pass on them counts. Plain data.
struct TuneSize {
  std::map<std::string, runtime::TensorShape> inputs;  ///< shapes by layer id
  double weight = 1;  ///< what its milliseconds are multiplied with
};

/// What may be chosen, and by what. Plain data.
struct TuneOptions {
  AssignOptions assign;  ///< kernels, tolerance, input shapes and the network
  double weight = 1;     ///< of a pass on these shapes
  /// Further sizes of the inputs: what is made as small as can be is the weighted sum of passes on
  /// all sizes.
  std::vector<TuneSize> further;
  double budget = 120;  ///< seconds, after which nothing more is measured
  bool with_candidates =
      false;               ///< whether the report tells every candidate, and why others aren't
  std::string wisdom;      ///< file of earlier measurements; empty for none
  std::string processor;   ///< what the measurements and the model are for; see `processor_name`
  std::string date;        ///< that the model is marked with; empty for none
  Meter* meter = nullptr;  ///< takes the times; null for the clock. Not owned
  /// Asked between measurements, and many times a second; false ends them, and the best that is known
  /// is chosen without another pass.
  std::function<bool(const TuneProgress&)> go_on;
};

/// One of the configurations that ran as whole networks. Plain data.
struct TunedConfiguration {
  /// "given", "measured", "fewer converters", "whole blocks" or "estimated"; "exchanged" for the best of
  /// them with kernels exchanged for others that are close.
  std::string name;
  /// Of a pass; of several sizes: the weighted sum. NaN where it was ended before that was known.
  double milliseconds = 0;
  /// Of the given one's time in the same round of passes, the last in which this one ran; 0 where unknown.
  double of_given = 0;
};

/// What tuning did to passes on one size; NaN where it was ended before that was known. Plain data.
struct TunedSize {
  TuneSize size;
  double before = 0;      ///< milliseconds of a pass of the given model
  double after = 0;       ///< of the chosen one
  double difference = 0;  ///< of the outputs, over the largest number of each
};

/// What became of a network. Times and differences are NaN where it was ended before they were known.
/// Plain data.
struct TuneReport {
  AssignReport assigned;                ///< of the configuration that was chosen
  std::vector<TunedConfiguration> ran;  ///< the given one first
  std::string chosen;                   ///< the name of one of them
  /// Layers whose results have channels of zeros in the chosen one, up to a whole block of 8, by id, and
  /// how many channels they have in all.
  std::map<std::string, uint32_t> padded;
  double before = 0;                  ///< milliseconds of the given model, the last time
  double after = 0;                   ///< of the chosen one
  double difference = 0;              ///< the largest of all sizes
  std::vector<TunedSize> sizes;       ///< in the order of the options
  double seconds = 0;                 ///< that it took
  size_t measured = 0;                ///< kernels on layers
  size_t remembered = 0;              ///< of them from the file of wisdom
  size_t changes_tried = 0;           ///< of kernels that were close, in whole passes
  size_t changes_kept = 0;            ///< of these: in the chosen one, as passes got faster
  bool is_complete = true;            ///< whether nothing was left out for want of time
  std::vector<std::string> excluded;  ///< kernels that need other instructions
  std::vector<std::string> notes;     ///< what went wrong without stopping it, in words
  /// By layer id, where it was asked for: the kernels that could run the layer on the first size, and
  /// those that couldn't. Empty for layers that stay as they are.
  std::map<std::string, LayerRivals> candidates;
};

/// A model with what became of it. Plain data.
struct TunedModel {
  runtime::QRTModel model;
  TuneReport report;
};

/// Chooses kernels, layouts and converters for one network by measurement on this machine.
///
/// The candidates are those of `assign_kernels`. Each distinct kernel, description and shape is
/// timed once, the cheapest assignment of all layers together is found, and then whole passes of it
/// run against the given model and a few others. The given model is what comes back where none is
/// faster, unless it names kernels that need more than the set. `QRModelCfg::summary` gets a line of JSON that begins with the key "qrt_tuned" and says
/// for which processor, kernels, shapes and date. With several sizes of inputs a kernel has to take
/// its layer on all of them.
///
/// @throws std::invalid_argument as `assign_kernels`, for a weight that is not above 0, and for a
///   network whose layers stand in other layouts on another size; utility::Error for a network that
///   can't run
QRT_API TunedModel tune_model(const runtime::QRTModel& model,
                              const runtime::KernelRegistry& kernels, const TuneOptions& options);

/// The tolerance that a word stands for: 0 for "same"; 1e-4 for "bounded", which lets a sum be taken
/// in another order; 0.05 for "fast", which lets functions be approximated; empty for another word.
QRT_API std::optional<double> tolerance_of(std::string_view numerics);

/// The name that this processor gives itself, such as "AMD EPYC 9R14"; "unknown" for none.
QRT_API std::string processor_name();

/// What a configuration was tuned for, as its summary says. Plain data.
struct TunedFor {
  std::string processor;                      ///< its own name
  std::string kernels;                        ///< the largest set that was chosen from, in a word
  std::string library;                        ///< with its version
  std::string date;                           ///< empty where it isn't told
  std::map<std::string, std::string> inputs;  ///< shapes in words by layer id
  /// The same for further sizes.
  std::vector<std::map<std::string, std::string>> further;
};

/// Empty where a configuration wasn't tuned.
QRT_API std::optional<TunedFor> tuned_for(const std::string& summary);

/// The processor that a configuration was tuned for, by its summary; empty where it wasn't.
QRT_API std::string tuned_processor(const std::string& summary);

}  // namespace marlo::toolkit
