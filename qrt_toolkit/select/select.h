#pragma once

#include <set>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/export.h"

// Programs that carry the kernels of their models and no others.

namespace marlo::toolkit {

/// What models name.
struct Selection {
  std::set<std::string> kernels;  ///< registered names
  std::set<std::string> params;   ///< classes of parameters that the library registers
};

/// Adds the kernels and converters that a model's configurations name for this library.
/// @param selection is added to
/// @param network id of the only network that counts; empty for all
/// @throws std::invalid_argument for a model without such a network or configuration, and for a
///   kernel that this build doesn't have
QRT_API void select_kernels(const runtime::QRTModel& model, Selection& selection,
                            const std::string& network = "");

/// A C++ file that defines the functions which register the library's kernels, so that they register
/// these only. A program of it and the static library has no other kernels; its own code stays as
/// it is.
/// @param selection what is registered
/// @param models what the file's comment names as its origin
QRT_API std::string registration_source(const Selection& selection,
                                        const std::vector<std::string>& models);

}  // namespace marlo::toolkit
