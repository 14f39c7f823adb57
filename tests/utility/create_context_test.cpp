#include <gtest/gtest.h>

#include "qrt_core/qrt_core.h"

namespace marlo::test {

using namespace utility;

namespace {

TEST(CreateContext, FillsOnlyTheCpuDeviceOnTwoPools) {
  std::shared_ptr<runtime::Context> context;
  create_context(context, 16);
  ASSERT_NE(context, nullptr);
  ASSERT_NE(context->cpu, nullptr);
  EXPECT_EQ(context->opengl, nullptr);
  EXPECT_EQ(context->metal, nullptr);
  EXPECT_EQ(context->cuda, nullptr);
  EXPECT_EQ(context->vulkan, nullptr);
  EXPECT_EQ(context->profiler, nullptr);
  const runtime::DeviceCPU& device = *context->cpu;
  EXPECT_EQ(device.thread_pool, nullptr);
  EXPECT_FALSE(device.dynamic_mode);
  EXPECT_NE(device.static_pool, nullptr);
  EXPECT_NE(device.dynamic_pool, nullptr);
  EXPECT_NE(device.static_pool, device.dynamic_pool);
  EXPECT_NE(dynamic_cast<runtime::AlignUpPool*>(device.static_pool.get()), nullptr);
  EXPECT_NE(dynamic_cast<runtime::AlignUpPool*>(device.dynamic_pool.get()), nullptr);
}

TEST(CreateContext, TensorsHaveItsAlignment) {
  for (const unsigned int alignment : {1u, 2u, 16u, 64u, 4096u}) {
    std::shared_ptr<runtime::Context> context;
    create_context(context, alignment);
    for (const bool dynamic : {false, true}) {
      context->cpu->dynamic_mode = dynamic;
      const auto tensor = context->cpu->CreateF32CMainMemory(3, nullptr);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(tensor->RawPointer()) % alignment, 0u) << alignment;
    }
  }
}

TEST(CreateContext, AlignmentThatIsNoPowerOfTwoThrowsAndLeavesTheContext) {
  std::shared_ptr<runtime::Context> context;
  create_context(context, 32);
  const auto before = context;
  for (const unsigned int alignment : {0u, 3u, 24u, 100u}) {
    EXPECT_THROW(create_context(context, alignment), std::runtime_error) << alignment;
    EXPECT_EQ(context, before);
  }
}

TEST(CreateContext, ReplacesAnEarlierContext) {
  std::shared_ptr<runtime::Context> context;
  create_context(context, 16);
  const std::weak_ptr<runtime::Context> first = context;
  create_context(context, 16);
  EXPECT_TRUE(first.expired());
}

}  // namespace
}  // namespace marlo::test
