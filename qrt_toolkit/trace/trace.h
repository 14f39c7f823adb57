#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/utility/export.h"

// What happens in a pass, and when.

namespace marlo::toolkit {

/// What an event of a trace is.
enum class TraceKind {
  pass,        ///< the whole of it
  kernel,      ///< a layer's own kernel
  converter,   ///< one of a layer's input or output converters
  engine,      ///< what lies between kernels: looking up inputs, keeping and releasing results
  allocation,  ///< a block taken from a pool
  release,     ///< a block given back to it
};

/// One thing that happened in a pass.
struct TraceEvent {
  TraceKind kind = TraceKind::pass;  ///< what it is
  double begin_us = 0.0;             ///< microseconds from the beginning of the pass
  double duration_us = 0.0;          ///< 0 for allocations and releases
  std::string layer;                 ///< id of a kernel's layer; empty for the rest
  std::string layer_kind;            ///< its printed type, such as "Conv2d"
  std::string role;                  ///< of a converter: "input converter 0" and the like
  std::string kernel;                ///< its name
  runtime::TensorShape output;   ///< of a kernel: its first output; without dims if it made none
  bool in_dynamic_pool = false;  ///< of an allocation or release: which of the device's two pools
  uint64_t bytes = 0;            ///< of an allocation or release
  uint64_t bytes_in_use = 0;     ///< of the pool behind it, of what was taken while it was traced
  uint64_t pool_bytes = 0;       ///< all that the pool holds, free or in use
};

/// A pass that was traced.
struct Trace {
  std::string network;             ///< what the text calls it; set it if you like
  std::vector<TraceEvent> events;  ///< by their beginnings; what lies in another comes behind it
};

/// Watches the passes of a network.
///
/// It takes the places of the network's kernels and of the device's pools, and hands every call on to
/// them, so that the runtime itself needs no clock and no hook, and an untraced pass costs nothing. Tracing costs about
/// a tenth of a microsecond for each event. It belongs to the network's thread.
///
/// @code
/// marlo::toolkit::Tracer tracer(*network.net(), *network.context());
/// tracer.begin_pass();
/// network.run(inputs);
/// tracer.end_pass();
/// std::ofstream("pass.json") << marlo::toolkit::trace_json(tracer.take());
/// @endcode
class QRT_API Tracer {
 public:
  /// Both must outlive it.
  /// @throws std::invalid_argument for a context without a CPU device
  Tracer(runtime::Net& net, runtime::Context& context);
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;
  /// Gives network and device back what is theirs. Tensors that were made meanwhile may live on.
  ~Tracer();

  /// Forgets what was traced before. From now on everything is noted down.
  void begin_pass();
  /// Until now.
  void end_pass();
  /// What lies between the last two calls of these. A kernel that threw has no event.
  Trace take();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// A trace as JSON in the form of Chrome's trace events, which Perfetto (ui.perfetto.dev) and
/// chrome://tracing open: kernels, converters and the engine on one track, passes on another, and
/// what each pool holds as curves.
QRT_API std::string trace_json(const Trace& trace);

}  // namespace marlo::toolkit
