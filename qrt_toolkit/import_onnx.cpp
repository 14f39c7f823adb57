#include "qrt_toolkit/import_onnx.h"

#include <malloc.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "qrt_core/utility/application.h"
#include "qrt_core/utility/build_options.h"
#include "qrt_toolkit/assign/fast_kernels.h"
#include "qrt_toolkit/free_sizes.h"
#include "qrt_toolkit/import_stages.h"
#include "qrt_toolkit/lower/lowering.h"
#include "qrt_toolkit/onnx/read.h"
#include "qrt_toolkit/operators/unsupported.h"
#include "qrt_toolkit/shapes/batch.h"
#include "qrt_toolkit/shapes/cut.h"
#include "qrt_toolkit/shapes/fix.h"
#include "qrt_toolkit/shapes/infer.h"
#include "qrt_toolkit/shapes/tie.h"
#include "qrt_toolkit/simplify/simplify.h"
#include "qrt_toolkit/simplify/states.h"
#include "qrt_toolkit/write/write.h"

namespace marlo::toolkit {
namespace {

Numbers numbers_of(const std::string& name, const GivenTensor& given) {
  const auto count = count_of(given.shape);
  if (!count || static_cast<size_t>(*count) != given.numbers.size()) {
    throw UnsupportedError({{"", "", 0, "", "input \"" + name + "\"",
                             std::to_string(given.numbers.size()) + " numbers make no tensor of " +
                                 text_of(given.shape),
                             ""}});
  }
  Numbers numbers(ElementType::float64, given.shape);
  numbers.data = given.numbers;
  return numbers;
}

void apply(const ImportOptions& options, Graph& graph, std::vector<std::string>& notes) {
  std::map<std::string, Numbers> constants;
  for (const auto& [name, given] : options.constants) {
    constants.emplace(name, numbers_of(name, given));
  }
  fix_values(graph, constants);
  std::map<std::string, Shape> shapes;
  for (const auto& [name, sizes] : options.shapes) {
    const bool only = name.empty() && graph.inputs.size() == 1;
    shapes.emplace(only ? graph.value(graph.inputs[0]).name : name, shape_of(sizes));
  }
  fix_shapes(graph, shapes);
  for (const std::string& name : assume_batch_of_one(graph)) {
    notes.push_back("input \"" + name + "\": its first size is open, and taken for a batch of 1");
  }
}

/// Every node that isn't in the table of operators, so that they are told of together.
void refuse_unlowered(const Graph& graph) {
  std::vector<Refusal> refusals;
  for (const NodeId id : graph.order()) {
    const Node& node = graph.node(id);
    if (find_lowering(node.op) != nullptr) continue;
    refusals.push_back(refusal_of(node, unsupported(node)));
  }
  if (!refusals.empty()) throw UnsupportedError(std::move(refusals));
}

/// Tells layers that kernels of a set run from those that only the portable ones do.
Lowering::IsFast fast_layers(KernelSet set) {
  struct Kernels {
    Kernels() {
      runtime::InferenceParamRegistry params;
      utility::init_register_operators(registry, params);
      utility::init_register_extension_operators(registry, params);
    }
    runtime::KernelRegistry registry;
    Workshop workshop{registry};
  };
  return [set, kernels = std::make_shared<Kernels>()](const auto& layer, const auto& input) {
    return has_fast_kernel(kernels->workshop, set, layer, input);
  };
}

/// What graphs and trials held is free, but among blocks that are not, so that the system's allocator
/// keeps its pages unless it is asked.
void give_back_memory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

/// Gives the network the kernels that are likely to be the fastest.
void choose_kernels(const ImportOptions& options, ImportedModel& imported) {
  ImportReport& report = imported.report;
  report.kernels = options.kernels.value_or(processor_kernels());
  if (report.kernels == KernelSet::portable) return;
  AssignOptions choice;
  choice.set = report.kernels;
  for (const ImportedTensor& input : report.inputs) choice.inputs[input.name] = input.in_memory;
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  utility::init_register_extension_operators(kernels, params);
  EstimatedCosts costs;
  AssignedModel assigned = assign_kernels(imported.model, kernels, costs, choice);
  imported.model = std::move(assigned.model);
  report.assigned = std::move(assigned.report);
  for (const auto& [id, source] : report.assigned.converters) {
    report.node_of_layer[id] = report.node_of_layer[source];
  }
}

ImportedTensor tensor_of(const std::string& name, const PlannedLayer& layer, bool has_batch) {
  return {name, layer.shape.dims, has_batch, layer.shape};
}

/// An import of what was read, with all sizes known.
ImportStages import_read(const std::string& path, OnnxModel source, const ImportOptions& options,
                         GraphUse graphs, SizeUse sizes) {
  Graph& graph = source.graph;
  ImportStages stages;
  ImportReport& report = stages.imported.report;
  report.producer = source.producer;
  report.opset = source.opset;
  for (const ValueId id : graph.inputs) stages.input_names.push_back(graph.value(id).name);
  if (!options.outputs.empty()) cut_graph(graph, options.outputs, report.notes);
  ModelHeader header;
  for (const ValueId id : graph.outputs) header.output_names.push_back(graph.value(id).name);
  apply(options, graph, report.notes);
  if (graphs == GraphUse::kept) stages.given = graph;
  if (sizes == SizeUse::open && QRT_WITH_EXTENSIONS) tie_sizes(graph);
  simplify(graph);
  for (std::string& note : keep_states(graph, header.output_names)) {
    report.notes.push_back(std::move(note));
  }
  refuse_unlowered(graph);
  const auto batches = find_batch_axes(graph, infer_facts(graph));
  for (const ValueId id : graph.inputs) {
    header.input_batches.push_back(batches[static_cast<size_t>(id)]);
  }
  const KernelSet set = options.kernels.value_or(processor_kernels());
  Lowering lowering(graph, set == KernelSet::portable ? nullptr : fast_layers(set), sizes);
  Plan plan = lowering.run();
  report.notes.insert(report.notes.end(), plan.notes.begin(), plan.notes.end());
  const std::filesystem::path file = path;
  header.network = options.network.empty() ? file.stem().string() : options.network;
  header.source = file.filename().string();
  header.producer = source.producer;
  header.preparation = options.preparation;
  report.network = header.network;
  for (size_t i = 0; i < graph.inputs.size(); ++i) {
    report.inputs.push_back(tensor_of(graph.value(graph.inputs[i]).name, plan.layer(i),
                                      header.input_batches[i].has_value()));
  }
  for (size_t i = 0; i < lowering.outputs().size(); ++i) {
    const PlannedLayer& layer = plan.layer(lowering.outputs()[i]);
    const bool has_batch = batches[static_cast<size_t>(graph.outputs[i])].has_value();
    report.outputs.push_back(tensor_of(header.output_names[i], layer, has_batch));
  }
  WrittenModel written = write_model(graph, std::move(plan), lowering.outputs(), header);
  ImportedModel& imported = stages.imported;
  imported.model = std::move(written.model);
  report.node_of_layer = std::move(written.node_of_layer);
  const runtime::QRModelInfo& network = *imported.model.model_arr->infos.at(header.network);
  for (size_t i = 0; i < report.outputs.size(); ++i) {
    report.outputs[i].name = network.squential_output_ids.at(i);
  }
  report.multiply_adds = network.extra_info.fmlas;
  stages.value_of_layer = std::move(written.value_of_layer);
  if (graphs == GraphUse::kept) stages.simplified = std::move(graph);
  return stages;
}

ImportStages import_any_sizes(const std::string& path, OnnxModel source,
                              const ImportOptions& options, GraphUse graphs) {
  const auto with_free_sizes = [&](FirstSize first) {
    return import_with_free_sizes(source.graph, options, first, [&](const ImportOptions& fixed) {
      return import_read(path, source, fixed, GraphUse::kept, SizeUse::open);
    });
  };
  if (has_free_first_size(source.graph, options)) {
    try {
      return with_free_sizes(FirstSize::free);
    } catch (const UnsupportedError&) {
      // It is a batch then, or it isn't at fault, and what follows says what is.
    }
  }
  if (has_free_sizes(source.graph, options)) return with_free_sizes(FirstSize::batch);
  return import_read(path, std::move(source), options, graphs, SizeUse::fixed);
}

}  // namespace

ImportStages import_stages(const std::string& path, const ImportOptions& options, GraphUse graphs) {
  ImportStages stages = import_any_sizes(path, read_onnx(path), options, graphs);
  choose_kernels(options, stages.imported);
  give_back_memory();
  return stages;
}

ImportedModel import_onnx(const std::string& path, const ImportOptions& options) {
  return std::move(import_stages(path, options, GraphUse::dropped).imported);
}

std::vector<OperatorSupport> supported_operators() {
  std::vector<OperatorSupport> operators;
  for (const Operator& row : all_operators()) {
    const LoweringRow* lowering = find_lowering(row.name);
    OperatorSupport support;
    support.name = row.name;
    support.since = row.since;
    support.is_lowered = lowering != nullptr;
    support.limits =
        lowering != nullptr && !lowering->limits.empty() ? lowering->limits : row.limits;
    operators.push_back(std::move(support));
  }
  return operators;
}

}  // namespace marlo::toolkit
