#include "network_run.h"

#include <algorithm>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/inference_config.h"

namespace marlo::toolkit::test {
namespace {

using Tensors = std::unordered_map<unsigned, std::shared_ptr<runtime::Tensor>>;

runtime::LayoutType layout_of(size_t axes) {
  if (axes == 3) return runtime::LayoutType::CHW;
  return axes == 1 ? runtime::LayoutType::C : runtime::LayoutType::FLEXIABLE;
}

Tensors tensors_of(const ImportedModel& imported, const runtime::Net& net,
                   const std::vector<NamedInput>& inputs, runtime::Context& context) {
  Tensors tensors;
  for (const NamedInput& input : inputs) {
    const auto place = net.input_map.find(input.name);
    if (place == net.input_map.end()) continue;
    std::vector<uint32_t> dims;
    for (const ImportedTensor& tensor : imported.report.inputs) {
      if (tensor.name == input.name) dims = tensor.shape;
    }
    std::vector<float> floats(input.numbers.reals().begin(), input.numbers.reals().end());
    tensors[place->second] = context.cpu->CreateTensor(
        runtime::TensorShape(dims, runtime::DataType::FLOAT32, layout_of(dims.size())),
        floats.data());
  }
  return tensors;
}

Numbers numbers_of(const std::shared_ptr<runtime::Tensor>& made) {
  const auto tensor = std::dynamic_pointer_cast<runtime::TensorCPU>(made);
  const auto* floats = static_cast<const float*>(tensor->RawPointer());
  Numbers result(ElementType::float32,
                 Extents(tensor->shape.dims.begin(), tensor->shape.dims.end()));
  std::copy_n(floats, result.reals().size(), result.reals().begin());
  return result;
}

}  // namespace

std::vector<std::vector<Numbers>> run_network(const ImportedModel& imported,
                                              const std::vector<std::vector<NamedInput>>& passes) {
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  std::shared_ptr<runtime::Context> context;
  utility::init_register_operators(kernels, params);
  utility::init_register_extension_operators(kernels, params);
  utility::create_context(context, 64);
  const std::string& id = imported.report.network;
  const auto& info = imported.model.model_arr->infos.at(id);
  const auto net =
      runtime::CreateNet(info, imported.model.config_arr->cfgs.at(id)->cpu_sse, kernels, context);
  std::vector<unsigned> outputs;
  for (const std::string& name : info->squential_output_ids) {
    const auto at = std::find(info->squential_ids.begin(), info->squential_ids.end(), name);
    outputs.push_back(static_cast<unsigned>(at - info->squential_ids.begin()));
  }
  std::vector<std::vector<Numbers>> results;
  for (const auto& inputs : passes) {
    auto tensors = tensors_of(imported, *net, inputs, *context);
    auto made = net->Forward(tensors, outputs, context, nullptr, nullptr);
    results.emplace_back();
    for (const unsigned output : outputs) {
      results.back().push_back(numbers_of(made.at(output).at(0)));
    }
  }
  return results;
}

}  // namespace marlo::toolkit::test
