#include "tools/qrt/source.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/npy.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::toolkit::GivenTensor;
using marlo::toolkit::ImportedModel;
using marlo::toolkit::ImportOptions;
using marlo::toolkit::PicturePreparation;
using marlo::toolkit::Refusal;

namespace {

struct NamedText {
  std::string name;  // empty where none is given
  std::string text;
};

NamedText split(const std::string& option) {
  const size_t at = option.find('=');
  if (at == std::string::npos) return {"", option};
  return {option.substr(0, at), option.substr(at + 1)};
}

bool is_npy(const std::string& text) {
  return lower_case(std::filesystem::path(text).extension().string()) == ".npy";
}

GivenTensor read_tensor(const std::string& path) {
  const std::string bytes = read_file(path, kInputError);
  try {
    ExactArray array = parse_npy_exactly(bytes);
    return {{array.sizes.begin(), array.sizes.end()}, std::move(array.values)};
  } catch (const ToolError& error) {
    throw ToolError(error.exit_code(), shown(path) + ": " + error.what());
  }
}

// "1x3x32x?": a size that is ? stays free.
std::vector<int64_t> parse_open_sizes(const std::string& option, const std::string& text) {
  std::vector<int64_t> sizes;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('x', at), text.size());
    const std::string part = text.substr(at, end - at);
    const bool is_number = !part.empty() && part.size() <= 9 &&
                           part.find_first_not_of("0123456789") == std::string::npos;
    if (!is_number && part != "?") {
      throw ToolError(kUsageError, "--input " + printable(option) +
                                       ": expected NAME=SIZES such as NAME=1x3x224x224, with ? for "
                                       "a size that stays free, or NAME=FILE.npy");
    }
    sizes.push_back(is_number ? std::stoll(part) : -1);
    at = end + 1;
  }
  return sizes;
}

// "4", "-0.5", "true" or "1,2,3", which is a tensor of one axis.
GivenTensor parse_constant(const std::string& option, const std::string& text) {
  GivenTensor tensor;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    const std::string part = text.substr(at, end - at);
    char* rest = nullptr;
    const double number = std::strtod(part.c_str(), &rest);
    if (part == "true" || part == "false") {
      tensor.numbers.push_back(part == "true" ? 1 : 0);
    } else if (part.empty() || *rest != '\0') {
      throw ToolError(kUsageError, "--set " + printable(option) +
                                       ": expected NAME=NUMBER, NAME=NUMBER,NUMBER,..., "
                                       "or NAME=FILE.npy");
    } else {
      tensor.numbers.push_back(number);
    }
    at = end + 1;
  }
  if (tensor.numbers.size() > 1) tensor.shape = {static_cast<int64_t>(tensor.numbers.size())};
  return tensor;
}

void refuse_twice(bool is_new, const char* option, const std::string& name) {
  if (is_new) return;
  throw ToolError(kUsageError, std::string(option) + " names " + in_quotes(name) + " twice");
}

std::vector<double> as_doubles(const std::string& option, const std::string& text) {
  if (text.empty()) return {};
  const std::vector<float> numbers = parse_numbers(option, text, {1, 3});
  std::vector<double> exact;
  exact.reserve(numbers.size());
  // The shortest text of a float is what the user typed.
  for (const float number : numbers)
    exact.push_back(std::strtod(float_text(number).c_str(), nullptr));
  return exact;
}

// The sizes that inputs of a command have, by name; pictures have none of their own.
std::map<std::string, std::vector<int64_t>> shapes_of(const std::vector<std::string>& inputs) {
  std::map<std::string, std::vector<int64_t>> shapes;
  for (const std::string& option : inputs) {
    const NamedText input = split(option);
    const bool is_sizes =
        !input.text.empty() && input.text.find_first_not_of("0123456789x") == std::string::npos;
    if (is_npy(input.text)) {
      shapes[input.name] = read_tensor(input.text).shape;
    } else if (is_sizes) {
      const std::vector<int64_t> sizes = parse_open_sizes(option, input.text);
      const auto [known, is_new] = shapes.emplace(input.name, sizes);
      // Of several sizes, what differs stays free.
      for (size_t i = 0; !is_new && i < std::min(sizes.size(), known->second.size()); ++i) {
        if (known->second[i] != sizes[i]) known->second[i] = -1;
      }
    }
  }
  return shapes;
}

}  // namespace

std::shared_ptr<marlo::runtime::QRTModel> imported_model(
    const std::string& path, const std::vector<std::string>& inputs,
    std::optional<marlo::toolkit::KernelSet> set) {
  ImportOptions options;
  options.kernels = set;
  // An open first size is a batch, unless an array says that it is none.
  const auto given = shapes_of(inputs);
  const bool are_several = std::any_of(given.begin(), given.end(), [](const auto& shape) {
    return shape.second.size() > 1 && shape.second[0] > 1;
  });
  if (are_several) {
    options.shapes = given;
    try {
      return std::make_shared<marlo::runtime::QRTModel>(
          marlo::toolkit::import_onnx(path, options).model);
    } catch (const marlo::toolkit::ImportError&) {
      options.shapes.clear();
    }
  }
  try {
    return std::make_shared<marlo::runtime::QRTModel>(
        marlo::toolkit::import_onnx(path, options).model);
  } catch (const marlo::toolkit::UnsupportedError& error) {
    options.shapes = given;
    if (options.shapes.empty()) refuse_source(path, error);
  } catch (const marlo::toolkit::ImportError& error) {
    refuse_source(path, error);
  }
  return std::make_shared<marlo::runtime::QRTModel>(import_source(path, options).model);
}

bool is_onnx(const std::string& path) {
  return lower_case(std::filesystem::path(path).extension().string()) == ".onnx";
}

SourceInputs read_source_options(const SourceOptions& options) {
  SourceInputs inputs;
  for (const std::string& option : options.inputs) {
    const NamedText input = split(option);
    std::vector<int64_t> sizes;
    if (is_npy(input.text)) {
      GivenTensor tensor = read_tensor(input.text);
      sizes = tensor.shape;
      inputs.tensors[input.name] = std::move(tensor);
    } else {
      sizes = parse_open_sizes(option, input.text);
    }
    refuse_twice(inputs.options.shapes.emplace(input.name, sizes).second, "--input", input.name);
  }
  for (const std::string& option : options.sets) {
    const NamedText set = split(option);
    if (set.name.empty()) {
      throw ToolError(kUsageError, "--set " + printable(option) + ": expected NAME=VALUE");
    }
    GivenTensor tensor =
        is_npy(set.text) ? read_tensor(set.text) : parse_constant(option, set.text);
    refuse_twice(inputs.options.constants.emplace(set.name, std::move(tensor)).second, "--set",
                 set.name);
  }
  inputs.options.outputs = options.outputs;
  return inputs;
}

PicturePreparation preparation_of(const PictureOptions& options) {
  check_picture_options(options);
  return {options.color, as_doubles("--mean", options.mean), as_doubles("--scale", options.scale)};
}

void refuse_source(const std::string& path, const marlo::toolkit::ImportError& error) {
  const std::vector<Refusal>& refusals = error.refusals();
  const bool is_file = dynamic_cast<const marlo::toolkit::FileError*>(&error) != nullptr;
  if (is_file && refusals.size() == 1) {
    throw ToolError(kModelError, shown(path) + ": " + printable(error.what()));
  }
  for (const Refusal& refusal : refusals) {
    say(printable(refusal.text()), Level::error,
        {{"node", refusal.node},
         {"operator", refusal.op},
         {"opset", refusal.opset == 0 ? "" : std::to_string(refusal.opset)},
         {"source", refusal.source},
         {"attribute", refusal.attribute},
         {"why", refusal.why},
         {"help", refusal.help}});
  }
  if (is_file) {
    throw ToolError(kModelError, shown(path) + ": " + counted(refusals.size(), "fault") +
                                     " in the file; nothing was imported");
  }
  throw ToolError(kImportError, shown(path) + ": " + counted(refusals.size(), "thing") +
                                    " can't be imported, so nothing was");
}

marlo::toolkit::VerifiedImport import_and_verify_source(
    const std::string& path, const ImportOptions& options,
    const marlo::toolkit::VerifyOptions& verify) {
  marlo::toolkit::VerifyOptions watched = verify;
  std::optional<Progress> progress;
  watched.progress = [&](size_t, size_t of) {
    if (!progress) progress.emplace("verify: step", of);
    progress->step();
  };
  return explaining_refusals(
      path, [&] { return marlo::toolkit::import_and_verify(path, options, watched); });
}

ImportedModel import_source(const std::string& path, const ImportOptions& options) {
  return explaining_refusals(path, [&] { return marlo::toolkit::import_onnx(path, options); });
}

}  // namespace qrt_tool
