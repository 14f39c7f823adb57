#include "qrt_toolkit/watch/reset_states.h"

namespace marlo::toolkit {

void reset_states(const runtime::Net& net) {
  const auto reset = [](const auto& kernel) {
    if (kernel != nullptr) kernel->ResetState();
  };
  for (const auto& layer : net.layers) {
    for (const auto& [position, converter] : layer->input_converters) reset(converter);
    reset(layer->kernel);
    for (const auto& [position, converter] : layer->output_converters) reset(converter);
  }
}

}  // namespace marlo::toolkit
