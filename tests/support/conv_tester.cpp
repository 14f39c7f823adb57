#include "tests/support/conv_tester.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/blocked_layout.h"
#include "tests/support/compare.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

namespace marlo::test {

using kernel::ConvolutionRow;
using kernel::LineGeometry;
using kernel::PlaneGeometry;
using kernel::TransposedGeometry;
using runtime::DataType;
using runtime::IKernel;
using runtime::TensorShape;

namespace {

enum class Buffer { from_pool, unaligned };

// One configured kernel with its input: everything of a run but the comparison.
template <typename Geometry>
class ConvRun {
 public:
  ConvRun(const ConvolutionRow<Geometry>& row, const ConvCase& sizes, const ConvData& data,
          Buffer buffer)
      : row_(row), sizes_(sizes), kernel_(make_kernel(row.name)) {
    EXPECT_TRUE(kernel_->Config(describe<Geometry>(sizes, data), nullptr, context_));
    EXPECT_TRUE(kernel_->IsConfigured());
    const auto layout = row.input.layout;
    const auto dims =
        dims_in_layout(dims_of<Geometry>(sizes.in_channels, static_cast<int>(sizes.height),
                                         static_cast<int>(sizes.width)),
                       layout);
    const auto values = to_layout(data.input, sizes.in_channels, layout);
    input_ = buffer == Buffer::from_pool ? context_.floats(dims, layout, values)
                                         : context_.external_floats(dims, layout, values);
    EXPECT_EQ(kernel_->CheckInputs({input_}), 0);
  }

  IKernel& kernel() { return *kernel_; }
  const TensorShape& input_shape() const { return input_->shape; }
  std::vector<float> input() const {
    return from_layout(values_of(*input_), sizes_.in_channels, row_.input.layout);
  }

  std::vector<float> forward(const TensorShape& expected) {
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel_->Forward({input_}, outputs, context_), 0);
    EXPECT_EQ(outputs.size(), 1u);
    EXPECT_EQ(outputs[0]->shape.dims, expected.dims);
    EXPECT_TRUE(outputs[0]->shape == expected);
    EXPECT_EQ(kernel_->CheckOutputs(outputs), 0);
    context_.pool().check();
    return from_layout(values_of(*outputs[0]), sizes_.out_channels, row_.output.layout);
  }

 private:
  const ConvolutionRow<Geometry>& row_;
  const ConvCase sizes_;
  TestContext context_;
  std::shared_ptr<IKernel> kernel_;
  std::shared_ptr<runtime::TensorCPU> input_;
};

template <typename Geometry>
TensorShape output_shape(const ConvolutionRow<Geometry>& row, const ConvCase& sizes,
                         const ConvOracle& oracle) {
  const auto dims = dims_of<Geometry>(sizes.out_channels, oracle.height, oracle.width);
  return TensorShape(dims_in_layout(dims, row.output.layout), DataType::FLOAT32, row.output.layout);
}

template <typename Geometry, typename Agrees>
void run_and_compare(const ConvolutionRow<Geometry>& row, const ConvCase& sizes,
                     const ConvData& data, const ConvOracle& oracle, Buffer buffer, Agrees agrees) {
  const TensorShape shape = output_shape(row, sizes, oracle);
  ConvRun<Geometry> run(row, sizes, data, buffer);
  const auto inferred = run.kernel().InferOutputShapes({run.input_shape()});
  ASSERT_EQ(inferred.size(), 1u);
  EXPECT_EQ(inferred[0].dims, shape.dims);
  const std::vector<float> output = run.forward(shape);
  EXPECT_TRUE(agrees(output, oracle.sums));
  if (row.input_use == runtime::InputUse::overwrites) {
    EXPECT_TRUE(same_bits(run.input(), output)) << "the output is another tensor";
    return;
  }
  EXPECT_TRUE(same_bits(run.input(), data.input)) << "the input changed";
  EXPECT_TRUE(same_bits(run.forward(shape), output)) << "a second run differs";
}

template <typename Geometry>
void expect_refusal(const ConvolutionRow<Geometry>& row, const ConvCase& sizes) {
  TestContext context;
  const auto kernel = make_kernel(row.name);
  const auto info = describe<Geometry>(sizes, integer_data(sizes, 1));
  EXPECT_EQ(kernel->CheckConfig(info, nullptr), -1);
  EXPECT_FALSE(kernel->Config(info, nullptr, context));
  EXPECT_FALSE(kernel->IsConfigured());
}

// Kernels of one group accept several and blocked ones accept channels that don't fill a block, but
// neither computes all of the result then.
template <typename Geometry>
bool computes(const ConvolutionRow<Geometry>& row, const ConvCase& sizes) {
  const bool knows_groups = std::string(row.name).find("_G1_") == std::string::npos;
  return (sizes.groups == 1 || knows_groups) &&
         sizes.in_channels % runtime::BlockSize(row.input.layout) == 0 &&
         sizes.out_channels % runtime::BlockSize(row.output.layout) == 0;
}

}  // namespace

template <typename Geometry>
bool ConvTester::test(const ConvolutionRow<Geometry>& row) const {
  const testing::ScopedTrace trace("", 0, "repeat with " + sentence(row.name));
  const ConvCase sizes = fitted<Geometry>(sizes_);
  const ConvData integers = integer_data(sizes, seed_);
  const auto params = Geometry::params_of(*describe<Geometry>(sizes, integers));
  if (!kernel::fits(row.accepts, Geometry::as_plane(params))) {
    expect_refusal(row, sizes);
    return false;
  }
  if (!has_output<Geometry>(sizes) || !computes(row, sizes)) return false;
  const auto bounded = [&row](const auto& found, const auto& sums) {
    return within_bounds_after(row.epilogue, found, sums);
  };
  const ConvOracle whole = oracle_of<Geometry>(sizes, integers);
  if (row.epilogue == kernel::Epilogue::none) {
    run_and_compare(row, sizes, integers, whole, Buffer::from_pool, exactly);
  } else {
    run_and_compare(row, sizes, integers, whole, Buffer::from_pool, bounded);
  }
  const ConvData floats = float_data(sizes, seed_);
  const ConvOracle rounded = oracle_of<Geometry>(sizes, floats);
  for (const Buffer buffer : {Buffer::from_pool, Buffer::unaligned}) {
    run_and_compare(row, sizes, floats, rounded, buffer, bounded);
  }
  return true;
}

template <typename Geometry>
std::vector<float> ConvTester::output(const ConvolutionRow<Geometry>& row,
                                      const ConvData& data) const {
  const ConvCase sizes = fitted<Geometry>(sizes_);
  ConvRun<Geometry> run(row, sizes, data, Buffer::from_pool);
  return run.forward(output_shape(row, sizes, oracle_of<Geometry>(sizes, data)));
}

std::string ConvTester::sentence(const std::string& kernel) const {
  const ConvCase& s = sizes_;
  std::ostringstream text;
  text << "ConvTester().channels(" << s.in_channels << ", " << s.out_channels << ").size("
       << s.height << ", " << s.width << ").kernel(" << s.kernel_y << ", " << s.kernel_x
       << ").stride(" << s.stride_y << ", " << s.stride_x << ").dilation(" << s.dilation_y << ", "
       << s.dilation_x << ").padding(" << s.padding_l << ", " << s.padding_r << ", " << s.padding_t
       << ", " << s.padding_b << ").groups(" << s.groups << ").bias(" << (s.bias ? "true" : "false")
       << ").seed(" << seed_ << ").test(kernel::rows::" << kernel << ")";
  return text.str();
}

#define QRT_CONV_TESTER_OF(Geometry)                                                               \
  template bool ConvTester::test(const ConvolutionRow<Geometry>&) const;                           \
  template std::vector<float> ConvTester::output(const ConvolutionRow<Geometry>&, const ConvData&) \
      const;
QRT_CONV_TESTER_OF(PlaneGeometry)
QRT_CONV_TESTER_OF(TransposedGeometry)
QRT_CONV_TESTER_OF(LineGeometry)

}  // namespace marlo::test
