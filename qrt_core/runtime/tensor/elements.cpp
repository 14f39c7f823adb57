#include "qrt_core/runtime/tensor/elements.h"

#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

const char* name_of(DataType type) {
  const char* const name = PrintedName(type);
  return name != nullptr ? name : "an unknown type";
}

}  // namespace

size_t CountElements(const Tensor* tensor, DataType type) {
  Assert(tensor != nullptr, "there is no tensor to take elements from");
  const TensorShape& shape = tensor->shape;
  Assert(shape.data_type == type, "the tensor has elements of %s, not of %s",
         name_of(shape.data_type), name_of(type));
  Assert(shape.location == LocationType::MainMemory, "the tensor is not in main memory");
  // Unlike ElementCount, which is documented to wrap, for a caller's own buffer of any size.
  size_t count = 1;
  for (const uint32_t size : shape.dims) count *= size;
  Assert(count == 0 || tensor->handle.cpu != nullptr, "the tensor has no buffer");
  return count;
}

}  // namespace marlo::runtime
