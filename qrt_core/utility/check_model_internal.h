#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/model/weight_places_internal.h"
#include "qrt_core/utility/check_model.h"
#include "qrt_core/utility/model_source_internal.h"

// The parts of `check_model`.

namespace marlo::utility {

/// Collects findings, all of them with a place.
class FindingList {
 public:
  /// The fields of a finding that say where; the others are empty.
  using Place = Finding;

  void add(const Place& place, FindingCode code, Severity severity, const std::string& member,
           const std::string& expected, const std::string& found, const std::string& change);

  /// The same for each point that a kernel has named.
  void add(const Place& place, FindingCode code, Severity severity,
           const std::vector<Misfit>& misfits, const std::string& change);

  size_t size() const { return findings_.size(); }
  /// Whether no more are taken, so that advice needn't be thought of.
  bool is_full() const;
  std::vector<Finding> take() { return std::move(findings_); }

 private:
  std::vector<Finding> findings_;
};

/// The kind of a layer for messages: "Conv2d".
std::string kind_of(const runtime::LayerInfo& info);

/// Judges the JSON text of a model beside the tree that was read from it: members that nothing
/// reads, numbers that were cut, classes that contradict the list of types.
/// @param was_read whether reading went through; if not, members of the wrong kind are looked for
void examine_json(const std::string& text, runtime::QRTModel& model, bool was_read,
                  FindingList& findings);

/// Adds a finding if a text isn't JSON. @return whether it is
bool check_json_syntax(const std::string& text, FindingList& findings);

/// Judges a layer's numbers: counts, Base64, biases.
void check_weights(runtime::LayerInfo& info, const FindingList::Place& place,
                   FindingList& findings);

/// Networks that are ready, by id: their kernels need no second configuration. Not owned.
using ReadyNets = std::map<std::string, const runtime::Net*>;

/// What a check takes from elsewhere than the tree. Not owned.
struct CheckSources {
  const runtime::WeightPlaces* weights = nullptr;  ///< null where the tree holds them
  const ReadyNets* nets = nullptr;                 ///< null for none
};

/// Judges one network: ids, kernels, shapes, and memory that is overwritten.
void check_network(const std::string& id, const std::shared_ptr<runtime::QRModelInfo>& info,
                   const runtime::QRModelMultiBackendCfgs& cfgs,
                   const runtime::KernelRegistry& kernels, const CheckOptions& options,
                   const CheckSources& sources, FindingList& findings);

/// `check_model` of a model whose weights are still in its file.
/// @param nets of the model that are ready, their layers those of the tree
/// @return nothing where it has to be read whole to be judged
std::optional<std::vector<Finding>> check_source(ModelSource& source, const CheckOptions& options,
                                                 const ReadyNets& nets = {});

/// What `check_network` knows of one layer.
struct CheckedLayer {
  std::shared_ptr<runtime::LayerInfo> info;  // null without a description
  std::shared_ptr<runtime::Layer> layer;     // kernels that refused are null
  FindingList::Place place;
};

/// Walks shapes through the layers, as far as the inputs are given or can be told.
void check_network_shapes(const std::vector<CheckedLayer>& layers, const runtime::QRModelInfo& info,
                          const std::map<std::string, runtime::TensorShape>& inputs,
                          const std::shared_ptr<runtime::Context>& context, FindingList& findings);

/// Looks for in-place kernels on tensors that somebody still needs.
void check_overwritten(const std::vector<CheckedLayer>& layers,
                       const std::vector<uint32_t>& outputs, FindingList& findings);

}  // namespace marlo::utility
