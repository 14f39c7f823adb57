#include "qrt_toolkit/graph/graph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace marlo::toolkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Node node_of(const char* op, std::vector<ValueId> inputs, std::vector<ValueId> outputs) {
  Node node;
  node.op = op;
  node.inputs = std::move(inputs);
  node.outputs = std::move(outputs);
  return node;
}

/// x -> Relu -> a -> Neg -> y, and a is read twice by an addition.
struct Diamond {
  Graph graph;
  ValueId x = graph.add_value("x");
  ValueId a = graph.add_value("a");
  ValueId y = graph.add_value("y");
  ValueId z = graph.add_value("z");
  NodeId relu = graph.add_node(node_of("Relu", {x}, {a}));
  NodeId neg = graph.add_node(node_of("Neg", {a}, {y}));
  NodeId add = graph.add_node(node_of("Add", {a, a}, {z}));
  Diamond() {
    graph.inputs = {x};
    graph.outputs = {y, z};
  }
};

TEST(Graph, KeepsBothEndsOfEdges) {
  Diamond d;
  EXPECT_EQ(d.graph.value(d.a).producer, d.relu);
  EXPECT_THAT(d.graph.value(d.a).readers, ElementsAre(d.neg, d.add, d.add));
  d.graph.set_input(d.add, 1, d.x);
  EXPECT_THAT(d.graph.value(d.a).readers, ElementsAre(d.neg, d.add));
  d.graph.replace(d.a, d.x);
  EXPECT_THAT(d.graph.value(d.a).readers, IsEmpty());
  EXPECT_TRUE(d.graph.is_unused(d.a));
  EXPECT_THAT(d.graph.node(d.add).inputs, ElementsAre(d.x, d.x));
  d.graph.remove_node(d.relu);
  EXPECT_EQ(d.graph.value(d.a).producer, kAbsent);
  EXPECT_THAT(d.graph.order(), ElementsAre(d.neg, d.add));
}

TEST(Graph, ReplacesOutputs) {
  Diamond d;
  d.graph.replace(d.y, d.z);
  EXPECT_THAT(d.graph.outputs, ElementsAre(d.z, d.z));
}

TEST(Graph, OrdersNodesBehindWhatTheyRead) {
  Graph graph;
  const ValueId a = graph.add_value("a");
  const ValueId b = graph.add_value("b");
  const NodeId last = graph.add_node(node_of("Neg", {a}, {b}));
  const NodeId first = graph.add_node(node_of("Relu", {}, {a}));
  EXPECT_THAT(graph.order(), ElementsAre(first, last));
}

TEST(Graph, TellsWhichNodesStandInACircle) {
  Graph graph;
  const ValueId a = graph.add_value("a");
  const ValueId b = graph.add_value("b");
  graph.add_node(node_of("Neg", {a}, {b}));
  graph.add_node(node_of("Relu", {b}, {a}));
  try {
    graph.order();
    FAIL();
  } catch (const FileError& error) {
    EXPECT_EQ(error.refusals().size(), 2u);
  }
}

TEST(Graph, CopiesAreIndependent) {
  Diamond d;
  auto branch = std::make_shared<Graph>();
  branch->captures.push_back({d.a, branch->add_value("a")});
  Node node = node_of("If", {d.x}, {d.graph.add_value("w")});
  node.attributes["then_branch"] = branch;
  const NodeId id = d.graph.add_node(std::move(node));
  const Graph copy = d.graph;
  d.graph.replace(d.a, d.x);
  EXPECT_EQ(d.graph.node(id).graph("then_branch").captures[0].outer, d.x);
  EXPECT_EQ(copy.node(id).graph("then_branch").captures[0].outer, d.a);
  EXPECT_THAT(copy.reads(copy.node(id)), ElementsAre(d.x, d.a));
}

TEST(Node, SaysWhenAnAttributeIsOfAnotherKind) {
  Node node;
  node.attributes["axis"] = 1.5;
  EXPECT_EQ(node.integer("group", 3), 3);
  EXPECT_THROW(node.integer("axis", 0), NodeFault);
}

}  // namespace
}  // namespace marlo::toolkit
