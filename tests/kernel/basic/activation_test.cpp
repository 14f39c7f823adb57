#include <gtest/gtest.h>

#include <cmath>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/activation_tester.h"
#include "tests/support/compare.h"
#include "tests/support/edge_sizes.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"

// Every activation kernel bit for bit, and against the function that it stands for.

namespace marlo::test {
namespace {

using kernel::ActivationRow;

class ActivationKernel : public testing::TestWithParam<const ActivationRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(row().name); }

  const ActivationRow& row() const { return *GetParam(); }
  const ActivationReference& reference() const { return activation_reference(row().name); }
};

TEST_P(ActivationKernel, ComputesEveryEdgeCount) {
  for (const size_t count : edge_sizes(std::vector<size_t>{4, 8, 16, 32, 64})) {
    ActivationTester().count(count).test(row());
  }
}

TEST_P(ActivationKernel, ComputesEveryCountUpTo300) {
  for (size_t count = 0; count <= 300; ++count) {
    ActivationTester().count(count).seed(static_cast<uint32_t>(count)).test(row());
  }
}

TEST_P(ActivationKernel, TakesUnalignedBuffers) {
  for (const size_t count : std::vector<size_t>{0, 1, 15, 16, 17, 63, 131}) {
    ActivationTester().count(count).unaligned().test(row());
  }
}

// One special input per array, at each place of a block and of the rest behind it.
TEST_P(ActivationKernel, TreatsSpecialInputsAtEveryPlace) {
  const size_t count = 2 * reference().block + 3;
  for (const float special : special_inputs()) {
    for (size_t place = 0; place < count; ++place) {
      std::vector<float> inputs(count, 1.5f);
      inputs[place] = special;
      ActivationTester().inputs(inputs).test(row());
    }
  }
}

// A number of each exponent and sign with random fractions, in both forms.
TEST_P(ActivationKernel, ComputesEveryMagnitude) {
  Random random(11);
  std::vector<float> inputs;
  for (uint32_t exponent = 0; exponent < 255; ++exponent) {
    for (int i = 0; i < 8; ++i) {
      const auto fraction = static_cast<uint32_t>(random.integer(0, 0x7FFFFF));
      const float number = float_of(exponent << 23 | fraction);
      inputs.push_back(i % 2 == 0 ? number : -number);
    }
  }
  ActivationTester().inputs(inputs).test(row());
  for (size_t i = 0; i < inputs.size(); i += 16) {
    inputs[i / 16] = inputs[i];
  }
  for (size_t i = 0; i + 1 < inputs.size() / 16; ++i) {
    ActivationTester().inputs({inputs[i]}).test(row());
  }
}

TEST_P(ActivationKernel, IsAsCloseToTheFunctionAsStated) {
  const ActivationParameters parameters{0.25f, -1.5f};
  for (const float scale : {0.01f, 1.0f, 8.0f, 20.0f, 80.0f}) {
    const std::vector<float> inputs = Random(5).floats(4003, scale);
    const std::vector<float> found =
        ActivationTester().inputs(inputs).slope(parameters.a).offset(parameters.b).output(row());
    ASSERT_EQ(found.size(), inputs.size());
    const size_t in_vectors =
        reference().vector == nullptr ? 0 : inputs.size() / reference().block * reference().block;
    for (size_t i = 0; i < inputs.size(); ++i) {
      const double x = inputs[i];
      const double exact = exact_activation(reference().function(), x, parameters.a, parameters.b);
      ASSERT_NEAR(found[i], exact, reference().error_bound(x, exact, i < in_vectors))
          << row().name << " of " << inputs[i] << " at " << i;
    }
  }
}

TEST_P(ActivationKernel, TakesSlopesOfEveryKind) {
  std::vector<float> inputs{-2.0f, -0.0f, 0.0f, 3.0f, kInfinity, -kInfinity, kNaN, kLeastDenormal};
  while (inputs.size() < 150) inputs.push_back(inputs[inputs.size() - 8]);
  for (const float slope : {0.0f, -0.0f, -1.0f, 2.0f, 0x1p-24f, 65504.0f, kInfinity, -kInfinity}) {
    ActivationTester().inputs(inputs).slope(slope).offset(slope).test(row());
  }
}

#if QRT_WITH_EXTENSIONS
INSTANTIATE_TEST_SUITE_P(ExtensionRows, ActivationKernel,
                         testing::ValuesIn(kernel::extension_activation_rows),
                         [](const auto& test) { return std::string(test.param->name); });
#endif
INSTANTIATE_TEST_SUITE_P(Rows, ActivationKernel, testing::ValuesIn(kernel::activation_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test
