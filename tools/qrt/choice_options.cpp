#include "tools/qrt/choice_options.h"

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdlib>

#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

std::atomic<bool> is_interrupted{false};

void note_interrupt(int signal) {
  is_interrupted = true;
  std::signal(signal, SIG_DFL);
}

}  // namespace

Interrupts::Interrupts() : before_(std::signal(SIGINT, note_interrupt)) {}

Interrupts::~Interrupts() { std::signal(SIGINT, before_); }

bool Interrupts::came() { return is_interrupted; }

marlo::toolkit::KernelSet kernel_set_option(const std::string& word) {
  if (word.empty()) return marlo::toolkit::processor_kernels();
  const auto set = marlo::toolkit::kernel_set_of(word);
  if (!set) {
    throw ToolError(kUsageError, "--isa " + printable(word) +
                                     ": expected portable, sse, avx, fma, avx2 or avx512");
  }
  if (*set > marlo::toolkit::processor_kernels()) {
    throw ToolError(kUsageError, "--isa " + word + ": this processor can't run such kernels, so " +
                                     "they can't be measured here");
  }
  return *set;
}

std::string default_wisdom() {
  const auto text_of = [](const char* variable) -> std::string {
    const char* const text = std::getenv(variable);  // NOLINT: before any thread
    return text == nullptr ? "" : text;
  };
  const std::string cache = text_of("XDG_CACHE_HOME");
  if (!cache.empty()) return cache + "/qrt/wisdom.json";
  const std::string home = text_of("HOME");
  return home.empty() ? "" : home + "/.cache/qrt/wisdom.json";
}

std::map<std::string, marlo::runtime::TensorShape> shapes_by_id(
    LoadedNetwork& network, const std::string& path, const std::vector<std::string>& inputs,
    bool keep_batch, const Library& library) {
  NetworkReport& report = network.report;
  const InputShapes shapes =
      inputs.empty() ? known_input_shapes(report) : given_input_shapes(report, inputs, keep_batch);
  if (shapes.size() != report.inputs().size()) {
    throw ToolError(
        kUsageError,
        shown(path) + ": the file doesn't say how large its inputs are; give " + "--input");
  }
  const std::string problem = infer_shapes(report, shapes, library.context);
  if (!problem.empty()) {
    throw ToolError(are_model_shapes(report, shapes) ? kModelError : kInputError,
                    shown(path) + ": the network can't run on these sizes: " + problem);
  }
  std::map<std::string, marlo::runtime::TensorShape> by_id;
  for (const auto& [layer, shape] : shapes) by_id[report.layers[layer].id] = shape;
  return by_id;
}

std::vector<std::map<std::string, marlo::runtime::TensorShape>> shapes_of_sizes(
    LoadedNetwork& network, const std::string& path, const std::vector<std::string>& inputs,
    bool keep_batch, const Library& library) {
  const size_t count = network.report.inputs().size();
  std::vector<std::map<std::string, marlo::runtime::TensorShape>> sizes;
  if (inputs.size() <= count || count == 0 || inputs.size() % count != 0) {
    sizes.push_back(shapes_by_id(network, path, inputs, keep_batch, library));
    return sizes;
  }
  for (auto first = inputs.begin(); first != inputs.end();) {
    const auto end = first + static_cast<std::ptrdiff_t>(count);
    sizes.push_back(shapes_by_id(network, path, {first, end}, keep_batch, library));
    first = end;
  }
  return sizes;
}

}  // namespace qrt_tool
