#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/conv_rows.h"
#include "tests/support/edge_sizes.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"

// Every convolution kernel against the definition, at named edges and at random sizes.

namespace marlo::test {
namespace {

struct Edge {
  std::string name;
  ConvTester tester;
};

void PrintTo(const Edge& edge, std::ostream* out) { *out << edge.name; }

void add_windows(std::vector<Edge>& edges) {
  const auto add = [&edges](const char* name, const ConvTester& tester) {
    edges.push_back({name, tester});
  };
  add("OnePixel", ConvTester());
  add("OnePixelOfManyChannels", ConvTester().channels(5, 7));
  add("OneByOneWindow", ConvTester().channels(3, 5).size(6, 7));
  add("WindowIsPicture", ConvTester().channels(2, 3).size(5, 4).kernel(5, 4));
  add("WindowIsPaddedPicture", ConvTester().channels(2, 3).size(3, 2).kernel(5, 4).padding(1));
  add("EvenWindow", ConvTester().channels(2, 2).size(6, 9).kernel(2, 4));
  add("RowWindow", ConvTester().channels(2, 3).size(4, 9).kernel(1, 5));
  add("ColumnWindow", ConvTester().channels(2, 3).size(9, 4).kernel(5, 1));
  add("WindowOfSeven", ConvTester().channels(3, 2).size(11, 12).kernel(7, 7).padding(3));
  add("OneRow", ConvTester().channels(2, 2).size(1, 131).kernel(1, 3));
  add("OneColumn", ConvTester().channels(2, 2).size(131, 1).kernel(3, 1));
  add("NoBias", ConvTester().channels(4, 5).size(6, 7).kernel(3, 3).bias(false));
  add("StrideBeyondWindow", ConvTester().channels(2, 2).size(9, 11).kernel(2, 2).stride(4));
  add("StrideBeyondPicture", ConvTester().channels(2, 2).size(3, 3).stride(7));
  add("StrideLeavesARest", ConvTester().channels(2, 2).size(8, 10).kernel(3, 3).stride(2));
  add("StridesDiffer", ConvTester().channels(2, 3).size(9, 13).kernel(3, 3).stride(2, 3));
  add("Dilation", ConvTester().channels(2, 3).size(9, 9).kernel(3, 3).dilation(2));
  add("DilationsDiffer", ConvTester().channels(2, 3).size(9, 12).kernel(3, 3).dilation(1, 4));
  add("DilationWithStride",
      ConvTester().channels(2, 3).size(11, 12).kernel(2, 3).dilation(3, 2).stride(2).padding(2));
  add("KernelTwoDilationThreeSpansFour",
      ConvTester().channels(1, 1).size(5, 4).kernel(2, 2).dilation(3));
  add("StrideTwoOnWidthFiveFloors",
      ConvTester().channels(1, 1).size(5, 5).kernel(2, 2).dilation(3).stride(2));
}

void add_paddings(std::vector<Edge>& edges) {
  const auto add = [&edges](const char* name, const ConvTester& tester) {
    edges.push_back({name, tester});
  };
  const ConvTester base = ConvTester().channels(2, 3).size(6, 5).kernel(3, 3);
  add("NoPadding", ConvTester(base).padding(0));
  add("PaddingLeftOnly", ConvTester(base).padding(2, 0, 0, 0));
  add("PaddingRightOnly", ConvTester(base).padding(0, 2, 0, 0));
  add("PaddingTopOnly", ConvTester(base).padding(0, 0, 2, 0));
  add("PaddingBottomOnly", ConvTester(base).padding(0, 0, 0, 2));
  add("PaddingsDiffer", ConvTester(base).padding(1, 2, 3, 4));
  add("PaddingBeyondWindow", ConvTester(base).kernel(1, 1).padding(3));
  add("PaddingBeyondPicture", ConvTester(base).size(1, 2).padding(5));
}

void add_groups(std::vector<Edge>& edges) {
  const auto add = [&edges](const char* name, const ConvTester& tester) {
    edges.push_back({name, tester});
  };
  const ConvTester base = ConvTester().size(5, 6).kernel(3, 3).padding(1);
  add("TwoGroups", ConvTester(base).channels(4, 6).groups(2));
  add("TwoGroupsWithoutBias", ConvTester(base).channels(4, 6).groups(2).bias(false));
  add("Depthwise", ConvTester(base).channels(6, 6).groups(6));
  add("DepthwiseTimesTwo", ConvTester(base).channels(3, 6).groups(3));
  add("GroupsOfOneOutput", ConvTester(base).channels(6, 3).groups(3));
  add("GroupsThatDoNotDivide", ConvTester(base).channels(5, 7).groups(2));
  add("GroupsThatDoNotDivideWithoutBias", ConvTester(base).channels(5, 7).groups(2).bias(false));
  add("MoreGroupsThanInputs", ConvTester(base).channels(2, 5).groups(4));
  add("MoreGroupsThanOutputs", ConvTester(base).channels(5, 2).groups(3));
}

std::vector<Edge> make_edges() {
  std::vector<Edge> edges;
  add_windows(edges);
  add_paddings(edges);
  add_groups(edges);
  for (const size_t size : edge_sizes(std::vector<size_t>{4, 8, 64})) {
    if (size == 0) continue;
    const auto width = static_cast<uint32_t>(size);
    edges.push_back({"Width" + std::to_string(width),
                     ConvTester().channels(2, 3).size(3, width).kernel(3, 3).padding(1)});
  }
  for (const size_t size : edge_sizes(std::vector<size_t>{4, 8})) {
    if (size == 0) continue;
    const auto count = static_cast<uint32_t>(size);
    const std::string number = std::to_string(count);
    edges.push_back(
        {"Height" + number, ConvTester().channels(2, 3).size(count, 5).kernel(3, 3).padding(1)});
    edges.push_back({"InChannels" + number,
                     ConvTester().channels(count, 8).size(4, 5).kernel(3, 3).padding(1)});
    edges.push_back({"OutChannels" + number,
                     ConvTester().channels(8, count).size(4, 5).kernel(3, 3).padding(1)});
  }
  return edges;
}

const std::vector<Edge>& all_edges() {
  static const std::vector<Edge> edges = make_edges();
  return edges;
}

bool is_depthwise(const ConvRow& row) {
  return row.accepted.groups == kernel::Groups::one_a_channel;
}

// The same edge with as many blocks of channels as it has channels; each a group where the kernel demands it.
ConvTester in_blocks(const ConvRow& row, const ConvTester& tester) {
  const ConvCase& sizes = tester.sizes();
  if (is_depthwise(row)) {
    const uint32_t channels = row.in_block * sizes.in_channels;
    return ConvTester(tester).channels(channels, channels).groups(channels);
  }
  return ConvTester(tester).channels(row.in_block * sizes.in_channels,
                                     row.out_block * sizes.out_channels);
}

class ConvolutionEdge : public testing::TestWithParam<std::tuple<ConvRow, Edge>> {};

TEST_P(ConvolutionEdge, AgreesWithTheDefinition) {
  const auto& [row, edge] = GetParam();
  QRT_SKIP_WHERE_MISSING(row.name);
  const bool ran = row.test(in_blocks(row, edge.tester));
  EXPECT_TRUE(ran || !row.is_reference) << "the definition of all others must take every size";
}

INSTANTIATE_TEST_SUITE_P(Rows, ConvolutionEdge,
                         testing::Combine(testing::ValuesIn(any_shape_convolution_rows()),
                                          testing::ValuesIn(all_edges())),
                         [](const auto& test) {
                           return std::get<0>(test.param).name + "_" + std::get<1>(test.param).name;
                         });

class ConvolutionKernel : public testing::TestWithParam<ConvRow> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam().name); }
};

// Guards against edges that a kernel refuses one and all, which would pass without a single run.
TEST_P(ConvolutionKernel, RunsManyOfTheEdges) {
  size_t ran = 0;
  for (const Edge& edge : all_edges()) {
    if (ran < 5 && GetParam().test(in_blocks(GetParam(), edge.tester))) ++ran;
  }
  EXPECT_EQ(ran, 5u);
}

// 200 cases that a kernel can run, each with a seed of its own.
TEST_P(ConvolutionKernel, AgreesWithTheDefinitionAtRandomSizes) {
  constexpr int kCases = 200;
  const bool knows_groups = GetParam().name.find("_G1_") == std::string::npos;
  Random random(20240);
  const auto pick = [&random](int least, int most) {
    return static_cast<uint32_t>(random.integer(least, most));
  };
  int ran = 0;
  for (uint32_t seed = 1; ran < kCases && seed < 50 * kCases && !HasFailure(); ++seed) {
    ConvTester tester;
    const uint32_t ins = GetParam().in_block == 1 ? pick(1, 9) : GetParam().in_block * pick(1, 3);
    const uint32_t outs =
        GetParam().out_block == 1 ? pick(1, 9) : GetParam().out_block * pick(1, 3);
    tester.channels(ins, outs).size(pick(1, 12), pick(1, 20)).seed(seed);
    tester.kernel(pick(1, 4), pick(1, 4)).stride(pick(1, 3), pick(1, 3));
    tester.dilation(pick(1, 3), pick(1, 3))
        .groups(!knows_groups || pick(0, 1) == 0 ? 1 : pick(1, 4));
    if (is_depthwise(GetParam())) tester.channels(ins, ins).groups(ins);
    tester.padding(random.integer(0, 3), random.integer(0, 3), random.integer(0, 3),
                   random.integer(0, 3));
    tester.bias(pick(0, 3) != 0);
    if (GetParam().test(tester)) ++ran;
  }
  EXPECT_TRUE(HasFailure() || ran == kCases) << ran << " cases ran";
}

INSTANTIATE_TEST_SUITE_P(Rows, ConvolutionKernel, testing::ValuesIn(any_shape_convolution_rows()),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace marlo::test
