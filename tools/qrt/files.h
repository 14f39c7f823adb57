#pragma once

#include <functional>
#include <string>

#include "tools/qrt/errors.h"

namespace qrt_tool {

/// The name that stands for standard input, or for standard output.
constexpr char kStandardStream[] = "-";

/// What messages call a file: its name, made printable, or "standard input" for "-".
std::string shown(const std::string& path);

/// A path at which a file can be opened as often as one likes: `path` itself, or that of a copy in
/// memory for "-" and for pipes, which can be read once only.
/// @throws ToolError as `read_file`
std::string rereadable(const std::string& path, ExitCode exit_code);

/// Whether a path is "-" or leads to a pipe or device, whose name says nothing of its contents.
bool is_stream(const std::string& path);

/// The bytes of a file, or of standard input for "-".
/// @throws ToolError with `exit_code`, naming the file, if it can't be read or is a folder, too
///   large or empty
std::string read_file(const std::string& path, ExitCode exit_code);

/// Opens a file and reads its first byte, for functions that don't say what keeps them from it.
/// @throws ToolError as `read_file`, which a large file doesn't offend here
void check_readable(const std::string& path, ExitCode exit_code);

/// Whether both paths lead to one existing file.
bool is_same_file(const std::string& a, const std::string& b);

/// Makes a file whole or not at all: `write` fills a new file, which then takes its name. An
/// existing file's mode and owner stay, as do symbolic links to it; one with several hard links is
/// overwritten, so that they all lead to the new contents.
/// @param write receives a path at which to write; what it throws goes on, and nothing is left
/// @throws ToolError (kRunError), naming the file, if it can't be made
void replace_file(const std::string& path, const std::function<void(const std::string&)>& write);

/// Fails as `replace_file` would, before long work is done for a file; leaves nothing behind.
/// @throws ToolError (kRunError), naming the file, if it can't be made
void expect_replaceable(const std::string& path);

/// Writes `bytes` as by `replace_file`.
void write_file(const std::string& path, const std::string& bytes);

}  // namespace qrt_tool
