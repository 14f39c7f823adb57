#include "qrt_core/utility/model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/recurrent_info.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {

using namespace utility;

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// Twice the input, plus 1, and the rectifier of it.
ModelBuilder small_model() {
  ModelBuilder model;
  model.network("net")
      .input("x")
      .conv2d("c", "x", test::plane_convolution(1, 1, 1, {2.0f}, {1.0f}))
      .activation("y", "c", "ReLU_Fallback_Float_M1")
      .outputs({"y"});
  model.info()->extra_info.model_base_h = 1;
  model.info()->extra_info.model_base_w = 2;
  return model;
}

template <typename Call>
std::string story_of(Call call) {
  try {
    call();
  } catch (const Error& failure) {
    return failure.story();
  }
  return "nothing was thrown";
}

class ModelTest : public ::testing::Test {
 protected:
  std::string save(const ModelBuilder& model, const char* name = "m.qrtmodel") {
    return model.save(folder_.file(name));
  }

  static std::string bytes_of(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  // Nothing is printed, whatever happens.
  ~ModelTest() override { EXPECT_THAT(log_.lines(), IsEmpty()); }

  test::TemporaryFolder folder_;
  test::LogCapture log_;
  const std::vector<float> pixels_ = {3.0f, -4.0f};
};

TEST_F(ModelTest, AnInputThatTheModelDescribesTakesItsSourcesSizes) {
  ModelBuilder described = small_model();
  described.info()->extra_info.summary =
      R"({"qrt_model":1,"inputs":[{"name":"x","shape":[1,1,2],"layout":"CHW","batch":true}]})";
  Model model(save(described));
  const std::vector<float> numbers{1, 2};
  ASSERT_TRUE(model.at(0).inputs()[0].shape);
  EXPECT_THAT(model.at(0).inputs()[0].shape->dims, ElementsAre(1, 1, 2));
  EXPECT_THAT(model.run({{1, 1, 1, 2}, numbers})[0].elements(), ElementsAre(3, 5));
  EXPECT_THAT(model.run({{1, 1, 2}, numbers})[0].elements(), ElementsAre(3, 5));
  Model silent(save(small_model(), "silent.qrtmodel"));
  EXPECT_NE(story_of([&] { silent.run({{1, 1, 1, 2}, numbers}); }), "nothing was thrown");
}

TEST_F(ModelTest, OpensAndRunsInTwoLines) {
  Model model(save(small_model()));
  const Results results = model.run({{1, 1, 2}, pixels_});
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].id(), "y");
  EXPECT_THAT(results[0].elements(), ElementsAre(7.0f, 0.0f));
  EXPECT_THAT(results.at("y").elements<float>(), ElementsAre(7.0f, 0.0f));
  EXPECT_THAT(story_of([&] { results.at("z"); }), HasSubstr("no result of layer \"z\""));
}

TEST_F(ModelTest, OpensBytesOfBothForms) {
  for (const char* name : {"m.json", "m.qrtmodel"}) {
    std::string bytes = bytes_of(save(small_model(), name));
    Model model = Model::from_bytes(bytes.data(), bytes.size());
    bytes.assign(bytes.size(), 'x');  // no longer needed
    EXPECT_THAT(model.run({{1, 1, 2}, pixels_})[0].elements(), ElementsAre(7.0f, 0.0f));
  }
  EXPECT_NE(story_of([] { Model::from_bytes(nullptr, 0); }), "nothing was thrown");
  EXPECT_NE(story_of([] { Model::from_bytes("", 0); }), "nothing was thrown");
  EXPECT_NE(story_of([] { Model::from_bytes("{", 1); }), "nothing was thrown");
}

TEST_F(ModelTest, KnowsItsInputsAndOutputs) {
  Model model(save(small_model()));
  EXPECT_THAT(model.ids(), ElementsAre("net"));
  utility::Network& network = model.at("net");
  ASSERT_THAT(network.inputs(), SizeIs(1));
  EXPECT_EQ(network.inputs()[0].id, "x");
  ASSERT_TRUE(network.inputs()[0].shape.has_value());
  EXPECT_THAT(network.inputs()[0].shape->dims, ElementsAre(1, 1, 2));
  ASSERT_THAT(network.outputs(), SizeIs(1));
  EXPECT_EQ(network.outputs()[0].id, "y");
  EXPECT_FALSE(network.outputs()[0].shape.has_value());
  network.run({{1, 1, 2}, pixels_});
  EXPECT_THAT(network.outputs()[0].shape->dims, ElementsAre(1, 1, 2));
}

TEST_F(ModelTest, ResultsOutliveLaterRunsAndTheModel) {
  std::optional<Results> results;
  {
    Model model(save(small_model()));
    results = model.run({{1, 1, 2}, pixels_});
    model.run({{1, 1, 2}, std::vector<float>{100.0f, 100.0f}});
  }
  EXPECT_THAT((*results)[0].elements(), ElementsAre(7.0f, 0.0f));
  Model second(save(small_model()));
  results = second.run({{1, 1, 2}, pixels_});  // replaces what the first model made
  EXPECT_THAT((*results)[0].elements(), ElementsAre(7.0f, 0.0f));
}

TEST_F(ModelTest, MovesAndKeepsItsNetworksWhereTheyAre) {
  Model model(save(small_model()));
  utility::Network& network = model.at(0);
  Model moved = std::move(model);
  EXPECT_EQ(&moved.at(0), &network);
  EXPECT_EQ(model.size(), 0u);  // NOLINT: what is left of it is empty
  EXPECT_THAT(story_of([&] { model.run({{1, 1, 2}, pixels_}); }), HasSubstr("0 networks"));
  Model other(save(small_model(), "n.json"));
  other = std::move(moved);
  EXPECT_THAT(network.run({{1, 1, 2}, pixels_})[0].elements(), ElementsAre(7.0f, 0.0f));
}

TEST_F(ModelTest, AnInputThatDoesNotFitIsToldBeforeThePass) {
  Model model(save(small_model()));
  const std::vector<float> colours(6);
  EXPECT_THAT(story_of([&] {
                model.run({{3, 1, 2}, colours});
              }),
              AllOf(HasSubstr("network \"net\", layer 1 \"c\" (Conv2d), kernel Conv2D_Knxm"),
                    HasSubstr("[3, 1, 2]")));
  EXPECT_THAT(story_of([&] {
                model.run({{1, 1, 3}, pixels_});
              }),
              HasSubstr("an input of 3 numbers was given 2"));
  EXPECT_THAT(story_of([&] { model.run(std::vector<Input>()); }),
              HasSubstr("the network has 1 inputs and was given 0"));
  EXPECT_THAT(story_of([&] { model.run(Input(std::shared_ptr<runtime::Tensor>())); }),
              HasSubstr("input \"x\" is a null pointer"));
  EXPECT_THAT(model.run({{1, 1, 2}, pixels_})[0].elements(), ElementsAre(7.0f, 0.0f));
}

TEST_F(ModelTest, FilesThatCantBeOpenedAreNamed) {
  EXPECT_THAT(story_of([] { Model("no/such.qrtmodel"); }), HasSubstr("no/such.qrtmodel"));
  std::ofstream(folder_.file("bad.json")) << "{ oops";
  EXPECT_THAT(story_of([&] { Model(folder_.file("bad.json")); }), HasSubstr("bad.json"));
}

TEST_F(ModelTest, AKernelThatRefusesItsLayerIsToldWithItsPlace) {
  auto model = small_model();
  model.configuration()->layer_cfgs["c"]->kernel->kernel_type = "ReLU_Fallback_Float_M1";
  EXPECT_THAT(story_of([&] { Model(save(model)); }),
              HasSubstr("network \"net\", layer 1 \"c\" (Conv2d), kernel ReLU_Fallback_Float_M1: "
                        "refuses the layer"));
}

TEST_F(ModelTest, VersionsAreComparedAsAsked) {
  ModelOptions options;
  options.sdk_type = "sdk";
  options.sdk_major = 2;
  EXPECT_THAT(story_of([&] { Model(save(small_model()), options); }),
              HasSubstr("the model is for SDK sdk 1.0, and not for sdk 2.0"));
  options.sdk_major = 1;
  EXPECT_EQ(Model(save(small_model()), options).size(), 1u);
  EXPECT_THAT(story_of([&] { Model(save(small_model().core(2, 0))); }),
              HasSubstr("the model needs core 2.0"));
}

TEST_F(ModelTest, SeveralNetworksAreRunByTheirIds) {
  auto builder = small_model();
  builder.network("second").input("a").input("b").layer(
      "s", {"a", "b"}, std::make_shared<runtime::ElementWiseOperatorInfo>(),
      "Elementwise_Fallback_Float_M1");
  builder.outputs({"s"});
  Model model(save(builder));
  EXPECT_THAT(model.ids(), ElementsAre("net", "second"));
  EXPECT_THAT(story_of([&] {
                model.run({{1, 1, 2}, pixels_});
              }),
              HasSubstr("the model has 2 networks"));
  const auto results =
      model.at("second").run({Input({1, 1, 2}, pixels_), Input({1, 1, 2}, pixels_)});
  EXPECT_THAT(results[0].elements(), ElementsAre(6.0f, -8.0f));
  EXPECT_THAT(story_of([&] { model.at("secnd"); }), HasSubstr("did you mean \"second\"?"));
  EXPECT_THAT(story_of([&] { model.at(2); }), HasSubstr("none at 2"));
}

TEST_F(ModelTest, AnyLayerCanBeReturnedAndTimed) {
  Model model(save(small_model()));
  std::vector<float> times;
  RunOptions options;
  options.outputs = {"c", "y"};
  options.layer_times = &times;
  const Results results = model.run({{1, 1, 2}, pixels_}, options);
  EXPECT_THAT(results.at("c").elements(), ElementsAre(7.0f, -7.0f));
  EXPECT_THAT(results.at("y").elements(), ElementsAre(7.0f, 0.0f));
  EXPECT_THAT(times, SizeIs(3));
  options.outputs = {"z"};
  EXPECT_THAT(story_of([&] {
                model.run({{1, 1, 2}, pixels_}, options);
              }),
              HasSubstr("there is no layer \"z\""));
}

TEST_F(ModelTest, StatesAreKeptUntilTheyAreReset) {
  auto gru = std::make_shared<runtime::GRUInfo>();
  gru->in_size = 1;
  gru->hidden_size = 1;
  gru->num_layers = 1;
  gru->weight_ih_forward = {test::weight_text({1.0f, 1.0f, 1.0f})};
  gru->weight_hh_forward = {test::weight_text({1.0f, 1.0f, 1.0f})};
  Model model(save(
      ModelBuilder().input("x").layer("r", {"x"}, gru, "GRU_Fallback_SC_F32_M1").outputs({"r"})));
  const float step = 1.0f;
  const runtime::TensorShape steps({1, 1}, runtime::DataType::FLOAT32, runtime::LayoutType::SC);
  const float first = model.run(Input(steps, &step))[0].elements()[0];
  EXPECT_NE(model.run(Input(steps, &step))[0].elements()[0], first);
  model.reset();
  EXPECT_EQ(model.run(Input(steps, &step))[0].elements()[0], first);
}

TEST_F(ModelTest, RunsAgainAfterAPassThatFailed) {
  test::FakeRegistry fakes;
  bool fails = true;
  fakes.add("mine", [&](test::FakeKernel& kernel) {
    kernel.run = [&](const runtime::IKernel::Tensors& in, runtime::IKernel::Tensors& out,
                     runtime::DeviceCPU&) {
      if (fails) throw std::runtime_error("not now");
      out = in;
      return 0;
    };
  });
  ModelOptions options;
  options.kernels = &fakes.kernels;
  Model model(save(ModelBuilder().input("x").activation("y", "x", "mine").outputs({"y"})), options);
  EXPECT_THAT(story_of([&] {
                model.run({{1, 1, 2}, pixels_});
              }),
              HasSubstr("layer 1 \"y\" (Activation), kernel mine: not now"));
  fails = false;
  EXPECT_THAT(model.run({{1, 1, 2}, pixels_})[0].elements(), ElementsAre(3.0f, -4.0f));
  EXPECT_FALSE(model.at(0).context()->cpu->dynamic_mode);
}

}  // namespace
}  // namespace marlo::test
