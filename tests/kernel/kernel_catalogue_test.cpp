#include "tests/support/kernel_catalogue.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "qrt_core/utility/build_options.h"
#include "tests/support/kernels.h"
#include "tests/support/paths.h"

namespace marlo::test {
namespace {

TEST(KernelCatalogue, HasEveryRegisteredKernel) {
  const auto facts = kernel_facts();
  for (const std::string& key : all_kernels().Keys()) {
    const auto found = facts.find(key);
    ASSERT_NE(found, facts.end()) << key << ": give its rows to facts_of_rows()";
    EXPECT_FALSE(found->second.accepts.empty()) << key;
    EXPECT_FALSE(found->second.input.empty()) << key;
    EXPECT_FALSE(found->second.output.empty()) << key;
    EXPECT_FALSE(found->second.agreement.empty()) << key;
  }
  EXPECT_EQ(facts.size(), all_kernels().Keys().size());
}

#if QRT_WITH_SSE && QRT_WITH_AVX && QRT_WITH_SGEMM
void expect_page(const std::string& name, const std::string& page) {
  std::ostringstream text;
  text << std::ifstream(source_path("docs/" + name)).rdbuf();
  EXPECT_TRUE(text.str() == page) << "docs/" << name << " isn't up to date: run ./dev catalogue";
}

TEST(KernelCatalogue, IsWhatTheDocumentSays) {
  expect_page("kernel-catalogue.md", kernel_catalogue());
#if QRT_WITH_EXTENSIONS
  expect_page("kernel-catalogue-extensions.md", extension_catalogue());
#endif
}

TEST(KernelCatalogue, HasNoRemarkWithoutAKernel) { EXPECT_EQ(stale_remarks(), ""); }
#endif

}  // namespace
}  // namespace marlo::test
