#include "qrt_toolkit/assign/reference.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_toolkit/assign/epilogue.h"
#include "qrt_toolkit/assign/form.h"

namespace marlo::toolkit {
namespace {

using runtime::KernelCfg;
using runtime::KernelCfgArr;
using runtime::LayerInfo;
using runtime::TensorShape;

constexpr uint16_t kNoFunction = 0;
constexpr uint16_t kRectifier = 2;

/// Builds the layers one by one.
class Walk {
 public:
  Walk(const runtime::QRModelInfo& network, const runtime::QRModelCfg& cfg,
       const std::map<std::string, TensorShape>& inputs, Workshop& workshop)
      : network_(network), cfg_(cfg), inputs_(inputs), workshop_(workshop) {}

  std::vector<ReferenceLayer> run() {
    for (const std::string& id : network_.squential_ids) {
      ReferenceLayer layer = layer_of(id);
      if (!places_.emplace(id, layers_.size()).second) fail(id, "it is listed twice");
      layers_.push_back(std::move(layer));
    }
    for (const std::string& id : network_.squential_output_ids) {
      const auto found = places_.find(id);
      if (found == places_.end()) fail(id, "the network returns it and doesn't have it");
      layers_[found->second].is_output = true;
    }
    return std::move(layers_);
  }

 private:
  [[noreturn]] static void fail(const std::string& id, const std::string& why) {
    throw std::invalid_argument("layer \"" + id + "\": " + why);
  }

  ReferenceLayer layer_of(const std::string& id) {
    ReferenceLayer layer;
    layer.id = id;
    const auto info = network_.layers.find(id);
    if (info == network_.layers.end() || info->second == nullptr) fail(id, "it isn't described");
    layer.info = info->second;
    const auto cfg = cfg_.layer_cfgs.find(id);
    if (cfg == cfg_.layer_cfgs.end() || cfg->second == nullptr || cfg->second->kernel == nullptr) {
      fail(id, "it has no kernel in the configuration");
    }
    layer.cfg = cfg->second;
    layer.kernel = layer.cfg->kernel->kernel_type;
    layer.is_input = layer.info->type == runtime::kInputLayerType;
    if (layer.is_input) {
      take_input(layer);
    } else {
      connect(layer);
      make(layer);
    }
    return layer;
  }

  void take_input(ReferenceLayer& layer) const {
    const auto given = inputs_.find(layer.id);
    if (given == inputs_.end()) fail(layer.id, "the shape of this input isn't known");
    layer.reads = {given->second};
    layer.makes = layer.gives = given->second;
    layer.is_fixed = true;
  }

  void connect(ReferenceLayer& layer) {
    layer.reads_rectified = !layer.info->input_ids.empty();
    for (const std::string& id : layer.info->input_ids) {
      const auto source = places_.find(id);
      if (source == places_.end()) fail(layer.id, "it reads \"" + id + "\" before that has run");
      layer.inputs.push_back(source->second);
      ReferenceLayer& read = layers_[source->second];
      ++read.readers;
      layer.reads.push_back(read.gives);
      layer.reads_rectified = layer.reads_rectified && is_rectified(read);
    }
  }

  /// Whether a layer's numbers are never below zero, told as `utility::check_model` tells it.
  bool is_rectified(const ReferenceLayer& layer) const {
    const auto* activation = dynamic_cast<const runtime::ActivationInfo*>(layer.info.get());
    if (activation == nullptr) return false;
    if (activation->activation_type == kRectifier && layer.kernel.rfind("ReLU", 0) == 0)
      return true;
    if (activation->activation_type == kRectifier && layer.kernel == kStraightThrough) {
      return !layer.inputs.empty() && layers_[layer.inputs[0]].applies == "ReLU";
    }
    if (activation->activation_type != kNoFunction || layer.inputs.empty()) return false;
    return layer.kernel.rfind("Straight_Through", 0) == 0 && is_rectified(layers_[layer.inputs[0]]);
  }

  void make(ReferenceLayer& layer) {
    const std::vector<TensorShape> given = layer.reads;
    layer.is_fixed = layer.cfg->kernel->infer_param != nullptr;
    convert(layer, layer.cfg->input_converters.get(), layer.reads);
    const auto kernel = configured(layer.kernel, layer.info, *layer.cfg->kernel);
    if (kernel == nullptr) fail(layer.id, "the kernel " + layer.kernel + " refuses it");
    if (const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(kernel.get())) {
      layer.applies = facts->epilogue();
    }
    const auto made = workshop_.made_of(*kernel, layer.reads);
    if (!made) fail(layer.id, "the kernel " + layer.kernel + " can't take its inputs");
    layer.makes = *made;
    std::vector<TensorShape> out{*made};
    convert(layer, layer.cfg->output_converters.get(), out);
    layer.gives = out[0];
    if (layer.makes.data_type != runtime::DataType::FLOAT32) layer.is_fixed = true;
    for (const TensorShape& shape : layer.reads) {
      if (shape.data_type != runtime::DataType::FLOAT32) layer.is_fixed = true;
    }
    if (layer.is_fixed) {
      layer.reads = given;
      layer.makes = layer.gives;
    }
  }

  std::shared_ptr<runtime::IKernel> configured(const std::string& name,
                                               const std::shared_ptr<LayerInfo>& info,
                                               const KernelCfg& cfg) {
    if (cfg.infer_param == nullptr) return workshop_.configured(name, info);
    const auto kernel = workshop_.kernels().Create(name);
    if (kernel == nullptr) return nullptr;
    return kernel->Config(info, cfg.infer_param, workshop_.context()) ? kernel : nullptr;
  }

  void convert(ReferenceLayer& layer, const KernelCfgArr* converters,
               std::vector<TensorShape>& shapes) {
    if (converters == nullptr) return;
    for (const std::string& index : converters->kernel_ids) {
      const auto cfg = converters->kernel_cfgs.find(index);
      const auto place = static_cast<size_t>(std::atoi(index.c_str()));
      if (cfg == converters->kernel_cfgs.end() || cfg->second == nullptr) {
        fail(layer.id, "a converter of it isn't described");
      }
      if (place >= shapes.size()) continue;
      const std::string& name = cfg->second->kernel_type;
      const auto kernel = configured(name, nullptr, *cfg->second);
      const auto made =
          kernel == nullptr ? std::nullopt : workshop_.made_of(*kernel, {shapes[place]});
      if (!made) fail(layer.id, "its converter " + name + " can't take what it gets");
      const bool moves =
          name.rfind("LayoutTransform_", 0) == 0 || name.rfind("Straight_Through_", 0) == 0;
      if (!moves || as_planes(*made) != as_planes(shapes[place])) layer.is_fixed = true;
      shapes[place] = *made;
    }
  }

  const runtime::QRModelInfo& network_;
  const runtime::QRModelCfg& cfg_;
  const std::map<std::string, TensorShape>& inputs_;
  Workshop& workshop_;
  std::map<std::string, size_t> places_;
  std::vector<ReferenceLayer> layers_;
};

}  // namespace

std::vector<ReferenceLayer> walk_reference(const runtime::QRModelInfo& network,
                                           const runtime::QRModelCfg& cfg,
                                           const std::map<std::string, TensorShape>& inputs,
                                           Workshop& workshop) {
  return Walk(network, cfg, inputs, workshop).run();
}

}  // namespace marlo::toolkit
