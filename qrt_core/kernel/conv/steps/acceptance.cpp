#include "qrt_core/kernel/conv/steps/acceptance.h"

#include <utility>

namespace marlo::kernel {

using runtime::Misfit;

namespace {

struct PaddingSizes {
  uint32_t beside;
  uint32_t above_and_below;
  const char* words;
};

PaddingSizes sizes_of(Paddings paddings) {
  switch (paddings) {
    case Paddings::none:
      return {0, 0, "no padding"};
    case Paddings::one_all_round:
      return {1, 1, "padding 1 on all sides"};
    case Paddings::one_beside:
      return {1, 0, "padding 1 left and right"};
    case Paddings::one_above_and_below:
      return {0, 1, "padding 1 above and below"};
    case Paddings::two_all_round:
      return {2, 2, "padding 2 on all sides"};
    default:
      return {0, 0, "any padding"};
  }
}

// One layer against what is accepted.
class Comparison {
 public:
  Comparison(const Accepts& accepts, const Conv2dParams& params, bool is_line)
      : accepts_(accepts), params_(params), is_line_(is_line) {}

  std::vector<Misfit> run() {
    const Conv2dParams& p = params_;
    sizes("kernel_y, kernel_x", "kernel_size", accepts_.kernel_y, accepts_.kernel_x, p.kernel_y,
          p.kernel_x);
    sizes("stride_y, stride_x", "stride", accepts_.stride, accepts_.stride, p.stride_y, p.stride_x);
    sizes("dilation_y, dilation_x", "dilation", accepts_.dilation, accepts_.dilation, p.dilation_y,
          p.dilation_x);
    paddings();
    if (accepts_.groups == Groups::one_a_channel) {
      group_a_channel();
    } else {
      channels("in_channels", accepts_.in, p.in_channels);
      channels("out_channels", accepts_.out, p.out_channels);
      if (accepts_.groups == Groups::above_zero && p.groups == 0) add("groups", "at least 1", "0");
      if (accepts_.groups == Groups::one && p.groups != 1)
        add("groups", "1", std::to_string(p.groups));
      if (accepts_.groups == Groups::in_eights) groups_in_eights();
    }
    return std::move(misfits_);
  }

 private:
  void add(const char* member, std::string expected, std::string found) {
    misfits_.push_back({member, std::move(expected), std::move(found)});
  }

  std::string words(uint32_t y, uint32_t x) const {
    return is_line_ ? std::to_string(x) : std::to_string(y) + " x " + std::to_string(x);
  }

  void sizes(const char* members, const char* member, uint32_t wanted_y, uint32_t wanted_x,
             uint32_t y, uint32_t x) {
    const char* const name = is_line_ ? member : members;
    if (wanted_x != 0 && (y != wanted_y || x != wanted_x)) {
      add(name, words(wanted_y, wanted_x), words(y, x));
    } else if (accepts_.sizes_above_zero && (y == 0 || x == 0)) {
      add(name, "above 0", words(y, x));
    }
  }

  void paddings() {
    if (accepts_.paddings == Paddings::any) return;
    const PaddingSizes wanted = sizes_of(accepts_.paddings);
    const uint32_t b = wanted.beside;
    const uint32_t a = wanted.above_and_below;
    const Conv2dParams& p = params_;
    if (p.padding_l == b && p.padding_r == b && p.padding_t == a && p.padding_b == a) return;
    const auto listed = [](uint32_t left, uint32_t right, uint32_t top, uint32_t bottom) {
      return std::to_string(left) + ", " + std::to_string(right) + ", " + std::to_string(top) +
             ", " + std::to_string(bottom);
    };
    add("padding_l, padding_r, padding_t, padding_b", listed(b, b, a, a),
        listed(p.padding_l, p.padding_r, p.padding_t, p.padding_b));
  }

  void channels(const char* member, const ChannelCount& wanted, uint32_t count) {
    const std::string found = std::to_string(count);
    if (wanted.exactly != 0 && count != wanted.exactly) {
      add(member, std::to_string(wanted.exactly), found);
    } else if (count % wanted.multiple_of != 0 ||
               (wanted.above_zero && wanted.multiple_of > 1 && count == 0)) {
      add(member,
          "a multiple of " + std::to_string(wanted.multiple_of) +
              (wanted.above_zero ? ", above 0" : ""),
          found);
    } else if (wanted.above_zero && count == 0) {
      add(member, "above 0", found);
    }
  }

  void groups_in_eights() {
    const Conv2dParams& p = params_;
    const auto fills = [&](uint32_t count) {
      return p.groups != 0 && count != 0 && count % (uint64_t{8} * p.groups) == 0;
    };
    if (p.groups == 1 || (fills(p.in_channels) && fills(p.out_channels))) return;
    add("groups", "1 or more, with channels in and out in multiples of 8 each",
        std::to_string(p.groups) + " of " + std::to_string(p.in_channels) + " and " +
            std::to_string(p.out_channels) + " channels");
  }

  void group_a_channel() {
    const Conv2dParams& p = params_;
    const uint32_t multiple = accepts_.in.multiple_of;
    const bool equal =
        p.in_channels == p.out_channels && p.in_channels != 0 && p.in_channels % multiple == 0;
    if (equal && p.groups == p.in_channels) return;
    if (equal) {
      add("groups", std::to_string(p.in_channels) + ", one for each channel",
          std::to_string(p.groups));
    } else {
      add("in_channels, out_channels, groups",
          multiple == 1 ? "three equal numbers above 0"
                        : "three equal multiples of " + std::to_string(multiple),
          std::to_string(p.in_channels) + ", " + std::to_string(p.out_channels) + ", " +
              std::to_string(p.groups));
    }
  }

  const Accepts& accepts_;
  const Conv2dParams& params_;
  bool is_line_;
  std::vector<Misfit> misfits_;
};

std::string channel_words(uint32_t count, const char* side) {
  return ", " + std::to_string(count) + (count == 1 ? " channel " : " channels ") + side;
}

}  // namespace

std::vector<Misfit> misfits(const Accepts& accepts, const Conv2dParams& params, bool is_line) {
  return Comparison(accepts, params, is_line).run();
}

std::string words_for(const Accepts& accepts, bool is_line) {
  std::string text = "any filter";
  if (accepts.kernel_x != 0) text = std::to_string(accepts.kernel_x);
  if (accepts.kernel_x != 0 && !is_line) text = std::to_string(accepts.kernel_y) + "x" + text;
  text += accepts.stride == 0 ? ", any stride" : ", stride " + std::to_string(accepts.stride);
  text += accepts.dilation == 0 ? ", any dilation" : ", no dilation";
  text += std::string(", ") + sizes_of(accepts.paddings).words;
  if (accepts.in.exactly != 0) text += channel_words(accepts.in.exactly, "in");
  if (accepts.out.exactly != 0) text += channel_words(accepts.out.exactly, "out");
  if (accepts.in.multiple_of == 8) {
    text += ", channels in eights";
  } else if (accepts.out.multiple_of == 8) {
    text += ", output channels in eights";
  }
  if (accepts.groups == Groups::one_a_channel) text += ", one channel a group";
  if (accepts.groups == Groups::one) text += ", one group";
  if (accepts.groups == Groups::in_eights) text += ", groups of channels in eights";
  return text;
}

}  // namespace marlo::kernel
