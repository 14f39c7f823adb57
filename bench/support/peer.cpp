#include "bench/support/peer.h"

#include <algorithm>
#include <chrono>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bench/support/peers.h"

#ifdef QRT_BENCH_WITH_ONEDNN
#include <oneapi/dnnl/dnnl.hpp>
#endif

namespace marlo::bench {

namespace {

double seconds_of(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> times) {
  std::nth_element(times.begin(), times.begin() + static_cast<long>(times.size() / 2), times.end());
  return times[times.size() / 2];
}

}  // namespace

void report_turns(benchmark::State& state, const char* name, const std::function<void()>& ours,
                  const std::function<void()>& theirs) {
  constexpr int kRounds = 31;
  ours();
  theirs();
  std::vector<double> our_times;
  std::vector<double> their_times;
  for (int round = 0; round < kRounds; ++round) {
    our_times.push_back(seconds_of(ours));
    their_times.push_back(seconds_of(theirs));
  }
  state.counters[name] = median(their_times) / median(our_times);
}

void report_peer(benchmark::State& state, const std::function<void()>& ours, Peer& peer) {
  report_turns(state, "x oneDNN", ours, [&peer] { peer.run(); });
}

#ifdef QRT_BENCH_WITH_ONEDNN

namespace {

using dnnl::algorithm;
using dnnl::memory;
using dnnl::prop_kind;
using runtime::LayoutType;

using Tag = memory::format_tag;

const dnnl::engine& engine() {
  static const dnnl::engine processor = [] {
    hold_onednn_to_one_thread_and_avx2();
    return dnnl::engine(dnnl::engine::kind::cpu, 0);
  }();
  return processor;
}

memory::desc desc(const std::vector<uint32_t>& sizes, Tag tag) {
  const memory::dims dims(sizes.begin(), sizes.end());
  return memory::desc(dims, memory::data_type::f32, tag);
}

// Memory of small numbers, so that no denormals disturb.
memory filled(const memory::desc& description) {
  memory block(description, engine());
  auto* values = static_cast<float*>(block.get_data_handle());
  for (size_t i = 0; i < description.get_size() / sizeof(float); ++i) {
    values[i] = static_cast<float>(i % 17) * 0.125f - 1.0f;
  }
  return block;
}

class Operation final : public Peer {
 public:
  Operation(dnnl::primitive primitive, std::unordered_map<int, memory> arguments)
      : primitive_(std::move(primitive)), arguments_(std::move(arguments)), stream_(engine()) {}

  void run() override {
    primitive_.execute(stream_, arguments_);
    stream_.wait();
  }

 private:
  dnnl::primitive primitive_;
  std::unordered_map<int, memory> arguments_;
  dnnl::stream stream_;
};

// What `make` makes, or nothing where the library has no such operation.
template <typename Make>
std::unique_ptr<Peer> made_by(Make make) {
  try {
    return make();
  } catch (const dnnl::error&) {
    return nullptr;
  }
}

Tag tag_of(LayoutType layout) {
  if (layout == LayoutType::C8HW8) return Tag::nChw8c;
  return layout == LayoutType::C4HW4 ? Tag::nChw4c : Tag::nchw;
}

}  // namespace

std::unique_ptr<Peer> peer_pooling(bool maximum, uint32_t channels, uint32_t size, uint32_t kernel,
                                   uint32_t stride, uint32_t padding) {
  return made_by([&] {
    const uint32_t out = (size + 2 * padding - kernel) / stride + 1;
    const memory::desc from = desc({1, channels, size, size}, Tag::nChw8c);
    const memory::desc to = desc({1, channels, out, out}, Tag::nChw8c);
    const memory::dims edges = {padding, padding};
    const dnnl::pooling_forward::primitive_desc primitive(
        dnnl::pooling_forward::desc(
            prop_kind::forward_inference,
            maximum ? algorithm::pooling_max : algorithm::pooling_avg_include_padding, from, to,
            {stride, stride}, {kernel, kernel}, edges, edges),
        engine());
    return std::make_unique<Operation>(
        dnnl::pooling_forward(primitive),
        std::unordered_map<int, memory>{{DNNL_ARG_SRC, filled(from)}, {DNNL_ARG_DST, filled(to)}});
  });
}

std::unique_ptr<Peer> peer_doubling(uint32_t channels, uint32_t size) {
  return made_by([&] {
    const memory::desc from = desc({1, channels, size, size}, Tag::nChw8c);
    const memory::desc to = desc({1, channels, 2 * size, 2 * size}, Tag::nChw8c);
    const dnnl::resampling_forward::primitive_desc primitive(
        dnnl::resampling_forward::desc(prop_kind::forward_inference, algorithm::resampling_linear,
                                       from, to),
        engine());
    return std::make_unique<Operation>(
        dnnl::resampling_forward(primitive),
        std::unordered_map<int, memory>{{DNNL_ARG_SRC, filled(from)}, {DNNL_ARG_DST, filled(to)}});
  });
}

std::unique_ptr<Peer> peer_convolution(const test::ConvCase& s, LayoutType input,
                                       LayoutType output) {
  return made_by([&] {
    const uint32_t height =
        (s.height + static_cast<uint32_t>(s.padding_t + s.padding_b - s.extent_y())) / s.stride_y +
        1;
    const uint32_t width =
        (s.width + static_cast<uint32_t>(s.padding_l + s.padding_r - s.extent_x())) / s.stride_x +
        1;
    const memory::desc from = desc({1, s.in_channels, s.height, s.width}, tag_of(input));
    const memory::desc to = desc({1, s.out_channels, height, width}, tag_of(output));
    const memory::desc weights =
        s.groups == 1 ? desc({s.out_channels, s.in_channels, s.kernel_y, s.kernel_x}, Tag::any)
                      : desc({s.groups, s.outs(), s.ins(), s.kernel_y, s.kernel_x}, Tag::any);
    const memory::desc bias = desc({s.out_channels}, Tag::x);
    const dnnl::convolution_forward::primitive_desc primitive(
        dnnl::convolution_forward::desc(prop_kind::forward_inference, algorithm::convolution_direct,
                                        from, weights, bias, to, {s.stride_y, s.stride_x},
                                        {s.dilation_y - 1, s.dilation_x - 1},
                                        {s.padding_t, s.padding_l}, {s.padding_b, s.padding_r}),
        engine());
    return std::make_unique<Operation>(
        dnnl::convolution_forward(primitive),
        std::unordered_map<int, memory>{{DNNL_ARG_SRC, filled(from)},
                                        {DNNL_ARG_WEIGHTS, filled(primitive.weights_desc())},
                                        {DNNL_ARG_BIAS, filled(bias)},
                                        {DNNL_ARG_DST, filled(to)}});
  });
}

std::unique_ptr<Peer> peer_transposed_convolution(const test::ConvCase& s) {
  return made_by([&] {
    const auto size = [](uint32_t in, uint32_t stride, int extent, int padding) {
      return in * stride + static_cast<uint32_t>(padding - extent + 1);
    };
    const auto cut = [](int extent, int padding) { return memory::dim{extent - 1 - padding}; };
    const uint32_t height = size(s.height, s.stride_y, s.extent_y(), s.padding_t + s.padding_b);
    const uint32_t width = size(s.width, s.stride_x, s.extent_x(), s.padding_l + s.padding_r);
    const memory::desc from = desc({1, s.in_channels, s.height, s.width}, Tag::nChw8c);
    const memory::desc to = desc({1, s.out_channels, height, width}, Tag::nChw8c);
    const memory::desc weights =
        desc({s.out_channels, s.in_channels, s.kernel_y, s.kernel_x}, Tag::any);
    const memory::desc bias = desc({s.out_channels}, Tag::x);
    // A stride leaves that many outputs less one behind the last filter.
    const memory::dims first = {cut(s.extent_y(), s.padding_t), cut(s.extent_x(), s.padding_l)};
    const memory::dims last = {cut(s.extent_y(), s.padding_b) - s.stride_y + 1,
                               cut(s.extent_x(), s.padding_r) - s.stride_x + 1};
    const dnnl::deconvolution_forward::primitive_desc primitive(
        dnnl::deconvolution_forward::desc(prop_kind::forward_inference,
                                          algorithm::deconvolution_direct, from, weights, bias, to,
                                          {s.stride_y, s.stride_x}, first, last),
        engine());
    return std::make_unique<Operation>(
        dnnl::deconvolution_forward(primitive),
        std::unordered_map<int, memory>{{DNNL_ARG_SRC, filled(from)},
                                        {DNNL_ARG_WEIGHTS, filled(primitive.weights_desc())},
                                        {DNNL_ARG_BIAS, filled(bias)},
                                        {DNNL_ARG_DST, filled(to)}});
  });
}

namespace {

// The primitive of a description, with memory for all that it takes.
template <typename Primitive>
std::unique_ptr<Peer> recurrent_operation(const typename Primitive::desc& description) {
  const typename Primitive::primitive_desc primitive(description, engine());
  std::unordered_map<int, memory> arguments = {
      {DNNL_ARG_SRC_LAYER, filled(primitive.src_layer_desc())},
      {DNNL_ARG_SRC_ITER, filled(primitive.src_iter_desc())},
      {DNNL_ARG_WEIGHTS_LAYER, filled(primitive.weights_layer_desc())},
      {DNNL_ARG_WEIGHTS_ITER, filled(primitive.weights_iter_desc())},
      {DNNL_ARG_BIAS, filled(primitive.bias_desc())},
      {DNNL_ARG_DST_LAYER, filled(primitive.dst_layer_desc())},
      {DNNL_ARG_DST_ITER, filled(primitive.dst_iter_desc())}};
  if constexpr (std::is_same_v<Primitive, dnnl::lstm_forward>) {
    arguments.emplace(DNNL_ARG_SRC_ITER_C, filled(primitive.src_iter_c_desc()));
    arguments.emplace(DNNL_ARG_DST_ITER_C, filled(primitive.dst_iter_c_desc()));
  }
  return std::make_unique<Operation>(Primitive(primitive), std::move(arguments));
}

}  // namespace

std::unique_ptr<Peer> peer_recurrent(const test::RecurrentCase& layer) {
  return made_by([&]() -> std::unique_ptr<Peer> {
    const uint32_t gates = test::gates_of(layer.network);
    const memory::desc x = desc({layer.steps, 1, layer.ins}, Tag::tnc);
    const memory::desc y = desc({layer.steps, 1, layer.hidden}, Tag::tnc);
    const memory::desc state = desc({1, 1, 1, layer.hidden}, Tag::ldnc);
    const memory::desc of_input = desc({1, 1, layer.ins, gates, layer.hidden}, Tag::any);
    const memory::desc of_state = desc({1, 1, layer.hidden, gates, layer.hidden}, Tag::any);
    const auto bias = [&](uint32_t rows) { return desc({1, 1, rows, layer.hidden}, Tag::ldgo); };
    const auto mode = prop_kind::forward_inference;
    const auto direction = dnnl::rnn_direction::unidirectional_left2right;
    if (layer.network == test::Network::lstm) {
      return recurrent_operation<dnnl::lstm_forward>(
          {mode, direction, x, state, state, of_input, of_state, bias(gates), y, state, state});
    }
    if (layer.network == test::Network::gru) {
      return recurrent_operation<dnnl::lbr_gru_forward>(
          {mode, direction, x, state, of_input, of_state, bias(gates + 1), y, state});
    }
    return recurrent_operation<dnnl::vanilla_rnn_forward>({mode, algorithm::eltwise_tanh, direction,
                                                           x, state, of_input, of_state,
                                                           bias(gates), y, state});
  });
}

std::unique_ptr<Peer> peer_product(uint32_t rows, uint32_t depth, uint32_t columns) {
  return made_by([&] {
    const memory::desc left = desc({rows, depth}, Tag::ab);
    const memory::desc right = desc({depth, columns}, Tag::ab);
    const memory::desc to = desc({rows, columns}, Tag::ab);
    const dnnl::matmul::primitive_desc primitive(dnnl::matmul::desc(left, right, to), engine());
    return std::make_unique<Operation>(
        dnnl::matmul(primitive), std::unordered_map<int, memory>{{DNNL_ARG_SRC, filled(left)},
                                                                 {DNNL_ARG_WEIGHTS, filled(right)},
                                                                 {DNNL_ARG_DST, filled(to)}});
  });
}

#else

std::unique_ptr<Peer> peer_pooling(bool, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
  return nullptr;
}

std::unique_ptr<Peer> peer_doubling(uint32_t, uint32_t) { return nullptr; }

std::unique_ptr<Peer> peer_convolution(const test::ConvCase&, runtime::LayoutType,
                                       runtime::LayoutType) {
  return nullptr;
}

std::unique_ptr<Peer> peer_transposed_convolution(const test::ConvCase&) { return nullptr; }

std::unique_ptr<Peer> peer_recurrent(const test::RecurrentCase&) { return nullptr; }

std::unique_ptr<Peer> peer_product(uint32_t, uint32_t, uint32_t) { return nullptr; }

#endif

}  // namespace marlo::bench
