#include "qrt_toolkit/assign/channels.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <numeric>
#include <utility>

#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_toolkit/assign/description.h"
#include "qrt_toolkit/assign/network.h"

namespace marlo::toolkit {
namespace {

using runtime::BinaryFunction;
using runtime::Conv2dInfo;
using runtime::ElementFunction;
using runtime::LayerInfo;
using runtime::LayoutType;
using runtime::TensorShape;

constexpr uint32_t kBlock = 8;
constexpr uint32_t kFewest = 4;  // fewer are less than half a block

bool is_planes(const TensorShape& shape) {
  return shape.dims.size() == 3 && shape.layout == LayoutType::CHW &&
         shape.data_type == runtime::DataType::FLOAT32;
}

uint32_t in_blocks(uint32_t channels) { return (channels + kBlock - 1) / kBlock * kBlock; }

/// Functions that leave zeros finite: what a filter of zeros made is multiplied with zeros further on.
bool keeps_finite(ElementFunction function) {
  constexpr std::array kFunctions = {
      ElementFunction::Abs,       ElementFunction::Neg,   ElementFunction::Square,
      ElementFunction::Sqrt,      ElementFunction::Erf,   ElementFunction::HardSigmoid,
      ElementFunction::LeakyReLU, ElementFunction::Elu,   ElementFunction::Selu,
      ElementFunction::Celu,      ElementFunction::GELU,  ElementFunction::GELUTanh,
      ElementFunction::SiLU,      ElementFunction::Swish, ElementFunction::Softplus,
      ElementFunction::Softsign,  ElementFunction::Mish,  ElementFunction::Clip,
      ElementFunction::Sin,       ElementFunction::Cos,   ElementFunction::ThresholdedReLU};
  return std::find(kFunctions.begin(), kFunctions.end(), function) != kFunctions.end();
}

bool keeps_finite(const runtime::BinaryFunctionInfo& info) {
  constexpr std::array kFunctions = {BinaryFunction::Add, BinaryFunction::Sub, BinaryFunction::Mul,
                                     BinaryFunction::Min, BinaryFunction::Max};
  return !info.has_constant &&
         std::find(kFunctions.begin(), kFunctions.end(),
                   static_cast<BinaryFunction>(info.function)) != kFunctions.end();
}

/// What a layer is to the channels of its tensors.
enum class Part {
  mixes,    ///< a convolution: those that it makes are other ones than those that it reads
  carries,  ///< each is made of the same one of every input
  needs,    ///< none may be more
};

bool is_depthwise(const Conv2dInfo& info) {
  return info.groups > 1 && info.groups == info.in_channels && info.groups == info.out_channels;
}

/// Whether a description makes each channel of the same ones, and finite numbers of zeros.
bool carries(const LayerInfo& info) {
  constexpr uint16_t kDivision = 3;
  if (const auto* convolution = dynamic_cast<const Conv2dInfo*>(&info)) {
    return is_depthwise(*convolution);
  }
  if (const auto* activation = dynamic_cast<const runtime::ActivationInfo*>(&info)) {
    return activation->num_parameters <= 1;
  }
  if (const auto* function = dynamic_cast<const runtime::ElementFunctionInfo*>(&info)) {
    return keeps_finite(static_cast<ElementFunction>(function->function));
  }
  if (const auto* function = dynamic_cast<const runtime::BinaryFunctionInfo*>(&info)) {
    return keeps_finite(*function);
  }
  if (const auto* operation = dynamic_cast<const runtime::ElementWiseOperatorInfo*>(&info)) {
    return operation->op_type != kDivision;
  }
  return dynamic_cast<const runtime::MaxPool2dInfo*>(&info) != nullptr ||
         dynamic_cast<const runtime::AvgPool2dInfo*>(&info) != nullptr ||
         dynamic_cast<const runtime::AdaptiveAvgPool2dInfo*>(&info) != nullptr ||
         dynamic_cast<const runtime::Upsample2dInfo*>(&info) != nullptr;
}

/// Numbers with zeros behind each of `rows` rows, and rows of zeros behind them.
runtime::WeightBlob with_zeros(const runtime::WeightBlob& blob, size_t rows, size_t length,
                               size_t new_rows, size_t new_length) {
  const std::vector<float> given = runtime::WeightNumbers(blob);
  std::vector<float> numbers(new_rows * new_length);
  for (size_t row = 0; row < rows && (row + 1) * length <= given.size(); ++row) {
    std::copy_n(given.begin() + static_cast<std::ptrdiff_t>(row * length), length,
                numbers.begin() + static_cast<std::ptrdiff_t>(row * new_length));
  }
  return runtime::MakeWeightBlob(numbers.data(), numbers.size());
}

/// Finds tensors that can have more channels, and writes the network with them.
class Padding {
 public:
  Padding(const std::vector<ReferenceLayer>& layers, bool may_cut)
      : layers_(layers),
        may_cut_(may_cut),
        sets_(layers.size()),
        fits_(layers.size()),
        cuts_(layers.size(), false) {
    std::iota(sets_.begin(), sets_.end(), size_t{0});
  }

  /// @return whether any tensor can have more
  bool find() {
    std::vector<Part> parts;
    parts.reserve(layers_.size());
    for (const ReferenceLayer& layer : layers_) parts.push_back(part_of(layer));
    for (size_t v = 0; v < layers_.size(); ++v) {
      fits_[v] = parts[v] != Part::needs && may_grow(v);
      if (parts[v] != Part::carries) continue;
      for (const size_t input : layers_[v].inputs) join(v, input);
    }
    for (size_t v = 0; v < layers_.size(); ++v) fits_[set_of(v)] = fits_[set_of(v)] && fits_[v];
    std::vector<size_t> gains(layers_.size(), 0);
    std::vector<size_t> losses(layers_.size(), 0);
    for (size_t v = 0; v < layers_.size(); ++v) {
      const bool convolves = dynamic_cast<const Conv2dInfo*>(layers_[v].info.get()) != nullptr;
      if (convolves) ++gains[set_of(v)];
      for (const size_t input : layers_[v].inputs) {
        if (parts[v] == Part::mixes) ++gains[set_of(input)];
        const bool leaves = parts[v] == Part::needs && !cuts_[input];
        if (leaves) ++losses[set_of(input)];
        cuts_[input] = cuts_[input] || leaves;
      }
    }
    for (size_t v = 0; v < layers_.size(); ++v) {
      const bool is_worth = gains[v] > losses[v] && (may_cut_ || losses[v] == 0);
      if (set_of(v) == v) fits_[v] = fits_[v] && is_worth;
    }
    bool any = false;
    for (size_t v = 0; v < layers_.size(); ++v) any = any || grows(v);
    return any;
  }

  std::optional<PaddedModel> write(const runtime::QRTModel& model, const std::string& id) const {
    PaddedModel padded;
    padded.model = model;
    auto network = std::make_shared<runtime::QRModelInfo>(network_of(model, id));
    auto config = std::make_shared<runtime::QRModelCfg>(config_of(model, id));
    network->squential_ids.clear();
    network->squential_types.clear();
    config->squential_ids.clear();
    std::vector<std::string> cut_ids(layers_.size());
    for (size_t v = 0; v < layers_.size(); ++v) {
      const std::shared_ptr<LayerInfo> info = described(v, cut_ids);
      if (info == nullptr) return std::nullopt;
      add(*network, *config, info, layers_[v].cfg);
      if (grows(v)) padded.grown[layers_[v].id] = in_blocks(channels(v));
      if (!grows(v) || !cuts_[v]) continue;
      auto cut = std::make_shared<runtime::StridedSliceInfo>();
      cut->axes = {0};
      cut->starts = {0};
      cut->ends = {static_cast<int32_t>(channels(v))};
      cut->steps = {1};
      std::string name = layers_[v].id + "#channels";
      while (network_of(model, id).layers.count(name) != 0) name += "_";
      cut->LayerInfo::id = cut_ids[v] = name;
      cut->input_ids = {layers_[v].id};
      auto cfg = std::make_shared<runtime::LayerCfg>();
      cfg->kernel = std::make_shared<runtime::KernelCfg>();
      cfg->kernel->kernel_type = kChannelCut;
      padded.cuts[name] = layers_[v].id;
      add(*network, *config, std::move(cut), cfg);
    }
    count_readers(network_of(model, id), *network);
    replace(padded.model, id, std::move(network), std::move(config));
    return padded;
  }

 private:
  uint32_t channels(size_t v) const { return layers_[v].makes.dims[0]; }
  bool grows(size_t v) const { return fits_[set_of(v)]; }

  size_t set_of(size_t v) const {
    while (sets_[v] != v) v = sets_[v];
    return v;
  }
  void join(size_t a, size_t b) { sets_[set_of(b)] = set_of(a); }

  static bool is_plain(const ReferenceLayer& layer) {
    return !layer.is_fixed && layer.kernel.find("_Fallback_") != std::string::npos &&
           is_planes(layer.makes) && layer.makes == layer.gives;
  }

  Part part_of(const ReferenceLayer& layer) const {
    if (layer.is_input || !is_plain(layer)) return Part::needs;
    for (const TensorShape& shape : layer.reads) {
      if (!is_planes(shape)) return Part::needs;
    }
    const auto* convolution = dynamic_cast<const Conv2dInfo*>(layer.info.get());
    if (convolution != nullptr && convolution->groups == 1) return Part::mixes;
    const bool alike =
        std::all_of(layer.reads.begin(), layer.reads.end(),
                    [&](const TensorShape& shape) { return shape.dims[0] == layer.makes.dims[0]; });
    return alike && carries(*layer.info) ? Part::carries : Part::needs;
  }

  bool may_grow(size_t v) const {
    const uint32_t count = channels(v);
    return !layers_[v].is_output && count >= kFewest && count % kBlock != 0 &&
           in_blocks(count) <= std::numeric_limits<uint16_t>::max();
  }

  /// The description with the channels that its tensors have now, reading what they are now; null where
  /// it can't be copied.
  std::shared_ptr<LayerInfo> described(size_t v, const std::vector<std::string>& cut_ids) const {
    const ReferenceLayer& layer = layers_[v];
    const bool reads_more = std::any_of(layer.inputs.begin(), layer.inputs.end(),
                                        [&](size_t input) { return grows(input); });
    if (!grows(v) && !reads_more) return layer.info;
    std::shared_ptr<LayerInfo> info = copy_of(*layer.info);
    if (info == nullptr) return nullptr;
    if (auto* convolution = dynamic_cast<Conv2dInfo*>(info.get())) {
      widen(*convolution, reads_more, grows(v));
      return info;
    }
    if (grows(v)) return info;
    for (size_t i = 0; i < layer.inputs.size(); ++i) {
      const std::string& cut = cut_ids[layer.inputs[i]];
      if (!cut.empty()) info->input_ids.at(i) = cut;
    }
    return info;
  }

  static void widen(Conv2dInfo& info, bool inputs, bool outputs) {
    const bool depthwise = is_depthwise(info);
    const size_t outs = info.out_channels;
    const size_t window = size_t{info.kernel_x} * info.kernel_y;
    const size_t length = depthwise ? window : info.in_channels * window;
    if (outputs) info.out_channels = static_cast<uint16_t>(in_blocks(info.out_channels));
    if (inputs) info.in_channels = static_cast<uint16_t>(in_blocks(info.in_channels));
    if (depthwise) info.groups = info.in_channels;
    const size_t new_length = depthwise ? window : info.in_channels * window;
    info.weight = with_zeros(info.weight, outs, length, info.out_channels, new_length);
    if (info.if_bias) info.bias = with_zeros(info.bias, 1, outs, 1, info.out_channels);
  }

  static void add(runtime::QRModelInfo& network, runtime::QRModelCfg& config,
                  const std::shared_ptr<LayerInfo>& info,
                  const std::shared_ptr<runtime::LayerCfg>& cfg) {
    network.squential_ids.push_back(info->id);
    network.squential_types.push_back(info->type);
    network.layers[info->id] = info;
    config.squential_ids.push_back(info->id);
    config.layer_cfgs[info->id] = cfg;
  }

  /// Only new and copied descriptions have other readers; those that the given model shares stay.
  static void count_readers(const runtime::QRModelInfo& given, runtime::QRModelInfo& network) {
    std::map<std::string, uint16_t> counts;
    for (const auto& [id, info] : network.layers) {
      for (const std::string& input : info->input_ids) ++counts[input];
    }
    for (const auto& [id, info] : network.layers) {
      const auto known = given.layers.find(id);
      if (known == given.layers.end() || known->second != info) info->read_count = counts[id];
    }
  }

  static void replace(runtime::QRTModel& model, const std::string& id,
                      std::shared_ptr<runtime::QRModelInfo> network,
                      std::shared_ptr<runtime::QRModelCfg> config) {
    // Copies of a model share its parts; these get other contents.
    model.model_arr = std::make_shared<runtime::QRModelInfoArr>(*model.model_arr);
    model.model_arr->infos[id] = std::move(network);
    model.config_arr = std::make_shared<runtime::QRModelMultiBackendCfgsArr>(*model.config_arr);
    auto configs =
        std::make_shared<runtime::QRModelMultiBackendCfgs>(*model.config_arr->cfgs.at(id));
    configs->cpu_sse = std::move(config);
    model.config_arr->cfgs[id] = std::move(configs);
  }

  const std::vector<ReferenceLayer>& layers_;
  bool may_cut_;
  std::vector<size_t> sets_;  // of tensors that have as many channels, a forest
  std::vector<bool> fits_;    // of each set, by its root
  std::vector<bool> cuts_;    // whether a layer needs the channels as they were
};

}  // namespace

void move_cuts(const PaddedModel& padded, AssignReport& report) {
  for (const auto& [id, source] : padded.cuts) report.converters[id] = source;
  std::erase_if(report.layers,
                [&](const AssignedLayer& layer) { return padded.cuts.count(layer.id) != 0; });
}

std::optional<PaddedModel> with_whole_blocks(const runtime::QRTModel& model,
                                             const std::string& network,
                                             const std::vector<ReferenceLayer>& layers,
                                             bool may_cut) {
  Padding padding(layers, may_cut);
  if (!padding.find()) return std::nullopt;
  return padding.write(model, network);
}

}  // namespace marlo::toolkit
