#pragma once

#include <pybind11/pybind11.h>

#include <map>
#include <string>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/utility/check_model.h"
#include "qrt_core/utility/model.h"

// What is told of networks, layers and kernels.

namespace qrt_python {

namespace py = pybind11;

/// All kernels of the library.
struct Kernels {
  Kernels();

  marlo::runtime::KernelRegistry kernels;
  marlo::runtime::InferenceParamRegistry params;
};

/// One layer of a network that is ready to run.
struct LayerFacts {
  uint32_t index = 0;
  std::string id;
  std::string kind;
  std::string kernel;
  std::map<uint32_t, std::string> input_converters;
  std::map<uint32_t, std::string> output_converters;
  std::vector<std::string> inputs;
  bool is_input = false;
  bool is_output = false;
};

/// The layers in the order in which they run.
std::vector<LayerFacts> layers_of(const marlo::utility::Network& network);

/// @throws ProcessorError for a kernel that this processor can't run
void require_processor(const marlo::utility::Network& network);

/// The file's header, networks and layers as nested dicts.
py::dict info_of(marlo::runtime::QRTModel& model);

}  // namespace qrt_python
