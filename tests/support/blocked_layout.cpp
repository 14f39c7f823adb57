#include "tests/support/blocked_layout.h"

#include <cstddef>

namespace marlo::test {

using runtime::BlockSize;
using runtime::LayoutType;

namespace {

uint32_t blocks_of(uint32_t channels, LayoutType layout) {
  return (channels + BlockSize(layout) - 1) / BlockSize(layout);
}

// Where channel c of a pixel stands among `pixels` pixels.
size_t place(size_t c, size_t pixel, size_t pixels, size_t block) {
  return ((c / block) * pixels + pixel) * block + c % block;
}

}  // namespace

std::vector<uint32_t> dims_in_layout(std::vector<uint32_t> planar, LayoutType layout) {
  if (BlockSize(layout) == 1) return planar;
  planar[0] = blocks_of(planar[0], layout);
  planar.push_back(BlockSize(layout));
  return planar;
}

std::vector<float> to_layout(const std::vector<float>& planes, uint32_t channels, LayoutType layout,
                             float filler) {
  if (BlockSize(layout) == 1 || channels == 0) return planes;
  const size_t block = BlockSize(layout);
  const size_t pixels = planes.size() / channels;
  std::vector<float> elements(blocks_of(channels, layout) * pixels * block, filler);
  for (size_t c = 0; c < channels; ++c) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      elements[place(c, pixel, pixels, block)] = planes[c * pixels + pixel];
    }
  }
  return elements;
}

std::vector<float> from_layout(const std::vector<float>& elements, uint32_t channels,
                               LayoutType layout) {
  if (BlockSize(layout) == 1 || channels == 0) return elements;
  const size_t block = BlockSize(layout);
  const size_t pixels = elements.size() / (blocks_of(channels, layout) * block);
  std::vector<float> planes(channels * pixels);
  for (size_t c = 0; c < channels; ++c) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      planes[c * pixels + pixel] = elements[place(c, pixel, pixels, block)];
    }
  }
  return planes;
}

}  // namespace marlo::test
