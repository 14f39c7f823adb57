#include "tools/qrt/layer_facts.h"

#include <algorithm>
#include <initializer_list>

#include "qrt_core/runtime/model/layer_catalogue.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::ActivationInfo;
using marlo::runtime::Base64Decode;
using marlo::runtime::BatchNormInfo;
using marlo::runtime::Conv1dInfo;
using marlo::runtime::Conv2dInfo;
using marlo::runtime::ConvTranspose2dInfo;
using marlo::runtime::FullConnectionInfo;
using marlo::runtime::InstanceNorm2dInfo;
using marlo::runtime::LayerInfo;

namespace {

/// A convolution of any kind, in 64 bits; a line is a plane of height 1.
struct Window {
  int64_t in_channels, out_channels, groups;
  int64_t width, height, stride_x, stride_y, dilation_x, dilation_y;
  int64_t padding_x, padding_y;  // both sides together
  bool is_line, is_transposed, if_bias;
  const std::string* weight;
  const std::string* bias;

  bool is_usable() const {
    return in_channels != 0 && out_channels != 0 && groups != 0 && width != 0 && height != 0 &&
           stride_x != 0 && stride_y != 0 && dilation_x != 0 && dilation_y != 0;
  }
  int64_t weights() const {
    return groups * (in_channels / groups) * (out_channels / groups) * width * height;
  }
};

template <typename Info>
Window plane_window(const Info& info, bool is_transposed) {
  return {info.in_channels,
          info.out_channels,
          info.groups,
          info.kernel_x,
          info.kernel_y,
          info.stride_x,
          info.stride_y,
          info.dilation_x,
          info.dilation_y,
          int64_t{info.padding_l} + info.padding_r,
          int64_t{info.padding_t} + info.padding_b,
          false,
          is_transposed,
          info.if_bias,
          &info.weight,
          &info.bias};
}

std::optional<Window> window_of(const LayerInfo& info) {
  if (const auto* conv = dynamic_cast<const Conv2dInfo*>(&info)) return plane_window(*conv, false);
  if (const auto* conv = dynamic_cast<const ConvTranspose2dInfo*>(&info)) {
    return plane_window(*conv, true);
  }
  const auto* line = dynamic_cast<const Conv1dInfo*>(&info);
  if (line == nullptr) return std::nullopt;
  return Window{line->in_channels,
                line->out_channels,
                line->groups,
                line->kernel_size,
                1,
                line->stride,
                1,
                line->dilation,
                1,
                int64_t{line->padding_f} + line->padding_b,
                0,
                true,
                false,
                line->if_bias,
                &line->weight,
                &line->bias};
}

uint64_t numbers_in(const std::string& blob) { return Base64Decode(blob).size() / sizeof(float); }

uint64_t numbers_in(const std::vector<std::string>& blobs) {
  uint64_t count = 0;
  for (const std::string& blob : blobs) count += numbers_in(blob);
  return count;
}

uint64_t product(const std::vector<uint32_t>& sizes, size_t first, size_t end) {
  uint64_t count = 1;
  for (size_t i = first; i < end; ++i) count *= sizes[i];
  return count;
}

// Input and hidden weights, without biases; nothing for other layers.
std::optional<uint64_t> recurrent_weights(const LayerInfo& info) {
  if (const auto* cell = dynamic_cast<const marlo::runtime::RecurrentCellWeights*>(&info)) {
    return numbers_in(cell->weight_ih) + numbers_in(cell->weight_hh);
  }
  if (const auto* rnn = dynamic_cast<const marlo::runtime::RecurrentSequenceWeights*>(&info)) {
    const uint64_t forward =
        numbers_in(rnn->weight_ih_forward) + numbers_in(rnn->weight_hh_forward);
    if (!rnn->bidirectional) return forward;
    return forward + numbers_in(rnn->weight_ih_reverse) + numbers_in(rnn->weight_hh_reverse);
  }
  return std::nullopt;
}

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

std::string kind_of(const LayerInfo& info) {
  std::string name = marlo::runtime::LayerTypeName(info.type);
  if (name != "UnKnown" && name != "Blob") return name;
  // The class's own name, without changing the object.
  std::string own = const_cast<LayerInfo&>(info).GetClassTypeNameWithNamespace();
  own = own.substr(own.rfind(':') + 1);
  if (own.size() > 4 && own.compare(own.size() - 4, 4, "Info") == 0) own.erase(own.size() - 4);
  return own;
}

uint64_t weight_count(const LayerInfo& info) {
  if (const auto window = window_of(info)) {
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

std::optional<uint64_t> multiply_adds(const LayerInfo& info, const std::vector<uint32_t>& input,
                                      const std::vector<uint32_t>& output) {
  if (const auto window = window_of(info)) {
    if (!window->is_usable() || input.empty() || output.empty()) return std::nullopt;
    // Every weight meets every pixel of the plane that the window walks over. A last dimension
    // beyond the plane's own is a block of channels.
    const std::vector<uint32_t>& walked = window->is_transposed ? input : output;
    const size_t dims = window->is_line ? 2 : 3;
    if (walked.size() < dims) return std::nullopt;
    return static_cast<uint64_t>(window->weights()) * product(walked, 1, dims);
  }
  if (const auto* full = dynamic_cast<const FullConnectionInfo*>(&info)) {
    if (output.empty()) return std::nullopt;
    return uint64_t{full->in_features} * product(output, 0, output.size());
  }
  // Every weight of a recurrent layer meets one number a step; the last dimension is a vector.
  if (const auto weights = recurrent_weights(info); weights && !input.empty()) {
    return *weights * product(input, 0, input.size() - 1);
  }
  return std::nullopt;
}

std::string description_fault(const LayerInfo& info) {
  if (const auto w = window_of(info)) {
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
  const auto window = window_of(info);
  if (!window) return std::nullopt;
  return ExpectedInput{window->is_line ? size_t{2} : size_t{3},
                       static_cast<uint32_t>(window->in_channels)};
}

std::string window_fault(const LayerInfo& info, const std::vector<uint32_t>& input) {
  const auto w = window_of(info);
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
