#pragma once

#include <memory>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/weight_places_internal.h"

namespace marlo::runtime {

/// `CreateNet`, for a tree whose weights are left in its file: each layer has them only while its kernel
/// is configured.
/// @param weights where they are; null for a tree that holds them
std::shared_ptr<Net> CreateNet(const std::shared_ptr<QRModelInfo>& info,
                               const std::shared_ptr<QRModelCfg>& cfg,
                               const KernelRegistry& kernels,
                               const std::shared_ptr<Context>& context,
                               const WeightPlaces* weights);

}  // namespace marlo::runtime
