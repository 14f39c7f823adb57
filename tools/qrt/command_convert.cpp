#include <filesystem>

#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/half_report.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/model_file.h"
#include "tools/qrt/model_parts.h"
#include "tools/qrt/network.h"
#include "tools/qrt/old_network.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

namespace fs = std::filesystem;

using marlo::runtime::HalfConversion;
using marlo::runtime::Serializable;

namespace {

// What IN holds: as its name says, else as --kind does, else as its members do. A model is told by
// its members although --kind asks for a part of it.
ObjectKind kind_of_input(const ConvertOptions& options, const FileFormat& from) {
  if (from.kind) return *from.kind;
  if (!from.is_json) return options.kind.empty() ? ObjectKind::model : kind_for(options.kind);
  if (options.kind.empty()) return kind_of_json(options.input);
  const ObjectKind kind = kind_for(options.kind);
  return kind_of_json(options.input) == ObjectKind::model ? ObjectKind::model : kind;
}

// What OUT is to hold: as its name says, else as --kind does, else what IN holds.
ObjectKind kind_of_output(const ConvertOptions& options, const FileFormat& to, ObjectKind from) {
  std::optional<ObjectKind> kind;
  if (!options.kind.empty()) kind = kind_for(options.kind);
  if (to.kind && kind && *kind != *to.kind) {
    throw ToolError(kUsageError, printable(options.output) + ": its name says that it is " +
                                     phrase_for(*to.kind) + "; expected " + phrase_for(*kind));
  }
  if (to.kind) return *to.kind;
  if (!options.with.empty()) return ObjectKind::model;
  return kind.value_or(from);
}

std::shared_ptr<Serializable> read_any(const std::string& path, const std::string& kind_word,
                                       ObjectKind& kind) {
  const FileFormat format = format_of_name(path, kUsageError);
  ConvertOptions options;
  options.input = path;
  options.kind = kind_word;
  kind = kind_of_input(options, format);
  auto object = make_object(kind);
  read_object(*object, path, format.is_json);
  return object;
}

std::string size_text(const std::string& path) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  return error ? "unknown size" : counted(size, "byte");
}

void refuse_same_file(const ConvertOptions& options) {
  if (options.output == kStandardStream) return;
  if (options.input == options.output || is_same_file(options.input, options.output)) {
    throw ToolError(kUsageError, printable(options.output) +
                                     ": IN and OUT are the same file; expected another OUT");
  }
}

void say_written(const std::string& path, ObjectKind kind) {
  say("wrote " + printable(path) + " (" + word_for(kind) + ", " + size_text(path) + ")");
}

// Rounds the weights if that is wanted, and says what halves cost them.
void prepare_halves(Serializable& object, bool to_halves, const ConvertOptions& options) {
  if (!options.round.empty() && options.round != "nearest" && options.round != "truncate") {
    throw ToolError(kUsageError,
                    "--round " + printable(options.round) + ": expected nearest or truncate");
  }
  const bool to_nearest = options.round == "nearest";
  if (!to_halves && !to_nearest) return;
  const HalfReport report =
      to_nearest ? round_to_halves(object) : measure_halves(object, HalfConversion::truncate);
  for (const std::string& weight : report.lost) {
    say(weight, options.force ? Level::warning : Level::error);
  }
  if (!report.lost.empty() && !options.force) {
    throw ToolError(kRunError, printable(options.output) +
                                   ": the binary form would lose weights of " +
                                   counted(report.lost.size(), "blob") +
                                   "; --force writes it all the same, .json keeps them");
  }
  if (report.loss.max_relative_error == 0) return;
  say(report.summary() +
      (to_nearest ? " (rounded to nearest)" : " (truncated; --round nearest loses less)"));
}

FileFormat format_of_output(const ConvertOptions& options) {
  if (options.output == kStandardStream) return {true, std::nullopt};
  if (is_stream(options.output)) {
    throw ToolError(kRunError,
                    printable(options.output) +
                        ": can't be written: it is not a regular file; expected a file's "
                        "name, or - for JSON on standard output");
  }
  return format_of_name(options.output, kUsageError);
}

void write_converted(Serializable& object, ObjectKind kind, const ConvertOptions& options) {
  const bool to_stream = options.output == kStandardStream;
  const bool is_json = format_of_output(options).is_json;
  prepare_halves(object, !is_json, options);
  if (to_stream) return print(json_text_of(object));
  write_object(object, kind, options.output, is_json);
  say_written(options.output, kind);
}

bool is_old_network(const ConvertOptions& options) {
  return fs::path(options.input).extension() == ".qrm" || !options.config.empty() ||
         !options.isa.empty();
}

// The command line goes before the rules.
OldKernelSet chosen_set(const ConvertOptions& options, const KernelRules& rules) {
  OldKernelSet set = rules.set();
  if (!options.isa.empty() && !kernel_set_for(options.isa, set)) {
    throw ToolError(kUsageError, "--isa " + printable(options.isa) + ": expected portable or sse");
  }
  return set;
}

// A model of one network that has the name of its file.
std::shared_ptr<marlo::runtime::QRTModel> model_of(
    const std::string& id, const std::shared_ptr<marlo::runtime::QRModelInfo>& network,
    const std::shared_ptr<marlo::runtime::QRModelCfg>& config) {
  auto model = std::make_shared<marlo::runtime::QRTModel>();
  model->sdk_type = "qrt";
  model->sdk_major_ver = 1;
  model->core_major_ver = 1;
  model->model_arr->squential_ids = {id};
  model->model_arr->infos[id] = network;
  auto configs = std::make_shared<marlo::runtime::QRModelMultiBackendCfgs>();
  configs->cpu_sse = config;
  model->config_arr->squential_ids = {id};
  model->config_arr->cfgs[id] = configs;
  return model;
}

void convert_old_network(const ConvertOptions& options) {
  const FileFormat to = format_of_output(options);
  const bool is_model = to.kind.value_or(ObjectKind::model) == ObjectKind::model &&
                        (options.kind.empty() || kind_for(options.kind) == ObjectKind::model);
  if (!is_model) {
    throw ToolError(kUsageError, printable(options.output) +
                                     ": a network of the earlier generation becomes a model; "
                                     "expected OUT to end in .qrtmodel or .json");
  }
  refuse_same_file(options);
  const KernelRules rules = options.config.empty() ? KernelRules() : KernelRules(options.config);
  const OldKernelSet set = chosen_set(options, rules);
  const auto network = read_old_network(options.input);
  Library library;
  const auto config = configure_old_network(*network, options.input, rules, set, library);
  const std::string id = fs::path(options.input).stem().string();
  const auto model = model_of(id, network, config);
  load_network(library, *model, options.input, id);
  write_converted(*model, ObjectKind::model, options);
}

}  // namespace

void run_convert(const ConvertOptions& options) {
  if (is_old_network(options)) return convert_old_network(options);
  const FileFormat to = format_of_output(options);
  refuse_same_file(options);
  ObjectKind from = ObjectKind::model;
  // With --with, --kind is about OUT, which is a model.
  auto object = read_any(options.input, options.with.empty() ? options.kind : "", from);
  const ObjectKind kind = kind_of_output(options, to, from);
  if (!options.with.empty()) {
    ObjectKind config = ObjectKind::config;
    const auto configs = read_any(options.with, "", config);
    const std::string id =
        options.network.empty() ? fs::path(options.input).stem().string() : options.network;
    object = joined_model(object, configs, id, options.sdk);
    from = ObjectKind::model;
  }
  object = part_of(object, from, kind, options.input, options.network);
  write_converted(*object, kind, options);
}

}  // namespace qrt_tool
