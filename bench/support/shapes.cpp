#include "bench/support/shapes.h"

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

#include "tests/support/paths.h"

namespace marlo::bench {
namespace {

using Kind = ConvShape::Kind;

// Shapes are read while other files' globals are made.
const std::string& list() {
  static const std::string path = test::source_path("bench/shapes.txt");
  return path;
}

[[noreturn]] void fail(size_t number, const std::string& what) {
  throw std::runtime_error(list() + ":" + std::to_string(number) + ": " + what);
}

// A size for both directions, or "1x3" for the vertical and the horizontal one.
struct Pair {
  int vertical = 0;
  int horizontal = 0;

  friend std::istream& operator>>(std::istream& words, Pair& pair) {
    if (!(words >> pair.vertical)) return words;
    pair.horizontal = pair.vertical;
    if (words.peek() == 'x' && words.ignore()) words >> pair.horizontal;
    return words;
  }
};

ConvShape parse(const std::string& line, size_t number) {
  static const std::map<std::string, Kind> kinds = {
      {"plane", Kind::plane}, {"transposed", Kind::transposed}, {"line", Kind::line}};
  std::istringstream words(line);
  ConvShape shape;
  std::string network, layer, kind;
  test::ConvCase& sizes = shape.sizes;
  uint32_t stride = 0, dilation = 1;
  Pair kernel, padding;
  words >> network >> layer >> kind >> sizes.in_channels >> sizes.out_channels >> sizes.height >>
      sizes.width >> kernel >> stride >> padding >> sizes.groups;
  const bool is_layer = !words.fail();
  if (is_layer && !(words >> std::ws).eof()) words >> dilation;
  const bool is_dilation = is_layer && (words.eof() || !words.fail());
  if (!is_dilation || !(words >> std::ws).eof()) fail(number, "not a layer: " + line);
  const auto found = kinds.find(kind);
  if (found == kinds.end()) fail(number, "no such kind: " + kind);
  if (kernel.vertical < 1 || kernel.horizontal < 1 || stride == 0 || dilation == 0 ||
      sizes.groups == 0) {
    fail(number, "zero size: " + line);
  }

  shape.name = network + "/" + layer;
  shape.kind = found->second;
  sizes.kernel_x = static_cast<uint32_t>(kernel.horizontal);
  sizes.stride_x = stride;
  sizes.dilation_x = dilation;
  if (shape.kind != Kind::line) {
    sizes.kernel_y = static_cast<uint32_t>(kernel.vertical);
    sizes.stride_y = stride;
    sizes.dilation_y = dilation;
  }
  // The description of a transposed layer holds what its gather adds, not what it cuts off.
  if (shape.kind == Kind::transposed) {
    padding.horizontal = sizes.extent_x() - 1 - padding.horizontal;
    padding.vertical = sizes.extent_y() - 1 - padding.vertical;
  }
  sizes.padding_l = sizes.padding_r = padding.horizontal;
  if (shape.kind != Kind::line) sizes.padding_t = sizes.padding_b = padding.vertical;
  return shape;
}

std::vector<ConvShape> read_shapes() {
  std::ifstream file(list());
  if (!file) throw std::runtime_error("can't read " + list());
  std::vector<ConvShape> shapes;
  size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (!line.empty() && line[0] != '#') shapes.push_back(parse(line, number));
  }
  return shapes;
}

}  // namespace

uint32_t places(uint32_t size, int paddings, int extent, uint32_t stride) {
  return (size + static_cast<uint32_t>(paddings - extent)) / stride + 1;
}

double ConvShape::multiply_adds() const {
  const double taps = static_cast<double>(sizes.weight_size());
  if (kind == Kind::transposed) return taps * sizes.height * sizes.width;
  return taps *
         places(sizes.height, sizes.padding_t + sizes.padding_b, sizes.extent_y(), sizes.stride_y) *
         places(sizes.width, sizes.padding_l + sizes.padding_r, sizes.extent_x(), sizes.stride_x);
}

const std::vector<ConvShape>& conv_shapes() {
  static const std::vector<ConvShape> shapes = read_shapes();
  return shapes;
}

}  // namespace marlo::bench
