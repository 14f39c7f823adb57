#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/model/elementwise_info.h"

namespace marlo::test {

/// The weight text of floats.
std::string weight_text(const std::vector<float>& numbers);

/// The numbers start, start + step, ...: small integers keep every sum of a convolution exact.
std::vector<float> ramp(size_t count, float start = 1.0f, float step = 1.0f);

/// A convolution with a square window, stride 1, and weights and bias as given. Weights are
/// [out, in, kernel, kernel]; without a bias there is none.
runtime::Conv2dInfo plane_convolution(uint16_t in_channels, uint16_t out_channels, uint16_t kernel,
                                      const std::vector<float>& weights,
                                      const std::vector<float>& bias = {});

/// A transposed convolution, the counterpart of `plane_convolution`. Weights are
/// [in, out, kernel, kernel]; the paddings are kernel - 1, so that the plane grows.
runtime::ConvTranspose2dInfo transposed_convolution(uint16_t in_channels, uint16_t out_channels,
                                                    uint16_t kernel,
                                                    const std::vector<float>& weights,
                                                    const std::vector<float>& bias = {});

/// A convolution over lines, stride 1. Weights are [out, in, kernel].
runtime::Conv1dInfo line_convolution(uint16_t in_channels, uint16_t out_channels, uint16_t kernel,
                                     const std::vector<float>& weights,
                                     const std::vector<float>& bias = {});

/// Writes a model in code: networks, their layers in execution order, and the kernel of each.
///
/// @code
/// auto model = ModelBuilder()
///                  .network("net")
///                  .input("x")
///                  .conv2d("c", "x", plane_convolution(1, 2, 3, ramp(18)))
///                  .output_converter("0", "my_layout_transform")
///                  .activation("y", "c", "ReLU_Fallback_Float_M1")
///                  .outputs({"y"})
///                  .build();
/// @endcode
///
/// Converters and `kernel_param` belong to the layer added last. Kernels go into the configuration
/// "cpu_sse", the one that the library runs.
class ModelBuilder {
 public:
  /// SDK "sdk" 1.0, core 1.0, no network.
  ModelBuilder();

  ModelBuilder& sdk(const std::string& type, uint16_t major, uint16_t minor);
  ModelBuilder& core(uint16_t major, uint16_t minor);

  /// Starts a network. Without a call the layers go to one named "net".
  ModelBuilder& network(const std::string& id);

  /// Layers whose results the network returns, by id.
  ModelBuilder& outputs(const std::vector<std::string>& ids);

  /// An input layer.
  ModelBuilder& input(const std::string& id, const std::string& kernel = "Input_Fallback_M1");

  /// Any layer: `info` gets the id and the sources; its type code is kept.
  ModelBuilder& layer(const std::string& id, const std::vector<std::string>& sources,
                      std::shared_ptr<runtime::LayerInfo> info, const std::string& kernel);

  /// A layer that hands its first input on, of the type code of an activation.
  ModelBuilder& straight_through(const std::string& id, const std::vector<std::string>& sources);

  /// @param slope the weight of a PReLU; without it the layer has none
  ModelBuilder& activation(const std::string& id, const std::string& source,
                           const std::string& kernel, float alpha = 1.0f, float beta = 0.0f,
                           const std::vector<float>& slope = {});

  ModelBuilder& conv2d(
      const std::string& id, const std::string& source, const runtime::Conv2dInfo& info,
      const std::string& kernel = "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");

  ModelBuilder& transposed_conv2d(
      const std::string& id, const std::string& source, const runtime::ConvTranspose2dInfo& info,
      const std::string& kernel = "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");

  ModelBuilder& conv1d(const std::string& id, const std::string& source,
                       const runtime::Conv1dInfo& info,
                       const std::string& kernel = "Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1");

  /// A converter of the layer added last.
  /// @param index the converter's id, an index as text
  /// @param param most converters refuse one; those of the inverted check need one
  ModelBuilder& input_converter(const std::string& index, const std::string& kernel,
                                std::shared_ptr<runtime::InferenceParam> param = nullptr);
  ModelBuilder& output_converter(const std::string& index, const std::string& kernel,
                                 std::shared_ptr<runtime::InferenceParam> param = nullptr);

  /// The parameter object of the kernel of the layer added last. Files name its class.
  ModelBuilder& kernel_param(std::shared_ptr<runtime::InferenceParam> param);

  /// @name The current network
  /// @{
  std::shared_ptr<runtime::QRModelInfo> info();
  std::shared_ptr<runtime::QRModelMultiBackendCfgs> configurations();
  std::shared_ptr<runtime::QRModelCfg> configuration();  ///< "cpu_sse"
  /// The same configuration in the form of an application's.
  std::shared_ptr<runtime::InferenceConfig> inference_configuration();
  /// @}

  /// The model. The builder and the model share their networks.
  std::shared_ptr<runtime::QRTModel> build() const { return model_; }

  /// Writes the model to a file, as JSON for a path that ends in ".json", else in binary.
  /// @return the path
  std::string save(const std::string& path) const;

 private:
  runtime::LayerCfg& last_layer_cfg();

  std::shared_ptr<runtime::QRTModel> model_;
  std::string network_;  // id of the current network; empty before the first
};

}  // namespace marlo::test
