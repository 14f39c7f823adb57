#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>
#include <utility>

#include "qrt_core/qrt_core.h"
#include "qrt_toolkit/evaluate/evaluate.h"
#include "qrt_toolkit/import_stages.h"
#include "qrt_toolkit/onnx/read.h"
#include "qrt_toolkit/verify/agreement.h"
#include "qrt_toolkit/verify/binary_form.h"
#include "qrt_toolkit/verify/difference.h"
#include "qrt_toolkit/verify/network_run.h"
#include "qrt_toolkit/verify/verify.h"

namespace marlo::toolkit {
namespace {

namespace fs = std::filesystem;

Refusal about_input(const std::string& name, std::string why) {
  return {"", "", 0, "", "input \"" + name + "\"", std::move(why), ""};
}

/// One input for the reference and for the network.
struct RunInput {
  bool is_state = false;      ///< kept by the network, which doesn't take it
  SharedNumbers numbers;      ///< in the source's shape, rounded to float32
  std::vector<float> floats;  ///< the same
};

Numbers given_numbers(const std::string& name, const GivenTensor& given, const Extents& shape) {
  if (given.shape != shape || count_of(given.shape) != static_cast<int64_t>(given.numbers.size())) {
    throw UnsupportedError({about_input(
        name, "numbers of " + text_of(given.shape) + " were given, not " + text_of(shape))});
  }
  Numbers numbers(ElementType::float32, shape);
  numbers.data = given.numbers;
  return numbers;
}

/// As many rows as the smallest table has that an input of whole numbers is used for; two for one
/// that is a mask.
int64_t rows_for(const Graph& graph, ValueId input) {
  std::optional<int64_t> rows;
  for (const NodeId id : graph.value(input).readers) {
    const Node& node = graph.node(id);
    const auto& table = graph.value(node.inputs[0]).constant;
    if (node.op != "Gather" || !table || table->shape.empty()) continue;
    rows = std::min(rows.value_or(table->shape[0]), table->shape[0]);
  }
  return std::max<int64_t>(1, rows.value_or(2));
}

Numbers random_numbers(const Graph& graph, ValueId input, const Extents& shape,
                       std::mt19937& generator) {
  Numbers numbers(ElementType::float32, shape);
  const ElementType type = graph.value(input).type;
  if (type == ElementType::undefined || is_real(type)) {
    std::uniform_real_distribution<double> between(-1, 1);
    for (double& number : numbers.reals()) number = between(generator);
  } else {
    std::uniform_int_distribution<int64_t> among(0, rows_for(graph, input) - 1);
    for (double& number : numbers.reals()) number = static_cast<double>(among(generator));
  }
  return numbers;
}

fs::path test_file(const std::string& folder, const char* kind, size_t number) {
  return fs::path(folder) / (std::string(kind) + "_" + std::to_string(number) + ".pb");
}

GivenTensor read_test_tensor(const fs::path& path) {
  const Constant constant = read_onnx_tensor(path);
  const Numbers numbers = constant.numbers();
  GivenTensor given{constant.shape, {}};
  for (size_t i = 0; i < static_cast<size_t>(numbers.count()); ++i) {
    given.numbers.push_back(numbers.real(i));
  }
  return given;
}

/// The inputs of a verification: given, from the folder, or random.
class Inputs {
 public:
  Inputs(const ImportStages& stages, const VerifyOptions& options)
      : stages_(stages), options_(options), generator_(options.seed) {}

  std::vector<RunInput> make() {
    std::map<std::string, GivenTensor> given = options_.inputs;
    const Graph& graph = stages_.given;
    if (given.count("") != 0 && graph.inputs.size() == 1) {
      given[graph.value(graph.inputs[0]).name] = std::exchange(given[""], {});
      given.erase("");
    }
    std::vector<RunInput> inputs;
    for (size_t i = 0; i < graph.inputs.size(); ++i) {
      const Value& value = graph.value(graph.inputs[i]);
      const auto shape = value.shape ? extents_of(*value.shape) : std::nullopt;
      if (!shape) throw UnsupportedError({about_input(value.name, "its shape isn't known")});
      inputs.push_back(as_input(numbers_for(graph.inputs[i], *shape, given), value.type));
      inputs.back().is_state = is_state(value.name);
      const std::vector<float>& numbers = inputs.back().floats;
      if (inputs.back().is_state &&
          std::any_of(numbers.begin(), numbers.end(), [](float x) { return x != 0; })) {
        throw UnsupportedError({about_input(
            value.name, "it is a state that the network keeps, and begins with zeros")});
      }
    }
    std::vector<Refusal> unknown;
    unknown.reserve(given.size());
    for (const auto& [name, tensor] : given) {
      unknown.push_back(about_input(name, "the graph has no such input"));
    }
    if (!unknown.empty()) throw UnsupportedError(std::move(unknown));
    return inputs;
  }

 private:
  /// Whether the network has no such input: its layers keep it as a state.
  bool is_state(const std::string& name) const {
    const auto& taken = stages_.imported.report.inputs;
    return std::none_of(taken.begin(), taken.end(),
                        [&](const ImportedTensor& input) { return input.name == name; });
  }

  /// Takes an entry out of `given` where there is one.
  Numbers numbers_for(ValueId input, const Extents& shape,
                      std::map<std::string, GivenTensor>& given) {
    const std::string& name = stages_.given.value(input).name;
    const auto found = given.find(name);
    if (found != given.end()) {
      Numbers numbers = given_numbers(name, found->second, shape);
      given.erase(found);
      return numbers;
    }
    if (!options_.test_data.empty()) return from_folder(name, shape);
    return is_state(name) ? Numbers(ElementType::float32, shape)
                          : random_numbers(stages_.given, input, shape, generator_);
  }

  /// Files are numbered as the file's inputs are, those among them that were made constants.
  Numbers from_folder(const std::string& name, const Extents& shape) const {
    const auto& names = stages_.input_names;
    const auto place = std::find(names.begin(), names.end(), name) - names.begin();
    const fs::path file = test_file(options_.test_data, "input", static_cast<size_t>(place));
    return given_numbers(name, read_test_tensor(file), shape);
  }

  static RunInput as_input(Numbers numbers, ElementType type) {
    RunInput input;
    for (double& number : numbers.reals()) {
      input.floats.push_back(static_cast<float>(number));
      number = input.floats.back();
    }
    if (type != ElementType::undefined && !is_real(type)) {
      Numbers whole(type, numbers.shape);
      std::transform(input.floats.begin(), input.floats.end(), whole.integers().begin(),
                     [](float number) { return static_cast<int64_t>(number); });
      numbers = std::move(whole);
    }
    input.numbers = std::make_shared<const Numbers>(std::move(numbers));
    return input;
  }

  const ImportStages& stages_;
  const VerifyOptions& options_;
  std::mt19937 generator_;
};

/// What the network made in its passes.
struct Passes {
  std::vector<std::string> ids;
  std::vector<bool> have_epilogues;
  std::vector<LayerRecord> exact;
  std::vector<LayerRecord> halves;
  std::vector<double> bounds;
};

/// Disturbs every layer by as much as its kernel may be off, and sees what comes of it.
std::vector<double> bounds_of(NetworkRun& network, const runtime::QRModelInfo& info,
                              const runtime::QRModelCfg& config,
                              const std::vector<LayerRecord>& exact,
                              const std::vector<std::vector<float>>& inputs,
                              const std::vector<runtime::TensorShape>& shapes) {
  const std::vector<double> agreements = agreements_of(info, config, exact);
  std::mt19937 generator(1);
  std::uniform_real_distribution<float> between(-1, 1);
  const auto disturbed = network.run(
      inputs, shapes, [&](uint32_t layer, const runtime::TensorShape& shape, float* at) {
        const auto most = static_cast<float>(agreements[layer]);
        for (size_t i = 0; i < ElementCount(shape); ++i) at[i] += most * between(generator);
      });
  std::vector<double> bounds;
  for (size_t i = 0; i < exact.size(); ++i) {
    const double changed = difference_of(exact[i].values(), disturbed[i].values()).largest;
    bounds.push_back(2 * std::max(changed, agreements[i]));
  }
  return bounds;
}

/// The shapes of the network's inputs, in their order: those of the source less the batch.
std::vector<runtime::TensorShape> input_shapes(const runtime::QRModelInfo& info,
                                               const std::vector<RunInput>& inputs) {
  std::vector<runtime::TensorShape> shapes;
  const auto summary = utility::read_summary(info.extra_info.summary);
  for (const RunInput& input : inputs) {
    if (input.is_state) continue;
    const Extents& shape = input.numbers->shape;
    const std::vector<uint32_t> sizes(shape.begin(), shape.end());
    shapes.push_back(utility::described_shape(summary->inputs.at(shapes.size()), sizes).value());
  }
  return shapes;
}

Passes passes_of(ImportStages& stages, const std::vector<RunInput>& inputs,
                 const std::function<void()>& step) {
  runtime::QRTModel& model = stages.imported.model;
  const std::string& id = stages.imported.report.network;
  const runtime::QRModelInfo& info = *model.model_arr->infos.at(id);
  const runtime::QRModelCfg& config = *model.config_arr->cfgs.at(id)->cpu_sse;
  const std::vector<runtime::TensorShape> shapes = input_shapes(info, inputs);
  std::vector<std::vector<float>> floats;
  for (const RunInput& input : inputs) {
    if (!input.is_state) floats.push_back(input.floats);
  }
  Passes passes;
  {
    NetworkRun network(model);
    passes.ids = network.ids();
    passes.have_epilogues = network.have_epilogues();
    passes.exact = network.run(floats, shapes);
    step();
    passes.bounds = bounds_of(network, info, config, passes.exact, floats, shapes);
    step();
  }
  const runtime::QRTModel rounded = as_binary_form(model);
  passes.halves = NetworkRun(rounded).run(floats, shapes);
  step();
  return passes;
}

std::vector<uint32_t> without_ones(const std::vector<int64_t>& shape) {
  std::vector<uint32_t> sizes;
  for (const int64_t size : shape) {
    if (size != 1) sizes.push_back(static_cast<uint32_t>(size));
  }
  return sizes;
}

/// Compares layers with the values of the reference as these are computed.
class Comparison {
 public:
  Comparison(const ImportStages& stages, const Passes& passes) : stages_(stages), passes_(passes) {
    const runtime::QRTModel& model = stages.imported.model;
    const std::string& network = stages.imported.report.network;
    const auto& config = *model.config_arr->cfgs.at(network)->cpu_sse;
    for (size_t i = 0; i < passes.ids.size(); ++i) {
      const std::string& id = passes.ids[i];
      VerifiedLayer layer;
      layer.layer = id;
      const auto node = stages.imported.report.node_of_layer.find(id);
      if (node != stages.imported.report.node_of_layer.end()) layer.node = node->second;
      layer.kernel = config.layer_cfgs.at(id)->kernel->kernel_type;
      layer.shape = passes.exact[i].shape.dims;
      layer.bound = passes.bounds[i];
      layers_.push_back(std::move(layer));
      // What it makes is what the activation behind it is compared with.
      if (passes.have_epilogues[i]) continue;
      const auto value = stages.value_of_layer.find(id);
      if (value == stages.value_of_layer.end()) continue;
      const std::string& name = stages.simplified.value(value->second).name;
      if (!name.empty()) layers_of_tensor_[name].push_back(i);
    }
    compared_.resize(layers_.size());
  }

  void take(const std::string& tensor, const Numbers& numbers) {
    const auto found = layers_of_tensor_.find(tensor);
    if (found == layers_of_tensor_.end()) return;
    std::vector<double> reference(static_cast<size_t>(numbers.count()));
    for (size_t i = 0; i < reference.size(); ++i) reference[i] = numbers.real(i);
    for (const size_t place : found->second) compare(place, numbers.shape, reference);
  }

  void compare(size_t place, const Extents& shape, const std::vector<double>& reference) {
    const LayerRecord& exact = passes_.exact[place];
    const std::vector<int64_t> dims(exact.shape.dims.begin(), exact.shape.dims.end());
    if (!are_alike(without_ones(dims), without_ones(shape))) return;
    VerifiedLayer& layer = layers_[place];
    const NumberDifference difference = difference_of(reference, exact.values());
    layer.largest_value = difference.largest_value;
    layer.place = difference.place;
    layer.exact = {difference.largest, difference.relative()};
    const NumberDifference halves = difference_of(reference, passes_.halves[place].values());
    layer.halves = {halves.largest, halves.relative()};
    compared_[place] = true;
  }

  /// The same sizes; the first may have channels more that fill up a block.
  static bool are_alike(const std::vector<uint32_t>& made, const std::vector<uint32_t>& defined) {
    return made == defined || are_comparable(made, defined);
  }

  VerifiedLayer layer_of(const std::string& id) const {
    for (const VerifiedLayer& layer : layers_) {
      if (layer.layer == id) return layer;
    }
    return {};
  }

  /// The layers that were compared; inputs are no layers to compare.
  std::vector<VerifiedLayer> layers(size_t& not_compared) const {
    std::vector<VerifiedLayer> result;
    const auto& info = *stages_.imported.model.model_arr->infos.at(stages_.imported.report.network);
    for (size_t i = 0; i < layers_.size(); ++i) {
      if (info.layers.at(layers_[i].layer)->input_ids.empty()) continue;
      if (stages_.imported.report.assigned.converters.count(layers_[i].layer) != 0) continue;
      if (compared_[i]) {
        result.push_back(layers_[i]);
      } else {
        ++not_compared;
      }
    }
    return result;
  }

 private:
  const ImportStages& stages_;
  const Passes& passes_;
  std::vector<VerifiedLayer> layers_;
  std::vector<bool> compared_;
  std::map<std::string, std::vector<size_t>> layers_of_tensor_;
};

/// The outputs of a folder of test data against the network's.
std::vector<VerifiedLayer> test_outputs(const ImportStages& stages, const Passes& passes,
                                        const Comparison& comparison, const std::string& folder) {
  std::vector<VerifiedLayer> outputs;
  const Graph& graph = stages.given;
  for (size_t i = 0; i < graph.outputs.size(); ++i) {
    const std::string& name = graph.value(graph.outputs[i]).name;
    const fs::path file = test_file(folder, "output", i);
    if (!fs::exists(file)) continue;
    const GivenTensor expected = read_test_tensor(file);
    const auto found = std::find(passes.ids.begin(), passes.ids.end(), name);
    // A state that the network keeps is no output of it.
    if (found == passes.ids.end()) continue;
    const auto place = static_cast<size_t>(found - passes.ids.begin());
    const std::vector<double> made = passes.exact[place].values();
    if (made.size() != expected.numbers.size()) {
      throw FileError(file.string() + " holds a tensor of " + text_of(expected.shape) +
                      ", which output \"" + name + "\" isn't");
    }
    VerifiedLayer output = comparison.layer_of(name);
    const NumberDifference difference = difference_of(expected.numbers, made);
    output.largest_value = difference.largest_value;
    output.place = difference.place;
    output.exact = {difference.largest, difference.relative()};
    const NumberDifference halves = difference_of(expected.numbers, passes.halves[place].values());
    output.halves = {halves.largest, halves.relative()};
    // Whoever made the folder computed with floats as well.
    output.bound *= 2;
    outputs.push_back(std::move(output));
  }
  return outputs;
}

}  // namespace

Verification verify_stages(ImportStages& stages, const VerifyOptions& verify) {
  std::vector<RunInput> inputs = Inputs(stages, verify).make();
  const Graph& graph = stages.given;
  size_t steps = 3 + inputs.size();
  for (const NodeId node : graph.order()) {
    const auto& outputs = graph.node(node).outputs;
    steps +=
        outputs.size() - static_cast<size_t>(std::count(outputs.begin(), outputs.end(), kAbsent));
  }
  size_t done = 0;
  const auto step = [&] {
    if (verify.progress) verify.progress(++done, steps);
  };
  const Passes passes = passes_of(stages, inputs, step);
  Comparison comparison(stages, passes);
  std::vector<SharedNumbers> numbers;
  numbers.reserve(inputs.size());
  for (RunInput& input : inputs) numbers.push_back(std::move(input.numbers));
  evaluate_graph(graph, numbers, {}, [&](ValueId id, const SharedNumbers& computed) {
    comparison.take(graph.value(id).name, *computed);
    step();
  });
  Verification verification;
  verification.layers = comparison.layers(verification.not_compared);
  if (!verify.test_data.empty()) {
    verification.test_data = test_outputs(stages, passes, comparison, verify.test_data);
  }
  return verification;
}

VerifiedImport import_and_verify(const std::string& path, const ImportOptions& options,
                                 const VerifyOptions& verify) {
  ImportStages stages = import_stages(path, options);
  VerifiedImport result;
  result.verification = verify_stages(stages, verify);
  result.imported = std::move(stages.imported);
  return result;
}

}  // namespace marlo::toolkit
