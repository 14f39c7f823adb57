// What `check_model` says of kernels that work in place.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qrt_core/qrt_core.h"
#include "tests/support/model_builder.h"

namespace marlo::test {

using namespace utility;

namespace {

using ::testing::IsEmpty;

/// A kernel that says what it does with its input's memory.
class MemoryKernel final : public runtime::IKernel, public runtime::IKernelFacts {
 public:
  explicit MemoryKernel(runtime::InputUse use) : use_(use) {}
  std::string GetKernelName() override { return "MemoryKernel"; }
  bool Config(std::shared_ptr<runtime::LayerInfo>, std::shared_ptr<runtime::InferenceParam>,
              std::shared_ptr<runtime::Context>) override {
    return true;
  }
  int CheckInputs(const Tensors&) override { return runtime::KERNEL_OK; }
  int CheckOutputs(const Tensors&) override { return runtime::KERNEL_OK; }
  int Forward(const Tensors&, Tensors&, std::shared_ptr<runtime::Context>) override { return 0; }
  runtime::InstructionSet needs() const override { return runtime::InstructionSet::baseline; }
  runtime::InputUse input_use() const override { return use_; }
  std::vector<Misfit> refusals(const runtime::LayerInfo*,
                               const runtime::InferenceParam*) const override {
    return {};
  }
  std::vector<Misfit> input_refusals(const std::vector<runtime::TensorShape>&) const override {
    return {};
  }
  std::vector<Misfit> differences(const runtime::LayerInfo&,
                                  const std::vector<runtime::TensorShape>&) const override {
    return {};
  }

 private:
  runtime::InputUse use_;
};

class InPlace : public ::testing::Test {
 protected:
  InPlace() {
    add("reads", runtime::InputUse::reads);
    add("passes", runtime::InputUse::passes_on);
    add("overwrites", runtime::InputUse::overwrites);
    options_.kernels = &kernels_;
  }

  void add(const char* name, runtime::InputUse use) {
    kernels_.Register(
        name, [use] { return std::make_shared<MemoryKernel>(use); }, false);
  }

  static std::shared_ptr<runtime::LayerInfo> some() {
    return std::make_shared<runtime::ActivationInfo>();
  }

  // The layers of which an overwritten input is reported.
  std::vector<std::string> overwriting(const ModelBuilder& model) {
    std::vector<std::string> ids;
    for (const Finding& finding : check_model(model.build(), options_)) {
      if (finding.code == FindingCode::overwritten_input) ids.push_back(finding.id);
    }
    return ids;
  }

  runtime::KernelRegistry kernels_;
  CheckOptions options_;
};

TEST_F(InPlace, ALastReaderMayOverwrite) {
  EXPECT_THAT(overwriting(ModelBuilder()
                              .input("x", "passes")
                              .layer("a", {"x"}, some(), "reads")
                              .layer("b", {"a"}, some(), "reads")
                              .layer("c", {"a"}, some(), "overwrites")
                              .outputs({"b", "c"})),
              IsEmpty());
}

TEST_F(InPlace, ATensorThatIsStillReadMustNotBeOverwritten) {
  EXPECT_THAT(overwriting(ModelBuilder()
                              .input("x", "passes")
                              .layer("a", {"x"}, some(), "reads")
                              .layer("b", {"a"}, some(), "overwrites")
                              .layer("c", {"a", "b"}, some(), "reads")
                              .outputs({"c"})),
              ::testing::ElementsAre("b"));
  // Nor through a layer that hands it on.
  EXPECT_THAT(overwriting(ModelBuilder()
                              .input("x", "passes")
                              .layer("a", {"x"}, some(), "reads")
                              .layer("view", {"a"}, some(), "passes")
                              .layer("b", {"view"}, some(), "overwrites")
                              .layer("c", {"a", "b"}, some(), "reads")
                              .outputs({"c"})),
              ::testing::ElementsAre("b"));
}

TEST_F(InPlace, NeitherAnOutputNorTheCallersTensorMayBeOverwritten) {
  EXPECT_THAT(overwriting(ModelBuilder()
                              .input("x", "passes")
                              .layer("a", {"x"}, some(), "reads")
                              .layer("b", {"a"}, some(), "overwrites")
                              .outputs({"a", "b"})),
              ::testing::ElementsAre("b"));
  EXPECT_THAT(overwriting(ModelBuilder()
                              .input("x", "passes")
                              .layer("b", {"x"}, some(), "overwrites")
                              .outputs({"b"})),
              ::testing::ElementsAre("b"));
}

TEST_F(InPlace, AConvertersResultIsTheLayersOwn) {
  EXPECT_THAT(overwriting(ModelBuilder()
                              .input("x", "passes")
                              .layer("b", {"x"}, some(), "overwrites")
                              .input_converter("0", "reads")
                              .outputs({"b"})),
              IsEmpty());
}

}  // namespace
}  // namespace marlo::test
