#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "qrt_core/kernel/layout/expand.h"
#include "qrt_core/runtime/model/layers.h"
#include "tests/support/blocked_layout.h"

// Kernels that move numbers and compute nothing, on 64 channels of 56 by 56, and those that hand
// their inputs on, whose time is that of a call.

namespace marlo::bench {
namespace {

using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Numbers = std::vector<float>;

constexpr uint32_t kChannels = 64;
constexpr uint32_t kSize = 56;
constexpr size_t kPlane = size_t{kSize} * kSize;

// 0, 1, 2, ...: each element says where it came from.
Numbers counted(size_t count) {
  Numbers numbers(count);
  std::iota(numbers.begin(), numbers.end(), 0.0f);
  return numbers;
}

const Dims& picture_dims() {
  static const Dims dims = {kChannels, kSize, kSize};
  return dims;
}

Numbers picture() { return counted(kChannels * kPlane); }

template <typename Info>
std::shared_ptr<Info> layer(const std::function<void(Info&)>& describe = nullptr) {
  auto info = std::make_shared<Info>();
  if (describe) describe(*info);
  return info;
}

std::shared_ptr<runtime::LayerInfo> reshape(std::vector<int16_t> shape) {
  return layer<runtime::TensorReshapeInfo>([&](auto& info) { info.new_shape = shape; });
}

/// A move of one picture.
struct Move {
  const char* kernel;
  LayoutType from;
  std::shared_ptr<runtime::LayerInfo> info;
  std::function<Numbers(const Numbers&)> result;  ///< as it stands in memory
};

Numbers as_it_stands(const Numbers& numbers) { return numbers; }

// Height and width exchanged.
Numbers transposed(const Numbers& planes) {
  Numbers result;
  for (size_t c = 0; c < kChannels; ++c) {
    for (size_t x = 0; x < kSize; ++x) {
      for (size_t y = 0; y < kSize; ++y) result.push_back(planes[c * kPlane + y * kSize + x]);
    }
  }
  return result;
}

// All rows but the first and the last.
Numbers sliced(const Numbers& planes) {
  Numbers result;
  for (size_t c = 0; c < kChannels; ++c) {
    const auto plane = planes.begin() + static_cast<std::ptrdiff_t>(c * kPlane);
    result.insert(result.end(), plane + kSize, plane + static_cast<std::ptrdiff_t>(kPlane - kSize));
  }
  return result;
}

std::vector<Move> moves() {
  const auto permute = layer<runtime::TensorTransposeInfo>([](auto& info) {
    info.axes = {0, 2, 1};
  });
  const auto slice = layer<runtime::TensorSliceInfo>(
      [](auto& info) { info.slice_dims = {0, kChannels, 1, 1, kSize - 1, 1, 0, kSize, 1}; });
  const auto unsqueeze = layer<runtime::TensorUnSqueezeInfo>([](auto& info) { info.dim = 0; });
  return {
      {"Reshape_Fallback_To_C_M1", LayoutType::CHW, reshape({1, -1}), as_it_stands},
      {"Reshape_Fallback_To_SC_M1", LayoutType::CHW, reshape({1, kChannels, -1}), as_it_stands},
      {"Reshape_Fallback_To_CHW_M1", LayoutType::CHW, reshape({1, -1, kSize, kSize / 2}),
       as_it_stands},
      {"Reshape_Fallback_CL_To_CHW_M1", LayoutType::CHW, reshape({1, -1, kSize, kSize}),
       as_it_stands},
      {"Reshape_Fallback_CnHWn_To_C_M1", LayoutType::C8HW8, reshape({1, -1}), as_it_stands},
      {"Reshape_Fallback_CnHWn_To_CL_M1", LayoutType::C8HW8, reshape({1, kChannels, -1}),
       as_it_stands},
      {"Transform_MainMemory_Reshape_Fallback", LayoutType::CHW, reshape({1, kChannels, -1}),
       as_it_stands},
      {"Transform_MainMemory_Permute_Fallback", LayoutType::CHW, permute, transposed},
      {"UnSqueeze_Fallback_M1", LayoutType::CHW, unsqueeze, as_it_stands},
      {"Slice_Fallback_CHW_Float_M1", LayoutType::CHW, slice, sliced},
  };
}

void run_move(benchmark::State& state, const Move& move) {
  ConfiguredKernel kernel(move.kernel, move.info);
  kernel.add_planes(picture_dims(), move.from, picture());
  kernel.pass();
  demand_numbers(move.kernel, kernel.output<const float>(), move.result(picture()));
  time_moving(state, kernel);
}

// Two pictures, one behind the other.
void run_concatenate(benchmark::State& state, const char* name, uint16_t axis, LayoutType layout) {
  const auto info =
      layer<runtime::ConcatenateInfo>([axis](auto& description) { description.dim = axis; });
  ConfiguredKernel kernel(name, info);
  Numbers both = counted(2 * kChannels * kPlane);
  const auto middle = both.begin() + static_cast<std::ptrdiff_t>(both.size() / 2);
  kernel.add_planes(picture_dims(), layout, {both.begin(), middle});
  kernel.add_planes(picture_dims(), layout, {middle, both.end()});
  kernel.pass();
  demand_numbers(name, kernel.output_planes(2 * kChannels), both);
  time_moving(state, kernel);
}

// One number for each channel to a plane of it.
void run_expand(benchmark::State& state, const kernel::ExpandRow& row) {
  const auto info = layer<runtime::TensorExpandInfo>([&row](auto& description) {
    description.new_shape = {1, static_cast<int16_t>(kChannels / row.block), kSize, kSize};
    if (row.block != 1) description.new_shape.push_back(static_cast<int16_t>(row.block));
  });
  ConfiguredKernel kernel(row.name, info);
  kernel.add_planes({kChannels, 1, 1}, row.layout, counted(kChannels));
  kernel.pass();
  Numbers expected;
  for (uint32_t c = 0; c < kChannels; ++c) {
    expected.insert(expected.end(), kPlane, static_cast<float>(c));
  }
  demand_numbers(row.name, kernel.output_planes(kChannels), expected);
  time_moving(state, kernel);
}

// The number that stands for a layer without a kernel.
void run_placeholder(benchmark::State& state, const char* name) {
  const auto info = layer<runtime::LayerPlaceholderInfo>([](auto& description) {
    description.output_shape = {kChannels, kSize, kSize};
  });
  ConfiguredKernel kernel(name, info);
  kernel.add_planes({1, 1, 1}, LayoutType::CHW, {1.0f});
  kernel.pass();
  demand_numbers(name, kernel.output<const float>(), Numbers(kChannels * kPlane, 128.0f));
  time_moving(state, kernel);
}

// The time of a call: nothing is moved.
void run_hand_on(benchmark::State& state, const char* name,
                 const std::shared_ptr<runtime::LayerInfo>& info) {
  ConfiguredKernel kernel(name, info);
  kernel.add_planes(picture_dims(), LayoutType::CHW, picture());
  kernel.pass();
  if (kernel.output<float>().data() != kernel.input<float>().data()) {
    throw std::runtime_error(std::string(name) + " doesn't hand its input on");
  }
  for (auto _ : state) kernel.pass();
}

const bool registered = [] {
  const auto name_of = [](const char* kernel) { return std::string(kernel) + "/forward/64x56x56"; };
  for (const Move& move : moves()) {
    benchmark::RegisterBenchmark(name_of(move.kernel).c_str(), run_move, move);
  }
  struct Concatenation {
    const char* kernel;
    uint16_t axis;  // one counts a batch, the other none
    LayoutType layout;
  };
  for (const auto& [kernel, axis, layout] :
       {Concatenation{"Concatenate_C_Fallback_CnHWn_M1", 1, LayoutType::C8HW8},
        Concatenation{"Concatenate_MainMemory_Fallback", 0, LayoutType::CHW}}) {
    benchmark::RegisterBenchmark(name_of(kernel).c_str(), run_concatenate, kernel, axis, layout);
  }
  for (const kernel::ExpandRow* row : kernel::expand_rows) {
    if (!can_run(row->name)) continue;
    benchmark::RegisterBenchmark(name_of(row->name).c_str(), run_expand, *row);
  }
  constexpr char kPlaceholder[] = "LayerPlaceholder_Fallback_Float_M1";
  benchmark::RegisterBenchmark(name_of(kPlaceholder).c_str(), run_placeholder, kPlaceholder);
  const auto pass_through = layer<runtime::InputInfo>();
  for (const char* kernel : {"Input_Fallback_M1", "Straight_Through_Fallback_M1"}) {
    benchmark::RegisterBenchmark((std::string(kernel) + "/overhead").c_str(), run_hand_on, kernel,
                                 pass_through);
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
