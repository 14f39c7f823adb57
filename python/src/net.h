#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "python/src/arrays.h"
#include "python/src/pools.h"
#include "python/src/source.h"
#include "qrt_core/utility/model.h"
#include "tools/qrt/profile.h"

namespace qrt_python {

/// A model that is ready to run, with the pools that its networks share.
struct Loaded {
  explicit Loaded(marlo::utility::Model opened);
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;
  ~Loaded();

  std::optional<marlo::utility::Model> model;
  std::shared_ptr<Pools> pools;
};

/// One network, as Python sees it.
class Net {
 public:
  Net(std::shared_ptr<const Source> source, std::shared_ptr<Loaded> loaded, const std::string& id);

  const std::string& id() const { return network_.id(); }
  const marlo::utility::Network& network() const { return network_; }
  const std::shared_ptr<const Source>& source() const { return source_; }

  /// What a call may ask for beside the network's outputs.
  struct Request {
    marlo::utility::RunOptions options;
    bool is_one = false;  ///< whether the result is one array, and not a dict
  };

  /// `outputs` of a call: None, the id of a layer, or several.
  Request request(const py::handle& outputs) const;

  /// The inputs of a call in the network's order.
  /// @throws InputError for too few, too many or unknown ones
  std::vector<Operand> operands(const py::args& given, const py::kwargs& named) const;

  /// One pass.
  /// @throws BusyError while another thread uses the model
  py::object run(const std::vector<Operand>& operands, const Request& request) const;

  /// Passes without results, each kernel timed.
  qrt_tool::Profile measure(const std::vector<Operand>& operands, int repeat) const;

  void reset() const;

  /// A network with memory and states of its own, on the same weights.
  Net clone() const;

 private:
  // Throws BusyError unless `use` holds.
  void require(const Pools::Use& use) const;
  std::vector<marlo::utility::Input> inputs_of(const std::vector<Operand>& operands) const;
  // Whether these are shapes that the layers have been asked about.
  bool fits(const std::vector<Operand>& operands) const;
  // A pass of inputs that fit, for the network's outputs: what `Network::run` does beside the pass
  // is most of the time of a small network.
  py::object run_again(const std::vector<Operand>& operands) const;

  // A layer's id and a tensor that it made.
  using Made = std::vector<std::pair<const std::string*, std::shared_ptr<marlo::runtime::Tensor>>>;
  py::object result_of(const Made& made, const std::vector<Operand>& operands, bool is_one) const;

  std::shared_ptr<const Source> source_;
  std::shared_ptr<Loaded> loaded_;
  marlo::utility::Network& network_;
  std::vector<bool> is_overwritten_;   // per input: whether a kernel writes where it stands
  std::vector<unsigned int> outputs_;  // the layers of the network's outputs
  // Of the inputs that ran last. Only who uses the pools touches it.
  mutable std::vector<marlo::runtime::TensorShape> fitting_;
};

}  // namespace qrt_python
