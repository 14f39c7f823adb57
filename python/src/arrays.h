#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "python/src/pools.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/model.h"
#include "qrt_core/utility/model_summary.h"

// From NumPy's arrays to tensors and back.

namespace qrt_python {

namespace py = pybind11;

/// NumPy's type of a tensor's elements.
py::dtype dtype_of(marlo::runtime::DataType type);

/// Numbers for an input: an array in C order, and what the network takes it for.
struct Operand {
  py::array array;
  marlo::runtime::TensorShape shape;
};

/// `value` as an input wants it. A C-contiguous array of the input's type is taken as it is; others
/// are converted, as far as NumPy's "same_kind" goes.
/// @param described as of `shape_for`
/// @throws TypeError for what has no numbers, or none that convert; InputError for sizes that no
///   tensor has
Operand operand_of(const py::handle& value, const marlo::utility::Port& port,
                   const marlo::utility::DescribedTensor* described);

/// The numbers of an array that a tensor of this shape can stand on as they are; null for any other
/// object.
/// @param takes_batch whether the array may have a leading axis of one more
const void* numbers_of(const py::handle& value, const marlo::runtime::TensorShape& shape,
                       bool takes_batch);

/// The shape of an input of these sizes, in the order that the network wants. Sizes of the model's
/// source are taken with or without their batch; else a leading axis of one, a batch, is left out
/// where the network expects one axis less.
/// @param described the tensor of the model's source; null where the model tells of none
marlo::runtime::TensorShape shape_for(std::vector<uint32_t> sizes, const marlo::utility::Port& port,
                                      const marlo::utility::DescribedTensor* described);

/// The array of a result, on the tensor's own block, which goes back to its pools when the last
/// array on it dies.
py::array array_of(const std::shared_ptr<Pools>& pools,
                   const std::shared_ptr<marlo::runtime::Tensor>& tensor);

/// Sizes as a tuple.
py::tuple tuple_of(const std::vector<uint32_t>& sizes);

/// A copy of a tensor's numbers.
py::array copy_of(const marlo::runtime::Tensor& tensor);

}  // namespace qrt_python
