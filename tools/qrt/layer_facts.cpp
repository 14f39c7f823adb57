#include "tools/qrt/layer_facts.h"

#include <algorithm>
#include <initializer_list>

#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::ActivationInfo;
using marlo::runtime::BatchNormInfo;
using marlo::runtime::FullConnectionInfo;
using marlo::runtime::InstanceNorm2dInfo;
using marlo::runtime::LayerInfo;
using marlo::toolkit::layer_window_of;
using marlo::toolkit::numbers_in;

namespace {

std::string pair(int64_t x, int64_t y, bool is_line) {
  return is_line ? std::to_string(x) : std::to_string(x) + "x" + std::to_string(y);
}

std::string blob_fault(const char* key, const std::string& blob, int64_t needed) {
  const uint64_t held = numbers_in(blob);
  if (held >= static_cast<uint64_t>(needed)) return "";
  return std::string("expected ") + std::to_string(needed) + " numbers in \"" + key + "\", found " +
         std::to_string(held);
}

}  // namespace

uint64_t weight_count(const LayerInfo& info) {
  if (const auto window = layer_window_of(info)) {
    return numbers_in(*window->weight) + (window->if_bias ? numbers_in(*window->bias) : 0);
  }
  if (const auto* full = dynamic_cast<const FullConnectionInfo*>(&info)) {
    return numbers_in(full->weight) + (full->if_bias ? numbers_in(full->bias) : 0);
  }
  if (const auto* activation = dynamic_cast<const ActivationInfo*>(&info)) {
    return numbers_in(activation->weight);
  }
  if (const auto* norm = dynamic_cast<const InstanceNorm2dInfo*>(&info)) {
    return numbers_in(norm->scale) + numbers_in(norm->shift);
  }
  if (const auto* norm = dynamic_cast<const BatchNormInfo*>(&info)) {
    return numbers_in(norm->scale) + numbers_in(norm->shift) + numbers_in(norm->variance) +
           numbers_in(norm->mean);
  }
  if (const auto* cell = dynamic_cast<const marlo::runtime::RecurrentCellWeights*>(&info)) {
    return numbers_in(cell->weight_ih) + numbers_in(cell->weight_hh) + numbers_in(cell->bias_ih) +
           numbers_in(cell->bias_hh);
  }
  uint64_t count = 0;
  if (const auto* rnn = dynamic_cast<const marlo::runtime::RecurrentSequenceWeights*>(&info)) {
    for (const auto* list :
         {&rnn->weight_ih_forward, &rnn->weight_hh_forward, &rnn->bias_ih_forward,
          &rnn->bias_hh_forward, &rnn->weight_ih_reverse, &rnn->weight_hh_reverse,
          &rnn->bias_ih_reverse, &rnn->bias_hh_reverse}) {
      count += numbers_in(*list);
    }
  }
  return count;
}

std::string description_fault(const LayerInfo& info) {
  if (const auto w = layer_window_of(info)) {
    const std::string settings = "window " + pair(w->width, w->height, w->is_line) + ", stride " +
                                 pair(w->stride_x, w->stride_y, w->is_line) + ", dilation " +
                                 pair(w->dilation_x, w->dilation_y, w->is_line) + ", channels " +
                                 std::to_string(w->in_channels) + " to " +
                                 std::to_string(w->out_channels) + ", " +
                                 counted(static_cast<uint64_t>(w->groups), "group");
    if (!w->is_usable()) return "expected settings above zero, found " + settings;
    std::string fault = blob_fault("weight", *w->weight, w->weights());
    if (fault.empty() && w->if_bias) {
      fault = blob_fault("bias", *w->bias, w->groups * (w->out_channels / w->groups));
    }
    return fault.empty() ? "expected other settings than " + settings : fault;
  }
  return "expected a layer of another kind than " + kind_of(info) + ", or with other settings";
}

bool keeps_channels(const LayerInfo& info) {
  return dynamic_cast<const ActivationInfo*>(&info) != nullptr ||
         dynamic_cast<const marlo::runtime::AvgPool2dInfo*>(&info) != nullptr ||
         dynamic_cast<const marlo::runtime::MaxPool2dInfo*>(&info) != nullptr ||
         dynamic_cast<const marlo::runtime::Upsample2dInfo*>(&info) != nullptr ||
         dynamic_cast<const InstanceNorm2dInfo*>(&info) != nullptr ||
         dynamic_cast<const marlo::runtime::BatchNorm2dInfo*>(&info) != nullptr;
}

std::optional<ExpectedInput> expected_input(const LayerInfo& info) {
  const auto window = layer_window_of(info);
  if (!window) return std::nullopt;
  return ExpectedInput{window->is_line ? size_t{2} : size_t{3},
                       static_cast<uint32_t>(window->in_channels)};
}

std::string window_fault(const LayerInfo& info, const std::vector<uint32_t>& input) {
  const auto w = layer_window_of(info);
  if (!w || !w->is_usable() || input.size() != (w->is_line ? 2U : 3U)) return "";
  const int64_t width = int64_t{input.back()};
  const int64_t height = w->is_line ? 1 : int64_t{input[1]};
  const int64_t reach_x = (w->width - 1) * w->dilation_x;
  const int64_t reach_y = (w->height - 1) * w->dilation_y;
  if (w->is_transposed) {
    const int64_t out_x = width * w->stride_x - reach_x + w->padding_x;
    const int64_t out_y = height * w->stride_y - reach_y + w->padding_y;
    if (std::min(out_x, out_y) > 0 && std::max(out_x, out_y) <= UINT32_MAX) return "";
    return "its output would be " + pair(out_x, out_y, false);
  }
  if (width + w->padding_x > reach_x && height + w->padding_y > reach_y) return "";
  return "its window of " + pair(reach_x + 1, reach_y + 1, w->is_line) +
         " is larger than the padded input of " +
         pair(width + w->padding_x, height + w->padding_y, w->is_line);
}

}  // namespace qrt_tool
