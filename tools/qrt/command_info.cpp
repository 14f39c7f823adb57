#include <algorithm>

#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/findings.h"
#include "tools/qrt/info_text.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/model_file.h"
#include "tools/qrt/network.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/source.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::QRModelCfg;
using marlo::runtime::QRModelInfo;
using marlo::runtime::QRModelInfoArr;
using marlo::runtime::QRModelMultiBackendCfgsArr;
using marlo::runtime::QRTModel;

namespace {

/// Inspects networks, and collects what is wrong with them.
class Inspector {
 public:
  explicit Inspector(const InfoOptions& options) : options_(options) {}

  // A network that comes without configurations has no kernels, and that is no fault.
  ShownNetwork inspect(const std::string& id, const QRModelInfo& info, const QRModelCfg* config,
                       bool has_configs, const marlo::runtime::WeightPlaces* weights = nullptr) {
    ShownNetwork found;
    found.has_kernels = has_configs;
    found.report =
        inspect_network(id, info, config, library_.kernels, library_.weights, nullptr, weights);
    if (config != nullptr) found.tuned = marlo::toolkit::tuned_for(config->summary);
    if (!has_configs) return found;
    const std::string prefix = shown(options_.model) + ": network " + in_quotes(id) + ", ";
    for (const std::string& warning : found.report.warnings) say(prefix + warning, Level::warning);
    const std::string problem = found.report.problem();
    if (!problem.empty()) problems_.push_back(prefix + problem);

    const InputShapes inputs = given_shapes(found.report);
    if (inputs.size() == found.report.inputs().size()) add_shapes(shapes_, found.report, inputs);
    const std::string misfit = infer_shapes(found.report, inputs, library_.context);
    if (!misfit.empty()) {
      const std::string text = prefix + "with the input given or known, " + misfit;
      if (!options_.inputs.empty()) throw ToolError(kInputError, text);
      problems_.push_back(text);
    }
    return found;
  }

  const std::vector<std::string>& problems() const { return problems_; }
  const NetworkShapes& shapes() const { return shapes_; }  // where those of all inputs are known

 private:
  InputShapes given_shapes(const NetworkReport& report) const {
    if (options_.inputs.empty()) return known_input_shapes(report);
    return given_input_shapes(report, options_.inputs, options_.keep_batch);
  }

  const InfoOptions& options_;
  Library library_;
  std::vector<std::string> problems_;
  NetworkShapes shapes_;
};

void show_networks(const std::vector<ShownNetwork>& networks, const QRTModel* model,
                   const InfoOptions& options) {
  print(options.json ? networks_json(options.model, model, networks)
                     : networks_text(options.model, model, networks, table_width(options.width)));
}

void inspect_model(const InfoOptions& options) {
  Inspector inspector(options);
  std::optional<Sdk> sdk;
  if (!options.sdk.empty()) sdk = parse_sdk(options.sdk);
  const OpenModel model = open_model(options.model, sdk, options.inputs);
  const QRTModel& tree = *model.tree;
  std::vector<std::string> ids = tree.model_arr->squential_ids;
  if (!options.network.empty()) ids = {choose_network(tree, options.model, options.network)};
  std::vector<ShownNetwork> networks;
  networks.reserve(ids.size());
  for (const std::string& id : ids) {
    networks.push_back(inspector.inspect(id, *tree.model_arr->infos.at(id), config_of(tree, id),
                                         true, model.weights()));
  }
  show_networks(networks, &tree, options);
  const std::vector<std::string>& problems = inspector.problems();
  if (problems.empty()) {
    std::vector<marlo::runtime::Net> nets;
    nets.reserve(networks.size());
    marlo::utility::ReadyNets ready;
    for (const ShownNetwork& shown : networks) {
      nets.push_back(net_of(shown.report));
      ready[shown.report.id] = &nets.back();
    }
    return warn_of_findings(options.model, options.network, inspector.shapes(), model, ready);
  }
  for (size_t i = 0; i + 1 < problems.size(); ++i) say(problems[i], Level::error);
  throw ToolError(kModelError, problems.back());
}

void inspect_networks(const InfoOptions& options, Inspector& inspector,
                      const QRModelInfoArr& infos) {
  std::vector<ShownNetwork> networks;
  for (const std::string& id : infos.squential_ids) {
    if (!options.network.empty() && options.network != id) continue;
    networks.push_back(inspector.inspect(id, *infos.infos.at(id), nullptr, false));
  }
  show_networks(networks, nullptr, options);
}

void inspect_configs(const InfoOptions& options, const QRModelMultiBackendCfgsArr& configs) {
  std::vector<NamedConfig> named;
  for (const std::string& id : configs.squential_ids) {
    const auto& cfgs = *configs.cfgs.at(id);
    if (!options.network.empty() && options.network != id) continue;
    named.push_back({id + " cpu_sse", cfgs.cpu_sse.get()});
  }
  print(options.json ? configs_json(options.model, named)
                     : configs_text(options.model, named, table_width(options.width)));
}

}  // namespace

void run_info(const InfoOptions& options) {
  const FileFormat format = is_onnx(options.model) ? FileFormat{false, ObjectKind::model}
                                                   : format_of_name(options.model, kModelError);
  const ObjectKind kind = format.kind      ? *format.kind
                          : format.is_json ? kind_of_json(options.model)
                                           : ObjectKind::model;
  if (kind == ObjectKind::model) return inspect_model(options);
  Inspector inspector(options);
  const auto object = make_object(kind);
  read_object(*object, options.model, format.is_json);
  if (kind == ObjectKind::network) {
    const auto& info = dynamic_cast<const QRModelInfo&>(*object);
    show_networks({inspector.inspect("", info, nullptr, false)}, nullptr, options);
  } else if (kind == ObjectKind::networks) {
    inspect_networks(options, inspector, dynamic_cast<const QRModelInfoArr&>(*object));
  } else if (kind == ObjectKind::config) {
    const auto& config = dynamic_cast<const QRModelCfg&>(*object);
    const std::vector<NamedConfig> named{{"", &config}};
    print(options.json ? configs_json(options.model, named)
                       : configs_text(options.model, named, table_width(options.width)));
  } else {
    inspect_configs(options, dynamic_cast<const QRModelMultiBackendCfgsArr&>(*object));
  }
}

}  // namespace qrt_tool
