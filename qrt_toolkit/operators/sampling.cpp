#include "qrt_toolkit/operators/sampling.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "qrt_toolkit/operators/cubic.h"

namespace marlo::toolkit {
namespace {

enum class Padding : uint8_t { zeros, border, reflection };

/// One plane, and how it goes on beyond its edges.
struct Plane {
  const double* numbers;
  int64_t height;
  int64_t width;
  Padding padding;
  bool align_corners;

  /// `x` mirrored at the edges until it lies inside of them.
  double reflected(double x, int64_t size) const {
    const double low = align_corners ? 0 : -0.5;
    const double high =
        align_corners ? static_cast<double>(size - 1) : static_cast<double>(size) - 0.5;
    const double range = high - low;
    if (range <= 0) return 0;
    double distance = std::fabs(x - low);
    distance = std::fmod(distance, 2 * range);
    return distance > range ? high - (distance - range) : low + distance;
  }

  /// A coordinate as the padding has it; with zeros it stays outside.
  double moved_inside(double x, int64_t size) const {
    if (padding == Padding::zeros) return x;
    if (padding == Padding::reflection) x = reflected(x, size);
    return std::clamp(x, 0.0, static_cast<double>(size - 1));
  }

  /// The pixel at whole coordinates.
  double at(double y, double x) const {
    y = moved_inside(y, height);
    x = moved_inside(x, width);
    if (!(y >= 0 && x >= 0 && y <= static_cast<double>(height - 1) &&
          x <= static_cast<double>(width - 1))) {
      return 0;
    }
    return numbers[static_cast<int64_t>(y) * width + static_cast<int64_t>(x)];
  }

  double nearest(double y, double x) const { return at(std::nearbyint(y), std::nearbyint(x)); }

  double linear(double y, double x) const {
    y = moved_inside(y, height);
    x = moved_inside(x, width);
    const double top = std::floor(y);
    const double left = std::floor(x);
    const double down = y - top;
    const double right = x - left;
    return (1 - down) * ((1 - right) * at(top, left) + right * at(top, left + 1)) +
           down * ((1 - right) * at(top + 1, left) + right * at(top + 1, left + 1));
  }

  double cubic(double y, double x) const {
    const double top = std::floor(y);
    const double left = std::floor(x);
    const auto rows = cubic_weights(y - top, -0.75);
    const auto columns = cubic_weights(x - left, -0.75);
    double sum = 0;
    for (size_t i = 0; i < 4; ++i) {
      double row = 0;
      for (size_t k = 0; k < 4; ++k) {
        row += columns[k] * at(top - 1 + static_cast<double>(i), left - 1 + static_cast<double>(k));
      }
      sum += rows[i] * row;
    }
    return sum;
  }
};

Padding padding_of(const Node& node) {
  const std::string text = node.text("padding_mode", "zeros");
  if (text == "zeros") return Padding::zeros;
  if (text == "border") return Padding::border;
  if (text == "reflection") return Padding::reflection;
  throw NodeFault{"padding_mode", "\"" + text + "\" is none of zeros, border, reflection"};
}

/// From -1 ... 1 to pixels.
double pixel_of(double x, int64_t size, bool align_corners) {
  const auto pixels = static_cast<double>(size);
  return align_corners ? (x + 1) / 2 * (pixels - 1) : ((x + 1) * pixels - 1) / 2;
}

template <class Sizes>
void check_axes(const Sizes& picture, const Sizes& grid) {
  if (picture.size() != 4 || grid.size() != 4) {
    throw NodeFault{"inputs", "expected a picture and a grid of four axes each, found " +
                                  text_of(picture) + " and " + text_of(grid)};
  }
}

}  // namespace

Results grid_sample(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const Numbers& grid = inputs[1];
  check_axes(x.shape, grid.shape);
  if (grid.shape[3] != 2 || grid.shape[0] != x.shape[0]) {
    throw NodeFault{"input 1", "a grid of " + text_of(grid.shape) + " doesn't fit a picture of " +
                                   text_of(x.shape)};
  }
  const std::string mode = node.text("mode", "linear");
  if (mode != "linear" && mode != "nearest" && mode != "cubic") {
    throw NodeFault{"mode", "\"" + mode + "\" is none of linear, nearest, cubic"};
  }
  Plane plane{nullptr, x.shape[2], x.shape[3], padding_of(node),
              node.integer("align_corners", 0) != 0};
  Numbers result(x.type, {x.shape[0], x.shape[1], grid.shape[1], grid.shape[2]});
  const int64_t points = grid.shape[1] * grid.shape[2];
  double* out = result.reals().data();
  for (int64_t image = 0; image < x.shape[0]; ++image) {
    for (int64_t c = 0; c < x.shape[1]; ++c) {
      plane.numbers = x.reals().data() + (image * x.shape[1] + c) * plane.height * plane.width;
      const double* point = grid.reals().data() + image * points * 2;
      for (int64_t i = 0; i < points; ++i, point += 2) {
        const double px = pixel_of(point[0], plane.width, plane.align_corners);
        const double py = pixel_of(point[1], plane.height, plane.align_corners);
        *out++ = mode == "linear"    ? plane.linear(py, px)
                 : mode == "nearest" ? plane.nearest(py, px)
                                     : plane.cubic(py, px);
      }
    }
  }
  return {std::move(result)};
}

void infer_grid_sample(ShapeStep& step) {
  const Shape* x = step.shape(0);
  const Shape* grid = step.shape(1);
  std::optional<Shape> shape;
  if (x != nullptr && grid != nullptr) {
    check_axes(*x, *grid);
    shape = Shape{(*x)[0], (*x)[1], (*grid)[1], (*grid)[2]};
  }
  step.set(0, step.input(0).type, shape);
}

}  // namespace marlo::toolkit
