#pragma once

#include "qrt_core/runtime/model/model_info.h"

namespace marlo::toolkit {

/// A model as its binary file holds it: written and read again, its weights rounded to the nearest
/// halves before. `model` is the same afterwards.
/// @throws std::runtime_error where no temporary file can be made
runtime::QRTModel as_binary_form(runtime::QRTModel& model);

}  // namespace marlo::toolkit
