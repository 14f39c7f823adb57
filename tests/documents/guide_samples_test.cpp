// The samples of README.md and of the guides in docs/, as they stand there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qrt_core/qrt_core.h>

#include <cmath>
#include <cstdio>

#include "qrt_core/kernel/kernel_class.h"
#include "tests/documents/working_folder.h"
#include "tests/support/paths.h"
#include "tests/support/temporary_folder.h"

// What stands outside of functions.
#include "samples/own_kernel.inc"

namespace marlo::kernel {
namespace operators {
using Core = void (*)(const float* input, float* output, size_t count);
}

using Context = runtime::Context;
using InferenceParam = runtime::InferenceParam;
using LayerInfo = runtime::LayerInfo;
using Shapes = KernelFamily::Shapes;
using Tensors = KernelFamily::Tensors;
#include "samples/kernel_family.inc"

// The slots of the sample's family, as plain as can be.
int Operator::CheckConfig(const LayerInfo*, const InferenceParam*) const { return 0; }
bool Operator::Configure(const LayerInfo*, const InferenceParam*, const Context&) { return true; }
Shapes Operator::InferOutputShapes(const Shapes& shapes) const { return shapes; }
int Operator::CheckInputs(const Tensors&) const { return 0; }
int Operator::CheckOutputs(const Tensors&) const { return 0; }
int Operator::Forward(const Tensors& inputs, Tensors& outputs, const Pass&) const {
  const size_t count = ElementCount(inputs[0]->shape);
  row_.core(static_cast<const float*>(inputs[0]->handle.cpu),
            static_cast<float*>(inputs[0]->handle.cpu), count);
  outputs.push_back(inputs[0]);
  return 0;
}

namespace {
void negate(const float* input, float* output, size_t count) {
  for (size_t i = 0; i < count; ++i) output[i] = -input[i];
}
}  // namespace

QRT_KERNEL(Negate_Documents, (OperatorRow{{}, negate}))
}  // namespace marlo::kernel

namespace marlo::test {
namespace {

using ::testing::ElementsAre;

const std::string kModels = test::source_path("models/");

#if QRT_WITH_SSE
TEST(Readme, ReadsADigit) {
  const WorkingFolder folder(kModels + "digits");
  const std::vector<float> white(28 * 28, 1.0f);
  const float* pixels = white.data();
#include "samples/readme.inc"
  ASSERT_EQ(results.size(), 1u);
  ASSERT_EQ(results[0].elements().size(), 10u);
  for (const float logit : results[0].elements()) EXPECT_TRUE(std::isfinite(logit));
}

TEST(Application, AModelRuns) {
  const WorkingFolder folder(kModels + "digits");
  const std::vector<float> pixels(28 * 28, 1.0f);
#include "samples/application_model.inc"
  EXPECT_EQ(network.inputs().size(), 1u);
  EXPECT_EQ(results.size(), 1u);
}

TEST(Application, TheFunctionsBeneathGiveTheSame) {
  const WorkingFolder folder(kModels + "digits");
  const std::vector<float> white(28 * 28, 1.0f);
  const float* pixels = white.data();
#include "samples/application_functions.inc"
  utility::Model model("digits.qrtmodel");
  const auto same = model.run({{1, 28, 28}, pixels});
  EXPECT_THAT(logits, ::testing::ElementsAreArray(same[0].elements()));
}

TEST(Application, TheModelThatShipsIsRight) {
  const WorkingFolder folder(kModels + "digits");
#include "samples/application_check.inc"
  std::string texts;
  for (const auto& finding : utility::check_model("digits.qrtmodel")) {
    texts += utility::finding_text(finding) + '\n';
  }
  EXPECT_EQ(texts, "");
}
#endif

TEST(Application, AMissingFileIsAStory) {
  const std::string path = "no/such.qrtmodel";
  ::testing::internal::CaptureStderr();
#include "samples/application_error.inc"
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "no/such.qrtmodel: Error in opening the file [no/such.qrtmodel].\n");
}

TEST(AddAKernel, AFamilyOfTheGivenFormMakesAKernel) {
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  kernel::Negate_Documents negate;
  EXPECT_EQ(negate.GetKernelName(), "Negate_Documents");
  ASSERT_TRUE(negate.Config(nullptr, nullptr, context));
  const float numbers[] = {1, -2};
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  negate.Forward({context->cpu->CreateF32CMainMemory(2, numbers)}, outputs, context);
  const auto* values = static_cast<const float*>(outputs.at(0)->handle.cpu);
  EXPECT_THAT(std::vector<float>(values, values + 2), ElementsAre(-1, 2));
}

TEST(OwnKernel, RunsInAModelThatNamesIt) {
  const TemporaryFolder temporary;
  const WorkingFolder folder(temporary.file(""));
  write_text("cube.json",
#include "samples/own_kernel_model.inc"
  );
#include "samples/own_kernel_registered.inc"
#include "samples/own_kernel_used.inc"
  const auto* values = static_cast<const float*>(cubes->handle.cpu);
  EXPECT_THAT(std::vector<float>(values, values + 4), ElementsAre(1, 8, 27, -64));

  EXPECT_FALSE(kernels.Register(
      "Cube_Application", [] { return nullptr; }, false));
  EXPECT_NE(kernels.Create("Square_Application"), nullptr);
}

TEST(OwnKernel, RefusesWhatTheGuideSays) {
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  Power power(2.0f);
  EXPECT_FALSE(power.Config(nullptr, nullptr, context));
  EXPECT_FALSE(power.Config(std::make_shared<runtime::InputInfo>(), nullptr, context));
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_THROW(power.Forward({context->cpu->CreateGray8Tensor(1, 1, nullptr)}, outputs, context),
               std::runtime_error);
}

TEST(ImageGuide, MakesAnInputOfAPicture) {
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  runtime::DeviceCPU& device = *context->cpu;
  const unsigned int height = 30, width = 40;
  std::vector<unsigned char> gray(height * width * 3, 128);
  unsigned char* bytes = gray.data();
#include "samples/image_to_input.inc"
  EXPECT_EQ(input->shape.dims, (std::vector<uint32_t>{3, 224, 224}));
  const auto* values = static_cast<const float*>(input->handle.cpu);
  for (size_t plane = 0; plane < 3; ++plane) {
    EXPECT_FLOAT_EQ(values[plane * 224 * 224], (128 - mean[plane]) * scale[plane]);
  }
}

}  // namespace
}  // namespace marlo::test
