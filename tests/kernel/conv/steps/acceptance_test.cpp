#include "qrt_core/kernel/conv/steps/acceptance.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <sstream>

#include "qrt_core/kernel/conv/steps/conv_geometry.h"
#include "tests/support/conv_rows.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/pace.h"

// What kernels accept, and the reasons that they give for what they refuse.

namespace marlo::test {
namespace {

using kernel::Accepts;
using kernel::Conv2dParams;
using kernel::Paddings;
using runtime::Misfit;

// How the members of a description are changed, by their names.
const std::map<std::string, std::function<void(Conv2dParams&, uint32_t)>>& members() {
  static const std::map<std::string, std::function<void(Conv2dParams&, uint32_t)>> all = {
      {"kernel_y", [](Conv2dParams& p, uint32_t n) { p.kernel_y = n; }},
      {"kernel_x", [](Conv2dParams& p, uint32_t n) { p.kernel_x = n; }},
      {"kernel_size", [](Conv2dParams& p, uint32_t n) { p.kernel_x = n; }},
      {"stride_y", [](Conv2dParams& p, uint32_t n) { p.stride_y = n; }},
      {"stride_x", [](Conv2dParams& p, uint32_t n) { p.stride_x = n; }},
      {"stride", [](Conv2dParams& p, uint32_t n) { p.stride_x = n; }},
      {"dilation_y", [](Conv2dParams& p, uint32_t n) { p.dilation_y = n; }},
      {"dilation_x", [](Conv2dParams& p, uint32_t n) { p.dilation_x = n; }},
      {"dilation", [](Conv2dParams& p, uint32_t n) { p.dilation_x = n; }},
      {"padding_l", [](Conv2dParams& p, uint32_t n) { p.padding_l = n; }},
      {"padding_r", [](Conv2dParams& p, uint32_t n) { p.padding_r = n; }},
      {"padding_t", [](Conv2dParams& p, uint32_t n) { p.padding_t = n; }},
      {"padding_b", [](Conv2dParams& p, uint32_t n) { p.padding_b = n; }},
      {"in_channels", [](Conv2dParams& p, uint32_t n) { p.in_channels = n; }},
      {"out_channels", [](Conv2dParams& p, uint32_t n) { p.out_channels = n; }},
      {"groups", [](Conv2dParams& p, uint32_t n) { p.groups = n; }},
  };
  return all;
}

std::vector<std::string> names_in(const std::string& list) {
  std::vector<std::string> names;
  std::istringstream text(list);
  for (std::string name; std::getline(text >> std::ws, name, ',');) names.push_back(name);
  return names;
}

// The numbers of "1, 1, 0, 0" or "3 x 3"; what is in words stands for its first number.
std::vector<uint32_t> numbers_of(const std::string& expected, size_t count) {
  std::vector<uint32_t> numbers;
  uint32_t last = 0;
  std::string text = expected == "above 0" || expected == "three equal numbers above 0" ? "7" : "";
  if (text.empty()) {
    for (const char c : expected) text += c >= '0' && c <= '9' ? c : ' ';
  }
  std::istringstream in(text);
  while (in >> last) numbers.push_back(last);
  while (numbers.size() < count) numbers.push_back(numbers.empty() ? 0 : numbers.back());
  return numbers;
}

void do_as_told(const Misfit& misfit, Conv2dParams& params) {
  const std::vector<std::string> names = names_in(misfit.member);
  const std::vector<uint32_t> numbers = numbers_of(misfit.expected, names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    ASSERT_EQ(members().count(names[i]), 1u) << "\"" << names[i] << "\" is no member";
    members().at(names[i])(params, numbers[i]);
  }
}

Conv2dParams random_layer(Random& random, bool is_line) {
  const auto pick = [&random](uint32_t most) {
    return static_cast<uint32_t>(random.integer(0, static_cast<int>(most)));
  };
  Conv2dParams p;
  p.kernel_x = random.one_of<uint32_t>({0, 1, 3, 5, 7});
  p.stride_x = pick(3);
  p.dilation_x = pick(2);
  p.kernel_y = is_line ? 1 : random.integer(0, 2) != 0 ? p.kernel_x : pick(7);
  p.stride_y = is_line ? 1 : random.integer(0, 2) != 0 ? p.stride_x : pick(3);
  p.dilation_y = is_line ? 1 : random.integer(0, 2) != 0 ? p.dilation_x : pick(2);
  p.padding_l = pick(2);
  p.padding_r = is_line ? pick(2) : p.padding_l;
  p.padding_t = p.padding_b = is_line ? 0 : pick(2);
  p.in_channels = random.one_of<uint32_t>({0, 1, 3, 8, 16, 17});
  p.out_channels = random.one_of<uint32_t>({0, 1, 3, 8, 16, 17});
  p.groups = random.one_of<uint32_t>({0, 1, 2, 16});
  return p;
}

class Acceptance : public testing::TestWithParam<ConvRow> {};

// Whatever a layer is, doing what the reasons say makes it one that the kernel takes, and leaving
// one of them out does not.
TEST_P(Acceptance, IsReachedByDoingWhatTheReasonsSay) {
  const ConvRow& row = GetParam();
  Random random(11);
  size_t refused = 0;
  const size_t trials = runs_slowly() ? 200 : 2000;
  for (size_t trial = 0; trial < trials; ++trial) {
    const Conv2dParams layer = random_layer(random, row.is_line);
    const std::vector<Misfit> found = kernel::misfits(row.accepted, layer, row.is_line);
    EXPECT_EQ(found.empty(), kernel::fits(row.accepted, layer));
    refused += found.empty() ? 0 : 1;
    Conv2dParams changed = layer;
    for (const Misfit& misfit : found) {
      EXPECT_NE(misfit.expected, misfit.found) << misfit.member;
      do_as_told(misfit, changed);
    }
    EXPECT_TRUE(kernel::fits(row.accepted, changed))
        << found.back().member << ": " << found.back().expected;
    for (size_t left_out = 0; left_out < found.size(); ++left_out) {
      Conv2dParams partly = layer;
      for (size_t i = 0; i < found.size(); ++i) {
        if (i != left_out) do_as_told(found[i], partly);
      }
      EXPECT_FALSE(kernel::fits(row.accepted, partly)) << found[left_out].member;
    }
  }
  // The convolutions over columns take anything.
  if (row.accepts.find("any filter") == std::string::npos) {
    EXPECT_GT(refused, trials / 2);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, Acceptance, testing::ValuesIn(all_convolution_rows()),
                         [](const auto& test) { return test.param.name; });

TEST(AcceptanceInWords, SaysWhatTheCatalogueSays) {
  EXPECT_EQ(kernel::words_for(kernel::window_of(3, 1, 2, Paddings::one_beside)),
            "3x1, stride 2, no dilation, padding 1 left and right");
  EXPECT_EQ(kernel::words_for(kernel::with_inputs(kernel::window_of(3, 3, 1), 3)),
            "3x3, stride 1, no dilation, any padding, 3 channels in");
  EXPECT_EQ(kernel::words_for(kernel::with_outputs(kernel::window_of(3, 3, 1), 1)),
            "3x3, stride 1, no dilation, any padding, 1 channel out");
  EXPECT_EQ(kernel::words_for(kernel::any_above_zero(), true),
            "any filter, any stride, any dilation, any padding");
  EXPECT_EQ(kernel::words_for(kernel::in_blocks_of(8, Accepts{})),
            "any filter, any stride, any dilation, any padding, channels in eights");
}

}  // namespace
}  // namespace marlo::test
