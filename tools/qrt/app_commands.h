#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "tools/qrt/commands.h"

// What the command line looks like.

namespace qrt_tool {

/// What was given to each command.
struct CommandOptions {
  InfoOptions info;
  RunOptions run;
  CompareOptions compare;
  BenchCommandOptions bench;
  TuneCommandOptions tune;
  ExplainCommandOptions explain;
  CheckOptions check;
  ImageOptions image;
  ReadOptions read;
  ConvertOptions convert;
  ImportCommandOptions import;
  KernelsOptions kernels;
  SelectOptions select;
  std::string help;  ///< the command that `qrt help` is asked about
};

/// Adds `qrt read`.
void add_read(CLI::App& app, ReadOptions& options);

/// Adds every command. Each runs while the command line is parsed.
void add_commands(CLI::App& app, CommandOptions& options);

}  // namespace qrt_tool
