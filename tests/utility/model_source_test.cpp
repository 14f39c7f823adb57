// Models that are read without their weights are those that are read whole.

#include "qrt_core/utility/model_source_internal.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/recurrent_info.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/model_builder.h"
#include "tests/support/pace.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {
namespace {

using utility::ModelSource;

std::string file_bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Weights that are long and weights that are short, alone and in lists.
ModelBuilder weighty_model() {
  auto lstm = std::make_shared<runtime::LSTMInfo>();
  lstm->in_size = 48;
  lstm->hidden_size = 16;
  lstm->num_layers = 1;
  lstm->weight_ih_forward = {weight_text(ramp(4 * 16 * 48, -1.0f, 0.0009765625f))};
  lstm->weight_hh_forward = {weight_text(ramp(4 * 16 * 16, 0.5f, -0.0009765625f))};
  ModelBuilder model;
  model.input("x")
      .conv2d("c", "x", plane_convolution(16, 16, 3, ramp(2304, -1.0f, 0.0009765625f), ramp(16)))
      .layer("l", {"c"}, lstm, "LSTM_Fallback_SC_F32_M1")
      .activation("y", "l", "PReLU_Fallback_Float_M1", 1.0f, 0.0f, {0.25f})
      .outputs({"y"});
  return model;
}

/// What reading a model leads to: its JSON text, or the fault.
std::string outcome(const std::function<std::shared_ptr<runtime::QRTModel>()>& read) {
  try {
    const std::shared_ptr<runtime::QRTModel> model = read();
    const TemporaryFolder folder;
    if (!model->ToFile(folder.file("m.json").c_str(), "json")) return "can't be written";
    return file_bytes(folder.file("m.json"));
  } catch (const std::exception& failure) {
    return std::string("fault: ") + failure.what();
  }
}

std::string outcome_whole(const std::string& bytes) {
  return outcome([&] {
    auto model = std::make_shared<runtime::QRTModel>();
    utility::read_model(*model, bytes.data(), bytes.size());
    return model;
  });
}

/// The tree with all weights in it.
std::shared_ptr<runtime::QRTModel> filled(ModelSource& source) {
  for (const auto& [id, network] : source.model().model_arr->infos) {
    if (source.weights() == nullptr) break;
    for (const auto& [layer, info] : network->layers) source.weights()->fill(*info);
  }
  return std::make_shared<runtime::QRTModel>(source.model());
}

std::string outcome_by_layers(const std::function<std::unique_ptr<ModelSource>()>& open) {
  return outcome([&] { return filled(*open()); });
}

class ModelSourceTest : public testing::TestWithParam<const char*> {
 protected:
  void expect_alike(const std::string& bytes) {
    const std::string whole = outcome_whole(bytes);
    EXPECT_EQ(outcome_by_layers(
                  [&] { return std::make_unique<ModelSource>(bytes.data(), bytes.size()); }),
              whole);
    const std::string path = folder_.file("other");
    std::ofstream(path, std::ios::binary) << bytes;
    // A file knows its size, and what is beyond its end is told as that.
    const bool is_text = bytes.empty() || utility::is_json(bytes.data(), bytes.size());
    const std::string whole_file = is_text ? whole : outcome([&] {
      auto model = std::make_shared<runtime::QRTModel>();
      model->FromFile(path.c_str(), "bin");
      return model;
    });
    EXPECT_EQ(outcome_by_layers([&] { return std::make_unique<ModelSource>(path); }), whole_file);
  }

  TemporaryFolder folder_;
  std::string bytes_ = file_bytes(weighty_model().save(folder_.file(GetParam())));
};

TEST_P(ModelSourceTest, LeavesWeightsInTheFile) {
  for (const bool is_file : {false, true}) {
    auto source = is_file ? std::make_unique<ModelSource>(folder_.file(GetParam()))
                          : std::make_unique<ModelSource>(bytes_.data(), bytes_.size());
    ASSERT_NE(source->weights(), nullptr);
    EXPECT_EQ(source->size(), bytes_.size());
    const auto& layers = source->model().model_arr->infos.at("net")->layers;
    for (const auto& [id, layer] : layers) {
      for (const auto& weight : runtime::WeightsOf(*layer)) {
        EXPECT_LT(weight.blob->size(), 4096u) << id << ' ' << weight.key;
      }
      source->weights()->fill(*layer);
    }
    EXPECT_EQ(runtime::WeightsOf(*layers.at("c"))[0].blob->size(), 2304u * 16 / 3);
    source->weights()->empty(*layers.at("c"));
    EXPECT_TRUE(runtime::WeightsOf(*layers.at("c"))[0].blob->empty());
  }
  expect_alike(bytes_);
}

TEST_P(ModelSourceTest, WhatIsCutShortFailsAlike) {
  const size_t step = bytes_.size() / (runs_slowly() ? 5 : 25);
  for (size_t size = 0; size < bytes_.size(); size += step) expect_alike(bytes_.substr(0, size));
}

TEST_P(ModelSourceTest, WhatIsDamagedIsReadAlike) {
  const size_t step = bytes_.size() / (runs_slowly() ? 3 : 9);
  for (const char other : {'\0', '"', '\\', '\x7f', ' ', '\xff'}) {
    for (size_t at = static_cast<unsigned char>(other); at < bytes_.size(); at += step) {
      std::string damaged = bytes_;
      damaged[at] = other;
      expect_alike(damaged);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, ModelSourceTest, testing::Values("model.qrtmodel", "model.json"),
                         [](const auto& test) {
                           return std::string(test.param).find("json") != std::string::npos
                                      ? "Json"
                                      : "Binary";
                         });

TEST_P(ModelSourceTest, AKernelThatKeepsItsLayerKeepsItsWeights) {
  FakeRegistry fakes;
  fakes.add("mine");
  const auto model = weighty_model().build();
  auto& layers = model->config_arr->cfgs.at("net")->cpu_sse->layer_cfgs;
  for (const auto& [id, layer] : layers) layer->kernel->kernel_type = "mine";
  const std::string path = folder_.file(GetParam());
  const bool is_text = path.find(".json") != std::string::npos;
  ASSERT_TRUE(model->ToFile(path.c_str(), is_text ? "json" : "bin"));
  utility::ModelOptions options;
  options.kernels = &fakes.kernels;
  const utility::Model loaded(path, options);
  const auto& conv = dynamic_cast<runtime::Conv2dInfo&>(*fakes.calls->at(1).info);
  EXPECT_EQ(runtime::WeightNumbers(conv.weight), ramp(2304, -1.0f, 0.0009765625f));
}

class JsonSourceTest : public ModelSourceTest {
 protected:
  std::string replaced(const std::string& part, const std::string& other) const {
    std::string text = bytes_;
    const size_t at = text.find(part);
    EXPECT_NE(at, std::string::npos);
    return text.replace(at, part.size(), other);
  }
};

TEST_P(JsonSourceTest, OddTextsAreReadAlike) {
  const std::string key = "\"weight\": \"";
  const size_t weight = bytes_.find(key) + key.size();
  ASSERT_GT(weight, key.size());
  const auto with = [&](size_t at, const std::string& more) {
    return std::string(bytes_).insert(at, more);
  };
  expect_alike(with(weight, "\\/"));
  expect_alike(with(weight + 5000, "\\/"));
  expect_alike(with(weight + 5000, "\\u0041"));
  expect_alike(with(weight + 10, "\\\""));
  expect_alike(with(weight, "\\u007f0 100"));
  expect_alike(with(weight + 5000, "\n"));
  expect_alike(with(weight + 5000, std::string(1, '\0')));
  expect_alike(with(weight + 5000, "\xc3\xa4"));
  // Long texts that are no weights, names among them.
  const std::string longer(6000, 'a');
  expect_alike(replaced("\"sdk_type\": \"", "\"sdk_type\": \"" + longer));
  expect_alike(replaced("\"sdk_type\"", "\"" + longer + "\" : 1, \"sdk_type\""));
  expect_alike(replaced("\"weight\"", "\"weight\": \"" + longer + "\", \"weight\""));
  expect_alike(replaced("\"in_channels\": 16", "\"in_channels\": \"" + longer + "\""));
  expect_alike(std::string(10000, ' ') + bytes_);
  expect_alike("\xEF\xBB\xBF" + bytes_);
  expect_alike(bytes_ + "x");
  expect_alike("{\"a\": \"" + longer);
  expect_alike("{\"a\": \"" + longer + "\"}");
}

INSTANTIATE_TEST_SUITE_P(Forms, JsonSourceTest, testing::Values("model.json"));

}  // namespace
}  // namespace marlo::test
