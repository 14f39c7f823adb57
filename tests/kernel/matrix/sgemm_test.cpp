#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "qrt_core/kernel/matrix/sgemm.h"
#include "qrt_core/utility/build_options.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/numbers.h"

#if QRT_WITH_SGEMM

namespace {

using marlo::kernel::Sgemm;
using marlo::test::Random;
using marlo::test::Sum;

struct Shape {
  int m, k, n;
};

size_t product(int a, int b) { return static_cast<size_t>(a) * static_cast<size_t>(b); }

// Each element of alpha * A * B + beta * C as one sum.
std::vector<Sum> expected_product(const Shape& shape, float alpha, const std::vector<float>& a,
                                  const std::vector<float>& b, float beta,
                                  const std::vector<float>& c) {
  std::vector<Sum> sums(product(shape.m, shape.n));
  for (int row = 0; row < shape.m; ++row) {
    for (int column = 0; column < shape.n; ++column) {
      const size_t place = product(row, shape.n) + static_cast<size_t>(column);
      Sum& sum = sums[place];
      if (beta != 0.0f) sum.add(static_cast<double>(beta) * c[place]);
      for (int i = 0; i < shape.k; ++i) {
        const double left = a[product(row, shape.k) + static_cast<size_t>(i)];
        const double right = b[product(i, shape.n) + static_cast<size_t>(column)];
        sum.add(static_cast<double>(alpha) * left * right);
      }
    }
  }
  return sums;
}

std::vector<Shape> odd_shapes() {
  std::vector<Shape> shapes;
  for (const int m : {1, 2, 7, 17, 33}) {
    for (const int k : {1, 3, 16, 31}) {
      for (const int n : {1, 5, 8, 19}) shapes.push_back({m, k, n});
    }
  }
  shapes.push_back({1, 300, 1});
  shapes.push_back({257, 129, 1});
  shapes.push_back({1, 65, 130});
  return shapes;
}

std::string name_of(const Shape& shape) {
  return std::to_string(shape.m) + " x " + std::to_string(shape.k) + " x " +
         std::to_string(shape.n);
}

TEST(Sgemm, IsExactOnSmallIntegers) {
  Random random(1);
  for (const Shape& shape : odd_shapes()) {
    SCOPED_TRACE(name_of(shape));
    const auto a = random.small_integers(product(shape.m, shape.k));
    const auto b = random.small_integers(product(shape.k, shape.n));
    const auto c = random.small_integers(product(shape.m, shape.n));
    for (const float beta : {0.0f, 1.0f, -2.0f}) {
      auto result = c;
      Sgemm(shape.m, shape.k, shape.n, 3.0f, a.data(), b.data(), beta, result.data());
      EXPECT_TRUE(marlo::test::exactly(result, expected_product(shape, 3.0f, a, b, beta, c)));
    }
  }
}

TEST(Sgemm, StaysWithinTheErrorOfItsSums) {
  Random random(2);
  for (const Shape& shape : odd_shapes()) {
    SCOPED_TRACE(name_of(shape));
    const auto a = random.floats(product(shape.m, shape.k));
    const auto b = random.floats(product(shape.k, shape.n));
    const auto c = random.floats(product(shape.m, shape.n));
    auto result = c;
    Sgemm(shape.m, shape.k, shape.n, 1.0f, a.data(), b.data(), 1.0f, result.data());
    EXPECT_TRUE(marlo::test::within_bounds(result, expected_product(shape, 1.0f, a, b, 1.0f, c)));
  }
}

TEST(Sgemm, OverwritesWhatWasThereForABetaOfZero) {
  const std::vector<float> a = {1, 2, 3, 4, 5, 6};
  const std::vector<float> b = {1, 0, 0, 1, 1, 1};
  std::vector<float> c(4, marlo::test::kNaN);
  Sgemm(2, 3, 2, 1.0f, a.data(), b.data(), 0.0f, c.data());
  EXPECT_EQ(c, (std::vector<float>{4, 5, 10, 11}));
}

TEST(Sgemm, ScalesTheResultWhereThereIsNothingToMultiply) {
  std::vector<float> c = {1, 2, 3, 4};
  Sgemm(2, 0, 2, 1.0f, nullptr, nullptr, 0.5f, c.data());
  EXPECT_EQ(c, (std::vector<float>{0.5f, 1, 1.5f, 2}));
}

TEST(Sgemm, DoesNothingToAnEmptyResult) {
  const std::vector<float> a = {1, 2};
  Sgemm(0, 2, 3, 1.0f, a.data(), a.data(), 0.0f, nullptr);
  Sgemm(2, 1, 0, 1.0f, a.data(), a.data(), 0.0f, nullptr);
}

TEST(Sgemm, RefusesNegativeSizes) {
  const marlo::test::LogCapture log;
  float c = 1;
  const auto failure = marlo::test::failure_of([&] { Sgemm(1, -1, 1, 1.0f, &c, &c, 0.0f, &c); });
  EXPECT_NE(failure.find("1 x -1 x 1"), std::string::npos) << failure;
  EXPECT_EQ(c, 1.0f);
}

#ifdef __linux__
TEST(Sgemm, StartsNoThreads) {
  const char* const launcher = std::getenv("QRT_TEST_LAUNCHER");
  if (launcher != nullptr && *launcher != '\0') GTEST_SKIP() << "an emulator has its own threads";
  Random random(3);
  constexpr int kSize = 300;  // large enough for a threaded BLAS to divide the work
  const auto a = random.floats(product(kSize, kSize));
  std::vector<float> c(a.size());
  Sgemm(kSize, kSize, kSize, 1.0f, a.data(), a.data(), 0.0f, c.data());
  EXPECT_TRUE(std::isfinite(c[0]));
  const auto threads = std::filesystem::directory_iterator("/proc/self/task");
  EXPECT_EQ(std::distance(begin(threads), end(threads)), 1);
}
#endif

}  // namespace

#endif
