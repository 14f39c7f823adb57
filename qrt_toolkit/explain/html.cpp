#include "qrt_toolkit/explain/html.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/explain/html_parts.h"

namespace marlo::toolkit {
namespace {

std::string cell(const std::string& text) { return "<td>" + text + "</td>"; }

std::string number_cell(const std::string& text) { return "<td class=\"n\">" + text + "</td>"; }

/// The heads of columns, in the order in which they stand; those of numbers begin with a minus.
std::string heads(const std::vector<std::string>& columns) {
  std::string html = "<thead><tr>";
  for (const std::string& column : columns) {
    const bool is_number = column[0] == '-';
    html += std::string("<th ") + (is_number ? "class=\"n\" " : "") + "scope=\"col\">" +
            html_text(column.substr(is_number ? 1 : 0)) + "</th>";
  }
  return html + "</tr></thead>\n<tbody>\n";
}

std::string optional_number(double number, int decimals) {
  return number > 0 ? html_number(number, decimals) : "";
}

std::string link_to(size_t layer, const std::string& id) {
  return "<a href=\"#layer-" + std::to_string(layer) + "\">" + html_text(id) + "</a>";
}

/// A bar with its number, as long as a share of all.
std::string bar_cell(const Roofline& roofline, double ms) {
  if (roofline.bound == Bound::none || ms <= 0) return cell("");
  const double percent = 100 * std::clamp(roofline.share, 0.0, 1.0);
  return "<td class=\"share\"><span class=\"bar\"><span class=\"" +
         std::string(roofline.bound == Bound::arithmetic ? "arithmetic" : "memory") +
         "\" style=\"width:" + html_number(percent, 1) + "%\"></span></span> " +
         html_percent(roofline.share) + "</td>";
}

std::string legend(const Explanation& all) {
  std::string html = "<ul class=\"legend\">\n";
  for (const ExplainedKind& kind : all.kinds) {
    html += "<li><span class=\"swatch " + kind_class(all, kind.kind) + "\"></span>" +
            html_text(kind.kind) + "</li>\n";
  }
  return html + "<li><span class=\"swatch engine\"></span>engine</li>\n</ul>\n";
}

std::string kinds_table(const Explanation& all) {
  std::string html =
      std::string("<div class=\"wide\"><table>\n<caption>Time by kind of layer</caption>\n") +
      heads({"kind", "-kernels", "-ms", "-share"});
  const auto row = [&](const std::string& name, const std::string& count, double ms) {
    html += "<tr><th scope=\"row\">" + html_text(name) + "</th>" + number_cell(count) +
            number_cell(html_number(ms, 4)) +
            number_cell(html_percent(all.pass_ms > 0 ? ms / all.pass_ms : 0)) + "</tr>\n";
  };
  for (const ExplainedKind& kind : all.kinds) row(kind.kind, std::to_string(kind.layers), kind.ms);
  row("engine", "", all.engine_ms);
  row("a pass", "", all.pass_ms);
  return html + "</tbody></table></div>\n";
}

std::string layers_table(const Explanation& all) {
  std::string html = std::string(
                         "<div class=\"wide\"><table>\n<caption>Layers in the order in which they "
                         "run</caption>\n") +
                     heads({"-#", "layer", "kernel", "-ms", "-share", "-GFLOP/s", "-GB/s",
                            "-operations a byte", "of the limit", "limit"});
  const auto row = [&](const std::string& number, const std::string& name,
                       const std::string& kernel, double ms, const Roofline& roofline) {
    html += "<tr>" + number_cell(number) + "<th scope=\"row\">" + name + "</th>" +
            cell("<code>" + html_text(kernel) + "</code>") + number_cell(html_number(ms, 4)) +
            number_cell(html_percent(all.pass_ms > 0 ? ms / all.pass_ms : 0)) +
            number_cell(optional_number(roofline.gigaflops, 1)) +
            number_cell(optional_number(roofline.gigabytes, 1)) +
            number_cell(optional_number(roofline.intensity, 1)) + bar_cell(roofline, ms) +
            cell(html_text(limit_name(roofline, all.machine))) + "</tr>\n";
  };
  for (size_t i = 0; i < all.layers.size(); ++i) {
    const ExplainedLayer& layer = all.layers[i];
    row(std::to_string(i), link_to(i, layer.id), layer.kernel, layer.ms, layer.roofline);
    for (const ExplainedConverter& converter : layer.converters) {
      row("", html_text(layer.id + " " + converter.role), converter.kernel, converter.ms,
          converter.roofline);
    }
  }
  return html + "</tbody></table></div>\n";
}

std::string candidates_table(const ExplainedLayer& layer) {
  std::string html =
      std::string("<div class=\"wide\"><table>\n<caption>Kernels that can run it</caption>\n") +
      heads({"kernel", "needs", "reads", "-ms alone", "-converters ms", "-behind",
             "-results differ by"});
  for (const ExplainedCandidate& candidate : layer.candidates) {
    char difference[32];
    std::snprintf(difference, sizeof difference, "%.2g", candidate.difference);
    html += "<tr><th scope=\"row\"><code>" + html_text(candidate.kernel) + "</code></th>" +
            cell(word_of(candidate.set)) +
            cell(candidate.inputs.empty() ? "" : runtime::LayoutText(candidate.inputs[0].layout)) +
            number_cell((candidate.is_measured ? "" : "~") + html_number(candidate.ms, 4)) +
            number_cell(optional_number(candidate.converters_ms, 4)) +
            number_cell(candidate.is_chosen ? "chosen" : behind_chosen(candidate, layer)) +
            number_cell(difference) + "</tr>\n";
  }
  return html + "</tbody></table></div>\n";
}

std::string refusals_list(const ExplainedLayer& layer) {
  std::string html = "<h4>Kernels that can't</h4>\n<dl>\n";
  for (const ExplainedRefusal& refusal : layer.refusals) {
    html += "<dt><code>" + html_text(refusal.kernel) + "</code></dt>\n";
    for (const std::string& reason : refusal.reasons) {
      html += "<dd>" + html_text(reason) + "</dd>\n";
    }
  }
  return html + "</dl>\n";
}

std::string layer_details(const Explanation& all, size_t i) {
  const ExplainedLayer& layer = all.layers[i];
  std::string html = "<details id=\"layer-" + std::to_string(i) + "\"><summary>" +
                     std::to_string(i) + " <strong>" + html_text(layer.id) + "</strong> " +
                     html_text(layer.kind) + ", " + html_number(layer.ms, 4) + " ms";
  if (const ExplainedCandidate* second = second_of(layer)) {
    html +=
        ", second <code>" + html_text(second->kernel) + "</code> " + behind_chosen(*second, layer);
  }
  html += "</summary>\n<p>Reads " + html_text(runtime::ShapesText(layer.inputs)) + ", makes " +
          html_text(runtime::ShapesText(layer.outputs)) + " by <code>" + html_text(layer.kernel) +
          "</code>.</p>\n";
  if (!layer.candidates.empty()) html += candidates_table(layer);
  if (!layer.refusals.empty()) html += refusals_list(layer);
  if (layer.candidates.empty()) html += "<p>No other kernel was looked for.</p>\n";
  return html + "</details>\n";
}

/// What a reader should know before he believes the numbers.
std::string remarks(const Explanation& all) {
  std::string html;
  if (!all.is_complete) {
    html += "<p>Not everything was measured: times with a tilde are estimates.</p>\n";
  }
  for (const std::string& note : all.notes) {
    html += "<p>";
    html += html_text(note);
    html += "</p>\n";
  }
  return html;
}

std::string machine_table(const MachineLimits& machine) {
  std::vector<std::string> columns{"kernels", "-GFLOP/s"};
  for (const MemoryLevel& level : machine.levels) columns.push_back("-" + level.name + " GB/s");
  std::string html = "<div class=\"wide\"><table>\n<caption>Limits of one core of " +
                     html_text(machine.processor) + "</caption>\n" + heads(columns);
  for (size_t s = 1; s < machine.gigaflops.size(); ++s) {
    if (machine.gigaflops.at(s) <= 0) continue;
    html += std::string("<tr><th scope=\"row\">") + word_of(static_cast<KernelSet>(s)) + "</th>" +
            number_cell(html_number(machine.gigaflops.at(s), 1));
    for (const MemoryLevel& level : machine.levels) {
      html += number_cell(html_number(level.bandwidth.at(s).copy, 1));
    }
    html += "</tr>\n";
  }
  return html + "</tbody></table></div>\n";
}

}  // namespace

std::string html_text(const std::string& text) {
  std::string safe;
  for (const char c : text) {
    switch (c) {
      case '&':
        safe += "&amp;";
        break;
      case '<':
        safe += "&lt;";
        break;
      case '>':
        safe += "&gt;";
        break;
      case '"':
        safe += "&quot;";
        break;
      case '\'':
        safe += "&#39;";
        break;
      default:
        safe += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
    }
  }
  return safe;
}

std::string html_number(double number, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, std::isfinite(number) ? number : 0.0);
  return text;
}

std::string html_percent(double share) { return html_number(100 * share, 1) + " %"; }

const std::string& counted_kind(const ExplainedLayer& layer) {
  static const std::string converter = kConverterKind;
  return layer.is_converter ? converter : layer.kind;
}

std::string kind_class(const Explanation& explanation, const std::string& kind) {
  constexpr size_t kColours = 7;
  if (kind == kConverterKind) return "converter";
  const auto& kinds = explanation.kinds;
  size_t place = 0;
  for (const ExplainedKind& other : kinds) {
    if (other.kind == kind) break;
    if (other.kind != kConverterKind) ++place;
  }
  return "kind" + std::to_string(std::min(place, kColours));
}

std::string explain_html(const Explanation& explanation, const std::string& title) {
  const Explanation& all = explanation;
  const auto share = [&](double ms) {
    return html_percent(all.pass_ms > 0 ? ms / all.pass_ms : 0);
  };
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
      html_text(title) + "</title>\n<style>\n" + html_style() +
      "</style>\n</head>\n<body>\n<main>\n<h1>" + html_text(title) +
      "</h1>\n<p>A pass of network " + html_text(all.network) + " takes <strong>" +
      html_number(all.pass_ms, 4) + " ms</strong> (median of " + std::to_string(all.passes) +
      "): " + share(all.kernels_ms) + " in kernels, " + share(all.converters_ms) +
      " in converters, " + share(all.engine_ms) +
      " between them. At this machine's limits it would take " + html_number(all.limit_ms, 4) +
      " ms.</p>\n" + remarks(all);
  html += "<section aria-labelledby=\"time\">\n<h2 id=\"time\">Timeline</h2>\n" +
          html_timeline(all) + legend(all) + kinds_table(all) + "</section>\n";
  html +=
      "<section aria-labelledby=\"limits\">\n<h2 id=\"limits\">Against the limit</h2>\n"
      "<p>The limit of a kernel is the longer of two times: its multiply-adds at the peak of "
      "its instructions, and its bytes at the bandwidth of the memory that they lie in. Kernels "
      "by minimal filtering compute with fewer products than are counted.</p>\n" +
      layers_table(all) + machine_table(all.machine) + "</section>\n";
  html +=
      "<section aria-labelledby=\"intensity\">\n<h2 id=\"intensity\">Arithmetic intensity</h2>\n" +
      html_intensity(all) + "</section>\n";
  html += "<section aria-labelledby=\"candidates\">\n<h2 id=\"candidates\">Candidates</h2>\n";
  for (size_t i = 0; i < all.layers.size(); ++i) html += layer_details(all, i);
  return html + "</section>\n</main>\n</body>\n</html>\n";
}

}  // namespace marlo::toolkit
