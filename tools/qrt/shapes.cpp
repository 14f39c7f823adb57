#include "tools/qrt/shapes.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

#include "qrt_core/runtime/tensor/shape_text.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/inputs.h"
#include "tools/qrt/kernel_trial.h"
#include "tools/qrt/layer_facts.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::DataType;
using marlo::runtime::LayoutText;
using marlo::runtime::LayoutType;
using marlo::runtime::TensorShape;
using marlo::utility::LayerShapes;

namespace {

constexpr size_t kMostDims = 8;

uint64_t physical_memory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long page = sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || page <= 0) return std::numeric_limits<uint64_t>::max();
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(page);
}

// Why a tensor can't be made, on this machine; empty if it can.
std::string size_fault(const TensorShape& shape) {
  double bytes = ElementSize(shape.data_type);
  for (const uint32_t size : shape.dims) bytes *= size;
  if (bytes == 0) return "its tensor " + shape_text(shape) + " is empty";
  const auto most = static_cast<double>(std::min<uint64_t>(physical_memory(), UINT32_MAX));
  if (bytes <= most) return "";
  return "its tensor " + shape_text(shape) + " needs " + decimal(bytes / (1 << 20), 0) +
         " MiB; expected at most " + decimal(most / (1 << 20), 0) + " MiB";
}

// The first fault of the kind among the tensors of a layer.
std::string size_fault(const LayerShapes& shapes) {
  for (const auto* tensors : {&shapes.inputs, &shapes.made, &shapes.outputs}) {
    for (const TensorShape& shape : *tensors) {
      std::string fault = size_fault(shape);
      if (!fault.empty()) return fault;
    }
  }
  return "";
}

// The network of a report as the library's own check sees it. Kernels that couldn't be configured
// are null there.
bool has_all_kernels(const LayerReport& layer) {
  const auto ready = [](const auto& entry) { return entry.second.kernel != nullptr; };
  return layer.kernel.kernel != nullptr && layer.kernel.problem.empty() &&
         std::all_of(layer.input_converters.begin(), layer.input_converters.end(), ready) &&
         std::all_of(layer.output_converters.begin(), layer.output_converters.end(), ready);
}

// What the description demands of an input that the layer's own kernel has refused.
std::string expectation(const LayerReport& layer, const std::vector<TensorShape>& inputs) {
  const std::string fault = inputs.empty() ? "" : window_fault(*layer.info, inputs[0].dims);
  if (!fault.empty()) return "expected a larger input than " + shape_text(inputs[0]) + ": " + fault;
  std::string expected = "a tensor that the kernel takes";
  if (const auto demanded = expected_input(*layer.info)) {
    // A kernel on blocks of channels has its layout in its name.
    const bool is_blocked = layer.kernel.name.find("HW4") != std::string::npos ||
                            layer.kernel.name.find("HW8") != std::string::npos;
    const std::string layout = demanded->dims == 3 ? "FLOAT32 CHW" : "FLOAT32 CL";
    expected = (is_blocked ? expected : layout) + " with " + counted(demanded->channels, "channel");
  }
  std::vector<std::string> found;
  found.reserve(inputs.size());
  for (const TensorShape& input : inputs) found.push_back(shape_text(input));
  return "expected " + expected + ", found " + joined(found, " and ");
}

}  // namespace

std::string shapes_fault(const LayerReport& layer, const LayerShapes& shapes) {
  std::string size = size_fault(shapes);
  if (!size.empty()) return size;
  if (shapes.fault.empty()) return "";
  const std::vector<std::string> reasons = reasons_of(shapes.place.misfits, shapes.place.kernel);
  const bool is_own = shapes.place.role.empty();
  if (is_own && layer.kernel.kernel != nullptr && reasons.empty()) {
    const std::string window =
        shapes.inputs.empty() ? "" : window_fault(*layer.info, shapes.inputs[0].dims);
    const bool refuses = shapes.fault.find(" refuses ") != std::string::npos;
    if (!window.empty() || refuses) return expectation(layer, shapes.inputs);
  }
  std::string text = without_tag(shapes.fault);
  if (!is_own) text = printable(shapes.place.role) + ": " + text;
  return reasons.empty() ? text : text + ": " + joined(reasons, "; ");
}

std::string shape_text(const TensorShape& shape) {
  const char* type = PrintedName(shape.data_type);
  return std::string(type == nullptr ? "unknown" : type) + " " + LayoutText(shape.layout) + " " +
         sizes_text(shape.dims);
}

TensorShape float_shape(std::vector<uint32_t> sizes) {
  LayoutType layout = LayoutType::FLEXIABLE;
  if (sizes.size() == 3) layout = LayoutType::CHW;
  if (sizes.size() == 2) layout = LayoutType::CL;
  if (sizes.size() == 1) layout = LayoutType::C;
  return TensorShape(std::move(sizes), DataType::FLOAT32, layout);
}

std::vector<uint32_t> parse_sizes_option(const std::string& text) {
  std::vector<uint32_t> sizes;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('x', at), text.size());
    const std::string digits = text.substr(at, end - at);
    const bool is_number = !digits.empty() && digits.size() <= 9 &&
                           digits.find_first_not_of("0123456789") == std::string::npos;
    if (!is_number || std::stoul(digits) == 0 || sizes.size() == kMostDims) {
      throw ToolError(
          kUsageError,
          "--input " + printable(text) +
              ": expected sizes such as 1x28x28, or LAYER=1x28x28 with the id of an input");
    }
    sizes.push_back(static_cast<uint32_t>(std::stoul(digits)));
    at = end + 1;
  }
  return sizes;
}

std::string DemandedInput::text() const {
  if (described) {
    std::string sizes;
    for (const uint32_t size : described->sizes) {
      sizes += (sizes.empty() ? "" : "x") + (size == 0 ? std::string("?") : std::to_string(size));
    }
    return sizes;
  }
  if (dims == 2) return counted(channels, "channel") + " by any length";
  if (height != 0 && width != 0) return sizes_text({channels, height, width});
  return counted(channels, "channel") + " of any height and width";
}

namespace {

DemandedInput demand_of(const marlo::utility::DescribedTensor& described) {
  DemandedInput demanded;
  demanded.dims = described.sizes.size();
  demanded.channels = described.sizes[0];
  if (demanded.dims == 3) demanded.height = described.sizes[1];
  if (demanded.dims == 3) demanded.width = described.sizes[2];
  demanded.described = described;
  return demanded;
}

}  // namespace

std::optional<DemandedInput> demanded_input(const NetworkReport& report, uint32_t input) {
  if (const auto summary = marlo::utility::read_summary(report.header.summary)) {
    const auto* described = summary->input(report.layers.at(input).id);
    if (described != nullptr && !described->sizes.empty()) return demand_of(*described);
  }
  std::vector<bool> reached(report.layers.size(), false);
  reached.at(input) = true;
  for (const LayerReport& layer : report.layers) {
    const bool reads = std::any_of(layer.sources.begin(), layer.sources.end(),
                                   [&](uint32_t source) { return reached[source]; });
    if (!reads || layer.is_input) continue;
    if (const auto expected = expected_input(*layer.info)) {
      DemandedInput demanded;
      demanded.dims = expected->dims;
      demanded.channels = expected->channels;
      // A header speaks of one picture; with several inputs it isn't known which.
      if (expected->dims == 3 && report.inputs().size() == 1) {
        demanded.height = report.header.model_base_h;
        demanded.width = report.header.model_base_w;
      }
      return demanded;
    }
    if (!keeps_channels(*layer.info)) return std::nullopt;
    reached[layer.index] = true;
  }
  return std::nullopt;
}

TensorShape input_shape(std::vector<uint32_t> sizes, const std::optional<DemandedInput>& demanded,
                        bool keep_batch) {
  if (demanded && demanded->described && !keep_batch) {
    if (const auto shape = marlo::utility::described_shape(*demanded->described, sizes)) {
      return *shape;
    }
  }
  const bool is_line = demanded && demanded->dims == 2;
  const bool has_batch = sizes.size() == (is_line ? 3 : 4) && sizes[0] == 1;
  if (has_batch && !keep_batch) sizes.erase(sizes.begin());
  const bool is_plane = demanded && demanded->dims == 3 && demanded->channels == 1;
  if (sizes.size() == 2 && is_plane) sizes.insert(sizes.begin(), 1);
  return float_shape(std::move(sizes));
}

InputShapes given_input_shapes(const NetworkReport& report, const std::vector<std::string>& options,
                               bool keep_batch) {
  const std::vector<uint32_t> inputs = report.inputs();
  if (inputs.size() != options.size()) {
    throw ToolError(kUsageError, "network " + in_quotes(report.id) + " has " +
                                     counted(inputs.size(), "input") + "; found " +
                                     counted(options.size(), "--input"));
  }
  InputShapes shapes;
  for (const GivenInput& input : assign_inputs(report, options, "input")) {
    if (const size_t end = input.value.find('='); end != std::string::npos) {
      std::vector<std::string> ids;
      ids.reserve(inputs.size());
      for (const uint32_t id : inputs) ids.push_back(in_quotes(report.layers.at(id).id));
      throw ToolError(kUsageError, "--input " + printable(input.value) + ": network " +
                                       in_quotes(report.id) + " has no input " +
                                       in_quotes(input.value.substr(0, end)) + "; there is " +
                                       joined(ids, ", "));
    }
    shapes.emplace(input.layer, input_shape(parse_sizes_option(input.value),
                                            demanded_input(report, input.layer), keep_batch));
  }
  return shapes;
}

InputShapes known_input_shapes(const NetworkReport& report) {
  InputShapes shapes;
  for (const uint32_t input : report.inputs()) {
    const auto demanded = demanded_input(report, input);
    if (demanded && demanded->described) {
      const std::vector<uint32_t>& sizes = demanded->described->sizes;
      if (std::find(sizes.begin(), sizes.end(), 0u) != sizes.end()) continue;
      if (const auto shape = marlo::utility::described_shape(*demanded->described, sizes)) {
        shapes.emplace(input, *shape);
      }
      continue;
    }
    if (!demanded || demanded->channels == 0 || demanded->height == 0 || demanded->width == 0) {
      continue;
    }
    shapes.emplace(input, float_shape({demanded->channels, demanded->height, demanded->width}));
  }
  return shapes;
}

bool are_model_shapes(const NetworkReport& report, const InputShapes& inputs) {
  return known_input_shapes(report) == inputs;
}

void add_shape_members(JsonText& json, const TensorShape& shape) {
  json.sizes("sizes", shape.dims);
  const char* type = PrintedName(shape.data_type);
  if (type != nullptr) json.text("data_type", type);
  json.text("layout", LayoutText(shape.layout));
  json.integer("layout_code", static_cast<uint32_t>(shape.layout));
}

void add_shape(JsonText& json, const char* key, const TensorShape& shape) {
  json.begin_object(key);
  add_shape_members(json, shape);
  json.end_object();
}

void add_shape(JsonText& json, const TensorShape& shape) {
  json.begin_object();
  add_shape_members(json, shape);
  json.end_object();
}

std::string infer_shapes(NetworkReport& report, const InputShapes& inputs,
                         const std::shared_ptr<marlo::runtime::Context>& context) {
  const auto layers =
      marlo::utility::check_shapes(net_of(report), {inputs.begin(), inputs.end()}, context);
  take_library_errors();  // the faults say the same
  std::string first;
  for (size_t i = 0; i < layers.size(); ++i) {
    LayerReport& layer = report.layers[i];
    layer.outputs = layers[i].outputs;
    if (!layers[i].inputs.empty() && !layers[i].made.empty()) {
      layer.multiply_adds =
          multiply_adds(*layer.info, layers[i].inputs[0].dims, layers[i].made[0].dims);
    }
    // What a layer without its kernels lacks is known already.
    if (layers[i].is_consequence || !has_all_kernels(layer) || !first.empty()) continue;
    const std::string fault = shapes_fault(layer, layers[i]);
    if (!fault.empty()) first = layer.title() + ": " + fault;
  }
  return first;
}

}  // namespace qrt_tool
