#include "tests/support/activation_tester.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/compare.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {

using kernel::ActivationRow;
using runtime::ActivationInfo;
using runtime::IKernel;
using runtime::LayoutType;

namespace {

// Floats by their bits, as they can stand in a program.
std::string listed(const std::vector<float>& numbers) {
  std::ostringstream text;
  const char* separator = "";
  for (const float number : numbers) {
    text << separator << "float_of(0x" << std::hex << bits_of(number) << ")";
    separator = ", ";
  }
  return text.str();
}

}  // namespace

std::shared_ptr<ActivationInfo> activation_info(const ActivationParameters& parameters) {
  auto info = std::make_shared<ActivationInfo>();
  info->activation_alpha = half_float::half(parameters.a);
  info->activation_beta = half_float::half(parameters.b);
  info->weight = weight_text({parameters.a});
  return info;
}

std::vector<float> ActivationTester::input() const {
  return inputs_.empty() ? Random(seed_).floats(count_, 10.0f) : inputs_;
}

std::vector<float> ActivationTester::output(const ActivationRow& row) const {
  TestContext context;
  const auto kernel = make_kernel(row.name);
  EXPECT_TRUE(kernel->Config(activation_info(parameters_), nullptr, context));
  const std::vector<float> values = input();
  const std::vector<uint32_t> dims{static_cast<uint32_t>(count_)};
  const auto tensor = unaligned_ ? context.external_floats(dims, LayoutType::C, values)
                                 : context.floats(dims, LayoutType::C, values);
  EXPECT_EQ(kernel->CheckInputs({tensor}), 0);

  const bool in_place = activation_reference(row.name).in_place();
  const size_t allocations = context.pool().allocations();
  // What stands in the vector already is replaced.
  IKernel::Tensors outputs{nullptr, nullptr};
  EXPECT_EQ(kernel->Forward({tensor}, outputs, context), 0);
  EXPECT_EQ(context.pool().allocations(), allocations + (in_place ? 0 : 1));
  if (outputs.size() != 1 || outputs[0] == nullptr) {
    ADD_FAILURE() << "the output isn't one tensor";
    return {};
  }
  EXPECT_EQ(outputs[0] == tensor, in_place);
  EXPECT_TRUE(outputs[0]->shape == tensor->shape);
  EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
  if (!in_place) {
    EXPECT_TRUE(same_bits(values_of(*tensor), values)) << "the input changed";
  }
  context.pool().check();
  return values_of(*outputs[0]);
}

void ActivationTester::test(const ActivationRow& row) const {
  const testing::ScopedTrace trace("", 0, "repeat with " + sentence(row.name));
  const std::vector<float> expected = activation_reference(row.name).apply(input(), parameters_);
  EXPECT_TRUE(same_bits(output(row), expected));
}

std::string ActivationTester::sentence(const std::string& kernel) const {
  std::ostringstream text;
  text << "ActivationTester()";
  if (inputs_.empty()) {
    text << ".count(" << count_ << ").seed(" << seed_ << ")";
  } else {
    text << ".inputs({" << listed(inputs_) << "})";
  }
  text << ".slope(" << listed({parameters_.a}) << ").offset(" << listed({parameters_.b}) << ")"
       << (unaligned_ ? ".unaligned()" : "") << ".test(kernel::rows::" << kernel << ")";
  return text.str();
}

}  // namespace marlo::test
