#include "qrt_toolkit/explain/html.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace marlo::toolkit::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

runtime::TensorShape plane() {
  return runtime::TensorShape({8, 4, 4}, runtime::DataType::FLOAT32, runtime::LayoutType::CHW);
}

/// An explanation of so many layers whose names are markup.
Explanation explanation_of(size_t layers) {
  Explanation all;
  all.network = "a<b>&\"c\"";
  all.machine.processor = "a <processor>";
  all.machine.gigaflops.fill(100);
  all.machine.levels.push_back({"L1", 32768, {}});
  all.machine.levels.push_back({"memory", 0, {}});
  for (MemoryLevel& level : all.machine.levels) level.bandwidth.fill({20, 20});
  for (size_t i = 0; i < layers; ++i) {
    ExplainedLayer layer;
    layer.id = "<script>alert(" + std::to_string(i) + ")</script>&'\"";
    layer.kind = i % 2 == 0 ? "Conv2d" : "Activation";
    layer.kernel = "Kernel_" + std::to_string(i);
    layer.inputs = layer.outputs = {plane()};
    layer.ms = 0.5;
    layer.work = {1000000, 512, 512, 0};
    layer.roofline = roofline_of(layer.work, layer.ms, 1024, KernelSet::sse, all.machine);
    layer.candidates.resize(2);
    layer.candidates[0].kernel = "Faster<" + std::to_string(i) + ">";
    layer.candidates[0].ms = 0.25;
    layer.candidates[0].is_measured = true;
    layer.candidates[1].kernel = layer.kernel;
    layer.candidates[1].ms = 0.5;
    layer.candidates[1].is_measured = layer.candidates[1].is_chosen = true;
    layer.refusals.push_back({"Other", KernelSet::sse, {"groups: needs < 2 & > 0, has 8"}});
    all.kernels_ms += layer.ms;
    all.layers.push_back(layer);
  }
  if (layers > 0) {
    all.layers[0].converters.push_back({"output 0", "Move", 0.25, {}});
    all.converters_ms = 0.25;
  }
  all.kinds = {{"Conv2d", (layers + 1) / 2, 0.5, 0.1, 1}, {"converter", 1, 0.25, 0.1, 0}};
  all.engine_ms = 0.25;
  all.pass_ms = all.kernels_ms + all.converters_ms + all.engine_ms;
  return all;
}

size_t count_of(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

/// The elements that are open at the end, or that were closed in another order; empty for sound
/// markup.
std::string structure_fault(const std::string& html) {
  std::vector<std::string> open;
  for (size_t at = html.find('<'); at != std::string::npos; at = html.find('<', at + 1)) {
    const size_t end = html.find('>', at);
    if (end == std::string::npos) return "an element without an end";
    const std::string tag = html.substr(at + 1, end - at - 1);
    if (tag[0] == '!' || tag.back() == '/') continue;
    const std::string name = tag.substr(tag[0] == '/' ? 1 : 0, tag.find_first_of(" >"));
    if (name == "meta") continue;
    if (tag[0] != '/') {
      open.push_back(name);
    } else if (open.empty() || open.back() != name) {
      return "</" + name + "> behind <" + (open.empty() ? "" : open.back()) + ">";
    } else {
      open.pop_back();
    }
  }
  return open.empty() ? "" : "<" + open.back() + "> is open";
}

TEST(ExplainHtml, HoldsEveryLayerOnceInEachPart) {
  constexpr size_t kLayers = 12;
  const std::string html = explain_html(explanation_of(kLayers), "net");
  EXPECT_EQ(structure_fault(html), "");
  EXPECT_EQ(count_of(html, "<details id=\"layer-"), kLayers);
  EXPECT_EQ(count_of(html, "<circle "), kLayers);
  EXPECT_EQ(count_of(html, "<rect "), kLayers + 2) << "a converter and the engine beside them";
  for (size_t i = 0; i < kLayers; ++i) {
    const std::string link = "<a href=\"#layer-" + std::to_string(i) + "\"";
    EXPECT_EQ(count_of(html, link), i == 0 ? 4u : 3u) << i;
  }
  EXPECT_EQ(count_of(html, "needs &lt; 2 &amp; &gt; 0, has 8"), kLayers);
  EXPECT_EQ(count_of(html, "<code>Faster&lt;"), 2 * kLayers);
  EXPECT_THAT(html, HasSubstr("-50.0 %"));
}

TEST(ExplainHtml, NamesStayText) {
  const std::string html = explain_html(explanation_of(2), "</title><b>\x01");
  EXPECT_THAT(html, Not(HasSubstr("<script")));
  EXPECT_THAT(html, Not(HasSubstr("</title><b>")));
  EXPECT_THAT(html, HasSubstr("&lt;script&gt;alert(1)&lt;/script&gt;&amp;&#39;&quot;"));
  EXPECT_THAT(html, HasSubstr("a&lt;b&gt;&amp;&quot;c&quot;"));
  EXPECT_EQ(structure_fault(html), "");
}

TEST(ExplainHtml, NeedsNothingElse) {
  const std::string html = explain_html(explanation_of(3), "net");
  for (const char* part : {"http:", "https:", "src=", "@import", "url(", "<link"}) {
    EXPECT_THAT(html, Not(HasSubstr(part)));
  }
  EXPECT_THAT(html, HasSubstr("<html lang=\"en\">"));
}

TEST(ExplainHtml, RectanglesFillThePassToScale) {
  const std::string html = explain_html(explanation_of(4), "net");
  // Four layers of 0.5 ms, 0.25 ms of converters and as much between: 2.5 ms are 1000.
  EXPECT_EQ(count_of(html, " width=\"200.00\" height"), 4u);
  EXPECT_EQ(count_of(html, " width=\"100.00\" height"), 2u);
  EXPECT_THAT(html, HasSubstr("x=\"900.00\""));
}

TEST(ExplainHtml, WhatIsMissingIsSaid) {
  Explanation all = explanation_of(1);
  EXPECT_THAT(explain_html(all, "net"), Not(HasSubstr("Not everything was measured")));
  all.is_complete = false;
  all.notes = {"a <note>"};
  const std::string html = explain_html(all, "net");
  EXPECT_THAT(html, HasSubstr("Not everything was measured"));
  EXPECT_THAT(html, HasSubstr("<p>a &lt;note&gt;</p>"));
}

TEST(ExplainHtml, OperationsAByteStandInATable) {
  const std::string html = explain_html(explanation_of(1), "net");
  EXPECT_THAT(html, HasSubstr("<th class=\"n\" scope=\"col\">operations a byte</th>"));
  // 2 million operations on 1024 bytes.
  EXPECT_THAT(html, HasSubstr("<td class=\"n\">1953.1</td>"));
}

TEST(ExplainHtml, NothingAtAllIsAPageToo) {
  const std::string html = explain_html(explanation_of(0), "net");
  EXPECT_EQ(structure_fault(html), "");
  EXPECT_THAT(html, HasSubstr("nothing to show"));
  EXPECT_EQ(structure_fault(explain_html(Explanation(), "")), "");
}

/// A browser that runs without a window: the one that QRT_TEST_BROWSER names, or else what Debian calls it; empty for
/// none.
std::string browser_path() {
  if (const char* named = std::getenv("QRT_TEST_BROWSER")) return named;
  for (const char* path : {"/usr/bin/chromium", "/usr/bin/chromium-browser"}) {
    if (std::filesystem::exists(path)) return path;
  }
  return "";
}

std::string bytes_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// In a real browser: every layer has a place on the page, nothing is wider than the window, and
// something is drawn. Frames are the windows, so that the browser starts once.
TEST(ExplainHtml, LooksRightInABrowser) {
  const std::string browser = browser_path();
  if (browser.empty()) {
    GTEST_SKIP() << "there is no chromium, and QRT_TEST_BROWSER names no other browser";
  }
  if (std::getenv("QRT_TEST_LAUNCHER") != nullptr) {
    GTEST_SKIP() << "on an emulated processor a page looks the same";
  }
  const marlo::test::TemporaryFolder folder;
  std::string html = explain_html(explanation_of(6), "net");
  const std::string probe =
      "<script>parent.postMessage('width '+(document.documentElement.scrollWidth<=innerWidth)+"
      "', layers '+[...document.querySelectorAll('details')].filter(d=>"
      "d.getBoundingClientRect().height>0).length,'*');</script>";
  html.insert(html.find("</body>"), probe);
  std::ofstream(folder.file("page.html")) << html;
  std::ofstream(folder.file("frames.html"))
      << "<title></title><script>onmessage=e=>document.title+='['+e.data+']';</script>"
         "<iframe width=1280 height=900 src=page.html></iframe>"
         "<iframe width=400 height=800 src=page.html></iframe>";
  const std::string dump = folder.file("dom.html");
  const std::string picture = folder.file("page.png");
  const std::string command =
      "timeout 60 '" + browser +
      "' --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --no-first-run "
      "--window-size=1720,920 --virtual-time-budget=5000 --user-data-dir='" +
      folder.file("profile") + "' --screenshot='" + picture + "' --dump-dom 'file://" +
      folder.file("frames.html") + "' >'" + dump + "' 2>/dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_THAT(bytes_of(dump),
              HasSubstr("<title>[width true, layers 6][width true, layers 6]</title>"));
  // Width and height stand in the first part of the file, and one colour packs to a few bytes.
  const std::string png = bytes_of(picture);
  constexpr size_t kBlank = 12000;
  ASSERT_GT(png.size(), kBlank);
  EXPECT_EQ(png.substr(16, 8), std::string("\0\0\x06\xb8\0\0\x03\x98", 8));
}

}  // namespace
}  // namespace marlo::toolkit::test
