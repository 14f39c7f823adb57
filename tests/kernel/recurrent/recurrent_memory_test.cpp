#include <gtest/gtest.h>

#include "qrt_core/kernel/recurrent/recurrent.h"
#include "tests/support/counting_allocator.h"
#include "tests/support/counting_pool.h"
#include "tests/support/kernels.h"
#include "tests/support/recurrent_case.h"

// After the first pass the pools ask the system for nothing.

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;

constexpr int kPasses = 1000;

// A kernel that runs as layers of a network do.
class SteadyKernel {
 public:
  SteadyKernel(const std::string& name, const std::shared_ptr<runtime::LayerInfo>& info,
               std::vector<uint32_t> dims, const std::vector<float>& values)
      : kernel_(make_kernel(name)),
        input_(context_.device().CreateTensor({std::move(dims), DataType::FLOAT32, LayoutType::C},
                                              values.data())) {
    EXPECT_TRUE(kernel_->Config(info, nullptr, context_.context));
  }

  // @return calls to the system's allocator, whoever made them
  uint64_t pass() {
    const uint64_t before = allocator_calls();
    context_.device().dynamic_mode = true;
    IKernel::Tensors outputs;
    kernel_->Forward({input_}, outputs, context_.context);
    outputs.clear();
    context_.device().dynamic_mode = false;
    return allocator_calls() - before;
  }

  void expect_a_thousand_passes_without_memory(const std::string& name) {
    pass();
    const uint64_t bytes = total_bytes();
    const size_t in_use = blocks_in_use();
    const uint64_t calls = pass();
    // The tensor with its dims and strides, and the vectors that hold tensors and shapes.
    EXPECT_LE(calls, 20u) << name;
    for (int i = 1; i < kPasses; ++i) ASSERT_EQ(pass(), calls) << name << ", pass " << i;
    EXPECT_EQ(total_bytes(), bytes) << name;
    EXPECT_EQ(blocks_in_use(), in_use) << name;
  }

 private:
  uint64_t total_bytes() {
    return context_.static_pool->TotalBytes() + context_.dynamic_pool->TotalBytes();
  }
  size_t blocks_in_use() const {
    return context_.static_pool->blocks_in_use() + context_.dynamic_pool->blocks_in_use();
  }

  CountingContext context_;
  std::shared_ptr<IKernel> kernel_;
  std::shared_ptr<runtime::Tensor> input_;
};

TEST(RecurrentMemory, ASequenceTakesNoneAfterTheFirstPass) {
  for (const auto* row : kernel::recurrent_sequence_rows) {
    RecurrentCase layer;
    layer.network = network_of(row->name);
    layer.ins = 6;
    layer.hidden = 10;
    layer.steps = 5;
    layer.layers = 3;
    for (const bool bidirectional : {false, true}) {
      layer.bidirectional = bidirectional;
      layer.fill(1);
      SteadyKernel kernel(row->name, sequence_description(layer), {layer.steps, layer.ins},
                          layer.input);
      kernel.expect_a_thousand_passes_without_memory(row->name);
    }
  }
}

TEST(RecurrentMemory, ACellTakesNoneAfterTheFirstPass) {
  for (const auto* row : kernel::recurrent_cell_rows) {
    RecurrentCase layer;
    layer.network = network_of(row->name);
    layer.ins = 6;
    layer.hidden = 10;
    layer.steps = 1;
    layer.fill(1);
    SteadyKernel kernel(row->name, cell_description(layer), {layer.ins}, layer.input);
    kernel.expect_a_thousand_passes_without_memory(row->name);
  }
}

// However long the sequence, a pass makes the same few calls: none of them is made for a step.
TEST(RecurrentMemory, StepsTakeNone) {
  for (const auto* row : kernel::recurrent_sequence_rows) {
    RecurrentCase layer;
    layer.network = network_of(row->name);
    layer.bidirectional = true;
    layer.layers = 2;
    uint64_t calls[2];
    for (const bool is_long : {false, true}) {
      layer.steps = is_long ? 40 : 2;
      layer.fill(1);
      SteadyKernel kernel(row->name, sequence_description(layer), {layer.steps, layer.ins},
                          layer.input);
      kernel.pass();
      calls[is_long] = kernel.pass();
    }
    EXPECT_EQ(calls[1], calls[0]) << row->name;
  }
}

}  // namespace
}  // namespace marlo::test
