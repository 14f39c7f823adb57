#pragma once

#include <memory>

#include "qrt_core/runtime/model/weight_places_internal.h"
#include "qrt_core/utility/application.h"

namespace marlo::utility {

/// `Load_Single_Net`, for a tree whose weights are left in its file.
/// @param weights where they are; null for a tree that holds them
void load_net(const std::shared_ptr<_NetworkPackage>& package,
              const std::shared_ptr<runtime::QRModelInfo>& info,
              const std::shared_ptr<runtime::QRModelMultiBackendCfgs>& cfgs, const char* platform,
              const runtime::WeightPlaces* weights);

}  // namespace marlo::utility
