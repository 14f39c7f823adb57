#include "qrt_core/utility/check_shapes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/runtime/engine/all_layers.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/recurrent_case.h"

namespace marlo::test {

using namespace utility;

namespace {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;
using ::testing::HasSubstr;

using Dims = std::vector<uint32_t>;

class CheckShapes : public ::testing::Test {
 protected:
  CheckShapes() {
    create_context(context_, 16);
    init_register_operators(kernels_, params_);
  }

  std::vector<LayerShapes> check(const ModelBuilder& model, const TensorShape& input) {
    auto builder = model;
    const auto net =
        runtime::CreateNet(builder.info(), builder.configuration(), kernels_, context_);
    return check_shapes(*net, {{0, input}}, context_);
  }

  static TensorShape chw(const Dims& dims) {
    return TensorShape(dims, DataType::FLOAT32, LayoutType::CHW);
  }

  std::shared_ptr<runtime::Context> context_;
  runtime::KernelRegistry kernels_;
  runtime::InferenceParamRegistry params_;
  test::LogCapture log_;
};

// A 3x3 convolution from 2 channels to 4, then a rectifier.
ModelBuilder two_layers() {
  return ModelBuilder()
      .input("x")
      .conv2d("c", "x", test::plane_convolution(2, 4, 3, test::ramp(72)))
      .activation("y", "c", "ReLU_Fallback_Float_M1")
      .outputs({"y"});
}

ModelBuilder transposed(const std::vector<uint16_t>& axes) {
  const auto info = std::make_shared<runtime::TensorTransposeInfo>();
  info->axes = axes;
  return ModelBuilder()
      .input("x")
      .layer("y", {"x"}, info, "Transform_MainMemory_Permute_Fallback")
      .outputs({"y"});
}

TEST_F(CheckShapes, WalksShapesThatFit) {
  const auto layers = check(two_layers(), chw({2, 7, 5}));
  ASSERT_EQ(layers.size(), 3u);
  for (const LayerShapes& layer : layers) EXPECT_EQ(layer.fault, "");
  EXPECT_EQ(layers[0].outputs.at(0).dims, (Dims{2, 7, 5}));
  EXPECT_EQ(layers[1].inputs.at(0).dims, (Dims{2, 7, 5}));
  EXPECT_EQ(layers[1].outputs.at(0).dims, (Dims{4, 5, 3}));
  EXPECT_EQ(layers[2].outputs.at(0).dims, (Dims{4, 5, 3}));
}

TEST_F(CheckShapes, NamesTheKernelAndWhatItRefuses) {
  const auto layers = check(two_layers(), chw({3, 7, 5}));
  EXPECT_EQ(layers[0].fault, "");
  EXPECT_EQ(layers[1].fault,
            "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1 refuses FLOAT32 CHW [3, 7, 5]");
  EXPECT_TRUE(layers[1].outputs.empty());
  EXPECT_EQ(layers[2].fault, "it reads layer 1, which gives nothing");
}

TEST_F(CheckShapes, FindsAWindowThatIsLargerThanItsInput) {
  for (const uint32_t size : {1u, 2u}) {
    const auto layers = check(two_layers(), chw({2, size, size}));
    EXPECT_THAT(layers[1].fault, HasSubstr("_Fallback_CHW_Float_M1 refuses FLOAT32 CHW"));
    ASSERT_EQ(layers[1].place.misfits.size(), 1u);
    EXPECT_EQ(layers[1].place.misfits[0].expected, "room for a window of 3 x 3, paddings included");
  }
}

TEST_F(CheckShapes, TakesTheTextOfAKernelThatThrows) {
  const TensorShape flat({4}, DataType::FLOAT32, LayoutType::CHW);
  const auto layers = check(two_layers(), flat);
  EXPECT_NE(layers[1].fault, "");
}

// A permutation takes any tensor and throws in a pass; the walk says so before.
TEST_F(CheckShapes, NamesAxesThatAreNoPermutationOfTheInputs) {
  const std::vector<std::vector<uint16_t>> wrong = {{0, 1}, {0, 1, 2, 3}, {0, 1, 3}, {2, 1, 2}, {}};
  for (const auto& axes : wrong) {
    const auto layers = check(transposed(axes), chw({2, 7, 5}));
    EXPECT_THAT(layers[1].fault, HasSubstr("Transform_MainMemory_Permute_Fallback refuses"));
    ASSERT_EQ(layers[1].place.misfits.size(), 1u);
    EXPECT_EQ(layers[1].place.misfits[0].expected, "a permutation of the input's 3 dims");
  }
  const auto layers = check(transposed({2, 0, 1}), chw({2, 7, 5}));
  EXPECT_EQ(layers[1].fault, "");
  EXPECT_EQ(layers[1].outputs.at(0).dims, (Dims{5, 2, 7}));
}

// Kernels take these descriptions and this input, and throw in a pass.
TEST_F(CheckShapes, NamesTheMemberThatOnlyAPassRefuses) {
  const auto pooling = std::make_shared<runtime::MaxPool2dInfo>();
  pooling->kernel_x = pooling->kernel_y = 2;
  pooling->stride_x = pooling->stride_y = 1;
  pooling->padding_l = -1;
  const auto softmax = std::make_shared<runtime::SoftmaxInfo>();
  const auto sum = std::make_shared<runtime::TensorArithmeticInfo>();
  sum->dim = {1, 1};
  const auto unsqueeze = std::make_shared<runtime::TensorUnSqueezeInfo>();
  unsqueeze->dim = 5;
  const auto slice = std::make_shared<runtime::TensorSliceInfo>();
  slice->slice_dims = {0, 2, 1, 0, 8, 1, 0, 5, 1};
  const auto expand = std::make_shared<runtime::TensorExpandInfo>();
  expand->new_shape = {1, -1, 14, 5};
  const auto reshape = std::make_shared<runtime::TensorReshapeInfo>();
  reshape->new_shape = {1, -1, -1};
  struct Case {
    std::shared_ptr<runtime::LayerInfo> info;
    const char* kernel;
    const char* member;
  };
  const std::vector<Case> cases = {
      {pooling, "Pooling2D_Max_Fallback_Float_M1", "padding_l, padding_r, padding_t, padding_b"},
      {softmax, "Softmax_Fallback_Float_M1", "dim"},
      {sum, "TensorArithmetic_Fallback_M1", "dim"},
      {unsqueeze, "UnSqueeze_Fallback_M1", "dim"},
      {slice, "Slice_Fallback_CHW_Float_M1", "slice_dims"},
      {expand, "Expand_Fallback_CHW_Float_M1", "input 0"},
      {reshape, "Transform_MainMemory_Reshape_Fallback", "new_shape"}};
  for (const Case& wrong : cases) {
    const testing::ScopedTrace trace("", 0, wrong.kernel);
    const auto model = ModelBuilder().input("x").layer("y", {"x"}, wrong.info, wrong.kernel);
    const auto layers = check(model, chw({2, 7, 5}));
    EXPECT_THAT(layers[1].fault, HasSubstr(std::string(wrong.kernel) + " refuses"));
    ASSERT_EQ(layers[1].place.misfits.size(), 1u);
    EXPECT_EQ(layers[1].place.misfits[0].member, wrong.member);
  }
}

// Of these a pass says "Not Implemented."
TEST_F(CheckShapes, NamesARecurrentLayerThatHasNoPass) {
  RecurrentCase layer;
  layer.bidirectional = true;
  layer.complex_type = 1;
  layer.fill(1);
  const auto model = ModelBuilder().input("x").layer("y", {"x"}, sequence_description(layer),
                                                     "LSTM_Fallback_SC_F32_M1");
  const TensorShape steps({3, layer.ins}, DataType::FLOAT32, LayoutType::SC);
  const auto layers = check(model, steps);
  ASSERT_EQ(layers[1].place.misfits.size(), 1u) << layers[1].fault;
  EXPECT_EQ(layers[1].place.misfits[0].member, "complex_rnn_type");
}

TEST_F(CheckShapes, AsksForTheShapeOfEveryInput) {
  auto model = two_layers();
  const auto net = runtime::CreateNet(model.info(), model.configuration(), kernels_, context_);
  const auto layers = check_shapes(*net, {}, context_);
  EXPECT_EQ(layers[0].fault, "no shape is given for this input");
  EXPECT_EQ(layers[1].fault, "it reads layer 0, which gives nothing");
}

// A model may name a kernel that refuses its layer; a pass reports that in the same words.
TEST_F(CheckShapes, ReportsKernelsAndConvertersThatCouldNotBeConfigured) {
  auto model = two_layers();
  const auto net = runtime::CreateNet(model.info(), model.configuration(), kernels_, context_);
  const char* const fault = "it has a kernel or converter that could not be configured";
  net->layers[2]->kernel = nullptr;
  EXPECT_EQ(check_shapes(*net, {{0, chw({2, 7, 5})}}, context_)[2].fault, fault);
  net->layers[1]->output_converters[0] = nullptr;
  EXPECT_EQ(check_shapes(*net, {{0, chw({2, 7, 5})}}, context_)[1].fault, fault);
  net->layers[1]->input_converters[0] = nullptr;
  const auto layers = check_shapes(*net, {{0, chw({2, 7, 5})}}, context_);
  EXPECT_EQ(layers[0].fault, "");
  EXPECT_EQ(layers[1].fault, fault);
  EXPECT_EQ(layers[2].fault, "it reads layer 1, which gives nothing");
}

TEST_F(CheckShapes, TellsWhichFaultsOnlyFollowFromAnother) {
  const auto layers = check(two_layers(), chw({3, 7, 5}));
  EXPECT_FALSE(layers[1].is_consequence);
  EXPECT_TRUE(layers[2].is_consequence);
  EXPECT_EQ(layers[1].place.layer, 1u);
  EXPECT_EQ(layers[1].place.id, "c");
  EXPECT_EQ(layers[1].place.kind, "Conv2d");
  EXPECT_EQ(layers[1].place.kernel, "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
}

TEST_F(CheckShapes, ContextsWithoutADeviceAreAnError) {
  auto model = two_layers();
  const auto net = runtime::CreateNet(model.info(), model.configuration(), kernels_, context_);
  EXPECT_THROW(check_shapes(*net, {}, nullptr), Error);
  EXPECT_THROW(check_shapes(*net, {}, std::make_shared<runtime::Context>()), Error);
}

TEST_F(CheckShapes, AgreesWithAPassOnEveryKindOfLayer) {
  auto model = test::all_layers(3);
  const auto net = runtime::CreateNet(model.info(), model.configuration(), kernels_, context_);
  const auto inputs = test::all_layers_inputs(*context_->cpu);
  std::unordered_map<unsigned int, TensorShape> shapes;
  for (const auto& [layer, tensor] : inputs) shapes[layer] = tensor->shape;
  std::vector<unsigned int> all;
  for (unsigned int layer = 0; layer < net->layers.size(); ++layer) all.push_back(layer);
  const auto layers = check_shapes(*net, shapes, context_);
  const auto results = net->Forward(inputs, all, context_, nullptr, nullptr);
  for (const unsigned int layer : all) {
    SCOPED_TRACE(net->layers[layer]->id);
    EXPECT_EQ(layers[layer].fault, "");
    const auto& made = results.at(layer);
    ASSERT_EQ(layers[layer].outputs.size(), made.size());
    for (size_t i = 0; i < made.size(); ++i) EXPECT_EQ(layers[layer].outputs[i], made[i]->shape);
  }
}

#if QRT_WITH_SSE
// A pass hands an input layer its tensor as it is, whatever converters the file names for it.
TEST_F(CheckShapes, AgreesWithAPassOnAnInputLayerWithAConverter) {
  auto model = ModelBuilder()
                   .input("x")
                   .input_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1")
                   .activation("y", "x", "ReLU_Fallback_Float_M1")
                   .outputs({"y"});
  const auto net = runtime::CreateNet(model.info(), model.configuration(), kernels_, context_);
  const auto layers = check_shapes(*net, {{0, chw({8, 3, 3})}}, context_);
  const auto results = net->Forward({{0, context_->cpu->CreateTensor(chw({8, 3, 3}), nullptr)}},
                                    {0, 1}, context_, nullptr, nullptr);
  for (const unsigned int layer : {0u, 1u}) {
    EXPECT_EQ(layers[layer].fault, "");
    EXPECT_EQ(layers[layer].outputs.at(0), results.at(layer).at(0)->shape);
  }
}

TEST_F(CheckShapes, GoesThroughConverters) {
  auto model = ModelBuilder()
                   .input("x")
                   .activation("y", "x", "ReLU_SSE_Float_M1")
                   .input_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1")
                   .output_converter("0", "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1")
                   .outputs({"y"});
  const auto layers = check(model, chw({8, 3, 3}));
  EXPECT_EQ(layers[1].fault, "");
  EXPECT_EQ(layers[1].inputs.at(0).dims, (Dims{2, 3, 3, 4}));
  EXPECT_EQ(layers[1].made.at(0).dims, (Dims{2, 3, 3, 4}));
  EXPECT_EQ(layers[1].outputs.at(0).dims, (Dims{8, 3, 3}));
  const TensorShape hwc({3, 3, 8}, DataType::FLOAT32, LayoutType::HWC);
  EXPECT_THAT(
      check(model, hwc)[1].fault,
      HasSubstr("LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1 refuses FLOAT32 HWC"));
  EXPECT_EQ(check(model, hwc)[1].place.role, "input converter 0");
}
#endif

}  // namespace
}  // namespace marlo::test
