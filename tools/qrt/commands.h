#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/qrt/image_steps.h"
#include "tools/qrt/inputs.h"

// The commands. Each prints its data on standard output and throws ToolError on failure.

namespace qrt_tool {

struct InfoOptions {
  std::string model;                ///< "-" is standard input
  std::string network;              ///< id of the only one to show; empty for all
  std::vector<std::string> inputs;  ///< sizes, one per input layer
  std::string sdk;                  ///< "NAME:MAJOR.MINOR"; empty for that of the file
  std::optional<size_t> width;      ///< of tables, as `table_width` takes it
  bool keep_batch = false;          ///< a leading 1 of 4 sizes stays
  bool json = false;
};

struct RunOptions {
  std::string model;
  std::string network;
  std::vector<std::string> inputs;  ///< files, "FILE" or "LAYER=FILE"
  std::string output;               ///< .npy file, or "-"; empty to print
  std::string dump;                 ///< folder for every layer's outputs; empty for none
  std::string trace;                ///< file for a trace of the last pass; empty for none
  std::string labels;               ///< file with one label a line
  std::string sdk;
  uint64_t top = 0;     ///< so many best values; 0 for all values as they are
  uint64_t repeat = 0;  ///< timed passes; 0 for one pass without its time
  size_t preview_width = 28;
  std::optional<size_t> width;
  bool keep_batch = false;
  bool keep_state = false;  ///< recurrent layers begin a pass where the last one ended
  bool no_softmax = false;
  bool profile = false;
  std::string profile_by;    ///< as `parse_profile_view` reads it
  std::string profile_sort;  ///< the same
  bool preview = false;
  PictureOptions pictures;
  bool json = false;
};

struct CompareOptions {
  std::string first;
  std::string second;
  std::vector<std::string> inputs;  ///< files, "FILE" or "LAYER=FILE", for both
  std::string network;
  std::optional<double> bound;  ///< of the largest difference over the largest value of a layer
  std::optional<size_t> width;
  bool keep_batch = false;
  PictureOptions pictures;
  bool json = false;
};

struct CheckOptions {
  std::string model;
  std::string network;
  std::vector<std::string> inputs;  ///< sizes, one per input layer
  std::string sdk;
  std::optional<size_t> width;
  bool keep_batch = false;
  bool json = false;
};

struct BenchCommandOptions {
  std::string model;
  std::vector<std::string> against;  ///< models that are measured beside it
  std::vector<std::string> inputs;   ///< sizes, "SIZES" or "LAYER=SIZES", for all models
  std::string network;
  unsigned threads = 1;
  std::optional<int> cpu;         ///< the first thread's; empty to leave it to the system
  std::optional<double> seconds;  ///< of samples for each model; empty until they are precise
  std::optional<size_t> width;
  bool keep_batch = false;
  bool keep_state = false;  ///< recurrent layers begin a pass where the last one ended
  bool json = false;
};

struct TuneCommandOptions {
  std::string input;
  std::string output;
  std::vector<std::string>
      inputs;           ///< sizes, one per input layer; so many again for each further size
  std::string weights;  ///< of the sizes, between commas; empty for 1 each
  std::string network;
  std::string isa;                  ///< as `kernel_set_of` reads it; empty for the processor's
  std::string numerics;             ///< "same", "bounded", "fast", or empty
  std::optional<double> tolerance;  ///< of results, over the largest one
  double budget = 120;              ///< seconds
  std::string wisdom;               ///< file of earlier measurements; empty for the user's own
  std::string report;               ///< file for all that was found, as JSON; empty for none
  std::optional<size_t> width;
  bool no_wisdom = false;
  bool keep_batch = false;
  bool json = false;
};

struct ExplainCommandOptions {
  std::string model;
  std::vector<std::string> inputs;  ///< sizes, one per input layer
  std::string network;
  std::string layer;   ///< id of the only one to show, with its candidates
  std::string html;    ///< file for a page, or "-"; empty for none
  std::string isa;     ///< as `kernel_set_of` reads it; empty for the processor's
  std::string wisdom;  ///< file of earlier measurements; empty for the user's own
  double seconds = 1;  ///< of passes that are timed
  double budget = 60;  ///< seconds for candidates
  bool no_candidates = false;
  bool no_wisdom = false;
  std::optional<size_t> width;
  bool keep_batch = false;
  bool json = false;
};

struct ImageOptions {
  std::string input;
  std::string output;            ///< "-" is standard output
  std::string yuv;               ///< "FORMAT:WIDTHxHEIGHT" of a raw picture; empty for a file
  std::vector<ImageStep> steps;  ///< in the order in which they are applied
};

struct ReadOptions {
  std::string picture;
  std::string model;     ///< that reads lines; empty for the one that is installed with the tool
  std::string draw;      ///< file for the picture with a frame around each line; empty for none
  std::string isa;       ///< as `kernel_set_of` reads it; empty for the processor's
  bool preview = false;  ///< the picture is drawn in characters beside the text
  uint32_t preview_width = 56;
  bool line = false;  ///< the picture is one line, whatever it looks like
  bool json = false;
};

struct ConvertOptions {
  std::string input;
  std::string output;
  std::string kind;     ///< what the files hold; empty to tell it by their names
  std::string config;   ///< rules file for a network of the earlier generation; empty for none
  std::string isa;      ///< kernels of layers without a rule: "portable", "sse", or empty
  std::string with;     ///< configuration that makes a model of a network; empty for none
  std::string network;  ///< id of the network that is taken out of a model, or gets into one
  std::string sdk;      ///< of a model that is put together
  std::string round;    ///< how weights become halves: "truncate", "nearest", or empty
  bool force = false;   ///< weights may become infinite or zero
};

/// What is said of a network in another form before it becomes a model.
struct SourceOptions {
  std::vector<std::string> inputs;   ///< "NAME=SIZES" or "NAME=FILE.npy"; the name may be left out
  std::vector<std::string> sets;     ///< "NAME=NUMBER" or "NAME=FILE.npy"
  std::vector<std::string> outputs;  ///< names of tensors or nodes
};

struct ImportCommandOptions {
  std::string input;
  std::string output;
  SourceOptions source;
  std::string name;         ///< of the network; empty for the file's
  std::string isa;          ///< the kernels to choose from; empty for this processor's
  PictureOptions pictures;  ///< color, mean and scale, which the model is to hold
  std::optional<size_t> width;
  bool verify = false;     ///< the model is run beside its source
  std::string test_data;   ///< folder of inputs and outputs for that; empty for none
  bool operators = false;  ///< only lists what is supported
  bool force = false;      ///< weights may become infinite
  bool json = false;
};

struct SelectOptions {
  std::vector<std::string> models;
  std::string network;  ///< id of the only one that counts; empty for all
  std::string output;   ///< C++ file, or "-"; empty to print
};

struct KernelsOptions {
  std::vector<std::string> filters;  ///< parts of names, or patterns with * ? [
  std::string layer;                 ///< "MODEL:LAYER" that kernels are tried on; empty for none
  std::vector<std::string> inputs;   ///< sizes, one per input layer of that model
  std::string network;               ///< of that model
  std::optional<size_t> width;
  bool is_long = false;  ///< with what the catalogue says
  bool json = false;
};

void run_info(const InfoOptions& options);
void run_network(const RunOptions& options);
void run_compare(const CompareOptions& options);
void run_bench(const BenchCommandOptions& options);
void run_tune(const TuneCommandOptions& options);
void run_explain(const ExplainCommandOptions& options);
void run_check(const CheckOptions& options);
void run_image(const ImageOptions& options);
void run_read(const ReadOptions& options);
void run_convert(const ConvertOptions& options);
void run_import(const ImportCommandOptions& options);
void run_kernels(const KernelsOptions& options);
void run_select(const SelectOptions& options);

/// Writes to standard output.
/// @throws ToolError (kRunError) if it can't be written
void print(const std::string& text);

}  // namespace qrt_tool
