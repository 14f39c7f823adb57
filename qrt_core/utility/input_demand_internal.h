#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/tensor/tensor_shape.h"

// What a network's own layers tell about its inputs.

namespace marlo::utility {

/// What the first layer that cares demands of an input.
struct Demand {
  enum Form { planes, line, vector, sequence } form = planes;
  uint32_t channels = 0;
};

/// What is demanded of the input layer `id`; nothing if the layers behind it don't tell.
std::optional<Demand> demand_on(const runtime::QRModelInfo& info, const std::string& id);

/// The FLOAT32 forms in which a demand can be met by an input of this height and width (a sequence
/// of `height` steps, a line of `width`), the usual one first.
std::vector<runtime::TensorShape> forms_of(const Demand& demand, uint32_t height, uint32_t width);

/// The shape of an input, where the header and the layers tell all of it.
std::optional<runtime::TensorShape> told_shape(const runtime::QRModelInfo& info,
                                               const std::string& id);

}  // namespace marlo::utility
