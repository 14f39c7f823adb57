#include "tests/toolkit/assign/small_networks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "qrt_core/qrt_core.h"
#include "qrt_core/utility/check_model.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"

namespace marlo::toolkit::test {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;

TensorShape planes(uint32_t channels, uint32_t height, uint32_t width) {
  return TensorShape({channels, height, width}, DataType::FLOAT32, LayoutType::CHW);
}

AssignOptions options_for(const TensorShape& input, KernelSet set) {
  AssignOptions options;
  options.set = set;
  options.inputs["x"] = input;
  return options;
}

/// What the only network of a model makes of one input.
std::vector<std::vector<float>> outputs_of(const runtime::QRTModel& model, const TensorShape& shape,
                                           const std::vector<float>& numbers) {
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 64);
  const std::string& id = model.model_arr->squential_ids[0];
  const auto info = model.model_arr->infos.at(id);
  const auto net =
      CreateNet(info, model.config_arr->cfgs.at(id)->cpu_sse, marlo::test::all_kernels(), context);
  std::vector<unsigned int> wanted;
  for (const std::string& output : info->squential_output_ids) {
    const auto place = std::find(info->squential_ids.begin(), info->squential_ids.end(), output);
    wanted.push_back(static_cast<unsigned int>(place - info->squential_ids.begin()));
  }
  const auto input = context->cpu->CreateTensor(shape, numbers.data());
  auto made = net->Forward({{0, input}}, wanted, context, nullptr, nullptr);
  std::vector<std::vector<float>> results;
  for (const unsigned int layer : wanted) {
    const auto tensor = made.at(layer).at(0);
    const auto* data = static_cast<const float*>(tensor->handle.cpu);
    results.emplace_back(data, data + runtime::ElementCount(tensor->shape));
  }
  return results;
}

std::vector<float> picture(size_t count) {
  std::vector<float> numbers(count);
  for (size_t i = 0; i < count; ++i) {
    numbers[i] = static_cast<float>(static_cast<int>(i * 37 % 101) - 50) / 25.0f;
  }
  return numbers;
}

/// Demands equal outputs but for the order of sums, and that nothing is wrong with the new model.
void expect_same(const runtime::QRTModel& before, const runtime::QRTModel& after,
                 const TensorShape& shape, double bound) {
  const auto numbers = picture(runtime::ElementCount(shape));
  const auto expected = outputs_of(before, shape, numbers);
  const auto found = outputs_of(after, shape, numbers);
  ASSERT_EQ(found.size(), expected.size());
  for (size_t o = 0; o < expected.size(); ++o) {
    ASSERT_EQ(found[o].size(), expected[o].size());
    double largest = 1e-3;
    for (const float number : expected[o]) largest = std::fmax(largest, std::fabs(number));
    for (size_t i = 0; i < expected[o].size(); ++i) {
      ASSERT_NEAR(found[o][i], expected[o][i], bound * largest) << "output " << o << ", " << i;
    }
  }
  for (const auto& finding : utility::check_model(std::make_shared<runtime::QRTModel>(after))) {
    ADD_FAILURE() << utility::finding_text(finding);
  }
}

const runtime::QRModelInfo& network(const runtime::QRTModel& model) {
  return *model.model_arr->infos.at(model.model_arr->squential_ids[0]);
}

const runtime::LayerCfg& configuration(const runtime::QRTModel& model, const std::string& layer) {
  const auto& cfgs = *model.config_arr->cfgs.at(model.model_arr->squential_ids[0]);
  return *cfgs.cpu_sse->layer_cfgs.at(layer);
}

std::shared_ptr<runtime::ActivationInfo> rectifier() {
  auto info = std::make_shared<runtime::ActivationInfo>();
  info->activation_type = 2;
  return info;
}

runtime::Conv2dInfo padded_convolution(uint16_t ins, uint16_t outs, uint16_t kernel) {
  auto info = marlo::test::plane_convolution(
      ins, outs, kernel, marlo::test::ramp(size_t{ins} * outs * kernel * kernel, -0.25f, 0.003f),
      marlo::test::ramp(outs, -1, 0.25f));
  const auto padding = static_cast<decltype(info.padding_l)>(kernel / 2);
  info.padding_l = info.padding_r = padding;
  info.padding_t = info.padding_b = padding;
  return info;
}

}  // namespace marlo::toolkit::test
