#include "tests/support/model_builder.h"

#include <stdexcept>
#include <utility>

#include "qrt_core/runtime/model/base64.h"

namespace marlo::test {

using runtime::ActivationInfo;
using runtime::Conv1dInfo;
using runtime::Conv2dInfo;
using runtime::ConvTranspose2dInfo;
using runtime::KernelCfg;
using runtime::KernelCfgArr;
using runtime::LayerCfg;
using runtime::LayerInfo;
using runtime::QRModelInfo;
using runtime::QRModelMultiBackendCfgs;

namespace {

constexpr char kDefaultNetwork[] = "net";

template <typename Info>
Info with_weights(Info info, const std::vector<float>& weights, const std::vector<float>& bias) {
  info.weight = weight_text(weights);
  info.if_bias = !bias.empty();
  if (info.if_bias) info.bias = weight_text(bias);
  return info;
}

void set_param(KernelCfg& cfg, std::shared_ptr<runtime::InferenceParam> param) {
  cfg.infer_param_type = param->GetClassTypeName();
  cfg.infer_param = std::move(param);
}

std::shared_ptr<KernelCfg> kernel_cfg(const std::string& kernel) {
  auto cfg = std::make_shared<KernelCfg>();
  cfg->kernel_type = kernel;
  return cfg;
}

void add_converter(KernelCfgArr& converters, const std::string& index, const std::string& kernel,
                   std::shared_ptr<runtime::InferenceParam> param) {
  converters.kernel_ids.push_back(index);
  converters.kernel_cfgs[index] = kernel_cfg(kernel);
  if (param != nullptr) set_param(*converters.kernel_cfgs[index], std::move(param));
}

std::shared_ptr<runtime::KernelInferenceConfig> inference_form(const KernelCfg& cfg) {
  auto result = std::make_shared<runtime::KernelInferenceConfig>(nullptr);
  result->kernel_type = cfg.kernel_type;
  result->infer_param_type = cfg.infer_param_type;
  result->infer_param = cfg.infer_param;
  return result;
}

std::map<int, std::shared_ptr<runtime::KernelInferenceConfig>> inference_form(
    const KernelCfgArr& cfgs) {
  std::map<int, std::shared_ptr<runtime::KernelInferenceConfig>> result;
  for (const auto& [id, cfg] : cfgs.kernel_cfgs) result[std::stoi(id)] = inference_form(*cfg);
  return result;
}

}  // namespace

std::string weight_text(const std::vector<float>& numbers) {
  return runtime::Base64Encode(reinterpret_cast<const unsigned char*>(numbers.data()),
                               numbers.size() * sizeof(float));
}

std::vector<float> ramp(size_t count, float start, float step) {
  std::vector<float> numbers(count);
  for (size_t i = 0; i < count; ++i) numbers[i] = start + step * static_cast<float>(i);
  return numbers;
}

Conv2dInfo plane_convolution(uint16_t in_channels, uint16_t out_channels, uint16_t kernel,
                             const std::vector<float>& weights, const std::vector<float>& bias) {
  Conv2dInfo info;
  info.in_channels = in_channels;
  info.out_channels = out_channels;
  info.kernel_x = info.kernel_y = kernel;
  return with_weights(std::move(info), weights, bias);
}

ConvTranspose2dInfo transposed_convolution(uint16_t in_channels, uint16_t out_channels,
                                           uint16_t kernel, const std::vector<float>& weights,
                                           const std::vector<float>& bias) {
  ConvTranspose2dInfo info;
  info.in_channels = in_channels;
  info.out_channels = out_channels;
  info.kernel_x = info.kernel_y = kernel;
  info.stride_x = info.stride_y = 1;
  info.dilation_x = info.dilation_y = 1;
  info.groups = 1;
  const auto padding = static_cast<int16_t>(kernel - 1);
  info.padding_l = info.padding_t = info.padding_r = info.padding_b = padding;
  return with_weights(std::move(info), weights, bias);
}

Conv1dInfo line_convolution(uint16_t in_channels, uint16_t out_channels, uint16_t kernel,
                            const std::vector<float>& weights, const std::vector<float>& bias) {
  Conv1dInfo info;
  info.in_channels = in_channels;
  info.out_channels = out_channels;
  info.kernel_size = kernel;
  return with_weights(std::move(info), weights, bias);
}

ModelBuilder::ModelBuilder() : model_(std::make_shared<runtime::QRTModel>()) {
  sdk("sdk", 1, 0).core(1, 0);
}

ModelBuilder& ModelBuilder::sdk(const std::string& type, uint16_t major, uint16_t minor) {
  model_->sdk_type = type;
  model_->sdk_major_ver = major;
  model_->sdk_minor_ver = minor;
  return *this;
}

ModelBuilder& ModelBuilder::core(uint16_t major, uint16_t minor) {
  model_->core_major_ver = major;
  model_->core_minor_ver = minor;
  return *this;
}

ModelBuilder& ModelBuilder::network(const std::string& id) {
  network_ = id;
  model_->model_arr->squential_ids.push_back(id);
  model_->model_arr->infos[id] = std::make_shared<QRModelInfo>();
  model_->config_arr->squential_ids.push_back(id);
  model_->config_arr->cfgs[id] = std::make_shared<QRModelMultiBackendCfgs>();
  return *this;
}

ModelBuilder& ModelBuilder::outputs(const std::vector<std::string>& ids) {
  info()->squential_output_ids = ids;
  return *this;
}

ModelBuilder& ModelBuilder::input(const std::string& id, const std::string& kernel) {
  return layer(id, {}, std::make_shared<runtime::InputInfo>(), kernel);
}

ModelBuilder& ModelBuilder::layer(const std::string& id, const std::vector<std::string>& sources,
                                  std::shared_ptr<LayerInfo> description,
                                  const std::string& kernel) {
  description->id = id;
  description->input_ids = sources;
  QRModelInfo& net = *info();
  net.squential_ids.push_back(id);
  net.squential_types.push_back(description->type);
  net.layers[id] = std::move(description);

  auto cfg = std::make_shared<LayerCfg>();
  cfg->kernel = kernel_cfg(kernel);
  configuration()->squential_ids.push_back(id);
  configuration()->layer_cfgs[id] = std::move(cfg);
  return *this;
}

ModelBuilder& ModelBuilder::straight_through(const std::string& id,
                                             const std::vector<std::string>& sources) {
  return layer(id, sources, std::make_shared<ActivationInfo>(), "Straight_Through_Fallback_M1");
}

ModelBuilder& ModelBuilder::activation(const std::string& id, const std::string& source,
                                       const std::string& kernel, float alpha, float beta,
                                       const std::vector<float>& slope) {
  auto description = std::make_shared<ActivationInfo>();
  description->activation_alpha = alpha;
  description->activation_beta = beta;
  if (!slope.empty()) {
    description->num_parameters = static_cast<int16_t>(slope.size());
    description->weight = weight_text(slope);
  }
  return layer(id, {source}, std::move(description), kernel);
}

ModelBuilder& ModelBuilder::conv2d(const std::string& id, const std::string& source,
                                   const Conv2dInfo& description, const std::string& kernel) {
  return layer(id, {source}, std::make_shared<Conv2dInfo>(description), kernel);
}

ModelBuilder& ModelBuilder::transposed_conv2d(const std::string& id, const std::string& source,
                                              const ConvTranspose2dInfo& description,
                                              const std::string& kernel) {
  return layer(id, {source}, std::make_shared<ConvTranspose2dInfo>(description), kernel);
}

ModelBuilder& ModelBuilder::conv1d(const std::string& id, const std::string& source,
                                   const Conv1dInfo& description, const std::string& kernel) {
  return layer(id, {source}, std::make_shared<Conv1dInfo>(description), kernel);
}

ModelBuilder& ModelBuilder::input_converter(const std::string& index, const std::string& kernel,
                                            std::shared_ptr<runtime::InferenceParam> param) {
  add_converter(*last_layer_cfg().input_converters, index, kernel, std::move(param));
  return *this;
}

ModelBuilder& ModelBuilder::output_converter(const std::string& index, const std::string& kernel,
                                             std::shared_ptr<runtime::InferenceParam> param) {
  add_converter(*last_layer_cfg().output_converters, index, kernel, std::move(param));
  return *this;
}

ModelBuilder& ModelBuilder::kernel_param(std::shared_ptr<runtime::InferenceParam> param) {
  set_param(*last_layer_cfg().kernel, std::move(param));
  return *this;
}

std::shared_ptr<QRModelInfo> ModelBuilder::info() {
  if (network_.empty()) network(kDefaultNetwork);
  return model_->model_arr->infos[network_];
}

std::shared_ptr<QRModelMultiBackendCfgs> ModelBuilder::configurations() {
  if (network_.empty()) network(kDefaultNetwork);
  return model_->config_arr->cfgs[network_];
}

std::shared_ptr<runtime::QRModelCfg> ModelBuilder::configuration() {
  return configurations()->cpu_sse;
}

std::shared_ptr<runtime::InferenceConfig> ModelBuilder::inference_configuration() {
  auto config = std::make_shared<runtime::InferenceConfig>();
  for (const std::string& id : configuration()->squential_ids) {
    const LayerCfg& cfg = *configuration()->layer_cfgs[id];
    runtime::LayerInferenceConfig layer;
    layer.name = id;
    layer.input_converters = inference_form(*cfg.input_converters);
    layer.kernel = inference_form(*cfg.kernel);
    layer.output_converters = inference_form(*cfg.output_converters);
    config->layers.push_back(std::move(layer));
  }
  return config;
}

std::string ModelBuilder::save(const std::string& path) const {
  const bool json = path.size() >= 5 && path.substr(path.size() - 5) == ".json";
  if (!model_->ToFile(path.c_str(), json ? "json" : "bin")) {
    throw std::runtime_error("can't write " + path);
  }
  return path;
}

LayerCfg& ModelBuilder::last_layer_cfg() {
  const auto& ids = configuration()->squential_ids;
  if (ids.empty()) throw std::logic_error("there is no layer yet");
  return *configuration()->layer_cfgs[ids.back()];
}

}  // namespace marlo::test
