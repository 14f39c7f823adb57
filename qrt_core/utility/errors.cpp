#include "qrt_core/utility/errors.h"

#include <optional>
#include <utility>

namespace marlo::utility {

struct Error::Facts {
  std::string network;
  std::string detail;
  std::optional<LayerFault> layer;
};

std::string misfit_text(const Misfit& misfit) {
  std::string text = misfit.member;
  if (!misfit.expected.empty()) {
    text += (text.empty() ? "expected " : ": expected ") + misfit.expected;
  }
  if (!misfit.found.empty()) {
    const char* before = misfit.expected.empty() ? ": found " : ", found ";
    text += (text.empty() ? "found " : before) + misfit.found;
  }
  return text;
}

std::string place_text(const LayerFault& fault) {
  std::string text = "layer " + std::to_string(fault.layer);
  if (!fault.id.empty()) text += " \"" + fault.id + "\"";
  if (!fault.kind.empty()) text += " (" + fault.kind + ")";
  if (!fault.role.empty()) text += ", " + fault.role;
  if (!fault.kernel.empty()) text += ", kernel " + fault.kernel;
  return text;
}

Error::Error(const std::string& text, size_t message_begin)
    : std::runtime_error(text), message_begin_(message_begin) {}

Error::Error(const Error&) noexcept = default;
Error& Error::operator=(const Error&) noexcept = default;
Error::~Error() = default;

Error::Facts& Error::facts() {
  if (facts_ == nullptr) facts_ = std::make_shared<Facts>();
  return *facts_;
}

std::string Error::message() const {
  std::string text = what();
  text.erase(0, message_begin_);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

std::string Error::detail() const { return facts_ != nullptr ? facts_->detail : std::string(); }

std::string Error::network() const { return facts_ != nullptr ? facts_->network : std::string(); }

const LayerFault* Error::layer() const noexcept {
  return facts_ != nullptr && facts_->layer ? &*facts_->layer : nullptr;
}

std::string Error::story() const {
  std::string text;
  if (!network().empty()) text = "network \"" + network() + "\"";
  if (layer() != nullptr) text += (text.empty() ? "" : ", ") + place_text(*layer());

  std::string reason = message();
  // A message may name its kernel itself.
  if (layer() != nullptr && !layer()->kernel.empty()) {
    const std::string name = layer()->kernel + ": ";
    if (reason.compare(0, name.size(), name) == 0) reason.erase(0, name.size());
  }
  if (!detail().empty()) reason += (reason.empty() ? "" : ": ") + detail();
  if (reason.empty()) reason = "failed without a message";
  text += (text.empty() ? "" : ": ") + reason;
  if (layer() != nullptr) {
    for (const Misfit& misfit : layer()->misfits) text += "\n  " + misfit_text(misfit);
  }
  return text;
}

void Error::explain(std::string detail) { facts().detail = std::move(detail); }

void Error::in_network(const std::string& network) {
  if (facts().network.empty()) facts().network = network;
}

void Error::in_layer(LayerFault fault) {
  if (!facts().layer) facts().layer = std::move(fault);
}

std::string story(const std::exception& failure) {
  const auto* error = dynamic_cast<const Error*>(&failure);
  return error != nullptr ? error->story() : failure.what();
}

}  // namespace marlo::utility
