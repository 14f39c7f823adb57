#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "qrt_core/runtime/model/model_info.h"

// A model in memory, in either of its forms.

namespace marlo::utility {

/// The bytes of a file.
/// @throws Error for a file that can't be opened or read whole
std::string read_bytes(const std::string& path);

/// Whether bytes are the JSON form: they begin, after white space, with a brace. The binary form
/// begins with a number below 2^15.
bool is_json(const char* bytes, size_t size);

/// Reads a model from either form into an empty tree. What was read up to a fault stays in it.
/// @throws Error for bytes that aren't a model
void read_model(runtime::QRTModel& model, const char* bytes, size_t size);

/// Reads a file's model, the binary form without a copy of the file.
/// @return the file's size in bytes
/// @throws Error as `read_bytes` and `read_model` do
size_t read_model_file(runtime::QRTModel& model, const std::string& path);

}  // namespace marlo::utility
