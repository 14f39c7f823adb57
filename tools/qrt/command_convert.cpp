#include <filesystem>

#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/model_file.h"
#include "tools/qrt/network.h"
#include "tools/qrt/old_network.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

namespace fs = std::filesystem;

namespace {

// The kind that names and --kind agree on; a .json file is looked into where neither says.
ObjectKind common_kind(const ConvertOptions& options, const FileFormat& from,
                       const FileFormat& to) {
  std::optional<ObjectKind> kind;
  if (!options.kind.empty()) kind = kind_for(options.kind);
  const auto agree = [&](const std::string& path, const FileFormat& format) {
    if (!format.kind) return;
    if (kind && *kind != *format.kind) {
      throw ToolError(kUsageError, printable(path) + ": its name says that it is a " +
                                       word_for(*format.kind) + "; expected a " + word_for(*kind));
    }
    kind = format.kind;
  };
  agree(options.input, from);
  agree(options.output, to);
  return kind ? *kind : kind_of_json(options.input);
}

std::string size_text(const std::string& path) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  return error ? "unknown size" : counted(size, "byte");
}

void refuse_same_file(const ConvertOptions& options) {
  if (options.input == options.output || is_same_file(options.input, options.output)) {
    throw ToolError(kUsageError, printable(options.output) +
                                     ": IN and OUT are the same file; expected another OUT");
  }
}

void say_written(const std::string& path, ObjectKind kind) {
  say("wrote " + printable(path) + " (" + word_for(kind) + ", " + size_text(path) + ")");
}

bool is_old_network(const ConvertOptions& options) {
  return fs::path(options.input).extension() == ".qrm" || !options.config.empty() ||
         !options.isa.empty();
}

// The command line goes before the rules.
KernelSet chosen_set(const ConvertOptions& options, const KernelRules& rules) {
  KernelSet set = rules.set();
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
  const FileFormat to = format_of_name(options.output, kUsageError);
  const bool is_model = to.kind.value_or(ObjectKind::model) == ObjectKind::model &&
                        (options.kind.empty() || kind_for(options.kind) == ObjectKind::model);
  if (!is_model) {
    throw ToolError(kUsageError, printable(options.output) +
                                     ": a network of the earlier generation becomes a model; "
                                     "expected OUT to end in .qrtmodel or .json");
  }
  refuse_same_file(options);
  const KernelRules rules = options.config.empty() ? KernelRules() : KernelRules(options.config);
  const KernelSet set = chosen_set(options, rules);
  const auto network = read_old_network(options.input);
  Library library;
  const auto config = configure_old_network(*network, options.input, rules, set, library);
  const std::string id = fs::path(options.input).stem().string();
  const auto model = model_of(id, network, config);
  load_network(library, *model, options.input, id);
  write_object(*model, ObjectKind::model, options.output, to.is_json);
  say_written(options.output, ObjectKind::model);
}

}  // namespace

void run_convert(const ConvertOptions& options) {
  if (is_old_network(options)) return convert_old_network(options);
  const FileFormat from = format_of_name(options.input, kUsageError);
  const FileFormat to = format_of_name(options.output, kUsageError);
  refuse_same_file(options);
  const ObjectKind kind = common_kind(options, from, to);
  const auto object = make_object(kind);
  read_object(*object, options.input, from.is_json);
  write_object(*object, kind, options.output, to.is_json);
  say_written(options.output, kind);
}

}  // namespace qrt_tool
