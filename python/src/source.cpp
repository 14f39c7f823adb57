#include "python/src/source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>

#include "python/src/errors.h"
#include "qrt_toolkit/memory_file_internal.h"

namespace qrt_python {

using marlo::runtime::QRTModel;
using marlo::utility::Error;
using marlo::utility::Model;

namespace {

[[noreturn]] void raise_os_error(const std::string& path) {
  PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
  throw py::error_already_set();
}

/// A file in memory, from bytes and to bytes.
class MemoryFile {
 public:
  MemoryFile() {
    if (!file_.is_open()) raise_os_error("memory");
  }

  const std::string& path() const { return file_.path(); }

  void write(std::string_view bytes) const {
    if (!file_.write(bytes)) raise_os_error("memory");
  }

  py::bytes bytes() const {
    const off_t size = file_.size();
    if (size < 0) raise_os_error("memory");
    auto result = py::reinterpret_steal<py::bytes>(PyBytes_FromStringAndSize(nullptr, size));
    if (!result) throw py::error_already_set();
    if (!file_.read(PyBytes_AS_STRING(result.ptr()), static_cast<size_t>(size)))
      raise_os_error("memory");
    return result;
  }

 private:
  marlo::toolkit::MemoryFile file_;
};

bool is_json(std::string_view bytes) {
  const size_t begin = bytes.find_first_not_of(" \t\r\n");
  return begin != std::string_view::npos && (bytes[begin] == '{' || bytes[begin] == '[');
}

// The first bytes of a file, as many as tell its form.
std::string beginning_of(const std::string& path) {
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) raise_os_error(path);
  char text[64];
  const size_t count = std::fread(text, 1, sizeof text, file);
  std::fclose(file);
  return {text, count};
}

}  // namespace

Source::Source(std::string path) : path_(std::move(path)), stamp_(stamp_of(path_)) {}

Source Source::of(const py::handle& from) {
  if (PyBytes_Check(from.ptr())) return Source(py::reinterpret_borrow<py::bytes>(from));
  if (PyObject_CheckBuffer(from.ptr()) != 0) {
    // What can change is copied.
    return Source(py::reinterpret_steal<py::bytes>(PyBytes_FromObject(from.ptr())));
  }
  PyObject* encoded = nullptr;
  if (PyUnicode_FSConverter(from.ptr(), &encoded) == 0) {
    if (PyErr_ExceptionMatches(PyExc_TypeError) == 0) throw py::error_already_set();
    PyErr_Clear();
    raise_type_error("a model is a path or bytes, and not " +
                     py::type::of(from).attr("__name__").cast<std::string>());
  }
  return Source(py::reinterpret_steal<py::bytes>(encoded).cast<std::string>());
}

Source::Stamp Source::stamp_of(const std::string& path) {
  struct stat facts {};
  if (stat(path.c_str(), &facts) != 0) raise_os_error(path);
  if (S_ISDIR(facts.st_mode)) {
    errno = EISDIR;
    raise_os_error(path);
  }
  return {facts.st_dev, facts.st_ino, static_cast<uint64_t>(facts.st_size), facts.st_mtim.tv_sec,
          facts.st_mtim.tv_nsec};
}

void Source::refuse_change() const {
  if (stamp_of(path_) == stamp_) return;
  raise("ModelError", "the file " + path_ + " has changed since it was loaded");
}

py::object Source::path() const {
  if (bytes_) return py::none();
  return py::reinterpret_steal<py::object>(
      PyUnicode_DecodeFSDefaultAndSize(path_.data(), static_cast<py::ssize_t>(path_.size())));
}

py::bytes Source::bytes() const {
  if (bytes_) return py::reinterpret_borrow<py::bytes>(bytes_);
  refuse_change();
  return py::module_::import("pathlib").attr("Path")(path()).attr("read_bytes")().cast<py::bytes>();
}

std::string_view Source::view() const {
  return {PyBytes_AS_STRING(bytes_.ptr()), static_cast<size_t>(PyBytes_GET_SIZE(bytes_.ptr()))};
}

std::function<Model()> Source::opener() const {
  if (!bytes_) {
    refuse_change();
    return [this] { return Model(path_); };
  }
  return [bytes = view()] { return Model::from_bytes(bytes.data(), bytes.size()); };
}

Model Source::open() const {
  const std::function<Model()> open = opener();
  try {
    const py::gil_scoped_release released;
    return open();
  } catch (const Error& failure) {
    raise("ModelError", failure);
  }
}

std::shared_ptr<QRTModel> Source::tree() const {
  auto model = std::make_shared<QRTModel>();
  if (!bytes_) refuse_change();
  const std::string begin = bytes_ ? std::string(view().substr(0, 64)) : beginning_of(path_);
  const char* const form = is_json(begin) ? "json" : "bin";
  try {
    if (bytes_) {
      const MemoryFile file;
      file.write(view());
      model->FromFile(file.path().c_str(), form);
    } else {
      model->FromFile(path_.c_str(), form);
    }
  } catch (const Error& failure) {
    raise("ModelError", failure);
  }
  return model;
}

std::vector<marlo::utility::Finding> Source::check(
    const marlo::utility::CheckOptions& options) const {
  if (!bytes_) {
    refuse_change();
    const py::gil_scoped_release released;
    return marlo::utility::check_model(path_, options);
  }
  const std::string_view bytes = view();
  const py::gil_scoped_release released;
  return marlo::utility::check_model(bytes.data(), bytes.size(), options);
}

py::bytes bytes_of(QRTModel& model, const std::string& form) {
  const MemoryFile file;
  if (form != "json" && form != "qrtmodel") {
    throw py::value_error("form " + quoted(form) + ": expected 'qrtmodel' or 'json'");
  }
  if (!model.ToFile(file.path().c_str(), form == "json" ? "json" : "bin")) {
    raise("ModelError", "the model can't be written: the log says why");
  }
  return file.bytes();
}

std::string form_of(const std::string& path) {
  for (const char* form : {"json", "qrtmodel"}) {
    if (path.ends_with(std::string(".") + form)) return form;
  }
  throw py::value_error("path " + quoted(path) + ": expected a name in .qrtmodel or .json");
}

}  // namespace qrt_python
