#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bench/support/peer.h"

// Functions of OpenCV and libyuv for the work of our image operations, where they are installed, on
// one thread. They use all instructions that the processor has.

namespace marlo::bench {

struct ImagePeer : Peer {
  /// How far results may be from ours; none where they mean something else, as planes in another
  /// order.
  std::optional<double> tolerance;
};

/// The peers of the operation of that name, between our own buffers.
std::vector<ImagePeer> image_peers(const std::string& name, void* from, void* to);

/// @name Where each is installed; none otherwise
/// @{
std::optional<ImagePeer> opencv_peer(const std::string& name, void* from, void* to);
std::optional<ImagePeer> libyuv_peer(const std::string& name, void* from, void* to);
/// @}

}  // namespace marlo::bench
