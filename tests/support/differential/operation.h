#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/differential/trial.h"

namespace marlo::test {

/// One operation with all of its kernels: makes a layer, runs them and compares.
class Operation {
 public:
  Operation() = default;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  virtual ~Operation() = default;

  /// The beginnings of its kernels' names, in lower case: what stands before the first '_'.
  virtual std::vector<std::string> families() const = 0;

  /// Makes a layer from the choices and runs the kernels on it, as far as they take it.
  /// @param kernels those of the registry that belong here and that this processor can run
  virtual void run(Choices& choices, const std::vector<std::string>& kernels) const = 0;
};

/// @name The operations
/// @{
std::unique_ptr<Operation> plane_convolutions();
std::unique_ptr<Operation> transposed_convolutions();
std::unique_ptr<Operation> line_convolutions();
std::unique_ptr<Operation> full_connections();
std::unique_ptr<Operation> recurrent_sequences();
std::unique_ptr<Operation> recurrent_cells();
std::unique_ptr<Operation> activations();
std::unique_ptr<Operation> elementwise_operators();
std::unique_ptr<Operation> broadcast_operators();
std::unique_ptr<Operation> poolings();
std::unique_ptr<Operation> upsamplings();
std::unique_ptr<Operation> expansions();
std::unique_ptr<Operation> pixel_shuffles();
std::unique_ptr<Operation> layout_transforms();
std::unique_ptr<Operation> single_kernels();
/// @}

/// Makes a layer from bytes, the first of which chooses the operation, and compares on it every
/// registered kernel that accepts it with the portable one. Failures are those of the running test.
void try_kernels(const uint8_t* data, size_t size);

/// How often each kernel was compared.
const std::map<std::string, size_t>& comparisons();

/// Whether a kernel is for operators that only the second set's descriptions have: no operation here
/// makes those, and the tests in tests/kernel/extension run them.
bool has_own_description(const std::string& kernel);

/// Registered kernels that no operation covers, but for those with a description of their own.
std::vector<std::string> uncovered_kernels();

}  // namespace marlo::test
