#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/assign/problem.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/toolkit/assign/every_assignment.h"
#include "tests/toolkit/assign/small_networks.h"

// One choice for inputs of several sizes.

namespace marlo::toolkit::test {
namespace {

using marlo::test::documented_kernels;
using marlo::test::ModelBuilder;

std::shared_ptr<runtime::QRTModel> branches() {
  ModelBuilder builder;
  builder.input("x")
      .layer("a", {"x"}, rectifier(), kReLU)
      .layer("b", {"a"}, rectifier(), kReLU)
      .layer("s", {"a", "b"}, std::make_shared<runtime::ElementWiseOperatorInfo>(),
             "Elementwise_Fallback_Float_M1")
      .outputs({"b", "s"});
  return builder.build();
}

/// A cost that depends on kernel, forms and size as if by chance.
double recorded(const Work& work) {
  const size_t hash = std::hash<std::string>()(work.key());
  return 1.0 + static_cast<double>(hash % 97);
}

TEST(Sizes, TheChoiceIsTheCheapestSumOfAll) {
  const auto model = branches();
  const std::vector<double> weights{1, 2.5, 0.5};
  const std::vector<runtime::TensorShape> shapes{planes(8, 9, 11), planes(8, 24, 24),
                                                 planes(8, 5, 40)};
  CostsByRule costs(recorded);
  Workshop workshop(documented_kernels());
  CandidateFinder finder(workshop, {KernelSet::sse, 1e-4});
  std::vector<SizedNetwork> sizes;
  std::vector<Problem> alone;
  for (size_t s = 0; s < shapes.size(); ++s) {
    const auto layers = walk_reference(network(*model), *model->config_arr->cfgs.at("net")->cpu_sse,
                                       {{"x", shapes[s]}}, workshop);
    sizes.push_back({layers, weights[s]});
    alone.push_back(make_problem(layers, finder, costs));
  }
  const Problem all = make_problem(sizes, finder, costs);
  size_t compared = 0;
  for (size_t v = 0; v < all.graph.size(); ++v) {
    ASSERT_EQ(all.options[v].options.size(), alone[0].options[v].options.size());
    for (size_t c = 0; c < all.options[v].options.size(); ++c) {
      // Behind what is returned stands a converter, another one for each size alone.
      if (!all.options[v].options[c].output_converter.empty()) continue;
      double sum = 0;
      for (size_t s = 0; s < shapes.size(); ++s) {
        EXPECT_EQ(alone[s].options[v].options[c].candidate.kernel,
                  all.options[v].options[c].candidate.kernel);
        sum += weights[s] * alone[s].options[v].options[c].cost;
      }
      EXPECT_DOUBLE_EQ(all.options[v].options[c].cost, sum);
      ++compared;
    }
  }
  EXPECT_GT(compared, all.graph.size());
  const Assignment found = cheapest_assignment(all.graph);
  EXPECT_TRUE(found.is_exact);
  EXPECT_DOUBLE_EQ(found.cost, by_trying_all(all.graph));
}

TEST(Sizes, FormsThatOneSizeLacksAreLeftOut) {
  const auto model = branches();
  CostsByRule costs(recorded);
  Workshop workshop(documented_kernels());
  CandidateFinder finder(workshop, {KernelSet::sse, 1e-4});
  const auto problem_of = [&](const std::vector<uint32_t>& channels) {
    std::vector<SizedNetwork> sizes;
    for (const uint32_t count : channels) {
      sizes.push_back({walk_reference(network(*model), *model->config_arr->cfgs.at("net")->cpu_sse,
                                      {{"x", planes(count, 8, 8)}}, workshop),
                       1});
    }
    return make_problem(std::move(sizes), finder, costs);
  };
  EXPECT_EQ(problem_of({8}).options[1].forms.size(), 3u);
  EXPECT_EQ(problem_of({8, 16}).options[1].forms.size(), 3u);
  EXPECT_EQ(problem_of({8, 12}).options[1].forms.size(), 2u) << "blocks of four";
  EXPECT_EQ(problem_of({12, 8}).options[1].forms.size(), 2u);
  const Problem planes_only = problem_of({8, 3});
  EXPECT_EQ(planes_only.options[1].forms.size(), 1u);
  for (const Option& option : planes_only.options[1].options) {
    EXPECT_EQ(option.candidate.inputs[0].shape.layout, runtime::LayoutType::CHW);
  }
}

}  // namespace
}  // namespace marlo::toolkit::test
