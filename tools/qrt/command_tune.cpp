#include <cmath>
#include <ctime>
#include <map>
#include <optional>
#include <vector>

#include "qrt_toolkit/tune/tune.h"
#include "tools/qrt/choice_options.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/image_steps.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/model_file.h"
#include "tools/qrt/network.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"
#include "tools/qrt/tune_output.h"

namespace qrt_tool {

using marlo::toolkit::TunedModel;
using marlo::toolkit::TuneOptions;
using marlo::toolkit::TuneProgress;

namespace {

double tolerance(const TuneCommandOptions& options) {
  if (options.numerics == "same") {
    if (options.tolerance) throw ToolError(kUsageError, "--numerics same leaves no --tolerance");
    return 0;
  }
  if (options.tolerance) return *options.tolerance;
  const std::string numerics = options.numerics.empty() ? "bounded" : options.numerics;
  if (const auto known = marlo::toolkit::tolerance_of(numerics)) return *known;
  throw ToolError(kUsageError,
                  "--numerics " + printable(options.numerics) + ": expected same, bounded or fast");
}

std::string today() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[sizeof "2000-01-01"];
  return std::strftime(text, sizeof text, "%Y-%m-%d", &parts) == 0 ? "" : text;
}

/// The sizes that are tuned for, each with its weight.
void take_sizes(const TuneCommandOptions& options,
                const std::vector<std::map<std::string, marlo::runtime::TensorShape>>& sizes,
                TuneOptions& tune) {
  std::vector<float> weights;
  if (!options.weights.empty())
    weights = parse_numbers("--weights", options.weights, {sizes.size()});
  for (const float weight : weights) {
    if (weight <= 0) {
      throw ToolError(kUsageError,
                      "--weights " + printable(options.weights) + ": expected numbers above 0");
    }
  }
  const auto weight_of = [&](size_t size) { return weights.empty() ? 1.0 : double{weights[size]}; };
  tune.assign.inputs = sizes[0];
  tune.weight = weight_of(0);
  for (size_t s = 1; s < sizes.size(); ++s) tune.further.push_back({sizes[s], weight_of(s)});
}

TunedModel tuned(const marlo::runtime::QRTModel& model, const Library& library, TuneOptions options,
                 size_t layers) {
  const Interrupts interrupts;
  Progress progress("layer", layers, options.budget);
  size_t shown_layers = 0;
  options.go_on = [&](const TuneProgress& now) {
    for (; shown_layers < now.layers && shown_layers < layers; ++shown_layers) progress.step();
    return !Interrupts::came();
  };
  try {
    return marlo::toolkit::tune_model(model, library.kernels, options);
  } catch (const std::invalid_argument& failure) {
    throw ToolError(kModelError, printable(failure.what()));
  } catch (const std::runtime_error& failure) {
    throw ToolError(kRunError, "a pass failed: " + take_story(failure));
  }
}

}  // namespace

void run_tune(const TuneCommandOptions& options) {
  const bool to_stream = options.output == kStandardStream;
  if (!to_stream) expect_replaceable(options.output);
  const FileFormat format =
      to_stream ? FileFormat{true, std::nullopt} : format_of_name(options.output, kUsageError);
  if (format.kind && *format.kind != ObjectKind::model) {
    throw ToolError(kUsageError, shown(options.output) + ": expected the name of a model (.json " +
                                     "or .qrtmodel)");
  }
  if (!options.report.empty()) expect_replaceable(options.report);
  TuneOptions tune;
  tune.assign.set = kernel_set_option(options.isa);
  tune.assign.tolerance = tolerance(options);
  tune.budget = options.budget;
  tune.processor = marlo::toolkit::processor_name();
  tune.date = today();
  tune.with_candidates = options.json || !options.report.empty();
  if (!options.no_wisdom) tune.wisdom = options.wisdom.empty() ? default_wisdom() : options.wisdom;

  Library library;
  const auto model = read_model(options.input, std::nullopt, options.inputs, tune.assign.set);
  tune.assign.network = choose_network(*model, options.input, options.network);
  size_t layers = 0;
  {
    LoadedNetwork network = load_network(library, *model, options.input, tune.assign.network);
    if (network.package->output_ids.empty()) {
      throw ToolError(kModelError, shown(options.input) + ": the network returns nothing");
    }
    take_sizes(options,
               shapes_of_sizes(network, options.input, options.inputs, options.keep_batch, library),
               tune);
    layers = network.report.layers.size() * (1 + tune.further.size());
  }
  TunedModel result = tuned(*model, library, tune, layers);
  for (const std::string& note : result.report.notes) say(note, Level::warning);
  if (!result.report.is_complete) {
    say(std::isfinite(result.report.after)
            ? "not everything was measured: the rest is as it was estimated"
            : "ended before whole passes were timed: what was measured of single layers chose, and "
              "estimates where nothing was",
        Level::warning);
  }
  if (!to_stream) write_object(result.model, ObjectKind::model, options.output, format.is_json);
  const std::string json = tune_json(result.report, tune);
  if (!options.report.empty()) write_file(options.report, json);
  if (to_stream) return print(json_text_of(result.model));
  print(options.json ? json : tune_text(result.report, table_width(options.width)));
}

}  // namespace qrt_tool
