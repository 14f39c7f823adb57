#pragma once

#include <string>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/model_info.h"

// The parts of a model that belong to one network.

namespace marlo::toolkit {

/// The id that is meant. @throws std::invalid_argument where the model hasn't got it, or where
/// `wanted` is empty and it has not exactly one
std::string network_id(const runtime::QRTModel& model, const std::string& wanted);

/// The layers of a network. @throws std::invalid_argument where there are none
const runtime::QRModelInfo& network_of(const runtime::QRTModel& model, const std::string& id);

/// What is loaded of its configurations. @throws std::invalid_argument where there is none
const runtime::QRModelCfg& config_of(const runtime::QRTModel& model, const std::string& id);

}  // namespace marlo::toolkit
