#include "python/src/arrays.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "python/src/errors.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace qrt_python {

using marlo::runtime::DataType;
using marlo::runtime::LayoutType;
using marlo::runtime::Tensor;
using marlo::runtime::TensorShape;
using marlo::utility::DescribedTensor;
using marlo::utility::Port;

namespace {

// What a tensor can stand on.
constexpr int kInOrder = int{py::array::c_style} | int{py::detail::npy_api::NPY_ARRAY_ALIGNED_};

// An array on a tensor's block, with what gives it back.
struct Kept {
  std::shared_ptr<Pools> pools;
  std::shared_ptr<Tensor> tensor;
};

void give_back(PyObject* capsule) {
  auto* const kept = static_cast<Kept*>(PyCapsule_GetPointer(capsule, nullptr));
  kept->pools->give_back(std::move(kept->tensor));
  delete kept;
}

std::vector<py::ssize_t> sizes_of(const TensorShape& shape) {
  return {shape.dims.begin(), shape.dims.end()};
}

std::string type_text(const py::handle& type) { return py::str(type).cast<std::string>(); }

[[noreturn]] void refuse_type(const Port& port, const std::string& expected,
                              const std::string& found) {
  raise_type_error("input " + quoted(port.id) + ": expected " + expected + ", found " + found);
}

py::array any_array(const py::handle& value, const Port& port, const py::dtype& wanted) {
  const std::string expected = "an array of " + type_text(wanted);
  if (value.is_none()) refuse_type(port, expected, "None");
  if (PyDict_Check(value.ptr()) != 0) {
    refuse_type(port, expected,
                "a dict; `run` takes one, and a call its members by name: net(**d)");
  }
  py::array array = py::reinterpret_steal<py::array>(
      py::detail::npy_api::get().PyArray_FromAny_(value.ptr(), nullptr, 0, 0, 0, nullptr));
  if (!array) {
    const bool is_no_array = PyErr_ExceptionMatches(PyExc_TypeError) != 0 ||
                             PyErr_ExceptionMatches(PyExc_ValueError) != 0;
    if (!is_no_array) throw py::error_already_set();
    PyErr_Clear();
    refuse_type(port, expected, type_text(py::type::of(value).attr("__name__")));
  }
  return array;
}

// The array itself where it is what a tensor can stand on, else a copy that is.
py::array in_order(py::array array, const Port& port, const py::dtype& wanted) {
  // Types are one object each, but for those of another byte order or an alias.
  const bool same = array.dtype().ptr() == wanted.ptr() || array.dtype().equal(wanted);
  if (same && (array.flags() & kInOrder) == kInOrder) return array;
  if (!same) {
    static const py::object* const can_cast =
        new py::object(py::module_::import("numpy").attr("can_cast"));
    if (!(*can_cast)(array.dtype(), wanted, "same_kind").cast<bool>()) {
      refuse_type(port, "an array of " + type_text(wanted) + ", or what converts to it",
                  "an array of " + type_text(array.dtype()));
    }
  }
  constexpr int flags = kInOrder | int{py::array::forcecast};
  // PyArray_FromAny takes a reference to the type.
  PyObject* const type = py::dtype(wanted).release().ptr();
  auto converted = py::reinterpret_steal<py::array>(
      py::detail::npy_api::get().PyArray_FromAny_(array.ptr(), type, 0, 0, flags, nullptr));
  if (!converted) throw py::error_already_set();
  return converted;
}

LayoutType layout_of(const std::vector<uint32_t>& dims, const Port& port) {
  if (port.shape && port.shape->dims.size() == dims.size()) return port.shape->layout;
  // The layout that the number of dims stands for.
  return marlo::utility::Input(dims, static_cast<const float*>(nullptr)).shape().layout;
}

}  // namespace

py::dtype dtype_of(DataType type) {
  // Made once: they are looked up at each call.
  static const std::vector<py::dtype>* const types = [] {
    auto* all = new std::vector<py::dtype>;
    for (const char* name :
         {"float32", "float16", "int32", "int16", "int8", "uint32", "uint16", "uint8"}) {
      all->push_back(py::dtype(name));
    }
    return all;
  }();
  return types->at(static_cast<size_t>(type));
}

const void* numbers_of(const py::handle& value, const TensorShape& shape, bool takes_batch) {
  if (!py::isinstance<py::array>(value)) return nullptr;
  const auto* const array = py::detail::array_proxy(value.ptr());
  if ((array->flags & kInOrder) != kInOrder) return nullptr;
  if (array->descr != dtype_of(shape.data_type).ptr()) return nullptr;
  const size_t count = shape.dims.size();
  const auto axes = static_cast<size_t>(array->nd);
  const auto* sizes = array->dimensions;
  if (takes_batch && axes == count + 1 && sizes[0] == 1) {
    ++sizes;
  } else if (axes != count) {
    return nullptr;
  }
  for (size_t i = 0; i < count; ++i) {
    if (sizes[i] != static_cast<py::ssize_t>(shape.dims[i])) return nullptr;
  }
  return array->data;
}

TensorShape shape_for(std::vector<uint32_t> sizes, const Port& port,
                      const DescribedTensor* described) {
  const DataType type = port.shape ? port.shape->data_type : DataType::FLOAT32;
  if (described != nullptr && type == DataType::FLOAT32) {
    if (auto shape = marlo::utility::described_shape(*described, sizes)) return *shape;
  }
  if (port.shape && sizes.size() == port.shape->dims.size() + 1 && sizes[0] == 1) {
    sizes.erase(sizes.begin());
  }
  const LayoutType layout = layout_of(sizes, port);
  return {std::move(sizes), type, layout};
}

Operand operand_of(const py::handle& value, const Port& port, const DescribedTensor* described) {
  const DataType type = port.shape ? port.shape->data_type : DataType::FLOAT32;
  const py::dtype wanted = dtype_of(type);
  py::array array = py::isinstance<py::array>(value) ? py::reinterpret_borrow<py::array>(value)
                                                     : any_array(value, port, wanted);
  array = in_order(std::move(array), port, wanted);
  std::vector<uint32_t> sizes;
  for (py::ssize_t axis = 0; axis < array.ndim(); ++axis) {
    if (array.shape(axis) > std::numeric_limits<int32_t>::max()) {
      raise("InputError", "input " + quoted(port.id) + ": an axis of " +
                              std::to_string(array.shape(axis)) + " is too long");
    }
    sizes.push_back(static_cast<uint32_t>(array.shape(axis)));
  }
  return {std::move(array), shape_for(std::move(sizes), port, described)};
}

py::array array_of(const std::shared_ptr<Pools>& pools, const std::shared_ptr<Tensor>& tensor) {
  auto kept = std::make_unique<Kept>(Kept{pools, tensor});
  auto owner = py::reinterpret_steal<py::object>(PyCapsule_New(kept.get(), nullptr, &give_back));
  if (!owner) throw py::error_already_set();
  (void)kept.release();
  // As py::array does it, which would work out the strides beside NumPy.
  const auto& numpy = py::detail::npy_api::get();
  const std::vector<uint32_t>& dims = tensor->shape.dims;
  constexpr size_t kMostAxes = 32;  // that NumPy has
  if (dims.size() > kMostAxes) throw py::value_error("a result has more axes than NumPy's arrays");
  std::array<py::ssize_t, kMostAxes> sizes;
  std::copy(dims.begin(), dims.end(), sizes.begin());
  constexpr int flags = kInOrder | int{py::detail::npy_api::NPY_ARRAY_WRITEABLE_};
  auto array = py::reinterpret_steal<py::array>(numpy.PyArray_NewFromDescr_(
      numpy.PyArray_Type_, dtype_of(tensor->shape.data_type).release().ptr(),
      static_cast<int>(dims.size()), sizes.data(), nullptr, tensor->handle.cpu, flags, nullptr));
  if (!array || numpy.PyArray_SetBaseObject_(array.ptr(), owner.release().ptr()) != 0) {
    throw py::error_already_set();
  }
  return array;
}

py::array copy_of(const Tensor& tensor) {
  return py::array(dtype_of(tensor.shape.data_type), sizes_of(tensor.shape), tensor.handle.cpu);
}

py::tuple tuple_of(const std::vector<uint32_t>& sizes) {
  py::tuple tuple(sizes.size());
  for (size_t i = 0; i < sizes.size(); ++i) tuple[i] = sizes[i];
  return tuple;
}

}  // namespace qrt_python
