#include "qrt_toolkit/shapes/fix.h"

#include <algorithm>
#include <utility>

namespace marlo::toolkit {
namespace {

Refusal about_input(const std::string& name, std::string why, std::string help = "") {
  return {"", "", 0, "", "input \"" + name + "\"", std::move(why), std::move(help)};
}

ValueId find_input(const Graph& graph, const std::string& name) {
  for (const ValueId id : graph.inputs) {
    if (graph.value(id).name == name) return id;
  }
  return kAbsent;
}

std::string names_of_inputs(const Graph& graph) {
  std::string text;
  for (const ValueId id : graph.inputs) {
    text += (text.empty() ? "" : ", ") + graph.value(id).name;
  }
  return text.empty() ? "it has none" : "its inputs are " + text;
}

/// Calls `fix(value, entry)` for every entry, which returns why it doesn't fit, and throws with
/// all.
template <class Entries, class Fix>
void fix_each(Graph& graph, const Entries& entries, Fix&& fix) {
  std::vector<Refusal> refusals;
  const std::string names = names_of_inputs(graph);
  for (const auto& [name, entry] : entries) {
    const ValueId id = find_input(graph, name);
    if (id == kAbsent) {
      refusals.push_back(about_input(name, "the graph has no such input", names));
      continue;
    }
    const std::string why = fix(id, entry);
    if (!why.empty()) refusals.push_back(about_input(name, why));
  }
  if (!refusals.empty()) throw UnsupportedError(std::move(refusals));
}

/// Why a shape isn't one that the graph allows; empty if it is.
std::string misfit(const Value& value, const Shape& shape) {
  if (!value.shape) return "";
  bool fits = value.shape->size() == shape.size();
  for (size_t i = 0; fits && i < shape.size(); ++i) {
    const Dimension& stated = (*value.shape)[i];
    fits = !stated.known() || !shape[i].known() || stated.size == shape[i].size;
  }
  return fits ? "" : "a shape of " + text_of(shape) + " is not " + text_of(*value.shape);
}

/// What symbols stand for, from the shapes of inputs that were given numbers.
class Symbols {
 public:
  /// @param stated a shape of the file, `given` the same with more numbers
  void learn(const std::optional<Shape>& stated, const Shape& given) {
    for (size_t i = 0; stated && i < std::min(stated->size(), given.size()); ++i) {
      const std::string& symbol = (*stated)[i].symbol;
      if (symbol.empty() || !given[i].known()) continue;
      const auto known = sizes_.emplace(symbol, given[i].size).first;
      // A symbol for sizes that aren't the same is none.
      if (known->second != given[i].size) known->second = Dimension::kUnknown;
    }
  }

  /// Puts the numbers in the place of the symbols of all inputs.
  void enter(Graph& graph) const {
    for (const ValueId id : graph.inputs) {
      auto& shape = graph.value(id).shape;
      for (size_t i = 0; shape && i < shape->size(); ++i) {
        Dimension& size = (*shape)[i];
        const auto known = size.known() ? sizes_.end() : sizes_.find(size.symbol);
        if (known != sizes_.end() && known->second >= 0) size = known->second;
      }
    }
  }

 private:
  std::map<std::string, int64_t> sizes_;
};

}  // namespace

void fix_shapes(Graph& graph, const std::map<std::string, Shape>& shapes) {
  Symbols symbols;
  fix_each(graph, shapes, [&](ValueId id, const Shape& shape) {
    Value& value = graph.value(id);
    std::string why = misfit(value, shape);
    if (!why.empty()) return why;
    Shape fixed = shape;
    for (size_t i = 0; value.shape && i < fixed.size(); ++i) {
      if (!fixed[i].known()) fixed[i] = (*value.shape)[i];
    }
    symbols.learn(value.shape, shape);
    value.shape = std::move(fixed);
    return why;
  });
  symbols.enter(graph);
}

void fix_values(Graph& graph, const std::map<std::string, Numbers>& values) {
  fix_each(graph, values, [&](ValueId id, const Numbers& numbers) {
    Value& value = graph.value(id);
    Numbers fitted = numbers;
    // A single number fits any shape of one element.
    if (numbers.shape.empty() && value.shape) fitted.shape.assign(value.shape->size(), 1);
    std::string why = misfit(value, shape_of(fitted.shape));
    if (!why.empty()) return why;
    const ElementType type = value.type == ElementType::undefined ? numbers.type : value.type;
    value.shape = shape_of(fitted.shape);
    value.constant = constant_of(converted(fitted, type));
    value.type = type;
    graph.inputs.erase(std::find(graph.inputs.begin(), graph.inputs.end(), id));
    return why;
  });
}

std::vector<std::string> assume_batch_of_one(Graph& graph) {
  std::vector<std::string> names;
  Symbols symbols;
  for (const ValueId id : graph.inputs) {
    Value& value = graph.value(id);
    if (!value.shape || value.shape->size() < 2 || value.shape->front().known()) continue;
    Shape fixed = *value.shape;
    fixed.front() = 1;
    // Some files have one symbol for everything that is open.
    const auto is_first = [&](const Dimension& size) { return size.same_as(value.shape->front()); };
    if (std::count_if(fixed.begin(), fixed.end(), is_first) == 0) symbols.learn(value.shape, fixed);
    value.shape = std::move(fixed);
    names.push_back(value.name);
  }
  symbols.enter(graph);
  return names;
}

}  // namespace marlo::toolkit
