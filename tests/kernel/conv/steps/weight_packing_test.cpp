#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "qrt_core/kernel/conv/steps/weight_packing.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;

using Dims = std::vector<uint32_t>;

struct Index {
  uint32_t g, n, c, h, w;
};

// A packing function with its documented shape and place of an element.
struct Packing {
  std::string name;
  std::shared_ptr<TensorCPU> (*pack)(std::shared_ptr<TensorCPU>,
                                     std::shared_ptr<runtime::DeviceCPU>);
  uint32_t layout;
  std::function<Dims(uint32_t g, uint32_t n, uint32_t c, uint32_t h, uint32_t w)> dims;
  std::function<Dims(const Index&)> place;
};

std::vector<Packing> all_packings() {
  using namespace kernel::functional;
  return {
      {"GN4C4HW4n4c_SSE", Function_Weight_GNCHW_To_GN4C4HW4n4c_SSE, 12,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n / 4, c / 4, h, w, 4, 4}; },
       [](const Index& i) { return Dims{i.g, i.n / 4, i.c / 4, i.h, i.w, i.c % 4, i.n % 4}; }},
      {"GN4C4HW4n4c_AVX", Function_Weight_GNCHW_To_GN4C4HW4n4c_AVX, 12,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n / 4, c / 4, h, w, 4, 4}; },
       [](const Index& i) { return Dims{i.g, i.n / 4, i.c / 4, i.h, i.w, i.n % 4, i.c % 4}; }},
      {"GN8C8HW8n8c", Function_Weight_GNCHW_To_GN8C8HW8n8c, 36,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n / 8, c / 8, h, w, 8, 8}; },
       [](const Index& i) { return Dims{i.g, i.n / 8, i.c / 8, i.h, i.w, i.c % 8, i.n % 8}; }},
      {"GN4C8HW8", Function_Weight_GNCHW_To_GN4C8HW8, 37,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n / 4, c / 8, h, w, 4, 8}; },
       [](const Index& i) { return Dims{i.g, i.n / 4, i.c / 8, i.h, i.w, i.n % 4, i.c % 8}; }},
      {"GN8C4HW4", Function_Weight_GNCHW_To_GN8C4HW4, 38,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n / 8, c / 4, h, w, 8, 4}; },
       [](const Index& i) { return Dims{i.g, i.n / 8, i.c / 4, i.h, i.w, i.n % 8, i.c % 4}; }},
      {"GN4CHWn4", Function_Weight_GNCHW_To_GN4CHWn4, 19,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n / 4, c, h, w, 4}; },
       [](const Index& i) { return Dims{i.g, i.n / 4, i.c, i.h, i.w, i.n % 4}; }},
      {"GN8CHWn8", Function_Weight_GNCHW_To_GN8CHWn8, 20,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n / 8, c, h, w, 8}; },
       [](const Index& i) { return Dims{i.g, i.n / 8, i.c, i.h, i.w, i.n % 8}; }},
      {"GNC8HWc8", Function_Weight_GNCHW_To_GNC8HWc8, 20,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n, c / 8, h, w, 8}; },
       [](const Index& i) { return Dims{i.g, i.n, i.c / 8, i.h, i.w, i.c % 8}; }},
      {"GNC4HWc4", Function_Weight_GNCHW_To_GNC4HWc4, 19,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g, n, c / 4, h, w, 4}; },
       [](const Index& i) { return Dims{i.g, i.n, i.c / 4, i.h, i.w, i.c % 4}; }},
      {"G4NCHWg4", Function_Weight_GNCHW_To_G4NCHWg4, 17,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g / 4, n, c, h, w, 4}; },
       [](const Index& i) { return Dims{i.g / 4, i.n, i.c, i.h, i.w, i.g % 4}; }},
      {"G8NCHWg8", Function_Weight_GNCHW_To_G8NCHWg8, 18,
       [](auto g, auto n, auto c, auto h, auto w) { return Dims{g / 8, n, c, h, w, 8}; },
       [](const Index& i) { return Dims{i.g / 8, i.n, i.c, i.h, i.w, i.g % 8}; }},
  };
}

// Offset of a place in a dense array, or -1 outside of it.
long offset_of(const Dims& place, const Dims& dims) {
  size_t offset = 0;
  for (size_t axis = 0; axis < dims.size(); ++axis) {
    if (place[axis] >= dims[axis]) return -1;
    offset = offset * dims[axis] + place[axis];
  }
  return static_cast<long>(offset);
}

class WeightPacking : public testing::TestWithParam<Packing> {
 protected:
  std::shared_ptr<TensorCPU> weights(const Dims& dims) {
    std::vector<float> values(size_t{dims[0]} * dims[1] * dims[2] * dims[3] * dims[4]);
    for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);
    return context_.floats(dims, LayoutType::GNCHW, values);
  }

  TestContext context_;
};

TEST_P(WeightPacking, puts_each_element_where_it_is_documented) {
  const Packing& packing = GetParam();
  for (const Dims& dims :
       {Dims{1, 8, 8, 3, 3}, Dims{2, 16, 24, 1, 3}, Dims{1, 1, 1, 1, 1}, Dims{3, 9, 13, 2, 1},
        Dims{17, 1, 1, 3, 3}, Dims{8, 2, 3, 1, 1}, Dims{1, 23, 15, 1, 1}, Dims{0, 8, 8, 1, 1}}) {
    const auto source = weights(dims);
    const auto packed = packing.pack(source, context_.device());
    ASSERT_NE(packed, nullptr);
    const Dims expected = packing.dims(dims[0], dims[1], dims[2], dims[3], dims[4]);
    ASSERT_TRUE(packed->shape ==
                TensorShape(expected, DataType::FLOAT32, static_cast<LayoutType>(packing.layout)));
    const std::vector<float> values = values_of(*packed);
    size_t found = 0;
    float number = 0.0f;
    for (uint32_t g = 0; g < dims[0]; ++g) {
      for (uint32_t n = 0; n < dims[1]; ++n) {
        for (uint32_t c = 0; c < dims[2]; ++c) {
          for (uint32_t h = 0; h < dims[3]; ++h) {
            for (uint32_t w = 0; w < dims[4]; ++w, ++number) {
              const long offset = offset_of(packing.place({g, n, c, h, w}), expected);
              if (offset < 0) continue;
              ASSERT_EQ(values[static_cast<size_t>(offset)], number);
              ++found;
            }
          }
        }
      }
    }
    EXPECT_EQ(found, values.size()) << "elements that come from nowhere";
    context_.pool().check();
  }
}

TEST_P(WeightPacking, gives_nothing_for_other_tensors) {
  const auto with_shape = [this](Dims dims, DataType type, LayoutType layout) {
    return context_.device()->CreateTensor(TensorShape(std::move(dims), type, layout), nullptr);
  };
  const Dims dims = {8, 8, 8, 1, 1};
  const auto pack = [this](std::shared_ptr<TensorCPU> weight) {
    return GetParam().pack(weight, context_.device());
  };
  EXPECT_NE(pack(with_shape(dims, DataType::FLOAT32, LayoutType::GNCHW)), nullptr);
  EXPECT_EQ(pack(with_shape(dims, DataType::FLOAT32, LayoutType::FLEXIABLE)), nullptr);
  EXPECT_EQ(pack(with_shape(dims, DataType::FLOAT16, LayoutType::GNCHW)), nullptr);
  EXPECT_EQ(pack(with_shape({8, 8, 8, 1}, DataType::FLOAT32, LayoutType::GNCHW)), nullptr);
  const auto elsewhere = weights(dims);
  elsewhere->shape.location = LocationType::OpenGLSSBO;
  EXPECT_EQ(pack(elsewhere), nullptr);
  elsewhere->shape.location = LocationType::MainMemory;
}

INSTANTIATE_TEST_SUITE_P(Functions, WeightPacking, testing::ValuesIn(all_packings()),
                         [](const auto& packing) { return packing.param.name; });

}  // namespace
}  // namespace marlo::test
