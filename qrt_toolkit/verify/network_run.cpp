#include "qrt_toolkit/verify/network_run.h"

#include <optional>
#include <utility>

#include "qrt_core/qrt_core.h"

namespace marlo::toolkit {
namespace {

/// A kernel whose outputs are changed behind it.
class ChangedKernel final : public KernelWrapper {
 public:
  ChangedKernel(std::shared_ptr<IKernel> kernel, uint32_t layer, const NetworkRun::Change& change)
      : KernelWrapper(std::move(kernel)), layer_(layer), change_(change) {}

  int Forward(const Tensors& inputs, Tensors& outputs, ContextPointer context) override {
    const size_t before = outputs.size();
    const int result = KernelWrapper::Forward(inputs, outputs, std::move(context));
    for (size_t i = before; i < outputs.size(); ++i) {
      if (outputs[i] == nullptr || outputs[i]->handle.cpu == nullptr) continue;
      if (outputs[i]->shape.data_type != runtime::DataType::FLOAT32) continue;
      change_(layer_, outputs[i]->shape, static_cast<float*>(outputs[i]->handle.cpu));
    }
    return result;
  }

 private:
  uint32_t layer_;
  const NetworkRun::Change& change_;
};

}  // namespace

struct NetworkRun::State {
  std::shared_ptr<runtime::Context> context;  // goes after the network
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  std::shared_ptr<utility::_NetworkPackage> package;
  std::vector<std::string> ids;
};

NetworkRun::NetworkRun(const runtime::QRTModel& model) : state_(std::make_unique<State>()) {
  utility::create_context(state_->context, 64);
  utility::init_register_operators(state_->kernels, state_->params);
  utility::init_register_extension_operators(state_->kernels, state_->params);
  const std::string& id = model.model_arr->squential_ids.at(0);
  const auto& info = model.model_arr->infos.at(id);
  state_->package = std::make_shared<utility::_NetworkPackage>();
  state_->package->kernels = &state_->kernels;
  state_->package->params = &state_->params;
  state_->package->context = state_->context;
  utility::Load_Single_Net(state_->package, info, model.config_arr->cfgs.at(id), "x86");
  for (const auto& layer : state_->package->net->layers) state_->ids.push_back(layer->id);
}

NetworkRun::~NetworkRun() = default;

const std::vector<std::string>& NetworkRun::ids() const { return state_->ids; }

std::vector<bool> NetworkRun::have_epilogues() const {
  std::vector<bool> have;
  have.reserve(state_->package->net->layers.size());
  for (const auto& layer : state_->package->net->layers) {
    const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(layer->kernel.get());
    have.push_back(facts != nullptr && !facts->epilogue().empty());
  }
  return have;
}

std::vector<LayerRecord> NetworkRun::run(const std::vector<std::vector<float>>& inputs,
                                         const std::vector<runtime::TensorShape>& shapes,
                                         const Change& change) {
  runtime::Net& net = *state_->package->net;
  for (const auto& layer : net.layers) {
    if (layer->kernel != nullptr) layer->kernel->ResetState();
  }
  // What is changed is recorded as it is then.
  std::optional<KernelsTaken> changed;
  if (change) {
    changed.emplace(
        net,
        [&](const KernelPlace& place, const KernelsTaken::Kernel& kernel) -> KernelsTaken::Kernel {
          if (place.role != KernelRole::own) return kernel;
          return std::make_shared<ChangedKernel>(kernel, place.layer, change);
        });
  }
  Recorder recorder(net);
  std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>> tensors;
  size_t next = 0;
  for (uint32_t i = 0; i < net.layers.size(); ++i) {
    if (net.input_map.count(state_->ids[i]) == 0) continue;
    tensors[i] = state_->context->cpu->CreateTensor(shapes.at(next), inputs.at(next).data());
    ++next;
  }
  net.Forward(tensors, state_->package->output_ids, state_->context, nullptr, nullptr);
  std::vector<LayerRecord> records(net.layers.size());
  for (LayerRecord& record : recorder.take_records()) {
    if (record.position == 0) records.at(record.layer) = std::move(record);
  }
  return records;
}

}  // namespace marlo::toolkit
