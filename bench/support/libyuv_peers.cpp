#include <cstddef>
#include <cstdint>

#include "bench/support/image_peers.h"
#include "bench/support/pictures.h"

#ifdef QRT_BENCH_WITH_LIBYUV
#include <libyuv.h>
#endif

namespace marlo::bench {

#ifdef QRT_BENCH_WITH_LIBYUV

namespace {

constexpr int kW = kPictureWidth;
constexpr int kH = kPictureHeight;
constexpr size_t kPixels = size_t{kPictureWidth} * kPictureHeight;

struct LibyuvCase {
  const char* name;
  std::optional<double> tolerance;
  void (*function)(const uint8_t* from, uint8_t* to);
};

// Its names of pixels are those of little-endian words: RAW is red first, ARGB blue first.
const LibyuvCase kCases[] = {
    {"nv12_to_rgb",
     {},
     [](const uint8_t* from, uint8_t* to) {
       libyuv::NV12ToRAW(from, kW, from + kPixels, kW, to, 3 * kW, kW, kH);
     }},
    {"hwc_to_chw_bytes", 0,
     [](const uint8_t* from, uint8_t* to) {
       libyuv::SplitRGBPlane(from, 3 * kW, to, kW, to + kPixels, kW, to + 2 * kPixels, kW, kW, kH);
     }},
    {"rgb_to_bgr_planes", 0,
     [](const uint8_t* from, uint8_t* to) {
       libyuv::SplitRGBPlane(from, 3 * kW, to + 2 * kPixels, kW, to + kPixels, kW, to, kW, kW, kH);
     }},
    {"chw_to_hwc_bytes", 0,
     [](const uint8_t* from, uint8_t* to) {
       libyuv::MergeRGBPlane(from, kW, from + kPixels, kW, from + 2 * kPixels, kW, to, 3 * kW, kW,
                             kH);
     }},
    {"gray_of_rgb", 1,
     [](const uint8_t* from, uint8_t* to) { libyuv::RAWToJ400(from, 3 * kW, to, kW, kW, kH); }},
    {"turn_90_c1", 0,
     [](const uint8_t* from, uint8_t* to) { libyuv::RotatePlane90(from, kW, to, kH, kW, kH); }},
    {"turn_270_c1", 0,
     [](const uint8_t* from, uint8_t* to) { libyuv::RotatePlane270(from, kW, to, kH, kW, kH); }},
    {"turn_180_c1", 0,
     [](const uint8_t* from, uint8_t* to) { libyuv::RotatePlane180(from, kW, to, kW, kW, kH); }},
    {"flip_horizontal_c1", 0,
     [](const uint8_t* from, uint8_t* to) { libyuv::MirrorPlane(from, kW, to, kW, kW, kH); }},
    {"flip_horizontal_c3", 0,
     [](const uint8_t* from, uint8_t* to) {
       libyuv::RGB24Mirror(from, 3 * kW, to, 3 * kW, kW, kH);
     }},
    {"flip_vertical_c3", 0,
     [](const uint8_t* from, uint8_t* to) {
       libyuv::CopyPlane(from, 3 * kW, to, 3 * kW, 3 * kW, -kH);
     }},
};

}  // namespace

std::optional<ImagePeer> libyuv_peer(const std::string& name, void* from, void* to) {
  for (const LibyuvCase& use : kCases) {
    if (name != use.name) continue;
    return ImagePeer{{"x libyuv",
                      [&use, from, to] {
                        use.function(static_cast<const uint8_t*>(from), static_cast<uint8_t*>(to));
                      }},
                     use.tolerance};
  }
  return std::nullopt;
}

#else

std::optional<ImagePeer> libyuv_peer(const std::string&, void*, void*) { return std::nullopt; }

#endif

std::vector<ImagePeer> image_peers(const std::string& name, void* from, void* to) {
  std::vector<ImagePeer> peers;
  for (const auto& peer : {opencv_peer(name, from, to), libyuv_peer(name, from, to)}) {
    if (peer) peers.push_back(*peer);
  }
  return peers;
}

}  // namespace marlo::bench
