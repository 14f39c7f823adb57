#include <algorithm>

#include "qrt_toolkit/bench/bench.h"
#include "tools/qrt/allocation_count.h"
#include "tools/qrt/bench_output.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/inputs.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/model_file.h"
#include "tools/qrt/network.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/source.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::toolkit::BenchOptions;
using marlo::toolkit::BenchResult;
using marlo::toolkit::BenchSubject;
using marlo::utility::Model;

namespace {

void check_options(const BenchCommandOptions& options) {
  const auto streams = std::count(options.against.begin(), options.against.end(), kStandardStream) +
                       (options.model == kStandardStream ? 1 : 0);
  if (streams > 1) throw ToolError(kUsageError, "standard input (-) can be read once only");
}

InputShapes input_shapes(const NetworkReport& report, const BenchCommandOptions& options) {
  if (options.inputs.empty()) return known_input_shapes(report);
  return given_input_shapes(report, options.inputs, options.keep_batch);
}

// What opens a model as applications do, or one that was imported from memory.
std::function<Model()> opener(const OpenModel& model, const std::string& path,
                              const Library& library) {
  marlo::utility::ModelOptions with;
  with.kernels = &library.kernels;
  if (!is_onnx(path)) {
    return [file = rereadable(path, kModelError), with] { return Model(file, with); };
  }
  const auto text = std::make_shared<const std::string>(json_text_of(*model.tree));
  return [text, with] { return Model::from_bytes(text->data(), text->size(), with); };
}

// A model that loads, with inputs that fit: what is wrong with it is said before anything is timed.
BenchSubject make_subject(Library& library, const std::string& path,
                          const BenchCommandOptions& options) {
  const OpenModel model = open_model(path, std::nullopt, options.inputs);
  BenchSubject subject;
  subject.name = shown(path);
  subject.network = choose_network(*model.tree, path, options.network);
  subject.open = opener(model, path, library);
  // Its weights are not to be found among what the process holds when it is measured.
  Library trial;
  LoadedNetwork network =
      load_network(trial, *model.tree, path, subject.network, LoadWarnings::say, model.weights());
  subject.inputs = input_shapes(network.report, options);
  if (subject.inputs.size() == network.report.inputs().size()) {
    const std::string problem = infer_shapes(network.report, subject.inputs, trial.context);
    if (!problem.empty()) {
      const bool own = are_model_shapes(network.report, subject.inputs);
      throw ToolError(own ? kModelError : kInputError, shown(path) + ": network " +
                                                           in_quotes(subject.network) +
                                                           " can't run on these sizes: " + problem);
    }
  }
  if (network.package->output_ids.empty()) {
    throw ToolError(kModelError, shown(path) + ": network " + in_quotes(subject.network) +
                                     ": expected outputs, found none");
  }
  return subject;
}

BenchResult measure(const std::vector<BenchSubject>& subjects, const BenchCommandOptions& options) {
  BenchOptions bench;
  bench.threads = options.threads;
  bench.cpu = options.cpu;
  bench.keep_state = options.keep_state;
  bench.allocations = allocation_count;
  if (options.seconds) bench.sampling.exact_ms = *options.seconds * 1000.0;
  try {
    return marlo::toolkit::bench(subjects, bench);
  } catch (const std::invalid_argument& failure) {
    throw ToolError(kUsageError, printable(failure.what()));
  } catch (const std::runtime_error& failure) {
    const std::string fault = take_story(failure);
    throw ToolError(kRunError,
                    "the pass failed: " + (fault.empty() ? "a kernel refused its input" : fault));
  }
}

}  // namespace

void run_bench(const BenchCommandOptions& options) {
  check_options(options);
  Library library;
  std::vector<BenchSubject> subjects;
  subjects.push_back(make_subject(library, options.model, options));
  for (const std::string& path : options.against) {
    subjects.push_back(make_subject(library, path, options));
  }
  const BenchResult result = measure(subjects, options);
  for (const auto& network : result.networks) {
    if (network.is_steady) continue;
    say(network.name + ": the passes didn't settle; other programs may be running", Level::warning);
  }
  print(options.json ? bench_json(result, options) : bench_text(result, options));
}

}  // namespace qrt_tool
