#include "bench/support/peers.h"

#include <algorithm>
#include <vector>

#include "bench/support/processor.h"

#ifdef QRT_BENCH_WITH_ONEDNN
#include <dlfcn.h>

#include <dnnl.hpp>
#include <unordered_map>
#endif

#ifdef QRT_BENCH_WITH_OPENBLAS
#include <cblas.h>
#endif

namespace marlo::bench {
namespace {

// The median of calls for a tenth of a second.
template <typename Call>
[[maybe_unused]] double median_seconds(Call call) {
  constexpr double kSeconds = 0.1;
  constexpr size_t kLeast = 5;
  call();
  std::vector<double> runs;
  for (double all = 0.0; all < kSeconds || runs.size() < kLeast; all += runs.back()) {
    const double start = thread_seconds();
    call();
    runs.push_back(thread_seconds() - start);
  }
  const auto middle = runs.begin() + static_cast<std::ptrdiff_t>(runs.size() / 2);
  std::nth_element(runs.begin(), middle, runs.end());
  return *middle;
}

}  // namespace

#ifdef QRT_BENCH_WITH_ONEDNN

// Its threads are those of the OpenMP library that it brings along, which counts the cores when it
// is loaded: before this program pins itself to one.
void hold_onednn_to_one_thread_and_avx2() {
  static const bool held = [] {
    dnnl::set_max_cpu_isa(dnnl::cpu_isa::avx2);
    using SetThreads = void (*)(int);
    if (void* set = dlsym(RTLD_DEFAULT, "omp_set_num_threads")) {
      reinterpret_cast<SetThreads>(set)(1);
    }
    return true;
  }();
  (void)held;
}

namespace {

using Dims = dnnl::memory::dims;
using Tag = dnnl::memory::format_tag;

dnnl::memory::desc any_of(const Dims& dims) {
  return {dims, dnnl::memory::data_type::f32, Tag::any};
}

double seconds_in_onednn(const test::ConvCase& s) {
  const auto size = [](uint32_t in, int padding, int extent, uint32_t stride) {
    return (static_cast<int>(in) + padding - extent) / static_cast<int>(stride) + 1;
  };
  const int height = size(s.height, s.padding_t + s.padding_b, s.extent_y(), s.stride_y);
  const int width = size(s.width, s.padding_l + s.padding_r, s.extent_x(), s.stride_x);
  Dims weights = {s.outs(), s.ins(), s.kernel_y, s.kernel_x};
  if (s.groups > 1) weights.insert(weights.begin(), s.groups);
  const dnnl::engine engine(dnnl::engine::kind::cpu, 0);
  const dnnl::convolution_forward::desc description(
      dnnl::prop_kind::forward_inference, dnnl::algorithm::convolution_direct,
      any_of({1, s.in_channels, s.height, s.width}), any_of(weights), any_of({s.out_channels}),
      any_of({1, s.out_channels, height, width}), {s.stride_y, s.stride_x},
      {s.dilation_y - 1, s.dilation_x - 1}, {s.padding_t, s.padding_l}, {s.padding_b, s.padding_r});
  const dnnl::convolution_forward::primitive_desc chosen(description, engine);
  const dnnl::convolution_forward convolution(chosen);
  const auto filled = [&engine](const dnnl::memory::desc& desc) {
    dnnl::memory memory(desc, engine);
    std::fill_n(static_cast<float*>(memory.get_data_handle()), desc.get_size() / sizeof(float),
                0.5f);
    return memory;
  };
  const std::unordered_map<int, dnnl::memory> arguments = {
      {DNNL_ARG_SRC, filled(chosen.src_desc())},
      {DNNL_ARG_WEIGHTS, filled(chosen.weights_desc())},
      {DNNL_ARG_BIAS, filled(chosen.bias_desc())},
      {DNNL_ARG_DST, filled(chosen.dst_desc())}};
  dnnl::stream stream(engine);
  return median_seconds([&] {
    convolution.execute(stream, arguments);
    stream.wait();
  });
}

}  // namespace

std::optional<double> onednn_seconds(const test::ConvCase& sizes) {
  hold_onednn_to_one_thread_and_avx2();
  try {
    return seconds_in_onednn(sizes);
  } catch (const dnnl::error&) {
    return std::nullopt;
  }
}

#else

std::optional<double> onednn_seconds(const test::ConvCase&) { return std::nullopt; }

#endif

#ifdef QRT_BENCH_WITH_OPENBLAS

std::optional<double> openblas_seconds(size_t rows, size_t inner, size_t columns) {
  const std::vector<float> a(rows * inner, 0.5f);
  const std::vector<float> b(inner * columns, 0.5f);
  std::vector<float> c(rows * columns);
  const int m = static_cast<int>(rows);
  const int k = static_cast<int>(inner);
  const int n = static_cast<int>(columns);
  return median_seconds([&] {
    cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, k, 1.0f, a.data(), k, b.data(), n,
                0.0f, c.data(), n);
  });
}

std::optional<double> openblas_vector_seconds(const float* matrix, size_t rows, size_t columns) {
  const std::vector<float> x(columns, 0.5f);
  std::vector<float> y(rows);
  const int m = static_cast<int>(rows);
  const int n = static_cast<int>(columns);
  return median_seconds([&] {
    cblas_sgemv(CblasRowMajor, CblasNoTrans, m, n, 1.0f, matrix, n, x.data(), 1, 1.0f, y.data(), 1);
  });
}

#else

std::optional<double> openblas_seconds(size_t, size_t, size_t) { return std::nullopt; }

std::optional<double> openblas_vector_seconds(const float*, size_t, size_t) { return std::nullopt; }

#endif

}  // namespace marlo::bench
