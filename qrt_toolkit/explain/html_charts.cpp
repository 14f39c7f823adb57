#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "qrt_toolkit/explain/html_parts.h"

namespace marlo::toolkit {
namespace {

constexpr double kWidth = 1000;

std::string attribute(const char* name, double value) {
  return std::string(" ") + name + "=\"" + html_number(value, 2) + "\"";
}

/// @param role of a converter; empty for a layer's own kernel
std::string span_text(const std::string& layer, const std::string& role, const std::string& kernel,
                      double ms, const Explanation& all) {
  const std::string name = role.empty() ? layer : layer + " " + role;
  return html_text(name + ", " + kernel + ": ") + html_number(ms, 4) + " ms, " +
         html_percent(all.pass_ms > 0 ? ms / all.pass_ms : 0) + " of a pass";
}

/// Rectangles beside each other.
class Timeline {
 public:
  explicit Timeline(const Explanation& all)
      : all_(all),
        whole_(std::max(all.pass_ms, all.kernels_ms + all.converters_ms + all.engine_ms)) {}

  void add(const std::string& kind, const std::string& text, double ms, size_t layer) {
    const double width = whole_ > 0 ? kWidth * ms / whole_ : 0;
    svg_ += "<a href=\"#layer-" + std::to_string(layer) + "\" aria-label=\"" + text +
            "\"><rect class=\"" + kind_class(all_, kind) + "\"" + attribute("x", at_) + " y=\"4\"" +
            attribute("width", width) + " height=\"52\"><title>" + text + "</title></rect></a>\n";
    at_ += width;
  }

  std::string finish() {
    const std::string engine = "between the kernels: " + html_number(all_.engine_ms, 4) + " ms";
    svg_ += "<rect class=\"engine\"" + attribute("x", at_) + " y=\"4\"" +
            attribute("width", std::max(0.0, kWidth - at_)) + " height=\"52\"><title>" + engine +
            "</title></rect>\n";
    return svg_;
  }

 private:
  const Explanation& all_;
  double whole_;
  double at_ = 0;
  std::string svg_;
};

/// A logarithmic scale from one whole power of ten to another.
struct Scale {
  double low = 0;  // exponents
  double high = 1;
  double from = 0;  // places
  double to = 1;

  double at(double value) const {
    const double part = (std::log10(value) - low) / (high - low);
    return from + (to - from) * std::clamp(part, 0.0, 1.0);
  }
};

Scale scale_of(const std::vector<double>& values, double from, double to) {
  Scale scale{0, 1, from, to};
  bool is_first = true;
  for (const double value : values) {
    if (!(value > 0) || !std::isfinite(value)) continue;
    const double exponent = std::log10(value);
    scale.low = is_first ? std::floor(exponent) : std::min(scale.low, std::floor(exponent));
    scale.high = is_first ? std::ceil(exponent) : std::max(scale.high, std::ceil(exponent));
    is_first = false;
  }
  if (scale.high <= scale.low) scale.high = scale.low + 1;
  return scale;
}

std::string power_text(double exponent) {
  return exponent < 0 ? html_number(std::pow(10, exponent), static_cast<int>(-exponent))
                      : html_number(std::pow(10, exponent), 0);
}

std::string text_at(double x, double y, const char* anchor, const std::string& text) {
  return "<text" + attribute("x", x) + attribute("y", y) + " text-anchor=\"" + anchor + "\">" +
         text + "</text>\n";
}

std::string line(double x1, double y1, double x2, double y2, const char* name) {
  return std::string("<line class=\"") + name + "\"" + attribute("x1", x1) + attribute("y1", y1) +
         attribute("x2", x2) + attribute("y2", y2) + "/>\n";
}

constexpr double kLeft = 70;
constexpr double kRight = 980;
constexpr double kTop = 16;
constexpr double kBottom = 380;

std::string grid(const Scale& x, const Scale& y) {
  std::string svg;
  for (double e = x.low; e <= x.high; ++e) {
    const double at = x.at(std::pow(10, e));
    svg += line(at, kTop, at, kBottom, "grid") + text_at(at, kBottom + 18, "middle", power_text(e));
  }
  for (double e = y.low; e <= y.high; ++e) {
    const double at = y.at(std::pow(10, e));
    svg += line(kLeft, at, kRight, at, "grid") + text_at(kLeft - 8, at + 5, "end", power_text(e));
  }
  return svg + text_at((kLeft + kRight) / 2, kBottom + 38, "middle", "operations a byte") +
         text_at(kLeft, kTop - 4, "start", "GFLOP/s");
}

/// The peak of a set, and the slopes of memory's levels up to it.
std::string roofs(const Explanation& all, KernelSet best, const Scale& x, const Scale& y) {
  const auto s = static_cast<size_t>(best);
  const double peak = all.machine.gigaflops.at(s);
  if (peak <= 0) return "";
  std::string svg;
  const double least = std::pow(10, x.low);
  double ridge = std::pow(10, x.high);
  for (const MemoryLevel& level : all.machine.levels) {
    const double bandwidth = level.bandwidth.at(s).copy;
    if (bandwidth <= 0) continue;
    const double meets = peak / bandwidth;
    ridge = std::min(ridge, meets);
    // Where the slope leaves the chart at its lower edge, or at its left one.
    const double begin = std::max(least, std::pow(10, y.low) / bandwidth);
    if (begin >= meets) continue;
    svg += line(x.at(begin), y.at(begin * bandwidth), x.at(meets), y.at(peak), "roof");
    svg += text_at(x.at(begin) + 6, y.at(begin * bandwidth) - 6, "start", html_text(level.name));
  }
  svg += line(x.at(ridge), y.at(peak), kRight, y.at(peak), "roof");
  return svg + text_at(kRight, y.at(peak) - 6, "end",
                       std::string(word_of(best)) + " " + html_number(peak, 0) + " GFLOP/s");
}

std::string point_text(const ExplainedLayer& layer) {
  return html_text(layer.id + ": ") + html_number(layer.roofline.gigaflops, 1) + " GFLOP/s at " +
         html_number(layer.roofline.intensity, 1) + " operations a byte";
}

}  // namespace

std::string html_timeline(const Explanation& explanation) {
  Timeline timeline(explanation);
  for (size_t i = 0; i < explanation.layers.size(); ++i) {
    const ExplainedLayer& layer = explanation.layers[i];
    // Converters of inputs run before the kernel, those of outputs behind it.
    for (const bool is_behind : {false, true}) {
      if (is_behind) {
        timeline.add(counted_kind(layer),
                     span_text(layer.id, "", layer.kernel, layer.ms, explanation), layer.ms, i);
      }
      for (const ExplainedConverter& converter : layer.converters) {
        if ((converter.role.rfind("output", 0) == 0) != is_behind) continue;
        timeline.add(
            "converter",
            span_text(layer.id, converter.role, converter.kernel, converter.ms, explanation),
            converter.ms, i);
      }
    }
  }
  return "<svg class=\"timeline\" viewBox=\"0 0 1000 60\" preserveAspectRatio=\"none\" "
         "role=\"group\" aria-label=\"A pass from its beginning to its end, to scale\">\n" +
         timeline.finish() + "</svg>\n";
}

std::string html_intensity(const Explanation& explanation) {
  std::vector<double> across;
  std::vector<double> up;
  KernelSet best = KernelSet::portable;
  for (const ExplainedLayer& layer : explanation.layers) {
    if (layer.roofline.gigaflops <= 0 || layer.roofline.intensity <= 0) continue;
    across.push_back(layer.roofline.intensity);
    up.push_back(layer.roofline.gigaflops);
    best = std::max(best, layer.roofline.set);
  }
  if (across.empty()) return "<p>No layer multiplies, so there is nothing to show.</p>\n";
  up.push_back(explanation.machine.gigaflops.at(static_cast<size_t>(best)));
  const Scale x = scale_of(across, kLeft, kRight);
  const Scale y = scale_of(up, kBottom, kTop);
  std::string svg =
      "<svg class=\"intensity\" viewBox=\"0 0 1000 430\" role=\"group\" "
      "aria-label=\"Speed of layers over their arithmetic intensity\">\n";
  svg += grid(x, y) + roofs(explanation, best, x, y);
  for (size_t i = 0; i < explanation.layers.size(); ++i) {
    const ExplainedLayer& layer = explanation.layers[i];
    const Roofline& roofline = layer.roofline;
    if (roofline.gigaflops <= 0 || roofline.intensity <= 0) continue;
    const std::string text = point_text(layer);
    svg.append("<a href=\"#layer-").append(std::to_string(i));
    svg.append("\" aria-label=\"").append(text).append("\"><circle class=\"");
    svg.append(kind_class(explanation, counted_kind(layer))).append("\"");
    svg.append(attribute("cx", x.at(roofline.intensity)));
    svg.append(attribute("cy", y.at(roofline.gigaflops)));
    svg.append(" r=\"7\"><title>").append(text).append("</title></circle></a>\n");
  }
  return svg + "</svg>\n";
}

}  // namespace marlo::toolkit
