#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <set>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/engine/registration.h"
#include "qrt_core/utility/build_options.h"
#include "tests/support/paths.h"

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::ElementsAreArray;
using ::testing::UnorderedElementsAre;

// The group that a kernel's name puts it in.
bool is_of(const std::string& name, const std::string& group) {
  return ("_" + name + "_").find("_" + group + "_") != std::string::npos;
}

bool is_built(const std::string& name) {
  if (!QRT_WITH_SGEMM && is_of(name, "SGEMM")) return false;
  if (!QRT_WITH_AVX && is_of(name, "AVX")) return false;
  return QRT_WITH_SSE || !is_of(name, "SSE");
}

// All kernels, one name per line, sorted.
std::vector<std::string> listed_keys() {
  std::ifstream list(test::test_data_path("registered_kernels.txt"));
  std::vector<std::string> keys;
  for (std::string key; std::getline(list, key);) keys.push_back(key);
  return keys;
}

// Those that this build has and `wanted` accepts.
template <typename Wanted>
std::vector<std::string> expected_keys(Wanted wanted) {
  std::vector<std::string> keys;
  for (const std::string& key : listed_keys()) {
    if (is_built(key) && wanted(key)) keys.push_back(key);
  }
  return keys;
}

template <typename Registry>
std::vector<std::string> sorted_keys(const Registry& registry) {
  std::vector<std::string> keys = registry.Keys();
  std::sort(keys.begin(), keys.end());
  return keys;
}

class RegistrationTest : public ::testing::Test {
 protected:
  RegistrationTest() { utility::init_register_operators(kernels_, params_); }

  KernelRegistry kernels_;
  InferenceParamRegistry params_;
};

TEST_F(RegistrationTest, KernelsAreThoseOfTheList) {
  const auto any = [](const std::string&) { return true; };
  ASSERT_FALSE(expected_keys(any).empty());
  EXPECT_THAT(sorted_keys(kernels_), ElementsAreArray(expected_keys(any)));
}

TEST(Registration, ListIsSortedAndHoldsNoNameTwice) {
  const std::vector<std::string> keys = listed_keys();
  EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
  EXPECT_EQ(std::adjacent_find(keys.begin(), keys.end()), keys.end());
}

// What a group enters into an empty registry.
template <typename Registry>
std::vector<std::string> keys_of(void (*group)(Registry&)) {
  Registry registry;
  group(registry);
  return sorted_keys(registry);
}

// The name says the group, but for seven: six of them are portable ones too.
TEST(Registration, GroupsHoldTheirKernels) {
  const std::vector<std::string> common = {"BroadcastOperator_Fallback_Float_M1",
                                           "Concatenate_MainMemory_Fallback",
                                           "HSigmoid_Fallback_Float_M1",
                                           "HSwish_Fallback_Float_M1",
                                           "Input_Fallback_M1",
                                           "Transform_MainMemory_Permute_Fallback",
                                           "Transform_MainMemory_Reshape_Fallback"};
  EXPECT_THAT(keys_of(register_common_kernels), ElementsAreArray(common));

  const auto portable = keys_of(register_portable_kernels);
  EXPECT_THAT(portable, ElementsAreArray(expected_keys([](const std::string& key) {
                return is_of(key, "Fallback") && key != "Transform_MainMemory_Permute_Fallback";
              })));
#if QRT_WITH_SSE
  const auto sse = keys_of(register_sse_kernels);
  EXPECT_THAT(sse, ElementsAreArray(
                       expected_keys([](const std::string& key) { return is_of(key, "SSE"); })));
#endif
#if QRT_WITH_AVX
  const auto avx = keys_of(register_avx_kernels);
  EXPECT_THAT(avx, ElementsAreArray(
                       expected_keys([](const std::string& key) { return is_of(key, "AVX"); })));
#endif
#if QRT_WITH_SGEMM
  const auto sgemm = keys_of(register_sgemm_kernels);
  EXPECT_THAT(sgemm, ElementsAreArray(expected_keys([](const std::string& key) {
                return is_of(key, "SGEMM") && !is_of(key, "SSE");
              })));
#endif
  EXPECT_THAT(keys_of(register_quantisation_params),
              UnorderedElementsAre("InferenceParamConv2DQuant", "InferenceParamUpsampling2DQuant"));
  EXPECT_THAT(keys_of(register_convolution_quantisation_param),
              UnorderedElementsAre("InferenceParamConv2DQuant"));
}

TEST_F(RegistrationTest, EachKeyCreatesAKernelWhoseNameEqualsTheKeyAndThatIsNotConfigured) {
  for (const std::string& key : kernels_.Keys()) {
    const auto kernel = kernels_.Create(key);
    ASSERT_NE(kernel, nullptr) << key;
    EXPECT_EQ(kernel->GetKernelName(), key);
    EXPECT_FALSE(kernel->IsConfigured()) << key;
  }
}

TEST_F(RegistrationTest, EachCreateMakesAFreshKernel) {
  for (const std::string& key : kernels_.Keys()) {
    EXPECT_NE(kernels_.Create(key), kernels_.Create(key)) << key;
  }
}

TEST_F(RegistrationTest, NamesThatDifferInTheCaseOfOneLetterGiveNothing) {
  for (const std::string& key : kernels_.Keys()) {
    for (size_t i = 0; i < key.size(); ++i) {
      std::string other = key;
      const int letter = static_cast<unsigned char>(key[i]);
      if (std::isalpha(letter) == 0) continue;
      other[i] = static_cast<char>(std::isupper(letter) != 0 ? std::tolower(letter)
                                                             : std::toupper(letter));
      EXPECT_EQ(kernels_.Create(other), nullptr) << other;
    }
  }
}

TEST_F(RegistrationTest, NamesOneLetterOffGiveNothing) {
  const std::vector<std::string> keys = kernels_.Keys();
  const std::set<std::string> known(keys.begin(), keys.end());
  for (const std::string& key : keys) {
    for (const std::string& other : {key + "_", " " + key, key.substr(1),
                                     key.substr(0, key.size() - 1), "marlo::kernel::" + key}) {
      if (known.count(other) == 0) {
        EXPECT_EQ(kernels_.Create(other), nullptr) << other;
      }
    }
  }
}

TEST_F(RegistrationTest, NamesOutsideTheListGiveNothing) {
  for (const char* name :
       {"", "Input", "ReLU", "ReLU_AVX2_Float_M1", "InferenceParamConv2DQuant"}) {
    EXPECT_EQ(kernels_.Create(name), nullptr) << name;
  }
}

TEST_F(RegistrationTest, ASecondCallChangesNothing) {
  const auto keys = sorted_keys(kernels_);
  utility::init_register_operators(kernels_, params_);
  EXPECT_EQ(sorted_keys(kernels_), keys);
  EXPECT_EQ(params_.Keys().size(), 2u);
}

// The second set stands beside the first, whose registration never enters one of it.
TEST_F(RegistrationTest, TheSecondSetIsEnteredByACallOfItsOwn) {
  const auto first = sorted_keys(kernels_);
  for (const std::string& key : first) EXPECT_FALSE(is_extension(key)) << key;
  KernelRegistry both = kernels_;
  utility::init_register_extension_operators(both, params_);
  EXPECT_EQ(params_.Keys().size(), 2u);
  const auto all = sorted_keys(both);
  EXPECT_EQ(all.size() > first.size(), QRT_WITH_EXTENSIONS && QRT_WITH_AVX);
  for (const std::string& key : all) {
    EXPECT_EQ(is_extension(key), kernels_.Create(key) == nullptr) << key;
  }
  utility::init_register_extension_operators(both, params_);
  EXPECT_EQ(sorted_keys(both), all);
  KernelRegistry alone;
  utility::init_register_extension_operators(alone, params_);
  EXPECT_EQ(alone.Keys().size(), all.size() - first.size());
}

class Own final : public IKernel {
 public:
  std::string GetKernelName() override { return "own"; }
  bool Config(std::shared_ptr<LayerInfo>, std::shared_ptr<InferenceParam>,
              std::shared_ptr<Context>) override {
    return true;
  }
  int CheckInputs(const Tensors&) override { return KERNEL_OK; }
  int Forward(const Tensors&, Tensors&, std::shared_ptr<Context>) override { return KERNEL_OK; }
  int CheckOutputs(const Tensors&) override { return KERNEL_OK; }
};

TEST(Registration, KeepsAKernelThatTheApplicationEnteredFirst) {
  KernelRegistry kernels;
  InferenceParamRegistry params;
  kernels.Register(
      "Input_Fallback_M1", [] { return std::make_shared<Own>(); }, false);
  utility::init_register_operators(kernels, params);
  EXPECT_EQ(kernels.Create("Input_Fallback_M1")->GetKernelName(), "own");
}

TEST_F(RegistrationTest, ParameterRegistryHoldsTwoKeysOfThatClass) {
  EXPECT_THAT(params_.Keys(),
              UnorderedElementsAre("InferenceParamConv2DQuant", "InferenceParamUpsampling2DQuant"));
  EXPECT_NE(std::dynamic_pointer_cast<InferenceParamConv2DQuant>(
                params_.Create("InferenceParamConv2DQuant")),
            nullptr);
  EXPECT_NE(std::dynamic_pointer_cast<InferenceParamUpsampling2DQuant>(
                params_.Create("InferenceParamUpsampling2DQuant")),
            nullptr);
  EXPECT_EQ(params_.Create("InferenceParamActQuant"), nullptr);
}

}  // namespace
}  // namespace marlo::test
