#include "tools/qrt/inputs.h"

#include <algorithm>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/utility/model_summary.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/image_steps.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/npy.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

std::string input_names(const NetworkReport& report) {
  std::vector<std::string> names;
  for (const uint32_t input : report.inputs()) names.push_back(in_quotes(report.layers[input].id));
  return joined(names, ", ");
}

}  // namespace

std::vector<GivenInput> assign_inputs(const NetworkReport& report,
                                      const std::vector<std::string>& options,
                                      const std::string& what) {
  const std::vector<uint32_t> inputs = report.inputs();
  if (options.size() != inputs.size()) {
    throw ToolError(kUsageError, "expected " + counted(inputs.size(), what) +
                                     " (--input) for network " + in_quotes(report.id) +
                                     ", which reads " +
                                     (inputs.empty() ? "nothing" : input_names(report)) +
                                     "; found " + std::to_string(options.size()));
  }
  std::vector<std::optional<std::string>> values(inputs.size());
  std::vector<std::string> unnamed;
  for (const std::string& option : options) {
    size_t chosen = inputs.size();
    for (size_t i = 0; i < inputs.size(); ++i) {
      if (option.rfind(report.layers[inputs[i]].id + "=", 0) == 0) chosen = i;
    }
    if (chosen == inputs.size()) {
      unnamed.push_back(option);
    } else if (values[chosen]) {
      throw ToolError(kUsageError, "--input names " + in_quotes(report.layers[inputs[chosen]].id) +
                                       " twice; the inputs are " + input_names(report));
    } else {
      values[chosen] = option.substr(report.layers[inputs[chosen]].id.size() + 1);
    }
  }
  std::vector<GivenInput> assigned;
  auto next = unnamed.begin();
  for (size_t i = 0; i < inputs.size(); ++i) {
    assigned.push_back({inputs[i], values[i] ? *values[i] : *next++});
  }
  return assigned;
}

namespace {

// The size that `--resize model` stands for.
PictureSize size_of_model(const std::optional<DemandedInput>& demanded) {
  if (!demanded || demanded->height == 0 || demanded->width == 0) {
    throw ToolError(
        kInputError,
        "the model's header gives no size to resize to; expected --resize WIDTHxHEIGHT");
  }
  return {demanded->height, demanded->width};
}

// Channels to read a picture in: as the network demands, and where that is gray, in colours if they
// are wanted first.
uint32_t channels_to_read(const PictureOptions& options, uint32_t demanded) {
  if (options.color.empty() || options.color == "gray") return options.color.empty() ? demanded : 3;
  if (demanded == 1) {
    throw ToolError(kUsageError,
                    "--color " + options.color + ": the network expects one plane; expected gray");
  }
  return 3;
}

Picture prepared(Picture picture, const PictureOptions& options,
                 const std::optional<DemandedInput>& demanded, const ImageSteps& steps) {
  if (!options.crop.empty()) picture = steps.apply(picture, {"crop", options.crop});
  if (!options.resize.empty()) {
    picture = steps.resized(picture, options.resize == "model"
                                         ? size_of_model(demanded)
                                         : parse_picture_size("--resize", options.resize));
  }
  if (options.color == "gray") picture = steps.gray(picture);
  if (options.color == "bgr") picture = steps.with_red_and_blue_swapped(picture);
  if (options.color == "gray" && demanded && demanded->channels == 3) {
    throw ToolError(kUsageError, "--color gray: the network expects 3 planes; expected rgb or bgr");
  }
  return picture;
}

void take_picture(InputData& input, Picture picture, const std::optional<DemandedInput>& demanded,
                  const PictureOptions& options, const ImageSteps& steps) {
  const bool has_size = demanded && demanded->height != 0 && demanded->width != 0;
  picture = prepared(std::move(picture), options, demanded, steps);
  if (has_size && !options.any_size &&
      (picture.height != demanded->height || picture.width != demanded->width)) {
    throw ToolError(
        kInputError,
        "the picture is " + sizes_text({picture.width, picture.height}) +
            " (width by height); the model expects " +
            sizes_text({demanded->width, demanded->height}) +
            ". --resize model resizes it, --crop cuts a part out first; --any-size runs "
            "it as it is, if the layers can take it");
  }
  input.shape = float_shape({picture.channels, picture.height, picture.width});
  if (options.mean.empty() && options.scale.empty()) {
    input.values = planes_of(picture);
  } else {
    const std::vector<size_t> counts =
        picture.channels == 1 ? std::vector<size_t>{1} : std::vector<size_t>{1, 3};
    const auto numbers = [&](const char* name, const std::string& text, float standard) {
      return text.empty() ? std::vector<float>{standard} : parse_numbers(name, text, counts);
    };
    input.values = steps.normalized(picture, numbers("--mean", options.mean, 0.0f),
                                    numbers("--scale", options.scale, 1.0f / 255.0f));
  }
  input.picture = std::move(picture);
}

std::string numbers_text(const std::vector<float>& numbers) {
  std::vector<std::string> texts;
  texts.reserve(numbers.size());
  for (const float number : numbers) texts.push_back(float_text(number));
  return joined(texts, ",");
}

// What the model says of pictures, where the command line is silent; a picture is then resized too.
PictureOptions with_preparation(PictureOptions options,
                                const std::optional<DemandedInput>& demanded) {
  if (!demanded || !demanded->described || !demanded->described->has_preparation()) return options;
  const marlo::utility::DescribedTensor& described = *demanded->described;
  if (options.color.empty()) options.color = described.color;
  if (options.mean.empty()) options.mean = numbers_text(described.mean);
  if (options.scale.empty()) options.scale = numbers_text(described.scale);
  const bool has_size = demanded->height != 0 && demanded->width != 0;
  if (options.resize.empty() && !options.any_size && has_size) options.resize = "model";
  return options;
}

InputData read_input(const NetworkReport& report, const GivenInput& file,
                     const PictureOptions& options, bool keep_batch, const ImageSteps& steps) {
  InputData input;
  input.layer = file.layer;
  input.path = file.value;
  const auto demanded = demanded_input(report, file.layer);
  const std::string bytes = read_file(file.value, kInputError);
  try {
    const bool named_npy =
        file.value.size() >= 4 && file.value.compare(file.value.size() - 4, 4, ".npy") == 0;
    if (named_npy || bytes.compare(0, 6, "\x93NUMPY") == 0) {
      NumberArray array = parse_npy(bytes);
      input.shape = input_shape(array.sizes, demanded, keep_batch);
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
    const PictureOptions all = with_preparation(options, demanded);
    take_picture(input, parse_picture(bytes, channels_to_read(all, channels)), demanded, all,
                 steps);
  } catch (const ToolError& error) {
    throw ToolError(error.exit_code(), shown(file.value) + ": " + error.what());
  }
  return input;
}

/// Whether an input has other sizes than the model says that it reads.
bool has_other_sizes(const NetworkReport& report, const InputData& input) {
  const auto demanded = demanded_input(report, input.layer);
  return demanded && demanded->described &&
         !marlo::utility::described_shape(*demanded->described, input.shape.dims);
}

/// A layer that takes what it reads for a tensor of other sizes, of which it leaves numbers out or
/// makes some up; empty where there is none. Shapes are inferred.
std::string cut_by_reshape(const NetworkReport& report) {
  for (const LayerReport& layer : report.layers) {
    const auto* info = dynamic_cast<const marlo::runtime::TensorReshapeInfo*>(layer.info.get());
    if (info == nullptr || layer.sources.size() != 1 || layer.outputs.size() != 1) continue;
    const auto& read = report.layers.at(layer.sources[0]).outputs;
    if (read.size() != 1) continue;
    const uint64_t numbers = marlo::runtime::ElementCount(read[0]);
    const uint64_t made = marlo::runtime::ElementCount(layer.outputs[0]);
    if (numbers == made) continue;
    return layer.title() + ": it makes " + counted(made, "number") + " of " +
           std::to_string(numbers);
  }
  return "";
}

void warn_of_numbers(const InputData& input) {
  const std::string text = strange_numbers(input.values);
  if (!text.empty()) say(shown(input.path) + ": " + text, Level::warning);
}

}  // namespace

void check_picture_options(const PictureOptions& options) {
  for (const char* const known : {"", "rgb", "bgr", "gray"}) {
    if (options.color == known) return;
  }
  throw ToolError(kUsageError,
                  "--color " + in_quotes(options.color) + ": expected rgb, bgr or gray");
}

std::vector<InputData> read_inputs(NetworkReport& report, const std::vector<std::string>& options,
                                   const PictureOptions& pictures, bool keep_batch,
                                   const std::shared_ptr<marlo::runtime::Context>& context) {
  check_picture_options(pictures);
  const ImageSteps steps(context);
  std::vector<InputData> inputs;
  InputShapes shapes;
  std::vector<std::string> described;
  for (const GivenInput& file : assign_inputs(report, options, "input file")) {
    inputs.push_back(read_input(report, file, pictures, keep_batch, steps));
    shapes.emplace(file.layer, inputs.back().shape);
    warn_of_numbers(inputs.back());
    std::string text = shown(file.value) + " (" + shape_text(inputs.back().shape);
    if (const auto demanded = demanded_input(report, file.layer)) {
      text += "; the model expects " + demanded->text();
    }
    described.push_back(text + ")");
  }
  std::string problem = infer_shapes(report, shapes, context);
  const bool has_others = std::any_of(inputs.begin(), inputs.end(), [&](const InputData& input) {
    return has_other_sizes(report, input);
  });
  if (problem.empty() && has_others) problem = cut_by_reshape(report);
  if (problem.empty()) return inputs;
  if (are_model_shapes(report, shapes)) {
    throw ToolError(kModelError, "network " + in_quotes(report.id) +
                                     " can't run on the sizes that it asks for: " + problem);
  }
  throw ToolError(kInputError,
                  joined(described, ", ") + ": the network can't take this input: " + problem);
}

}  // namespace qrt_tool
