#include "tools/qrt/run_output.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/npy.h"
#include "tools/qrt/preview.h"
#include "tools/qrt/profile_output.h"
#include "tools/qrt/scores.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

constexpr size_t kBarWidth = 24;
constexpr size_t kMostPrinted = 1000;
constexpr size_t kMostLabelWidth = 20;
// Lines of numbers are read by people, even where names must not be cut.
constexpr size_t kMostLineWidth = 100;

std::string score_lines_text(const Score& score, size_t rank, size_t label_width, bool softmax,
                             bool utf8) {
  const std::string label = shortened(printable(score.label), label_width);
  std::string text = (rank < 10 ? " " : "") + std::to_string(rank) + ". " + label +
                     std::string(label_width - width_of(label), ' ') + "  ";
  if (!softmax) return text + float_text(score.value);
  const std::string percent = decimal(100.0 * score.value, 2);
  text += std::string(percent.size() < 6 ? 6 - percent.size() : 0, ' ') + percent + " %  " +
          bar(score.value, kBarWidth, utf8);
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::vector<std::string> score_lines(const std::vector<Score>& scores, bool softmax) {
  size_t label_width = 1;
  for (const Score& score : scores) {
    label_width = std::max(label_width, width_of(printable(score.label)));
  }
  label_width = std::min(label_width, kMostLabelWidth);
  std::vector<std::string> lines;
  lines.reserve(scores.size());
  for (const Score& score : scores) {
    lines.push_back(
        score_lines_text(score, lines.size() + 1, label_width, softmax, locale_is_utf8()));
  }
  return lines;
}

std::string values_text(const OutputData& output, size_t width) {
  const std::vector<double> values = output.values();
  std::string text = printable(output.id);
  if (output.position != 0) text += " output " + std::to_string(output.position);
  text += "  " + shape_text(output.tensor->shape) + '\n';
  std::string line;
  width = std::min(width, kMostLineWidth);
  for (size_t i = 0; i < std::min(values.size(), kMostPrinted); ++i) {
    const std::string value = float_text(values[i]);
    if (!line.empty() && line.size() + value.size() + 1 > width) {
      text += line + '\n';
      line.clear();
    }
    line += (line.empty() ? "" : " ") + value;
  }
  if (!line.empty()) text += line + '\n';
  if (values.size() > kMostPrinted) {
    text += "... and " + std::to_string(values.size() - kMostPrinted) +
            " more; --output writes them all to a file\n";
  }
  return text;
}

/// Names of .npy files after layers.
class ArrayNames {
 public:
  explicit ArrayNames(std::string stem) : stem_(std::move(stem)) {}

  std::string next(std::string id, uint32_t layer, uint32_t position) {
    // An id comes out of a file: it must not lead to another folder.
    std::replace_if(
        id.begin(), id.end(),
        [](unsigned char c) { return !std::isalnum(c) && c != '-' && c != '_' && c != '.'; }, '_');
    std::string name = stem_ + id;
    if (position != 0) name += "-" + std::to_string(position);
    if (!taken_.insert(name).second) name += "-layer" + std::to_string(layer);
    return name + ".npy";
  }

 private:
  std::string stem_;
  std::set<std::string> taken_;
};

}  // namespace

std::vector<Score> best_scores(const PassResult& result, const RunOptions& options) {
  const std::string model = shown(options.model);
  if (result.outputs.size() != 1) {
    throw ToolError(kRunError, model + ": --top expects one output, found " +
                                   std::to_string(result.outputs.size()));
  }
  const OutputData& output = result.outputs[0];
  const std::vector<uint32_t>& sizes = output.tensor->shape.dims;
  const auto axes = std::count_if(sizes.begin(), sizes.end(), [](uint32_t n) { return n != 1; });
  if (axes > 1) {
    throw ToolError(kRunError, model + ": --top expects one value per label, but output " +
                                   in_quotes(output.id) + " is " +
                                   shape_text(output.tensor->shape));
  }
  const std::vector<double> values = output.values();
  std::vector<std::string> labels;
  if (!options.labels.empty()) {
    const std::string text = read_file(options.labels, kInputError);
    try {
      labels = parse_labels(text);
    } catch (const ToolError& error) {
      throw ToolError(kInputError, printable(options.labels) + ": " + error.what());
    }
    if (labels.size() != values.size()) {
      throw ToolError(kInputError, printable(options.labels) + ": expected " +
                                       counted(values.size(), "label") + ", one per value of " +
                                       in_quotes(output.id) + "; found " +
                                       std::to_string(labels.size()));
    }
  }
  const std::vector<double> shown = options.no_softmax ? values : softmax(values);
  std::vector<Score> scores;
  for (const size_t index : best_indices(shown, options.top)) {
    scores.push_back({index, labels.empty() ? std::to_string(index) : labels[index], shown[index]});
  }
  return scores;
}

std::string run_text(const LoadedNetwork& network, const std::vector<InputData>& inputs,
                     const PassResult& result, const std::vector<Score>& scores,
                     const RunOptions& options) {
  std::vector<std::string> lines = score_lines(scores, !options.no_softmax);
  if (options.repeat != 0) {
    if (!lines.empty()) lines.emplace_back();
    lines.push_back(
        "one pass: " + decimal(result.pass.wall_ms, 3) + " ms" +
        (options.repeat > 1 ? " (median of " + std::to_string(options.repeat) + ")" : ""));
  }
  std::string values;
  if (scores.empty() && options.output.empty()) {
    for (const OutputData& output : result.outputs)
      values += values_text(output, table_width(options.width));
  }
  std::vector<std::string> pictures;
  if (options.preview) {
    for (const InputData& input : inputs) {
      if (!input.picture) continue;
      const auto rows = render_preview(*input.picture, options.preview_width, locale_is_utf8());
      pictures.insert(pictures.end(), rows.begin(), rows.end());
    }
  }
  std::string text;
  if (!pictures.empty() || !lines.empty()) {
    text += pictures.empty() ? joined(lines, "\n") + '\n' : side_by_side(pictures, lines);
  }
  text += values;
  if (result.profile) {
    text += (text.empty() ? "" : "\n") +
            profile_text(network.report, *result.profile,
                         parse_profile_view(options.profile_by, options.profile_sort),
                         table_width(options.width));
  }
  return text;
}

std::string only_output(const PassResult& result) {
  if (result.outputs.size() != 1) {
    throw ToolError(
        kRunError, "--output - expects one output, found " + std::to_string(result.outputs.size()));
  }
  return npy_bytes(*result.outputs[0].tensor);
}

size_t write_records(const PassResult& result, const NetworkReport& report,
                     const std::string& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    throw ToolError(kRunError, printable(directory) + ": can't be made: " + error.message());
  }
  ArrayNames names(directory + "/");
  for (const LayerRecord& record : result.records) {
    write_file(names.next(report.layers[record.layer].id, record.layer, record.position),
               npy_bytes(record.shape, record.bytes.data()));
  }
  return result.records.size();
}

std::vector<std::string> write_outputs(const PassResult& result, const std::string& path) {
  if (result.outputs.size() == 1) {
    write_file(path, npy_bytes(*result.outputs[0].tensor));
    return {path};
  }
  ArrayNames names(path.substr(0, path.size() - 4) + "-");
  std::vector<std::string> written;
  for (const OutputData& output : result.outputs) {
    written.push_back(names.next(output.id, output.layer, output.position));
    write_file(written.back(), npy_bytes(*output.tensor));
  }
  return written;
}

}  // namespace qrt_tool
