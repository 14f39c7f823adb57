#include <algorithm>
#include <optional>
#include <stdexcept>

#include "qrt_toolkit/explain/explain.h"
#include "qrt_toolkit/explain/html.h"
#include "qrt_toolkit/tune/tune.h"
#include "tools/qrt/choice_options.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/explain_output.h"
#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/network.h"
#include "tools/qrt/suggestion.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::toolkit::ExplainOptions;
using marlo::toolkit::Explanation;

namespace {

void check_options(const ExplainCommandOptions& options) {
  const auto refuse = [](const std::string& text) { throw ToolError(kUsageError, text); };
  if (options.html == kStandardStream && (options.json || !options.layer.empty())) {
    refuse("--html - leaves no room for other data on standard output; expected a file's name");
  }
  if (options.layer.empty()) return;
  if (options.json) refuse("--json tells all layers; expected it without --layer");
  if (options.no_candidates) {
    refuse("--layer shows a layer's candidates; expected it without --no-candidates");
  }
}

Explanation explained(const marlo::runtime::QRTModel& model, const Library& library,
                      ExplainOptions options, const std::string& path) {
  const Interrupts interrupts;
  std::optional<Progress> progress;
  size_t shown_steps = 0;
  options.go_on = [&](const marlo::toolkit::ExplainProgress& now) {
    if (!progress) progress.emplace("step", now.of_steps);
    for (; shown_steps < now.steps; ++shown_steps) progress->step();
    return !Interrupts::came();
  };
  try {
    return marlo::toolkit::explain_model(model, library.kernels, options);
  } catch (const std::invalid_argument& failure) {
    throw ToolError(kModelError, shown(path) + ": " + printable(failure.what()));
  } catch (const std::runtime_error& failure) {
    throw ToolError(kRunError, shown(path) + ": a pass failed: " + take_story(failure));
  }
}

void check_layer(const NetworkReport& report, const ExplainCommandOptions& options) {
  if (options.layer.empty()) return;
  std::vector<std::string> ids;
  for (const LayerReport& layer : report.layers) ids.push_back(layer.id);
  if (std::find(ids.begin(), ids.end(), options.layer) != ids.end()) return;
  throw ToolError(kUsageError, "--layer " + printable(options.layer) +
                                   ": the network has no such layer" +
                                   did_you_mean(options.layer, ids));
}

}  // namespace

void run_explain(const ExplainCommandOptions& options) {
  constexpr double kMilliseconds = 1000;
  check_options(options);
  if (!options.html.empty() && options.html != kStandardStream) expect_replaceable(options.html);
  Library library;
  ExplainOptions explain;
  explain.set = kernel_set_option(options.isa);
  const auto model = read_model(options.model, std::nullopt, options.inputs, explain.set);
  explain.network = choose_network(*model, options.model, options.network);
  explain.passes_ms = options.seconds * kMilliseconds;
  explain.with_candidates = !options.no_candidates;
  explain.budget = options.budget;
  explain.processor = marlo::toolkit::processor_name();
  if (!options.no_wisdom) {
    explain.wisdom = options.wisdom.empty() ? default_wisdom() : options.wisdom;
  }
  {
    LoadedNetwork network = load_network(library, *model, options.model, explain.network);
    if (network.package->output_ids.empty()) {
      throw ToolError(kModelError, shown(options.model) + ": the network returns nothing");
    }
    explain.inputs =
        shapes_by_id(network, options.model, options.inputs, options.keep_batch, library);
    check_layer(network.report, options);
  }
  const Explanation explanation = explained(*model, library, explain, options.model);
  if (explanation.layers.empty()) {
    throw ToolError(kRunError, shown(options.model) + ": interrupted before anything was timed");
  }
  for (const std::string& note : explanation.notes) say(note, Level::warning);
  if (!explanation.is_complete) {
    say("not everything was measured: the times of other candidates are estimates", Level::warning);
  }
  if (!options.html.empty()) {
    const std::string page = marlo::toolkit::explain_html(explanation, shown(options.model));
    if (options.html == kStandardStream) return print(page);
    write_file(options.html, page);
  }
  const size_t width = table_width(options.width);
  if (options.json) return print(explain_json(explanation));
  if (options.layer.empty()) return print(explain_text(explanation, width));
  for (const auto& layer : explanation.layers) {
    if (layer.id == options.layer) return print(layer_text(layer, explanation, width));
  }
  throw ToolError(kRunError,
                  shown(options.model) + ": interrupted before that layer was explained");
}

}  // namespace qrt_tool
