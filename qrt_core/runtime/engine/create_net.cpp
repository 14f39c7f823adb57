#include "qrt_core/runtime/engine/create_net.h"

#include <cstdlib>
#include <set>
#include <utility>

#include "qrt_core/runtime/engine/create_net_internal.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/engine/registration.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;
using utility::Error;
using utility::LayerFault;
using utility::Log;

namespace {

constexpr char kInputName[] = "Input";

// Far more than any network has, and few enough that a file that repeats ids can't exhaust memory
// or time.
constexpr uint64_t kMaxConnections = 1 << 18;
constexpr uint64_t kMaxKernels = 1 << 16;

// A layer that is listed again computes the same again, so its copies share one kernel with its
// packed weights. One that carries state from pass to pass is made anew for each, which is bounded.
constexpr uint32_t kMaxStatefulCopies = 16;

// Long-lived tensors come from the static pool whatever a pass that failed has left switched on.
class StaticMode {
 public:
  explicit StaticMode(DeviceCPU& device) : device_(device), before_(device.dynamic_mode) {
    device_.dynamic_mode = false;
  }
  StaticMode(const StaticMode&) = delete;
  StaticMode& operator=(const StaticMode&) = delete;
  ~StaticMode() { device_.dynamic_mode = before_; }

 private:
  DeviceCPU& device_;
  bool before_;
};

DeviceCPU& device_of(const std::shared_ptr<Context>& context) {
  Assert(context != nullptr && context->cpu != nullptr,
         "a network needs a context with a CPU device");
  return *context->cpu;
}

// What a kernel says about a layer that it has refused.
std::vector<utility::Misfit> refusals_of(IKernel* kernel, const LayerInfo* info,
                                         const InferenceParam* param) {
  const auto* facts = dynamic_cast<const IKernelFacts*>(kernel);
  if (facts == nullptr) return {};
  try {
    return facts->refusals(info, param);
  } catch (const std::exception&) {
    return {};  // it has refused all the same
  }
}

/// Makes the layers of a network one by one. The two forms of configuration differ only in where a
/// layer's kernels are looked up and in what a refusal leads to.
class NetBuilder {
 public:
  NetBuilder(const QRModelInfo& info, const KernelRegistry& kernels,
             std::shared_ptr<Context> context, const WeightPlaces* weights = nullptr)
      : info_(info), kernels_(kernels), context_(std::move(context)), weights_(weights) {
    const auto count = static_cast<uint32_t>(info.squential_ids.size());
    for (uint32_t p = 0; p < count; ++p) {
      const std::string& id = info.squential_ids[p];
      if (!positions_.insert_or_assign(id, p).second) repeated_.insert(id);
    }
    layers_.reserve(count);
  }

  uint32_t layer_count() const { return static_cast<uint32_t>(info_.squential_ids.size()); }

  const std::string& id(uint32_t position) const { return info_.squential_ids[position]; }

  const std::shared_ptr<LayerInfo>& layer_info(uint32_t position) const {
    const auto found = info_.layers.find(id(position));
    Assert(found != info_.layers.end() && found->second != nullptr,
           "layer %u \"%s\" has no description in the model", position, id(position).c_str());
    return found->second;
  }

  // Runs `step` for every position. A fault gets the place of the layer, unless it has one.
  template <typename Step>
  void for_each_layer(Step step) {
    const auto count = static_cast<uint32_t>(info_.squential_ids.size());
    for (uint32_t position = 0; position < count; ++position) {
      try {
        step(position);
      } catch (Error& failure) {
        LayerFault place;
        place.layer = position;
        place.id = id(position);
        failure.in_layer(std::move(place));
        throw;
      }
    }
  }

  // Begins the layer at a position.
  std::shared_ptr<Layer> start(uint32_t position) const {
    auto layer = std::make_shared<Layer>();
    layer->name = LayerTypeName(layer_info(position)->type);
    layer->id = id(position);
    return layer;
  }

  // Gives `layer` the kernel of its description. It stays null if the kernel refused.
  template <typename Cfg>
  void make_main_kernel(uint32_t position, Layer& layer, const std::shared_ptr<Cfg>& cfg) {
    const std::shared_ptr<LayerInfo>& info = layer_info(position);
    if (repeated_.count(id(position)) != 0 && cfg != nullptr) {
      Made& made = made_[{info.get(), cfg->infer_param.get(), cfg->kernel_type}];
      if (made.kernel == nullptr || made.has_state) {
        if (made.has_state) {
          Assert(++made.copies <= kMaxStatefulCopies,
                 "layer %u \"%s\" has a kernel with a state and is listed more than %u times",
                 position, id(position).c_str(), kMaxStatefulCopies);
        }
        made.kernel = make_kernel(position, "", layer, cfg, info);
        made.has_state = made.kernel != nullptr && made.kernel->ResetState() != KERNEL_HAS_NO_STATE;
      }
      layer.kernel = made.kernel;
      return;
    }
    layer.kernel = make_kernel(position, "", layer, cfg, info);
  }

  // Null if the kernel refused, which `layer` then remembers; `Cfg` is KernelCfg or
  // KernelInferenceConfig.
  template <typename Cfg>
  std::shared_ptr<IKernel> make_kernel(uint32_t position, const std::string& role, Layer& layer,
                                       const std::shared_ptr<Cfg>& cfg,
                                       const std::shared_ptr<LayerInfo>& info) {
    LayerFault place;
    place.layer = position;
    place.id = layer.id;
    place.kind = layer.name;
    place.role = role;
    if (cfg != nullptr) place.kernel = cfg->kernel_type;
    try {
      Assert(++kernel_count_ <= kMaxKernels, "the network has more than %llu kernels",
             static_cast<unsigned long long>(kMaxKernels));
      Assert(cfg != nullptr, "layer %u \"%s\" has no kernel in the configuration", position,
             id(position).c_str());
      const char* name = cfg->kernel_type.c_str();
      const FilledLayer filled(weights_, info);
      std::shared_ptr<IKernel> kernel = kernels_.Create(cfg->kernel_type);
      Log(utility::LOG_TRACE, "Create Kernel >> %s >> %s", name,
          kernel != nullptr ? "ok" : "nullptr");
      Assert(kernel != nullptr || !is_extension(name),
             "layer %u \"%s\" (%s): kernel \"%s\" is not in the registry; "
             "init_register_extension_operators enters it",
             position, id(position).c_str(), layer.name.c_str(), name);
      Assert(kernel != nullptr, "layer %u \"%s\" (%s): kernel \"%s\" is not in the registry",
             position, id(position).c_str(), layer.name.c_str(), name);
      if (kernel->Config(info, cfg->infer_param, context_)) return kernel;
      Log(utility::LOG_TRACE, "Config Kernel <%s> failed.", name);
      place.misfits = refusals_of(kernel.get(), info.get(), cfg->infer_param.get());
    } catch (Error& failure) {
      failure.in_layer(std::move(place));
      throw;
    }
    layer.refused.push_back(std::move(place));
    return nullptr;
  }

  // Connects a layer to the layers that it reads, and appends it.
  void append(uint32_t position, std::shared_ptr<Layer> layer) {
    const LayerInfo& info = *layer_info(position);
    connections_ += info.input_ids.size();
    Assert(connections_ <= kMaxConnections, "the network has more than %llu connections",
           static_cast<unsigned long long>(kMaxConnections));
    // An id that isn't in the list stands for layer 0.
    const uint32_t self = positions_[info.id];
    layers_.push_back(layer);
    for (uint32_t j = 0; j < info.input_ids.size(); ++j) {
      const uint32_t source = positions_[info.input_ids[j]];
      Assert(source < position,
             "layer %u \"%s\": its input \"%s\" is layer %u, which does not stand before it",
             position, id(position).c_str(), info.input_ids[j].c_str(), source);
      layer->inputs.emplace_back(source, 0);
      layers_[source]->consumers.emplace_back(self, j);
    }
  }

  void add_input(uint32_t position) { input_map_[id(position)] = position; }

  std::shared_ptr<Net> finish() const { return std::make_shared<Net>(layers_, input_map_); }

 private:
  const QRModelInfo& info_;
  const KernelRegistry& kernels_;
  std::shared_ptr<Context> context_;
  const WeightPlaces* weights_;  // null where the layers hold them
  std::map<std::string, uint32_t> positions_;
  std::set<std::string> repeated_;
  std::map<std::string, unsigned int> input_map_;
  std::vector<std::shared_ptr<Layer>> layers_;
  // The kernel that the copies of a layer share, or the last one made where they can't.
  struct Made {
    std::shared_ptr<IKernel> kernel;
    bool has_state = false;
    uint32_t copies = 0;
  };
  using MadeKey = std::tuple<const LayerInfo*, const InferenceParam*, std::string>;

  std::map<MadeKey, Made> made_;
  uint64_t connections_ = 0;
  uint64_t kernel_count_ = 0;
};

constexpr char kInputRole[] = "input converter ";
constexpr char kOutputRole[] = "output converter ";

// The text of this exception has always been the tag alone.
void throw_refusal(const LayerFault& refused) {
  try {
    Assert(false, nullptr);
  } catch (Error& failure) {
    failure.explain("refuses the layer");
    failure.in_layer(refused);
    throw;
  }
}

using Converters = std::map<uint32_t, std::shared_ptr<IKernel>>;

// Converters are configured without a description. One that refuses leaves an empty entry.
Converters make_converters(NetBuilder& builder, uint32_t position, Layer& layer,
                           const std::string& role, const std::shared_ptr<KernelCfgArr>& cfgs) {
  Converters converters;
  if (cfgs == nullptr) return converters;
  for (const std::string& id : cfgs->kernel_ids) {
    const auto found = cfgs->kernel_cfgs.find(id);
    Assert(found != cfgs->kernel_cfgs.end(),
           "layer %u \"%s\": converter \"%s\" is missing in the configuration", position,
           builder.id(position).c_str(), id.c_str());
    const auto index = static_cast<uint32_t>(std::atoi(id.c_str()));
    converters[index] =
        builder.make_kernel(position, role + std::to_string(index), layer, found->second, nullptr);
  }
  return converters;
}

Converters make_converters(NetBuilder& builder, uint32_t position, Layer& layer,
                           const std::string& role,
                           const std::map<int, std::shared_ptr<KernelInferenceConfig>>& cfgs) {
  Converters converters;
  for (const auto& [index, cfg] : cfgs) {
    const auto at = static_cast<uint32_t>(index);
    converters[at] = builder.make_kernel(position, role + std::to_string(at), layer, cfg, nullptr);
  }
  return converters;
}

}  // namespace

std::shared_ptr<Net> CreateNet(const std::shared_ptr<QRModelInfo>& info,
                               const std::shared_ptr<QRModelCfg>& cfg,
                               const KernelRegistry& kernels,
                               const std::shared_ptr<Context>& context) {
  return CreateNet(info, cfg, kernels, context, nullptr);
}

std::shared_ptr<Net> CreateNet(const std::shared_ptr<QRModelInfo>& info,
                               const std::shared_ptr<QRModelCfg>& cfg,
                               const KernelRegistry& kernels,
                               const std::shared_ptr<Context>& context,
                               const WeightPlaces* weights) {
  Assert(info != nullptr && cfg != nullptr, "a network needs a model and a configuration");
  const StaticMode mode(device_of(context));
  NetBuilder builder(*info, kernels, context, weights);
  builder.for_each_layer([&](uint32_t position) {
    const std::shared_ptr<LayerInfo>& layer_info = builder.layer_info(position);
    const auto found = cfg->layer_cfgs.find(builder.id(position));
    Assert(found != cfg->layer_cfgs.end() && found->second != nullptr,
           "layer %u \"%s\" is missing in the configuration", position,
           builder.id(position).c_str());
    const LayerCfg& layer_cfg = *found->second;

    const std::shared_ptr<Layer> layer = builder.start(position);
    if (layer_info->type == kInputLayerType) builder.add_input(position);
    layer->input_converters =
        make_converters(builder, position, *layer, kInputRole, layer_cfg.input_converters);
    builder.make_main_kernel(position, *layer, layer_cfg.kernel);
    if (layer->kernel == nullptr) throw_refusal(layer->refused.back());
    layer->output_converters =
        make_converters(builder, position, *layer, kOutputRole, layer_cfg.output_converters);
    builder.append(position, layer);
  });
  return builder.finish();
}

std::shared_ptr<Net> CreateNet(const std::shared_ptr<QRModelInfo>& info,
                               std::shared_ptr<InferenceConfig> cfg, const KernelRegistry& kernels,
                               std::shared_ptr<Context> context) {
  Assert(info != nullptr && cfg != nullptr, "a network needs a model and a configuration");
  const StaticMode mode(device_of(context));
  NetBuilder builder(*info, kernels, context);
  Assert(cfg->layers.size() >= builder.layer_count(),
         "the configuration has %zu entries for %u layers", cfg->layers.size(),
         builder.layer_count());
  builder.for_each_layer([&](uint32_t position) {
    const LayerInferenceConfig& layer_cfg = cfg->layers[position];

    const std::shared_ptr<Layer> layer = builder.start(position);
    if (layer->name == kInputName) builder.add_input(position);
    layer->input_converters =
        make_converters(builder, position, *layer, kInputRole, layer_cfg.input_converters);
    builder.make_main_kernel(position, *layer, layer_cfg.kernel);
    layer->output_converters =
        make_converters(builder, position, *layer, kOutputRole, layer_cfg.output_converters);
    builder.append(position, layer);
  });
  return builder.finish();
}

}  // namespace marlo::runtime
