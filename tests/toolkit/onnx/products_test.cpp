#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "import_agreement.h"
#include "qrt_toolkit/simplify/simplify.h"
#include "tests/support/kernels.h"

// Products whose columns go different ways: their weights are cut, not what they make.

namespace marlo::toolkit::test {
namespace {

constexpr int kOpset = 13;

std::string numbers(size_t count) {
  std::string list;
  for (size_t i = 0; i < count; ++i) {
    list += (i == 0 ? "" : ", ") + std::to_string(static_cast<int>(i * 7 % 13) - 6) + "e-1";
  }
  return list;
}

/// A graph of x [2, 3, 8] with a matrix w [8, 96], the same turned as t, a row b of 96 numbers, and
/// what lists of numbers it needs besides.
std::string wide(const std::string& body, const std::string& outputs = "float[u,v,w,x] y",
                 const std::string& inputs = "float[2,3,8] x") {
  return "g (" + inputs + ") => (" + outputs + ") <float[8,96] w = {" + numbers(768) +
         "}, float[96,8] t = {" + numbers(768) + "}, float[96] b = {" + numbers(96) +
         "}, int64[1] zero = {0}, int64[1] first = {32}, int64[1] second = {64}, int64[1] end = "
         "{96}, int64[1] last = {-1}, int64[1] front = {1}, int64[1] two = {2}> { " +
         body + " }";
}

/// How often each operator stands in what is left of a graph.
std::map<std::string, int> counts_after_simplifying(const std::string& text) {
  Graph graph = model_of(text, kOpset).graph;
  simplify(graph);
  std::map<std::string, int> counts;
  for (const NodeId id : graph.order()) ++counts[graph.node(id).op];
  return counts;
}

bool is_left_alone(const std::string& text) {
  Graph graph = model_of(text, kOpset).graph;
  return !cut_products(graph);
}

/// Several products stay where one was, nothing cuts what they make, and the import computes the
/// same.
void expect_products(const std::string& text, const std::string& op, int count,
                     const Shapes& inputs = {{"x", {2, 3, 8}}}) {
  SCOPED_TRACE(text.substr(text.rfind("> {")));
  const auto counts = counts_after_simplifying(text);
  EXPECT_EQ(counts.count(op) != 0 ? counts.at(op) : 0, count);
  for (const char* const cut : {"Slice", "Split", "Gather"})
    EXPECT_EQ(counts.count(cut), 0u) << cut;
  expect_agreement(text, kOpset, inputs);
}

TEST(CutProducts, SlicesOfTheLastAxis) {
  const std::string parts = R"(q = Slice(p, zero, first, last) k = Slice(p, first, second, two)
      v = Slice(p, second, end, last) s = Mul(q, k) y = Add(s, v))";
  const std::string output = "float[u,v,w] y";
  expect_products(wide("p = MatMul(x, w) " + parts, output), "MatMul", 3);
  expect_products(wide("m = MatMul(x, w) p = Add(m, b) " + parts, output), "MatMul", 3);
}

TEST(CutProducts, PartsOfUnevenSizes) {
  expect_products(wide(R"(sizes = Constant<value_ints=[17, 48, 31]>() m = MatMul(x, w)
                          p = Add(m, b) q, k, v = Split<axis=-1>(p, sizes)
                          y = Concat<axis=-1>(v, q, k))",
                       "float[u,v,w] y"),
                  "MatMul", 3);
}

TEST(CutProducts, APartThatNobodyReadsIsNotComputed) {
  expect_products(
      wide("p = MatMul(x, w) q = Slice(p, first, end, last) y = Relu(q)", "float[u,v,w] y"),
      "MatMul", 1);
  expect_products(
      wide("p = MatMul(x, w) q, k, v = Split<axis=2>(p) y = Sub(q, v)", "float[u,v,w] y"), "MatMul",
      2);
}

TEST(CutProducts, OfGemmsWithEitherMatrix) {
  const Shapes rows = {{"x", {5, 8}}};
  const std::string parts = " q, k, v = Split<axis=-1>(p) s = Mul(q, k) y = Add(s, v)";
  const auto text = [&](const std::string& gemm) {
    return wide(gemm + parts, "float[u,v] y", "float[5,8] x");
  };
  expect_products(text("p = Gemm<alpha=0.5>(x, w, b)"), "Gemm", 3, rows);
  expect_products(text("p = Gemm<transB=1>(x, t, b)"), "Gemm", 3, rows);
  expect_products(text("p = Gemm<transB=1>(x, t)"), "Gemm", 3, rows);
}

TEST(CutProducts, PartsOfAnAxisBehindATransposition) {
  const std::string heads =
      R"(shape = Constant<value_ints=[2, 3, 3, 4, 8]>() m = MatMul(x, w) p = Add(m, b)
         r = Reshape(p, shape) h = Transpose<perm=[2, 0, 3, 1, 4]>(r) )";
  const std::string attention =
      " t_ = Transpose<perm=[0, 1, 3, 2]>(k) s = MatMul(q, t_) y = MatMul(s, v)";
  expect_products(wide(heads +
                       R"(i0 = Constant<value_int=0>() i1 = Constant<value_int=1>()
                          i2 = Constant<value_int=-1>() q = Gather<axis=0>(h, i0)
                          k = Gather<axis=0>(h, i1) v = Gather<axis=0>(h, i2))" +
                       attention),
                  "MatMul", 5);
  expect_products(wide(heads +
                       R"(a, b_, c = Split<axis=0>(h) q = Squeeze(a, zero) k = Squeeze(b_, zero)
                          v = Squeeze(c, zero))" +
                       attention),
                  "MatMul", 5);
  expect_products(wide(R"(shape = Constant<value_ints=[2, 3, 3, 4, 8]>() p = MatMul(x, w)
                          r = Reshape(p, shape) h = Transpose<perm=[0, 3, 2, 1, 4]>(r)
                          i = Constant<value_int=2>() z = Gather<axis=2>(h, i) y = Relu(z))"),
                  "MatMul", 1);
}

TEST(CutProducts, WhatIsReadOtherwiseStaysWhole) {
  const std::string cut = " q = Slice(p, zero, first, last) ";
  const std::string output = "float[u,v,w] y";
  EXPECT_TRUE(is_left_alone(
      wide("p = MatMul(x, w)" + cut + "r = Relu(p) s = Slice(r, zero, first, last) y = Add(q, s)",
           output)));
  EXPECT_TRUE(is_left_alone(
      wide("p = MatMul(x, w)" + cut + "y = Relu(q)", "float[u,v,w] y, float[u,v,w] p")))
      << "the network returns it";
  EXPECT_TRUE(is_left_alone(
      wide("p = MatMul(x, w)" + cut + "k = Slice(p, zero, end, last) y = Concat<axis=-1>(q, k)",
           output)))
      << "columns are read twice";
  EXPECT_TRUE(is_left_alone(wide("p = MatMul(x, w) y = Slice(p, zero, first, front)", output)))
      << "another axis is cut";
  EXPECT_TRUE(is_left_alone(
      wide("n = Constant<value_ints=[3]>() p = MatMul(x, w) y = Slice(p, zero, n, last)", output)))
      << "too few columns to fill a vector";
  EXPECT_TRUE(is_left_alone(
      wide("p = MatMul(x, z)" + cut + "y = Relu(q)", output, "float[2,3,8] x, float[8,96] z")))
      << "the matrix isn't known";
}

TEST(CutProducts, AnAxisThatIsNotTheFirstOfTheColumnsStaysWhole) {
  EXPECT_TRUE(is_left_alone(
      wide(R"(shape = Constant<value_ints=[2, 3, 4, 3, 8]>() p = MatMul(x, w) r = Reshape(p, shape)
              h = Transpose<perm=[3, 0, 2, 1, 4]>(r) i = Constant<value_int=0>()
              y = Gather<axis=0>(h, i))")));
  EXPECT_TRUE(is_left_alone(
      wide(R"(shape = Constant<value_ints=[2, 3, 3, 4, 8]>() p = MatMul(x, w) r = Reshape(p, shape)
              h = Transpose<perm=[2, 0, 3, 1, 4]>(r) i = Constant<value_ints=[0, 2]>()
              y = Gather<axis=0>(h, i))",
           "float[u,v,w,x,z] y")));
}

}  // namespace
}  // namespace marlo::toolkit::test
