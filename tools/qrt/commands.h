#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/qrt/image_steps.h"
#include "tools/qrt/inputs.h"

// The commands. Each prints its data on standard output and throws ToolError on failure.

namespace qrt_tool {

constexpr size_t kDefaultWidth = 100;

struct InfoOptions {
  std::string model;
  std::string network;              ///< id of the only one to show; empty for all
  std::vector<std::string> inputs;  ///< sizes, one per input layer
  std::string sdk;                  ///< "NAME:MAJOR.MINOR"; empty for that of the file
  size_t width = kDefaultWidth;     ///< of tables, in characters
  bool json = false;
};

struct RunOptions {
  std::string model;
  std::string network;
  std::vector<std::string> inputs;  ///< files, "FILE" or "LAYER=FILE"
  std::string output;               ///< .npy file; empty to print
  std::string labels;               ///< file with one label a line
  std::string sdk;
  uint64_t top = 0;     ///< so many best values; 0 for all values as they are
  uint64_t repeat = 0;  ///< timed passes; 0 for one pass without its time
  size_t preview_width = 28;
  size_t width = kDefaultWidth;
  bool no_softmax = false;
  bool profile = false;
  bool preview = false;
  PictureOptions pictures;
  bool json = false;
};

struct CheckOptions {
  std::string model;
  std::string network;
  std::vector<std::string> inputs;  ///< sizes, one per input layer
  std::string sdk;
  size_t width = kDefaultWidth;
  bool json = false;
};

struct ImageOptions {
  std::string input;
  std::string output;
  std::string yuv;               ///< "FORMAT:WIDTHxHEIGHT" of a raw picture; empty for a file
  std::vector<ImageStep> steps;  ///< in the order in which they are applied
};

struct ConvertOptions {
  std::string input;
  std::string output;
  std::string kind;    ///< what the files hold; empty to tell it by their names
  std::string config;  ///< rules file for a network of the earlier generation; empty for none
  std::string isa;     ///< kernels of layers without a rule: "portable", "sse", or empty
};

struct KernelsOptions {
  std::vector<std::string> filters;  ///< parts of names, or patterns with * ? [
  bool json = false;
};

void run_info(const InfoOptions& options);
void run_network(const RunOptions& options);
void run_check(const CheckOptions& options);
void run_image(const ImageOptions& options);
void run_convert(const ConvertOptions& options);
void run_kernels(const KernelsOptions& options);

/// Writes to standard output.
/// @throws ToolError (kRunError) if it can't be written
void print(const std::string& text);

}  // namespace qrt_tool
