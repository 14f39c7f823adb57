#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class ConvertTest : public ToolTest {
 protected:
  Outcome convert(const std::string& from, const std::string& to) {
    return qrt({"convert", path(from), path(to)});
  }
};

TEST_F(ConvertTest, ModelGoesToBinaryAndBack) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  const Outcome outcome = convert("a.json", "b.qrtmodel");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("b.qrtmodel (model, "));
  EXPECT_EQ(convert("b.qrtmodel", "c.json").code, 0);
  // The toy's weights fit half precision, so nothing is lost.
  EXPECT_EQ(file_text(path("a.json")), file_text(path("c.json")));
}

TEST_F(ConvertTest, SingleObjectsGoBothWays) {
  auto model = toy_model();
  model->model_arr->infos["net"]->ToFile(path("network.json").c_str(), "json");
  model->model_arr->ToFile(path("networks.json").c_str(), "json");
  model->config_arr->cfgs["net"]->cpu_sse->ToFile(path("config.json").c_str(), "json");
  model->config_arr->ToFile(path("configs.json").c_str(), "json");
  const std::pair<std::string, std::string> kinds[] = {{"network", "x.qrmod"},
                                                       {"networks", "x.qrmods"},
                                                       {"config", "x.qrcfg"},
                                                       {"configs", "x.qrcfgs"}};
  for (const auto& [kind, binary] : kinds) {
    EXPECT_EQ(convert(kind + ".json", binary).code, 0) << kind;
    EXPECT_EQ(convert(binary, kind + "-2.json").code, 0) << kind;
    EXPECT_EQ(file_text(path(kind + ".json")), file_text(path(kind + "-2.json"))) << kind;
    // A .json file is recognised by its members.
    EXPECT_THAT(convert(kind + ".json", kind + "-3.json").err, HasSubstr("(" + kind + ", "));
  }
}

TEST_F(ConvertTest, KindMustAgreeWithTheNames) {
  toy_model()->ToFile(path("a.qrtmodel").c_str(), "bin");
  const Outcome outcome = qrt({"convert", path("a.qrtmodel"), path("b.qrmod"), "--kind", "config"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("its name says that it is a network; expected a config"));
  const Outcome word = qrt({"convert", path("a.qrtmodel"), path("b.json"), "--kind", "modle"});
  EXPECT_EQ(word.code, 2);
  EXPECT_THAT(word.err, HasSubstr("expected one of model, network, networks, config, configs; did "
                                  "you mean \"model\"?"));
}

TEST_F(ConvertTest, AModelIsTakenApartAndPutTogether) {
  toy_model()->ToFile(path("a.qrtmodel").c_str(), "bin");
  for (const std::string part : {"net.qrmod", "nets.qrmods", "c.qrcfg", "cs.qrcfgs"}) {
    EXPECT_EQ(convert("a.qrtmodel", part).code, 0) << part;
  }
  const std::vector<std::vector<std::string>> ways{{"net.qrmod", "c.qrcfg"},
                                                   {"net.qrmod", "cs.qrcfgs"},
                                                   {"nets.qrmods", "cs.qrcfgs"},
                                                   {"nets.qrmods", "c.qrcfg"}};
  for (const auto& way : ways) {
    const Outcome outcome = qrt(
        {"convert", path(way[0]), path("b.qrtmodel"), "--with", path(way[1]), "--sdk", "toy:2.5"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(file_text(path("b.qrtmodel")), file_text(path("a.qrtmodel"))) << way[0] << way[1];
  }
  EXPECT_EQ(qrt({"convert", path("a.qrtmodel"), path("n.json"), "--kind", "network"}).code, 0);
  EXPECT_THAT(qrt({"info", path("n.json")}).out, HasSubstr("1  mix    Conv2d"));

  const Outcome alone = convert("net.qrmod", "b.qrtmodel");
  EXPECT_EQ(alone.code, 2);
  EXPECT_THAT(alone.err, HasSubstr("a network holds no model; --with adds the configuration"));
  EXPECT_EQ(convert("c.qrcfg", "b.qrmod").code, 2);
  const Outcome other = qrt({"convert", path("net.qrmod"), path("b.qrtmodel"), "--with",
                             path("cs.qrcfgs"), "--network", "nett"});
  EXPECT_EQ(other.code, 4);
  EXPECT_THAT(other.err,
              HasSubstr("no configuration is for network \"nett\"; did you mean \"net\"?"));
}

TEST_F(ConvertTest, APartOfAModelOfSeveralNetworksIsChosen) {
  auto model = toy_model();
  model->model_arr->squential_ids.push_back("other");
  model->model_arr->infos["other"] = model->model_arr->infos["net"];
  model->config_arr->squential_ids.push_back("other");
  model->config_arr->cfgs["other"] = model->config_arr->cfgs["net"];
  model->ToFile(path("a.json").c_str(), "json");
  const Outcome open = convert("a.json", "b.qrmod");
  EXPECT_EQ(open.code, 2);
  EXPECT_THAT(open.err, HasSubstr("it holds \"net\", \"other\"; choose one with --network"));
  EXPECT_EQ(qrt({"convert", path("a.json"), path("b.qrmod"), "--network", "other"}).code, 0);
  EXPECT_EQ(qrt({"convert", path("a.json"), path("b.qrmod"), "--network", "third"}).code, 2);
}

TEST_F(ConvertTest, StreamsAreConverted) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  ASSERT_EQ(convert("a.json", "a.qrtmodel").code, 0);
  const Outcome json = qrt({"convert", path("a.qrtmodel"), "-"});
  EXPECT_EQ(json.code, 0);
  EXPECT_EQ(json.err, "");
  write_text(path("b.json"), json.out);
  const Outcome binary = qrt({"convert", "-", path("b.qrtmodel")}, path("b.json"));
  EXPECT_EQ(binary.code, 0) << binary.err;
  EXPECT_EQ(file_text(path("b.qrtmodel")), file_text(path("a.qrtmodel")));
}

TEST_F(ConvertTest, WeightsThatHalvesLoseAreNamedAndNeedForce) {
  auto model = toy_model();
  mix_of(*model).weight = blob_of({1e5f, 1e-9f});
  model->ToFile(path("a.json").c_str(), "json");
  const Outcome outcome = convert("a.json", "b.qrtmodel");
  EXPECT_EQ(outcome.code, 5);
  EXPECT_THAT(
      outcome.err,
      AllOf(HasSubstr("network \"net\", layer 1 \"mix\" (Conv2d), \"weight\": 1 of 2 numbers "
                      "becomes infinite, 1 becomes 0\n"),
            HasSubstr("--force writes it all the same")));
  EXPECT_FALSE(fs::exists(path("b.qrtmodel")));
  const Outcome forced = qrt({"convert", path("a.json"), path("b.qrtmodel"), "--force"});
  EXPECT_EQ(forced.code, 0);
  EXPECT_THAT(forced.err, HasSubstr("warning: network \"net\", layer 1"));
  EXPECT_TRUE(fs::exists(path("b.qrtmodel")));
  // JSON keeps them.
  EXPECT_EQ(convert("a.json", "c.json").err.find("infinite"), std::string::npos);
}

TEST_F(ConvertTest, WeightsAreRoundedToTheNearestHalfOnDemand) {
  auto model = toy_model();
  const float between = 1.0f + 0x1.8p-11f;  // nearer to the half above
  mix_of(*model).weight = blob_of({between, 2});
  model->ToFile(path("a.json").c_str(), "json");
  const auto weight = [&](const std::string& name) {
    marlo::runtime::QRTModel read;
    read.FromFile(path(name).c_str(), "bin");
    return marlo::runtime::WeightNumbers(mix_of(read).weight).at(0);
  };
  const Outcome cut = convert("a.json", "cut.qrtmodel");
  EXPECT_EQ(cut.code, 0);
  EXPECT_THAT(cut.err, HasSubstr("4 weights as halves: relative error at most 0.00073, rms 0.00042 "
                                 "(truncated; --round nearest loses less)"));
  EXPECT_EQ(weight("cut.qrtmodel"), 1.0f);
  const Outcome rounded =
      qrt({"convert", path("a.json"), path("near.qrtmodel"), "--round", "nearest"});
  EXPECT_EQ(rounded.code, 0);
  EXPECT_THAT(rounded.err, HasSubstr("at most 0.00024, rms 0.00014 (rounded to nearest)"));
  EXPECT_EQ(weight("near.qrtmodel"), 1.0f + 0x1p-10f);
  EXPECT_EQ(qrt({"convert", path("a.json"), path("x.qrtmodel"), "--round", "up"}).code, 2);
}

TEST_F(ConvertTest, NeverOverwritesItsInput) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  const std::string before = file_text(path("a.json"));
  fs::create_symlink(path("a.json"), path("link.json"));
  for (const std::string to : {"a.json", "link.json", "./a.json"}) {
    const Outcome outcome = convert("a.json", to);
    EXPECT_EQ(outcome.code, 2) << to;
    EXPECT_THAT(outcome.err, HasSubstr("the same file"));
  }
  EXPECT_EQ(file_text(path("a.json")), before);
}

TEST_F(ConvertTest, UnknownSuffixIsAUsageError) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  EXPECT_EQ(convert("a.json", "b.txt").code, 2);
  EXPECT_EQ(convert("a.txt", "b.json").code, 2);
  EXPECT_EQ(convert("a.JSON", "b.json").code, 2);
  const Outcome device = qrt({"convert", path("a.json"), "/dev/full"});
  EXPECT_EQ(device.code, 5);
  EXPECT_THAT(device.err, HasSubstr("/dev/full: can't be written: it is not a regular file"));
}

TEST_F(ConvertTest, BadInputLeavesTheOldOutput) {
  write_text(path("a.json"), "{\"sdk_type\": \"x\"");
  write_text(path("b.qrtmodel"), "precious");
  const Outcome outcome = convert("a.json", "b.qrtmodel");
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("a.json: line 1"), HasSubstr("column")));
  EXPECT_EQ(file_text(path("b.qrtmodel")), "precious");
}

TEST_F(ConvertTest, UnwritableOutputIsNamedAndLeavesNothing) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  const Outcome outcome = convert("a.json", "absent/b.qrtmodel");
  EXPECT_EQ(outcome.code, 5);
  EXPECT_THAT(outcome.err, HasSubstr("absent/b.qrtmodel: can't be written: No such file"));
  fs::create_directories(path("folder.qrtmodel"));
  EXPECT_THAT(convert("a.json", "folder.qrtmodel").err, HasSubstr("it is not a regular file"));
  for (const auto& entry : fs::directory_iterator(folder_)) {
    EXPECT_EQ(entry.path().string().find(".new-"), std::string::npos) << entry.path();
  }
}

TEST_F(ConvertTest, NewFilesFollowTheUmaskAndLinksStay) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  write_text(path("real.qrtmodel"), "old");
  fs::create_symlink(path("real.qrtmodel"), path("link.qrtmodel"));
  EXPECT_EQ(convert("a.json", "link.qrtmodel").code, 0);
  EXPECT_TRUE(fs::is_symlink(path("link.qrtmodel")));
  EXPECT_NE(file_text(path("real.qrtmodel")), "old");
  EXPECT_NE(fs::status(path("real.qrtmodel")).permissions() & fs::perms::owner_read,
            fs::perms::none);
}

}  // namespace
}  // namespace qrt_tool_test
