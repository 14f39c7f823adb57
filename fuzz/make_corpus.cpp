// Writes the inputs that the harnesses start from: objects of every class, made at random from the
// attribute table of the tests, and the small models there.
//
//   make_corpus fuzz/corpus

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "qrt_core/qrt_core.h"
#include "tests/runtime/engine/all_layers.h"
#include "tests/runtime/model/object_forms.h"
#include "tests/support/differential/operation.h"
#include "tests/support/legacy_writer.h"
#include "tests/support/numbers.h"
#include "tests/support/recurrent_case.h"

namespace {

using marlo::test::AttributeTable;
using marlo::test::Forms;
using marlo::test::FormsMaker;

std::filesystem::path corpus;

void keep(const std::string& harness, const std::string& name, const std::string& bytes) {
  const std::filesystem::path folder = corpus / harness;
  std::filesystem::create_directories(folder);
  std::ofstream(folder / name, std::ios::binary) << bytes;
}

std::string contents(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// One network of one layer, for each class of layers.
void keep_layers() {
  uint32_t seed = 0;
  for (const std::string& name : AttributeTable::get().layer_classes()) {
    const int code = AttributeTable::get().of(name).code;
    const Forms layer = FormsMaker(++seed).object(name, code);
    const std::string id = FormsMaker::little_endian(1, 8) + "a";
    const std::string text = FormsMaker::little_endian(11, 8) + "QRModelInfo";
    const std::string header = FormsMaker::little_endian(20015, 4);
    const std::string ids = FormsMaker::little_endian(1, 8) + id;
    const std::string codes =
        FormsMaker::little_endian(1, 8) + FormsMaker::little_endian(static_cast<uint64_t>(code), 2);
    const std::string extra = FormsMaker(seed).object("NetExtraInfo").bytes;
    const std::string network = text + ids + extra + ids + codes + layer.bytes;
    keep("qrmod_fuzz", name, header + network);

    const std::string array = FormsMaker::little_endian(14, 8) + "QRModelInfoArr" + ids + network;
    const std::string versions = FormsMaker::little_endian(1, 2) + std::string(6, '\0');
    keep("qrtmodel_fuzz", name, header + id + versions + array + FormsMaker::little_endian(0, 8));
    keep(
        "json_fuzz", name,
        R"({"sdk_type":"s","core_major_ver":1,"model_arr":{"serializable_type":"","squential_ids":["n"],)"
        R"("n":{"serializable_type":"","squential_ids":["a"],"squential_types":[)" +
            std::to_string(code) + R"(],"a":)" + layer.json_given + "}}}");
  }
}

void keep_parameters() {
  uint32_t seed = 100;
  for (const std::string& name : AttributeTable::get().names_with_prefix("InferenceParam")) {
    const Forms param = FormsMaker(++seed).object(name);
    keep("json_fuzz", name,
         R"({"config":[{"kernel":{"kernel_type":"k","infer_param_type":")" + name +
             R"(","infer_param":)" + param.json_given + "}}]}");
  }
}

void keep_trees() {
  const std::pair<const char*, std::vector<const char*>> harnesses[] = {
      {"qrmod_fuzz", {"QRModelInfo", "QRModelInfoArr"}},
      {"qrcfg_fuzz", {"QRModelCfg", "QRModelMultiBackendCfgsArr"}},
      {"qrtmodel_fuzz", {"QRTModel"}},
  };
  for (const auto& [harness, classes] : harnesses) {
    for (const std::string name : classes) {
      for (const uint32_t version : {20015u, 20003u, 20007u, 20011u}) {
        const Forms forms = FormsMaker(version, version).file(name);
        keep(harness, name + "_" + std::to_string(version), forms.bytes);
        if (name == "QRTModel") keep("json_fuzz", name + std::to_string(version), forms.json_given);
      }
    }
  }
}

// Models that load and a configuration that is read to its end.
void keep_models() {
  const std::filesystem::path models = QRT_TEST_DATA_DIR "/models";
  keep("json_fuzz", "config", contents(models / "config.json"));
  keep("json_fuzz", "small", contents(models / "small.json"));
  marlo::runtime::QRTModel model;
  model.FromFile((models / "small.json").c_str());
  const std::filesystem::path folder = corpus / "qrtmodel_fuzz";
  model.ToFile((folder / "small").c_str(), "bin");
  model.model_arr->infos["net"]->ToFile((corpus / "qrmod_fuzz" / "small").c_str(), "bin");
  model.config_arr->cfgs["net"]->cpu_sse->ToFile((corpus / "qrcfg_fuzz" / "small").c_str(), "bin");
}

// A network with a layer of every kind that runs, and its layers as a network without a
// configuration.
void keep_running_network() {
  marlo::test::ModelBuilder model = marlo::test::all_layers();
  model.save((corpus / "json_fuzz" / "all_layers.json").string());
  model.save((corpus / "qrtmodel_fuzz" / "all_layers").string());
  model.info()->ToFile((corpus / "qrmod_fuzz" / "all_layers").c_str(), "bin");
}

// An input, and one layer that some kernel runs.
template <typename Info>
void keep_layer(const std::string& name, const Info& info,
                const std::vector<std::string>& sources = {"x"}) {
  marlo::test::ModelBuilder model;
  model.input("x").layer("y", sources, std::make_shared<Info>(info), "").outputs({"y"});
  model.info()->extra_info.model_base_h = 6;
  model.info()->extra_info.model_base_w = 7;
  model.info()->ToFile((corpus / "qrmod_fuzz" / ("runs_" + name)).c_str(), "bin");
}

// Recurrent descriptions have one class for each network.
void keep_recurrent() {
  using marlo::test::Network;
  for (const Network network : {Network::rnn, Network::lstm, Network::gru}) {
    marlo::test::RecurrentCase layer;
    layer.network = network;
    layer.bidirectional = true;
    layer.fill(1);
    const std::string name = std::to_string(static_cast<int>(network));
    marlo::test::ModelBuilder sequence;
    sequence.input("x").layer("y", {"x"}, sequence_description(layer), "");
    sequence.info()->ToFile((corpus / "qrmod_fuzz" / ("runs_sequence_" + name)).c_str(), "bin");
    marlo::test::ModelBuilder cell;
    cell.input("x").layer("y", {"x"}, cell_description(layer), "");
    cell.info()->ToFile((corpus / "qrmod_fuzz" / ("runs_cell_" + name)).c_str(), "bin");
  }
}

void keep_running_layers() {
  namespace rt = marlo::runtime;
  using marlo::test::ramp;
  using marlo::test::weight_text;
  rt::Conv2dInfo conv = marlo::test::plane_convolution(8, 8, 3, ramp(576), ramp(8));
  conv.padding_l = conv.padding_r = conv.padding_t = conv.padding_b = 1;
  keep_layer("convolution", conv);
  keep_layer("point", marlo::test::plane_convolution(8, 8, 1, ramp(64), ramp(8)));
  rt::Conv2dInfo depthwise = marlo::test::plane_convolution(8, 8, 3, ramp(72), ramp(8));
  depthwise.groups = 8;
  keep_layer("depthwise", depthwise);
  keep_layer("line", marlo::test::line_convolution(2, 2, 3, ramp(12)));
  rt::ConvTranspose2dInfo transposed = marlo::test::transposed_convolution(8, 8, 3, ramp(576));
  transposed.stride_x = transposed.stride_y = 2;
  keep_layer("transposed", transposed);
  rt::FullConnectionInfo full;
  full.in_features = full.out_features = 8;
  full.weight = weight_text(ramp(64));
  keep_layer("full_connection", full);
  rt::AvgPool2dInfo average;
  average.kernel_x = average.kernel_y = average.stride_x = average.stride_y = 2;
  keep_layer("average", average);
  rt::MaxPool2dInfo maximum;
  maximum.kernel_x = maximum.kernel_y = 3;
  maximum.stride_x = maximum.stride_y = 2;
  maximum.dilation_x = maximum.dilation_y = 1;
  keep_layer("maximum", maximum);
  rt::AdaptiveAvgPool2dInfo adaptive;
  adaptive.output_size = {2, 3};
  keep_layer("adaptive", adaptive);
  rt::Upsample2dInfo upsampling;
  upsampling.scale_factor_x = upsampling.scale_factor_y = 2.0f;
  upsampling.unsample_type = 1;
  keep_layer("upsampling", upsampling);
  rt::SoftmaxInfo softmax;
  softmax.dim = 1;
  keep_layer("softmax", softmax);
  keep_layer("elementwise", rt::ElementWiseOperatorInfo(), {"x", "x"});
  keep_layer("broadcast", rt::BroadcastOperatorInfo(), {"x", "x"});
  keep_layer("grid_sample", rt::GridSampleInfo(), {"x", "x"});
  rt::TensorArithmeticInfo reduction;
  reduction.dim = {1, 2};
  keep_layer("reduction", reduction);
  rt::ConcatenateInfo concatenation;
  concatenation.dim = 1;
  keep_layer("concatenate", concatenation, {"x", "x"});
  rt::PixelShuffleInfo shuffle;
  shuffle.upscale_factor = 0.5f;
  keep_layer("pixel_shuffle", shuffle);
  rt::TensorSliceInfo slice;
  slice.slice_dims = {0, 1, 1, 1, 5, 2, 0, 6, 3};
  keep_layer("slice", slice);
  rt::TensorExpandInfo expand;
  expand.new_shape = {1, -1, 4, 5};
  keep_layer("expand", expand);
  rt::TensorReshapeInfo reshape;
  reshape.new_shape = {1, -1};
  keep_layer("reshape", reshape);
  rt::TensorTransposeInfo transpose;
  transpose.axes = {2, 0, 1};
  keep_layer("transpose", transpose);
  rt::TensorUnSqueezeInfo unsqueeze;
  unsqueeze.type = 16;
  keep_layer("unsqueeze", unsqueeze);
  keep_recurrent();
}

// A network of the earlier generation with every record, and one of the first version.
void keep_legacy() {
  using namespace marlo::test;
  LegacyConvolution convolution;
  convolution.activation = 2;
  convolution.in = convolution.out = {1, 2};
  convolution.groups = 2;
  convolution.weights = convolution.biases = {1, 2};
  LegacyConvolution depthwise = convolution;
  depthwise.code = 3;
  depthwise.id = 2;
  LegacyConvolution transposed = convolution;
  transposed.code = 2;
  transposed.id = 3;
  LegacyPooling pooling;
  pooling.id = 4;
  LegacyLSTM lstm;
  lstm.id = 14;
  lstm.bidirectional = 1;
  lstm.arrays.assign(8, {1, 2, 3, 4});
  LegacyWriter all;
  all.input(0).convolution(convolution).convolution(depthwise).convolution(transposed);
  all.pooling(pooling).pixel_shuffle(5, 4, 2).batch_normalization(6, 5, 1, {1, 2, 3, 4});
  all.activation(7, 6, 6, 0.5f, 0).element_wise(8, {7, 6}, 0, 1).concatenate(9, {8, 7}, 0);
  all.upsampling(10, 9, 2, 2, 0, 1).tensor_reshape(11, 10, {4}).tensor_transpose(12, 11, {0});
  all.tensor_squeeze(13, 12, 0).lstm(lstm).full_connection(15, 14, 2, 1, 1, {1, 2}, {3});
  all.tensor_activation(16, 15, 3, 1, 0).tensor_input(17, 1).record(27);
  keep("legacy_fuzz", "all", all.text());
  depthwise.in.channels = depthwise.out.channels = 1;
  depthwise.weights = depthwise.biases = {1};
  keep("legacy_fuzz", "first_version", LegacyWriter(10000).input(0).convolution(depthwise).text());
  keep("legacy_fuzz", "refused", LegacyWriter().record(9).text());
}

// Layers made from random bytes, until each kernel that a description configures was compared a few
// times.
void keep_kernel_layers() {
  constexpr uint32_t kTries = 8000;
  constexpr size_t kBytes = 64;
  constexpr size_t kComparisons = 3;
  std::map<std::string, size_t> kept;
  for (uint32_t seed = 0; seed < kTries; ++seed) {
    marlo::test::Random random(seed);
    std::string bytes;
    while (bytes.size() < kBytes) bytes += static_cast<char>(random.integer(0, 255));
    const auto before = marlo::test::comparisons();
    marlo::test::try_kernels(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    bool adds = false;
    for (const auto& [kernel, count] : marlo::test::comparisons()) {
      const auto found = before.find(kernel);
      if (found != before.end() && found->second == count) continue;
      adds = adds || kept[kernel] < kComparisons;
    }
    if (!adds) continue;
    for (const auto& [kernel, count] : marlo::test::comparisons()) {
      const auto found = before.find(kernel);
      kept[kernel] += count - (found == before.end() ? 0 : found->second);
    }
    keep("kernels_fuzz", "layer_" + std::to_string(seed), bytes);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_corpus FOLDER\n";
    return 2;
  }
  corpus = argv[1];
  keep_layers();
  keep_parameters();
  keep_trees();
  keep_models();
  keep_running_network();
  keep_running_layers();
  keep_legacy();
  keep_kernel_layers();
  return 0;
}
