#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/processor.h"
#include "qrt_core/qrt_core.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"

// Loading a .qrtmodel of 25 million parameters, the size of ResNet-50, and where the time goes:
// "read" is from the file to descriptions, whose weights are Base64 text, and "build" from there to
// configured kernels. "bare" is reading the bytes of the file and nothing else.

namespace marlo::bench {
namespace {

constexpr uint16_t kChannels = 512;
constexpr uint16_t kLayers = 10;
constexpr uint16_t kLastChannels = 304;
constexpr char kSdk[] = "sdk";

/// A model file that lasts as long as this object.
class ModelFile {
 public:
  ModelFile() : path_(std::filesystem::temp_directory_path() / "qrt_bench_25m.qrtmodel") {
    test::ModelBuilder builder;
    builder.input("input");
    std::string source = "input";
    for (uint16_t layer = 0; layer <= kLayers; ++layer) {
      const uint16_t outputs = layer < kLayers ? kChannels : kLastChannels;
      // Multiples of 2^-10 below 1 are halves, so that a file gives them back.
      std::vector<float> weights = test::Random(layer).floats(size_t{outputs} * kChannels * 9);
      for (float& weight : weights) weight = std::floor(weight * 1024.0f) / 1024.0f;
      const std::string id = "conv" + std::to_string(layer);
      builder.conv2d(id, source, test::plane_convolution(kChannels, outputs, 3, weights));
      source = id;
      parameters_ += weights.size();
      last_weight_ = test::weight_text(weights);
    }
    builder.outputs({source});
    if (!builder.build()->ToFile(path_.c_str(), "bin")) throw std::runtime_error("can't write");
  }
  ModelFile(const ModelFile&) = delete;
  ModelFile& operator=(const ModelFile&) = delete;
  ~ModelFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }

  const std::filesystem::path& path() const { return path_; }
  size_t parameters() const { return parameters_; }

  /// @throws std::runtime_error unless the file's last layer is what was written
  void check(const runtime::QRTModel& model) const {
    const auto& network = *model.model_arr->infos.at("net");
    const auto& layer = dynamic_cast<const runtime::Conv2dInfo&>(
        *network.layers.at("conv" + std::to_string(kLayers)));
    if (layer.weight != last_weight_) throw std::runtime_error("the weights have changed");
  }

 private:
  std::filesystem::path path_;
  std::string last_weight_;
  size_t parameters_ = 0;
};

double read_bare(const std::filesystem::path& path) {
  const double start = wall_seconds();
  std::vector<char> chunk(1 << 18);
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw std::runtime_error("can't read");
  while (std::fread(chunk.data(), 1, chunk.size(), file) == chunk.size()) {
  }
  std::fclose(file);
  return wall_seconds() - start;
}

void load(benchmark::State& state) {
  static const ModelFile file;
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  double read = 0;
  double bare = 0;
  for (auto _ : state) {
    {
      std::shared_ptr<runtime::Context> context;
      utility::create_context(context, 64);
      std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
      if (utility::load_model(file.path(), nets, context, kernels, params, kSdk, 1, 0) != 0) {
        throw std::runtime_error("the model isn't loaded");
      }
      nets.clear();
    }
    state.PauseTiming();
    bare += read_bare(file.path());
    runtime::QRTModel model;
    const double start = wall_seconds();
    model.FromFile(file.path().c_str(), "bin");
    read += wall_seconds() - start;
    file.check(model);
    state.ResumeTiming();
  }
  state.counters["Mparam"] = 1e-6 * static_cast<double>(file.parameters());
  state.counters["read_ms"] = 1e3 * read / static_cast<double>(state.iterations());
  state.counters["bare_ms"] = 1e3 * bare / static_cast<double>(state.iterations());
}

BENCHMARK(load)
    ->Name("load_model/25M")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

}  // namespace
}  // namespace marlo::bench
