#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "qrt_toolkit/bench/bench.h"

// One network on one thread.

namespace marlo::toolkit {

/// Numbers for an input of a network, by the layer's place: between -1 and 1, or of an integer's range
/// of small numbers, the same every time; zeros where they choose rows of tables.
/// @throws std::invalid_argument for a shape of 4 GiB or more, which no tensor has
std::vector<char> made_up_numbers(const runtime::TensorShape& shape, const runtime::Net& net,
                                  uint32_t input);

/// The process in main memory, as the system tells it; 0 where it doesn't.
struct ProcessMemory {
  uint64_t resident = 0;
  uint64_t peak = 0;
};
ProcessMemory process_memory();

/// Lets the calling thread run on one processor only.
/// @throws std::invalid_argument where the system refuses
void stay_on_cpu(int cpu);

/// A network with its inputs, ready for passes. It belongs to the thread that makes it.
class Lane {
 public:
  /// Opens the model and runs a first pass.
  /// @param other of another thread, whose model is cloned; null for a model of its own
  Lane(const BenchSubject& subject, const BenchOptions& options, const Lane* other = nullptr);

  /// Runs a pass, and returns how long it took.
  Times pass();

  double load_ms() const { return load_ms_; }
  double first_pass_ms() const { return first_pass_ms_; }
  const std::string& network() const { return network_->id(); }
  uint64_t static_pool_bytes() const;
  uint64_t dynamic_pool_bytes() const;
  /// Calls to the allocator within passes so far.
  uint64_t allocations() const { return allocations_; }

 private:
  void make_inputs(const BenchSubject& subject);

  const BenchOptions& options_;
  std::unique_ptr<utility::Model> model_;
  utility::Network* network_ = nullptr;
  struct InputNumbers {
    uint32_t layer;
    runtime::TensorShape shape;
    std::vector<char> bytes;
  };
  std::vector<InputNumbers> inputs_;
  std::vector<unsigned int> outputs_;
  double load_ms_ = 0.0;
  double first_pass_ms_ = 0.0;
  uint64_t allocations_ = 0;
};

}  // namespace marlo::toolkit
