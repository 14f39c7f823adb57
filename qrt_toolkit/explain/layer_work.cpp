#include "qrt_toolkit/explain/layer_work.h"

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layer_catalogue.h"

namespace marlo::toolkit {

using runtime::Base64Decode;
using runtime::Conv1dInfo;
using runtime::Conv2dInfo;
using runtime::ConvTranspose2dInfo;
using runtime::FullConnectionInfo;
using runtime::LayerInfo;

namespace {

template <typename Info>
LayerWindow plane_window(const Info& info, bool is_transposed) {
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

uint64_t product(const std::vector<uint32_t>& sizes, size_t first, size_t end) {
  uint64_t count = 1;
  for (size_t i = first; i < end; ++i) count *= sizes[i];
  return count;
}

// Input and hidden weights, without biases; nothing for other layers.
std::optional<uint64_t> recurrent_weights(const LayerInfo& info) {
  if (const auto* cell = dynamic_cast<const runtime::RecurrentCellWeights*>(&info)) {
    return numbers_in(cell->weight_ih) + numbers_in(cell->weight_hh);
  }
  if (const auto* rnn = dynamic_cast<const runtime::RecurrentSequenceWeights*>(&info)) {
    const uint64_t forward =
        numbers_in(rnn->weight_ih_forward) + numbers_in(rnn->weight_hh_forward);
    if (!rnn->bidirectional) return forward;
    return forward + numbers_in(rnn->weight_ih_reverse) + numbers_in(rnn->weight_hh_reverse);
  }
  return std::nullopt;
}

}  // namespace

std::optional<LayerWindow> layer_window_of(const LayerInfo& info) {
  if (const auto* conv = dynamic_cast<const Conv2dInfo*>(&info)) return plane_window(*conv, false);
  if (const auto* conv = dynamic_cast<const ConvTranspose2dInfo*>(&info)) {
    return plane_window(*conv, true);
  }
  const auto* line = dynamic_cast<const Conv1dInfo*>(&info);
  if (line == nullptr) return std::nullopt;
  return LayerWindow{line->in_channels,
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

std::string kind_of(const LayerInfo& info) {
  std::string name = runtime::LayerTypeName(info.type);
  if (name != "UnKnown" && name != "Blob") return name;
  // The class's own name, without changing the object.
  std::string own = const_cast<LayerInfo&>(info).GetClassTypeNameWithNamespace();
  own = own.substr(own.rfind(':') + 1);
  if (own.size() > 4 && own.compare(own.size() - 4, 4, "Info") == 0) own.erase(own.size() - 4);
  return own;
}

std::optional<uint64_t> multiply_adds(const LayerInfo& info, const std::vector<uint32_t>& input,
                                      const std::vector<uint32_t>& output) {
  if (const auto window = layer_window_of(info)) {
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
  if (const auto* dense = dynamic_cast<const runtime::DenseInfo*>(&info)) {
    if (output.empty()) return std::nullopt;
    return uint64_t{dense->in_features} * product(output, 0, output.size());
  }
  if (const auto* matmul = dynamic_cast<const runtime::MatMulInfo*>(&info)) {
    if (input.empty() || output.empty()) return std::nullopt;
    const bool is_column = matmul->transpose_a && input.size() > 1;
    return uint64_t{input[input.size() - (is_column ? 2 : 1)]} * product(output, 0, output.size());
  }
  // Every weight of a recurrent layer meets one number a step; the last dimension is a vector.
  if (const auto weights = recurrent_weights(info); weights && !input.empty()) {
    return *weights * product(input, 0, input.size() - 1);
  }
  return std::nullopt;
}

}  // namespace marlo::toolkit
