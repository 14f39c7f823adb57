#include "tools/qrt/half_report.h"

#include <functional>

#include "tools/qrt/layer_facts.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::HalfConversion;
using marlo::runtime::HalfLoss;
using marlo::runtime::LayerWeight;
using marlo::runtime::QRModelInfo;
using marlo::runtime::QRModelInfoArr;
using marlo::runtime::Serializable;
using marlo::runtime::WeightBlob;

namespace {

using Measure = std::function<HalfLoss(WeightBlob&)>;

std::string lost_text(const HalfLoss& loss) {
  std::vector<std::string> parts;
  const auto add = [&](uint64_t count, const char* what) {
    if (count == 0) return;
    const std::string whole = parts.empty() ? " of " + counted(loss.numbers, "number") : "";
    parts.push_back(std::to_string(count) + whole + (count == 1 ? " becomes " : " become ") + what);
  };
  add(loss.infinite, "infinite");
  add(loss.zero, "0");
  return joined(parts, ", ");
}

void add_network(QRModelInfo& network, const std::string& prefix, const Measure& measure,
                 HalfReport& report) {
  for (size_t i = 0; i < network.squential_ids.size(); ++i) {
    const std::string& id = network.squential_ids[i];
    auto& layer = *network.layers.at(id);
    for (const LayerWeight& weight : marlo::runtime::WeightsOf(layer)) {
      const HalfLoss loss = measure(*weight.blob);
      report.loss += loss;
      if (loss.infinite == 0 && loss.zero == 0) continue;
      const std::string place = weight.listed ? "[" + std::to_string(weight.index) + "]" : "";
      std::string& lost = report.lost.emplace_back(prefix);
      lost.append("layer ")
          .append(std::to_string(i))
          .append(" ")
          .append(in_quotes(id))
          .append(" (");
      lost.append(kind_of(layer)).append("), ").append(in_quotes(weight.key)).append(place);
      lost.append(": ").append(lost_text(loss));
      if (loss.infinite != 0) report.infinite.push_back(lost);
    }
  }
}

void add_networks(QRModelInfoArr& networks, const Measure& measure, HalfReport& report) {
  for (const std::string& id : networks.squential_ids) {
    add_network(*networks.infos.at(id), "network " + in_quotes(id) + ", ", measure, report);
  }
}

HalfReport report_of(Serializable& object, const Measure& measure) {
  HalfReport report;
  if (auto* model = dynamic_cast<marlo::runtime::QRTModel*>(&object)) {
    add_networks(*model->model_arr, measure, report);
  } else if (auto* networks = dynamic_cast<QRModelInfoArr*>(&object)) {
    add_networks(*networks, measure, report);
  } else if (auto* network = dynamic_cast<QRModelInfo*>(&object)) {
    add_network(*network, "", measure, report);
  }
  return report;
}

}  // namespace

std::string HalfReport::summary() const {
  return counted(loss.numbers, "weight") + " as halves: relative error at most " +
         short_decimal(loss.max_relative_error) + ", rms " + short_decimal(loss.rms_relative_error);
}

HalfReport measure_halves(const Serializable& object, HalfConversion conversion) {
  // Listing a layer's weights walks it, which needs an object that may change; its numbers don't.
  return report_of(const_cast<Serializable&>(object), [&](const WeightBlob& blob) {
    return marlo::runtime::MeasureHalfLoss(blob, conversion);
  });
}

HalfReport round_to_halves(Serializable& object) {
  return report_of(object, [](WeightBlob& blob) { return marlo::runtime::RoundToHalves(blob); });
}

}  // namespace qrt_tool
