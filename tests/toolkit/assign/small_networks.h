#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/assign/assign.h"

// Networks for tests of the choice of kernels, and what they make.

namespace marlo::toolkit::test {

inline constexpr char kReLU[] = "ReLU_Fallback_Float_M1";

runtime::TensorShape planes(uint32_t channels, uint32_t height, uint32_t width);

/// Options for a network with the one input "x".
AssignOptions options_for(const runtime::TensorShape& input, KernelSet set = processor_kernels());

/// What the only network of a model makes of one input, with the kernels of both sets.
std::vector<std::vector<float>> outputs_of(const runtime::QRTModel& model,
                                           const runtime::TensorShape& shape,
                                           const std::vector<float>& numbers);

/// Numbers of both signs.
std::vector<float> picture(size_t count);

/// Demands equal outputs but for the order of sums, and that nothing is wrong with the new model.
/// @param bound of differences over the largest output
void expect_same(const runtime::QRTModel& before, const runtime::QRTModel& after,
                 const runtime::TensorShape& shape, double bound = 2e-5);

/// The only network of a model.
const runtime::QRModelInfo& network(const runtime::QRTModel& model);

/// What is configured for one layer of it.
const runtime::LayerCfg& configuration(const runtime::QRTModel& model, const std::string& layer);

std::shared_ptr<runtime::ActivationInfo> rectifier();

/// A convolution that keeps the sizes of its picture.
runtime::Conv2dInfo padded_convolution(uint16_t ins, uint16_t outs, uint16_t kernel = 3);

/// Costs from a test's own rule.
class CostsByRule final : public Costs {
 public:
  explicit CostsByRule(std::function<double(const Work&)> rule) : rule_(std::move(rule)) {}
  double of(const Work& work) override { return rule_(work); }

 private:
  std::function<double(const Work&)> rule_;
};

}  // namespace marlo::toolkit::test
