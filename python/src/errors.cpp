#include "python/src/errors.h"

#include <exception>

#include "qrt_toolkit/errors.h"

namespace qrt_python {

using marlo::toolkit::FileError;
using marlo::toolkit::ImportError;
using marlo::utility::Error;

namespace {

py::object error_class(const char* name) {
  return py::module_::import("qrt_core.errors").attr(name);
}

void set_error(const char* name, const std::string& text, const py::dict& fields) {
  const py::object type = error_class(name);
  const py::object value = type(text, **fields);
  PyErr_SetObject(type.ptr(), value.ptr());
}

py::dict fields_of(const Error& failure) {
  py::dict fields;
  if (!failure.network().empty()) fields["network"] = failure.network();
  const marlo::utility::LayerFault* const fault = failure.layer();
  if (fault == nullptr) return fields;
  fields["layer"] = fault->layer;
  fields["id"] = fault->id;
  fields["kind"] = fault->kind;
  fields["role"] = fault->role;
  fields["kernel"] = fault->kernel;
  py::list misfits;
  for (const auto& misfit : fault->misfits) {
    misfits.append(error_class("Misfit")(misfit.member, misfit.expected, misfit.found));
  }
  fields["misfits"] = py::tuple(misfits);
  return fields;
}

void set_error(const char* name, const Error& failure) {
  set_error(failure.layer() != nullptr ? "LayerError" : name, failure.story(), fields_of(failure));
}

void set_error(const ImportError& failure) {
  py::list refusals;
  for (const auto& refusal : failure.refusals()) {
    refusals.append(error_class("Refusal")(refusal.node, refusal.op, refusal.opset, refusal.source,
                                           refusal.attribute, refusal.why, refusal.help));
  }
  const bool of_file = dynamic_cast<const FileError*>(&failure) != nullptr;
  set_error(of_file ? "OnnxFileError" : "UnsupportedError", failure.what(),
            py::dict(py::arg("refusals") = py::tuple(refusals)));
}

}  // namespace

void raise(const char* name, const std::string& text, const py::dict& fields) {
  set_error(name, text, fields);
  throw py::error_already_set();
}

void raise(const char* name, const Error& failure) {
  set_error(name, failure);
  throw py::error_already_set();
}

void raise_type_error(const std::string& text) { throw py::type_error(text); }

void register_exceptions() {
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const Error& failure) {
      set_error("Error", failure);
    } catch (const ImportError& failure) {
      set_error(failure);
    }
  });
}

std::string quoted(const std::string& text) { return py::repr(py::str(text)).cast<std::string>(); }

}  // namespace qrt_python
