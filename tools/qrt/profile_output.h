#pragma once

#include <cstddef>
#include <string>

#include "tools/qrt/json_text.h"
#include "tools/qrt/network_report.h"
#include "tools/qrt/profile.h"

// How `qrt run --profile` shows where the time of a pass goes.

namespace qrt_tool {

/// What the rows of a profile are.
enum class ProfileBy {
  layer,   ///< one for each kernel and converter of each layer
  kind,    ///< sums by kind of layer; converters are a kind
  kernel,  ///< sums by kernel
};

/// How a profile is shown.
struct ProfileView {
  ProfileBy by = ProfileBy::layer;
  bool by_time = false;  ///< the longest first, and not in the order of the network
};

/// Reads the words of `--by` and `--sort`; empty ones are "layer" and "order", but sums are sorted
/// by time.
/// @throws ToolError (kUsageError)
ProfileView parse_profile_view(const std::string& by, const std::string& sort);

/// A table. Times are of the processor; where it didn't work for the pass all the time, the time on
/// the wall stands beside it, and the difference in a line of its own.
std::string profile_text(const NetworkReport& report, const Profile& profile,
                         const ProfileView& view, size_t width);

/// The member "profile": every kernel, and the sums by kind.
void add_profile(JsonText& json, const NetworkReport& report, const Profile& profile);

}  // namespace qrt_tool
