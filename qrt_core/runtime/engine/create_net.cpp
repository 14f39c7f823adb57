#include "qrt_core/runtime/engine/create_net.h"

#include <cstdlib>

#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;
using utility::Log;

namespace {

constexpr char kInputName[] = "Input";

// Far more than any network has, and few enough that a file that repeats ids can't exhaust memory
// or time.
constexpr uint64_t kMaxConnections = 1 << 18;
constexpr uint64_t kMaxKernels = 1 << 16;

/// Makes the layers of a network one by one. The two forms of configuration differ only in where a
/// layer's kernels are looked up and in what a refusal leads to.
class NetBuilder {
 public:
  NetBuilder(const QRModelInfo& info, const KernelRegistry& kernels,
             std::shared_ptr<Context> context)
      : info_(info), kernels_(kernels), context_(std::move(context)) {
    const auto count = static_cast<uint32_t>(info.squential_ids.size());
    for (uint32_t p = 0; p < count; ++p) positions_[info.squential_ids[p]] = p;
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

  // Null if the kernel refused; `Cfg` is KernelCfg or KernelInferenceConfig.
  template <typename Cfg>
  std::shared_ptr<IKernel> make_kernel(uint32_t position, const std::shared_ptr<Cfg>& cfg,
                                       const std::shared_ptr<LayerInfo>& info) {
    Assert(++kernel_count_ <= kMaxKernels, "the network has more than %llu kernels",
           static_cast<unsigned long long>(kMaxKernels));
    Assert(cfg != nullptr, "layer %u \"%s\" has no kernel in the configuration", position,
           id(position).c_str());
    const char* name = cfg->kernel_type.c_str();
    std::shared_ptr<IKernel> kernel = kernels_.Create(cfg->kernel_type);
    Log(utility::LOG_TRACE, "Create Kernel >> %s >> %s", name,
        kernel != nullptr ? "ok" : "nullptr");
    Assert(kernel != nullptr, "layer %u \"%s\" (%s): kernel \"%s\" is not in the registry",
           position, id(position).c_str(), LayerTypeName(layer_info(position)->type), name);
    if (kernel->Config(info, cfg->infer_param, context_)) return kernel;
    Log(utility::LOG_TRACE, "Config Kernel <%s> failed.", name);
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
  std::map<std::string, uint32_t> positions_;
  std::map<std::string, unsigned int> input_map_;
  std::vector<std::shared_ptr<Layer>> layers_;
  uint64_t connections_ = 0;
  uint64_t kernel_count_ = 0;
};

using Converters = std::map<uint32_t, std::shared_ptr<IKernel>>;

// Converters are configured without a description. One that refuses leaves an empty entry.
Converters make_converters(NetBuilder& builder, uint32_t position,
                           const std::shared_ptr<KernelCfgArr>& cfgs) {
  Converters converters;
  if (cfgs == nullptr) return converters;
  for (const std::string& id : cfgs->kernel_ids) {
    const auto found = cfgs->kernel_cfgs.find(id);
    Assert(found != cfgs->kernel_cfgs.end(),
           "layer %u \"%s\": converter \"%s\" is missing in the configuration", position,
           builder.id(position).c_str(), id.c_str());
    converters[static_cast<uint32_t>(std::atoi(id.c_str()))] =
        builder.make_kernel(position, found->second, nullptr);
  }
  return converters;
}

Converters make_converters(NetBuilder& builder, uint32_t position,
                           const std::map<int, std::shared_ptr<KernelInferenceConfig>>& cfgs) {
  Converters converters;
  for (const auto& [index, cfg] : cfgs) {
    converters[static_cast<uint32_t>(index)] = builder.make_kernel(position, cfg, nullptr);
  }
  return converters;
}

}  // namespace

std::shared_ptr<Net> CreateNet(const std::shared_ptr<QRModelInfo>& info,
                               const std::shared_ptr<QRModelCfg>& cfg,
                               const KernelRegistry& kernels,
                               const std::shared_ptr<Context>& context) {
  Assert(info != nullptr && cfg != nullptr, "a network needs a model and a configuration");
  NetBuilder builder(*info, kernels, context);
  for (uint32_t position = 0; position < builder.layer_count(); ++position) {
    const std::shared_ptr<LayerInfo>& layer_info = builder.layer_info(position);
    const auto found = cfg->layer_cfgs.find(builder.id(position));
    Assert(found != cfg->layer_cfgs.end() && found->second != nullptr,
           "layer %u \"%s\" is missing in the configuration", position,
           builder.id(position).c_str());
    const LayerCfg& layer_cfg = *found->second;

    auto layer = std::make_shared<Layer>();
    layer->name = LayerTypeName(layer_info->type);
    if (layer_info->type == kInputLayerType) builder.add_input(position);
    layer->input_converters = make_converters(builder, position, layer_cfg.input_converters);
    layer->kernel = builder.make_kernel(position, layer_cfg.kernel, layer_info);
    Assert(layer->kernel != nullptr, nullptr);
    layer->output_converters = make_converters(builder, position, layer_cfg.output_converters);
    builder.append(position, std::move(layer));
  }
  return builder.finish();
}

std::shared_ptr<Net> CreateNet(const std::shared_ptr<QRModelInfo>& info,
                               std::shared_ptr<InferenceConfig> cfg, const KernelRegistry& kernels,
                               std::shared_ptr<Context> context) {
  Assert(info != nullptr && cfg != nullptr, "a network needs a model and a configuration");
  NetBuilder builder(*info, kernels, std::move(context));
  Assert(cfg->layers.size() >= builder.layer_count(),
         "the configuration has %zu entries for %u layers", cfg->layers.size(),
         builder.layer_count());
  for (uint32_t position = 0; position < builder.layer_count(); ++position) {
    const std::shared_ptr<LayerInfo>& layer_info = builder.layer_info(position);
    const LayerInferenceConfig& layer_cfg = cfg->layers[position];

    auto layer = std::make_shared<Layer>();
    layer->name = LayerTypeName(layer_info->type);
    if (layer->name == kInputName) builder.add_input(position);
    layer->input_converters = make_converters(builder, position, layer_cfg.input_converters);
    layer->kernel = builder.make_kernel(position, layer_cfg.kernel, layer_info);
    layer->output_converters = make_converters(builder, position, layer_cfg.output_converters);
    builder.append(position, std::move(layer));
  }
  return builder.finish();
}

}  // namespace marlo::runtime
