#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/kernel/kernels.h"
#include "tests/support/kernels.h"
#include "tests/support/paths.h"

// A family is tested by the rows of its list. These tests hold lists, registry and tests together,
// so that no kernel can be registered untested.

namespace marlo::test {
namespace {

using runtime::IKernel;

namespace fs = std::filesystem;

std::string text_of(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// The texts of the sources below a folder, without this one.
std::vector<std::string> sources_below(const std::string& folder) {
  std::vector<std::string> texts;
  for (const auto& entry : fs::recursive_directory_iterator(source_path(folder))) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".h" && extension != ".cpp") continue;
    if (entry.path().filename() != "rows_test.cpp") texts.push_back(text_of(entry.path()));
  }
  return texts;
}

bool any_contains(const std::vector<std::string>& texts, const std::string& part) {
  return std::any_of(texts.begin(), texts.end(), [&part](const std::string& text) {
    return text.find(part) != std::string::npos;
  });
}

// Whether a header lists its kernels in a list "..._rows" that some test walks.
bool has_walked_list(const std::string& header, const std::vector<std::string>& tests) {
  static const std::string kSuffix = "_rows = {";
  static const std::string kNameCharacters = "abcdefghijklmnopqrstuvwxyz0123456789_";
  for (size_t end = header.find(kSuffix); end != std::string::npos;
       end = header.find(kSuffix, end + 1)) {
    const size_t before = header.find_last_not_of(kNameCharacters, end);
    const size_t first = before == std::string::npos ? 0 : before + 1;
    const std::string list = header.substr(first, end + std::string("_rows").size() - first);
    if (any_contains(tests, list)) return true;
  }
  return false;
}

// The kernels in lists that some test walks and whose names are put together by macros, so that the
// rows themselves are asked: recurrent layers, and the second set.
std::set<std::string> walked_rows(const std::vector<std::string>& tests) {
  std::set<std::string> names;
  const auto add = [&](const char* list, const auto& rows) {
    EXPECT_TRUE(any_contains(tests, list)) << list << ": no test walks it";
    for (const auto* row : rows) names.insert(row->name);
  };
#define QRT_ADD_LIST(list) add(#list, kernel::list)
  QRT_ADD_LIST(recurrent_cell_rows);
  QRT_ADD_LIST(recurrent_sequence_rows);
#if QRT_WITH_EXTENSIONS
  QRT_ADD_LIST(extension_activation_rows);
  QRT_ADD_LIST(block_depthwise_rows);
  QRT_ADD_LIST(block_pooling_rows);
  QRT_ADD_LIST(block_transposed_rows);
  QRT_ADD_LIST(block_window_rows);
  QRT_ADD_LIST(block_winograd_rows);
  QRT_ADD_LIST(first_window_rows);
  QRT_ADD_LIST(last_window_rows);
  QRT_ADD_LIST(rectified_sum_rows);
  QRT_ADD_LIST(reshape_in_place_rows);
  QRT_ADD_LIST(element_function_rows);
  QRT_ADD_LIST(axis_softmax_rows);
  QRT_ADD_LIST(layer_norm_rows);
  QRT_ADD_LIST(group_norm_rows);
  QRT_ADD_LIST(binary_rows);
  QRT_ADD_LIST(axis_reduction_rows);
  QRT_ADD_LIST(dense_rows);
  QRT_ADD_LIST(matmul_rows);
  QRT_ADD_LIST(wide_sequence_rows);
  QRT_ADD_LIST(stated_sequence_rows);
  QRT_ADD_LIST(resize_rows);
  QRT_ADD_LIST(resize_like_rows);
#endif
#undef QRT_ADD_LIST
  return names;
}

// A kernel stands in a list that a test walks, or a test calls it by its name.
TEST(KernelRows, LeaveNoRegisteredKernelUntested) {
  const auto headers = sources_below("qrt_core/kernel");
  const auto named_in = sources_below("tests/kernel");
  auto walked_in = named_in;
  for (std::string& text : sources_below("tests/support")) walked_in.push_back(std::move(text));
  ASSERT_FALSE(headers.empty());
  ASSERT_FALSE(named_in.empty());
  const std::set<std::string> walked = walked_rows(walked_in);
  for (const std::string& key : all_kernels().Keys()) {
    const bool tested =
        any_contains(named_in, key) || walked.count(key) != 0 ||
        std::any_of(headers.begin(), headers.end(), [&](const std::string& header) {
          return header.find(key) != std::string::npos && has_walked_list(header, walked_in);
        });
    EXPECT_TRUE(tested) << key << " is registered, and no test runs it";
  }
}

TEST(KernelRows, AreTheRegisteredKernels) {
  std::multiset<std::string> names;
  const auto insert = [&](const kernel::KernelRow& row) { names.insert(row.name); };
  kernel::for_each_row(insert);
  kernel::for_each_extension_row(insert);
  const std::vector<std::string> keys = all_kernels().Keys();
  EXPECT_EQ(names, std::multiset<std::string>(keys.begin(), keys.end()));
}

std::vector<std::string> keys() {
  std::vector<std::string> keys = all_kernels().Keys();
  std::sort(keys.begin(), keys.end());
  return keys;
}

// What holds for every kernel, whatever its family.
class AnyKernel : public testing::TestWithParam<std::string> {
 protected:
  std::shared_ptr<IKernel> kernel_ = make_kernel(GetParam());
};

TEST_P(AnyKernel, AnswersByItsKey) { EXPECT_EQ(kernel_->GetKernelName(), GetParam()); }

TEST_P(AnyKernel, IsNewAndNotConfigured) {
  EXPECT_FALSE(kernel_->IsConfigured());
  EXPECT_NE(kernel_, make_kernel(GetParam()));
}

TEST_P(AnyKernel, PreparesForNothing) {
  IKernel::Tensors inputs;
  IKernel::Tensors outputs;
  bool transient = true;
  EXPECT_EQ(kernel_->PrepareForward(nullptr, inputs, transient, outputs), 0);
  EXPECT_TRUE(transient);
  EXPECT_TRUE(outputs.empty());
}

// Checks, tools and whoever chooses kernels ask without making one.
TEST_P(AnyKernel, NeedsWhatItsTableSays) {
  const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(kernel_.get());
  ASSERT_NE(facts, nullptr);
  EXPECT_EQ(facts->needs(), runtime::needs_of(GetParam()));
  // One has the word in its name and no core.
  const auto says = [](const char* word) { return GetParam().find(word) != std::string::npos; };
  const bool says_more = says("AVX") || says("_FMA_");
  const bool has_core = GetParam() != "FullConnection_AVX_C8HW8_Float_M1";
  EXPECT_EQ(facts->needs() != runtime::InstructionSet::baseline, says_more && has_core);
  EXPECT_EQ(facts->needs() == runtime::InstructionSet::avx512, says("AVX512"));
  EXPECT_TRUE(!says("_FMA_") || facts->needs() == runtime::InstructionSet::fma);
}

// Whoever fuses layers reads the epilogue, and people read the name.
TEST_P(AnyKernel, NamesItsEpilogue) {
  const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(kernel_.get());
  ASSERT_NE(facts, nullptr);
  const std::string epilogue(facts->epilogue());
  std::smatch found;
  static const std::regex kEpilogue("_(ReLU|ReLU6|HSigmoid|HSwish|Sigmoid|SiLU|Tanh)_M[0-9]+$",
                                    std::regex::ECMAScript);
  const bool says_one = std::regex_search(GetParam(), found, kEpilogue);
  EXPECT_EQ(epilogue, says_one ? found.str(1) : "");
  if (!says_one) return;
  std::string plain = GetParam();
  plain.erase(plain.rfind("_" + epilogue), epilogue.size() + 1);
  EXPECT_NE(all_kernels().Create(plain), nullptr) << plain;
}

// Recurrent kernels carry a state from pass to pass, all others answer that they have none.
TEST_P(AnyKernel, ResetsAStateIfItIsRecurrent) {
  bool recurrent = false;
  for (const char* family : {"RNN_", "RNNCell_", "LSTM_", "LSTMCell_", "GRU_", "GRUCell_"}) {
    recurrent = recurrent || GetParam().rfind(family, 0) == 0;
  }
  EXPECT_EQ(kernel_->ResetState(), recurrent ? 0 : -4);
}

INSTANTIATE_TEST_SUITE_P(Registered, AnyKernel, testing::ValuesIn(keys()),
                         [](const auto& test) { return test.param; });

TEST(KernelKeys, ThatAreUnknownNeedNothing) {
  EXPECT_EQ(runtime::needs_of(""), runtime::InstructionSet::baseline);
  EXPECT_EQ(runtime::needs_of("OneOfTheApplication_AVX"), runtime::InstructionSet::baseline);
}

TEST(KernelKeys, CompareExactly) {
  EXPECT_EQ(all_kernels().Create("relu_Fallback_Float_M1"), nullptr);
  EXPECT_EQ(all_kernels().Create("ReLU_Fallback_Float_M1 "), nullptr);
  EXPECT_EQ(all_kernels().Create(""), nullptr);
}

}  // namespace
}  // namespace marlo::test
