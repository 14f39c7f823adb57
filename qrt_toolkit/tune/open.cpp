#include "qrt_toolkit/tune/open.h"

#include <stdexcept>

#include "qrt_core/utility/application.h"
#include "qrt_core/utility/errors.h"
#include "qrt_toolkit/assign/assign.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/memory_file_internal.h"
#include "qrt_toolkit/tune/tune.h"

namespace marlo::toolkit {
namespace {

bool is_json(const std::string& path) {
  return path.size() > 5 && path.compare(path.size() - 5, 5, ".json") == 0;
}

}  // namespace

utility::Model open_with_kernels(const std::string& path, const std::vector<uint32_t>& sizes,
                                 KernelSet set) {
  utility::Model given(path);
  if (given.size() != 1 || given.at(0).inputs().size() != 1) {
    throw utility::Error("expected a model of one network with one input");
  }
  runtime::QRTModel model;
  const char* const form = is_json(path) ? "json" : "bin";
  model.FromFile(path.c_str(), form);
  if (tuned_processor(config_of(model, given.at(0).id()).summary) == processor_name()) return given;
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  utility::init_register_extension_operators(kernels, params);
  AssignOptions options;
  options.set = set;
  const utility::Port& input = given.at(0).inputs()[0];
  options.inputs[input.id] = utility::Input(sizes, static_cast<const float*>(nullptr)).shape();
  EstimatedCosts costs;
  AssignedModel assigned;
  try {
    assigned = assign_kernels(model, kernels, costs, options);
  } catch (const std::invalid_argument&) {
    return given;  // sizes that don't fit are told of when it runs
  }
  const MemoryFile file;
  if (!file.is_open()) throw utility::Error("there is no memory for a copy of the model");
  if (!assigned.model.ToFile(file.path().c_str(), form)) {
    throw utility::Error("a copy of the model with other kernels can't be written to " +
                         file.path());
  }
  const off_t size = file.size();
  std::string bytes(size < 0 ? 0 : static_cast<size_t>(size), '\0');
  if (size < 0 || !file.read(bytes.data(), bytes.size())) {
    throw utility::Error("the copy of the model can't be read");
  }
  return utility::Model::from_bytes(bytes.data(), bytes.size());
}

}  // namespace marlo::toolkit
