#include "qrt_toolkit/errors.h"

#include <utility>

namespace marlo::toolkit {
namespace {

std::string list_of(const std::vector<Refusal>& refusals) {
  std::string text;
  for (const Refusal& refusal : refusals) {
    text += (text.empty() ? "" : "\n") + refusal.text();
  }
  return text;
}

}  // namespace

std::string Refusal::text() const {
  std::string text;
  if (!op.empty()) {
    text = "node \"" + node + "\" (" + op;
    if (opset != 0) text += ", opset " + std::to_string(opset);
    if (!source.empty()) text += ", from " + source;
    text += "): ";
  }
  if (!attribute.empty()) text += attribute + ": ";
  text += why;
  if (!help.empty()) text += "; " + help;
  return text;
}

ImportError::ImportError(std::vector<Refusal> refusals)
    : std::runtime_error(list_of(refusals)), refusals_(std::move(refusals)) {}

FileError::FileError(std::string why, std::string help)
    : ImportError({Refusal{"", "", 0, "", "", std::move(why), std::move(help)}}) {}

}  // namespace marlo::toolkit
