#include <fnmatch.h>

#include <algorithm>

#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/network.h"
#include "tools/qrt/processor.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

// A pattern has to match the whole name, other text a part of it; case never matters.
bool matches(const std::string& name, const std::string& filter) {
  if (filter.find_first_of("*?[") == std::string::npos) {
    return lower_case(name).find(lower_case(filter)) != std::string::npos;
  }
  return fnmatch(lower_case(filter).c_str(), lower_case(name).c_str(), 0) == 0;
}

std::string print_json(const std::vector<std::string>& names) {
  JsonText json;
  json.begin_object();
  json.begin_array("kernels");
  for (const std::string& name : names) {
    const std::string missing = missing_instructions(name);
    json.begin_object();
    json.text("name", name);
    json.boolean("runs_here", missing.empty());
    if (!missing.empty()) json.text("missing", missing);
    json.end_object();
  }
  json.end_array();
  json.end_object();
  return json.finish();
}

}  // namespace

void run_kernels(const KernelsOptions& options) {
  const Library library;
  std::vector<std::string> names;
  for (const std::string& name : library.kernels.Keys()) {
    const bool chosen = std::all_of(options.filters.begin(), options.filters.end(),
                                    [&](const auto& filter) { return matches(name, filter); });
    if (chosen) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  if (options.json) return print(print_json(names));
  if (names.empty()) {
    throw ToolError(kRunError, "no kernel matches " + joined(options.filters, " ") +
                                   "; `qrt kernels` lists all");
  }
  std::string text;
  for (const std::string& name : names) {
    const std::string missing = missing_instructions(name);
    text += name;
    if (!missing.empty()) text += "  (not on this processor: no " + missing + ")";
    text += '\n';
  }
  print(text);
}

}  // namespace qrt_tool
