#include <algorithm>
#include <stdexcept>

#include "qrt_toolkit/select/select.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/network.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

void run_select(const SelectOptions& options) {
  if (std::count(options.models.begin(), options.models.end(), kStandardStream) > 1) {
    throw ToolError(kUsageError, "standard input (-) can be read once only");
  }
  marlo::toolkit::Selection selection;
  std::vector<std::string> names;
  for (const std::string& path : options.models) {
    const auto model = read_model(path, std::nullopt);
    try {
      marlo::toolkit::select_kernels(*model, selection, options.network);
    } catch (const std::invalid_argument& failure) {
      throw ToolError(kModelError, shown(path) + ": " + printable(failure.what()));
    }
    names.push_back(shown(path));
  }
  const std::string source = marlo::toolkit::registration_source(selection, names);
  if (options.output.empty() || options.output == kStandardStream) return print(source);
  write_file(options.output, source);
  say("wrote " + counted(selection.kernels.size(), "kernel") + " to " + printable(options.output));
}

}  // namespace qrt_tool
