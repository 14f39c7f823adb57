#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "qrt_core/runtime/tensor/tensor_shape.h"

// The forms in which one tensor may stand in memory.

namespace marlo::toolkit {

/// A form of a tensor.
struct Form {
  runtime::TensorShape shape;  ///< sizes and layout in memory
  /// The epilogue that is already applied to the numbers, "ReLU"; empty for the tensor itself.
  std::string epilogue;

  bool operator==(const Form& other) const = default;
};

/// The same numbers as planes, if they stand in blocks of channels; else the shape itself.
runtime::TensorShape as_planes(const runtime::TensorShape& shape);

/// Planes in a layout of blocks, or as they are. @return a shape without sizes where the channels
/// don't fill the blocks or the shape is none of planes
runtime::TensorShape in_layout(const runtime::TensorShape& planes, runtime::LayoutType layout);

/// The forms that a tensor may stand in, that of the reference first.
std::vector<Form> forms_of(const runtime::TensorShape& reference);

/// Moves the numbers of a tensor from one form to another of the same sizes.
std::vector<float> moved(const std::vector<float>& numbers, const runtime::TensorShape& from,
                         const runtime::TensorShape& to);

/// A picture of the same channels, small but of a width that leaves the same remainder by 8, so
/// that a kernel's steps and what is left of them are both there. Other tensors stay as they are.
runtime::TensorShape made_small(const runtime::TensorShape& shape);

/// The place of a form. @return forms.size() where it isn't there
size_t place_of(const Form& form, const std::vector<Form>& forms);

}  // namespace marlo::toolkit
