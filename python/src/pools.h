#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/runtime/tensor/tensor.h"

namespace qrt_python {

/// The pools of one context, which belong to one thread at a time, while arrays on their blocks die
/// on any thread: a block goes back at once where nothing runs, else at the end of the pass.
///
/// All threads may use it.
class Pools {
 public:
  explicit Pools(std::shared_ptr<marlo::runtime::Context> context);
  Pools(const Pools&) = delete;
  Pools& operator=(const Pools&) = delete;

  /// Takes a tensor of these pools back.
  void give_back(std::shared_ptr<marlo::runtime::Tensor> tensor);

  /// The right to use the context, for one thread.
  class Use {
   public:
    /// Takes it if it is free: see `holds`.
    explicit Use(Pools& pools);
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    /// Ends the use, and returns the blocks of arrays that died in it.
    ~Use();
    /// Whether nobody else was using it.
    bool holds() const { return holds_; }

   private:
    Pools& pools_;
    bool holds_;
  };

 private:
  std::shared_ptr<marlo::runtime::Context> context_;  // outlives the tensors
  std::mutex mutex_;
  bool in_use_ = false;
  std::vector<std::shared_ptr<marlo::runtime::Tensor>> returned_;
};

}  // namespace qrt_python
