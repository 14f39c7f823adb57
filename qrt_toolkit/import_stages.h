#pragma once

#include <map>
#include <string>

#include "qrt_toolkit/graph/graph.h"
#include "qrt_toolkit/import_onnx.h"

// An import with the graphs that it went through, for what compares them with the model.

namespace marlo::toolkit {

/// What an import made on its way.
struct ImportStages {
  std::vector<std::string> input_names;  ///< of the file, before any became constants
  Graph given;       ///< the file's, with the caller's shapes, constants and outputs
  Graph simplified;  ///< what was lowered; its tensors have the names that they have in `given`
  ImportedModel imported;
  std::map<std::string, ValueId> value_of_layer;  ///< in `simplified`, by layer id
};

/// Whether the graphs are asked for: they hold all weights once more.
enum class GraphUse { kept, dropped };

/// As `import_onnx`.
ImportStages import_stages(const std::string& path, const ImportOptions& options,
                           GraphUse graphs = GraphUse::kept);

}  // namespace marlo::toolkit
