#include <pybind11/pybind11.h>

#include "python/src/bind.h"
#include "python/src/errors.h"

// The extension module. What users see of it is in qrt_core/__init__.py.

namespace {

// Objects of the module's classes are made by its functions only: one of `__new__` alone, or of a class
// that is derived from one of these, would stand on memory that was never filled.
void seal_classes(const pybind11::module_& module) {
  for (const auto& [name, value] : module.attr("__dict__").cast<pybind11::dict>()) {
    if (PyType_Check(value.ptr()) == 0) continue;
    auto* const type = reinterpret_cast<PyTypeObject*>(value.ptr());
    type->tp_new = nullptr;
    type->tp_flags &= ~static_cast<unsigned long>(Py_TPFLAGS_BASETYPE);
    PyType_Modified(type);
  }
}

}  // namespace

PYBIND11_MODULE(_core, module) {
  module.doc() = "The compiled part of qrt_core.";
  module.attr("version") = QRT_PYTHON_VERSION;
  qrt_python::register_exceptions();
  qrt_python::bind_facts(module);
  qrt_python::bind_model(module);
  qrt_python::bind_image(module);
  qrt_python::bind_toolkit(module);
  qrt_python::bind_log(module);
  seal_classes(module);
}
