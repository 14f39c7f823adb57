#include "qrt_core/kernel/conv/steps/convolution_facts.h"

#include <utility>

#include "qrt_core/kernel/conv/steps/weights.h"

namespace marlo::kernel {

using runtime::BlockSize;
using runtime::DataType;
using runtime::LayoutType;
using runtime::Misfit;
using runtime::TensorShape;

namespace {

using Misfits = std::vector<Misfit>;

std::string name_of(DataType type) {
  const char* const name = runtime::PrintedName(type);
  return name == nullptr ? "type " + std::to_string(static_cast<uint32_t>(type)) : name;
}

std::string name_of(LayoutType layout) {
  const char* const name = runtime::PrintedName(layout);
  return name == nullptr ? "layout " + std::to_string(static_cast<uint32_t>(layout)) : name;
}

std::string counted(uint64_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// A blocked tensor's channels are those of all its blocks.
std::string channels_of(const TensorShape& shape, uint32_t block) {
  if (shape.dims.empty()) return "no dims";
  if (block == 1) return counted(shape.dims[0], "channel");
  if (shape.dims.size() != 4) return counted(shape.dims.size(), "dim");
  return counted(uint64_t{shape.dims[0]} * shape.dims[3], "channel");
}

void add_block_difference(const char* member, uint32_t channels, LayoutType layout,
                          Misfits& misfits) {
  const uint32_t block = BlockSize(layout);
  if (channels % block == 0) return;
  misfits.push_back({member, "a multiple of " + std::to_string(block) + ", for " + name_of(layout),
                     std::to_string(channels)});
}

}  // namespace

Misfits missing_numbers(const char* member, const std::string& text,
                        const std::vector<uint32_t>& dims) {
  const uint64_t found = numbers_in(text);
  if (holds(found, dims)) return {};
  std::string wanted;
  for (const uint32_t size : dims) {
    wanted += (wanted.empty() ? "" : " x ") + std::to_string(size);
  }
  return {{member, wanted + " numbers", std::to_string(found)}};
}

Misfits input_misfits(const ConvolutionSide& side, DataType type, uint32_t channels,
                      size_t planar_dims, const std::vector<TensorShape>& inputs) {
  if (inputs.size() != 1) return {{"inputs", "1", std::to_string(inputs.size())}};
  const TensorShape& input = inputs[0];
  Misfits misfits;
  const auto add = [&misfits](std::string expected, std::string found) {
    misfits.push_back({"input 0", std::move(expected), std::move(found)});
  };
  if (input.location != runtime::LocationType::MainMemory) add("main memory", "another location");
  const bool right_type =
      input.data_type == type || (side.passes_half && input.data_type == DataType::FLOAT16);
  if (!right_type) add(name_of(type), name_of(input.data_type));
  if (input.layout != side.layout) add(name_of(side.layout), name_of(input.layout));
  if (!misfits.empty()) return misfits;
  const uint32_t block = BlockSize(side.layout);
  const std::string wanted = counted(channels, "channel");
  const std::string found = channels_of(input, block);
  if (side.tests_channels && wanted != found) add(wanted, found);
  if (misfits.empty() && input.dims.size() != planar_dims + (block > 1 ? 1 : 0)) {
    add(counted(planar_dims + (block > 1 ? 1 : 0), "dim"), counted(input.dims.size(), "dim"));
  }
  return misfits;
}

Misfits channel_differences(Computes computes, LayoutType input, LayoutType output,
                            const Conv2dParams& p) {
  Misfits misfits;
  const std::string groups = std::to_string(p.groups);
  if (computes == Computes::filter_per_channel) {
    if (p.in_channels != p.out_channels) {
      misfits.push_back({"in_channels, out_channels", "two equal numbers, one filter for each",
                         std::to_string(p.in_channels) + ", " + std::to_string(p.out_channels)});
    } else if (p.groups != p.in_channels) {
      misfits.push_back(
          {"groups", std::to_string(p.in_channels) + ", one for each channel", groups});
    }
  } else if (computes == Computes::first_group && p.groups != 1) {
    misfits.push_back({"groups", "1", groups});
  } else if (p.groups != 0 && (p.in_channels % p.groups != 0 || p.out_channels % p.groups != 0)) {
    misfits.push_back({"groups",
                       "a divisor of " + std::to_string(p.in_channels) + " and " +
                           std::to_string(p.out_channels) + " channels",
                       groups});
  }
  add_block_difference("in_channels", p.in_channels, input, misfits);
  add_block_difference("out_channels", p.out_channels, output, misfits);
  return misfits;
}

}  // namespace marlo::kernel
