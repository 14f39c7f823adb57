#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/check_model.h"
#include "qrt_core/utility/model.h"

namespace qrt_python {

namespace py = pybind11;

/// Where a model comes from: a file, whose bytes are read again when they are wanted, or bytes in
/// memory. Every function is called with the interpreter's lock.
class Source {
 public:
  /// @param from a path (str, os.PathLike) or the bytes of a model (bytes, bytearray, memoryview)
  /// @throws TypeError for anything else, OSError for a file that isn't there
  static Source of(const py::handle& from);

  /// The bytes of a model.
  explicit Source(py::bytes bytes) : bytes_(std::move(bytes)) {}

  /// The file's path as a str, or None for bytes.
  py::object path() const;

  /// The model's bytes.
  /// @throws ModelError for a file that has changed since
  py::bytes bytes() const;

  /// A model ready to run.
  /// @throws ModelError, LayerError
  marlo::utility::Model open() const;

  /// What opens the model on any thread, without the interpreter's lock, while this object lives.
  /// @throws ModelError for a file that has changed since
  std::function<marlo::utility::Model()> opener() const;

  /// The model as a tree.
  /// @throws ModelError
  std::shared_ptr<marlo::runtime::QRTModel> tree() const;

  /// The points in which the model isn't what it says.
  std::vector<marlo::utility::Finding> check(const marlo::utility::CheckOptions& options) const;

 private:
  explicit Source(std::string path);
  // What tells one state of a file from another.
  struct Stamp {
    uint64_t device = 0, file = 0, size = 0;
    int64_t seconds = 0, nanoseconds = 0;
    bool operator==(const Stamp&) const = default;
  };
  static Stamp stamp_of(const std::string& path);
  void refuse_change() const;
  std::string_view view() const;

  std::string path_;
  Stamp stamp_;
  py::object bytes_;
};

/// The bytes of a model in one of its forms.
/// @param form "qrtmodel" or "json"
py::bytes bytes_of(marlo::runtime::QRTModel& model, const std::string& form);

/// The form that the suffix of a path stands for. @throws ValueError
std::string form_of(const std::string& path);

}  // namespace qrt_python
