#include "python/src/arguments.h"

#include "python/src/errors.h"

namespace qrt_python {

void refuse(const std::string& name, const std::string& expected, const py::handle& found) {
  // Whole arrays would hide the rest.
  const bool is_short =
      PyUnicode_Check(found.ptr()) || PyLong_Check(found.ptr()) || PyTuple_Check(found.ptr());
  raise_type_error(name + ": expected " + expected + ", found " +
                   (is_short ? py::repr(found).cast<std::string>()
                             : py::type::of(found).attr("__name__").cast<std::string>()));
}

bool is_mapping(const py::handle& value) {
  if (PyDict_Check(value.ptr())) return true;
  // Kept for good: it must not die behind the interpreter.
  static const py::object* const mapping =
      new py::object(py::module_::import("collections.abc").attr("Mapping"));
  return py::isinstance(value, *mapping);
}

py::dict dict_of(const py::handle& value, const std::string& name, const std::string& expected) {
  if (!is_mapping(value)) refuse(name, expected, value);
  return py::dict(py::reinterpret_borrow<py::object>(value));
}

std::string text_of(const py::handle& value, const std::string& name, const std::string& expected) {
  if (!PyUnicode_Check(value.ptr())) refuse(name, expected, value);
  return value.cast<std::string>();
}

}  // namespace qrt_python
