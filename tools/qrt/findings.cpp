#include "tools/qrt/findings.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/source.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::utility::Finding;
using marlo::utility::FindingCode;
using marlo::utility::Severity;

namespace {

// Where the file doesn't tell sizes the library tries some, which need not be those that are meant.
bool depends_on_sizes(const Finding& finding) {
  if (finding.code == FindingCode::wrong_shape) return true;
  return finding.code == FindingCode::other_result && finding.member == "new_shape";
}

}  // namespace

std::vector<Finding> findings_of(const std::string& path, const std::string& network,
                                 const NetworkShapes& inputs, const OpenModel& open,
                                 const marlo::utility::ReadyNets& nets) {
  // A network that was imported in memory has no text of its own to judge.
  if (is_onnx(path)) return {};
  marlo::utility::CheckOptions options;
  options.inputs = inputs;
  std::optional<std::vector<Finding>> known;
  if (open.source != nullptr) {
    known = marlo::utility::check_source(*open.source, options, nets);
  }
  std::vector<Finding> findings =
      known ? *std::move(known)
            : marlo::utility::check_model(rereadable(path, kModelError), options);
  const auto is_void = [&](const Finding& finding) {
    if (finding.network.empty()) return false;
    if (!network.empty() && finding.network != network) return true;
    return depends_on_sizes(finding) && inputs.count(finding.network) == 0;
  };
  findings.erase(std::remove_if(findings.begin(), findings.end(), is_void), findings.end());
  return findings;
}

bool is_error(const Finding& finding) { return finding.severity == Severity::error; }

bool has_errors(const std::vector<Finding>& findings) {
  return std::any_of(findings.begin(), findings.end(), is_error);
}

std::string finding_line(const Finding& finding) {
  std::string text = marlo::utility::finding_text(finding);
  const std::string word = is_error(finding) ? "error: " : "warning: ";
  if (text.rfind(word, 0) == 0) text.erase(0, word.size());
  return printable(text);
}

void add_shapes(NetworkShapes& shapes, const NetworkReport& report, const InputShapes& inputs) {
  for (const auto& [layer, shape] : inputs) {
    shapes[report.id].emplace(report.layers[layer].id, shape);
  }
}

void warn_of_findings(const std::string& path, const std::string& network,
                      const NetworkShapes& inputs, const OpenModel& open,
                      const marlo::utility::ReadyNets& nets) {
  std::set<std::pair<std::string, std::string>> layers;
  size_t others = 0;
  for (const Finding& finding : findings_of(path, network, inputs, open, nets)) {
    if (!is_error(finding) || finding.code == FindingCode::wrong_shape) continue;
    if (finding.id.empty()) {
      ++others;
    } else {
      layers.emplace(finding.network, finding.id);
    }
  }
  std::string text = shown(path) + ": ";
  if (layers.size() == 1) {
    text += "1 layer computes something else than its description says";
  } else if (!layers.empty()) {
    text += counted(layers.size(), "layer") + " compute something else than their descriptions say";
  } else if (others != 0) {
    text += counted(others, "error") + " in what the file says of its networks";
  } else {
    return;
  }
  const bool is_one = layers.empty() ? others == 1 : layers.size() == 1;
  say(text + "; `qrt check " + (path == kStandardStream ? path : shown(path)) + "` names " +
          (is_one ? "it" : "them"),
      Level::warning);
}

void add_findings(JsonText& json, const std::vector<Finding>& findings) {
  json.begin_array("findings");
  for (const Finding& finding : findings) {
    json.begin_object();
    json.text("code", marlo::utility::code_name(finding.code));
    json.text("severity", is_error(finding) ? "error" : "warning");
    if (!finding.network.empty()) json.text("network", finding.network);
    if (finding.layer) json.integer("layer", *finding.layer);
    if (!finding.id.empty()) json.text("id", finding.id);
    if (!finding.kind.empty()) json.text("kind", finding.kind);
    if (!finding.kernel.empty()) json.text("kernel", finding.kernel);
    json.text("member", finding.member);
    json.text("expected", finding.expected);
    json.text("found", finding.found);
    json.text("change", finding.change);
    if (finding.line != 0) {
      json.integer("line", finding.line);
      json.integer("column", finding.column);
    }
    json.end_object();
  }
  json.end_array();
}

}  // namespace qrt_tool
