#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/trace/trace.h"

// In a namespace of its own: the library instantiates the same templates with other assertions, and
// a program holds only one copy of each name.
#define RAPIDJSON_NAMESPACE qrt_trace_rapidjson
#define RAPIDJSON_NAMESPACE_BEGIN namespace qrt_trace_rapidjson {
#define RAPIDJSON_NAMESPACE_END }
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace marlo::toolkit {
namespace {

constexpr int kProcess = 1;
constexpr int kPassTrack = 1;
constexpr int kKernelTrack = 2;

/// Events of the trace, one a line.
class Events {
 public:
  using Writer = qrt_trace_rapidjson::Writer<qrt_trace_rapidjson::StringBuffer>;

  // Begins an event; `end` closes it.
  Writer& begin(const char* phase, const std::string& name, int track, double begin_us) {
    if (!text_.empty()) text_ += ",\n";
    buffer_.Clear();
    writer_.Reset(buffer_);
    writer_.StartObject();
    add("ph", phase);
    add("name", name);
    writer_.Key("pid");
    writer_.Int(kProcess);
    writer_.Key("tid");
    writer_.Int(track);
    writer_.Key("ts");
    writer_.Double(begin_us);
    return writer_;
  }

  void add(const char* key, const std::string& value) {
    writer_.Key(key);
    writer_.String(value.c_str(), static_cast<qrt_trace_rapidjson::SizeType>(value.size()));
  }

  void add(const char* key, uint64_t value) {
    writer_.Key(key);
    writer_.Uint64(value);
  }

  void begin_arguments() {
    writer_.Key("args");
    writer_.StartObject();
  }

  void end_arguments() { writer_.EndObject(); }

  void end() {
    writer_.EndObject();
    text_ += buffer_.GetString();
  }

  void name_track(const char* what, int track, const std::string& name) {
    begin("M", what, track, 0.0);
    begin_arguments();
    add("name", name);
    end_arguments();
    end();
  }

  const std::string& text() const { return text_; }

 private:
  qrt_trace_rapidjson::StringBuffer buffer_;
  Writer writer_{buffer_};
  std::string text_;
};

const char* category_of(TraceKind kind) {
  switch (kind) {
    case TraceKind::pass:
      return "pass";
    case TraceKind::kernel:
      return "kernel";
    case TraceKind::converter:
      return "converter";
    case TraceKind::engine:
      return "engine";
    default:
      return "memory";
  }
}

std::string name_of(const TraceEvent& event, const Trace& trace) {
  if (event.kind == TraceKind::pass) return trace.network.empty() ? "pass" : trace.network;
  if (event.kind == TraceKind::engine) return "engine";
  return event.role.empty() ? event.layer : event.layer + " " + event.role;
}

void add_span(Events& events, const TraceEvent& event, const Trace& trace) {
  const int track = event.kind == TraceKind::pass ? kPassTrack : kKernelTrack;
  Events::Writer& writer = events.begin("X", name_of(event, trace), track, event.begin_us);
  writer.Key("dur");
  writer.Double(event.duration_us);
  events.add("cat", category_of(event.kind));
  if (!event.kernel.empty()) {
    events.begin_arguments();
    events.add("kind", event.layer_kind);
    events.add("kernel", event.kernel);
    if (!event.output.dims.empty()) events.add("output", ShapeText(event.output));
    events.end_arguments();
  }
  events.end();
}

void add_memory(Events& events, const TraceEvent& event) {
  const std::string pool = event.in_dynamic_pool ? "dynamic pool" : "static pool";
  const char* const what = event.kind == TraceKind::allocation ? "allocate" : "release";
  Events::Writer& writer = events.begin("i", what, kKernelTrack, event.begin_us);
  writer.Key("s");
  writer.String("t");
  events.add("cat", category_of(event.kind));
  events.begin_arguments();
  events.add("pool", pool);
  events.add("bytes", event.bytes);
  events.end_arguments();
  events.end();

  events.begin("C", pool, kKernelTrack, event.begin_us);
  events.begin_arguments();
  events.add("bytes in use", event.bytes_in_use);
  events.end_arguments();
  events.end();
  events.begin("C", pool + " size", kKernelTrack, event.begin_us);
  events.begin_arguments();
  events.add("bytes", event.pool_bytes);
  events.end_arguments();
  events.end();
}

}  // namespace

std::string trace_json(const Trace& trace) {
  Events events;
  events.name_track("process_name", kPassTrack, trace.network.empty() ? "network" : trace.network);
  events.name_track("thread_name", kPassTrack, "passes");
  events.name_track("thread_name", kKernelTrack, "kernels");
  for (const TraceEvent& event : trace.events) {
    if (event.kind == TraceKind::allocation || event.kind == TraceKind::release) {
      add_memory(events, event);
    } else {
      add_span(events, event, trace);
    }
  }
  return "{\"displayTimeUnit\": \"ms\", \"traceEvents\": [\n" + events.text() + "\n]}\n";
}

}  // namespace marlo::toolkit
