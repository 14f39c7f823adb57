#include "bench/support/image_peers.h"
#include "bench/support/pictures.h"

#ifdef QRT_BENCH_WITH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace marlo::bench {

#ifdef QRT_BENCH_WITH_OPENCV

namespace {

constexpr int kH = kPictureHeight;
constexpr int kW = kPictureWidth;
constexpr int kSide = kWarpSide;

struct Form {
  int rows, columns, type;

  cv::Mat over(void* buffer) const { return cv::Mat(rows, columns, type, buffer); }
};

constexpr Form kPlane{kH, kW, CV_8UC1};
constexpr Form kTurnedPlane{kW, kH, CV_8UC1};
constexpr Form kPlanes{3 * kH, kW, CV_8UC1};  // one below the other
constexpr Form kFloatPlanes{3 * kH, kW, CV_32FC1};
constexpr Form kPixels{kH, kW, CV_8UC3};
constexpr Form kTurnedPixels{kW, kH, CV_8UC3};
constexpr Form kFourBytes{kH, kW, CV_8UC4};
constexpr Form kWarpPlanes{3 * kSide, kSide, CV_32FC1};

struct OpencvCase {
  const char* name;
  Form from, to;
  std::optional<double> tolerance;
  void (*function)(const cv::Mat& from, cv::Mat& to);
};

cv::Mat plane(const cv::Mat& planes, int channel) {
  const int height = planes.rows / 3;
  return planes.rowRange(channel * height, (channel + 1) * height);
}

void split(const cv::Mat& from, cv::Mat& to) {
  cv::Mat planes[] = {plane(to, 0), plane(to, 1), plane(to, 2)};
  cv::split(from, planes);
}

void split_backwards(const cv::Mat& from, cv::Mat& to) {
  cv::Mat planes[] = {plane(to, 2), plane(to, 1), plane(to, 0)};
  cv::split(from, planes);
}

void merge(const cv::Mat& from, cv::Mat& to) {
  const cv::Mat planes[] = {plane(from, 0), plane(from, 1), plane(from, 2)};
  cv::merge(planes, 3, to);
}

// (x - mean) * scale as x * scale + offset.
void normalize(const cv::Mat& from, cv::Mat& to) {
  for (int c = 0; c < 3; ++c) {
    cv::Mat target = plane(to, c);
    plane(from, c).convertTo(target, CV_32F, kScale, -kMean * kScale);
  }
}

template <int code>
void color(const cv::Mat& from, cv::Mat& to) {
  cv::cvtColor(from, to, code);
}

template <int code>
void turn(const cv::Mat& from, cv::Mat& to) {
  cv::rotate(from, to, code);
}

template <int code>
void flip(const cv::Mat& from, cv::Mat& to) {
  cv::flip(from, to, code);
}

void resize(const cv::Mat& from, cv::Mat& to) {
  cv::resize(from, to, to.size(), 0, 0, cv::INTER_LINEAR);
}

void crop(const cv::Mat& from, cv::Mat& to) {
  from(cv::Rect(kCropLeft, kCropTop, to.cols, to.rows)).copyTo(to);
}

// The matrix of our warp in pixels.
void warp(const cv::Mat& from, cv::Mat& to) {
  constexpr double kHalf = kSide / 2.0;
  const float* const m = kWarpMatrix;
  const auto offset = [](double a, double b, double c) {
    return (1.0 + c) * kHalf - 0.5 + (0.5 - kHalf) * (a + b);
  };
  const cv::Mat matrix = (cv::Mat_<double>(2, 3) << m[0], m[1], offset(m[0], m[1], m[2]), m[3],
                          m[4], offset(m[3], m[4], m[5]));
  for (int c = 0; c < 3; ++c) {
    cv::Mat target = plane(to, c);
    cv::warpAffine(plane(from, c), target, matrix, target.size(),
                   cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
  }
}

// Its NV12 has other factors and clamps; its warp rounds places to 1 / 32 of a pixel and doesn't
// extrapolate.
const OpencvCase kCases[] = {
    {"gray_of_rgb", kPixels, kPlane, 1, color<cv::COLOR_RGB2GRAY>},
    {"gray_of_rgba", kFourBytes, kPlane, 1, color<cv::COLOR_RGBA2GRAY>},
    {"gray_by_function", kPixels, kPlane, 1, color<cv::COLOR_RGB2GRAY>},
    {"nv12_to_rgb", {kH / 2 * 3, kW, CV_8UC1}, kPixels, {}, color<cv::COLOR_YUV2RGB_NV12>},
    {"rgb_to_bgr_planes", kPixels, kPlanes, 0, split_backwards},
    {"hwc_to_chw_bytes", kPixels, kPlanes, 0, split},
    {"chw_to_hwc_bytes", kPlanes, kPixels, 0, merge},
    {"hwc_to_chw_floats", {kH, kW, CV_32FC3}, kFloatPlanes, 0, split},
    {"chw_to_hwc_floats", kFloatPlanes, {kH, kW, CV_32FC3}, 0, merge},
    {"bytes_to_floats", kPlanes, kFloatPlanes, 0,
     [](const cv::Mat& from, cv::Mat& to) { from.convertTo(to, CV_32F); }},
    {"normalize_bytes", kPlanes, kFloatPlanes, 1e-4, normalize},
    {"normalize_floats", kFloatPlanes, kFloatPlanes, 1e-4, normalize},
    {"turn_90_c1", kPlane, kTurnedPlane, 0, turn<cv::ROTATE_90_CLOCKWISE>},
    {"turn_90_c1_sse", kPlane, kTurnedPlane, 0, turn<cv::ROTATE_90_CLOCKWISE>},
    {"turn_180_c1", kPlane, kPlane, 0, turn<cv::ROTATE_180>},
    {"turn_270_c1", kPlane, kTurnedPlane, 0, turn<cv::ROTATE_90_COUNTERCLOCKWISE>},
    {"turn_90_c3", kPixels, kTurnedPixels, 0, turn<cv::ROTATE_90_CLOCKWISE>},
    {"turn_180_c3", kPixels, kPixels, 0, turn<cv::ROTATE_180>},
    {"turn_270_c3", kPixels, kTurnedPixels, 0, turn<cv::ROTATE_90_COUNTERCLOCKWISE>},
    {"flip_horizontal_c1", kPlane, kPlane, 0, flip<1>},
    {"flip_horizontal_c3", kPixels, kPixels, 0, flip<1>},
    {"flip_vertical_c3", kPixels, kPixels, 0, flip<0>},
    {"crop_half_c3", kPixels, {kH / 2, kW / 2, CV_8UC3}, 0, crop},
    {"warp_512x512x3_floats", kWarpPlanes, kWarpPlanes, {}, warp},
};

ImagePeer peer(const Form& from, void* from_buffer, const Form& to, void* to_buffer,
               std::optional<double> tolerance,
               void (*function)(const cv::Mat& from, cv::Mat& to)) {
  cv::setNumThreads(1);
  return {{"x OpenCV", [source = from.over(from_buffer), target = to.over(to_buffer),
                        function]() mutable { function(source, target); }},
          tolerance};
}

}  // namespace

std::optional<ImagePeer> opencv_peer(const std::string& name, void* from, void* to) {
  for (const OpencvCase& use : kCases) {
    if (name == use.name) return peer(use.from, from, use.to, to, use.tolerance, use.function);
  }
  for (const ResizeCase& use : kResizes) {
    if (name != use.name) continue;
    const auto size = [](uint32_t height, uint32_t width) {
      return Form{static_cast<int>(height), static_cast<int>(width), CV_8UC3};
    };
    return peer(size(use.in_height, use.in_width), from, size(use.out_height, use.out_width), to, 1,
                resize);
  }
  return std::nullopt;
}

#else

std::optional<ImagePeer> opencv_peer(const std::string&, void*, void*) { return std::nullopt; }

#endif

}  // namespace marlo::bench
