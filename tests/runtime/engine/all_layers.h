#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "qrt_core/kernel/kernels.h"
#include "qrt_core/qrt_core.h"
#include "tests/runtime/engine/moving_layers.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"

namespace marlo::test {

/// A network with every kind of layer: an input of planes and one of lines, each convolution, every
/// activation that this processor runs, a layer that hands its input on, and converters on both
/// sides, and what `MovingLayers` has. Its outputs are the ends of all paths and a tensor from the
/// middle.
/// @param window of the convolutions: 3, or 1 to give all tensors one size, without the layers that
///   would make others
inline ModelBuilder all_layers(uint16_t window = 3) {
  const auto any = std::make_shared<runtime::InferenceParamConv2DQuant>();
  const auto weights = [window](size_t dims) {
    return ramp(4 * (dims == 2 ? window * window : window), -0.5f, 0.03f);
  };
  auto info = plane_convolution(2, 2, window, weights(2), {0.1f, 0.2f});
  info.padding_l = info.padding_t = info.padding_r = info.padding_b = window / 2;

  ModelBuilder model;
  model.input("planes").output_converter("0", "Straight_Through_Fallback_M1", any);
  model.input("lines");
  model.conv2d("conv", "planes", info)
      .input_converter("0", "ReLU6_Fallback_Float_M1", any)
      .output_converter("0", "ReLU6_Fallback_Float_M1", any);
  std::string last = "conv";
  for (const kernel::ActivationRow* row : kernel::activation_rows) {
    if (!why_not_here(row->name).empty()) continue;
    model.activation(row->name, last, row->name, 0.5f, 0.25f, {0.125f});
    last = row->name;
  }
  model.straight_through("through", {last})
      .transposed_conv2d("grown", "through",
                         transposed_convolution(2, 2, window, weights(2), {0.5f, -0.5f}));
  // These make tensors of many sizes.
  std::vector<std::string> outputs = {"grown", "through", "end of line"};
  if (window != 1) {
    for (const std::string& end : MovingLayers(model, "through").add()) outputs.push_back(end);
  }
  model.conv1d("line", "lines", line_convolution(2, 2, window, weights(1), {1.0f, 2.0f}))
      .activation("end of line", "line", "TanH_Fallback_Float_M1");
  model.outputs(outputs);
  return model;
}

/// Inputs for `all_layers`, from the static pool.
inline std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>> all_layers_inputs(
    runtime::DeviceCPU& device, float start = -0.7f) {
  const runtime::TensorShape lines({2, 63}, runtime::DataType::FLOAT32, runtime::LayoutType::CL);
  return {{0, device.CreateF32CHWMainMem({2, 7, 9}, ramp(126, start, 0.013f).data())},
          {1, device.CreateTensor(lines, ramp(126, start, 0.02f).data())}};
}

}  // namespace marlo::test
