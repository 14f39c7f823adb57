#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>

#include "import_agreement.h"

// Elements that are taken, replaced or sorted by their places, as exporters write assignments to parts
// of a tensor, the best of a list, and the vector of one word.

namespace marlo::toolkit::test {
namespace {

using ::testing::HasSubstr;

TEST(Places, AnAssignmentToColumnsIsASliceAndAJoin) {
  const ImportedModel model =
      expect_agreement(R"(g (float[1,2,3] x, float[1,2,1] u) => (float[1,2,3] y)
      <int64[1,2,1,3] at = {0, 0, 1, 0, 1, 1}> {
    r = Relu(x)
    y = ScatterND(r, at, u)
  })",
                       13, {{"x", {1, 2, 3}}, {"u", {1, 2, 1}}});
  EXPECT_EQ(count_of_kernel(model, "Concatenate"), 1u);
  EXPECT_EQ(count_of_kernel(model, "Gather_"), 0u);
}

TEST(Places, ScatteredElementsInAnyOrderAndTwice) {
  // Every second row; no box; the last of two updates stands; sums in a box.
  expect_agreement(R"(g (float[5,2] x, float[2,2] u) => (float[5,2] y)
      <int64[2,1] at = {1, 3}> { y = ScatterND(x, at, u) })",
                   11, {{"x", {5, 2}}, {"u", {2, 2}}});
  expect_agreement(R"(g (float[6] x, float[4] u) => (float[6] y)
      <int64[4,1] at = {4, 0, -1, 4}> { y = ScatterND(x, at, u) })",
                   11, {{"x", {6}}, {"u", {4}}});
  expect_agreement(R"(g (float[5,3] x, float[2,2] u) => (float[5,3] y)
      <int64[2,2,2] at = {1, 0, 1, 2, 4, 0, 4, 2}> { y = ScatterND<reduction="add">(x, at, u) })",
                   16, {{"x", {5, 3}}, {"u", {2, 2}}});
  expect_agreement(R"(g (float[3,3] x, float[2,3] u) => (float[3,3] y)
      <int64[2,3] at = {1, 0, 2, 0, 2, -2}> { y = ScatterElements<axis=0>(x, at, u) })",
                   11, {{"x", {3, 3}}, {"u", {2, 3}}});
}

TEST(Places, GatheredTuplesOfConstantPlaces) {
  expect_agreement(R"(g (float[2,3,4] x) => (float[3,4] y)
      <int64[3,2] at = {0, 1, 1, 2, -2, 0}> { y = GatherND(x, at) })",
                   12, {{"x", {2, 3, 4}}});
  expect_agreement(R"(g (float[2,3,4] x) => (float[2,4] y)
      <int64[2,1] at = {1, 2}> { y = GatherND<batch_dims=1>(x, at) })",
                   12, {{"x", {2, 3, 4}}});
}

TEST(Places, TheFirstFewOfAll) {
  for (const char* graph :
       {"g (float[1,9] x) => (float[1,4] v, int64[1,4] p) <int64[1] k = {4}> "
        "{ v, p = TopK(x, k) }",
        "g (float[1,9] x) => (float[1,3] v, int64[1,3] p) <int64[1] k = {3}> "
        "{ v, p = TopK<largest=0, axis=1>(x, k) }",
        "g (float[1,9] x) => (int64[1,9] p) <int64[1] k = {9}> { v, p = TopK(x, k) }"}) {
    expect_agreement(graph, 11, {{"x", {1, 9}}});
  }
  // Equal numbers come in the order of their places.
  expect_agreement(R"(g (float[1,9] x) => (float[1,5] v, int64[1,5] p) <int64[1] k = {5}> {
    s = Sign(x)
    v, p = TopK(s, k)
  })",
                   11, {{"x", {1, 9}}});
  expect_agreement(R"(g (float[4,3] x) => (float[2,3] v, int64[2,3] p) <int64[1] k = {2}> {
    v, p = TopK<axis=0>(x, k)
  })",
                   11, {{"x", {4, 3}}});
}

// Scores that a mask takes away are infinite, and often fewer are left than are asked for: each place
// is named once, equal ones in their order.
TEST(Places, TheFirstFewOfAllWhereMostAreInfinite) {
  const double inf = std::numeric_limits<double>::infinity();
  const double lowest = std::numeric_limits<float>::lowest();
  const std::vector<Numbers::Reals> rows = {
      {-inf, 2, -inf, 7, -inf, -inf},
      {-inf, -inf, -inf, -inf, -inf, -inf},
      {3, 3, 3, 3, 3, 3},
      {inf, 1, inf, inf, 1, inf},
      {inf, -inf, 0, inf, lowest, -inf},
      {lowest, -inf, -lowest, -inf, lowest, -inf},
      {1, -inf, 1, -inf, -inf, -lowest},
  };
  for (const int k : {2, 4, 6}) {
    for (const int largest : {0, 1}) {
      const std::string top = "TopK<axis=1, largest=" + std::to_string(largest) + ">(x, k)";
      const ImportedModel model =
          imported("g (float[1,6] x) => (float[1," + std::to_string(k) + "] v, int64[1," +
                       std::to_string(k) + "] p) <int64[1] k = {" + std::to_string(k) +
                       "}> { v, p = " + top + " }",
                   11, {{"x", {1, 6}}});
      for (const Numbers::Reals& row : rows) {
        std::vector<double> places(row.size());
        std::iota(places.begin(), places.end(), 0.0);
        const auto at = [&](double place) { return row[static_cast<size_t>(place)]; };
        std::stable_sort(places.begin(), places.end(), [&](double a, double b) {
          return largest != 0 ? at(a) > at(b) : at(a) < at(b);
        });
        places.resize(static_cast<size_t>(k));
        Numbers::Reals values(places.size());
        std::transform(places.begin(), places.end(), values.begin(), at);
        auto inputs = random_inputs({{"x", {1, 6}}});
        inputs.at(0).numbers.reals() = row;
        const auto found = run_network(model, {inputs}).at(0);
        EXPECT_EQ(found.at(0).reals(), values) << top << k;
        EXPECT_EQ(found.at(1).reals(), places) << top << k;
      }
    }
  }
}

TEST(Places, TheVectorOfTheWordWithTheLargestNumber) {
  expect_agreement(R"(g (float[1,6,4] x) => (float[1,4] y) {
    m = ReduceMean<axes=[2], keepdims=0>(x)
    p = ArgMax<axis=1, keepdims=0>(m)
    g = Gather<axis=1>(x, p)
    y = Squeeze<axes=[1]>(g)
  })",
                   11, {{"x", {1, 6, 4}}});
  expect_agreement(R"(g (float[6,4] x) => (float[4,2] y) {
    m = ReduceMean<axes=[1], keepdims=0>(x)
    p = ArgMax<axis=0, keepdims=1>(m)
    q = ArgMin<axis=0, keepdims=1>(m)
    l = Concat<axis=0>(p, q)
    t = Transpose<perm=[1, 0]>(x)
    y = Gather<axis=1>(t, l)
  })",
                   11, {{"x", {6, 4}}});
}

TEST(Places, AConstantAlongItsLastAxis) {
  expect_agreement(
      R"(g (float[1,5] x) => (float[2,1] y) <float[2,5] c = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}> {
    p = ArgMax<axis=1, keepdims=0>(x)
    y = Gather<axis=1>(c, p)
  })",
      11, {{"x", {1, 5}}});
}

// Whole numbers of a description are whole in the binary form too, which rounds weights: places, rows
// of a table, and the numbers that places are compared with.
TEST(Places, AreTheSameInTheBinaryForm) {
  const std::string graph =
      R"(g (float[1,3000] x, int64[1,3] r) => (float[1,4] a, float[1,3,2] e, float[1,2] t, int64[1] p)
      <int64[4] at = {2999, 2049, 0, 2051}, float[5,2] table = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10},
       int64[1] k = {2}> {
    a = Gather<axis=1>(x, at)
    e = Gather(table, r)
    t, i = TopK(x, k)
    p = ArgMax<axis=1, keepdims=0>(x)
  })";
  const Shapes shapes = {{"x", {1, 3000}}, {"r", {1, 3}}};
  ImportedModel model = imported(graph, 13, shapes);
  auto inputs = random_inputs(shapes);
  for (NamedInput& input : inputs) {
    if (input.name == "r") input.numbers.reals() = {4, 0, 3};
    if (input.name == "x") input.numbers.reals()[2051] = 5;
  }
  const auto before = run_network(model, {inputs}).at(0);
  EXPECT_EQ(before.at(1).reals(), (Numbers::Reals{9, 10, 1, 2, 7, 8}));
  EXPECT_EQ(before.at(3).reals(), (Numbers::Reals{2051}));
  const marlo::test::TemporaryFolder folder;
  const std::string file = folder.file("net.qrtmodel");
  ASSERT_TRUE(model.model.ToFile(file.c_str(), "bin"));
  runtime::QRTModel again;
  ASSERT_TRUE(again.FromFile(file.c_str(), "bin"));
  model.model = again;
  const auto after = run_network(model, {inputs}).at(0);
  ASSERT_EQ(after.size(), before.size());
  for (size_t i = 0; i < after.size(); ++i) EXPECT_EQ(after[i].reals(), before[i].reals()) << i;
}

TEST(Places, WhatHasNoKernelSaysSo) {
  const auto complaint = [](const std::string& graph, const Shapes& shapes) -> std::string {
    try {
      imported(graph, 16, shapes);
    } catch (const UnsupportedError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_THAT(complaint(R"(g (float[4] x, float[2] u) => (float[4] y)
      <int64[2,1] at = {1, 3}> { y = ScatterND<reduction="mul">(x, at, u) })",
                        {{"x", {4}}, {"u", {2}}}),
              HasSubstr("reduction: \"mul\" has no kernel"));
  EXPECT_THAT(complaint(R"(g (float[4] x, float[3] u) => (float[4] y)
      <int64[3,1] at = {1, 3, 1}> { y = ScatterND<reduction="add">(x, at, u) })",
                        {{"x", {4}}, {"u", {3}}}),
              HasSubstr("sums at places that are no box have no kernel"));
  EXPECT_THAT(complaint(R"(g (float[1,99] x) => (float[1,70] v) <int64[1] k = {70}>
                        { v, p = TopK(x, k) })",
                        {{"x", {1, 99}}}),
              HasSubstr("a constant number of up to 64"));
}

}  // namespace
}  // namespace marlo::toolkit::test
