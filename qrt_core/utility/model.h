#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/runtime/tensor/elements.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/export.h"

// A model that is opened, run and closed by one object. Everything beneath it is public as well:
// application.h has the functions that it calls.

namespace marlo::utility {

/// What goes into one input of a network: numbers to be copied, or a tensor. For one thread.
class QRT_API Input {
 public:
  /// FLOAT32 or other numbers of the sizes `dims`, in main memory. The layout follows from the
  /// number of dims: [C, H, W] is CHW, [C, L] CL, [C] C, and any other FLEXIABLE. An input of an
  /// imported network takes the source's dims, with or without their batch of one.
  /// @param dims the sizes, outermost first
  /// @param numbers as many as the product of `dims`; read during `run` only
  template <typename T>
  Input(std::vector<uint32_t> dims, const T* numbers)
      : shape_(shape_of(std::move(dims), runtime::DataTypeOf<T>())), numbers_(numbers) {}

  /// The same of a vector, which must have that many numbers.
  /// @throws Error for another count
  template <typename T>
  Input(std::vector<uint32_t> dims, const std::vector<T>& numbers)
      : Input(std::move(dims), numbers.data()) {
    check_count(numbers.size());
  }

  /// Numbers in any layout: rows of a sequence are `LayoutType::SC`.
  /// @param shape sizes, data type and layout
  /// @param numbers as many as `shape` has elements
  Input(runtime::TensorShape shape, const void* numbers);

  /// A tensor as it is. It is only read, unless the first kernel works in place.
  Input(std::shared_ptr<runtime::Tensor> tensor);  // NOLINT: meant to convert

  /// What goes in.
  const runtime::TensorShape& shape() const { return shape_; }

 private:
  friend class Network;
  static runtime::TensorShape shape_of(std::vector<uint32_t> dims, runtime::DataType type);
  void check_count(size_t count) const;

  runtime::TensorShape shape_;
  const void* numbers_ = nullptr;
  std::shared_ptr<runtime::Tensor> tensor_;
};

/// One result of a run. It keeps what it needs of the model, so it stays valid, with its numbers,
/// after later runs and after the model is gone. It belongs to the model's thread.
class QRT_API Output {
 public:
  /// The id of the layer that made it.
  const std::string& id() const { return id_; }
  /// Its sizes, data type and layout.
  const runtime::TensorShape& shape() const { return tensor_->shape; }
  /// The tensor, for the functions beneath.
  const std::shared_ptr<runtime::Tensor>& tensor() const { return tensor_; }
  /// Its numbers, which live as long as this or a copy of it.
  /// @throws Error if they are of another type
  template <typename T = float>
  [[nodiscard]] runtime::Elements<const T> elements() const {
    return runtime::elements<T>(static_cast<const runtime::Tensor&>(*tensor_));
  }

 private:
  friend class Network;
  Output(std::string id, std::shared_ptr<runtime::Tensor> tensor)
      : id_(std::move(id)), tensor_(std::move(tensor)) {}

  std::string id_;
  std::shared_ptr<runtime::Tensor> tensor_;
};

/// The results of a run, in the order of the network's outputs or of those asked for. It belongs to
/// the model's thread.
class QRT_API Results {
 public:
  /// How many there are.
  size_t size() const { return outputs_.size(); }
  /// The one at `index`, below `size()`.
  const Output& operator[](size_t index) const { return outputs_[index]; }
  /// The one of a layer.
  /// @throws Error if the run returned none of this id
  const Output& at(const std::string& id) const;
  /// The first one, for loops.
  std::vector<Output>::const_iterator begin() const { return outputs_.begin(); }
  /// Behind the last one, for loops.
  std::vector<Output>::const_iterator end() const { return outputs_.end(); }

 private:
  friend class Network;
  std::vector<Output> outputs_;
};

/// An input or output of a network. All threads may read it.
struct Port {
  std::string id;      ///< of its layer
  uint32_t layer = 0;  ///< index of its layer
  /// Of an input: the shape that the model's header and its first layers tell; of an output: that
  /// of the last run. Empty where it isn't known.
  std::optional<runtime::TensorShape> shape;
};

/// What a run may be asked for beside the network's outputs. It belongs to the run's thread.
struct RunOptions {
  /// Layers to return, by id; empty for the network's outputs.
  std::vector<std::string> outputs;
  /// If not null, receives the milliseconds of each layer that ran, in their order.
  std::vector<float>* layer_times = nullptr;
};

/// One network of a model, ready to run. It belongs to its model and with it to one thread at a
/// time.
class QRT_API Network {
 public:
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;
  ~Network();

  /// Its id in the file.
  const std::string& id() const;
  /// What it takes, in the order in which `run` wants it.
  const std::vector<Port>& inputs() const;
  /// What it returns, in this order.
  const std::vector<Port>& outputs() const;
  /// The header of the file.
  const runtime::NetExtraInfo& header() const;
  /// The layers, for the functions beneath.
  const std::shared_ptr<runtime::Net>& net() const;
  /// Where it runs, for the functions beneath.
  const std::shared_ptr<runtime::Context>& context() const;

  /// Runs one pass. Before the first one with inputs of these shapes every layer is asked whether
  /// it fits.
  /// @param inputs one for each of `inputs()`, in that order
  /// @param options what else is wanted
  /// @throws Error whose `story` names the layer and what it expected; std::bad_alloc. The network
  ///   can run again.
  Results run(const std::vector<Input>& inputs, const RunOptions& options = {});
  /// The same of a network with one input.
  Results run(const Input& input, const RunOptions& options = {});

  /// Clears the state that recurrent layers carry from run to run.
  void reset();

 private:
  friend class Model;
  struct State;
  explicit Network(std::unique_ptr<State> state);
  std::unique_ptr<Network> clone_on(const std::shared_ptr<runtime::Context>& context) const;

  std::unique_ptr<State> state_;
};

/// What a model may be opened with. All threads may read it.
struct ModelOptions {
  /// The SDK that the model must have been made for, by name and version; any if it is empty.
  std::string sdk_type;
  uint16_t sdk_major = 0;  ///< with `sdk_type`
  uint16_t sdk_minor = 0;  ///< with `sdk_type`
  /// Kernels of the application's own beside the library's, which win where names are equal.
  const runtime::KernelRegistry* kernels = nullptr;
  /// Of tensors, in bytes: a power of two. Below 64 vectors of AVX-512 cross lines of the cache.
  unsigned int alignment = 64;
};

/// A model with all that it needs to run: context, kernels and networks.
///
/// @code
/// marlo::utility::Model model("digits.qrtmodel");
/// auto results = model.run({{1, 28, 28}, pixels});
/// for (float logit : results[0].elements()) std::cout << logit << '\n';
/// @endcode
///
/// It logs nothing: all it has to say it throws, as an `Error`. A model and everything made with it
/// belong to one thread at a time; different models are independent, a model and its clones too.
class QRT_API Model {
 public:
  /// Opens a file, JSON or .qrtmodel.
  /// @throws Error for a file that can't be opened, isn't a model, or has a network that can't be
  ///   built; std::bad_alloc
  explicit Model(const std::string& path, const ModelOptions& options = {});
  /// Opens a model in memory, in either form. The bytes are needed during the call only.
  static Model from_bytes(const void* bytes, size_t size, const ModelOptions& options = {});

  Model(Model&&) noexcept;             ///< networks stay where they are
  Model& operator=(Model&&) noexcept;  ///< networks stay where they are
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;
  ~Model();

  /// Another model that computes the same, for another thread or another stream: it has its own
  /// memory and its own states, which are those of a new model, and shares the packed weights, which
  /// stay until the last of them goes, on whichever thread that is.
  ///
  /// Call it while no network of this model runs; clones may run meanwhile.
  /// @throws Error for a kernel of the application's own that can't be copied; std::bad_alloc
  [[nodiscard]] Model clone() const;

  /// How many networks there are.
  size_t size() const;
  /// The networks' ids in the order of the file.
  std::vector<std::string> ids() const;
  /// A network by its place in the file.
  /// @throws Error if there aren't so many
  Network& at(size_t index) const;
  /// A network by its id.
  /// @throws Error if there is none of this id
  Network& at(const std::string& id) const;

  /// Runs the model's only network.
  /// @throws Error if there are none or several, and as `Network::run`
  Results run(const std::vector<Input>& inputs, const RunOptions& options = {});
  /// The same of a network with one input.
  Results run(const Input& input, const RunOptions& options = {});
  /// Clears the states of all networks.
  void reset();

 private:
  struct State;
  explicit Model(std::unique_ptr<State> state);
  static std::unique_ptr<State> open(const char* bytes, size_t size, const ModelOptions& options);
  Network& only() const;

  std::unique_ptr<State> state_;
};

}  // namespace marlo::utility
