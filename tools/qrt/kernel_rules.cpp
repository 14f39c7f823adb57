#include "tools/qrt/kernel_rules.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/layer_facts.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

constexpr char kBlanks[] = " \t\r";
constexpr char kDefaultKey[] = "default";
constexpr char kLayerStart[] = "layer-";
constexpr char kActivation[] = "Activation";

// What layers of the earlier generation become.
constexpr std::array<const char*, 16> kTypes = {
    "Input",          "Activation",          "Conv2d",        "ConvTranspose2d",
    "AvgPool2d",      "MaxPool2d",           "BatchNorm2d",   "Upsample2d",
    "Concatenate",    "ElementWiseOperator", "TensorReshape", "TensorTranspose",
    "FullConnection", "TensorSqueeze",       "PixelShuffle",  "LSTM"};

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, ',');) parts.push_back(trimmed(part));
  return parts;
}

// "Activation  3" with one blank; any other key as it is.
std::string canonical_key(const std::string& key) {
  const std::string start = kActivation;
  if (key.compare(0, start.size(), start) != 0) return key;
  const std::string number = trimmed(key.substr(start.size()));
  const bool is_number =
      !number.empty() && number.find_first_not_of("0123456789") == std::string::npos;
  return is_number ? start + " " + number : key;
}

bool is_type_key(const std::string& key) {
  const std::string start = std::string(kActivation) + " ";
  if (key.compare(0, start.size(), start) == 0) {
    return key.find_first_not_of("0123456789", start.size()) == std::string::npos;
  }
  return std::find(kTypes.begin(), kTypes.end(), key) != kTypes.end();
}

}  // namespace

bool kernel_set_for(const std::string& word, OldKernelSet& set) {
  if (word != "portable" && word != "sse") return false;
  set = word == "sse" ? OldKernelSet::sse : OldKernelSet::portable;
  return true;
}

bool is_layer_key(const std::string& key) { return key.rfind(kLayerStart, 0) == 0; }

KernelRules::KernelRules(const std::string& path) : path_(path) {
  std::istringstream lines(read_file(path, kInputError));
  size_t number = 0;
  for (std::string text; std::getline(lines, text);) {
    parse_line(trimmed(text.substr(0, text.find('#'))), ++number);
  }
}

void KernelRules::refuse(size_t line, const std::string& why) const {
  throw ToolError(kInputError, printable(path_) + ": line " + std::to_string(line) + ": " + why);
}

void KernelRules::parse_line(const std::string& text, size_t line) {
  if (text.empty()) return;
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    refuse(line, "expected TYPE = KERNEL, found " + in_quotes(text));
  }
  const std::string key = canonical_key(trimmed(text.substr(0, equals)));
  const std::string value = trimmed(text.substr(equals + 1));
  if (key == kDefaultKey) {
    if (has_set_) refuse(line, "a second default");
    has_set_ = true;
    if (!kernel_set_for(value, set_)) {
      refuse(line, "expected portable or sse as the default, found " + in_quotes(value));
    }
    return;
  }
  if (!is_layer_key(key) && !is_type_key(key)) {
    std::vector<std::string> words(kTypes.begin(), kTypes.end());
    refuse(line, in_quotes(key) + " is no layer; expected default, an id such as layer-12, " +
                     "\"Activation N\", or one of " + joined(words, ", "));
  }
  if (find(key) != nullptr) refuse(line, "a second rule for " + in_quotes(key));
  KernelRule rule{line, key, split(value)};
  if (rule.kernels.empty()) refuse(line, "expected the name of a kernel behind the \"=\"");
  for (const std::string& kernel : rule.kernels) {
    if (kernel.empty()) refuse(line, "expected the name of a kernel before and behind each comma");
  }
  rules_.push_back(std::move(rule));
}

const KernelRule* KernelRules::find(const std::string& key) const {
  for (const KernelRule& rule : rules_) {
    if (rule.key == key) return &rule;
  }
  return nullptr;
}

const KernelRule* KernelRules::rule_for(const marlo::runtime::LayerInfo& info) const {
  if (const KernelRule* rule = find(info.id)) return rule;
  if (const auto* layer = dynamic_cast<const marlo::runtime::ActivationInfo*>(&info)) {
    const std::string key = std::string(kActivation) + " " + std::to_string(layer->activation_type);
    if (const KernelRule* rule = find(key)) return rule;
  }
  return find(kind_of(info));
}

std::string KernelRules::place_of(const KernelRule& rule) const {
  return printable(path_) + ": line " + std::to_string(rule.line) + ": ";
}

}  // namespace qrt_tool
