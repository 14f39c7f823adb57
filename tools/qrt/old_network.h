#pragma once

#include <memory>
#include <string>

#include "qrt_core/qrt_core.h"
#include "tools/qrt/kernel_rules.h"
#include "tools/qrt/network.h"

// Networks of the earlier generation, made ready to run.

namespace qrt_tool {

/// Reads a file of the earlier generation.
/// @throws ToolError (kModelError), naming the file
std::shared_ptr<marlo::runtime::QRModelInfo> read_old_network(const std::string& path);

/// Gives each layer a kernel: the first of its rule, or of the set of kernels, that takes it.
///
/// Descriptions are changed where the kernel wants them otherwise, and a layer that brings planes
/// into one row is put before full connections that read anything else.
/// @param path of the file that the network comes from, for messages
/// @throws ToolError (kModelError) for a layer that no kernel takes; (kInputError) for a rule
///   that names what isn't there
std::shared_ptr<marlo::runtime::QRModelCfg> configure_old_network(
    marlo::runtime::QRModelInfo& network, const std::string& path, const KernelRules& rules,
    OldKernelSet set, Library& library);

}  // namespace qrt_tool
