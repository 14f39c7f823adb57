#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/onednn_peers.h"
#include "bench/support/probe.h"
#include "bench/support/processor.h"
#include "bench/support/reporting.h"
#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/pooling_info.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"
#include "tests/support/recurrent_case.h"

// Operators of the second set, in the sizes of a vision transformer (197 places, 768 features, heads
// of 64) and of a recogniser of text lines. Arithmetic is held against the processor's fused products
// in 8 lanes, whatever the kernel's width; what moves numbers against a copy.

namespace marlo::bench {

#if QRT_WITH_EXTENSIONS

namespace {

constexpr uint32_t kPlaces = 197;

struct Product {
  uint32_t rows, columns, depth;
};

constexpr Product kProducts[] = {
    {kPlaces, kPlaces, 64}, {kPlaces, 64, kPlaces}, {128, 128, 64}, {384, 384, 384}, {7, 33, 65}};
constexpr Product kConnections[] = {{kPlaces, 768, 768}, {kPlaces, 3072, 768}, {kPlaces, 768, 3072},
                                    {50, 512, 128},      {16, 3072, 768},      {16, 4096, 4096},
                                    {4, 4096, 4096},     {7, 33, 65},          {1, 1000, 1024},
                                    {1, 4096, 4096}};

std::string name_of(const char* kernel, const Product& size) {
  return std::string(kernel) + "/" + std::to_string(size.rows) + "x" +
         std::to_string(size.columns) + "x" + std::to_string(size.depth);
}

double operations_of(const Product& size) { return 2.0 * size.rows * size.columns * size.depth; }

// Some of the results, exact; b is [columns, depth].
void check(const std::string& name, const Product& size, const std::vector<float>& a,
           const std::vector<float>& b, const float* found) {
  for (size_t at = 0; at < size_t{size.rows} * size.columns; at += 997) {
    test::Sum sum;
    for (size_t k = 0; k < size.depth; ++k) {
      sum.add(double{a[at / size.columns * size.depth + k]} *
              b[at % size.columns * size.depth + k]);
    }
    if (std::abs(found[at] - sum.value) > sum.bound()) throw std::runtime_error(name + ": wrong");
  }
}

void run_matmul(benchmark::State& state, const kernel::MatMulRow& row, const Product& size) {
  const auto info = std::make_shared<runtime::MatMulInfo>();
  info->transpose_b = true;
  const std::vector<float> a = test::Random(1).floats(size_t{size.rows} * size.depth);
  const std::vector<float> b = test::Random(2).floats(size_t{size.columns} * size.depth);
  ConfiguredKernel layer(row.name, info);
  layer.add_floats({size.rows, size.depth}, runtime::LayoutType::FLEXIABLE, a);
  layer.add_floats({size.columns, size.depth}, runtime::LayoutType::FLEXIABLE, b);
  layer.pass();
  check(row.name, size, a, b, layer.output<const float>().data());
  time_computing(state, layer, operations_of(size), fused_limit());
}

void run_dense(benchmark::State& state, const kernel::DenseRow& row, const Product& size) {
  const auto info = std::make_shared<runtime::DenseInfo>();
  info->in_features = size.depth;
  info->out_features = size.columns;
  const std::vector<float> a = test::Random(1).floats(size_t{size.rows} * size.depth);
  const std::vector<float> b = test::Random(2).floats(size_t{size.columns} * size.depth);
  info->weight = test::weight_text(b);
  ConfiguredKernel layer(row.name, info);
  layer.add_floats({size.rows, size.depth}, runtime::LayoutType::FLEXIABLE, a);
  layer.pass();
  check(row.name, size, a, b, layer.output<const float>().data());
  // All weights are read for two operations of each row.
  double limit = fused_limit();
  if (size.rows <= 16) {
    limit = std::min(limit, read_limit(layer.width(), b.data(), b.size()) * size.rows / 2);
  }
  time_computing(state, layer, operations_of(size), limit);
}

std::shared_ptr<runtime::LayerInfo> described(const kernel::ElementFunctionRow& row) {
  if (row.description == kernel::FunctionDescription::activation) {
    return std::make_shared<runtime::ActivationInfo>();
  }
  const auto info = std::make_shared<runtime::ElementFunctionInfo>();
  info->function = static_cast<uint32_t>(row.function);
  return info;
}

void run_moving(benchmark::State& state, const char* name,
                const std::shared_ptr<runtime::LayerInfo>& info) {
  ConfiguredKernel layer(name, info);
  const std::vector<float> values = test::Random(1).floats(size_t{kPlaces} * 768, 4.0f);
  layer.add_floats({kPlaces, 768}, runtime::LayoutType::FLEXIABLE, values);
  layer.pass();
  time_transforming(state, layer);
  report_rate(state, "elem/ns", static_cast<double>(values.size()));
}

// The end of a residual block.
void run_sum(benchmark::State& state, const char* name) {
  ConfiguredKernel layer(name, std::make_shared<runtime::ElementWiseOperatorInfo>());
  for (const uint32_t seed : {1u, 2u}) {
    layer.add_floats({8, 56, 56, 8}, runtime::LayoutType::C8HW8,
                     test::Random(seed).floats(size_t{64} * 56 * 56));
  }
  layer.pass();
  time_transforming(state, layer);
}

// Where squeeze-and-excite begins.
void run_average(benchmark::State& state, const char* name) {
  const auto info = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
  info->output_size = {1, 1};
  ConfiguredKernel layer(name, info);
  const std::vector<float> values = test::Random(1).floats(size_t{480} * 14 * 14);
  layer.add_floats({60, 14, 14, 8}, runtime::LayoutType::C8HW8, values);
  layer.pass();
  // One sum for each number that is read.
  const double limit = read_limit(layer.width(), values.data(), values.size()) / sizeof(float);
  time_computing(state, layer, static_cast<double>(values.size()), limit);
}

// Mean over the last axis, or over the one before.
void run_reduction(benchmark::State& state, const char* name, int32_t axis) {
  const auto info = std::make_shared<runtime::AxisReductionInfo>();
  info->function = static_cast<uint32_t>(runtime::AxisReduction::Mean);
  info->axes = {axis};
  ConfiguredKernel layer(name, info);
  const std::vector<float> values = test::Random(1).floats(size_t{kPlaces} * 768);
  layer.add_floats({kPlaces, 768}, runtime::LayoutType::FLEXIABLE, values);
  layer.pass();
  const double limit = read_limit(layer.width(), values.data(), values.size()) / sizeof(float);
  time_computing(state, layer, static_cast<double>(values.size()), limit);
}

// The end of a network that says what every pixel is.
void run_resize(benchmark::State& state, const char* name) {
  const auto info = std::make_shared<runtime::ResizeInfo>();
  info->mode = static_cast<uint32_t>(runtime::ResizeMode::Linear);
  info->sizes = {21, 224, 224};
  ConfiguredKernel layer(name, info);
  layer.add_floats({21, 28, 28}, runtime::LayoutType::CHW,
                   test::Random(1).floats(size_t{21} * 28 * 28));
  layer.pass();
  time_transforming(state, layer);
}

// Between the levels of a pyramid of pictures.
void run_block_resize(benchmark::State& state, const char* name) {
  const auto info = std::make_shared<runtime::ResizeInfo>();
  info->mode = static_cast<uint32_t>(runtime::ResizeMode::Linear);
  info->sizes = {64, 50, 50};
  ConfiguredKernel layer(name, info);
  layer.add_floats({8, 28, 28, 8}, runtime::LayoutType::C8HW8,
                   test::Random(1).floats(size_t{64} * 28 * 28));
  layer.pass();
  time_transforming(state, layer);
}

// How the second of two tensors spreads over the first.
struct Pattern {
  const char* name;
  std::vector<uint32_t> first;
  std::vector<uint32_t> second;
  runtime::LayoutType layout = runtime::LayoutType::FLEXIABLE;
};

const Pattern kPatterns[] = {
    {"64x56x56_and_same", {64, 56, 56}, {64, 56, 56}},
    {"64x56x56_and_64x1x1", {64, 56, 56}, {64, 1, 1}},
    {"64x56x56_and_56x56", {64, 56, 56}, {56, 56}},
    {"64x56x56_and_56", {64, 56, 56}, {56}},
    {"197x768_and_768", {197, 768}, {768}},
    {"12544x16_and_16", {12544, 16}, {16}},
    {"12544x16_and_12544x1", {12544, 16}, {12544, 1}},
    {"8x56x56x8_and_8x1x1x8", {8, 56, 56, 8}, {8, 1, 1, 8}, runtime::LayoutType::C8HW8},
};

void run_binary(benchmark::State& state, const char* name, const Pattern& pattern) {
  ConfiguredKernel layer(name, std::make_shared<runtime::BinaryFunctionInfo>());
  for (const auto* dims : {&pattern.first, &pattern.second}) {
    layer.add_floats(*dims, pattern.layout, test::Random(1).floats(kernel::axes::count_of(*dims)));
  }
  layer.pass();
  time_transforming(state, layer);
}

// A layer of 128 inputs and 256 hidden values over 50 steps.
void run_sequence(benchmark::State& state, const char* name) {
  test::RecurrentCase layer;
  layer.network = test::network_of(name);
  layer.ins = 128;
  layer.hidden = 256;
  layer.steps = 50;
  layer.fill(1);
  ConfiguredKernel sequence(name, test::sequence_description(layer));
  sequence.add_floats({layer.steps, layer.ins}, runtime::LayoutType::SC, layer.input);
  sequence.pass();
  const auto expected = test::RecurrentOracle(layer).run(layer.input);
  const auto values = sequence.output<const float>();
  const std::string fault = test::first_beyond({values.begin(), values.end()}, expected);
  if (!fault.empty()) throw std::runtime_error(std::string(name) + ": " + fault);
  const double weights = static_cast<double>(test::gates_of(layer.network)) * layer.hidden *
                         (layer.ins + layer.hidden);
  time_computing(state, sequence, 2 * weights * layer.steps, fused_limit());
  report_peer(state, sequence, onednn_recurrent(layer));
}

void register_products() {
  for (const auto* row : kernel::matmul_rows) {
    if (!can_run(row->name)) continue;
    for (const Product& size : kProducts) {
      benchmark::RegisterBenchmark(
          name_of(row->name, size).c_str(),
          [row, &size](benchmark::State& state) { run_matmul(state, *row, size); });
    }
  }
  for (const auto* row : kernel::dense_rows) {
    if (!can_run(row->name) || row->is_full_connection) continue;
    for (const Product& size : kConnections) {
      benchmark::RegisterBenchmark(
          name_of(row->name, size).c_str(),
          [row, &size](benchmark::State& state) { run_dense(state, *row, size); });
    }
  }
}

void register_moving(const char* name, const std::shared_ptr<runtime::LayerInfo>& info) {
  if (!can_run(name)) return;
  benchmark::RegisterBenchmark(
      (std::string(name) + "/197x768").c_str(),
      [name, info](benchmark::State& state) { run_moving(state, name, info); });
}

void register_reduction(const char* name) {
  if (!can_run(name)) return;
  for (const int32_t axis : {0, 1}) {
    benchmark::RegisterBenchmark(
        (std::string(name) + "/197x768_over_" + std::to_string(axis)).c_str(),
        [name, axis](benchmark::State& state) { run_reduction(state, name, axis); });
  }
}

void register_resize(const kernel::ResizeRow& row) {
  const char* const name = row.name;
  if (!can_run(name)) return;
  benchmark::RegisterBenchmark((std::string(name) + "/21x28x28_to_224x224").c_str(),
                               [name](benchmark::State& state) { run_resize(state, name); });
  if (!row.takes_blocks) return;
  benchmark::RegisterBenchmark((std::string(name) + "/64x28x28_to_50x50_in_blocks").c_str(),
                               [name](benchmark::State& state) { run_block_resize(state, name); });
}

void register_binary(const char* name) {
  if (!can_run(name)) return;
  for (const Pattern& pattern : kPatterns) {
    benchmark::RegisterBenchmark(
        (std::string(name) + "/" + pattern.name).c_str(),
        [name, &pattern](benchmark::State& state) { run_binary(state, name, pattern); });
  }
}

const bool registered = [] {
  register_products();
  for (const auto* row : kernel::element_function_rows) {
    if (row->input_use == runtime::InputUse::reads) register_moving(row->name, described(*row));
  }
  for (const auto* row : kernel::axis_softmax_rows) {
    if (row->input_use != runtime::InputUse::reads) continue;
    register_moving(row->name, std::make_shared<runtime::AxisSoftmaxInfo>());
  }
  for (const auto* row : kernel::layer_norm_rows) {
    register_moving(row->name, std::make_shared<runtime::LayerNormInfo>());
  }
  for (const auto* row : kernel::rectified_sum_rows) {
    const char* const name = row->name;
    if (!can_run(name)) continue;
    benchmark::RegisterBenchmark((std::string(name) + "/64x56x56").c_str(),
                                 [name](benchmark::State& state) { run_sum(state, name); });
  }
  for (const auto* row : kernel::block_average_rows) {
    const char* const name = row->name;
    if (!can_run(name)) continue;
    benchmark::RegisterBenchmark((std::string(name) + "/480x14x14").c_str(),
                                 [name](benchmark::State& state) { run_average(state, name); });
  }
  for (const auto* row : kernel::axis_reduction_rows) register_reduction(row->name);
  for (const auto* row : kernel::resize_rows) register_resize(*row);
  for (const auto* row : kernel::binary_rows) register_binary(row->name);
  for (const auto* row : kernel::wide_sequence_rows) {
    const char* const name = row->name;
    if (!can_run(name)) continue;
    benchmark::RegisterBenchmark((std::string(name) + "/128-256x50").c_str(),
                                 [name](benchmark::State& state) { run_sequence(state, name); })
        ->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace

#endif

}  // namespace marlo::bench
