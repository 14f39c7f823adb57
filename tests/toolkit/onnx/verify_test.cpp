#include "qrt_toolkit/verify/verify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "model_text.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/verify/difference.h"
#include "tests/support/temporary_folder.h"

namespace marlo::toolkit::test {
namespace {

using marlo::test::TemporaryFolder;

const char* const kNetwork = R"(g (float[1,2,6,6] x) => (float[1,3] p)
    <float[4,2,3,3] w, float[4] b = {0.1, 0.2, -0.3, 0.4},
     float[4] s = {2, 0.5, 1, 3}, float[4] z = {0, 1, 0, -1}, float[4] v = {1, 4, 2, 1},
     float[3,4] m = {1, 2, 3, 4, 5, 6, -7, 8, -9, 0.3, 0.7, 0.1}> {
  c = Conv<pads=[1, 1, 1, 1]>(x, w, b)
  n = BatchNormalization(c, s, z, z, v)
  r = Relu(n)
  t = Sigmoid(n)
  a = Add(r, t)
  q = GlobalAveragePool(a)
  f = Flatten(q)
  l = Gemm<transB=1>(f, m)
  p = Softmax<axis=1>(l)
})";

std::string network() {
  std::string weights = "w = {";
  for (int i = 0; i < 72; ++i) {
    weights += (i == 0 ? "" : ", ") + std::to_string(std::sin(i * 1.7));
  }
  std::string text = kNetwork;
  return text.replace(text.find("w,"), 1, weights + "}");
}

ImportStages stages_of(const TemporaryFolder& folder, const std::string& graph, int opset = 13) {
  write_model(folder.file("net.onnx"), graph, opset);
  ImportOptions options;
  options.kernels = KernelSet::portable;
  return import_stages(folder.file("net.onnx"), options);
}

TEST(VerifyImport, ANetworkAgreesWithItsSource) {
  const TemporaryFolder folder;
  ImportStages stages = stages_of(folder, network());
  const Verification verification = verify_stages(stages, {});
  std::vector<std::string> ids;
  for (const VerifiedLayer& layer : verification.layers) {
    ids.push_back(layer.layer);
    EXPECT_LE(layer.exact.absolute, layer.bound) << layer.layer;
    EXPECT_GT(layer.bound, 0) << layer.layer;
    // A bound that lets everything pass would be none.
    EXPECT_LT(layer.bound, 1e-3 * layer.largest_value) << layer.layer;
  }
  EXPECT_THAT(ids, ::testing::IsSupersetOf({"n", "r", "t", "a", "q", "l", "p"}));
  EXPECT_EQ(verification.first_beyond(), nullptr);
  // Weights in half precision cost more than the order of sums.
  EXPECT_GT(verification.layers[0].halves.absolute, verification.layers[0].exact.absolute);
}

TEST(VerifyImport, TheFirstLayerThatComputesSomethingElseIsNamed) {
  const TemporaryFolder folder;
  ImportStages stages = stages_of(folder, network());
  auto& info = *stages.imported.model.model_arr->infos.at("net");
  auto& gemm = dynamic_cast<runtime::FullConnectionInfo&>(*info.layers.at("l"));
  std::vector<float> numbers = runtime::WeightNumbers(gemm.weight);
  numbers[5] *= 1.01f;
  gemm.weight = runtime::MakeWeightBlob(numbers.data(), numbers.size());
  const Verification verification = verify_stages(stages, {});
  ASSERT_NE(verification.first_beyond(), nullptr);
  EXPECT_EQ(verification.first_beyond()->layer, "l");
  EXPECT_EQ(verification.first_beyond()->node, "l");
}

TEST(VerifyImport, WhateverKernelsAreChosen) {
  const TemporaryFolder folder;
  write_model(folder.file("net.onnx"), network());
  const VerifiedImport result = import_and_verify(folder.file("net.onnx"));
  EXPECT_EQ(result.imported.report.kernels, processor_kernels());
  EXPECT_GE(result.verification.layers.size(), 5u);
  EXPECT_EQ(result.verification.first_beyond(), nullptr);
}

TEST(VerifyImport, WholeNumbersAreRowsOfTheirTable) {
  const TemporaryFolder folder;
  ImportStages stages = stages_of(folder, R"(g (int64[1,9] i) => (float[1,9,2] y)
      <float[3,2] t = {1, 2, 0.5, 3, -4, 5}, float[2] w = {1, 2}, float[2] b = {0, 1},
       int64[2] s = {1, 9}> {
    r = Reshape(i, s)
    e = Gather(t, r)
    y = LayerNormalization(e, w, b)
  })",
                                  17);
  const Verification verification = verify_stages(stages, {});
  EXPECT_EQ(verification.first_beyond(), nullptr);
  EXPECT_EQ(verification.layers.back().layer, "y");
  EXPECT_LT(verification.layers.back().bound, 1e-3 * verification.layers.back().largest_value);
}

TEST(VerifyImport, TheModelKeepsItsWeights) {
  const TemporaryFolder folder;
  ImportStages stages = stages_of(folder, network());
  auto& info = *stages.imported.model.model_arr->infos.at("net");
  const auto& conv = dynamic_cast<runtime::Conv2dInfo&>(*info.layers.at("n"));
  const runtime::WeightBlob before = conv.weight;
  verify_stages(stages, {});
  EXPECT_EQ(conv.weight, before);
}

TEST(VerifyImport, InputsMayBeGiven) {
  const TemporaryFolder folder;
  ImportStages stages = stages_of(folder, "g (float[1,4] x) => (float[1,4] y) { y = Mul(x, x) }");
  VerifyOptions options;
  options.inputs[""] = {{1, 4}, {1, 2, 3, -40}};
  const Verification verification = verify_stages(stages, options);
  ASSERT_EQ(verification.layers.size(), 1u);
  EXPECT_EQ(verification.layers[0].largest_value, 1600);
  options.inputs[""] = {{4}, {1, 2, 3, 4}};
  EXPECT_THROW(verify_stages(stages, options), UnsupportedError);
  options.inputs = {{"z", {{1, 4}, {1, 2, 3, 4}}}};
  EXPECT_THROW(verify_stages(stages, options), UnsupportedError);
}

TEST(VerifyImport, StatesThatTheNetworkKeepsBeginWithZeros) {
  const TemporaryFolder folder;
  ImportStages stages = stages_of(folder, R"(g (float[3,1,2] x, float[1,1,2] h)
      => (float[3,1,1,2] y, float[1,1,2] n)
      <float[1,2,2] w = {0.5, -1, 0.25, 1}, float[1,2,2] r = {0.5, 0.25, -0.5, 1}> {
        y, n = RNN<hidden_size=2>(x, w, r, , , h)
      })");
  ASSERT_EQ(stages.imported.report.inputs.size(), 1u);
  const Verification verification = verify_stages(stages, {});
  EXPECT_FALSE(verification.layers.empty());
  EXPECT_EQ(verification.first_beyond(), nullptr);
  VerifyOptions options;
  options.inputs["h"] = {{1, 1, 2}, {0, 1}};
  EXPECT_THROW(verify_stages(stages, options), UnsupportedError);
}

TEST(VerifyImport, ProgressCountsToItsEnd) {
  const TemporaryFolder folder;
  ImportStages stages = stages_of(folder, network());
  VerifyOptions options;
  size_t last = 0;
  size_t all = 0;
  options.progress = [&](size_t done, size_t of) {
    EXPECT_EQ(done, last + 1);
    last = done;
    all = of;
  };
  verify_stages(stages, options);
  EXPECT_GT(last, 9u);
  EXPECT_EQ(all, last);
}

TEST(NumberDifference, IsTheLargestAndItsPlace) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::nan("");
  const NumberDifference difference = difference_of({1, -4, 2}, {1, -3.5, 2.25});
  EXPECT_EQ(difference.largest, 0.5);
  EXPECT_EQ(difference.place, 1u);
  EXPECT_EQ(difference.largest_value, 4);
  EXPECT_EQ(difference.relative(), 0.125);
  EXPECT_EQ(difference_of({nan, infinity}, {nan, infinity}).largest, 0);
  EXPECT_EQ(difference_of({1}, {nan}).largest, infinity);
}

}  // namespace
}  // namespace marlo::toolkit::test
