#include "qrt_toolkit/explain/explain.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_toolkit/assign/costs.h"
#include "qrt_toolkit/assign/description.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/explain/html_parts.h"
#include "qrt_toolkit/explain/layer_work.h"
#include "qrt_toolkit/explain/passes.h"
#include "qrt_toolkit/tune/rivals.h"
#include "qrt_toolkit/watch/profiler.h"

namespace marlo::toolkit {
namespace {

using runtime::IKernelFacts;
using runtime::TensorShape;

std::vector<uint32_t> first_dims(const std::vector<TensorShape>& shapes) {
  return shapes.empty() ? std::vector<uint32_t>() : shapes[0].dims;
}

KernelSet set_of(const std::string& kernel) {
  return set_of_kernel(kernel, runtime::needs_of(kernel));
}

/// Whether a layer only brings numbers into another layout.
bool is_layout_transform(const std::string& kernel) {
  return kernel.rfind("LayoutTransform_", 0) == 0;
}

/// The model, if its configuration of a network can run here.
const runtime::QRTModel& checked(const runtime::QRTModel& model, const std::string& id) {
  check_runnable(config_of(model, id));
  return model;
}

/// One network, explained from the times of its passes.
class Explainer {
 public:
  Explainer(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
            const ExplainOptions& options)
      : model_(model),
        kernels_(kernels),
        options_(options),
        id_(network_id(model, options.network)),
        info_(network_of(model, id_)),
        network_(checked(model, id_), id_, options.inputs, kernels) {}

  Explanation run() {
    explanation_.network = id_;
    if (tell(0)) {
      explanation_.machine = options_.machine != nullptr ? *options_.machine : measure_machine();
    }
    if (tell(1)) {
      times_ = network_.time({options_.passes_ms, options_.least_passes, options_.most_passes,
                              [this] { return tell(1); }});
    }
    if (!is_ended_ || times_.count != 0) describe_passes();
    if (options_.with_candidates && tell(kFirstSteps)) add_rivals();
    if (!is_ended_ && options_.go_on) options_.go_on({of_steps(), of_steps()});
    explanation_.is_complete = explanation_.is_complete && !is_ended_;
    return std::move(explanation_);
  }

 private:
  size_t of_steps() const {
    return kFirstSteps + (options_.with_candidates ? info_.squential_ids.size() : 0);
  }

  /// Whether it goes on; what was ended stays so.
  bool tell(size_t steps) {
    if (!is_ended_ && options_.go_on) is_ended_ = !options_.go_on({steps, of_steps()});
    return !is_ended_;
  }

  void describe_passes() {
    explanation_.passes = times_.count;
    explanation_.pass_ms = times_.ms;
    describe_layers();
    for (const ProfileRow& row : times_.profile.rows) take_row(row);
    compare_with_limits();
    add_up();
  }

  void add_rivals() {
    RivalOptions rivals;
    rivals.assign.network = id_;
    rivals.assign.inputs = options_.inputs;
    rivals.assign.set = options_.set;
    rivals.assign.tolerance = options_.tolerance;
    rivals.budget = options_.budget;
    rivals.wisdom = options_.wisdom;
    rivals.processor = options_.processor;
    rivals.meter = options_.meter;
    size_t done = 0;
    rivals.go_on = [&] { return tell(kFirstSteps + done); };
    rivals.progress = [&](size_t layers) { done = layers; };
    Rivals found;
    try {
      found = find_rivals(model_, kernels_, rivals);
    } catch (const std::invalid_argument& failure) {
      // What the passes took is worth having all the same.
      explanation_.notes.push_back(std::string("no candidates: ") + failure.what());
      explanation_.is_complete = false;
      return;
    }
    for (ExplainedLayer& layer : explanation_.layers) {
      LayerRivals& own = found.layers[layer.id];
      layer.candidates = std::move(own.candidates);
      take_chosen_time(layer);
      layer.refusals = std::move(own.refusals);
    }
    explanation_.is_complete = found.is_complete;
    explanation_.notes = std::move(found.notes);
  }

  /// What is hopeless isn't measured alone, but the chosen kernel has run within passes.
  static void take_chosen_time(ExplainedLayer& layer) {
    for (ExplainedCandidate& candidate : layer.candidates) {
      if (!candidate.is_chosen) continue;
      if (!std::isfinite(candidate.converters_ms)) {
        candidate.converters_ms = 0;
        for (const ExplainedConverter& own : layer.converters) candidate.converters_ms += own.ms;
      }
      if (candidate.is_measured || layer.ms <= 0) continue;
      candidate.ms = layer.ms;
      candidate.is_measured = true;
    }
    std::stable_sort(layer.candidates.begin(), layer.candidates.end(),
                     [](const ExplainedCandidate& a, const ExplainedCandidate& b) {
                       return a.whole_ms() < b.whole_ms();
                     });
  }

  void describe_layers() {
    const auto& outputs = info_.squential_output_ids;
    for (const std::string& id : info_.squential_ids) {
      runtime::LayerInfo& info = *info_.layers.at(id);
      ExplainedLayer layer;
      layer.id = id;
      layer.kind = kind_of(info);
      layer.sources = info.input_ids;
      layer.is_output = std::find(outputs.begin(), outputs.end(), id) != outputs.end();
      layer.is_input = network_.net().input_map.count(id) != 0;
      layer.work.weights = weight_count(info) * sizeof(float);
      explanation_.layers.push_back(std::move(layer));
    }
  }

  void take_row(const ProfileRow& row) {
    ExplainedLayer& layer = explanation_.layers[row.layer];
    if (!row.role.empty()) {
      layer.converters.push_back({row.role, row.kernel, row.times.cpu_ms, {}});
      converter_work_.push_back({0, bytes_of(row.inputs), bytes_of(row.outputs), 0});
      return;
    }
    const runtime::Layer& place = *network_.net().layers[row.layer];
    layer.kernel = row.kernel;
    layer.set = set_of(row.kernel);
    layer.is_converter = is_layout_transform(row.kernel);
    layer.inputs = row.inputs;
    layer.outputs = row.outputs;
    layer.ms = row.times.cpu_ms;
    if (row.outputs.empty()) {  // nobody needs it, so it didn't run
      layer.work.weights = 0;
      return;
    }
    layer.work.multiply_adds =
        multiply_adds(*info_.layers.at(layer.id), first_dims(row.inputs), first_dims(row.outputs))
            .value_or(0);
    const auto* facts = dynamic_cast<const IKernelFacts*>(place.kernel.get());
    // A tensor that is handed on isn't touched, whatever its size.
    if (layer.is_input || (facts != nullptr && hands_on(facts->input_use(), row.kernel))) return;
    layer.work.read = bytes_of(row.inputs);
    layer.work.written = bytes_of(row.outputs);
  }

  /// The memory that a pass goes through: all weights, the inputs, and what the results need that are
  /// there at the same time.
  uint64_t touched_bytes() const {
    const auto& layers = explanation_.layers;
    std::map<std::string, size_t> makers;     // by layer id: whose memory the result lies in
    std::vector<size_t> last(layers.size());  // by maker: the last layer that reads it
    for (size_t i = 0; i < layers.size(); ++i) {
      const ExplainedLayer& layer = layers[i];
      for (const std::string& id : layer.sources) {
        if (makers.count(id) != 0) last[makers[id]] = i;
      }
      const bool is_handed_on =
          !layer.is_input && layer.work.written == 0 && !layer.sources.empty();
      const auto source = is_handed_on ? makers.find(layer.sources[0]) : makers.end();
      const size_t maker = source != makers.end() ? source->second : i;
      makers[layer.id] = maker;
      last[maker] = layer.is_output ? layers.size() : std::max(last[maker], i);
    }
    uint64_t lasting = 0;
    uint64_t live = 0;
    uint64_t most = 0;
    for (size_t i = 0; i < layers.size(); ++i) {
      lasting += layers[i].work.weights + (layers[i].is_input ? bytes_of(layers[i].outputs) : 0);
      live += layers[i].work.written;
      most = std::max(most, live);
      for (size_t k = 0; k <= i; ++k) live -= last[k] == i ? layers[k].work.written : 0;
    }
    return lasting + most;
  }

  void compare_with_limits() {
    const uint64_t pass_bytes = touched_bytes();
    const MachineLimits& machine = explanation_.machine;
    const KernelSet best = processor_kernels();
    size_t converter = 0;
    for (ExplainedLayer& layer : explanation_.layers) {
      const KernelSet set = limiting_set(layer.kernel, layer.set, best);
      layer.roofline = roofline_of(layer.work, layer.ms, pass_bytes, set, machine);
      for (ExplainedConverter& converted : layer.converters) {
        converted.roofline = roofline_of(converter_work_[converter++], converted.ms, pass_bytes,
                                         set_of(converted.kernel), machine);
      }
    }
  }

  void add_up() {
    for (const ExplainedLayer& layer : explanation_.layers) {
      add(layer.is_converter ? kConverterKind : layer.kind, layer.ms, layer.roofline.limit_ms,
          layer.work.multiply_adds);
      (layer.is_converter ? explanation_.converters_ms : explanation_.kernels_ms) += layer.ms;
      for (const ExplainedConverter& converter : layer.converters) {
        add(kConverterKind, converter.ms, converter.roofline.limit_ms, 0);
        explanation_.converters_ms += converter.ms;
      }
    }
    std::stable_sort(explanation_.kinds.begin(), explanation_.kinds.end(),
                     [](const ExplainedKind& a, const ExplainedKind& b) { return a.ms > b.ms; });
    const double in_kernels = explanation_.kernels_ms + explanation_.converters_ms;
    explanation_.engine_ms = std::max(0.0, explanation_.pass_ms - in_kernels);
  }

  void add(const std::string& name, double ms, double limit_ms, uint64_t multiply_adds) {
    auto& kinds = explanation_.kinds;
    auto kind = std::find_if(kinds.begin(), kinds.end(),
                             [&](const ExplainedKind& other) { return other.kind == name; });
    if (kind == kinds.end()) {
      kinds.push_back({name, 0, 0, 0, 0});
      kind = kinds.end() - 1;
    }
    ++kind->layers;
    kind->ms += ms;
    kind->limit_ms += limit_ms;
    kind->multiply_adds += multiply_adds;
    explanation_.limit_ms += limit_ms;
  }

  static constexpr size_t kFirstSteps = 2;  // the machine, and the passes

  const runtime::QRTModel& model_;
  const runtime::KernelRegistry& kernels_;
  const ExplainOptions& options_;
  const std::string id_;
  const runtime::QRModelInfo& info_;
  TimedNetwork network_;
  PassTimes times_;
  std::vector<KernelWork> converter_work_;  // in the order of the layers' converters
  Explanation explanation_;
  bool is_ended_ = false;
};

}  // namespace

Explanation explain_model(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
                          const ExplainOptions& options) {
  return Explainer(model, kernels, options).run();
}

const ExplainedCandidate* second_of(const ExplainedLayer& layer) {
  for (const ExplainedCandidate& candidate : layer.candidates) {
    if (!candidate.is_chosen) return &candidate;
  }
  return nullptr;
}

const ExplainedCandidate* chosen_of(const ExplainedLayer& layer) {
  for (const ExplainedCandidate& candidate : layer.candidates) {
    if (candidate.is_chosen) return &candidate;
  }
  return nullptr;
}

std::string behind_chosen(const ExplainedCandidate& candidate, const ExplainedLayer& layer) {
  const ExplainedCandidate* chosen = chosen_of(layer);
  if (chosen == nullptr || chosen->whole_ms() <= 0) return "";
  const double more = candidate.whole_ms() / chosen->whole_ms() - 1;
  const bool is_measured = candidate.is_measured && chosen->is_measured;
  return std::string(is_measured ? "" : "~") + (more < 0 ? "" : "+") + html_percent(more);
}

}  // namespace marlo::toolkit
