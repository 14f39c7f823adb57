#pragma once

#include <pybind11/pybind11.h>

#include <optional>
#include <utility>

// Long work that runs without the interpreter's lock, and what Python may do meanwhile.

namespace qrt_python {

namespace py = pybind11;

/// Lets Python follow long work and interrupt it. Made and destroyed with the interpreter's lock.
class Progress {
 public:
  /// @param callback called at each step; or None
  explicit Progress(py::object callback = py::none()) : callback_(std::move(callback)) {}

  /// Looks for signals, and tells Python how far the work is. Called without the lock.
  /// @return whether the work may go on
  template <typename... Facts>
  bool step(Facts... facts) {
    const py::gil_scoped_acquire acquired;
    try {
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      if (!callback_.is_none()) callback_(facts...);
      return true;
    } catch (const py::error_already_set& failure) {
      failure_ = failure;
      return false;
    }
  }

  /// Whether a KeyboardInterrupt has ended the work.
  bool is_interrupted() const { return failure_ && failure_->matches(PyExc_KeyboardInterrupt); }

  /// Raises what has ended the work, if anything has. Called with the lock.
  void raise() const {
    if (failure_) throw py::error_already_set(*failure_);
  }

 private:
  py::object callback_;
  std::optional<py::error_already_set> failure_;
};

/// What is thrown through work that can't be asked to end.
struct Interrupted {};

}  // namespace qrt_python
