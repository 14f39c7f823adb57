#include <pybind11/pybind11.h>

#include "python/src/bind.h"
#include "python/src/errors.h"

// The extension module. What users see of it is in qrt_core/__init__.py.

PYBIND11_MODULE(_core, module) {
  module.doc() = "The compiled part of qrt_core.";
  module.attr("version") = QRT_PYTHON_VERSION;
  qrt_python::register_exceptions();
  qrt_python::bind_facts(module);
  qrt_python::bind_model(module);
  qrt_python::bind_image(module);
  qrt_python::bind_toolkit(module);
  qrt_python::bind_log(module);
}
