#pragma once

#include <pybind11/pybind11.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "python/src/net.h"
#include "python/src/source.h"
#include "qrt_core/runtime/tensor/tensor_shape.h"

namespace qrt_python {

/// A model as Python sees it. Its networks are made ready when one is first asked for. Every
/// function is called with the interpreter's lock.
class PyModel {
 public:
  /// @param report what came of the import, or None
  /// @param tuning what came of the choice of kernels, or None
  explicit PyModel(Source source, py::object report = py::none(), py::object tuning = py::none())
      : source_(std::make_shared<Source>(std::move(source))),
        report_(std::move(report)),
        tuning_(std::move(tuning)) {}

  const std::shared_ptr<const Source>& source() const { return source_; }
  const py::object& report() const { return report_; }
  const py::object& tuning() const { return tuning_; }

  /// The networks, ready to run. @throws ModelError, LayerError
  const std::shared_ptr<Loaded>& loaded();

  /// The networks' ids in the order of the file.
  std::vector<std::string> ids() { return loaded()->model->ids(); }

  /// A network by its id. @throws ProcessorError
  Net network(const std::string& id);

  /// A network by its id or number. @throws NotFoundError, IndexError, TypeError, ProcessorError
  Net at(const py::handle& key);

  /// The network that is meant by an id, or by None where there is one only.
  /// @throws NotFoundError, ValueError where it is open which one
  Net chosen(const py::object& id);

  /// Writes a file. @throws ValueError for a suffix that stands for no form, OSError
  void save(const py::handle& path) const;

  /// The bytes in a form, "qrtmodel" or "json".
  py::bytes to_bytes(const std::string& form) const;

 private:
  std::shared_ptr<const Source> source_;
  py::object report_;
  py::object tuning_;
  std::shared_ptr<Loaded> loaded_;
};

/// Shapes of all inputs of a network, by the ids of their layers.
/// @param given sizes by id, outermost first; a dict, or None for what the model tells
/// @throws InputError for an input whose shape isn't known, or that isn't there
std::map<std::string, marlo::runtime::TensorShape> input_shapes(const Net& net,
                                                                const py::object& given);

}  // namespace qrt_python
