#include <algorithm>

#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/pooling_info.h"
#include "qrt_core/runtime/model/shape_info.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/differential/operation.h"
#include "tests/support/numbers.h"

// Kernels that move numbers, and those that are alone in their operation: they have nothing to be
// compared with but their own second run, and, where they only move, what they were given.

namespace marlo::test {

using runtime::BlockSize;
using runtime::LayoutType;

namespace {

constexpr LayoutType kLayouts[] = {LayoutType::CHW, LayoutType::C4HW4, LayoutType::C8HW8};

PlanarTensor choose_planes(Choices& choices) {
  PlanarTensor planes;
  const uint32_t channels = choices.yes() ? 8 * choices.size(1, 4) : choices.size(1, 12);
  planes.dims = {channels, choices.size(1, 11), choices.size(1, 13)};
  planes.values = special_numbers(choices.seed(), count_of(planes.dims));
  return planes;
}

class LayoutTransforms final : public Operation {
 public:
  std::vector<std::string> families() const override { return {"layouttransform"}; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    const PlanarTensor planes = choose_planes(choices);
    const Setting setting{nullptr, nullptr, {planes}};
    for (const std::string& kernel : kernels) {
      for (const LayoutType layout : kLayouts) {
        const Outcome outcome = run_kernel(kernel, setting, layout);
        if (!outcome.ran && outcome.refusal.empty()) continue;
        if (planes.channels() % BlockSize(layout) != 0) continue;
        expect_agreement(kernel, outcome, {planes.dims, planes.values, {}},
                         std::to_string(planes.channels()) + " channels");
      }
    }
  }
};

/// A layer for a kernel that is alone, or one of several that take the same description.
struct Single {
  std::vector<std::string> families;
  Setting (*setting)(Choices& choices);
  bool keeps_elements = false;  ///< the elements come out in the order of the planes
};

int16_t small(uint32_t size) { return static_cast<int16_t>(size); }

template <typename Info>
Setting setting_of(const std::shared_ptr<Info>& info, std::vector<PlanarTensor> inputs) {
  return {info, nullptr, std::move(inputs)};
}

Setting reshape(Choices& choices) {
  auto info = std::make_shared<runtime::TensorReshapeInfo>();
  PlanarTensor planes = choose_planes(choices);
  const uint32_t all = static_cast<uint32_t>(planes.values.size());
  switch (choices.below(4)) {
    case 0:
      info->new_shape = {1, -1};
      break;
    case 1:
      info->new_shape = {1, small(planes.dims[0]), -1};
      break;
    case 2:
      info->new_shape = {1, -1, small(planes.dims[2]), small(planes.dims[1])};
      break;
    default:
      info->new_shape = {choices.one_of<int16_t>({1, -1}), small(all / 2 + 1)};
  }
  if (choices.rarely(3)) {
    planes.dims = {planes.dims[0], planes.dims[1] * planes.dims[2]};
    planes.layout = LayoutType::CL;
  }
  return setting_of(info, {planes});
}

Setting permute(Choices& choices) {
  auto info = std::make_shared<runtime::TensorTransposeInfo>();
  info->axes = {0, 1, 2};
  std::swap(info->axes[choices.below(3)], info->axes[choices.below(3)]);
  std::swap(info->axes[choices.below(3)], info->axes[choices.below(3)]);
  return setting_of(info, {choose_planes(choices)});
}

Setting unsqueeze(Choices& choices) {
  auto info = std::make_shared<runtime::TensorUnSqueezeInfo>();
  info->type = 16;
  info->dim = static_cast<int16_t>(choices.between(-4, 5));
  return setting_of(info, {choose_planes(choices)});
}

Setting concatenate(Choices& choices) {
  auto info = std::make_shared<runtime::ConcatenateInfo>();
  info->dim = static_cast<uint16_t>(choices.below(4));
  std::vector<PlanarTensor> inputs;
  const PlanarTensor first = choose_planes(choices);
  for (uint32_t i = choices.size(1, 4); i-- > 0;) {
    PlanarTensor next = first;
    const uint32_t axis = choices.yes() || info->dim == 0 ? 0 : (info->dim - 1u) % 3;
    next.dims[axis] *= choices.size(1, 2);
    next.values = special_numbers(choices.seed(), count_of(next.dims));
    inputs.push_back(std::move(next));
  }
  return setting_of(info, std::move(inputs));
}

Setting slice(Choices& choices) {
  auto info = std::make_shared<runtime::TensorSliceInfo>();
  const PlanarTensor planes = choose_planes(choices);
  for (const uint32_t size : planes.dims) {
    const int start = choices.between(0, static_cast<int>(size) - 1);
    const int end =
        choices.between(start + 1, static_cast<int>(size) + (choices.rarely(8) ? 1 : 0));
    for (const int number : {start, end, choices.between(1, 3)}) {
      info->slice_dims.push_back(static_cast<int16_t>(number));
    }
  }
  return setting_of(info, {planes});
}

Setting placeholder(Choices& choices) {
  auto info = std::make_shared<runtime::LayerPlaceholderInfo>();
  for (int i = choices.between(0, 4); i-- > 0;) {
    info->output_shape.push_back(static_cast<uint16_t>(choices.size(1, 9)));
  }
  return setting_of(info, {choose_planes(choices)});
}

Setting pass_through(Choices& choices) {
  return setting_of(std::make_shared<runtime::InputInfo>(), {choose_planes(choices)});
}

Setting adaptive_pooling(Choices& choices) {
  auto info = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
  info->output_size = {static_cast<uint16_t>(choices.size(1, 14)),
                       static_cast<uint16_t>(choices.size(1, 14))};
  return setting_of(info, {choose_planes(choices)});
}

Setting grid_sample(Choices& choices) {
  auto info = std::make_shared<runtime::GridSampleInfo>();
  info->mode = static_cast<uint16_t>(choices.below(2));
  info->padding_mode = static_cast<uint16_t>(choices.below(2));
  info->align_corners = choices.yes();
  PlanarTensor grid{{choices.size(1, 9), choices.size(1, 9), 2}, LayoutType::CHW, {}};
  const uint32_t seed = choices.seed();
  grid.values = choices.yes() ? special_numbers(seed, count_of(grid.dims))
                              : Random(seed).floats(count_of(grid.dims), 1.5f);
  return setting_of(info, {choose_planes(choices), grid});
}

Setting softmax(Choices& choices) {
  auto info = std::make_shared<runtime::SoftmaxInfo>();
  info->dim = static_cast<uint16_t>(choices.below(5));
  return setting_of(info, {choose_planes(choices)});
}

Setting reduction(Choices& choices) {
  auto info = std::make_shared<runtime::TensorArithmeticInfo>();
  info->arith_type = static_cast<uint16_t>(choices.below(2));
  for (int i = choices.between(0, 3); i-- > 0;) {
    info->dim.push_back(static_cast<int16_t>(choices.between(-2, 4)));
  }
  return setting_of(info, {choose_planes(choices)});
}

const std::vector<Single>& singles() {
  static const std::vector<Single> all = {
      {{"reshape", "transform"}, reshape, false},
      {{"transform"}, permute, false},
      {{"unsqueeze"}, unsqueeze, true},
      {{"concatenate"}, concatenate, false},
      {{"slice"}, slice, false},
      {{"layerplaceholder"}, placeholder, false},
      {{"input", "straight"}, pass_through, true},
      {{"adaptivepooling2d"}, adaptive_pooling, false},
      {{"gridsample"}, grid_sample, false},
      {{"softmax"}, softmax, false},
      {{"tensorarithmetic"}, reduction, false},
  };
  return all;
}

class SingleKernels final : public Operation {
 public:
  std::vector<std::string> families() const override {
    std::vector<std::string> names;
    for (const Single& single : singles()) {
      names.insert(names.end(), single.families.begin(), single.families.end());
    }
    return names;
  }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    const Single& single = singles()[choices.below(static_cast<uint32_t>(singles().size()))];
    const Setting setting = single.setting(choices);
    for (const std::string& kernel : kernels) {
      const auto& families = single.families;
      if (std::count(families.begin(), families.end(), family_of(kernel)) == 0) continue;
      run_single(kernel, single, setting);
    }
  }

 private:
  static void run_single(const std::string& kernel, const Single& single, const Setting& setting) {
    const PlanarTensor& input = setting.inputs[0];
    for (const LayoutType layout : {input.layout, LayoutType::C4HW4, LayoutType::C8HW8}) {
      if (input.channels() % BlockSize(layout) != 0) continue;
      if (input.dims.size() != 3 && layout != input.layout) continue;
      const Outcome outcome = run_kernel(kernel, setting, layout);
      if (!outcome.ran || !outcome.has_output) continue;
      Expectation expected{outcome.shape.dims, {}, {}};
      // What is moved as it stands, and what nothing but the kernel itself says.
      const bool moves = single.keeps_elements || has_part(kernel, "_To_");
      const bool gathers = has_part(kernel, "_CnHWn_To_");
      if (!moves) {
        count_run(kernel);
        continue;
      }
      expected.values = gathers ? input.values : to_layout(input.values, input.channels(), layout);
      expected.values.resize(outcome.values.size());
      Outcome flat = outcome;
      flat.shape.layout = LayoutType::FLEXIABLE;
      expect_agreement(kernel, flat, expected, std::to_string(input.values.size()) + " elements");
    }
  }
};

}  // namespace

std::unique_ptr<Operation> layout_transforms() { return std::make_unique<LayoutTransforms>(); }
std::unique_ptr<Operation> single_kernels() { return std::make_unique<SingleKernels>(); }

}  // namespace marlo::test
