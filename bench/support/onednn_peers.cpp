#include "bench/support/onednn_peers.h"

#ifdef QRT_BENCH_WITH_ONEDNN

#include <dlfcn.h>

#include <cstdlib>
#include <oneapi/dnnl/dnnl.hpp>
#include <unordered_map>
#include <vector>

#include "bench/support/shapes.h"

namespace marlo::bench {
namespace {

using dnnl::algorithm;
using dnnl::memory;
using dnnl::prop_kind;

using Tag = memory::format_tag;

// Its threads are those of the OpenMP library that it brings along, which counts the cores when it
// is loaded: before this program pins itself to one.
dnnl::engine engine_of_one_thread() {
  if (std::getenv("DNNL_MAX_CPU_ISA") == nullptr) dnnl::set_max_cpu_isa(dnnl::cpu_isa::avx2);
  using SetThreads = void (*)(int);
  if (void* set = dlsym(RTLD_DEFAULT, "omp_set_num_threads")) {
    reinterpret_cast<SetThreads>(set)(1);
  }
  return dnnl::engine(dnnl::engine::kind::cpu, 0);
}

const dnnl::engine& engine() {
  static const dnnl::engine processor = engine_of_one_thread();
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

// The operation of a description, with memory for all that it takes.
template <typename Primitive>
Peer operation(const typename Primitive::desc& description) {
  const typename Primitive::primitive_desc chosen(description, engine());
  std::unordered_map<int, memory> arguments;
  // The input, output and weights of a recurrent layer have the numbers of all others'.
  for (const int argument : {DNNL_ARG_SRC, DNNL_ARG_SRC_ITER, DNNL_ARG_SRC_ITER_C, DNNL_ARG_WEIGHTS,
                             DNNL_ARG_WEIGHTS_ITER, DNNL_ARG_BIAS, DNNL_ARG_DST, DNNL_ARG_DST_ITER,
                             DNNL_ARG_DST_ITER_C}) {
    const memory::desc form = chosen.query_md(dnnl::query::exec_arg_md, argument);
    if (form.get_size() > 0) arguments.emplace(argument, filled(form));
  }
  return {"x oneDNN",
          [primitive = Primitive(chosen), arguments, stream = dnnl::stream(engine())]() mutable {
            primitive.execute(stream, arguments);
            stream.wait();
          }};
}

// What `make` makes, or nothing where the library has no such operation.
template <typename Make>
std::optional<Peer> made_by(Make make) {
  try {
    return make();
  } catch (const dnnl::error&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<Peer> onednn_pooling(bool maximum, uint32_t channels, uint32_t size, uint32_t kernel,
                                   uint32_t stride, uint32_t padding) {
  return made_by([&] {
    const uint32_t out = (size + 2 * padding - kernel) / stride + 1;
    const memory::dims edges = {padding, padding};
    return operation<dnnl::pooling_forward>(
        {prop_kind::forward_inference,
         maximum ? algorithm::pooling_max : algorithm::pooling_avg_include_padding,
         desc({1, channels, size, size}, Tag::nChw8c),
         desc({1, channels, out, out}, Tag::nChw8c),
         {stride, stride},
         {kernel, kernel},
         edges,
         edges});
  });
}

std::optional<Peer> onednn_doubling(uint32_t channels, uint32_t size) {
  return made_by([&] {
    return operation<dnnl::resampling_forward>(
        {prop_kind::forward_inference, algorithm::resampling_linear,
         desc({1, channels, size, size}, Tag::nChw8c),
         desc({1, channels, 2 * size, 2 * size}, Tag::nChw8c)});
  });
}

std::optional<Peer> onednn_convolution(const test::ConvCase& s) {
  return made_by([&] {
    const uint32_t height = places(s.height, s.padding_t + s.padding_b, s.extent_y(), s.stride_y);
    const uint32_t width = places(s.width, s.padding_l + s.padding_r, s.extent_x(), s.stride_x);
    std::vector<uint32_t> weights = {s.outs(), s.ins(), s.kernel_y, s.kernel_x};
    if (s.groups > 1) weights.insert(weights.begin(), s.groups);
    return operation<dnnl::convolution_forward>(
        {prop_kind::forward_inference,
         algorithm::convolution_direct,
         desc({1, s.in_channels, s.height, s.width}, Tag::any),
         desc(weights, Tag::any),
         desc({s.out_channels}, Tag::any),
         desc({1, s.out_channels, height, width}, Tag::any),
         {s.stride_y, s.stride_x},
         {s.dilation_y - 1, s.dilation_x - 1},
         {s.padding_t, s.padding_l},
         {s.padding_b, s.padding_r}});
  });
}

std::optional<Peer> onednn_transposed_convolution(const test::ConvCase& s) {
  return made_by([&] {
    const auto size = [](uint32_t in, uint32_t stride, int extent, int padding) {
      return in * stride + static_cast<uint32_t>(padding - extent + 1);
    };
    const auto cut = [](int extent, int padding) { return memory::dim{extent - 1 - padding}; };
    const uint32_t height = size(s.height, s.stride_y, s.extent_y(), s.padding_t + s.padding_b);
    const uint32_t width = size(s.width, s.stride_x, s.extent_x(), s.padding_l + s.padding_r);
    // A stride leaves that many outputs less one behind the last filter.
    const memory::dims first = {cut(s.extent_y(), s.padding_t), cut(s.extent_x(), s.padding_l)};
    const memory::dims last = {cut(s.extent_y(), s.padding_b) - s.stride_y + 1,
                               cut(s.extent_x(), s.padding_r) - s.stride_x + 1};
    return operation<dnnl::deconvolution_forward>(
        {prop_kind::forward_inference,
         algorithm::deconvolution_direct,
         desc({1, s.in_channels, s.height, s.width}, Tag::nChw8c),
         desc({s.out_channels, s.in_channels, s.kernel_y, s.kernel_x}, Tag::any),
         desc({s.out_channels}, Tag::x),
         desc({1, s.out_channels, height, width}, Tag::nChw8c),
         {s.stride_y, s.stride_x},
         first,
         last});
  });
}

std::optional<Peer> onednn_recurrent(const test::RecurrentCase& layer) {
  return made_by([&] {
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
      return operation<dnnl::lstm_forward>(
          {mode, direction, x, state, state, of_input, of_state, bias(gates), y, state, state});
    }
    if (layer.network == test::Network::gru) {
      return operation<dnnl::lbr_gru_forward>(
          {mode, direction, x, state, of_input, of_state, bias(gates + 1), y, state});
    }
    return operation<dnnl::vanilla_rnn_forward>({mode, algorithm::eltwise_tanh, direction, x, state,
                                                 of_input, of_state, bias(gates), y, state});
  });
}

}  // namespace marlo::bench

#else

namespace marlo::bench {

std::optional<Peer> onednn_pooling(bool, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
  return std::nullopt;
}

std::optional<Peer> onednn_doubling(uint32_t, uint32_t) { return std::nullopt; }

std::optional<Peer> onednn_convolution(const test::ConvCase&) { return std::nullopt; }

std::optional<Peer> onednn_transposed_convolution(const test::ConvCase&) { return std::nullopt; }

std::optional<Peer> onednn_recurrent(const test::RecurrentCase&) { return std::nullopt; }

}  // namespace marlo::bench

#endif
