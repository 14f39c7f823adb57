#include "tools/qrt/usage_fault.h"

#include <algorithm>

#include "tools/qrt/errors.h"
#include "tools/qrt/suggestion.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

bool is_option(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

std::vector<std::string> option_names(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    for (const std::string& name : option->get_snames()) names.push_back("-" + name);
  }
  return names;
}

// The first option that the command doesn't have; empty if it has all of them.
std::string unknown_option(const CLI::App& app, const std::vector<std::string>& words) {
  const std::vector<std::string> names = option_names(app);
  for (const std::string& word : words) {
    if (word == "--") break;
    if (!is_option(word)) continue;
    // Letters behind a single dash are options of one letter, or the value of the first.
    const bool is_long = word[1] == '-';
    const std::string name = is_long ? word.substr(0, word.find('=')) : word.substr(0, 2);
    if (std::find(names.begin(), names.end(), name) == names.end()) return is_long ? name : word;
  }
  return "";
}

// As it was typed first: `-input` has one dash too few.
std::string option_meant(const CLI::App& app, const std::string& word) {
  if (word.size() == 2) return "";
  const std::string nearest = did_you_mean(word, option_names(app));
  return nearest.empty() && word[1] != '-' ? did_you_mean("-" + word, option_names(app)) : nearest;
}

}  // namespace

std::vector<std::string> command_names(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(command->get_name());
  }
  return names;
}

const CLI::App& command_named(const CLI::App& app, const std::string& name) {
  const std::vector<std::string> names = command_names(app);
  if (std::find(names.begin(), names.end(), name) == names.end()) {
    const std::string meant = did_you_mean(name, names);
    throw ToolError(kUsageError,
                    "there is no command " + in_quotes(name) +
                        (meant.empty() ? "; expected one of " + joined(names, ", ") : meant));
  }
  return *app.get_subcommand(name);
}

UsageFault usage_fault(const CLI::App& app, const std::vector<std::string>& arguments,
                       const CLI::ParseError& error) {
  const auto word = std::find_if(arguments.begin(), arguments.end(),
                                 [](const std::string& text) { return !is_option(text); });
  const std::string strange = unknown_option(app, {arguments.begin(), word});
  if (!strange.empty()) {
    return {"there is no option " + in_quotes(strange) + option_meant(app, strange), ""};
  }
  if (word == arguments.end()) {
    return {"expected a command: " + joined(command_names(app), ", "), ""};
  }
  const CLI::App* command = nullptr;
  try {
    command = &command_named(app, *word);
  } catch (const ToolError& fault) {
    return {fault.what(), ""};
  }
  const auto explained = [&](const std::string& text) {
    return UsageFault{*word + ": " + text, *word};
  };
  if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr) {
    return explained(printable(error.what()));
  }
  const std::vector<std::string> rest(word + 1, arguments.end());
  const std::string unknown = unknown_option(*command, rest);
  if (!unknown.empty()) {
    return explained("there is no option " + in_quotes(unknown) + option_meant(*command, unknown));
  }
  const std::vector<std::string> left = app.remaining(true);
  for (const std::string& text : rest) {
    if (std::find(left.begin(), left.end(), text) == left.end()) continue;
    return explained("nothing is expected where " + in_quotes(text) + " stands");
  }
  return explained(printable(error.what()));
}

}  // namespace qrt_tool
