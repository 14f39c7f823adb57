#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qrt_toolkit/tune/tune.h"
#include "tools/qrt/network_report.h"

// How `qrt info` shows what it found.

namespace qrt_tool {

struct ShownNetwork {
  NetworkReport report;
  bool has_kernels = true;                        ///< whether the file could say which kernels run
  std::optional<marlo::toolkit::TunedFor> tuned;  ///< what its configuration was tuned for
};

/// A configuration and what to call it.
struct NamedConfig {
  std::string name;
  const marlo::runtime::QRModelCfg* config;
};

/// @param model null for a file of networks alone
/// @param width of the tables, in characters
std::string networks_text(const std::string& path, const marlo::runtime::QRTModel* model,
                          const std::vector<ShownNetwork>& networks, size_t width);
std::string networks_json(const std::string& path, const marlo::runtime::QRTModel* model,
                          const std::vector<ShownNetwork>& networks);

std::string configs_text(const std::string& path, const std::vector<NamedConfig>& configs,
                         size_t width);
std::string configs_json(const std::string& path, const std::vector<NamedConfig>& configs);

}  // namespace qrt_tool
