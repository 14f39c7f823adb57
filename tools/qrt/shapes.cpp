#include "tools/qrt/shapes.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

#include "tools/qrt/errors.h"
#include "tools/qrt/layer_facts.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::DataType;
using marlo::runtime::DeviceCPU;
using marlo::runtime::LayoutType;
using marlo::runtime::Tensor;
using marlo::runtime::TensorShape;

namespace {

constexpr size_t kMostDims = 8;

/// A layer can't take its inputs; the text says what it expected.
struct Misfit {
  std::string text;
};

uint64_t physical_memory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long page = sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || page <= 0) return std::numeric_limits<uint64_t>::max();
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(page);
}

// A tensor without numbers, for checks that look at shapes only.
std::shared_ptr<Tensor> hollow_tensor(const TensorShape& shape, DeviceCPU& device) {
  static char nothing[64];
  return device.CreateTensorExternal(shape, nothing);
}

void check_size(const TensorShape& shape) {
  double bytes = ElementSize(shape.data_type);
  for (const uint32_t size : shape.dims) bytes *= size;
  if (bytes == 0) throw Misfit{"its tensor " + shape_text(shape) + " is empty"};
  const auto most = static_cast<double>(std::min<uint64_t>(physical_memory(), UINT32_MAX));
  if (bytes > most) {
    throw Misfit{"its tensor " + shape_text(shape) + " needs " + decimal(bytes / (1 << 20), 0) +
                 " MiB; expected at most " + decimal(most / (1 << 20), 0) + " MiB"};
  }
}

// The output of one kernel, after its own check of the inputs.
std::vector<TensorShape> through(const KernelReport& report, const std::vector<TensorShape>& inputs,
                                 const std::string& expected, DeviceCPU& device) {
  marlo::runtime::IKernel::Tensors tensors;
  std::vector<std::string> found;
  for (const TensorShape& input : inputs) {
    check_size(input);
    tensors.push_back(hollow_tensor(input, device));
    found.push_back(shape_text(input));
  }
  if (report.kernel->CheckInputs(tensors) != marlo::runtime::KERNEL_OK) {
    throw Misfit{"expected " + expected + ", found " + joined(found, " and ")};
  }
  std::vector<TensorShape> outputs = report.kernel->InferOutputShapes(inputs);
  for (const TensorShape& output : outputs) check_size(output);
  return outputs;
}

void infer_layer(LayerReport& layer, std::vector<TensorShape> inputs, DeviceCPU& device) {
  for (uint32_t position = 0; position < inputs.size(); ++position) {
    const auto converter = layer.input_converters.find(position);
    if (converter == layer.input_converters.end()) continue;
    const auto converted =
        through(converter->second, {inputs[position]},
                "a tensor that " + printable(converter->second.name) + " takes", device);
    if (!converted.empty()) inputs[position] = converted[0];
  }
  std::string expected = "a tensor that the kernel takes";
  if (const auto demanded = expected_input(*layer.info)) {
    // A kernel on blocks of channels has its layout in its name.
    const bool is_blocked = layer.kernel.name.find("HW4") != std::string::npos ||
                            layer.kernel.name.find("HW8") != std::string::npos;
    const std::string layout = demanded->dims == 3 ? "FLOAT32 CHW" : "FLOAT32 CL";
    expected = (is_blocked ? expected : layout) + " with " + counted(demanded->channels, "channel");
  }
  if (!inputs.empty()) {
    const std::string fault = window_fault(*layer.info, inputs[0].dims);
    if (!fault.empty()) {
      throw Misfit{"expected a larger input than " + shape_text(inputs[0]) + ": " + fault};
    }
  }
  std::vector<TensorShape> outputs = through(layer.kernel, inputs, expected, device);
  if (!inputs.empty() && !outputs.empty()) {
    layer.multiply_adds = multiply_adds(*layer.info, inputs[0].dims, outputs[0].dims);
  }
  for (uint32_t position = 0; position < outputs.size(); ++position) {
    const auto converter = layer.output_converters.find(position);
    if (converter == layer.output_converters.end()) continue;
    const auto converted =
        through(converter->second, {outputs[position]},
                "a tensor that " + printable(converter->second.name) + " takes", device);
    if (!converted.empty()) outputs[position] = converted[0];
  }
  layer.outputs = std::move(outputs);
}

// The shapes that a layer reads; nothing where one isn't known.
std::optional<std::vector<TensorShape>> inputs_of(const NetworkReport& report,
                                                  const LayerReport& layer,
                                                  const InputShapes& inputs) {
  if (layer.is_input) {
    const auto found = inputs.find(layer.index);
    if (found == inputs.end()) return std::nullopt;
    return std::vector<TensorShape>{found->second};
  }
  std::vector<TensorShape> shapes;
  for (const uint32_t source : layer.sources) {
    if (report.layers[source].outputs.empty()) return std::nullopt;
    shapes.push_back(report.layers[source].outputs[0]);
  }
  return shapes;
}

bool has_all_kernels(const LayerReport& layer) {
  const auto ready = [](const auto& entry) { return entry.second.kernel != nullptr; };
  return layer.kernel.kernel != nullptr && layer.kernel.problem.empty() &&
         std::all_of(layer.input_converters.begin(), layer.input_converters.end(), ready) &&
         std::all_of(layer.output_converters.begin(), layer.output_converters.end(), ready);
}

}  // namespace

std::string layout_name(LayoutType layout) {
  if (const char* name = PrintedName(layout)) return name;
  // Those that the library prints as numbers.
  switch (layout) {
    case LayoutType::GN8C8HW8n8c:
      return "GN8C8HW8n8c";
    case LayoutType::G4NCHWg4:
      return "G4NCHWg4";
    case LayoutType::G8NCHWg8:
      return "G8NCHWg8";
    case LayoutType::GN4CHWn4:
      return "GN4CHWn4";
    case LayoutType::GN8CHWn8:
      return "GN8CHWn8";
    case LayoutType::GN:
      return "GN";
    case LayoutType::C:
      return "C";
    case LayoutType::BC:
      return "BC";
    case LayoutType::SC:
      return "SC";
    case LayoutType::GNCL:
      return "GNCL";
    case LayoutType::CL:
      return "CL";
    case LayoutType::NC:
      return "NC";
    case LayoutType::N8C8c8n8:
      return "N8C8c8n8";
    case LayoutType::GN8C8HWc8n8:
      return "GN8C8HWc8n8";
    case LayoutType::GN4C8HWn4c8:
      return "GN4C8HWn4c8";
    case LayoutType::GN8C4HWn8c4:
      return "GN8C4HWn8c4";
    default:
      return "layout " + std::to_string(static_cast<uint32_t>(layout));
  }
}

std::string shape_text(const TensorShape& shape) {
  const char* type = PrintedName(shape.data_type);
  return std::string(type == nullptr ? "unknown" : type) + " " + layout_name(shape.layout) + " " +
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
      throw ToolError(kUsageError,
                      "--input " + printable(text) + ": expected sizes such as 1x28x28");
    }
    sizes.push_back(static_cast<uint32_t>(std::stoul(digits)));
    at = end + 1;
  }
  return sizes;
}

std::string DemandedInput::text() const {
  if (dims == 2) return counted(channels, "channel") + " by any length";
  if (height != 0 && width != 0) return sizes_text({channels, height, width});
  return counted(channels, "channel") + " of any height and width";
}

std::optional<DemandedInput> demanded_input(const NetworkReport& report, uint32_t input) {
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
    throw ToolError(kUsageError, "network " + quoted(report.id) + " has " +
                                     counted(inputs.size(), "input") + "; found " +
                                     counted(options.size(), "--input"));
  }
  InputShapes shapes;
  for (size_t i = 0; i < inputs.size(); ++i) {
    shapes.emplace(inputs[i], input_shape(parse_sizes_option(options[i]),
                                          demanded_input(report, inputs[i]), keep_batch));
  }
  return shapes;
}

InputShapes known_input_shapes(const NetworkReport& report) {
  InputShapes shapes;
  for (const uint32_t input : report.inputs()) {
    const auto demanded = demanded_input(report, input);
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
  json.text("layout", layout_name(shape.layout));
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

std::string infer_shapes(NetworkReport& report, const InputShapes& inputs, DeviceCPU& device) {
  for (LayerReport& layer : report.layers) {
    const auto shapes = inputs_of(report, layer, inputs);
    if (!shapes || !has_all_kernels(layer)) continue;
    try {
      infer_layer(layer, *shapes, device);
    } catch (const Misfit& misfit) {
      return layer.title() + ": " + misfit.text;
    } catch (const std::runtime_error& failure) {
      const std::string fault = take_fault(failure);
      return layer.title() + ": " + (fault.empty() ? "the kernel refuses its input" : fault);
    }
  }
  return "";
}

}  // namespace qrt_tool
