#include "tests/support/conv_acceptance.h"

#include <array>
#include <vector>

namespace marlo::test {

using kernel::Conv1dParams;
using kernel::Conv2dParams;

namespace {

// One property of a layer: its values in words, and how each is set.
template <typename Params>
struct Property {
  struct Value {
    std::string words;
    std::function<void(Params&)> set;
  };

  std::string any;  // the words for all of them; empty for none at all
  std::vector<Value> values;
};

template <typename Params>
using Properties = std::vector<Property<Params>>;

using Choice = std::vector<size_t>;

template <typename Params>
Params params_of(const Properties<Params>& properties, const Choice& choice) {
  Params params;
  for (size_t i = 0; i < choice.size(); ++i) properties[i].values[choice[i]].set(params);
  return params;
}

// The first accepted choice, searched like a number with one digit per property.
template <typename Params, typename Accepts>
bool find_accepted(const Properties<Params>& properties, const Accepts& accepts, Choice& choice) {
  choice.assign(properties.size(), 0);
  for (;;) {
    if (accepts(params_of(properties, choice))) return true;
    size_t digit = 0;
    while (digit < choice.size() && ++choice[digit] == properties[digit].values.size()) {
      choice[digit++] = 0;
    }
    if (digit == choice.size()) return false;
  }
}

template <typename Params, typename Accepts>
std::string words_for(const Properties<Params>& properties, const Accepts& accepts) {
  Choice accepted;
  if (!find_accepted(properties, accepts, accepted)) return "nothing";
  std::string text;
  for (size_t i = 0; i < properties.size(); ++i) {
    const Property<Params>& property = properties[i];
    std::string words;
    size_t count = 0;
    Choice choice = accepted;
    for (choice[i] = 0; choice[i] < property.values.size(); ++choice[i]) {
      if (!accepts(params_of(properties, choice))) continue;
      words += (count == 0 ? "" : " or ") + property.values[choice[i]].words;
      ++count;
    }
    if (count == property.values.size()) words = property.any;
    if (!words.empty()) text += (text.empty() ? "" : ", ") + words;
  }
  return text;
}

Property<Conv2dParams> filters() {
  Property<Conv2dParams> property{"any filter", {}};
  const std::array<std::array<uint32_t, 2>, 8> sizes = {
      {{1, 1}, {1, 3}, {3, 1}, {3, 3}, {5, 5}, {7, 7}, {2, 4}, {9, 9}}};
  for (const auto& size : sizes) {
    property.values.push_back(
        {std::to_string(size[0]) + "x" + std::to_string(size[1]), [size](Conv2dParams& p) {
           p.kernel_y = size[0];
           p.kernel_x = size[1];
         }});
  }
  return property;
}

Property<Conv2dParams> steps() {
  Property<Conv2dParams> property{"any stride", {}};
  const std::array<std::array<uint32_t, 2>, 4> sizes = {{{1, 1}, {2, 2}, {3, 3}, {1, 2}}};
  for (const auto& size : sizes) {
    const bool square = size[0] == size[1];
    property.values.push_back(
        {square ? "stride " + std::to_string(size[0]) : "unequal strides", [size](Conv2dParams& p) {
           p.stride_y = size[0];
           p.stride_x = size[1];
         }});
  }
  return property;
}

Property<Conv2dParams> dilations() {
  Property<Conv2dParams> property{"any dilation", {}};
  for (const uint32_t size : {1u, 2u}) {
    property.values.push_back({size == 1 ? "no dilation" : "dilation",
                               [size](Conv2dParams& p) { p.dilation_x = p.dilation_y = size; }});
  }
  return property;
}

Property<Conv2dParams> paddings() {
  Property<Conv2dParams> property{"any padding", {}};
  struct Margins {
    const char* words;
    uint32_t left, right, top, bottom;
  };
  for (const Margins& m :
       {Margins{"no padding", 0, 0, 0, 0}, Margins{"padding 1 on all sides", 1, 1, 1, 1},
        Margins{"padding 1 left and right", 1, 1, 0, 0},
        Margins{"padding 1 above and below", 0, 0, 1, 1},
        Margins{"padding 2 on all sides", 2, 2, 2, 2}, Margins{"unequal paddings", 1, 0, 2, 3}}) {
    property.values.push_back({m.words, [m](Conv2dParams& p) {
                                 p.padding_l = m.left;
                                 p.padding_r = m.right;
                                 p.padding_t = m.top;
                                 p.padding_b = m.bottom;
                               }});
  }
  return property;
}

// Channels and groups hang together, so they are one property.
template <typename Params>
Property<Params> channels() {
  struct Counts {
    const char* words;
    uint32_t in, out, groups;
  };
  Property<Params> property{"", {}};
  for (const Counts& c : {Counts{"channels in eights", 16, 24, 1}, Counts{"any channels", 5, 7, 1},
                          Counts{"3 channels in", 3, 16, 1}, Counts{"3 channels out", 16, 3, 1},
                          Counts{"1 channel out", 16, 1, 1}, Counts{"groups", 16, 32, 2},
                          Counts{"one channel a group", 16, 16, 16}}) {
    property.values.push_back({c.words, [c](Params& p) {
                                 p.in_channels = c.in;
                                 p.out_channels = c.out;
                                 p.groups = c.groups;
                                 p.in_channels_per_group = c.in / c.groups;
                                 p.out_channels_per_group = c.out / c.groups;
                               }});
  }
  return property;
}

Properties<Conv1dParams> line_properties() {
  Property<Conv1dParams> sizes{"any filter", {}};
  for (const uint32_t size : {1u, 3u, 5u}) {
    sizes.values.push_back(
        {std::to_string(size), [size](Conv1dParams& p) { p.kernel_size = size; }});
  }
  Property<Conv1dParams> strides{"any stride", {}};
  Property<Conv1dParams> dilations{"any dilation", {}};
  for (const uint32_t size : {1u, 2u}) {
    strides.values.push_back(
        {"stride " + std::to_string(size), [size](Conv1dParams& p) { p.stride = size; }});
    dilations.values.push_back(
        {size == 1 ? "no dilation" : "dilation", [size](Conv1dParams& p) { p.dilation = size; }});
  }
  Property<Conv1dParams> paddings{"any padding", {}};
  for (const uint32_t size : {0u, 2u}) {
    paddings.values.push_back({size == 0 ? "no padding" : "padding", [size](Conv1dParams& p) {
                                 p.padding_f = size;
                                 p.padding_b = size / 2;
                               }});
  }
  return {sizes, strides, dilations, paddings, channels<Conv1dParams>()};
}

}  // namespace

std::string accepted_in_words(const std::function<bool(const Conv2dParams&)>& accepts) {
  return words_for(Properties<Conv2dParams>{filters(), steps(), dilations(), paddings(),
                                            channels<Conv2dParams>()},
                   accepts);
}

std::string accepted_in_words(const std::function<bool(const Conv1dParams&)>& accepts) {
  return words_for(line_properties(), accepts);
}

}  // namespace marlo::test
