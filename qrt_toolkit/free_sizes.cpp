#include "qrt_toolkit/free_sizes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/layers.h"

namespace marlo::toolkit {
namespace {

/// Tried in the place of free sizes, until `kSamples` of them can be imported: networks that halve
/// their input need multiples of their own, others show at odd sizes what they pin.
constexpr int64_t kTried[] = {64, 96, 160, 75, 224, 131, 32, 16, 9, 4};
constexpr size_t kSamples = 4;

/// Which sizes of an input stay free.
std::vector<bool> free_axes(const Value& value, const std::vector<int64_t>& given,
                            FirstSize first) {
  std::vector<bool> axes(given.size(), false);
  for (size_t i = 0; i < given.size(); ++i) {
    const bool stated = value.shape && i < value.shape->size() && (*value.shape)[i].known();
    const bool is_batch = i == 0 && given.size() > 1 && first == FirstSize::batch;
    axes[i] = given[i] < 0 && !stated && !is_batch;
  }
  return axes;
}

const std::vector<int64_t>* given_for(const Graph& graph, const Value& value,
                                      const ImportOptions& options) {
  auto found = options.shapes.find(value.name);
  if (found == options.shapes.end() && graph.inputs.size() == 1) found = options.shapes.find("");
  return found == options.shapes.end() ? nullptr : &found->second;
}

ImportOptions with_size(const Graph& graph, const ImportOptions& options, FirstSize first,
                        int64_t size) {
  ImportOptions fixed = options;
  for (const ValueId id : graph.inputs) {
    const Value& value = graph.value(id);
    const std::vector<int64_t>* given = given_for(graph, value, options);
    if (given == nullptr) continue;
    const std::vector<bool> axes = free_axes(value, *given, first);
    std::vector<int64_t> sizes = *given;
    for (size_t i = 0; i < sizes.size(); ++i) {
      if (axes[i]) sizes[i] = size;
    }
    fixed.shapes.erase("");
    fixed.shapes[value.name] = std::move(sizes);
  }
  return fixed;
}

runtime::QRModelInfo& network_of(const ImportStages& stages) {
  return *stages.imported.model.model_arr->infos.at(stages.imported.report.network);
}

/// A description in the form of binary files.
std::string bytes_of(runtime::LayerInfo& layer) {
  char* text = nullptr;
  size_t size = 0;
  std::FILE* const stream = open_memstream(&text, &size);
  if (stream == nullptr) throw std::bad_alloc();
  layer.VisitAttr(std::make_shared<runtime::FILEWriter>(stream, true));
  std::fclose(stream);
  std::string bytes(text, size);
  std::free(text);
  return bytes;
}

/// Leaves the size of a reshape that differs to be computed, where it is the only one.
void free_reshape(runtime::LayerInfo& first, const runtime::LayerInfo& second) {
  auto* ours = dynamic_cast<runtime::TensorReshapeInfo*>(&first);
  const auto* theirs = dynamic_cast<const runtime::TensorReshapeInfo*>(&second);
  if (ours == nullptr || theirs == nullptr) return;
  if (ours->new_shape.size() != theirs->new_shape.size()) return;
  std::optional<size_t> other;
  for (size_t i = 0; i < ours->new_shape.size(); ++i) {
    if (ours->new_shape[i] == -1 && theirs->new_shape[i] != -1) return;
    if (ours->new_shape[i] == theirs->new_shape[i]) continue;
    if (other) return;
    other = i;
  }
  const auto& shape = ours->new_shape;
  if (other && std::find(shape.begin(), shape.end(), -1) == shape.end()) {
    ours->new_shape[*other] = -1;
  }
}

/// The same with what was freed in the first; so that both can be compared.
void follow_reshape(const runtime::LayerInfo& first, runtime::LayerInfo& second) {
  const auto* ours = dynamic_cast<const runtime::TensorReshapeInfo*>(&first);
  auto* theirs = dynamic_cast<runtime::TensorReshapeInfo*>(&second);
  if (ours == nullptr || theirs == nullptr) return;
  for (size_t i = 0; i < ours->new_shape.size() && i < theirs->new_shape.size(); ++i) {
    if (ours->new_shape[i] == -1) theirs->new_shape[i] = -1;
  }
}

/// Sizes in the summary that differ become 0, which means any.
std::string merged_summary(const std::string& first, const std::string& second) {
  rapidjson::Document ours;
  rapidjson::Document theirs;
  ours.Parse(first.c_str());
  theirs.Parse(second.c_str());
  for (const char* key : {"inputs", "outputs"}) {
    auto tensors = ours[key].GetArray();
    auto others = theirs[key].GetArray();
    for (rapidjson::SizeType i = 0; i < tensors.Size() && i < others.Size(); ++i) {
      auto sizes = tensors[i]["shape"].GetArray();
      auto compared = others[i]["shape"].GetArray();
      for (rapidjson::SizeType k = 0; k < sizes.Size() && k < compared.Size(); ++k) {
        if (sizes[k] != compared[k]) sizes[k].SetUint(0);
      }
    }
  }
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  ours.Accept(writer);
  return text.GetString();
}

void merge_shapes(std::vector<ImportedTensor>& ours, const std::vector<ImportedTensor>& theirs) {
  for (size_t i = 0; i < ours.size() && i < theirs.size(); ++i) {
    for (size_t k = 0; k < ours[i].shape.size() && k < theirs[i].shape.size(); ++k) {
      if (ours[i].shape[k] != theirs[i].shape[k]) ours[i].shape[k] = 0;
    }
  }
}

Refusal pinned(const ImportStages& stages, const std::string& layer, const std::string& sizes) {
  Refusal refusal;
  const auto found = stages.imported.report.node_of_layer.find(layer);
  const std::string name = found == stages.imported.report.node_of_layer.end() ? "" : found->second;
  for (const NodeId id : stages.simplified.order()) {
    const Node& node = stages.simplified.node(id);
    if (name.empty() ||
        (node.name != name &&
         !(node.has_output(0) && stages.simplified.value(node.outputs[0]).name == name))) {
      continue;
    }
    refusal = refusal_of(node, {});
    break;
  }
  refusal.attribute = "layer \"" + layer + "\"";
  refusal.why = "it isn't the same for free sizes of " + sizes;
  refusal.help = "state the size, or cut the graph in front of it";
  return refusal;
}

class FreeSizes {
 public:
  explicit FreeSizes(ImportStages first, int64_t size)
      : first_(std::move(first)), sizes_(std::to_string(size)) {}

  void compare(ImportStages other, int64_t size) {
    runtime::QRModelInfo& ours = network_of(first_);
    runtime::QRModelInfo& theirs = network_of(other);
    const std::string sizes = sizes_ + " and " + std::to_string(size);
    if (ours.squential_ids != theirs.squential_ids) {
      refusals_.push_back({"", "", 0, "", "the network",
                           "it has other layers for free sizes of " + sizes, "state the sizes"});
      return;
    }
    for (const std::string& id : ours.squential_ids) {
      runtime::LayerInfo& layer = *ours.layers.at(id);
      runtime::LayerInfo& compared = *theirs.layers.at(id);
      free_reshape(layer, compared);
      follow_reshape(layer, compared);
      if (bytes_of(layer) == bytes_of(compared)) continue;
      if (std::find(pinned_.begin(), pinned_.end(), id) != pinned_.end()) continue;
      pinned_.push_back(id);
      refusals_.push_back(pinned(first_, id, sizes));
    }
    ours.extra_info.summary = merged_summary(ours.extra_info.summary, theirs.extra_info.summary);
    merge_shapes(first_.imported.report.inputs, other.imported.report.inputs);
    merge_shapes(first_.imported.report.outputs, other.imported.report.outputs);
  }

  /// The model; its header says nothing that holds for one size only.
  ImportStages finish(const std::vector<int64_t>& tried) {
    if (!refusals_.empty()) throw UnsupportedError(std::move(refusals_));
    runtime::NetExtraInfo& header = network_of(first_).extra_info;
    header.model_base_h = 0;
    header.model_base_w = 0;
    header.fmlas = 0;
    ImportReport& report = first_.imported.report;
    report.multiply_adds = 0;
    std::string text;
    for (const int64_t size : tried) text += (text.empty() ? "" : ", ") + std::to_string(size);
    report.notes.push_back("sizes stay free: every layer is the same for " + text);
    return std::move(first_);
  }

 private:
  ImportStages first_;
  std::string sizes_;
  std::vector<std::string> pinned_;
  std::vector<Refusal> refusals_;
};

/// Whether something holds for an input and the sizes that are given for it.
template <class Test>
bool is_any_free(const Graph& graph, const ImportOptions& options, Test test) {
  return std::any_of(graph.inputs.begin(), graph.inputs.end(), [&](ValueId id) {
    const std::vector<int64_t>* given = given_for(graph, graph.value(id), options);
    return given != nullptr && test(graph.value(id), *given);
  });
}

}  // namespace

bool has_free_sizes(const Graph& graph, const ImportOptions& options) {
  return is_any_free(graph, options, [](const Value& value, const std::vector<int64_t>& given) {
    const std::vector<bool> axes = free_axes(value, given, FirstSize::batch);
    return std::find(axes.begin(), axes.end(), true) != axes.end();
  });
}

bool has_free_first_size(const Graph& graph, const ImportOptions& options) {
  return is_any_free(graph, options, [](const Value& value, const std::vector<int64_t>& given) {
    return given.size() > 1 && free_axes(value, given, FirstSize::free)[0];
  });
}

ImportStages import_with_free_sizes(
    const Graph& graph, const ImportOptions& options, FirstSize first,
    const std::function<ImportStages(const ImportOptions&)>& import) {
  std::optional<FreeSizes> free_sizes;
  std::optional<UnsupportedError> failure;
  std::vector<int64_t> tried;
  size_t failures = 0;
  for (const int64_t size : kTried) {
    if (tried.size() == kSamples) break;
    // What no size allows is a batch most likely, and further imports would only take their time.
    if (first == FirstSize::free && tried.empty() && failures == 2) break;
    try {
      ImportStages stages = import(with_size(graph, options, first, size));
      if (free_sizes) {
        free_sizes->compare(std::move(stages), size);
      } else {
        free_sizes.emplace(std::move(stages), size);
      }
      tried.push_back(size);
    } catch (const UnsupportedError& error) {
      if (!failure) failure = error;
      ++failures;
    }
  }
  // One size alone shows nothing: what refuses the others is the reason.
  if (tried.size() < 2) throw UnsupportedError(failure->refusals());
  return free_sizes->finish(tried);
}

}  // namespace marlo::toolkit
