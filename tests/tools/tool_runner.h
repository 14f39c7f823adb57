#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"

// Runs the built tool as a shell would, in a folder of its own.

namespace qrt_tool_test {

namespace fs = std::filesystem;

/// The built tool, behind the launcher of the tests.
std::string tool_path();

inline std::string file_text(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::stringstream text;
  text << stream.rdbuf();
  return text.str();
}

inline void write_text(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

struct Outcome {
  int code = -1;
  std::string out;
  std::string err;
};

/// A folder for one test, and the tool.
class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    folder_ = fs::temp_directory_path() / (std::string("qrt-") + test->test_suite_name() + "-" +
                                           test->name() + "-" + std::to_string(getpid()));
    fs::create_directories(folder_);
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  /// Runs `qrt` with these arguments and this file as its standard input. The locale is one with
  /// UTF-8.
  Outcome qrt(const std::vector<std::string>& arguments,
              const std::string& input = "/dev/null") const {
    std::string command = "LC_ALL=C.UTF-8 '" + tool_path() + "'";
    for (const std::string& argument : arguments) command += " '" + argument + "'";
    command += " >'" + path("stdout") + "' 2>'" + path("stderr") + "' <'" + input + "'";
    const int status = std::system(command.c_str());
    Outcome outcome;
    outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    outcome.out = file_text(path("stdout"));
    outcome.err = file_text(path("stderr"));
    return outcome;
  }

  /// Writes float32 numbers as an .npy file.
  void write_array(const std::string& name, const std::string& shape,
                   const std::vector<float>& values) const {
    std::string header = "{'descr': '<f4', 'fortran_order': False, 'shape': " + shape + ", }";
    header.resize(117, ' ');
    header += '\n';
    write_text(path(name), std::string("\x93NUMPY\x01\x00\x76\x00", 10) + header +
                               std::string(reinterpret_cast<const char*>(values.data()),
                                           values.size() * sizeof(float)));
  }

  fs::path folder_;
};

/// A model for SDK "toy" 2.5 with network "net": input "in", convolution "mix" with a window of 1x1
/// from 1 channel to 2 (weights 2 and -1, biases 0.5 and 0), rectifier "cut", which is the output.
inline std::shared_ptr<marlo::runtime::QRTModel> toy_model() {
  using namespace marlo::runtime;
  const auto blob = [](std::initializer_list<float> numbers) {
    return Base64Encode(reinterpret_cast<const unsigned char*>(numbers.begin()),
                        numbers.size() * sizeof(float));
  };
  auto model = std::make_shared<QRTModel>();
  model->sdk_type = "toy";
  model->core_major_ver = 1;
  model->sdk_major_ver = 2;
  model->sdk_minor_ver = 5;

  auto info = std::make_shared<QRModelInfo>();
  info->extra_info.model_base_h = 2;
  info->extra_info.model_base_w = 3;
  auto input = std::make_shared<InputInfo>();
  auto mix = std::make_shared<Conv2dInfo>();
  mix->in_channels = 1;
  mix->out_channels = 2;
  mix->kernel_x = mix->kernel_y = 1;
  mix->if_bias = true;
  mix->weight = blob({2.0f, -1.0f});
  mix->bias = blob({0.5f, 0.0f});
  mix->input_ids = {"in"};
  auto cut = std::make_shared<ActivationInfo>();
  cut->activation_type = 2;
  cut->input_ids = {"mix"};
  info->squential_ids = {"in", "mix", "cut"};
  info->squential_types = {0, 2, 1};
  info->squential_output_ids = {"cut"};
  info->layers = {{"in", input}, {"mix", mix}, {"cut", cut}};
  for (auto& [id, layer] : info->layers) layer->id = id;
  model->model_arr->squential_ids = {"net"};
  model->model_arr->infos["net"] = info;

  auto cfgs = std::make_shared<QRModelMultiBackendCfgs>();
  const char* const kernels[] = {"Input_Fallback_M1",
                                 "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
                                 "ReLU_Fallback_Float_M1"};
  for (size_t i = 0; i < info->squential_ids.size(); ++i) {
    auto cfg = std::make_shared<LayerCfg>();
    cfg->kernel->kernel_type = kernels[i];
    cfgs->cpu_sse->squential_ids.push_back(info->squential_ids[i]);
    cfgs->cpu_sse->layer_cfgs[info->squential_ids[i]] = cfg;
  }
  model->config_arr->squential_ids = {"net"};
  model->config_arr->cfgs["net"] = cfgs;
  return model;
}

/// Numbers as the text of a persisted blob.
inline std::string blob_of(const std::vector<float>& numbers) {
  return marlo::runtime::Base64Encode(reinterpret_cast<const unsigned char*>(numbers.data()),
                                      numbers.size() * sizeof(float));
}

/// The toy model with an LSTM of 2 inputs and 1 hidden number between "in" and the output.
inline std::shared_ptr<marlo::runtime::QRTModel> recurrent_model() {
  auto model = toy_model();
  auto& info = *model->model_arr->infos["net"];
  auto lstm = std::make_shared<marlo::runtime::LSTMInfo>();
  lstm->id = "mix";
  lstm->input_ids = {"in"};
  lstm->in_size = 2;
  lstm->hidden_size = 1;
  lstm->num_layers = 1;
  lstm->weight_ih_forward = {blob_of({1, 0.5, -0.5, 1, 0.25, 1, -1, 0.5})};
  lstm->weight_hh_forward = {blob_of({0.5, 1, -1, 2})};
  info.layers["mix"] = lstm;
  info.squential_types[1] = static_cast<uint16_t>(lstm->type);
  info.squential_output_ids = {"mix"};
  model->config_arr->cfgs["net"]->cpu_sse->layer_cfgs["mix"]->kernel->kernel_type =
      "LSTM_Fallback_SC_F32_M1";
  return model;
}

inline marlo::runtime::Conv2dInfo& mix_of(marlo::runtime::QRTModel& model) {
  return dynamic_cast<marlo::runtime::Conv2dInfo&>(
      *model.model_arr->infos.at("net")->layers.at("mix"));
}

inline std::string& kernel_of(marlo::runtime::QRTModel& model, const std::string& layer) {
  return model.config_arr->cfgs.at("net")->cpu_sse->layer_cfgs.at(layer)->kernel->kernel_type;
}

/// A PGM picture of 3 x 2 pixels with the grey levels 0, 51, 102, 153, 204, 255.
inline std::string toy_picture() { return std::string("P5 3 2 255\n\0\x33\x66\x99\xCC\xFF", 17); }

}  // namespace qrt_tool_test
