// The sample of docs/from-a-trained-network.md, against the operators of the network that it is
// made of, and what the page says of axes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qrt_core/qrt_core.h>

#include <algorithm>
#include <cmath>

#include "samples/trained_network_file.inc"
#include "tests/documents/working_folder.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {
namespace {

using ::testing::ElementsAre;

TEST(TrainedNetwork, TheSampleWritesAFileThatComputesTheNetwork) {
  const TemporaryFolder temporary;
  const WorkingFolder folder(temporary.file(""));
  Random random(1);
  const auto filters = random.floats(8 * 27, 1.0f);
  const auto gamma = random.floats(8, 2.0f), beta = random.floats(8, 1.0f);
  const auto mean = random.floats(8, 1.0f);
  auto variance = random.floats(8, 1.0f);
  for (float& number : variance) number = number * number + 0.1f;
  const auto dense = random.floats(32, 1.0f), dense_bias = random.floats(4, 1.0f);
#include "samples/trained_network.inc"

  // The operators one by one, batch normalisation as such.
  constexpr int kSide = 5;
  const auto picture = random.floats(3 * kSide * kSide, 1.0f);
  std::vector<double> expected(dense_bias.begin(), dense_bias.end());
  for (size_t o = 0; o < 8; ++o) {
    double plane_sum = 0;
    for (int y = 0; y < kSide; ++y) {
      for (int x = 0; x < kSide; ++x) {
        double sum = 0;
        for (int tap = 0; tap < 27; ++tap) {
          const int c = tap / 9, row = y + tap / 3 % 3 - 1, column = x + tap % 3 - 1;
          if (row < 0 || row >= kSide || column < 0 || column >= kSide) continue;
          sum += double{filters[o * 27 + static_cast<size_t>(tap)]} *
                 picture[static_cast<size_t>((c * kSide + row) * kSide + column)];
        }
        const double normal =
            (sum - mean[o]) / std::sqrt(double{variance[o]} + 1e-5) * gamma[o] + beta[o];
        plane_sum += std::max(normal, 0.0);
      }
    }
    for (size_t k = 0; k < 4; ++k) {
      expected[k] += plane_sum / (kSide * kSide) * dense[k * 8 + o];
    }
  }

  std::shared_ptr<Context> context;
  utility::create_context(context, 32);
  KernelRegistry kernels;
  InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  ASSERT_EQ(utility::load_model("net.json", nets, context, kernels, params, "qrt", 1, 0), 0);
  auto& net = *nets.at("net");
  net.input_tensors[0] = context->cpu->CreateF32CHWMainMem({3, kSide, kSide}, picture.data());
  const auto results =
      net.net->Forward(net.input_tensors, net.output_ids, context, nullptr, nullptr);
  const auto& output = *results.at(net.output_ids[0]).at(0);
  EXPECT_EQ(output.shape.dims, (std::vector<uint32_t>{4}));
  const auto* numbers = static_cast<const float*>(output.handle.cpu);
  for (size_t k = 0; k < 4; ++k) EXPECT_NEAR(numbers[k], expected[k], 1e-5) << k;
}

// What a kernel makes of shapes.
template <typename Info>
std::vector<uint32_t> dims_made(const std::string& kernel_name, const Info& info,
                                const std::vector<std::vector<uint32_t>>& inputs,
                                runtime::LayoutType layout) {
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  const auto kernel = make_kernel(kernel_name);
  EXPECT_TRUE(kernel->Config(std::make_shared<Info>(info), nullptr, context)) << kernel_name;
  std::vector<runtime::TensorShape> shapes;
  for (const auto& dims : inputs) shapes.push_back({dims, runtime::DataType::FLOAT32, layout});
  const auto made = kernel->InferOutputShapes(shapes);
  return made.at(0).dims;
}

TEST(TrainedNetwork, TheAttributesCountABatchWhereThePageSaysSo) {
  using namespace runtime;
  constexpr auto kPlanes = LayoutType::CHW;
  TensorReshapeInfo reshape;
  reshape.new_shape = {1, 24};
  EXPECT_THAT(dims_made("Reshape_Fallback_CnHWn_To_C_M1", reshape, {{2, 3, 4}}, kPlanes),
              ElementsAre(24));
  reshape.new_shape = {1, 4, 6};
  EXPECT_THAT(dims_made("Transform_MainMemory_Reshape_Fallback", reshape, {{2, 3, 4}}, kPlanes),
              ElementsAre(4, 6));
  ConcatenateInfo join;
  join.dim = 1;
  EXPECT_THAT(dims_made("Concatenate_C_Fallback_CnHWn_M1", join, {{2, 3, 4}, {5, 3, 4}}, kPlanes),
              ElementsAre(7, 3, 4));
  EXPECT_THAT(dims_made("Concatenate_MainMemory_Fallback", join, {{2, 3, 4}, {2, 5, 4}}, kPlanes),
              ElementsAre(2, 8, 4));
  TensorTransposeInfo transpose;
  transpose.axes = {2, 0, 1};
  EXPECT_THAT(dims_made("Transform_MainMemory_Permute_Fallback", transpose, {{2, 3, 4}}, kPlanes),
              ElementsAre(4, 2, 3));
  TensorArithmeticInfo sum;
  sum.dim = {1};
  EXPECT_THAT(dims_made("TensorArithmetic_Fallback_M1", sum, {{2, 3, 4}}, kPlanes),
              ElementsAre(3, 4));
  TensorExpandInfo expand;
  expand.new_shape = {1, 2, 5, 6};
  EXPECT_THAT(dims_made("Expand_Fallback_CHW_Float_M1", expand, {{2, 1, 1}}, kPlanes),
              ElementsAre(2, 5, 6));
  TensorUnSqueezeInfo unsqueeze;
  unsqueeze.dim = 2;
  EXPECT_THAT(dims_made("UnSqueeze_Fallback_M1", unsqueeze, {{2, 3, 4}}, kPlanes),
              ElementsAre(2, 1, 3, 4));
}

}  // namespace
}  // namespace marlo::test
