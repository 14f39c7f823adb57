#include "qrt_toolkit/assign/form.h"

#include <algorithm>

namespace marlo::toolkit {
namespace {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;

constexpr LayoutType kBlocked[] = {LayoutType::C8HW8, LayoutType::C4HW4};

bool is_blocked(const TensorShape& shape) {
  const uint32_t block = runtime::BlockSize(shape.layout);
  return block > 1 && shape.dims.size() == 4 && shape.dims[3] == block;
}

/// Where the number of channel c and pixel p stands.
size_t offset(const TensorShape& shape, size_t c, size_t p) {
  const size_t pixels = size_t{shape.dims[1]} * shape.dims[2];
  const size_t block = is_blocked(shape) ? runtime::BlockSize(shape.layout) : 1;
  return (c / block * pixels + p) * block + c % block;
}

}  // namespace

TensorShape as_planes(const TensorShape& shape) {
  if (!is_blocked(shape)) return shape;
  TensorShape planes = shape;
  planes.dims = {shape.dims[0] * shape.dims[3], shape.dims[1], shape.dims[2]};
  planes.layout = LayoutType::CHW;
  return planes;
}

TensorShape in_layout(const TensorShape& planes, LayoutType layout) {
  if (planes.layout == layout) return planes;
  TensorShape blocked = planes;
  blocked.dims.clear();
  const uint32_t block = runtime::BlockSize(layout);
  if (planes.layout != LayoutType::CHW || planes.dims.size() != 3 || block == 1) return blocked;
  if (planes.data_type != DataType::FLOAT32 || planes.dims[0] % block != 0) return blocked;
  blocked.dims = {planes.dims[0] / block, planes.dims[1], planes.dims[2], block};
  blocked.layout = layout;
  return blocked;
}

std::vector<Form> forms_of(const TensorShape& reference) {
  std::vector<Form> forms{{reference, ""}};
  const TensorShape planes = as_planes(reference);
  if (planes.dims.empty() || planes.layout != LayoutType::CHW) return forms;
  const auto add = [&](const TensorShape& shape) {
    const Form form{shape, ""};
    if (!shape.dims.empty() && place_of(form, forms) == forms.size()) forms.push_back(form);
  };
  add(planes);
  for (const LayoutType layout : kBlocked) add(in_layout(planes, layout));
  return forms;
}

std::vector<float> moved(const std::vector<float>& numbers, const TensorShape& from,
                         const TensorShape& to) {
  if (from.layout == to.layout) return numbers;
  const TensorShape planes = as_planes(from);
  const size_t pixels = size_t{planes.dims[1]} * planes.dims[2];
  std::vector<float> result(numbers.size());
  for (size_t c = 0; c < planes.dims[0]; ++c) {
    for (size_t p = 0; p < pixels; ++p) result[offset(to, c, p)] = numbers[offset(from, c, p)];
  }
  return result;
}

TensorShape made_small(const TensorShape& shape) {
  TensorShape small = shape;
  const bool is_picture =
      is_blocked(shape) || (shape.layout == LayoutType::CHW && shape.dims.size() == 3);
  if (!is_picture) return small;
  // Rows are taken one by one or in small tiles, pixels of a row up to eight at a time.
  constexpr uint32_t kRows = 4;
  constexpr uint32_t kColumns = 8;
  small.dims[1] = std::min(shape.dims[1], kRows + shape.dims[1] % kRows);
  small.dims[2] = std::min(shape.dims[2], kColumns + shape.dims[2] % kColumns);
  return small;
}

size_t place_of(const Form& form, const std::vector<Form>& forms) {
  return static_cast<size_t>(std::find(forms.begin(), forms.end(), form) - forms.begin());
}

}  // namespace marlo::toolkit
