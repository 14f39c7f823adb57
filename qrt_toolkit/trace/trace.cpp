#include "qrt_toolkit/trace/trace.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "qrt_core/runtime/tensor/align_up_pool.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_toolkit/watch/kernel_wrapper.h"

namespace marlo::toolkit {

using runtime::MemoryPool;

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMostDims = 6;

/// An event as it is noted down, without a text or anything else that takes memory.
struct Note {
  TraceKind kind = TraceKind::pass;
  Clock::time_point begin;
  Clock::time_point end;
  uint32_t kernel = 0;  // a place among the traced kernels
  std::array<uint32_t, kMostDims> dims{};
  uint32_t dim_count = 0;
  runtime::DataType data_type = runtime::DataType::FLOAT32;
  runtime::LayoutType layout = runtime::LayoutType::FLEXIABLE;
  bool in_dynamic_pool = false;
  uint64_t bytes = 0;
  uint64_t bytes_in_use = 0;
  uint64_t pool_bytes = 0;
};

/// Where notes go while a pass is traced.
struct Notes {
  bool is_on = false;
  std::vector<Note> notes;

  void add(const Note& note) {
    if (is_on) notes.push_back(note);
  }
};

/// A kernel that notes down when another one runs.
class TracedKernel final : public KernelWrapper {
 public:
  TracedKernel(std::shared_ptr<IKernel> kernel, TraceKind kind, uint32_t place, Notes& notes)
      : KernelWrapper(std::move(kernel)), notes_(notes) {
    note_.kind = kind;
    note_.kernel = place;
  }

  int PrepareForward(const ContextPointer& context, Tensors& inputs, bool& transient,
                     Tensors& outputs) override {
    begin_ = Clock::now();
    return KernelWrapper::PrepareForward(context, inputs, transient, outputs);
  }

  int Forward(const Tensors& inputs, Tensors& outputs, ContextPointer context) override {
    const size_t before = outputs.size();
    // Preparing is a part of it, where the engine has asked for that.
    Note note = note_;
    note.begin = begin_ ? *std::exchange(begin_, std::nullopt) : Clock::now();
    const int result = KernelWrapper::Forward(inputs, outputs, std::move(context));
    note.end = Clock::now();
    if (outputs.size() > before && outputs[before] != nullptr) {
      const runtime::TensorShape& shape = outputs[before]->shape;
      note.dim_count = static_cast<uint32_t>(std::min(shape.dims.size(), kMostDims));
      std::copy_n(shape.dims.begin(), note.dim_count, note.dims.begin());
      note.data_type = shape.data_type;
      note.layout = shape.layout;
    }
    notes_.add(note);
    return result;
  }

 private:
  Notes& notes_;
  Note note_;
  std::optional<Clock::time_point> begin_;
};

/// A pool that notes down what is taken from another one.
class TracedPool final : public MemoryPool {
 public:
  TracedPool(std::shared_ptr<MemoryPool> pool, bool is_dynamic, Notes& notes)
      : pool_(std::move(pool)), is_dynamic_(is_dynamic), notes_(notes) {}

  void ReleaseFreeBlocks() override { pool_->ReleaseFreeBlocks(); }

  void* Allocate(uint64_t size) override {
    void* const address = pool_->Allocate(size);
    if (address == nullptr) {
      // The device would take the request back by itself if it saw this pool.
      if (auto* own = dynamic_cast<runtime::AlignUpPool*>(pool_.get())) own->Free(nullptr);
      return nullptr;
    }
    in_use_ += size;
    sizes_[address] = size;
    note(TraceKind::allocation, size);
    return address;
  }

  void Free(void* address) override {
    pool_->Free(address);
    const auto found = sizes_.find(address);
    if (found == sizes_.end()) return;  // taken before this pool stood here
    in_use_ -= found->second;
    note(TraceKind::release, found->second);
    sizes_.erase(found);
  }

  uint64_t TotalBytes() override { return pool_->TotalBytes(); }

  const std::shared_ptr<MemoryPool>& pool() const { return pool_; }

 private:
  void note(TraceKind kind, uint64_t size) {
    if (!notes_.is_on) return;
    Note note;
    note.kind = kind;
    note.begin = note.end = Clock::now();
    note.in_dynamic_pool = is_dynamic_;
    note.bytes = size;
    note.bytes_in_use = in_use_;
    note.pool_bytes = pool_->TotalBytes();
    notes_.add(note);
  }

  std::shared_ptr<MemoryPool> pool_;
  bool is_dynamic_;
  Notes& notes_;
  uint64_t in_use_ = 0;
  std::unordered_map<void*, uint64_t> sizes_;
};

/// What the text says of a kernel.
struct KernelFacts {
  std::string layer;
  std::string layer_kind;
  std::string role;
  std::string kernel;
};

std::string role_of(const KernelPlace& place) {
  if (place.role == KernelRole::own) return "";
  return (place.role == KernelRole::input_converter ? "input converter " : "output converter ") +
         std::to_string(place.position);
}

bool is_span(TraceKind kind) { return kind == TraceKind::kernel || kind == TraceKind::converter; }

TraceEvent event_of(const Note& note, Clock::time_point start,
                    const std::vector<KernelFacts>& kernels) {
  using Microseconds = std::chrono::duration<double, std::micro>;
  TraceEvent event;
  event.kind = note.kind;
  event.begin_us = Microseconds(note.begin - start).count();
  event.duration_us = Microseconds(note.end - note.begin).count();
  if (is_span(note.kind)) {
    const KernelFacts& facts = kernels[note.kernel];
    event.layer = facts.layer;
    event.layer_kind = facts.layer_kind;
    event.role = facts.role;
    event.kernel = facts.kernel;
    event.output.dims.assign(note.dims.begin(), note.dims.begin() + note.dim_count);
    event.output.data_type = note.data_type;
    event.output.layout = note.layout;
  }
  event.in_dynamic_pool = note.in_dynamic_pool;
  event.bytes = note.bytes;
  event.bytes_in_use = note.bytes_in_use;
  event.pool_bytes = note.pool_bytes;
  return event;
}

TraceEvent engine_between(double begin_us, double end_us) {
  TraceEvent event;
  event.kind = TraceKind::engine;
  event.begin_us = begin_us;
  event.duration_us = end_us - begin_us;
  return event;
}

}  // namespace

struct Tracer::State {
  State(runtime::Net& net, runtime::DeviceCPU& cpu)
      : device(cpu),
        static_pool(taken(device.static_pool, false)),
        dynamic_pool(taken(device.dynamic_pool, true)),
        kernels(net, [&](const KernelPlace& place, const KernelsTaken::Kernel& kernel) {
          const runtime::Layer& layer = *net.layers[place.layer];
          facts.push_back({layer.id, layer.name, role_of(place), kernel->GetKernelName()});
          const bool is_own = place.role == KernelRole::own;
          return std::make_shared<TracedKernel>(kernel,
                                                is_own ? TraceKind::kernel : TraceKind::converter,
                                                static_cast<uint32_t>(facts.size() - 1), notes);
        }) {
    // Enough for a kernel, a few tensors, and their release.
    notes.notes.reserve(16 * facts.size() + 64);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() {
    if (static_pool != nullptr) device.static_pool = static_pool->pool();
    if (dynamic_pool != nullptr) device.dynamic_pool = dynamic_pool->pool();
  }

  std::shared_ptr<TracedPool> taken(std::shared_ptr<MemoryPool>& place, bool is_dynamic) {
    if (place == nullptr) return nullptr;
    auto traced = std::make_shared<TracedPool>(place, is_dynamic, notes);
    place = traced;
    return traced;
  }

  Notes notes;
  std::vector<KernelFacts> facts;
  Clock::time_point start{};
  Clock::time_point end{};
  runtime::DeviceCPU& device;
  std::shared_ptr<TracedPool> static_pool;
  std::shared_ptr<TracedPool> dynamic_pool;
  KernelsTaken kernels;
};

Tracer::Tracer(runtime::Net& net, runtime::Context& context) {
  if (context.cpu == nullptr) throw std::invalid_argument("a trace needs a context with a device");
  state_ = std::make_unique<State>(net, *context.cpu);
}

Tracer::~Tracer() = default;

void Tracer::begin_pass() {
  state_->notes.notes.clear();
  state_->notes.is_on = true;
  state_->start = Clock::now();
}

void Tracer::end_pass() {
  state_->end = Clock::now();
  state_->notes.is_on = false;
}

Trace Tracer::take() {
  Trace trace;
  if (state_->end < state_->start || state_->start == Clock::time_point{}) return trace;
  Note whole;
  whole.begin = state_->start;
  whole.end = state_->end;
  trace.events.push_back(event_of(whole, state_->start, state_->facts));
  const double pass_us = trace.events[0].duration_us;

  double free_from = 0.0;  // the end of the last kernel
  for (const Note& note : state_->notes.notes) {
    TraceEvent event = event_of(note, state_->start, state_->facts);
    if (is_span(note.kind)) {
      if (event.begin_us > free_from) {
        trace.events.push_back(engine_between(free_from, event.begin_us));
      }
      free_from = event.begin_us + event.duration_us;
    }
    trace.events.push_back(std::move(event));
  }
  if (pass_us > free_from) trace.events.push_back(engine_between(free_from, pass_us));
  // Kernels are noted down when they end, behind what was allocated in them.
  std::stable_sort(trace.events.begin(), trace.events.end(),
                   [](const TraceEvent& a, const TraceEvent& b) {
                     if (a.begin_us != b.begin_us) return a.begin_us < b.begin_us;
                     return a.duration_us > b.duration_us;
                   });
  state_->notes.notes.clear();
  state_->start = {};
  return trace;
}

}  // namespace marlo::toolkit
