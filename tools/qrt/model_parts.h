#pragma once

#include <memory>
#include <string>

#include "tools/qrt/model_file.h"

// Taking models apart, and putting them together.

namespace qrt_tool {

/// The part of `object` that is of kind `to`: a network or its configuration, by its id, or all of
/// them.
/// @param path of the file that the object comes from, for messages
/// @param network id of the network; may be empty where there is one only
/// @throws ToolError (kUsageError) if no such part can be had
std::shared_ptr<marlo::runtime::Serializable> part_of(
    const std::shared_ptr<marlo::runtime::Serializable>& object, ObjectKind from, ObjectKind to,
    const std::string& path, const std::string& network);

/// A model for core 1.0 of a network, or several, and the configurations.
/// @param network id of a single network
/// @param sdk "NAME:MAJOR.MINOR"; empty for qrt:1.0
/// @throws ToolError (kUsageError) for objects of other kinds; (kModelError) for a network without
///   a configuration
std::shared_ptr<marlo::runtime::QRTModel> joined_model(
    const std::shared_ptr<marlo::runtime::Serializable>& networks,
    const std::shared_ptr<marlo::runtime::Serializable>& configs, const std::string& network,
    const std::string& sdk);

}  // namespace qrt_tool
