#pragma once

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>
#include <vector>

// What callers pass where a function takes more than one type: what doesn't fit is a TypeError that
// says what was expected and what was found.

namespace qrt_python {

namespace py = pybind11;

/// Raises `TypeError`.
/// @param name of the argument
[[noreturn]] void refuse(const std::string& name, const std::string& expected,
                         const py::handle& found);

/// Whether it is a dict or another mapping.
bool is_mapping(const py::handle& value);

/// A mapping as a dict.
/// @throws TypeError for anything else
py::dict dict_of(const py::handle& value, const std::string& name, const std::string& expected);

/// The text of a str.
/// @throws TypeError for anything else
std::string text_of(const py::handle& value, const std::string& name, const std::string& expected);

/// Sizes, outermost first.
/// @throws TypeError for anything else
template <typename Number>
std::vector<Number> sizes_of(const py::handle& value, const std::string& name) {
  try {
    return value.cast<std::vector<Number>>();
  } catch (const py::cast_error&) {
    refuse(name, "sizes, such as (3, 224, 224)", value);
  }
}

}  // namespace qrt_python
