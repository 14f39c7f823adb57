#include "qrt_toolkit/assign/optimiser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>

#include "tests/toolkit/assign/every_assignment.h"

namespace marlo::toolkit::test {
namespace {

constexpr double kImpossible = std::numeric_limits<double>::infinity();

/// What an assignment costs, after a check that its converters make what its choices read.
double checked_cost(const std::vector<ChoiceLayer>& layers, const Assignment& found) {
  double cost = 0;
  std::vector<unsigned> there(layers.size());
  for (size_t v = 0; v < layers.size(); ++v) {
    const Choice& choice = layers[v].choices[found.choices[v]];
    cost += choice.cost;
    for (size_t i = 0; i < choice.inputs.size(); ++i) {
      EXPECT_NE(there[layers[v].inputs[i]] >> choice.inputs[i] & 1, 0u) << "layer " << v;
    }
    there[v] = 1u << choice.output;
    for (const Conversion& conversion : found.converters[v]) {
      EXPECT_NE(there[v] >> conversion.from & 1, 0u);
      EXPECT_EQ(there[v] >> conversion.to & 1, 0u);
      there[v] |= 1u << conversion.to;
      cost += layers[v].conversions[conversion.from][conversion.to];
    }
  }
  return cost;
}

/// A graph with branches and joins, costs that often tie, and converters that are missing at times.
std::vector<ChoiceLayer> random_graph(std::mt19937& random, size_t count) {
  const auto below = [&](size_t n) {
    return std::uniform_int_distribution<size_t>(0, n - 1)(random);
  };
  std::vector<ChoiceLayer> layers(count);
  for (size_t v = 0; v < count; ++v) {
    ChoiceLayer& layer = layers[v];
    const size_t inputs = v == 0 ? 0 : std::min<size_t>(v, 1 + below(3));
    for (size_t i = 0; i < inputs; ++i) layer.inputs.push_back(below(v));
    const size_t forms = 1 + below(3);
    layer.conversions.assign(forms, std::vector<double>(forms));
    for (auto& row : layer.conversions) {
      for (double& cost : row) cost = below(8) == 0 ? kImpossible : static_cast<double>(below(5));
    }
    for (size_t c = 1 + below(3); c > 0; --c) {
      Choice choice;
      for (const size_t input : layer.inputs) {
        choice.inputs.push_back(static_cast<FormIndex>(below(layers[input].conversions.size())));
      }
      choice.output = static_cast<FormIndex>(below(forms));
      choice.cost = static_cast<double>(below(7));
      layer.choices.push_back(std::move(choice));
    }
  }
  return layers;
}

TEST(Optimiser, IsAsGoodAsTryingAllOnRandomGraphs) {
  std::mt19937 random(20240611);
  size_t possible = 0;
  for (int round = 0; round < 400; ++round) {
    const auto layers = random_graph(random, 2 + static_cast<size_t>(round) % 7);
    const double best = by_trying_all(layers);
    if (best == kImpossible) {
      EXPECT_THROW(cheapest_assignment(layers), std::invalid_argument) << "round " << round;
      continue;
    }
    ++possible;
    const Assignment found = cheapest_assignment(layers);
    EXPECT_TRUE(found.is_exact);
    EXPECT_DOUBLE_EQ(found.cost, best) << "round " << round;
    EXPECT_DOUBLE_EQ(checked_cost(layers, found), best) << "round " << round;
  }
  EXPECT_GT(possible, 200u);
}

/// A layer that reads and makes one of two forms, at a cost for each; converters cost 3.
ChoiceLayer two_forms(const std::vector<size_t>& inputs, double first, double second) {
  ChoiceLayer layer;
  layer.inputs = inputs;
  layer.conversions = {{0, 3}, {3, 0}};
  for (const FormIndex form : {FormIndex{0}, FormIndex{1}}) {
    layer.choices.push_back(
        {std::vector<FormIndex>(inputs.size(), form), form, form == 0 ? first : second});
  }
  return layer;
}

ChoiceLayer source() {
  ChoiceLayer layer;
  layer.conversions = {{0, 3}, {3, 0}};
  layer.choices.push_back({{}, 0, 0});
  return layer;
}

TEST(Optimiser, ConvertsATensorOnceForAllOfItsReaders) {
  // Each reader alone would save 2 and pay 3.
  const std::vector<ChoiceLayer> layers = {source(), two_forms({0}, 5, 3), two_forms({0}, 5, 3)};
  const Assignment found = cheapest_assignment(layers);
  EXPECT_DOUBLE_EQ(found.cost, 3 + 3 + 3);
  ASSERT_EQ(found.converters[0].size(), 1u);
  EXPECT_EQ(found.choices[1], 1u);
  EXPECT_EQ(found.choices[2], 1u);
}

TEST(Optimiser, StaysInAFormWhereAConverterCostsMoreThanItSaves) {
  const std::vector<ChoiceLayer> layers = {source(), two_forms({0}, 5, 3)};
  const Assignment found = cheapest_assignment(layers);
  EXPECT_DOUBLE_EQ(found.cost, 5);
  EXPECT_TRUE(found.converters[0].empty());
}

TEST(Optimiser, GoesByAThirdFormWhereThatIsCheaper) {
  ChoiceLayer first = source();
  first.conversions = {{0, 9, 2}, {9, 0, 9}, {9, 3, 0}};
  ChoiceLayer reader;
  reader.inputs = {0};
  reader.choices.push_back({{1}, 0, 1});
  const Assignment found = cheapest_assignment({first, reader});
  EXPECT_DOUBLE_EQ(found.cost, 2 + 3 + 1);
  ASSERT_EQ(found.converters[0].size(), 2u);
  EXPECT_EQ(found.converters[0][0].to, 2);
  EXPECT_EQ(found.converters[0][1].to, 1);
}

TEST(Optimiser, TakesTheFirstOfEqualChoices) {
  std::vector<ChoiceLayer> layers = {source()};
  for (size_t v = 1; v < 5; ++v) layers.push_back(two_forms({v - 1}, 1, 1));
  const Assignment found = cheapest_assignment(layers);
  EXPECT_EQ(found.choices, std::vector<size_t>(5, 0));
}

TEST(Optimiser, IsExactOnAWideGraphWhereEveryLayerReadsAllBefore) {
  std::vector<ChoiceLayer> layers = {source()};
  for (size_t v = 1; v < 40; ++v) {
    std::vector<size_t> before(v);
    for (size_t i = 0; i < v; ++i) before[i] = i;
    layers.push_back(two_forms(before, 5, 3));
  }
  const Assignment found = cheapest_assignment(layers);
  EXPECT_TRUE(found.is_exact);
  EXPECT_DOUBLE_EQ(found.cost, 39 * 3 + 3);
}

TEST(Optimiser, SaysSoWhereItKeptFewerThanThereWere) {
  // Two independent tensors whose forms differ by less than a converter costs.
  const std::vector<ChoiceLayer> layers = {source(), two_forms({0}, 1, 1), two_forms({0}, 1, 1),
                                           two_forms({1, 2}, 9, 1)};
  EXPECT_TRUE(cheapest_assignment(layers).is_exact);
  EXPECT_FALSE(cheapest_assignment(layers, 1).is_exact);
}

TEST(Optimiser, RefusesGraphsThatAreNone) {
  EXPECT_THROW(cheapest_assignment({two_forms({0}, 1, 1)}), std::invalid_argument);
  EXPECT_THROW(cheapest_assignment({ChoiceLayer{}}), std::invalid_argument);
  ChoiceLayer unreadable;
  unreadable.inputs = {0};
  unreadable.choices.push_back({{3}, 0, 1});
  EXPECT_THROW(cheapest_assignment({source(), unreadable}), std::invalid_argument);
  ChoiceLayer island = source();
  island.conversions = {{0, kImpossible}, {kImpossible, 0}};
  ChoiceLayer reader;
  reader.inputs = {0};
  reader.choices.push_back({{1}, 0, 1});
  EXPECT_THROW(cheapest_assignment({island, reader}), std::invalid_argument);
}

TEST(Optimiser, AnEmptyGraphCostsNothing) { EXPECT_DOUBLE_EQ(cheapest_assignment({}).cost, 0); }

}  // namespace
}  // namespace marlo::toolkit::test
