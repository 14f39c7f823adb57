#include "tools/qrt/explain_output.h"

#include "qrt_core/runtime/tensor/shape_text.h"
#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::toolkit::ExplainedCandidate;
using marlo::toolkit::ExplainedConverter;
using marlo::toolkit::ExplainedKind;
using marlo::toolkit::ExplainedLayer;
using marlo::toolkit::ExplainedRefusal;
using marlo::toolkit::Explanation;
using marlo::toolkit::KernelSet;
using marlo::toolkit::MachineLimits;
using marlo::toolkit::Roofline;

namespace {

std::string percent(double share) { return decimal(100.0 * share, 1) + " %"; }

std::string share_of(double ms, double of_ms) { return of_ms > 0 ? percent(ms / of_ms) : ""; }

std::string rate(double giga) { return giga > 0 ? decimal(giga, 1) : ""; }

/// Cells for a time and what it is compared with.
void add_times(std::vector<std::string>& cells, double ms, const Roofline& roofline,
               const Explanation& all) {
  const bool has_limit = roofline.limit_ms > 0 && ms > 0;
  for (const std::string& cell :
       {decimal(ms, 4), share_of(ms, all.pass_ms), rate(roofline.gigaflops),
        rate(roofline.gigabytes), has_limit ? percent(roofline.share) : "",
        limit_name(roofline, all.machine)}) {
    cells.push_back(cell);
  }
}

std::string layers_table(const Explanation& all, size_t width) {
  Table table({{"#", true},
               {"layer", false, true},
               {"kernel", false, true},
               {"output"},
               {"ms", true},
               {"share", true},
               {"GFLOP/s", true},
               {"GB/s", true},
               {"of limit", true},
               {"limit"},
               {"second", false, true},
               {"by", true}});
  for (size_t i = 0; i < all.layers.size(); ++i) {
    const ExplainedLayer& layer = all.layers[i];
    const std::string output = layer.outputs.empty() ? "" : sizes_text(layer.outputs[0].dims);
    std::vector<std::string> cells{std::to_string(i), layer.id, layer.kernel, output};
    add_times(cells, layer.ms, layer.roofline, all);
    if (const ExplainedCandidate* second = second_of(layer)) {
      cells.insert(cells.end(), {second->kernel, behind_chosen(*second, layer)});
    }
    table.add(std::move(cells));
    for (const ExplainedConverter& converter : layer.converters) {
      std::vector<std::string> below{"", layer.id + " " + converter.role, converter.kernel, ""};
      add_times(below, converter.ms, converter.roofline, all);
      table.add(std::move(below));
    }
  }
  return table.text(width);
}

std::string kinds_table(const Explanation& all, size_t width) {
  Table table({{"kind", false, true},
               {"kernels", true},
               {"ms", true},
               {"share", true},
               {"GFLOP/s", true},
               {"of limit", true}});
  for (const ExplainedKind& kind : all.kinds) {
    constexpr double kPerMillisecond = 1e6;
    const double operations = 2.0 * static_cast<double>(kind.multiply_adds) / kPerMillisecond;
    const bool has_limit = kind.limit_ms > 0 && kind.ms > 0;
    table.add({kind.kind, std::to_string(kind.layers), decimal(kind.ms, 4),
               share_of(kind.ms, all.pass_ms), rate(kind.ms > 0 ? operations / kind.ms : 0),
               has_limit ? percent(kind.limit_ms / kind.ms) : ""});
  }
  table.add({"engine", "", decimal(all.engine_ms, 4), share_of(all.engine_ms, all.pass_ms)});
  table.add_rule();
  table.add({"a pass", "", decimal(all.pass_ms, 4), share_of(all.pass_ms, all.pass_ms), "",
             all.pass_ms > 0 ? percent(all.limit_ms / all.pass_ms) : ""});
  return table.text(width);
}

std::string machine_table(const MachineLimits& machine, size_t width) {
  std::vector<Column> columns{{"limits of " + printable(machine.processor), false, true},
                              {"GFLOP/s", true}};
  for (const auto& level : machine.levels) columns.push_back({level.name + " GB/s", true});
  Table table(columns);
  for (size_t s = 1; s < machine.gigaflops.size(); ++s) {
    if (machine.gigaflops.at(s) <= 0) continue;
    std::vector<std::string> cells{marlo::toolkit::word_of(static_cast<KernelSet>(s)),
                                   decimal(machine.gigaflops.at(s), 1)};
    for (const auto& level : machine.levels) {
      cells.push_back(decimal(level.bandwidth.at(s).copy, 1));
    }
    table.add(std::move(cells));
  }
  return table.text(width);
}

}  // namespace

std::string explain_text(const Explanation& explanation, size_t width) {
  return layers_table(explanation, width) + "\n" + kinds_table(explanation, width) + "\n" +
         machine_table(explanation.machine, width);
}

std::string layer_text(const ExplainedLayer& layer, const Explanation& explanation, size_t width) {
  std::string text = printable(layer.id) + " (" + printable(layer.kind) +
                     "): " + decimal(layer.ms, 4) + " ms in a pass of " +
                     decimal(explanation.pass_ms, 4) + " ms\n";
  if (layer.candidates.empty()) return text + "no other kernel was looked for\n";
  Table candidates({{"kernel", false, true},
                    {"needs"},
                    {"reads"},
                    {"ms alone", true},
                    {"converters", true},
                    {"behind", true},
                    {"differs by", true}});
  for (const ExplainedCandidate& candidate : layer.candidates) {
    const std::string reads =
        candidate.inputs.empty() ? "" : marlo::runtime::LayoutText(candidate.inputs[0].layout);
    candidates.add({candidate.kernel, word_of(candidate.set), reads,
                    (candidate.is_measured ? "" : "~") + decimal(candidate.ms, 4),
                    candidate.converters_ms > 0 ? decimal(candidate.converters_ms, 4) : "",
                    candidate.is_chosen ? "chosen" : behind_chosen(candidate, layer),
                    candidate.difference > 0 ? short_decimal(candidate.difference) : "0"});
  }
  text += "\n" + candidates.text(width);
  if (layer.refusals.empty()) return text;
  text += "\nnot possible:\n";
  for (const ExplainedRefusal& refusal : layer.refusals) {
    text += printable(refusal.kernel) + "\n";
    for (const std::string& reason : refusal.reasons) {
      text += "    ";
      text += printable(reason);
      text += '\n';
    }
  }
  return text;
}

}  // namespace qrt_tool
