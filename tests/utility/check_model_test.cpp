#include "qrt_core/utility/check_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/recurrent_info.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/temporary_folder.h"

#include <rapidjson/pointer.h>

namespace marlo::test {

using namespace utility;

namespace {

using runtime::json::Document;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

std::string text_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::stringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::string json_of(const ModelBuilder& model) {
  const test::TemporaryFolder folder;
  return text_of(model.save(folder.file("m.json")));
}

std::string all_texts(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) text += "  " + finding_text(finding) + "\n";
  return text;
}

/// One mistake in a file, and the finding that must come of it.
struct Mistake {
  const char* name;
  std::function<void(Document&)> make;
  FindingCode code;
  const char* id;      // of the layer; "" for none
  const char* member;  // a part of it
  const char* found;   // a part of it
};

void expect_finding(const std::string& base, const Mistake& mistake, const CheckOptions& options) {
  SCOPED_TRACE(mistake.name);
  Document document;
  document.Parse(base.c_str());
  ASSERT_FALSE(document.HasParseError());
  mistake.make(document);
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  test::LogCapture log;
  const auto findings = check_model(buffer.GetString(), buffer.GetSize(), options);
  EXPECT_THAT(log.lines(), IsEmpty()) << "a check tells what it finds, and logs nothing";
  for (const Finding& finding : findings) {
    if (finding.code != mistake.code || finding.id != mistake.id) continue;
    if (finding.member.find(mistake.member) == std::string::npos) continue;
    if (finding.found.find(mistake.found) == std::string::npos) continue;
    EXPECT_NE(finding.expected, "");
    if (finding.id.empty()) return;
    EXPECT_NE(finding.kind + finding.kernel, "") << finding_text(finding);
    EXPECT_THAT(finding_text(finding), HasSubstr("\"" + std::string(mistake.id) + "\""));
    return;
  }
  ADD_FAILURE() << "expected " << code_name(mistake.code) << " of \"" << mistake.id << "\", "
                << mistake.member << ", found " << mistake.found << "\n"
                << all_texts(findings);
}

template <typename T>
std::function<void(Document&)> set(const char* pointer, T value) {
  return [=](Document& document) { rapidjson::Pointer(pointer).Set(document, value); };
}

std::function<void(Document&)> erase(const char* pointer) {
  return [=](Document& document) { ASSERT_TRUE(rapidjson::Pointer(pointer).Erase(document)); };
}

std::function<void(Document&)> rename(const char* from, const char* to) {
  return [=](Document& document) {
    auto* value = rapidjson::Pointer(from).Get(document);
    ASSERT_NE(value, nullptr);
    runtime::json::Value copy(*value, document.GetAllocator());
    rapidjson::Pointer(to).Set(document, copy);
    rapidjson::Pointer(from).Erase(document);
  };
}

std::function<void(Document&)> both(std::function<void(Document&)> first,
                                    std::function<void(Document&)> second) {
  return [=](Document& document) {
    first(document);
    second(document);
  };
}

void set_json(Document& document, const char* pointer, const char* text) {
  Document value(&document.GetAllocator());
  value.Parse(text);
  ASSERT_FALSE(value.HasParseError());
  rapidjson::Pointer(pointer).Set(document, value);
}

std::function<void(Document&)> set_tree(const char* pointer, const char* text) {
  return [=](Document& document) { set_json(document, pointer, text); };
}

CheckOptions for_this_sdk() {
  CheckOptions options;
  options.sdk_type = "sdk";
  options.sdk_major = 1;
  return options;
}

#if QRT_WITH_AVX

std::shared_ptr<runtime::LayerInfo> convolution(uint16_t in, uint16_t out, uint16_t window,
                                                uint16_t stride, uint16_t padding) {
  auto info = std::make_shared<runtime::Conv2dInfo>(test::plane_convolution(
      in, out, window, ramp(size_t{in} * out * window * window, 0.0f, 0.0f), ramp(out)));
  info->stride_x = info->stride_y = stride;
  info->padding_l = info->padding_t = info->padding_r = info->padding_b = padding;
  return info;
}

std::shared_ptr<runtime::LayerInfo> rectifier() {
  auto info = std::make_shared<runtime::ActivationInfo>();
  info->activation_type = 2;
  return info;
}

// A small network of residual blocks over blocks of 8 channels, as exporters write it.
ModelBuilder residual_network() {
  const char* const three = "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1";
  const char* const relu = "ReLU_AVX_Float_M1";
  auto pool = std::make_shared<runtime::MaxPool2dInfo>();
  pool->kernel_x = pool->kernel_y = 3;
  pool->padding_l = pool->padding_t = pool->padding_r = pool->padding_b = 1;
  pool->stride_x = pool->stride_y = 2;
  pool->dilation_x = pool->dilation_y = 1;
  auto gap = std::make_shared<runtime::AvgPool2dInfo>();
  gap->kernel_x = gap->kernel_y = 7;
  gap->stride_x = gap->stride_y = 1;
  gap->count_include_pad = true;
  auto flat = std::make_shared<runtime::TensorReshapeInfo>();
  flat->new_shape = {1, 32};
  auto fc = std::make_shared<runtime::FullConnectionInfo>();
  fc->in_features = 32;
  fc->out_features = 10;
  fc->if_bias = true;
  fc->weight = test::weight_text(ramp(320));
  fc->bias = test::weight_text(ramp(10));
  const auto sum = [] { return std::make_shared<runtime::ElementWiseOperatorInfo>(); };
  ModelBuilder model;
  model.network("net")
      .input("input")
      .layer("stem", {"input"}, convolution(3, 16, 7, 2, 3),
             "Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1")
      .output_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1")
      .layer("stem_relu", {"stem"}, rectifier(), relu)
      .layer("pool", {"stem_relu"}, pool, "Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1")
      .layer("b0_c1", {"pool"}, convolution(16, 16, 3, 1, 1), three)
      .layer("b0_r1", {"b0_c1"}, rectifier(), relu)
      .layer("b0_c2", {"b0_r1"}, convolution(16, 16, 3, 1, 1), three)
      .layer("b0_add", {"b0_c2", "pool"}, sum(), "Elementwise_Add_AVX_Float_M1")
      .layer("b0_r2", {"b0_add"}, rectifier(), relu)
      .layer("b1_c1", {"b0_r2"}, convolution(16, 32, 3, 2, 1),
             "Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1")
      .layer("b1_r1", {"b1_c1"}, rectifier(), relu)
      .layer("b1_c2", {"b1_r1"}, convolution(32, 32, 3, 1, 1), three)
      .layer("b1_d", {"b0_r2"}, convolution(16, 32, 1, 2, 0),
             "Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1")
      .layer("b1_add", {"b1_c2", "b1_d"}, sum(), "Elementwise_Add_AVX_Float_M1")
      .layer("b1_r2", {"b1_add"}, rectifier(), relu)
      .layer("gap", {"b1_r2"}, gap, "Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1")
      .layer("flat", {"gap"}, flat, "Reshape_Fallback_CnHWn_To_C_M1")
      .layer("fc", {"flat"}, fc, "FullConnection_AVX_C_Float_M1")
      .outputs({"fc"});
  model.info()->extra_info.model_base_h = 56;
  model.info()->extra_info.model_base_w = 56;
  return model;
}

#define LAYER(name) "/model_arr/net/" name
#define CFG(name) "/config_arr/net/cpu_sse/" name
#define KERNEL(name) CFG(name) "/kernel/kernel_type"

const std::vector<Mistake>& mistakes() {
  using F = FindingCode;
  static const std::vector<Mistake> all = {
      {"kernel of another stride",
       set(KERNEL("b0_c1"), "Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1"), F::refused_layer,
       "b0_c1", "", ""},
      {"case of a kernel's name",
       set(KERNEL("b0_c1"), "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_Float_M1"), F::unknown_kernel,
       "b0_c1", "kernel", "C8HW8_Float_M1"},
      {"converter forgotten", set_tree(CFG("stem/output_converters"), R"({"kernel_ids": []})"),
       F::wrong_shape, "pool", "", "CHW"},
      {"pooling over planes of blocks",
       set(KERNEL("gap"), "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1"), F::refused_layer, "gap",
       "", ""},
      {"configuration in cpu_avx", rename("/config_arr/net/cpu_sse", "/config_arr/net/cpu_avx"),
       F::missing_configuration, "", "cpu_sse", "cpu_avx"},
      {"no padding before a sum",
       both(both(set(LAYER("b0_c1/padding_l"), 0), set(LAYER("b0_c1/padding_r"), 0)),
            both(set(LAYER("b0_c1/padding_t"), 0), set(LAYER("b0_c1/padding_b"), 0))),
       F::wrong_shape, "b0_add", "", "12"},
      {"weights too short", set(LAYER("b1_d/weight"), "AAAAAAAAAAAAAAAAAAAAAA=="), F::wrong_weights,
       "b1_d", "weight", "4 numbers"},
      {"another type code", set(LAYER("squential_types/3"), 6), F::wrong_class, "pool",
       "serializable_type", "MaxPool2dInfo"},
      {"layers out of order",
       both(both(set(LAYER("squential_ids/6"), "b0_add"), set(LAYER("squential_ids/7"), "b0_c2")),
            both(set(LAYER("squential_types/6"), 11), set(LAYER("squential_types/7"), 2))),
       F::wrong_order, "b0_add", "input_ids[0]", "b0_c2"},
      {"bias forgotten", erase(LAYER("b0_c1/bias")), F::missing_member, "b0_c1", "bias", "nothing"},
      {"in_channels", set(LAYER("b0_c1/in_channels"), 8), F::wrong_weights, "b0_c1", "weight",
       "2304 numbers"},
      {"typo in an input id", set(LAYER("b0_add/input_ids/1"), "pool_typo"), F::unknown_id,
       "b0_add", "input_ids[1]", "pool_typo"},
      {"in_features", set(LAYER("fc/in_features"), 16), F::wrong_weights, "fc", "weight",
       "320 numbers"},
      {"converter to other blocks",
       set(CFG("stem/output_converters/0/kernel_type"),
           "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1"),
       F::wrong_shape, "pool", "", "C4HW4"},
      {"case of an activation", set(KERNEL("b0_r1"), "ReLU_AVX_FLOAT_M1"), F::unknown_kernel,
       "b0_r1", "kernel", "ReLU_AVX_FLOAT_M1"},
      {"class name missing", erase(LAYER("b0_c1/serializable_type")), F::missing_member, "b0_c1",
       "serializable_type", "nothing"},
      {"stride as a text", set(LAYER("b0_c1/stride_x"), "1"), F::unreadable, "b0_c1", "stride_x",
       "a string"},
      {"dilation left out",
       both(erase(LAYER("b0_c1/dilation_x")), erase(LAYER("b0_c1/dilation_y"))), F::missing_member,
       "b0_c1", "dilation_x", "0"},
      {"sum of two sizes", set(LAYER("b1_add/input_ids/1"), "b0_r2"), F::wrong_shape, "b1_add", "",
       "14"},
      {"unknown output", set(LAYER("squential_output_ids/0"), "logits"), F::unknown_id, "",
       "squential_output_ids", "logits"},
      {"sizes rounded up", set(LAYER("pool/ceil_mode"), true), F::wrong_shape, "flat", "input",
       "[4, 2, 2, 8]"},
      {"groups", set(LAYER("b0_c1/groups"), 16), F::wrong_weights, "b0_c1", "weight",
       "2304 numbers"},
      {"core of another version", set("/core_major_ver", 2), F::wrong_version, "", "core_major_ver",
       "2.0"},
      {"window of another size", both(set(LAYER("gap/kernel_x"), 8), set(LAYER("gap/kernel_y"), 8)),
       F::refused_layer, "gap", "", ""},
      {"full connection over blocks", set(KERNEL("fc"), "FullConnection_AVX_C88_Float_M1"),
       F::refused_layer, "fc", "", ""},
      {"layer without an entry", erase(CFG("b0_c1")), F::unknown_kernel, "b0_c1", "kernel", "\"\""},
      {"another SDK", set("/sdk_type", "myapp"), F::wrong_version, "", "sdk_type", "myapp"},
      {"summary forgotten", erase(CFG("b0_c1/summary")), F::missing_member, "b0_c1", "summary",
       "nothing"},
      {"weights that aren't Base64", set(LAYER("b0_c1/weight"), "not base64!!"), F::wrong_weights,
       "b0_c1", "weight", "another text"},
      {"empty weights", set(LAYER("b0_c1/weight"), ""), F::wrong_weights, "b0_c1", "weight",
       "0 numbers"},
      {"misspelt member", rename(LAYER("b0_c1/padding_l"), LAYER("b0_c1/pad_l")), F::unknown_member,
       "b0_c1", "pad_l", "1"},
      {"bias switched off", set(LAYER("b0_c1/if_bias"), false), F::unused_bias, "b0_c1", "if_bias",
       "false"},
      {"bias switch forgotten", erase(LAYER("b0_c1/if_bias")), F::unused_bias, "b0_c1", "if_bias",
       "false"},
      {"operator of another kernel", set(LAYER("b0_add/op_type"), 2), F::refused_layer, "b0_add",
       "", ""},
      {"misnamed operator",
       both(erase(LAYER("b0_add/op_type")), set(LAYER("b0_add/operation"), "mul")),
       F::unknown_member, "b0_add", "operation", "mul"},
      {"size as a fraction", set(LAYER("b0_c1/kernel_x"), 3.5), F::unreadable, "b0_c1", "kernel_x",
       "3.5"},
      {"negative stride", set(LAYER("b0_c1/stride_x"), -1), F::cut_number, "b0_c1", "stride_x",
       "-1"},
      {"number beyond 16 bits", set(LAYER("fc/in_features"), 100352), F::cut_number, "fc",
       "in_features", "100352"},
      {"converter that isn't listed",
       set_tree(CFG("stem/output_converters"),
                R"({"0": {"kernel_type": "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1",
                   "infer_param_type": ""}})"),
       F::unused_configuration, "stem", "0", "doesn't"},
      {"unlisted converter at a layer that needs none",
       set_tree(CFG("b0_c1/input_converters"),
                R"({"0": {"kernel_type": "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1",
                   "infer_param_type": ""}})"),
       F::unused_configuration, "b0_c1", "0", "doesn't"},
      {"converter by a name",
       set_tree(CFG("stem/output_converters"),
                R"({"kernel_ids": ["stem"], "stem":
                   {"kernel_type": "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1",
                   "infer_param_type": ""}})"),
       F::unknown_id, "stem", "output_converters.stem", "\"stem\""},
      {"input that reads itself", set_tree(LAYER("input/input_ids"), R"(["input"])"),
       F::wrong_order, "input", "input_ids", "input"},
      {"id and key differ", set(LAYER("b0_c1/id"), "other"), F::unknown_id, "b0_c1", "id", "other"},
      {"layer listed twice",
       both(set(LAYER("squential_ids/-"), "b0_c1"), set(LAYER("squential_types/-"), 2)),
       F::repeated_id, "b0_c1", "squential_ids", "again"},
      {"input ids as a text", set(LAYER("b0_c1/input_ids"), "pool"), F::unreadable, "b0_c1",
       "input_ids", "a string"},
      {"weights as numbers", set_tree(LAYER("fc/weight"), "[0.1, 0.1]"), F::unreadable, "fc",
       "weight", "an array"},
      {"no outputs", set_tree(LAYER("squential_output_ids"), "[]"), F::no_outputs, "",
       "squential_output_ids", "none"},
      {"maximum with zeros at the margin of numbers below 0",
       set_tree(LAYER("pool/input_ids"), R"(["stem"])"), F::other_result, "pool", "padding", "1"},
      {"kernel of another activation", set(LAYER("b0_r1/activation_type"), 5), F::other_result,
       "b0_r1", "activation_type", "5"},
      {"depthwise kernel on a full convolution",
       set(KERNEL("b0_c1"), "Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1"), F::other_result,
       "b0_c1", "", ""},
      {"rectifier with a bound", set(KERNEL("b0_r1"), "ReLU6_AVX_Float_M1"), F::other_result,
       "b0_r1", "activation_type", "2"},
      {"no header", erase(LAYER("extra_info")), F::missing_member, "", "extra_info", "nothing"},
      {"empty kernel", set(KERNEL("b0_c1"), ""), F::unknown_kernel, "b0_c1", "kernel", "\"\""},
      {"kernel of a sum on an activation", set(KERNEL("b0_r1"), "Elementwise_Add_AVX_Float_M1"),
       F::refused_layer, "b0_r1", "", ""},
      {"kernel of stride 1 on stride 2",
       set(KERNEL("b1_d"), "Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3"), F::refused_layer, "b1_d",
       "", ""},
      {"code as a name", set(LAYER("squential_types/1"), "Conv2d"), F::unreadable, "",
       "squential_types", "Conv2d"},
      {"typo in the list of layers", set(LAYER("squential_ids/4"), "b0_c1x"), F::unknown_id,
       "b0_c1x", "squential_ids", "b0_c1x"},
  };
  return all;
}

TEST(CheckModel, ARightModelGivesNoFinding) {
  QRT_SKIP_WHERE_MISSING("ReLU_AVX_Float_M1");
  const auto model = residual_network();
  const test::TemporaryFolder folder;
  EXPECT_EQ(all_texts(check_model(model.save(folder.file("m.json")), for_this_sdk())), "");
  EXPECT_EQ(all_texts(check_model(model.save(folder.file("m.qrtmodel")), for_this_sdk())), "");
  EXPECT_EQ(all_texts(check_model(model.build())), "");
}

TEST(CheckModel, EveryMistakeGetsAFindingWithItsPlace) {
  QRT_SKIP_WHERE_MISSING("ReLU_AVX_Float_M1");
  const std::string base = json_of(residual_network());
  for (const Mistake& mistake : mistakes()) expect_finding(base, mistake, for_this_sdk());
}

TEST(CheckModel, SayWhichNameWasMeant) {
  QRT_SKIP_WHERE_MISSING("ReLU_AVX_Float_M1");
  auto model = residual_network();
  model.configuration()->layer_cfgs["b0_r1"]->kernel->kernel_type = "ReLU_AVX_FLOAT_M1";
  const auto findings = check_model(model.build());
  ASSERT_THAT(findings, SizeIs(1));
  EXPECT_EQ(finding_text(findings[0]),
            "error: network \"net\", layer 5 \"b0_r1\" (Activation), kernel ReLU_AVX_FLOAT_M1: "
            "kernel: expected the name of a kernel of this build, found \"ReLU_AVX_FLOAT_M1\"; "
            "did you mean \"ReLU_AVX_Float_M1\"?");
}

TEST(CheckModel, BlocksThatPadChannelsAreNamed) {
  QRT_SKIP_WHERE_MISSING("ReLU_AVX_Float_M1");
  auto model = ModelBuilder()
                   .input("x")
                   .layer("c", {"x"}, convolution(8, 10, 3, 1, 1),
                          "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1")
                   .input_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1")
                   .outputs({"c"});
  const auto findings = check_model(model.build());
  const auto padded = std::find_if(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.code == FindingCode::padded_channels;
  });
  ASSERT_NE(padded, findings.end()) << all_texts(findings);
  EXPECT_EQ(padded->severity, Severity::warning);
  EXPECT_THAT(padded->found, HasSubstr("16 channels"));
}

#if QRT_WITH_EXTENSIONS
// A convolution with a rectifier and the layer behind it, as it is configured.
std::string findings_of_fused(const char* behind, uint16_t type, std::vector<std::string> outputs) {
  auto activation = std::make_shared<runtime::ActivationInfo>();
  activation->activation_type = type;
  auto model = ModelBuilder()
                   .input("x")
                   .layer("c", {"x"}, convolution(8, 8, 3, 1, 1),
                          "Conv2d_K3x3_S1x1_D1x1_G1_FMA_C8HW8_FLOAT_ReLU_M1")
                   .input_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1")
                   .layer("r", {"c"}, activation, behind)
                   .outputs(outputs);
  return all_texts(check_model(model.build()));
}

TEST(CheckModel, BothEndsOfAFusedActivationBelongTogether) {
  QRT_SKIP_WHERE_MISSING("Conv2d_K3x3_S1x1_D1x1_G1_FMA_C8HW8_FLOAT_ReLU_M1");
  constexpr char kPasses[] = "Straight_Through_Fallback_M1";
  EXPECT_EQ(findings_of_fused(kPasses, 2, {"r"}), "");
  for (const std::string& wrong :
       {findings_of_fused("ReLU_AVX_Float_M1", 2, {"r"}), findings_of_fused(kPasses, 5, {"r"}),
        findings_of_fused(kPasses, 2, {"r", "c"})}) {
    EXPECT_THAT(wrong, HasSubstr("epilogue: expected none, or that of the one layer"));
  }
}
#endif

#endif  // QRT_WITH_AVX

TEST(CheckModel, FilesThatAreNoModelsGiveOneFinding) {
  const auto missing = check_model("no/such/file.json");
  ASSERT_THAT(missing, SizeIs(1));
  EXPECT_EQ(missing[0].code, FindingCode::unreadable);
  EXPECT_THAT(missing[0].found, HasSubstr("no/such/file.json"));
  const std::string text = "{\n  \"sdk_type\": \"x\",\n  oops\n}";
  const auto broken = check_model(text.data(), text.size());
  ASSERT_THAT(broken, SizeIs(1));
  EXPECT_EQ(broken[0].line, 3u);
  EXPECT_EQ(broken[0].column, 3u);
  const std::string marked = "\xEF\xBB\xBF{}";
  EXPECT_THAT(check_model(marked.data(), marked.size())[0].change, HasSubstr("without a mark"));
  const std::string list = "[1, 2]";
  EXPECT_EQ(check_model(list.data(), list.size())[0].found, "an array");
  EXPECT_THAT(check_model("", 0), SizeIs(1));
  EXPECT_THAT(check_model(nullptr, 0), SizeIs(1));
  EXPECT_THAT(check_model(std::shared_ptr<runtime::QRTModel>()), SizeIs(1));
  const std::string noise = "\x07nothing of ours";
  EXPECT_THAT(check_model(noise.data(), noise.size()), SizeIs(1));
}

// A file that ends anywhere is a finding, and never an exception.
TEST(CheckModel, FilesThatEndAnywhereAreReported) {
  const auto model = ModelBuilder()
                         .input("x")
                         .conv2d("c", "x", test::plane_convolution(1, 2, 3, ramp(18), ramp(2)))
                         .outputs({"c"});
  const test::TemporaryFolder folder;
  for (const char* name : {"m.json", "m.qrtmodel"}) {
    const std::string bytes = text_of(model.save(folder.file(name)));
    EXPECT_EQ(all_texts(check_model(bytes.data(), bytes.size())), "");
    for (size_t size = 0; size + 3 < bytes.size(); size += 7) {
      EXPECT_FALSE(check_model(bytes.data(), size).empty()) << name << " cut to " << size;
    }
  }
}

TEST(CheckModel, ReshapesThatLoseNumbersAreNamed) {
  auto flat = std::make_shared<runtime::TensorReshapeInfo>();
  flat->new_shape = {16, 1, 1};
  auto model = ModelBuilder()
                   .input("x")
                   .conv2d("c", "x", test::plane_convolution(1, 16, 1, ramp(16)))
                   .layer("r", {"c"}, flat, "Reshape_Fallback_To_CHW_M1")
                   .outputs({"r"});
  model.info()->extra_info.model_base_h = model.info()->extra_info.model_base_w = 1;
  EXPECT_THAT(all_texts(check_model(model.build())), HasSubstr("\"r\""));
}

TEST(CheckModel, ResultsOfNoUseAreNamed) {
  auto model = ModelBuilder()
                   .input("x")
                   .activation("y", "x", "ReLU_Fallback_Float_M1")
                   .activation("z", "x", "ReLU_Fallback_Float_M1")
                   .outputs({"y", "y"});
  const auto findings = check_model(model.build());
  EXPECT_THAT(all_texts(findings), HasSubstr("layer 2 \"z\""));
  EXPECT_THAT(all_texts(findings), HasSubstr("\"y\" again"));
}

// --- recurrent layers ---

std::vector<runtime::WeightBlob> blobs(std::initializer_list<size_t> counts) {
  std::vector<runtime::WeightBlob> texts;
  for (const size_t count : counts) texts.push_back(test::weight_text(ramp(count, 0.0f, 0.01f)));
  return texts;
}

// Two layers in both directions: 5 inputs, 7 hidden values, 4 gates.
ModelBuilder sequence_network() {
  auto lstm = std::make_shared<runtime::LSTMInfo>();
  lstm->in_size = 5;
  lstm->hidden_size = 7;
  lstm->if_bias = true;
  lstm->num_layers = 2;
  lstm->bidirectional = true;
  lstm->weight_ih_forward = lstm->weight_ih_reverse = blobs({28 * 5, 28 * 14});
  lstm->weight_hh_forward = lstm->weight_hh_reverse = blobs({28 * 7, 28 * 7});
  lstm->bias_ih_forward = lstm->bias_ih_reverse = blobs({28, 28});
  lstm->bias_hh_forward = lstm->bias_hh_reverse = blobs({28, 28});
  return ModelBuilder()
      .network("net")
      .input("x")
      .layer("r", {"x"}, lstm, "LSTM_Fallback_SC_F32_M1")
      .outputs({"r"});
}

TEST(CheckModel, ARightRecurrentModelGivesNoFinding) {
  EXPECT_EQ(all_texts(check_model(sequence_network().build())), "");
}

TEST(CheckModel, RecurrentSizesAreComparedWithTheirNumbers) {
  using F = FindingCode;
  const char* const kernel = "/config_arr/net/cpu_sse/r/kernel/kernel_type";
  const std::vector<Mistake> recurrent = {
      {"one layer of two", set("/model_arr/net/r/num_layers", 1), F::wrong_weights, "r",
       "weight_ih_forward", "2"},
      {"three layers of two", set("/model_arr/net/r/num_layers", 3), F::wrong_weights, "r",
       "weight_ih_forward", "2"},
      {"no layers", set("/model_arr/net/r/num_layers", 0), F::wrong_weights, "r",
       "weight_hh_forward", "2"},
      {"one direction of two", set("/model_arr/net/r/bidirectional", false), F::wrong_weights, "r",
       "weight_ih_reverse", "2"},
      {"hidden size too large", set("/model_arr/net/r/hidden_size", 8), F::wrong_weights, "r",
       "weight_ih_forward[0]", "140 numbers"},
      {"hidden size too small", set("/model_arr/net/r/hidden_size", 6), F::wrong_weights, "r",
       "weight_ih_forward[0]", "140 numbers"},
      {"in_size", set("/model_arr/net/r/in_size", 4), F::wrong_weights, "r", "weight_ih_forward[0]",
       "140 numbers"},
      {"biases switched off", set("/model_arr/net/r/if_bias", false), F::unused_bias, "r",
       "if_bias", "false"},
      {"kernel of another cell", set(kernel, "GRU_Fallback_SC_F32_M1"), F::refused_layer, "r", "",
       ""},
      {"kernel of one step", set(kernel, "LSTMCell_Fallback_C_F32_M1"), F::refused_layer, "r", "",
       ""},
      {"kernel that doesn't exist", set(kernel, "LSTM_AVX_SC_F32_M1"), F::unknown_kernel, "r",
       "kernel", "LSTM_AVX"},
      {"text in the place of a list", set("/model_arr/net/r/weight_ih_forward", "AAAA"),
       F::unreadable, "r", "weight_ih_forward", "a string"},
      {"half of the biases", set_tree("/model_arr/net/r/bias_hh_forward", "[]"), F::wrong_weights,
       "r", "bias_hh_forward", "0"},
  };
  const std::string base = json_of(sequence_network());
  for (const Mistake& mistake : recurrent) expect_finding(base, mistake, for_this_sdk());
}

}  // namespace
}  // namespace marlo::test
