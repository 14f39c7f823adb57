#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "qrt_core/qrt_core.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {

using namespace utility;

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

using Nets = std::map<std::string, std::shared_ptr<_NetworkPackage>>;

class LoadModelTest : public ::testing::Test {
 protected:
  LoadModelTest() {
    create_context(context_, 16);
    init_register_operators(kernels_, params_);
  }

  _QRT_Result load(const std::string& path, Nets& nets) {
    return load_model(path, nets, context_, kernels_, params_, "sdk", 1, 0);
  }

  _QRT_Result load(const std::string& path) { return load(path, nets_); }

  std::string save(const ModelBuilder& model, const std::string& name = "model.json") {
    return model.save(folder_.file(name));
  }

  std::string write(const std::string& name, const std::string& text) {
    const std::string path = folder_.file(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  // The only element of output 0 of layer `index` for the input `x`.
  float run(const std::string& net, float x) {
    _NetworkPackage& package = *nets_.at(net);
    package.input_tensors[0] = context_->cpu->CreateF32CHWMainMem({1, 1, 1}, &x);
    const auto outputs = utility::run(package);
    return runtime::elements<float>(*outputs.at(package.output_ids.at(0)).at(0))[0];
  }

  test::TemporaryFolder folder_;
  std::shared_ptr<runtime::Context> context_;
  runtime::KernelRegistry kernels_;
  runtime::InferenceParamRegistry params_;
  LogCapture log_;
  Nets nets_;
};

// y = 2 * x + 1 by a convolution, negative values cut.
ModelBuilder line() {
  return ModelBuilder()
      .input("x")
      .conv2d("c", "x", test::plane_convolution(1, 1, 1, {2.0f}, {1.0f}))
      .activation("y", "c", "ReLU_Fallback_Float_M1")
      .outputs({"y"});
}

TEST_F(LoadModelTest, JsonFileRuns) {
  EXPECT_EQ(load(save(line())), 0);
  EXPECT_EQ(run("net", 3.0f), 7.0f);
  EXPECT_EQ(run("net", -3.0f), 0.0f);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LoadModelTest, BinaryFileRuns) {
  EXPECT_EQ(load(save(line(), "model.qrtmodel")), 0);
  EXPECT_EQ(run("net", 3.0f), 7.0f);
}

TEST_F(LoadModelTest, RunRefusesAPackageWithoutANetwork) {
  _NetworkPackage package;
  package.context = context_;
  EXPECT_THAT([&] { (void)utility::run(package); },
              ::testing::ThrowsMessage<Error>(HasSubstr("[QRT]: ")));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("the package has no network")));
}

TEST_F(LoadModelTest, PackageHoldsWhatForwardAndTheApplicationNeed) {
  auto model = line();
  model.info()->extra_info.model_id = 77;
  model.info()->extra_info.summary = "a line";
  ASSERT_EQ(load(save(model)), 0);
  const _NetworkPackage& package = *nets_.at("net");
  EXPECT_EQ(package.kernels, &kernels_);
  EXPECT_EQ(package.params, &params_);
  EXPECT_EQ(package.context, context_);
  ASSERT_NE(package.net, nullptr);
  EXPECT_EQ(package.net->layers.size(), 3u);
  EXPECT_EQ(package.extra_info.model_id, 77u);
  EXPECT_EQ(package.extra_info.summary, "a line");
  EXPECT_THAT(package.input_tensors, UnorderedElementsAre(Pair(0u, nullptr)));
  EXPECT_THAT(package.output_ids, ElementsAre(2u));
  EXPECT_EQ(package.input_shapes.size(), 1u);
  EXPECT_EQ(package.input_shapes.count(0), 1u);
}

TEST_F(LoadModelTest, UpperCaseJsonSuffixIsRefused) {
  const std::string path = save(line(), "model.json");
  std::filesystem::rename(path, folder_.file("model.JSON"));
  const std::string expected =
      "[QRT]: Unknow file type, file path: " + folder_.file("model.JSON") + ".\n";
  EXPECT_EQ(failure_of([&] { load(folder_.file("model.JSON")); }), expected);
  EXPECT_THAT(log_.lines(), ElementsAre(expected));
}

TEST_F(LoadModelTest, OtherSuffixesAreRefused) {
  for (const char* name : {"model.qrmod", "model.qrcfg", "model.QRTMODEL", "model.qrtmodel.bak",
                           "model_without_suffix", "longenough.jso"}) {
    EXPECT_EQ(failure_of([&] { load(name); }),
              std::string("[QRT]: Unknow file type, file path: ") + name + ".\n");
  }
}

TEST_F(LoadModelTest, PathShorterThanASuffixIsOutOfRange) {
  EXPECT_THROW(load(""), std::out_of_range);
  EXPECT_THROW(load("a.js"), std::out_of_range);
  // As long as ".json", but shorter than ".qrtmodel", which is compared next.
  EXPECT_THROW(load("a.bin"), std::out_of_range);
  EXPECT_THROW(load("qrtmodel"), std::out_of_range);
  // Nine characters suffice for both comparisons.
  EXPECT_THROW(load("_qrtmodel"), std::runtime_error);
}

TEST_F(LoadModelTest, MissingBinaryFileGivesMinus2AndItsPathInTheLog) {
  const std::string path = folder_.file("none.qrtmodel");
  EXPECT_EQ(load(path), -2);
  EXPECT_THAT(log_.lines(),
              ElementsAre("[QRT]: Failed to open model file, file path: " + path + ".\n"));
  EXPECT_THAT(nets_, IsEmpty());
}

TEST_F(LoadModelTest, MissingJsonFileThrowsWithItsPath) {
  const std::string path = folder_.file("none.json");
  EXPECT_EQ(failure_of([&] { load(path); }), "[QRT]: Error in opening the file [" + path + "].\n");
}

TEST_F(LoadModelTest, MalformedJsonThrows) {
  for (const char* text : {"", "{", "[1, 2]", "null", "{\"sdk_type\": }", "not json at all",
                           "{\"sdk_type\": 5}", "{}"}) {
    EXPECT_THROW(load(write("bad.json", text)), std::runtime_error) << text;
  }
  EXPECT_THAT(nets_, IsEmpty());
}

TEST_F(LoadModelTest, TruncatedBinaryFileThrows) {
  const std::string path = save(line(), "model.qrtmodel");
  const auto size = std::filesystem::file_size(path);
  for (const auto length : {size - 1, size / 2, size_t{10}, size_t{3}, size_t{0}}) {
    std::filesystem::resize_file(path, length);
    EXPECT_THROW(load(path), std::runtime_error) << length;
  }
  EXPECT_THAT(nets_, IsEmpty());
}

TEST_F(LoadModelTest, ModelOfAnotherSdkGivesMinus2) {
  EXPECT_EQ(load(save(line().sdk("toy", 1, 0))), -2);
  EXPECT_THAT(log_.lines(), ElementsAre("[QRT]: Model type is toy, can not match sdk type\n"));
  EXPECT_THAT(nets_, IsEmpty());
}

TEST_F(LoadModelTest, ModelOfANewerCoreGivesMinus2) {
  EXPECT_EQ(load(save(line().core(1, 1))), -2);
  EXPECT_THAT(nets_, IsEmpty());
}

TEST_F(LoadModelTest, ModelOfAnotherSdkVersionGivesMinus2AndTwoLines) {
  EXPECT_EQ(load(save(line().sdk("sdk", 1, 1), "model.qrtmodel")), -2);
  EXPECT_THAT(log_.lines(), ElementsAre("[QRT]: sdk version required by model: 1.1\n",
                                        "[QRT]: sdk version used now: 1.0\n"));
}

TEST_F(LoadModelTest, NoNetworksGiveNoPackages) {
  for (const char* name : {"empty.json", "empty.qrtmodel"}) {
    EXPECT_EQ(load(save(ModelBuilder(), name)), 0) << name;
    EXPECT_THAT(nets_, IsEmpty());
  }
}

TEST_F(LoadModelTest, SeveralNetworksInAFileEachGetAPackage) {
  auto model = line();
  model.network("other").input("a").straight_through("b", {"a"}).outputs({"b", "a"});
  ASSERT_EQ(load(save(model)), 0);
  EXPECT_THAT(nets_, ElementsAre(Pair("net", ::testing::_), Pair("other", ::testing::_)));
  EXPECT_EQ(run("net", 1.0f), 3.0f);
  EXPECT_EQ(run("other", 1.0f), 1.0f);
  EXPECT_THAT(nets_["other"]->output_ids, ElementsAre(1u, 0u));
}

TEST_F(LoadModelTest, TwoLoadsIntoOneMapKeepTheFirstPackageOfAnId) {
  ASSERT_EQ(load(save(line())), 0);
  const auto first = nets_.at("net");
  auto second = ModelBuilder().input("x").outputs({"x"});
  second.network("more").input("x").outputs({"x"});
  ASSERT_EQ(load(save(second, "second.json")), 0);
  EXPECT_EQ(nets_.size(), 2u);
  EXPECT_EQ(nets_.at("net"), first);
  EXPECT_EQ(run("net", 3.0f), 7.0f);
}

TEST_F(LoadModelTest, InputTensorsHoldOneEntryPerInputLayerPlusKey0) {
  auto model = ModelBuilder()
                   .straight_through("a", {})
                   .input("b")
                   .straight_through("c", {"b"})
                   .input("d")
                   .outputs({"d"});
  ASSERT_EQ(load(save(model)), 0);
  EXPECT_THAT(nets_["net"]->input_tensors,
              UnorderedElementsAre(Pair(0u, nullptr), Pair(1u, nullptr), Pair(3u, nullptr)));
}

TEST_F(LoadModelTest, NetworkWithoutOutputIdsRunsNothing) {
  auto model = ModelBuilder().input("x");
  ASSERT_EQ(load(save(model)), 0);
  const _NetworkPackage& package = *nets_["net"];
  EXPECT_THAT(package.output_ids, IsEmpty());
  // The missing input tensor would throw if the input layer ran.
  EXPECT_THAT(
      package.net->Forward(package.input_tensors, package.output_ids, context_, nullptr, nullptr),
      IsEmpty());
}

TEST_F(LoadModelTest, RefusingKernelThrowsTheTagAndEarlierPackagesStay) {
  auto model = line();
  model.network("refused").input("x").layer("y", {"x"}, std::make_shared<runtime::InputInfo>(),
                                            "ReLU_Fallback_Float_M1");
  model.network("unreached").input("x");
  EXPECT_EQ(failure_of([&] { load(save(model)); }), "[QRT]: ");
  EXPECT_THAT(nets_, ElementsAre(Pair("net", ::testing::_)));
}

TEST_F(LoadModelTest, MissingConfigurationOfANetworkThrowsAndNamesTheLayer) {
  auto model = line();
  model.build()->config_arr->squential_ids.clear();
  model.build()->config_arr->cfgs.clear();
  EXPECT_THAT(failure_of([&] { load(save(model)); }), HasSubstr("\"x\""));
}

TEST_F(LoadModelTest, ConfigurationCpuAvxIsNeverConsulted) {
  auto model = line();
  model.configurations()->cpu_avx->squential_ids = {"x"};
  auto cfg = std::make_shared<runtime::LayerCfg>();
  cfg->kernel->kernel_type = "NoSuchKernel";
  model.configurations()->cpu_avx->layer_cfgs["x"] = cfg;
  ASSERT_EQ(load(save(model)), 0);
  EXPECT_EQ(run("net", 3.0f), 7.0f);
}

TEST_F(LoadModelTest, ModelTreeIsGoneAfterLoadingAndThePackageStillRuns) {
  ASSERT_EQ(load(save(line())), 0);
  std::filesystem::remove(folder_.file("model.json"));
  for (int pass = 0; pass < 3; ++pass) EXPECT_EQ(run("net", 3.0f), 7.0f);
}

}  // namespace
}  // namespace marlo::test
