#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/half_report.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/model_file.h"
#include "tools/qrt/network.h"
#include "tools/qrt/source.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"
#include "tools/qrt/verification_output.h"

namespace qrt_tool {

using marlo::toolkit::ImportedModel;
using marlo::toolkit::ImportedTensor;
using marlo::toolkit::ImportReport;

namespace {

void list_operators(const ImportCommandOptions& options) {
  const auto operators = marlo::toolkit::supported_operators();
  if (options.json) {
    JsonText json;
    json.begin_object();
    json.begin_array("operators");
    for (const auto& row : operators) {
      json.begin_object();
      json.text("name", row.name);
      json.integer("since", static_cast<uint64_t>(row.since));
      json.boolean("layers", row.is_lowered);
      json.text("limits", row.limits);
      json.end_object();
    }
    json.end_array();
    json.end_object();
    return print(json.finish());
  }
  Table table({{"operator"}, {"from opset", true}, {"becomes"}, {"limits", false, true}});
  for (const auto& row : operators) {
    table.add(
        {row.name, std::to_string(row.since), row.is_lowered ? "layers" : "constants", row.limits});
  }
  print(table.text(table_width(options.width)));
}

void check_options(const ImportCommandOptions& options) {
  const auto refuse = [](const std::string& text) { throw ToolError(kUsageError, text); };
  if (options.input.empty()) refuse("expected IN, the .onnx file, and OUT, the model's");
  if (options.output.empty()) refuse("expected OUT, a name that ends in .qrtmodel or .json");
  const FileFormat format = format_of_name(options.output, kUsageError);
  if (options.output == kStandardStream ||
      format.kind.value_or(ObjectKind::model) != ObjectKind::model) {
    refuse(printable(options.output) + ": expected a name that ends in .qrtmodel or .json");
  }
  if (options.input == options.output || is_same_file(options.input, options.output)) {
    refuse(printable(options.output) + ": IN and OUT are the same file; expected another OUT");
  }
}

marlo::toolkit::KernelSet kernel_set(const std::string& word) {
  const auto set = marlo::toolkit::kernel_set_of(word);
  if (set) return *set;
  throw ToolError(kUsageError, "--isa " + printable(word) +
                                   ": expected portable, sse, avx, fma, avx2 or avx512");
}

// Rounds the weights for the binary form; what doesn't fit it is named.
std::string rounded_weights(ImportedModel& imported, const ImportCommandOptions& options) {
  const HalfReport report = round_to_halves(imported.model);
  for (const std::string& weight : report.infinite) {
    say(weight, options.force ? Level::warning : Level::error);
  }
  if (!report.infinite.empty() && !options.force) {
    throw ToolError(kImportError, printable(options.output) + ": " +
                                      counted(report.infinite.size(), "blob") +
                                      " of weights beyond half precision, so nothing was written; "
                                      ".json keeps them, --force lets them become infinite");
  }
  std::string text = report.summary();
  if (report.loss.zero != 0) text += ", " + counted(report.loss.zero, "number") + " become 0";
  return text + " (rounded to nearest)";
}

std::string shape_of(const ImportedTensor& tensor) {
  std::string text = tensor.has_batch ? "1" : "";
  for (const uint32_t size : tensor.shape) {
    text += (text.empty() ? "" : "x") + (size == 0 ? std::string("?") : std::to_string(size));
  }
  return text;
}

void add_tensors(JsonText& json, const char* key, const std::vector<ImportedTensor>& tensors) {
  json.begin_array(key);
  for (const ImportedTensor& tensor : tensors) {
    json.begin_object();
    json.text("name", tensor.name);
    json.sizes("sizes", tensor.shape);
    json.boolean("batch", tensor.has_batch);
    json.end_object();
  }
  json.end_array();
}

size_t layers_of(const ImportedModel& imported) {
  return imported.model.model_arr->infos.at(imported.report.network)->squential_ids.size();
}

std::string as_json(const ImportedModel& imported, const ImportCommandOptions& options,
                    const std::string& halves,
                    const std::optional<marlo::toolkit::Verification>& verification) {
  const ImportReport& report = imported.report;
  JsonText json;
  json.begin_object();
  json.text("source", options.input);
  json.text("file", options.output);
  json.text("network", report.network);
  json.text("producer", report.producer);
  json.integer("opset", static_cast<uint64_t>(report.opset));
  json.integer("layers", layers_of(imported));
  json.integer("multiply_adds", report.multiply_adds);
  json.text("kernels", marlo::toolkit::word_of(report.kernels));
  json.text("weights", halves);
  add_tensors(json, "inputs", report.inputs);
  add_tensors(json, "outputs", report.outputs);
  json.begin_array("notes");
  for (const std::string& note : report.notes) json.text(note);
  json.end_array();
  if (verification) add_verification(json, *verification);
  json.end_object();
  return json.finish();
}

std::string as_text(const ImportedModel& imported, const ImportCommandOptions& options,
                    const std::string& halves) {
  const ImportReport& report = imported.report;
  std::string text = "wrote " + printable(options.output) + ": " +
                     counted(layers_of(imported), "layer") + "; " + halves + '\n';
  text += std::string("kernels   ") + marlo::toolkit::word_of(report.kernels) + '\n';
  text += "from      " + printable(options.input) + ", opset " + std::to_string(report.opset) +
          (report.producer.empty() ? "" : ", " + printable(report.producer)) + '\n';
  for (const ImportedTensor& input : report.inputs) {
    text += "input     " + in_quotes(input.name) + " " + shape_of(input) + '\n';
  }
  for (const ImportedTensor& output : report.outputs) {
    text += "output    " + in_quotes(output.name) + " " + shape_of(output) + '\n';
  }
  if (report.multiply_adds != 0)
    text += "a pass    " + counted(report.multiply_adds, "multiply-add") + '\n';
  for (const std::string& note : report.notes) text += "note      " + printable(note) + '\n';
  return text;
}

}  // namespace

void run_import(const ImportCommandOptions& options) {
  if (options.operators) return list_operators(options);
  check_options(options);
  SourceInputs inputs = read_source_options(options.source);
  inputs.options.network = options.name;
  if (!options.isa.empty()) inputs.options.kernels = kernel_set(options.isa);
  inputs.options.preparation = preparation_of(options.pictures);
  ImportedModel imported;
  std::optional<marlo::toolkit::Verification> verification;
  if (options.verify || !options.test_data.empty()) {
    marlo::toolkit::VerifyOptions verify;
    verify.inputs = std::move(inputs.tensors);
    verify.test_data = options.test_data;
    auto verified = import_and_verify_source(options.input, inputs.options, verify);
    imported = std::move(verified.imported);
    verification = std::move(verified.verification);
  } else {
    imported = import_source(options.input, inputs.options);
  }
  const bool is_json = format_of_name(options.output, kUsageError).is_json;
  const std::string halves = is_json ? "weights as they are" : rounded_weights(imported, options);
  write_object(imported.model, ObjectKind::model, options.output, is_json);
  if (options.json) {
    print(as_json(imported, options, halves, verification));
  } else {
    print(as_text(imported, options, halves));
    if (verification) print(verification_text(*verification, table_width(options.width)));
  }
  if (verification) require_agreement(*verification);
}

}  // namespace qrt_tool
