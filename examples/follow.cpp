// Follows a signal with a recurrent network, whole and in pieces: follow MODEL
//
// The model must have one input, a sequence of single numbers. The one that ships beside this
// program, data/smooth.json, is a GRU that averages: each output is a quarter of tanh(x) and three
// quarters of the output before.

#include <qrt_core/qrt_core.h>

#include <cstdio>
#include <exception>

using marlo::utility::_NetworkPackage;

// The outputs for the next samples of the signal. The network goes on from where the last call
// ended.
static std::vector<float> follow(_NetworkPackage& network, const float* samples,
                                 unsigned int count) {
  auto& device = *network.context->cpu;
  network.input_tensors[0] = device.CreateF32FlexiableMainMemory({count, 1}, samples);
  auto results = network.net->Forward(network.input_tensors, network.output_ids, network.context,
                                      nullptr, nullptr);
  const auto& output = results.at(network.output_ids.at(0)).at(0);
  const auto* values = static_cast<const float*>(output->handle.cpu);
  return std::vector<float>(values, values + ElementCount(output->shape));
}

// The next call of follow() begins a new signal. Layers without a state take no notice.
static void begin_signal(_NetworkPackage& network) {
  for (const auto& layer : network.net->layers) layer->kernel->ResetState();
}

static int compare(const char* model) {
  std::shared_ptr<marlo::runtime::Context> context;
  marlo::utility::create_context(context, 64);
  marlo::runtime::KernelRegistry kernels;
  marlo::runtime::InferenceParamRegistry params;
  marlo::utility::init_register_operators(kernels, params);
  std::map<std::string, std::shared_ptr<_NetworkPackage>> networks;
  if (marlo::utility::load_model(model, networks, context, kernels, params, "qrt", 1, 0) != 0 ||
      networks.empty()) {
    return 1;  // the library has said why
  }
  _NetworkPackage& network = *networks.begin()->second;

  const std::vector<float> signal = {0, 0, 1, 1, 1, 1, 0, 0};
  const auto count = static_cast<unsigned int>(signal.size());
  const std::vector<float> whole = follow(network, signal.data(), count);

  begin_signal(network);
  std::vector<float> pieces = follow(network, signal.data(), 3);
  for (const float value : follow(network, signal.data() + 3, count - 3)) pieces.push_back(value);

  for (size_t i = 0; i < whole.size(); ++i) std::printf("%g  %.4f\n", signal[i], whole[i]);
  std::puts(pieces == whole ? "in pieces: the same" : "in pieces: different");
  return pieces == whole ? 0 : 1;
}

int main(int argc, char** argv) {
  if (argc != 2) return std::fprintf(stderr, "usage: %s MODEL\n", argv[0]), 2;
  try {
    return compare(argv[1]);
  } catch (const std::exception& fault) {
    return std::fprintf(stderr, "%s\n", fault.what()), 1;
  }
}
