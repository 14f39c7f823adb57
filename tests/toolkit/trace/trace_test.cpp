#include "qrt_toolkit/trace/trace.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/utility/build_options.h"
#include "qrt_core/utility/model.h"
#include "tests/support/paths.h"

namespace marlo::toolkit {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

size_t count_of(const Trace& trace, TraceKind kind) {
  return static_cast<size_t>(
      std::count_if(trace.events.begin(), trace.events.end(),
                    [&](const TraceEvent& event) { return event.kind == kind; }));
}

#if QRT_WITH_SSE
class TraceTest : public ::testing::Test {
 protected:
  TraceTest()
      : model_(marlo::test::source_path("models/digits/digits.qrtmodel")),
        network_(model_.at(size_t{0})),
        pixels_(28 * 28, 0.5f) {}

  std::vector<float> run() {
    const auto results = network_.run({{1, 28, 28}, pixels_});
    const auto numbers = results[0].elements();
    return {numbers.begin(), numbers.end()};
  }

  utility::Model model_;
  utility::Network& network_;
  std::vector<float> pixels_;
};

TEST_F(TraceTest, APassIsItsKernelsAndTheEngineBetweenThem) {
  const std::vector<float> before = run();
  Tracer tracer(*network_.net(), *network_.context());
  tracer.begin_pass();
  EXPECT_EQ(run(), before);
  tracer.end_pass();
  const Trace trace = tracer.take();

  const auto& layers = network_.net()->layers;
  ASSERT_FALSE(trace.events.empty());
  EXPECT_EQ(trace.events[0].kind, TraceKind::pass);
  EXPECT_EQ(count_of(trace, TraceKind::pass), 1u);
  EXPECT_EQ(count_of(trace, TraceKind::kernel), layers.size());
  size_t converters = 0;
  for (const auto& layer : layers) {
    converters += layer->input_converters.size() + layer->output_converters.size();
  }
  EXPECT_EQ(count_of(trace, TraceKind::converter), converters);

  // Kernels, converters and engine fill the pass without gaps and without overlap.
  double reached = 0.0;
  size_t next_layer = 0;
  for (const TraceEvent& event : trace.events) {
    EXPECT_GE(event.begin_us, 0.0);
    EXPECT_LE(event.begin_us + event.duration_us, trace.events[0].duration_us + 1e-6);
    if (event.kind == TraceKind::kernel || event.kind == TraceKind::converter ||
        event.kind == TraceKind::engine) {
      EXPECT_NEAR(event.begin_us, reached, 1e-6);
      reached = event.begin_us + event.duration_us;
    }
    if (event.kind != TraceKind::kernel) continue;
    EXPECT_EQ(event.layer, layers[next_layer]->id);
    EXPECT_EQ(event.layer_kind, layers[next_layer]->name);
    EXPECT_EQ(event.kernel, layers[next_layer]->kernel->GetKernelName());
    EXPECT_FALSE(event.output.dims.empty());
    ++next_layer;
  }
  EXPECT_NEAR(reached, trace.events[0].duration_us, 1e-6);
}

TEST_F(TraceTest, EveryBlockThatIsTakenComesBackOrIsAResult) {
  run();
  Tracer tracer(*network_.net(), *network_.context());
  tracer.begin_pass();
  run();
  tracer.end_pass();
  const Trace trace = tracer.take();
  uint64_t in_use[2] = {};
  for (const TraceEvent& event : trace.events) {
    if (event.kind != TraceKind::allocation && event.kind != TraceKind::release) continue;
    uint64_t& own = in_use[event.in_dynamic_pool ? 1 : 0];
    own = event.kind == TraceKind::allocation ? own + event.bytes : own - event.bytes;
    EXPECT_EQ(event.bytes_in_use, own);
    EXPECT_GE(event.pool_bytes, own);
  }
  EXPECT_GT(count_of(trace, TraceKind::allocation), network_.net()->layers.size() / 2);
  EXPECT_EQ(count_of(trace, TraceKind::allocation), count_of(trace, TraceKind::release));
  EXPECT_EQ(in_use[0] + in_use[1], 0u);
}

TEST_F(TraceTest, NetworkAndDeviceGetBackWhatIsTheirs) {
  const auto kernel = network_.net()->layers[1]->kernel;
  runtime::DeviceCPU& device = *network_.context()->cpu;
  const auto static_pool = device.static_pool;
  const auto dynamic_pool = device.dynamic_pool;
  auto kept = network_.run({{1, 28, 28}, pixels_});  // returned to the pools while they are watched
  {
    Tracer tracer(*network_.net(), *network_.context());
    EXPECT_NE(network_.net()->layers[1]->kernel, kernel);
    EXPECT_NE(device.static_pool, static_pool);
    kept = network_.run({{1, 28, 28}, pixels_});  // and the other way round
    EXPECT_TRUE(tracer.take().events.empty());    // nothing was asked for
  }
  EXPECT_EQ(network_.net()->layers[1]->kernel, kernel);
  EXPECT_EQ(device.static_pool, static_pool);
  EXPECT_EQ(device.dynamic_pool, dynamic_pool);
}

TEST_F(TraceTest, ATraceIsOfTheLastPassOnly) {
  Tracer tracer(*network_.net(), *network_.context());
  for (int i = 0; i < 3; ++i) {
    tracer.begin_pass();
    run();
    tracer.end_pass();
  }
  run();
  EXPECT_EQ(count_of(tracer.take(), TraceKind::kernel), network_.net()->layers.size());
  EXPECT_TRUE(tracer.take().events.empty());
}
#endif

TEST(Trace, NeedsADevice) {
  runtime::Net net({}, {});
  runtime::Context context;
  EXPECT_THROW(Tracer(net, context), std::invalid_argument);
}

TEST(TraceJson, HoldsSpansAndCountersAsPerfettoReadsThem) {
  Trace trace;
  trace.network = "net \"1\"";
  trace.events.resize(4);
  trace.events[0].duration_us = 20.5;
  trace.events[1].kind = TraceKind::kernel;
  trace.events[1].begin_us = 1.5;
  trace.events[1].duration_us = 7.25;
  trace.events[1].layer = "conv1";
  trace.events[1].layer_kind = "Conv2d";
  trace.events[1].kernel = "Some_Kernel";
  trace.events[1].output =
      runtime::TensorShape({8, 2, 3}, runtime::DataType::FLOAT32, runtime::LayoutType::CHW);
  trace.events[2].kind = TraceKind::allocation;
  trace.events[2].in_dynamic_pool = true;
  trace.events[2].bytes = 192;
  trace.events[2].bytes_in_use = 384;
  trace.events[2].pool_bytes = 1024;
  trace.events[3].kind = TraceKind::engine;
  const std::string json = trace_json(trace);
  EXPECT_THAT(json, HasSubstr("{\"displayTimeUnit\": \"ms\", \"traceEvents\": [\n"));
  EXPECT_THAT(json, HasSubstr("\"name\":\"net \\\"1\\\"\",\"pid\":1,\"tid\":1,\"ts\":0.0,"
                              "\"dur\":20.5,\"cat\":\"pass\"}"));
  EXPECT_THAT(json, HasSubstr("{\"ph\":\"X\",\"name\":\"conv1\",\"pid\":1,\"tid\":2,\"ts\":1.5,"
                              "\"dur\":7.25,\"cat\":\"kernel\",\"args\":{\"kind\":\"Conv2d\","
                              "\"kernel\":\"Some_Kernel\",\"output\":\"FLOAT32 CHW [8, 2, 3]\"}}"));
  EXPECT_THAT(json, AllOf(HasSubstr("\"name\":\"allocate\""), HasSubstr("\"bytes\":192"),
                          HasSubstr("\"name\":\"dynamic pool\""), HasSubstr("\"bytes in use\":384"),
                          HasSubstr("\"name\":\"engine\"")));
}

}  // namespace
}  // namespace marlo::toolkit
