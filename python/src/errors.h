#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "qrt_core/utility/errors.h"

// From the library's exceptions to those of the package, which are Python classes.

namespace qrt_python {

namespace py = pybind11;

/// Raises a class of `qrt_core.errors`. The interpreter's lock is held.
/// @param name of the class
/// @param fields its attributes by name
[[noreturn]] void raise(const char* name, const std::string& text, const py::dict& fields = {});

/// Raises `TypeError`.
[[noreturn]] void raise_type_error(const std::string& text);

/// Raises the class for what the library has thrown: `LayerError` where a layer is concerned, else
/// the one named.
[[noreturn]] void raise(const char* name, const marlo::utility::Error& failure);

/// Lets functions of the module throw the library's exceptions.
void register_exceptions();

/// `text` quoted as Python would, for messages.
std::string quoted(const std::string& text);

}  // namespace qrt_python
