#include "qrt_toolkit/graph/node.h"

#include <utility>

namespace marlo::toolkit {
namespace {

/// The attribute as a `T`; null where it isn't there.
template <class T>
const T* find(const Node& node, const std::string& attribute, const char* kind) {
  const auto place = node.attributes.find(attribute);
  if (place == node.attributes.end()) return nullptr;
  const T* value = std::get_if<T>(&place->second);
  if (value == nullptr) throw NodeFault{attribute, std::string("expected ") + kind};
  return value;
}

template <class T>
T value_of(const Node& node, const std::string& attribute, T otherwise, const char* kind) {
  const T* value = find<T>(node, attribute, kind);
  return value == nullptr ? std::move(otherwise) : *value;
}

}  // namespace

int64_t Node::integer(const std::string& attribute, int64_t otherwise) const {
  return value_of<int64_t>(*this, attribute, otherwise, "an integer");
}

double Node::real(const std::string& attribute, double otherwise) const {
  return value_of<double>(*this, attribute, otherwise, "a number");
}

std::string Node::text(const std::string& attribute, const std::string& otherwise) const {
  return value_of<std::string>(*this, attribute, otherwise, "a text");
}

std::vector<int64_t> Node::integers(const std::string& attribute,
                                    std::vector<int64_t> otherwise) const {
  return value_of(*this, attribute, std::move(otherwise), "a list of integers");
}

std::vector<double> Node::reals(const std::string& attribute, std::vector<double> otherwise) const {
  return value_of(*this, attribute, std::move(otherwise), "a list of numbers");
}

const Graph& Node::graph(const std::string& attribute) const {
  const auto* value = find<std::shared_ptr<Graph>>(*this, attribute, "a graph");
  if (value == nullptr) throw NodeFault{attribute, "a graph is missing"};
  return **value;
}

Refusal refusal_of(const Node& node, const NodeFault& fault) {
  return {node.name,       node.op_in_file.empty() ? node.op : node.op_in_file,
          node.opset,      node.source,
          fault.attribute, fault.why,
          fault.help};
}

}  // namespace marlo::toolkit
