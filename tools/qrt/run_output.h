#pragma once

#include <string>
#include <vector>

#include "tools/qrt/commands.h"
#include "tools/qrt/inputs.h"
#include "tools/qrt/passes.h"

// How `qrt run` shows what came out.

namespace qrt_tool {

/// One of the best values of an output.
struct Score {
  size_t index;
  std::string label;  ///< the index where there are no labels
  double value;       ///< a share of 1, or the output itself without softmax
};

/// The best values of a network's only output.
/// @throws ToolError: kRunError for an output that has no one value per label, kInputError for
///   another number of labels
std::vector<Score> best_scores(const PassResult& result, const RunOptions& options);

/// Everything as text for people.
std::string run_text(const LoadedNetwork& network, const std::vector<InputData>& inputs,
                     const PassResult& result, const std::vector<Score>& scores,
                     const RunOptions& options);

/// Everything as JSON.
std::string run_json(const LoadedNetwork& network, const std::vector<InputData>& inputs,
                     const PassResult& result, const std::vector<Score>& scores,
                     const RunOptions& options);

/// The only output as the bytes of an .npy file.
/// @throws ToolError (kRunError) where there are several
std::string only_output(const PassResult& result);

/// Writes every layer's outputs as DIRECTORY/LAYER.npy, blocks of channels as planes. Returns the
/// number of files.
size_t write_records(const PassResult& result, const NetworkReport& report,
                     const std::string& directory);

/// Writes the outputs as .npy files: FILE, or FILE with the layer's id before the suffix where
/// there are several. Returns their names.
std::vector<std::string> write_outputs(const PassResult& result, const std::string& path);

}  // namespace qrt_tool
