#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qrt_core/qrt_core.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"

namespace marlo::test {

using namespace utility;

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class LoadSingleNetTest : public ::testing::Test {
 protected:
  LoadSingleNetTest() {
    create_context(context_, 16);
    init_register_operators(kernels_, params_);
    package_ = std::make_shared<_NetworkPackage>();
    package_->kernels = &kernels_;
    package_->params = &params_;
    package_->context = context_;
  }

  void load(ModelBuilder& model, const char* platform) {
    Load_Single_Net(package_, model.info(), model.configurations(), platform);
  }

  std::string first_kernel() const { return package_->net->layers.at(0)->kernel->GetKernelName(); }

  std::shared_ptr<runtime::Context> context_;
  runtime::KernelRegistry kernels_;
  runtime::InferenceParamRegistry params_;
  std::shared_ptr<_NetworkPackage> package_;
  test::LogCapture log_;
};

void set_kernel(runtime::QRModelCfg& cfg, const std::string& layer, const std::string& kernel) {
  cfg.summary = "summary";
  cfg.squential_ids = {layer};
  cfg.layer_cfgs[layer] = std::make_shared<runtime::LayerCfg>();
  cfg.layer_cfgs[layer]->kernel->kernel_type = kernel;
}

// The configuration of each back end names another kernel.
ModelBuilder every_backend() {
  auto model = ModelBuilder().input("x").outputs({"x"});
  set_kernel(*model.configurations()->cpu_avx, "x", "ReLU6_Fallback_Float_M1");
  set_kernel(*model.configurations()->gpu_metal, "x", "Straight_Through_Fallback_M1");
  for (auto& cfg : {model.configurations()->cpu_armv7, model.configurations()->cpu_armv8,
                    model.configurations()->cpu_armv82, model.configurations()->gpu_opengl,
                    model.configurations()->gpu_cuda}) {
    set_kernel(*cfg, "x", "ReLU6_Fallback_Float_M1");
  }
  return model;
}

TEST(NetworkPackage, IsMadeWithADefaultEntryForLayer0) {
  const _NetworkPackage package;
  EXPECT_EQ(package.kernels, nullptr);
  EXPECT_EQ(package.params, nullptr);
  EXPECT_EQ(package.net, nullptr);
  EXPECT_THAT(package.input_tensors, UnorderedElementsAre(Pair(0u, nullptr)));
  ASSERT_EQ(package.input_shapes.size(), 1u);
  EXPECT_EQ(package.input_shapes.at(0), runtime::TensorShape());
  EXPECT_THAT(package.output_ids, ElementsAre(0u));
}

TEST_F(LoadSingleNetTest, X86TakesCpuSse) {
  auto model = every_backend();
  load(model, "x86");
  EXPECT_EQ(first_kernel(), "Input_Fallback_M1");
}

TEST_F(LoadSingleNetTest, MetalTakesGpuMetalIfItHasASummary) {
  auto model = every_backend();
  load(model, "metal");
  EXPECT_EQ(first_kernel(), "Straight_Through_Fallback_M1");
}

TEST_F(LoadSingleNetTest, MetalWithoutASummaryHasNoConfiguration) {
  auto model = every_backend();
  model.configurations()->gpu_metal->summary.clear();
  EXPECT_THAT(failure_of([&] { load(model, "metal"); }), HasSubstr("\"metal\""));
  EXPECT_EQ(package_->net, nullptr);
}

TEST_F(LoadSingleNetTest, OtherPlatformsHaveNoConfiguration) {
  auto model = every_backend();
  for (const char* platform : {"arm", "X86", "x8", "x86 ", "x86_64", "metal2", "", "cuda"}) {
    EXPECT_THAT(failure_of([&] { load(model, platform); }),
                HasSubstr("\"" + std::string(platform) + "\""));
  }
}

TEST_F(LoadSingleNetTest, OutputIdsAreThePositionsInTheModelsOrder) {
  auto model = ModelBuilder()
                   .input("x")
                   .straight_through("a", {"x"})
                   .straight_through("b", {"a"})
                   .outputs({"b", "x", "b"});
  package_->output_ids = {7, 8, 9};
  load(model, "x86");
  EXPECT_THAT(package_->output_ids, ElementsAre(2u, 0u, 2u));
}

TEST_F(LoadSingleNetTest, UnknownOutputIdThrowsAndIsNamed) {
  auto model = ModelBuilder().input("x").outputs({"nowhere"});
  EXPECT_THAT(failure_of([&] { load(model, "x86"); }), HasSubstr("\"nowhere\""));
}

TEST_F(LoadSingleNetTest, InputTensorsAreEmptiedForEveryInputLayer) {
  auto model = ModelBuilder().straight_through("a", {}).input("x").outputs({"x"});
  load(model, "x86");
  EXPECT_THAT(package_->input_tensors, UnorderedElementsAre(Pair(0u, nullptr), Pair(1u, nullptr)));
  EXPECT_THAT(package_->net->input_map, ElementsAre(Pair("x", 1u)));
}

TEST_F(LoadSingleNetTest, HeaderIsCopied) {
  auto model = every_backend();
  model.info()->extra_info.device = "any";
  load(model, "x86");
  EXPECT_EQ(package_->extra_info.device, "any");
}

TEST_F(LoadSingleNetTest, NullArgumentsAreNamed) {
  auto model = ModelBuilder().input("x").outputs({"x"});
  const auto needs = HasSubstr("a network needs a package, a model, configurations and a platform");
  std::shared_ptr<_NetworkPackage> none;
  EXPECT_THAT(
      failure_of([&] { Load_Single_Net(none, model.info(), model.configurations(), "x86"); }),
      needs);
  EXPECT_THAT(
      failure_of([&] { Load_Single_Net(package_, nullptr, model.configurations(), "x86"); }),
      needs);
  EXPECT_THAT(failure_of([&] { Load_Single_Net(package_, model.info(), nullptr, "x86"); }), needs);
  EXPECT_THAT(failure_of([&] { load(model, nullptr); }), needs);
  package_ = std::make_shared<_NetworkPackage>();
  EXPECT_THAT(failure_of([&] { load(model, "x86"); }),
              HasSubstr("the package has no registry of kernels"));
}

}  // namespace
}  // namespace marlo::test
