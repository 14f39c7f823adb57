#include "qrt_toolkit/operators/einsum.h"

#include <algorithm>
#include <map>
#include <utility>

#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

// Einsum becomes transpositions, reshapes, sums, and products of matrices.

namespace marlo::toolkit {
namespace {

using Sizes = std::map<char, int64_t>;

/// A tensor whose axes have letters.
struct Term {
  ValueId id = kAbsent;
  std::string labels;

  bool has(char label) const { return labels.find(label) != std::string::npos; }
  size_t axis(char label) const { return labels.find(label); }
};

/// Makes the nodes that take one Einsum's place.
class Expansion {
 public:
  Expansion(Graph& graph, const Node& einsum, Sizes sizes, std::string output)
      : graph_(graph), like_(einsum), sizes_(std::move(sizes)), output_(std::move(output)) {}

  /// @return a tensor whose axes have the output's letters in the output's order
  ValueId run(std::vector<Term> terms) {
    while (terms.size() > 1) {
      std::string needed = output_;
      for (size_t i = 2; i < terms.size(); ++i) needed += terms[i].labels;
      terms[0] = product(summed(terms[0], needed + terms[1].labels),
                         summed(terms[1], needed + terms[0].labels), needed);
      terms.erase(terms.begin() + 1);
    }
    return transposed(summed(terms[0], output_), output_).id;
  }

 private:
  ValueId add(const char* op, std::vector<ValueId> inputs,
              std::map<std::string, Attribute> attributes = {}) {
    Node node = node_like(like_, op, std::move(inputs));
    node.attributes = std::move(attributes);
    const ValueId made = graph_.add_value("", graph_.value(like_.outputs[0]).type);
    node.outputs = {made};
    graph_.add_node(std::move(node));
    return made;
  }

  ValueId list(std::vector<int64_t> numbers) {
    return graph_.add_constant("", constant_of(Numbers::integers_1d(std::move(numbers))));
  }

  /// Without the axes whose letters aren't needed.
  Term summed(Term term, const std::string& needed) {
    std::vector<int64_t> axes;
    std::string kept;
    for (size_t i = 0; i < term.labels.size(); ++i) {
      if (needed.find(term.labels[i]) == std::string::npos) {
        axes.push_back(static_cast<int64_t>(i));
      } else {
        kept += term.labels[i];
      }
    }
    if (axes.empty()) return term;
    return {add("ReduceSum", {term.id, list(axes)}, {{"keepdims", int64_t{0}}}), kept};
  }

  Term transposed(Term term, const std::string& labels) {
    if (term.labels == labels) return term;
    std::vector<int64_t> perm;
    for (const char label : labels) perm.push_back(static_cast<int64_t>(term.axis(label)));
    return {add("Transpose", {term.id}, {{"perm", perm}}), labels};
  }

  int64_t count(const std::string& labels) const {
    int64_t product = 1;
    for (const char label : labels) product *= sizes_.at(label);
    return product;
  }

  /// With the axes of `common` that the term has, those of `rows` as one, and those of `columns`.
  ValueId matrices(const Term& term, const std::string& common, const std::string& rows,
                   const std::string& columns) {
    std::string own;
    std::copy_if(common.begin(), common.end(), std::back_inserter(own),
                 [&](char label) { return term.has(label); });
    const Term ordered = transposed(term, own + rows + columns);
    std::vector<int64_t> shape;
    for (const char label : common) {
      // Leading axes that the term hasn't got are those of broadcasting.
      if (term.has(label) || !shape.empty())
        shape.push_back(term.has(label) ? sizes_.at(label) : 1);
    }
    shape.push_back(count(rows));
    shape.push_back(count(columns));
    std::vector<int64_t> given;
    for (const char label : ordered.labels) given.push_back(sizes_.at(label));
    return shape == given ? ordered.id : add("Reshape", {ordered.id, list(shape)});
  }

  Term product(const Term& a, const Term& b, const std::string& needed) {
    std::string common;
    std::string summed;
    std::string rows;
    std::string columns;
    // In the output's order, so that as little as possible has to be moved behind the product.
    std::string order = output_;
    for (const char label : a.labels + b.labels) {
      if (order.find(label) == std::string::npos) order += label;
    }
    for (const char label : order) {
      if (!a.has(label) && !b.has(label)) continue;
      const bool both = a.has(label) && b.has(label);
      if (both && needed.find(label) == std::string::npos) {
        summed += label;
      } else if (both || sizes_.at(label) == 1) {
        common += label;
      } else {
        (a.has(label) ? rows : columns) += label;
      }
    }
    if (rows.empty() && columns.empty()) return sum_of_products(a, b, common, summed);
    const ValueId left = matrices(a, common, rows, summed);
    const ValueId right = matrices(b, common, summed, columns);
    Term made{add("MatMul", {left, right}), common + rows + columns};
    if (rows.size() == 1 && columns.size() == 1) return made;
    std::vector<int64_t> shape;
    for (const char label : made.labels) shape.push_back(sizes_.at(label));
    made.id = add("Reshape", {made.id, list(shape)});
    return made;
  }

  Term sum_of_products(const Term& a, const Term& b, const std::string& common,
                       const std::string& rest) {
    Term made{add("Mul", {matrices(a, common + rest, "", ""), matrices(b, common + rest, "", "")}),
              ""};
    std::vector<int64_t> shape;
    for (const char label : common + rest) shape.push_back(sizes_.at(label));
    made.id = add("Reshape", {made.id, list(shape)});
    made.labels = common + rest;
    return summed(made, common);
  }

  Graph& graph_;
  const Node like_;
  const Sizes sizes_;
  const std::string output_;
};

bool stands_twice(const std::string& labels) {
  return std::any_of(labels.begin(), labels.end(), [&](char label) {
    return std::count(labels.begin(), labels.end(), label) > 1;
  });
}

bool expand(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node node = graph.node(id);
  if (node.op != "Einsum") return false;
  std::vector<Extents> shapes;
  std::vector<size_t> ranks;
  for (const ValueId input : node.inputs) {
    const auto& shape = facts[static_cast<size_t>(input)].shape;
    const auto known = shape ? extents_of(*shape) : std::nullopt;
    if (!known) return false;
    shapes.push_back(*known);
    ranks.push_back(known->size());
  }
  const EinsumLabels labels = einsum_labels(node, ranks);
  Sizes sizes;
  std::vector<Term> terms;
  for (size_t i = 0; i < shapes.size(); ++i) {
    if (stands_twice(labels.inputs[i])) return false;
    terms.push_back({node.inputs[i], labels.inputs[i]});
    for (size_t axis = 0; axis < shapes[i].size(); ++axis) {
      const auto [known, is_new] = sizes.try_emplace(labels.inputs[i][axis], shapes[i][axis]);
      if (!is_new && known->second != shapes[i][axis]) return false;
    }
  }
  const ValueId made = Expansion(graph, node, sizes, labels.output).run(std::move(terms));
  put(graph, id, node_like(node, "Identity", {made}));
  return true;
}

}  // namespace

bool expand_einsums(Graph& graph) { return everywhere<expand>(graph); }

}  // namespace marlo::toolkit
