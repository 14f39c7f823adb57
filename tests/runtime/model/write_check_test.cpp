// What could not be read again is not written.

#include "qrt_core/qrt_core.h"
#include "tests/runtime/model/file_helpers.h"

namespace marlo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kForms[] = {"json", "bin"};

// The one line that a refused object leaves in the log; the file is as it was.
std::string refusal(runtime::Serializable& object, const char* form) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file");
  write_file(path, "as it was");
  const LogCapture log;
  EXPECT_FALSE(object.ToFile(path.c_str(), form)) << form;
  EXPECT_EQ(contents(path), "as it was");
  EXPECT_EQ(log.lines().size(), 1u);
  if (log.lines().empty()) return "";
  EXPECT_THAT(log.lines()[0], HasSubstr(path));
  return log.lines()[0];
}

std::shared_ptr<runtime::LayerCfg> layer_cfg(const std::string& kernel) {
  auto cfg = std::make_shared<runtime::LayerCfg>();
  cfg->kernel->kernel_type = kernel;
  return cfg;
}

runtime::QRModelCfg two_layers() {
  runtime::QRModelCfg cfg;
  cfg.squential_ids = {"a", "b"};
  for (const std::string& id : cfg.squential_ids) cfg.layer_cfgs[id] = layer_cfg("K" + id);
  return cfg;
}

TEST(WriteCheck, RefusesAParameterWhoseTypeIsNotNamed) {
  for (const char* type : {"", "InferenceParamActQuant", "Unknown"}) {
    auto cfg = two_layers();
    cfg.layer_cfgs["b"]->kernel->infer_param_type = type;
    cfg.layer_cfgs["b"]->kernel->infer_param =
        std::make_shared<runtime::InferenceParamConv2DQuant>();
    for (const char* form : kForms) {
      EXPECT_THAT(refusal(cfg, form),
                  HasSubstr("b.kernel: its parameter is of class "
                            "marlo::runtime::InferenceParamConv2DQuant, which \"infer_param_type\" "
                            "(\"" +
                            std::string(type) + "\") does not name"));
    }
  }
}

TEST(WriteCheck, TakesAParameterThatItsTypeNamesAndATypeThatNamesNone) {
  auto cfg = two_layers();
  cfg.layer_cfgs["a"]->kernel->infer_param_type = "InferenceParamConv2DQuant";
  cfg.layer_cfgs["a"]->kernel->infer_param = std::make_shared<runtime::InferenceParamConv2DQuant>();
  cfg.layer_cfgs["b"]->kernel->infer_param_type = "Unknown";
  const LogCapture log;
  for (const char* form : kForms) {
    const std::string bytes = written(cfg, form);
    runtime::QRModelCfg read;
    if (form == kForms[0]) {
      ASSERT_TRUE(read.FromJsonString(bytes.c_str()));
    } else {
      ASSERT_TRUE(read_bytes(read, bytes));
    }
    EXPECT_NE(read.layer_cfgs["a"]->kernel->infer_param, nullptr);
    EXPECT_EQ(read.layer_cfgs["b"]->kernel->infer_param, nullptr);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(WriteCheck, NamesTheFirstFaultWithItsPlaceInTheWholeModel) {
  runtime::QRTModel model;
  model.config_arr->squential_ids = {"net"};
  auto cfgs = std::make_shared<runtime::QRModelMultiBackendCfgs>();
  *cfgs->cpu_sse = two_layers();
  const auto converter = std::make_shared<runtime::KernelCfg>();
  converter->infer_param = std::make_shared<runtime::InferenceParamActQuant>();
  cfgs->cpu_sse->layer_cfgs["a"]->output_converters->kernel_ids = {"0"};
  cfgs->cpu_sse->layer_cfgs["a"]->output_converters->kernel_cfgs["0"] = converter;
  cfgs->cpu_sse->layer_cfgs["b"]->kernel->infer_param = converter->infer_param;
  model.config_arr->cfgs["net"] = cfgs;
  EXPECT_THAT(refusal(model, "bin"),
              HasSubstr("config_arr.net.cpu_sse.a.output_converters.0: its parameter"));
}

runtime::QRModelInfo one_layer(const std::shared_ptr<runtime::LayerInfo>& layer, uint16_t code) {
  runtime::QRModelInfo info;
  info.squential_ids = {"u"};
  info.squential_types = {code};
  info.layers["u"] = layer;
  return info;
}

TEST(WriteCheck, RefusesALayerWhoseClassContradictsItsCode) {
  for (const uint16_t code : {uint16_t{1}, uint16_t{4}, uint16_t{9999}}) {
    auto info = one_layer(std::make_shared<runtime::Conv2dInfo>(), code);
    for (const char* form : kForms) {
      EXPECT_THAT(refusal(info, form),
                  HasSubstr("layer \"u\" is of class marlo::runtime::Conv2dInfo, which its code " +
                            std::to_string(code) + " in \"squential_types\" does not stand for"));
    }
  }
}

// The class of an unsqueeze says the code of a squeeze until it is repaired.
TEST(WriteCheck, TakesALayerOfTheRightClassWhateverItsOwnCodeSays) {
  const auto layer = std::make_shared<runtime::TensorUnSqueezeInfo>();
  auto info = one_layer(layer, 16);
  const LogCapture log;
  EXPECT_THAT(written(info, "bin"), Not(IsEmpty()));
  EXPECT_EQ(layer->type, 16);
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(WriteCheck, TakesAnApplicationsClassThatDerivesFromTheOneForItsCode) {
  struct Own : runtime::LayerPlaceholderInfo {};
  auto info = one_layer(std::make_shared<Own>(), 252);
  const LogCapture log;
  EXPECT_THAT(written(info, "bin"), Not(IsEmpty()));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(WriteCheck, RefusesAnIdThatJsonWouldMistakeForAnAttribute) {
  auto cfg = two_layers();
  cfg.squential_ids = {"a", "summary"};
  cfg.layer_cfgs["summary"] = layer_cfg("K");
  EXPECT_THAT(refusal(cfg, "json"),
              HasSubstr("two of its members would have the name \"summary\""));
  runtime::QRModelCfg read;
  EXPECT_TRUE(read_bytes(read, written(cfg, "bin")));
  EXPECT_EQ(read.layer_cfgs.at("summary")->kernel->kernel_type, "K");

  auto info = one_layer(std::make_shared<runtime::ActivationInfo>(), 1);
  info.squential_ids = {"extra_info"};
  EXPECT_THAT(refusal(info, "json"), HasSubstr("the name \"extra_info\""));
  cfg.squential_ids = {"serialization_protocol_version"};
  EXPECT_THAT(refusal(cfg, "json"), HasSubstr("the name \"serialization_protocol_version\""));
  // JSON cuts both ids at their NUL.
  cfg.squential_ids = {std::string("a\0b", 3), std::string("a\0c", 3)};
  EXPECT_THAT(refusal(cfg, "json"), HasSubstr("the name \"a\""));
}

TEST(WriteCheck, TakesAnIdThatIsListedTwice) {
  auto cfg = two_layers();
  cfg.squential_ids = {"a", "b", "a"};
  const LogCapture log;
  for (const char* form : kForms) EXPECT_THAT(written(cfg, form), Not(IsEmpty()));
  EXPECT_THAT(log.lines(), IsEmpty());
}

// A class of an application's own that knows the documented visitors and refuses all others.
struct Particular : runtime::Serializable {
  void VisitAttr(std::shared_ptr<runtime::Visitor> visitor) override {
    if (std::dynamic_pointer_cast<runtime::FILEWriter>(visitor) == nullptr &&
        std::dynamic_pointer_cast<runtime::JSONNodeSetter>(visitor) == nullptr) {
      utility::Assert(false, "Not Implemented.");
    }
  }
};

TEST(WriteCheck, LeavesClassesOfAnApplicationAlone) {
  Particular object;
  for (const char* form : kForms) EXPECT_THAT(written(object, form), Not(IsEmpty()));
}

TEST(NullPart, IsNamedWhereverAWalkMeetsIt) {
  runtime::QRTModel source;
  runtime::QRTModel model = std::move(source);
  runtime::QRTModel& empty = source;
  EXPECT_EQ(error_of([&] { empty.FromJsonString(R"({"sdk_type":""})"); }),
            "[QRT]: \"model_arr\" is a null pointer\n");
  runtime::QRModelMultiBackendCfgs cfgs;
  cfgs.gpu_metal = nullptr;
  const TemporaryFolder folder;
  const std::string path = folder.file("file");
  write_file(path, "as it was");
  for (const char* form : kForms) {
    EXPECT_EQ(error_of([&] { cfgs.ToFile(path.c_str(), form); }),
              "[QRT]: \"gpu_metal\" is a null pointer\n");
    EXPECT_EQ(contents(path), "as it was");
  }
  runtime::LayerCfg layer;
  layer.kernel = nullptr;
  EXPECT_EQ(error_of([&] { layer.ToFile(path.c_str(), "bin"); }),
            "[QRT]: \"kernel\" is a null pointer\n");
  auto info = one_layer(nullptr, 1);
  EXPECT_EQ(error_of([&] { info.ToFile(path.c_str(), "bin"); }),
            "[QRT]: \"u\" is a null pointer\n");
  EXPECT_EQ(error_of([&] { info.GetOutputIDs(); }), "[QRT]: layer \"u\" is a null pointer\n");
}

}  // namespace
}  // namespace marlo::test
