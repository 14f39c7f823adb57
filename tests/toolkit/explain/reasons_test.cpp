#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "bench/support/shapes.h"
#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_toolkit/assign/form.h"
#include "qrt_toolkit/assign/kernel_set.h"
#include "qrt_toolkit/assign/trial.h"
#include "qrt_toolkit/tune/refusals.h"
#include "tests/support/kernels.h"
#include "tests/support/pace.h"

// Reasons are true: where a kernel refuses a layer, changing what its reasons name makes it accept,
// and leaving any of them as it is doesn't.

namespace marlo::toolkit::test {
namespace {

using bench::ConvShape;
using marlo::test::all_kernels;
using runtime::IKernelFacts;
using runtime::Misfit;
using runtime::TensorShape;

/// The text of so many zeros.
std::string zeros(uint64_t count) {
  const uint64_t bytes = count * sizeof(float);
  std::string text((bytes + 2) / 3 * 4, 'A');
  const uint64_t missing = (3 - bytes % 3) % 3;
  std::fill(text.end() - static_cast<std::ptrdiff_t>(missing), text.end(), '=');
  return text;
}

std::vector<uint32_t> numbers_of_text(const std::string& text) {
  std::vector<uint32_t> numbers;
  std::istringstream stream(text);
  for (std::string word; stream >> word;) {
    if (std::isdigit(static_cast<unsigned char>(word[0])) == 0) continue;
    numbers.push_back(static_cast<uint32_t>(std::strtoul(word.c_str(), nullptr, 10)));
  }
  return numbers;
}

uint32_t next_multiple(uint32_t number, uint32_t of) { return (number + of - 1) / of * of; }

/// A description that can be changed by the names of its members.
class Layer {
 public:
  explicit Layer(const ConvShape& shape) : shape_(shape) {
    // Fewer channels of the same kind, so that weights are short.
    auto& sizes = shape_.sizes;
    while (sizes.in_channels % 16 == 0 && sizes.out_channels % 16 == 0 &&
           sizes.weight_size() > 20000) {
      if (sizes.groups == sizes.in_channels) sizes.groups /= 2;
      sizes.in_channels /= 2;
      sizes.out_channels /= 2;
    }
  }

  /// @return whether the reason names something that can be changed
  bool change(const Misfit& misfit) {
    const std::vector<uint32_t> wanted = numbers_of_text(misfit.expected);
    auto& s = shape_.sizes;
    const std::string& member = misfit.member;
    const bool is_line = shape_.kind == ConvShape::Kind::line;
    const auto set = [&](uint32_t& y, uint32_t& x) {
      if (wanted.empty()) return false;
      if (is_line) x = wanted[0];
      if (!is_line) y = wanted[0], x = wanted.at(1);
      return true;
    };
    if (member == "kernel_y, kernel_x" || member == "kernel_size")
      return set(s.kernel_y, s.kernel_x);
    if (member == "stride_y, stride_x" || member == "stride") return set(s.stride_y, s.stride_x);
    if (member == "dilation_y, dilation_x" || member == "dilation") {
      return set(s.dilation_y, s.dilation_x);
    }
    if (wanted.empty()) return member == "groups" && make_groups_one(misfit);
    if (member == "padding_l, padding_r, padding_t, padding_b") {
      // "1, 1, 0, 0"
      s.padding_l = static_cast<int>(wanted[0]);
      s.padding_r = static_cast<int>(wanted.at(1));
      s.padding_t = static_cast<int>(wanted.at(2));
      s.padding_b = static_cast<int>(wanted.at(3));
      return true;
    }
    const bool is_multiple = misfit.expected.find("multiple") != std::string::npos;
    if (member == "in_channels" || member == "out_channels") {
      uint32_t& channels = member == "in_channels" ? s.in_channels : s.out_channels;
      channels = is_multiple ? next_multiple(channels, wanted[0]) : wanted[0];
      return true;
    }
    if (member == "groups" && wanted.size() == 1) {
      s.groups = wanted[0];
      return true;
    }
    if (member == "in_channels, out_channels, groups") {
      s.in_channels = next_multiple(s.in_channels, is_multiple ? wanted[0] : 1);
      s.out_channels = s.groups = s.in_channels;
      return true;
    }
    return member == "groups" && make_groups_one(misfit);
  }

  std::shared_ptr<runtime::LayerInfo> info() const {
    if (shape_.kind == ConvShape::Kind::line) return line();
    if (shape_.kind == ConvShape::Kind::plane) return plane<runtime::Conv2dInfo>();
    return plane<runtime::ConvTranspose2dInfo>();
  }

  TensorShape input() const {
    const auto& s = shape_.sizes;
    using runtime::LayoutType;
    if (shape_.kind == ConvShape::Kind::line) {
      return TensorShape({s.in_channels, s.width}, runtime::DataType::FLOAT32, LayoutType::CL);
    }
    return TensorShape({s.in_channels, s.height, s.width}, runtime::DataType::FLOAT32,
                       LayoutType::CHW);
  }

 private:
  bool make_groups_one(const Misfit& misfit) {
    if (misfit.expected.rfind("1 or more", 0) != 0 && misfit.expected != "at least 1") return false;
    shape_.sizes.groups = 1;
    return true;
  }

  template <typename Info>
  std::shared_ptr<runtime::LayerInfo> plane() const {
    auto info = std::make_shared<Info>();
    const auto& s = shape_.sizes;
    const auto as = [](auto& member, auto number) {
      member = static_cast<std::decay_t<decltype(member)>>(number);
    };
    as(info->in_channels, s.in_channels);
    as(info->out_channels, s.out_channels);
    as(info->groups, s.groups);
    as(info->kernel_x, s.kernel_x);
    as(info->kernel_y, s.kernel_y);
    as(info->stride_x, s.stride_x);
    as(info->stride_y, s.stride_y);
    as(info->dilation_x, s.dilation_x);
    as(info->dilation_y, s.dilation_y);
    as(info->padding_l, s.padding_l);
    as(info->padding_r, s.padding_r);
    as(info->padding_t, s.padding_t);
    as(info->padding_b, s.padding_b);
    fill(*info);
    return info;
  }

  std::shared_ptr<runtime::LayerInfo> line() const {
    auto info = std::make_shared<runtime::Conv1dInfo>();
    const auto& s = shape_.sizes;
    info->in_channels = static_cast<uint16_t>(s.in_channels);
    info->out_channels = static_cast<uint16_t>(s.out_channels);
    info->groups = static_cast<uint16_t>(s.groups);
    info->kernel_size = static_cast<uint16_t>(s.kernel_x);
    info->stride = static_cast<uint16_t>(s.stride_x);
    info->dilation = static_cast<uint16_t>(s.dilation_x);
    fill(*info);
    return info;
  }

  template <typename Info>
  void fill(Info& info) const {
    info.if_bias = true;
    info.weight = zeros(uint64_t{shape_.sizes.weight_size()} + shape_.sizes.in_channels);
    info.bias = zeros(shape_.sizes.out_channels);
  }

  ConvShape shape_;
};

/// The reasons of kernels for convolutions that a kernel refuses; empty where it takes the layer or
/// is for others.
std::vector<Misfit> reasons_of(const std::string& kernel, const runtime::LayerInfo& info) {
  const auto made = all_kernels().Create(kernel);
  const auto* facts = dynamic_cast<const IKernelFacts*>(made.get());
  if (facts == nullptr) return {};
  std::vector<Misfit> misfits = facts->refusals(&info, nullptr);
  for (const Misfit& misfit : misfits) {
    // Of another kind, or with a parameter object, which is no quantity.
    if (misfit.member.empty() || misfit.member == "inference parameter") return {};
  }
  return misfits;
}

bool accepts(const std::string& kernel, const std::shared_ptr<runtime::LayerInfo>& info) {
  return all_kernels().Create(kernel)->CheckConfig(info, nullptr) == runtime::KERNEL_OK;
}

std::string words_of(const std::vector<Misfit>& misfits) {
  std::string words;
  for (const Misfit& misfit : misfits) words += reason_text(misfit) + "\n";
  return words;
}

/// The layers of the benchmarks; where everything is slow, some of every kind.
std::vector<ConvShape> layers() {
  constexpr size_t kEvery = 7;
  if (!marlo::test::runs_slowly()) return bench::conv_shapes();
  std::vector<ConvShape> some;
  for (size_t i = 0; i < bench::conv_shapes().size(); i += kEvery) {
    some.push_back(bench::conv_shapes()[i]);
  }
  return some;
}

TEST(Reasons, ChangingWhatTheyNameMakesAKernelAccept) {
  size_t refused = 0;
  std::set<std::string> members;
  for (const ConvShape& shape : layers()) {
    const auto info = Layer(shape).info();
    for (const std::string& kernel : all_kernels().Keys()) {
      const std::vector<Misfit> reasons = reasons_of(kernel, *info);
      if (reasons.empty()) continue;
      EXPECT_FALSE(accepts(kernel, info)) << shape.name << ' ' << kernel;
      ++refused;
      Layer changed(shape);
      for (const Misfit& reason : reasons) {
        members.insert(reason.member);
        EXPECT_TRUE(changed.change(reason)) << kernel << ": " << reason_text(reason);
      }
      EXPECT_TRUE(accepts(kernel, changed.info()))
          << shape.name << ' ' << kernel << '\n'
          << words_of(reasons) << "after these were changed:\n"
          << words_of(reasons_of(kernel, *changed.info()));
    }
  }
  // Most kernels are for other windows or strides, whatever the layer.
  EXPECT_GT(refused, 10 * layers().size());
  EXPECT_GT(members.size(), 4u);
}

TEST(Reasons, EachOfThemHoldsByItself) {
  for (const ConvShape& shape : layers()) {
    const auto info = Layer(shape).info();
    for (const std::string& kernel : all_kernels().Keys()) {
      const std::vector<Misfit> reasons = reasons_of(kernel, *info);
      if (reasons.size() < 2) continue;
      for (size_t left = 0; left < reasons.size(); ++left) {
        Layer changed(shape);
        for (size_t i = 0; i < reasons.size(); ++i) {
          if (i != left) changed.change(reasons[i]);
        }
        EXPECT_FALSE(accepts(kernel, changed.info()))
            << shape.name << ' ' << kernel << " takes it although\n"
            << reason_text(reasons[left]);
      }
    }
  }
}

TEST(Reasons, InputsInTheLayoutThatTheyNameAreTaken) {
  Workshop workshop(all_kernels());
  size_t moved = 0;
  const auto& shapes = bench::conv_shapes();
  for (size_t i = 0; i < shapes.size(); i += 6) {
    const auto info = Layer(shapes[i]).info();
    const TensorShape input = Layer(shapes[i]).input();
    for (const std::string& name : all_kernels().Keys()) {
      if (set_of_kernel(name, runtime::needs_of(name)) > processor_kernels()) continue;
      if (!accepts(name, info)) continue;
      const auto kernel = workshop.configured(name, info);
      const auto* facts = dynamic_cast<const IKernelFacts*>(kernel.get());
      if (facts == nullptr || workshop.made_of(*kernel, {input})) continue;
      const std::vector<Misfit> reasons = facts->input_refusals({input});
      ASSERT_FALSE(reasons.empty()) << name;
      for (const Misfit& reason : reasons) {
        if (reason.found != "CHW") continue;
        const auto layout = reason.expected == "C8HW8"   ? runtime::LayoutType::C8HW8
                            : reason.expected == "C4HW4" ? runtime::LayoutType::C4HW4
                                                         : runtime::LayoutType::FLEXIABLE;
        const TensorShape blocks = in_layout(input, layout);
        // Channels that don't fill blocks can't stand in them.
        if (blocks.dims.empty()) continue;
        EXPECT_TRUE(workshop.made_of(*kernel, {blocks})) << name << ": " << reason_text(reason);
        ++moved;
      }
    }
    workshop.clear();
  }
  EXPECT_GT(moved, 10u);
}

TEST(Reasons, AreWords) {
  EXPECT_EQ(reason_text({"in_channels", "a multiple of 8", "3"}),
            "input channels: needs a multiple of 8, has 3");
  EXPECT_EQ(reason_text({"", "one thing", "another"}), "needs one thing, has another");
  EXPECT_EQ(reason_text({"alpha", "1", "2"}), "alpha: needs 1, has 2");
}

}  // namespace
}  // namespace marlo::toolkit::test
