#include <filesystem>

#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/model_file.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
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
  const auto size = std::filesystem::file_size(path, error);
  return error ? "unknown size" : counted(size, "byte");
}

}  // namespace

void run_convert(const ConvertOptions& options) {
  const FileFormat from = format_of_name(options.input, kUsageError);
  const FileFormat to = format_of_name(options.output, kUsageError);
  if (options.input == options.output || is_same_file(options.input, options.output)) {
    throw ToolError(kUsageError, printable(options.output) +
                                     ": IN and OUT are the same file; expected another OUT");
  }
  const ObjectKind kind = common_kind(options, from, to);
  const auto object = make_object(kind);
  read_object(*object, options.input, from.is_json);
  write_object(*object, kind, options.output, to.is_json);
  say("wrote " + printable(options.output) + " (" + word_for(kind) + ", " +
      size_text(options.output) + ")");
}

}  // namespace qrt_tool
