#include "tools/qrt/inputs.h"

#include <algorithm>

#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/npy.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

struct InputFile {
  uint32_t layer;
  std::string path;
};

std::string input_names(const NetworkReport& report) {
  std::vector<std::string> names;
  for (const uint32_t input : report.inputs()) names.push_back(quoted(report.layers[input].id));
  return joined(names, ", ");
}

// Which file goes to which input: by name where one is given, else in order.
std::vector<InputFile> assign_files(const NetworkReport& report,
                                    const std::vector<std::string>& options) {
  const std::vector<uint32_t> inputs = report.inputs();
  if (options.size() != inputs.size()) {
    throw ToolError(kUsageError, "expected " + counted(inputs.size(), "input file") +
                                     " (--input) for network " + quoted(report.id) +
                                     ", which reads " +
                                     (inputs.empty() ? "nothing" : input_names(report)) +
                                     "; found " + std::to_string(options.size()));
  }
  std::vector<std::optional<std::string>> files(inputs.size());
  std::vector<std::string> unnamed;
  for (const std::string& option : options) {
    size_t chosen = inputs.size();
    for (size_t i = 0; i < inputs.size(); ++i) {
      if (option.rfind(report.layers[inputs[i]].id + "=", 0) == 0) chosen = i;
    }
    if (chosen == inputs.size()) {
      unnamed.push_back(option);
    } else if (files[chosen]) {
      throw ToolError(kUsageError, "--input names " + quoted(report.layers[inputs[chosen]].id) +
                                       " twice; the inputs are " + input_names(report));
    } else {
      files[chosen] = option.substr(report.layers[inputs[chosen]].id.size() + 1);
    }
  }
  std::vector<InputFile> assigned;
  auto next = unnamed.begin();
  for (size_t i = 0; i < inputs.size(); ++i) {
    assigned.push_back({inputs[i], files[i] ? *files[i] : *next++});
  }
  return assigned;
}

// An array of one dimension too many or too few, where what is meant is clear.
void fit_dims(std::vector<uint32_t>& sizes, const std::optional<DemandedInput>& demanded) {
  if (!demanded) return;
  if (sizes.size() == demanded->dims + 1 && sizes[0] == 1) sizes.erase(sizes.begin());
  if (sizes.size() + 1 == demanded->dims && demanded->channels == 1) sizes.insert(sizes.begin(), 1);
}

void take_picture(InputData& input, Picture picture, const std::optional<DemandedInput>& demanded,
                  bool any_size) {
  const bool has_size = demanded && demanded->height != 0 && demanded->width != 0;
  if (has_size && !any_size &&
      (picture.height != demanded->height || picture.width != demanded->width)) {
    throw ToolError(kInputError, "the picture is " + sizes_text({picture.width, picture.height}) +
                                     " (width by height); the model expects " +
                                     sizes_text({demanded->width, demanded->height}) +
                                     ". Pictures are not resized; --any-size runs this one as it "
                                     "is, if the layers can take it");
  }
  input.shape = float_shape({picture.channels, picture.height, picture.width});
  input.values = planes_of(picture);
  input.picture = std::move(picture);
}

InputData read_input(const NetworkReport& report, const InputFile& file, bool any_size) {
  InputData input;
  input.layer = file.layer;
  input.path = file.path;
  const auto demanded = demanded_input(report, file.layer);
  const std::string bytes = read_file(file.path, kInputError);
  try {
    const bool named_npy =
        file.path.size() >= 4 && file.path.compare(file.path.size() - 4, 4, ".npy") == 0;
    if (named_npy || bytes.compare(0, 6, "\x93NUMPY") == 0) {
      NumberArray array = parse_npy(bytes);
      fit_dims(array.sizes, demanded);
      input.shape = float_shape(array.sizes);
      input.values = std::move(array.values);
      return input;
    }
    uint32_t channels = 0;
    if (demanded) {
      channels = demanded->channels;
      if (demanded->dims != 3 || (channels != 1 && channels != 3)) {
        throw ToolError(kInputError, "the network expects " + demanded->text() +
                                         ", which a picture can't give; expected an .npy file");
      }
    }
    take_picture(input, parse_picture(bytes, channels), demanded, any_size);
  } catch (const ToolError& error) {
    throw ToolError(error.exit_code(), printable(file.path) + ": " + error.what());
  }
  return input;
}

}  // namespace

std::vector<InputData> read_inputs(NetworkReport& report, const std::vector<std::string>& options,
                                   bool any_size, marlo::runtime::DeviceCPU& device) {
  std::vector<InputData> inputs;
  InputShapes shapes;
  std::vector<std::string> described;
  for (const InputFile& file : assign_files(report, options)) {
    inputs.push_back(read_input(report, file, any_size));
    shapes.emplace(file.layer, inputs.back().shape);
    std::string text = printable(file.path) + " (" + shape_text(inputs.back().shape);
    if (const auto demanded = demanded_input(report, file.layer)) {
      text += "; the model expects " + demanded->text();
    }
    described.push_back(text + ")");
  }
  const std::string problem = infer_shapes(report, shapes, device);
  if (!problem.empty()) {
    throw ToolError(kInputError,
                    joined(described, ", ") + ": the network can't take this input: " + problem);
  }
  return inputs;
}

}  // namespace qrt_tool
