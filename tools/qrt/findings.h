#pragma once

#include <map>
#include <string>
#include <vector>

#include "qrt_core/utility/check_model.h"
#include "qrt_core/utility/check_model_internal.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/network.h"
#include "tools/qrt/network_report.h"
#include "tools/qrt/shapes.h"

// What the library's check of a model's meaning finds.

namespace qrt_tool {

/// Shapes of inputs, by the ids of network and layer.
using NetworkShapes = std::map<std::string, std::map<std::string, marlo::runtime::TensorShape>>;

/// The findings about one network of a model file, and those about the whole file.
/// @param path of the model; may be a stream
/// @param network its id; empty for all networks
/// @param inputs what depends on sizes is left out for networks that aren't in it
/// @param open the same model, where weights were left in its file
/// @param nets of it that are ready
std::vector<marlo::utility::Finding> findings_of(const std::string& path,
                                                 const std::string& network,
                                                 const NetworkShapes& inputs = {},
                                                 const OpenModel& open = {},
                                                 const marlo::utility::ReadyNets& nets = {});

bool is_error(const marlo::utility::Finding& finding);
bool has_errors(const std::vector<marlo::utility::Finding>& findings);

/// One finding for people, without the word for its severity.
std::string finding_line(const marlo::utility::Finding& finding);

/// Adds the shapes of a network's inputs.
void add_shapes(NetworkShapes& shapes, const NetworkReport& report, const InputShapes& inputs);

/// Says in one line that a model computes something else than it says, if that is so. Inputs that a
/// kernel refuses don't count: the command says those itself.
void warn_of_findings(const std::string& path, const std::string& network,
                      const NetworkShapes& inputs, const OpenModel& open,
                      const marlo::utility::ReadyNets& nets);

/// The member "findings".
void add_findings(JsonText& json, const std::vector<marlo::utility::Finding>& findings);

}  // namespace qrt_tool
