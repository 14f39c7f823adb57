// Writes the inputs that the harnesses start from: objects of every class, made at random from the
// attribute table of the tests, and the small models there.
//
//   make_corpus fuzz/corpus

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "qrt_core/qrt_core.h"
#include "tests/runtime/model/object_forms.h"
#include "tests/support/differential/operation.h"
#include "tests/support/legacy_writer.h"
#include "tests/support/numbers.h"

namespace {

using marlo::testing::AttributeTable;
using marlo::testing::Forms;
using marlo::testing::FormsMaker;

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
  keep_legacy();
  keep_kernel_layers();
  return 0;
}
