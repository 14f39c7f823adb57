#include "qrt_core/utility/model.h"

#include <malloc.h>

#include <algorithm>
#include <map>
#include <unordered_map>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/weight_pool.h"
#include "qrt_core/utility/application.h"
#include "qrt_core/utility/build_options.h"
#include "qrt_core/utility/check_shapes.h"
#include "qrt_core/utility/input_demand_internal.h"
#include "qrt_core/utility/load_net_internal.h"
#include "qrt_core/utility/log.h"
#include "qrt_core/utility/model_source_internal.h"
#include "qrt_core/utility/model_summary.h"
#include "qrt_core/utility/nearest_name_internal.h"
#include "qrt_core/utility/quiet_log_internal.h"

namespace marlo::utility {

using runtime::Context;
using runtime::DataType;
using runtime::LayoutType;
using runtime::Tensor;
using runtime::TensorShape;

namespace {

using ShapesByLayer = std::unordered_map<unsigned int, TensorShape>;

LayoutType layout_for(size_t dims) {
  switch (dims) {
    case 1:
      return LayoutType::C;
    case 2:
      return LayoutType::CL;
    case 3:
      return LayoutType::CHW;
    default:
      return LayoutType::FLEXIABLE;
  }
}

// The texts of a model that is ready are free, but among blocks that are not, so that the system's
// allocator keeps their pages unless it is asked.
void give_texts_back([[maybe_unused]] size_t size) {
#ifdef __GLIBC__
  constexpr size_t kWorthAsking = size_t{1} << 20;
  if (size >= kWorthAsking) malloc_trim(0);
#endif
}

// A tensor that keeps its context: the pool that its numbers stand in outlives it.
std::shared_ptr<Tensor> kept(const std::shared_ptr<Context>& context,
                             std::shared_ptr<Tensor> tensor) {
  Tensor* const address = tensor.get();
  return {address, [context = std::shared_ptr<Context>(context),
                    tensor = std::move(tensor)](Tensor*) mutable {
            tensor.reset();
            context.reset();
          }};
}

void check_versions(const runtime::QRTModel& model, const ModelOptions& options) {
  Assert(model.core_major_ver <= QRT_CORE_VERSION_MAJOR &&
             model.core_minor_ver <= QRT_CORE_VERSION_MINOR,
         "the model needs core %u.%u, and this one is %u.%u", model.core_major_ver,
         model.core_minor_ver, QRT_CORE_VERSION_MAJOR, QRT_CORE_VERSION_MINOR);
  if (options.sdk_type.empty()) return;
  Assert(model.sdk_type == options.sdk_type && model.sdk_major_ver == options.sdk_major &&
             model.sdk_minor_ver == options.sdk_minor,
         "the model is for SDK %s %u.%u, and not for %s %u.%u", model.sdk_type.c_str(),
         model.sdk_major_ver, model.sdk_minor_ver, options.sdk_type.c_str(), options.sdk_major,
         options.sdk_minor);
}

// Where weights are made and kept, for all clones.
std::shared_ptr<Context> weight_context(std::shared_ptr<runtime::MemoryPool> pool) {
  auto device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, nullptr);
  return runtime::CreateContext(std::move(device), nullptr, nullptr, nullptr, nullptr, nullptr);
}

// Runs `call` with the network's id added to what it throws.
template <typename Call>
auto in_network(const std::string& id, Call call) {
  try {
    return call();
  } catch (Error& failure) {
    failure.in_network(id);
    throw;
  }
}

}  // namespace

// --- Input and Results ---

Input::Input(TensorShape shape, const void* numbers)
    : shape_(std::move(shape)), numbers_(numbers) {}

Input::Input(std::shared_ptr<Tensor> tensor) : tensor_(std::move(tensor)) {
  if (tensor_ != nullptr) shape_ = tensor_->shape;
}

TensorShape Input::shape_of(std::vector<uint32_t> dims, runtime::DataType type) {
  const LayoutType layout = layout_for(dims.size());
  return TensorShape(std::move(dims), type, layout);
}

void Input::check_count(size_t count) const {
  uint64_t wanted = 1;
  for (const uint32_t size : shape_.dims) wanted *= size;
  if (wanted == count) return;
  const QuietLog quiet;
  Assert(false, "an input of %llu numbers was given %llu", static_cast<unsigned long long>(wanted),
         static_cast<unsigned long long>(count));
}

const Output& Results::at(const std::string& id) const {
  const QuietLog quiet;
  const auto found = std::find_if(outputs_.begin(), outputs_.end(),
                                  [&](const Output& output) { return output.id() == id; });
  Assert(found != outputs_.end(), "the run returned no result of layer \"%s\"", id.c_str());
  return *found;
}

// --- Network ---

struct Network::State {
  std::string id;
  std::shared_ptr<Context> weights;  // where they were made; outlives the package
  std::shared_ptr<Context> context;  // outlives the package
  std::shared_ptr<_NetworkPackage> package;
  std::vector<Port> inputs;
  std::vector<Port> outputs;
  std::optional<ModelSummary> summary;
  ShapesByLayer checked;  // the shapes that the layers were last asked about

  uint32_t layer_of(const std::string& layer) const {
    const auto& layers = package->net->layers;
    for (uint32_t index = 0; index < layers.size(); ++index) {
      if (layers[index]->id == layer) return index;
    }
    std::vector<std::string> ids;
    ids.reserve(layers.size());
    for (const auto& other : layers) ids.push_back(other->id);
    Assert(false, "there is no layer \"%s\"; %s", layer.c_str(),
           nearest_advice(layer, ids, "layers are named by their ids").c_str());
    return 0;
  }

  std::vector<Port> wanted(const RunOptions& options) const {
    if (options.outputs.empty()) return outputs;
    std::vector<Port> ports;
    for (const std::string& layer : options.outputs) {
      ports.push_back({layer, layer_of(layer), std::nullopt});
    }
    return ports;
  }

  // Numbers may be given with the sizes that the model's source has, among them a batch of one.
  TensorShape shape_of(const Input& given, const std::string& input) const {
    const bool is_plain = given.tensor_ == nullptr && given.shape_.data_type == DataType::FLOAT32;
    const DescribedTensor* const described = is_plain && summary ? summary->input(input) : nullptr;
    if (described == nullptr || given.shape_.layout != layout_for(given.shape_.dims.size())) {
      return given.shape_;
    }
    return described_shape(*described, given.shape_.dims).value_or(given.shape_);
  }

  // Throws for the first layer that doesn't fit, if a result depends on it.
  void check(const ShapesByLayer& shapes, const std::vector<Port>& ports) {
    if (shapes == checked) return;
    const std::vector<LayerShapes> layers = check_shapes(*package->net, shapes, context);
    bool fits = true;
    for (const Port& port : ports) fits = fits && layers[port.layer].fault.empty();
    if (!fits) {
      for (const LayerShapes& layer : layers) {
        if (!layer.fault.empty() && !layer.is_consequence) throw_misfit(layer);
      }
    }
    checked = shapes;
  }

  static void throw_misfit(const LayerShapes& layer) {
    try {
      Assert(false, "%s", layer.fault.c_str());
    } catch (Error& failure) {
      failure.in_layer(layer.place);
      throw;
    }
  }

  Results run(const std::vector<Input>& given, const RunOptions& options);
};

Results Network::State::run(const std::vector<Input>& given, const RunOptions& options) {
  Assert(given.size() == inputs.size(), "the network has %zu inputs and was given %zu",
         inputs.size(), given.size());
  const std::vector<Port> ports = wanted(options);
  ShapesByLayer shapes;
  for (size_t i = 0; i < given.size(); ++i) {
    Assert(given[i].tensor_ != nullptr || given[i].numbers_ != nullptr,
           "input \"%s\" is a null pointer", inputs[i].id.c_str());
    shapes[inputs[i].layer] = shape_of(given[i], inputs[i].id);
  }
  check(shapes, ports);

  // A pass that failed has left it on.
  context->cpu->dynamic_mode = false;
  std::unordered_map<unsigned int, std::shared_ptr<Tensor>> tensors;
  for (size_t i = 0; i < given.size(); ++i) {
    tensors[inputs[i].layer] =
        given[i].tensor_ != nullptr
            ? given[i].tensor_
            : context->cpu->CreateTensor(shapes[inputs[i].layer], given[i].numbers_);
  }
  std::vector<unsigned int> layers;
  layers.reserve(ports.size());
  for (const Port& port : ports) layers.push_back(port.layer);
  const auto made = package->net->Forward(tensors, layers, context, options.layer_times, nullptr);
  Results results;
  for (const Port& port : ports) {
    const auto found = made.find(port.layer);
    Assert(found != made.end() && !found->second.empty(), "layer \"%s\" made no result",
           port.id.c_str());
    for (const auto& tensor : found->second) {
      results.outputs_.push_back(Output(port.id, kept(context, tensor)));
    }
  }
  for (Port& port : outputs) {
    const auto found = made.find(port.layer);
    if (found != made.end() && !found->second.empty()) port.shape = found->second[0]->shape;
  }
  return results;
}

Network::Network(std::unique_ptr<State> state) : state_(std::move(state)) {}
Network::~Network() = default;

const std::string& Network::id() const { return state_->id; }
const std::vector<Port>& Network::inputs() const { return state_->inputs; }
const std::vector<Port>& Network::outputs() const { return state_->outputs; }
const runtime::NetExtraInfo& Network::header() const { return state_->package->extra_info; }
const std::shared_ptr<runtime::Net>& Network::net() const { return state_->package->net; }
const std::shared_ptr<Context>& Network::context() const { return state_->context; }

Results Network::run(const std::vector<Input>& inputs, const RunOptions& options) {
  const QuietLog quiet;
  return in_network(id(), [&] { return state_->run(inputs, options); });
}

Results Network::run(const Input& input, const RunOptions& options) {
  return run(std::vector<Input>{input}, options);
}

std::unique_ptr<Network> Network::clone_on(const std::shared_ptr<Context>& context) const {
  auto state = std::make_unique<State>();
  state->id = state_->id;
  state->weights = state_->weights;
  state->summary = state_->summary;
  state->context = context;
  state->package = std::make_shared<_NetworkPackage>(*state_->package);
  state->package->context = context;
  state->package->net = state_->package->net->clone(context);
  state->inputs = state_->inputs;
  state->outputs = state_->outputs;
  return std::unique_ptr<Network>(new Network(std::move(state)));
}

// What it changes belongs to the kernels, which a const network would reach as well.
// NOLINTNEXTLINE(readability-make-member-function-const)
void Network::reset() {
  for (const auto& layer : net()->layers) {
    for (const auto& [position, converter] : layer->input_converters) {
      if (converter != nullptr) converter->ResetState();
    }
    if (layer->kernel != nullptr) layer->kernel->ResetState();
    for (const auto& [position, converter] : layer->output_converters) {
      if (converter != nullptr) converter->ResetState();
    }
  }
}

// --- Model ---

struct Model::State {
  // What clones share, and nothing changes once there are networks.
  struct Shared {
    std::shared_ptr<Context> weights;
    runtime::KernelRegistry kernels;
    runtime::InferenceParamRegistry params;
    unsigned int alignment = 0;
  };

  explicit State(std::shared_ptr<Shared> with_clones) : shared(std::move(with_clones)) {
    create_context(context, shared->alignment);
  }

  std::shared_ptr<Shared> shared;
  std::shared_ptr<Context> context;  // goes after the networks
  std::vector<std::unique_ptr<Network>> networks;

  std::unique_ptr<Network> load(const std::string& id, ModelSource& source);

  static std::unique_ptr<State> of(ModelSource& source, const ModelOptions& options);
};

std::unique_ptr<Network> Model::State::load(const std::string& id, ModelSource& source) {
  runtime::QRTModel& model = source.model();
  const std::shared_ptr<runtime::QRModelInfo>& info = model.model_arr->infos[id];
  auto& cfgs = model.config_arr->cfgs[id];
  if (cfgs == nullptr) cfgs = std::make_shared<runtime::QRModelMultiBackendCfgs>();
  auto state = std::make_unique<Network::State>();
  state->id = id;
  state->weights = shared->weights;
  state->context = context;
  state->package = std::make_shared<_NetworkPackage>();
  state->package->kernels = &shared->kernels;
  state->package->params = &shared->params;
  state->package->context = shared->weights;
  load_net(state->package, info, cfgs, "x86", source.weights());
  state->package->context = context;
  state->summary = read_summary(info->extra_info.summary);
  const auto& layers = state->package->net->layers;
  for (const auto& [input, layer] : state->package->net->input_map) {
    state->inputs.push_back({input, layer, told_shape(*info, input)});
  }
  std::sort(state->inputs.begin(), state->inputs.end(),
            [](const Port& a, const Port& b) { return a.layer < b.layer; });
  for (const unsigned int layer : state->package->output_ids) {
    state->outputs.push_back({layers.at(layer)->id, layer, std::nullopt});
  }
  return std::unique_ptr<Network>(new Network(std::move(state)));
}

Model Model::clone() const {
  const QuietLog quiet;
  Assert(state_ != nullptr, "a model that was moved from can't be cloned");
  auto copy = std::make_unique<State>(state_->shared);
  for (const auto& network : state_->networks) {
    copy->networks.push_back(
        in_network(network->id(), [&] { return network->clone_on(copy->context); }));
  }
  return Model(std::move(copy));
}

std::unique_ptr<Model::State> Model::open(const char* bytes, size_t size,
                                          const ModelOptions& options) {
  std::unique_ptr<State> state;
  {
    Assert(bytes != nullptr, "the model is a null pointer");
    ModelSource source(bytes, size);
    state = State::of(source, options);
  }
  give_texts_back(size);
  return state;
}

std::unique_ptr<Model::State> Model::State::of(ModelSource& source, const ModelOptions& options) {
  const runtime::QRTModel& model = source.model();
  check_versions(model, options);
  auto shared = std::make_shared<State::Shared>();
  shared->alignment = options.alignment;
  const auto pool = std::make_shared<runtime::WeightPool>(options.alignment);
  pool->KeepFreeBlock();
  shared->weights = weight_context(pool);
  if (options.kernels != nullptr) {
    // Registered first, as the first registration of a name stays.
    for (const std::string& key : options.kernels->Keys()) {
      const runtime::KernelRegistry* const own = options.kernels;
      shared->kernels.Register(
          key, [own, key] { return own->Create(key); }, false);
    }
  }
  init_register_operators(shared->kernels, shared->params);
  init_register_extension_operators(shared->kernels, shared->params);
  auto state = std::make_unique<State>(std::move(shared));
  for (const std::string& id : model.model_arr->squential_ids) {
    const auto has_id = [&](const auto& network) { return network->id() == id; };
    const auto& loaded = state->networks;
    if (std::any_of(loaded.begin(), loaded.end(), has_id)) continue;
    state->networks.push_back(in_network(id, [&] { return state->load(id, source); }));
  }
  pool->ReleaseFreeBlocks();
  return state;
}

Model::Model(const std::string& path, const ModelOptions& options) {
  const QuietLog quiet;
  size_t size = 0;
  try {
    ModelSource source(path);
    size = source.size();
    state_ = State::of(source, options);
  } catch (Error& failure) {
    if (failure.message().empty() && failure.detail().empty()) {
      failure.explain("the file " + path + " is not a model");
    }
    throw;
  }
  give_texts_back(size);
}

Model::Model(std::unique_ptr<State> state) : state_(std::move(state)) {}
Model::Model(Model&&) noexcept = default;
Model& Model::operator=(Model&&) noexcept = default;
Model::~Model() = default;

Model Model::from_bytes(const void* bytes, size_t size, const ModelOptions& options) {
  const QuietLog quiet;
  return Model(open(static_cast<const char*>(bytes), size, options));
}

size_t Model::size() const { return state_ != nullptr ? state_->networks.size() : 0; }

std::vector<std::string> Model::ids() const {
  std::vector<std::string> all;
  for (size_t i = 0; i < size(); ++i) all.push_back(state_->networks[i]->id());
  return all;
}

Network& Model::at(size_t index) const {
  const QuietLog quiet;
  Assert(index < size(), "the model has %zu networks, and none at %zu", size(), index);
  return *state_->networks[index];
}

Network& Model::at(const std::string& id) const {
  const QuietLog quiet;
  for (size_t i = 0; i < size(); ++i) {
    if (state_->networks[i]->id() == id) return *state_->networks[i];
  }
  Assert(false, "there is no network \"%s\"; %s", id.c_str(),
         nearest_advice(id, ids(), "networks are named by their ids").c_str());
  return at(size());
}

Network& Model::only() const {
  const QuietLog quiet;
  Assert(size() == 1, "the model has %zu networks: name one with at()", size());
  return *state_->networks[0];
}

Results Model::run(const std::vector<Input>& inputs, const RunOptions& options) {
  return only().run(inputs, options);
}

Results Model::run(const Input& input, const RunOptions& options) {
  return only().run(input, options);
}

void Model::reset() {
  for (size_t i = 0; i < size(); ++i) state_->networks[i]->reset();
}

}  // namespace marlo::utility
