#pragma once

#include <memory>
#include <string>

#include "qrt_core/runtime/model/layer_info.h"

// What is asked of descriptions, whatever their class.

namespace marlo::toolkit {

/// A text that is equal for layers that differ in ids and in the numbers of their weights only:
/// class, type, attributes, and how long each weight is. Short texts count as they are.
std::string key_of(runtime::LayerInfo& info);

/// A description of its own with the same attributes; null for a class that isn't the library's.
std::shared_ptr<runtime::LayerInfo> copy_of(const runtime::LayerInfo& info);

/// So many numbers are in all weights.
uint64_t weight_count(runtime::LayerInfo& info);

}  // namespace marlo::toolkit
