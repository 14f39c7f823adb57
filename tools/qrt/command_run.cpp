#include <algorithm>

#include "qrt_toolkit/tune/tune.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/findings.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/network.h"
#include "tools/qrt/profile_output.h"
#include "tools/qrt/run_output.h"
#include "tools/qrt/scores.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

void check_options(const RunOptions& options) {
  const auto refuse = [](const std::string& text) { throw ToolError(kUsageError, text); };
  const std::string& output = options.output;
  const bool to_stream = output == kStandardStream;
  if (!output.empty() && !to_stream &&
      (output.size() < 5 || output.compare(output.size() - 4, 4, ".npy") != 0)) {
    refuse("--output " + printable(output) + ": expected a name that ends in .npy, or -");
  }
  if (to_stream && (options.json || options.top != 0 || options.preview || options.profile ||
                    options.repeat != 0)) {
    refuse("--output - leaves no room for other data on standard output; expected a file's name");
  }
  if (std::count(options.inputs.begin(), options.inputs.end(), kStandardStream) +
          (options.model == kStandardStream ? 1 : 0) >
      1) {
    refuse("standard input (-) can be read once only");
  }
  if (!options.profile && !(options.profile_by + options.profile_sort).empty()) {
    refuse("--by and --sort go with --profile");
  }
  parse_profile_view(options.profile_by, options.profile_sort);
  if (options.top == 0 && (!options.labels.empty() || options.no_softmax)) {
    refuse("--labels and --no-softmax go with --top");
  }
}

std::vector<InputData> read_model_inputs(LoadedNetwork& network, const RunOptions& options,
                                         const Library& library) {
  try {
    return read_inputs(network.report, options.inputs, options.pictures, options.keep_batch,
                       library.context);
  } catch (const ToolError& error) {
    if (error.exit_code() != kModelError) throw;
    throw ToolError(kModelError, shown(options.model) + ": " + error.what());
  }
}

/// A configuration that was tuned elsewhere runs all the same, though others may be faster here.
void warn_of_other_processor(const marlo::runtime::QRTModel& model, const std::string& id,
                             const std::string& path) {
  const auto* config = config_of(model, id);
  const std::string tuned =
      config == nullptr ? "" : marlo::toolkit::tuned_processor(config->summary);
  const std::string here = marlo::toolkit::processor_name();
  if (tuned.empty() || tuned == here) return;
  say(shown(path) + " was tuned for " + printable(tuned) + ", and this is " + printable(here) +
          "; \"qrt tune\" finds what is the fastest here",
      Level::warning);
}

}  // namespace

void run_network(const RunOptions& options) {
  check_options(options);
  std::optional<Sdk> sdk;
  if (!options.sdk.empty()) sdk = parse_sdk(options.sdk);

  Library library;
  const OpenModel model = open_model(options.model, sdk, options.inputs);
  const std::string id = choose_network(*model.tree, options.model, options.network);
  LoadedNetwork network =
      load_network(library, *model.tree, options.model, id, LoadWarnings::say, model.weights());
  warn_of_other_processor(*model.tree, id, options.model);
  const std::vector<InputData> inputs = read_model_inputs(network, options, library);
  NetworkShapes shapes;
  for (const InputData& input : inputs) {
    add_shapes(shapes, network.report, {{input.layer, input.shape}});
  }
  warn_of_findings(options.model, id, shapes, model, {{id, network.package->net.get()}});

  const uint64_t repeat = options.repeat == 0 ? 1 : options.repeat;
  PassResult result;
  try {
    result = run_passes(network, inputs,
                        {.repeat = repeat,
                         .profile = options.profile,
                         .record = !options.dump.empty(),
                         .trace = !options.trace.empty(),
                         .keep_state = options.keep_state});
  } catch (const ToolError& error) {
    throw ToolError(error.exit_code(), shown(options.model) + ": " + error.what());
  }
  for (const OutputData& output : result.outputs) {
    const std::string text = strange_numbers(output.values());
    if (!text.empty()) say("output " + in_quotes(output.id) + ": " + text, Level::warning);
  }
  std::vector<Score> scores;
  if (options.top != 0) scores = best_scores(result, options);
  if (!options.dump.empty()) {
    const size_t count = write_records(result, network.report, options.dump);
    say("wrote " + counted(count, "array") + " to " + printable(options.dump));
  }
  if (result.trace) {
    write_file(options.trace, marlo::toolkit::trace_json(*result.trace));
    say("wrote " + printable(options.trace));
  }
  if (options.output == kStandardStream) return print(only_output(result));
  if (!options.output.empty()) {
    for (const std::string& path : write_outputs(result, options.output)) {
      say("wrote " + printable(path));
    }
  }
  print(options.json ? run_json(network, inputs, result, scores, options)
                     : run_text(network, inputs, result, scores, options));
}

}  // namespace qrt_tool
