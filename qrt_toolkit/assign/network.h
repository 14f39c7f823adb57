#pragma once

#include <string>
#include <utility>
#include <vector>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/assign/kernel_set.h"

// The parts of a model that belong to one network.

namespace marlo::toolkit {

/// The id that is meant. @throws std::invalid_argument where the model hasn't got it, or where
/// `wanted` is empty and it has not exactly one
std::string network_id(const runtime::QRTModel& model, const std::string& wanted);

/// The layers of a network. @throws std::invalid_argument where there are none
const runtime::QRModelInfo& network_of(const runtime::QRTModel& model, const std::string& id);

/// What is loaded of its configurations. @throws std::invalid_argument where there is none
const runtime::QRModelCfg& config_of(const runtime::QRTModel& model, const std::string& id);

/// The kernels of a configuration, converters included, that need more than a set: layers with the
/// names of kernels, by name.
std::vector<std::pair<std::string, std::string>> kernels_beyond(const runtime::QRModelCfg& config,
                                                                KernelSet set);

/// Refuses a configuration with kernels that would end the program.
/// @throws std::invalid_argument where this processor can't run one
void check_runnable(const runtime::QRModelCfg& config);

}  // namespace marlo::toolkit
