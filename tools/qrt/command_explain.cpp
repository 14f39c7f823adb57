#include <stdexcept>

#include "qrt_toolkit/explain/explain.h"
#include "tools/qrt/choice_options.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/explain_output.h"
#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/network.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::toolkit::ExplainOptions;
using marlo::toolkit::Explanation;

namespace {

Explanation explained(const marlo::runtime::QRTModel& model, const Library& library,
                      const ExplainOptions& options, const std::string& path) {
  try {
    return marlo::toolkit::explain_model(model, library.kernels, options);
  } catch (const std::invalid_argument& failure) {
    throw ToolError(kModelError, shown(path) + ": " + printable(failure.what()));
  } catch (const std::runtime_error& failure) {
    throw ToolError(kRunError, shown(path) + ": a pass failed: " + take_story(failure));
  }
}

}  // namespace

void run_explain(const ExplainCommandOptions& options) {
  constexpr double kMilliseconds = 1000;
  Library library;
  const auto model = read_model(options.model, std::nullopt, options.inputs);
  ExplainOptions explain;
  explain.network = choose_network(*model, options.model, options.network);
  explain.passes_ms = options.seconds * kMilliseconds;
  {
    LoadedNetwork network = load_network(library, *model, options.model, explain.network);
    if (network.package->output_ids.empty()) {
      throw ToolError(kModelError, shown(options.model) + ": the network returns nothing");
    }
    explain.inputs =
        shapes_by_id(network, options.model, options.inputs, options.keep_batch, library);
  }
  const Explanation explanation = explained(*model, library, explain, options.model);
  print(options.json ? explain_json(explanation)
                     : explain_text(explanation, table_width(options.width)));
}

}  // namespace qrt_tool
