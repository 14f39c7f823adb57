#pragma once

#include <pybind11/pybind11.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
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
  // The outputs by network, with the shapes of the last pass: the networks' own are written to
  // without the interpreter's lock, and these only with it.
  std::map<std::string, std::vector<marlo::utility::Port>> outputs;
};

/// One network, as Python sees it.
class Net {
 public:
  Net(std::shared_ptr<const Source> source, std::shared_ptr<Loaded> loaded, const std::string& id);

  const std::string& id() const { return network_.id(); }
  const marlo::utility::Network& network() const { return network_; }
  const std::shared_ptr<const Source>& source() const { return source_; }
  /// What it returns, with the shapes of the last pass.
  const std::vector<marlo::utility::Port>& outputs() const { return outputs_; }
  /// What the model's source says of an input; null where it says nothing.
  const marlo::utility::DescribedTensor* described(size_t input) const {
    return described_[input] ? &*described_[input] : nullptr;
  }

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

  /// One pass of arrays that are what the last pass took, for the network's outputs: the short way
  /// of most calls. Null where they aren't, or where another thread uses the model.
  py::object run_again(const py::tuple& arrays) const;

  /// Passes without results, each kernel timed.
  qrt_tool::Profile measure(const std::vector<Operand>& operands, int repeat) const;

  /// Seconds of `count` passes of the library alone, which is what calls are compared with.
  double time_passes(const std::vector<Operand>& operands, int count) const;

  void reset() const;

  /// A network with memory and states of its own, on the same weights.
  Net clone() const;

 private:
  // Throws BusyError unless `use` holds.
  void require(const Pools::Use& use) const;
  std::vector<marlo::utility::Input> inputs_of(const std::vector<Operand>& operands) const;
  // Where the numbers of an input stand.
  struct Numbers {
    const void* data;
    size_t bytes;
  };
  // The inputs of the last pass, whose shapes the layers have been asked about, and their tensors.
  struct Last {
    std::vector<marlo::runtime::TensorShape> shapes;
    std::vector<Numbers> numbers;
    std::vector<bool> takes_batch;  // whether a leading axis of one may stand before the shape
    std::unordered_map<unsigned int, std::shared_ptr<marlo::runtime::Tensor>> tensors;  // by layer
    std::vector<std::shared_ptr<marlo::runtime::Tensor>*> places;                       // of them
    bool is_known = false;
  };
  // The shape of a result, for who asks for the outputs.
  void note_shape(const std::string& output, const marlo::runtime::TensorShape& shape) const;
  void remember(const std::vector<Operand>& operands) const;
  // Takes the inputs of another pass if they have the shapes of the last one.
  bool take_up(const std::vector<Operand>& operands) const;
  bool take_up(const py::tuple& arrays) const;
  // A pass of inputs that were taken up: what `Network::run` does beside the pass is most of the
  // time of a small network.
  py::object pass_again() const;

  // A layer's id and a tensor that it made.
  using Made = std::vector<std::pair<const std::string*, std::shared_ptr<marlo::runtime::Tensor>>>;
  // The array of a tensor that a pass made: a copy where others have part in its numbers.
  py::object object_of(const std::shared_ptr<marlo::runtime::Tensor>& tensor,
                       const std::vector<Numbers>& inputs, bool is_shared) const;
  py::object result_of(const Made& made, const std::vector<Numbers>& inputs, bool is_one) const;

  std::shared_ptr<const Source> source_;
  std::shared_ptr<Loaded> loaded_;
  marlo::utility::Network& network_;
  std::vector<marlo::utility::Port>& outputs_;  // of `loaded_`
  std::vector<unsigned int> output_layers_;     // of these
  std::vector<bool> is_overwritten_;            // per input: whether a kernel writes there
  std::vector<std::optional<marlo::utility::DescribedTensor>> described_;  // per input
  mutable Last last_;  // only who uses the pools touches it
};

}  // namespace qrt_python
