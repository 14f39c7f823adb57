#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qrt_core/runtime/tensor/tensor.h"

// Arrays in NumPy's file format: versions 1.0 and 2.0, C order, little-endian.

namespace qrt_tool {

/// An array of numbers, each converted to a float.
struct NumberArray {
  std::vector<uint32_t> sizes;  ///< outermost first
  std::vector<float> values;    ///< in row-major order
};

/// Reads an array of booleans, integers or floating-point numbers of 1 to 8 bytes out of the bytes
/// of a file.
/// @throws ToolError (kInputError) with a text without the file's name
NumberArray parse_npy(const std::string& bytes);

/// The same with numbers that integers of 32 bits fit into.
struct ExactArray {
  std::vector<uint32_t> sizes;  ///< outermost first; none for a single number
  std::vector<double> values;   ///< in row-major order
};
ExactArray parse_npy_exactly(const std::string& bytes);

/// The bytes of a version 1.0 file that holds a tensor, in the tensor's own data type.
/// @throws ToolError (kRunError) for a tensor that isn't in main memory or has an unknown type
std::string npy_bytes(const marlo::runtime::Tensor& tensor);
std::string npy_bytes(const marlo::runtime::TensorShape& shape, const void* numbers);

}  // namespace qrt_tool
