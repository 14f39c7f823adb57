#include "qrt_toolkit/select/select.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/utility/application.h"

namespace marlo::toolkit {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A network whose layers run on these kernels; the first one has a parameter and converters.
runtime::QRTModel model_of(const std::vector<std::string>& kernels) {
  runtime::QRTModel model;
  model.model_arr->squential_ids = {"net"};
  auto cfgs = std::make_shared<runtime::QRModelMultiBackendCfgs>();
  for (const std::string& kernel : kernels) {
    auto cfg = std::make_shared<runtime::LayerCfg>();
    cfg->kernel->kernel_type = kernel;
    cfgs->cpu_sse->layer_cfgs["of " + kernel] = cfg;
  }
  model.config_arr->cfgs["net"] = cfgs;
  return model;
}

runtime::LayerCfg& first_layer(runtime::QRTModel& model) {
  return *model.config_arr->cfgs["net"]->cpu_sse->layer_cfgs.begin()->second;
}

TEST(Select, KernelsConvertersAndParametersAreFound) {
  runtime::QRTModel model = model_of({"ReLU_Fallback_Float_M1", "Input_Fallback_M1"});
  runtime::LayerCfg& layer = first_layer(model);
  layer.kernel->infer_param_type = "InferenceParamConv2DQuant";
  auto converter = std::make_shared<runtime::KernelCfg>();
  converter->kernel_type = "Straight_Through_Fallback_M1";
  converter->infer_param_type = "InferenceParamMetalComputeCommon";  // nothing to register
  layer.output_converters->kernel_cfgs["0"] = converter;
  Selection selection;
  select_kernels(model, selection);
  EXPECT_THAT(selection.kernels, ElementsAre("Input_Fallback_M1", "ReLU_Fallback_Float_M1",
                                             "Straight_Through_Fallback_M1"));
  EXPECT_THAT(selection.params, ElementsAre("InferenceParamConv2DQuant"));
  select_kernels(model_of({"Leaky_Fallback_Float_M1", "Input_Fallback_M1"}), selection, "net");
  EXPECT_EQ(selection.kernels.size(), 4u);
}

TEST(Select, WhatIsMissingIsNamed) {
  const auto fault = [](const runtime::QRTModel& model, const std::string& network) {
    Selection selection;
    try {
      select_kernels(model, selection, network);
    } catch (const std::invalid_argument& failure) {
      return std::string(failure.what());
    }
    return std::string();
  };
  EXPECT_EQ(fault(model_of({"Absent"}), ""),
            "network \"net\", layer \"of Absent\": this build has no kernel \"Absent\"");
  EXPECT_EQ(fault(model_of({"Input_Fallback_M1"}), "other"), "there is no network \"other\"");
  EXPECT_EQ(fault({}, ""), "the model holds no network");
  runtime::QRTModel bare = model_of({});
  EXPECT_EQ(fault(bare, ""), "network \"net\" has no configuration");
}

TEST(Select, TheSourceRegistersNothingElse) {
  Selection selection;
  EXPECT_THAT(registration_source(selection, {}),
              HasSubstr("void init_register_operators(runtime::KernelRegistry&,\n"
                        "                             runtime::InferenceParamRegistry&) {\n}\n"));
  selection.kernels = {"Input_Fallback_M1", "ReLU_Fallback_Float_M1"};
  selection.params = {"InferenceParamConv2DQuant"};
  const std::string source = registration_source(selection, {"a.qrtmodel"});
  EXPECT_THAT(source, HasSubstr("//   a.qrtmodel\n"));
  EXPECT_THAT(source, HasSubstr("namespace marlo::runtime::entries {\n"
                                "QRT_DECLARE_KERNEL_ENTRY(Input_Fallback_M1)\n"
                                "QRT_DECLARE_KERNEL_ENTRY(ReLU_Fallback_Float_M1)\n}"));
  EXPECT_THAT(source, HasSubstr("void init_register_operators(runtime::KernelRegistry& kernels,\n"
                                "                             runtime::InferenceParamRegistry& "
                                "params) {\n"
                                "  runtime::entries::Input_Fallback_M1(kernels);\n"
                                "  runtime::entries::ReLU_Fallback_Float_M1(kernels);\n"
                                "  runtime::entries::InferenceParamConv2DQuant(params);\n}\n"));
}

TEST(Select, KernelsOfTheSecondSetAreRegisteredByItsFunction) {
  runtime::KernelRegistry second;
  runtime::InferenceParamRegistry params;
  utility::init_register_extension_operators(second, params);
  if (second.Keys().empty()) GTEST_SKIP() << "this build has no second set";
  const std::string name = second.Keys()[0];
  Selection selection;
  select_kernels(model_of({name, "Input_Fallback_M1"}), selection);
  const std::string source = registration_source(selection, {});
  const size_t function = source.find("void init_register_extension_operators(");
  ASSERT_NE(function, std::string::npos);
  EXPECT_LT(source.find("entries::Input_Fallback_M1(kernels);"), function);
  EXPECT_GT(source.find("entries::" + name + "(kernels);"), function);
}

}  // namespace
}  // namespace marlo::toolkit
