#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "qrt_core/utility/export.h"

// What can be wrong with a graph, as data. Everything that is found at once is reported at once.

namespace marlo::toolkit {

/// One thing that can't be imported, or that is wrong with a file. Texts are empty where there is
/// nothing to say.
struct Refusal {
  std::string node;       ///< the node's name, or its first output where it has none
  std::string op;         ///< its operator, as the file spells it: "Conv", "com.microsoft.Gelu"
  int opset = 0;          ///< the operator set that the operator is read by; 0 outside of nodes
  std::string source;     ///< what the exporter left of the place in the source: "net.py:12"
  std::string attribute;  ///< attribute, input or tensor at fault: "pads", "input 1", "weight"
  std::string why;        ///< what is wrong, with what was expected and what was found
  std::string help;       ///< what would help; often empty

  /// All of it in one line: `node "c1" (Conv, opset 13): pads: ...`.
  QRT_API std::string text() const;
};

/// Why a graph can't be read, shaped, evaluated or lowered. `what()` lists all refusals, one a
/// line.
class QRT_API ImportError : public std::runtime_error {
 public:
  explicit ImportError(std::vector<Refusal> refusals);

  /// What is wrong, in the order of the graph; never empty.
  const std::vector<Refusal>& refusals() const noexcept { return refusals_; }

 private:
  std::vector<Refusal> refusals_;
};

/// The file is none, is damaged, or contradicts itself: another program would not read it either.
class QRT_API FileError : public ImportError {
 public:
  explicit FileError(std::string why, std::string help = "");
  using ImportError::ImportError;
};

/// The graph is sound, but asks for something that isn't supported.
class QRT_API UnsupportedError : public ImportError {
 public:
  using ImportError::ImportError;
};

/// Thrown where the node is known to the caller, who adds it: see `refusal_of`.
struct NodeFault {
  std::string attribute;
  std::string why;
  std::string help = {};
};

}  // namespace marlo::toolkit
