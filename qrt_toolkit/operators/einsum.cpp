#include "qrt_toolkit/operators/einsum.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"

// Sums of products over named axes.

namespace marlo::toolkit {
namespace {

constexpr std::string_view kEllipsis = "...";

[[noreturn]] void refuse(const std::string& why) { throw NodeFault{"equation", why}; }

/// The letters of one term, whose ellipsis stands for `rest` axes.
std::string spelled(const std::string& term, size_t rest) {
  std::string labels;
  for (size_t i = 0; i < term.size(); ++i) {
    if (term.compare(i, kEllipsis.size(), kEllipsis) == 0) {
      if (rest > 10) refuse("an ellipsis of more than 10 axes isn't supported");
      for (size_t axis = rest; axis-- > 0;) labels += static_cast<char>('0' + axis);
      i += kEllipsis.size() - 1;
    } else if (std::isalpha(static_cast<unsigned char>(term[i])) != 0) {
      labels += term[i];
    } else {
      refuse(std::string("\"") + term + "\" holds a character that is no letter");
    }
  }
  return labels;
}

size_t letters_of(const std::string& term) {
  return static_cast<size_t>(std::count_if(term.begin(), term.end(), [](char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
  }));
}

/// Without an arrow the output has, in order, every letter that stands once.
std::string implied_output(const std::vector<std::string>& inputs) {
  std::map<char, int> counts;
  for (const std::string& input : inputs) {
    for (const char label : input) ++counts[label];
  }
  std::string rest;
  std::string output;
  for (const auto& [label, count] : counts) {
    if (std::isdigit(static_cast<unsigned char>(label)) != 0) rest.insert(rest.begin(), label);
    if (std::isalpha(static_cast<unsigned char>(label)) != 0 && count == 1) output += label;
  }
  return rest + output;
}

/// The size of each letter.
template <class Size, class Merge>
std::map<char, Size> sizes_of(const EinsumLabels& labels,
                              const std::vector<std::vector<Size>>& shapes, Merge&& merge) {
  std::map<char, Size> sizes;
  for (size_t i = 0; i < shapes.size(); ++i) {
    for (size_t axis = 0; axis < shapes[i].size(); ++axis) {
      const auto [found, is_new] = sizes.try_emplace(labels.inputs[i][axis], shapes[i][axis]);
      if (!is_new) found->second = merge(found->second, shapes[i][axis]);
    }
  }
  return sizes;
}

int64_t merged(int64_t a, int64_t b) {
  if (a != b && a != 1 && b != 1) {
    refuse("a letter stands for axes of " + std::to_string(a) + " and " + std::to_string(b));
  }
  return a == 1 ? b : a;
}

/// Walks a box whose axes each tensor has at strides of its own.
class Walk {
 public:
  Walk(Extents box, std::vector<Extents> strides)
      : box_(std::move(box)),
        strides_(std::move(strides)),
        index_(box_.size(), 0),
        offsets_(strides_.size(), 0) {}

  const std::vector<int64_t>& offsets() const { return offsets_; }

  bool next() {
    for (size_t axis = box_.size(); axis-- > 0;) {
      for (size_t i = 0; i < strides_.size(); ++i) offsets_[i] += strides_[i][axis];
      if (++index_[axis] < box_[axis]) return true;
      for (size_t i = 0; i < strides_.size(); ++i) offsets_[i] -= strides_[i][axis] * box_[axis];
      index_[axis] = 0;
    }
    return false;
  }

 private:
  Extents box_;
  std::vector<Extents> strides_;
  Extents index_;
  std::vector<int64_t> offsets_;
};

/// How far apart the elements of a tensor are along each letter.
Extents strides_along(const std::string& letters, const std::string& labels, const Extents& shape) {
  const Extents own = strides_of(shape);
  Extents strides(letters.size(), 0);
  for (size_t axis = 0; axis < shape.size(); ++axis) {
    if (shape[axis] != 1) strides[letters.find(labels[axis])] += own[axis];
  }
  return strides;
}

Results einsum(const Node& node, const Operands& inputs) {
  std::vector<Extents> shapes;
  std::vector<size_t> ranks;
  for (size_t i = 0; i < inputs.size(); ++i) {
    shapes.push_back(inputs[i].shape);
    ranks.push_back(inputs[i].shape.size());
  }
  const EinsumLabels labels = einsum_labels(node, ranks);
  const auto sizes = sizes_of(labels, shapes, merged);
  std::string letters = labels.output;
  for (const auto& [label, size] : sizes) {
    if (letters.find(label) == std::string::npos) letters += label;
  }
  Extents box;
  Extents shape;
  for (const char label : letters) box.push_back(sizes.at(label));
  shape.assign(box.begin(), box.begin() + static_cast<std::ptrdiff_t>(labels.output.size()));
  Numbers result(inputs[0].type, shape);
  const auto terms = count_of(box);
  constexpr int64_t kMostTerms = int64_t{1} << 32;
  if (!terms || *terms > kMostTerms) refuse("there are too many products to compute");
  if (*terms == 0) return {std::move(result)};
  std::vector<Extents> strides{strides_along(letters, labels.output, shape)};
  for (size_t i = 0; i < shapes.size(); ++i) {
    strides.push_back(strides_along(letters, labels.inputs[i], shapes[i]));
  }
  Walk walk(box, std::move(strides));
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        std::vector<const List*> from;
        for (size_t i = 0; i < inputs.size(); ++i) from.push_back(&std::get<List>(inputs[i].data));
        do {
          auto product = (*from[0])[static_cast<size_t>(walk.offsets()[1])];
          for (size_t i = 1; i < from.size(); ++i) {
            product *= (*from[i])[static_cast<size_t>(walk.offsets()[i + 1])];
          }
          out[static_cast<size_t>(walk.offsets()[0])] += product;
        } while (walk.next());
      },
      result.data);
  return {std::move(result)};
}

void infer_einsum(ShapeStep& step) {
  std::vector<Shape> shapes;
  std::vector<size_t> ranks;
  for (size_t i = 0; i < step.inputs.size(); ++i) {
    if (step.shape(i) == nullptr) return step.set(0, step.input(0).type);
    shapes.push_back(*step.shape(i));
    ranks.push_back(shapes.back().size());
  }
  const EinsumLabels labels = einsum_labels(step.node, ranks);
  const auto sizes = sizes_of(labels, shapes, [](const Dimension& a, const Dimension& b) {
    if (a.known() && b.known()) return Dimension(merged(a.size, b.size));
    if (a.known()) return a.size == 1 ? b : a;
    return b.known() && b.size != 1 ? b : a;
  });
  Shape result;
  for (const char label : labels.output) result.push_back(sizes.at(label));
  step.set(0, step.input(0).type, result);
}

constexpr Operator kRows[] = {{"Einsum", 12, einsum, infer_einsum}};

}  // namespace

EinsumLabels einsum_labels(const Node& node, const std::vector<size_t>& ranks) {
  std::string equation = node.text("equation", "");
  std::erase(equation, ' ');
  const size_t arrow = equation.find("->");
  std::string left = equation.substr(0, arrow);
  std::vector<std::string> terms;
  for (size_t end = 0; end != std::string::npos; left.erase(0, end + 1)) {
    end = left.find(',');
    terms.push_back(left.substr(0, end));
    if (end == std::string::npos) break;
  }
  if (terms.size() != ranks.size()) {
    refuse("it has " + std::to_string(terms.size()) + " terms for " + std::to_string(ranks.size()) +
           " inputs");
  }
  EinsumLabels labels;
  size_t most = 0;
  for (size_t i = 0; i < terms.size(); ++i) {
    const size_t letters = letters_of(terms[i]);
    const bool has_rest = terms[i].find(kEllipsis) != std::string::npos;
    if (letters > ranks[i] || (!has_rest && letters != ranks[i])) {
      refuse("\"" + terms[i] + "\" doesn't fit an input of " + std::to_string(ranks[i]) + " axes");
    }
    const size_t rest = has_rest ? ranks[i] - letters : 0;
    most = std::max(most, rest);
    labels.inputs.push_back(spelled(terms[i], rest));
  }
  labels.output = arrow == std::string::npos ? implied_output(labels.inputs)
                                             : spelled(equation.substr(arrow + 2), most);
  for (size_t i = 0; i < labels.output.size(); ++i) {
    const char label = labels.output[i];
    const bool stands = std::any_of(
        labels.inputs.begin(), labels.inputs.end(),
        [&](const std::string& input) { return input.find(label) != std::string::npos; });
    if (!stands || labels.output.find(label, i + 1) != std::string::npos) {
      refuse("the output's letters are to stand once there, and in an input");
    }
  }
  return labels;
}

std::span<const Operator> einsum_operators() { return kRows; }

}  // namespace marlo::toolkit
