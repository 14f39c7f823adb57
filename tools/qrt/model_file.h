#pragma once

#include <memory>
#include <optional>
#include <string>

#include "qrt_core/qrt_core.h"
#include "tools/qrt/errors.h"

// Files of persisted objects: whole models, and single objects of one.

namespace qrt_tool {

/// Which object a file holds.
enum class ObjectKind {
  model,     ///< QRTModel: networks and configurations
  network,   ///< QRModelInfo: one network
  networks,  ///< QRModelInfoArr: the networks of a model
  config,    ///< QRModelCfg: one network's kernels on one back end
  configs,   ///< QRModelMultiBackendCfgsArr: the configurations of a model
};

/// What a file's name says about its contents.
struct FileFormat {
  bool is_json = false;
  std::optional<ObjectKind> kind;  ///< empty for .json and streams, which may hold any object
};

/// A stream, which has no such name, is told by its first byte: JSON, or else binary.
/// @throws ToolError with `exit_code` for a name without a known suffix
FileFormat format_of_name(const std::string& path, ExitCode exit_code);

/// The word for a kind, as `--kind` takes it.
const char* word_for(ObjectKind kind);

/// The same with its article: "a model", "several networks".
std::string phrase_for(ObjectKind kind);

/// The kind for a word.
/// @throws ToolError (kUsageError)
ObjectKind kind_for(const std::string& word);

/// An empty object.
std::shared_ptr<marlo::runtime::Serializable> make_object(ObjectKind kind);

/// Which object a JSON file holds, told by the names of its members.
/// @throws ToolError (kModelError), naming the file
ObjectKind kind_of_json(const std::string& path);

/// Fills an object from a file.
/// @throws ToolError (kModelError), naming the file and what is wrong in it
void read_object(marlo::runtime::Serializable& object, const std::string& path, bool is_json);

/// The JSON form of an object.
std::string json_text_of(marlo::runtime::Serializable& object);

/// Makes a file of an object, whole or not at all.
/// @throws ToolError (kRunError), naming the file
void write_object(marlo::runtime::Serializable& object, ObjectKind kind, const std::string& path,
                  bool is_json);

}  // namespace qrt_tool
