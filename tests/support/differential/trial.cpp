#include "tests/support/differential/trial.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <exception>
#include <map>
#include <sstream>
#include <unordered_map>

#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_core/utility/check_shapes.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/differential/operation.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {

using runtime::IKernel;
using runtime::LayoutType;

namespace {

std::map<std::string, size_t>& counts() {
  static std::map<std::string, size_t> counts;
  return counts;
}

bool memory_fails = false;
size_t failed_allocations = 0;

std::vector<float> floats_of(const runtime::Tensor& tensor) {
  if (tensor.shape.data_type != runtime::DataType::INT16) return values_of(tensor);
  const auto* numbers = static_cast<const int16_t*>(tensor.handle.cpu);
  std::vector<float> values(numbers, numbers + runtime::ElementCount(tensor.shape));
  for (float& value : values) value = std::ldexp(value, -tensor.shape.extra.step_size);
  return values;
}

// One kernel with its layer, run several times.
class Run {
 public:
  Run(const std::string& name, const Setting& setting, LayoutType layout)
      : name_(name), setting_(setting), layout_(layout), kernel_(make_kernel(name)) {}

  /// Twice, so that what depends on memory shows.
  Outcome twice() {
    Outcome first;
    first.layout = layout_;
    if (!configure()) return first;
    pass_all(false, first);
    if (!first.ran) return first;
    kernel_->ResetState();
    Outcome second;
    pass_all(true, second);
    EXPECT_EQ(first.refusal, second.refusal) << name_;
    EXPECT_EQ(first.has_output, second.has_output) << name_;
    if (!first.has_output || !second.has_output) return first;
    EXPECT_EQ(first.shape.dims, second.shape.dims) << name_;
    return first;
  }

  /// Runs once with a pool whose n-th allocation fails. @return whether it came to that
  bool fails_at(size_t call, const Outcome& whole) {
    const IKernel::Tensors inputs = tensors(true);
    HostilePool& pool = context_.pool();
    pool.fail_at(call);
    bool stopped = false;
    try {
      stopped = !kernel_->Config(setting_.info, setting_.param, context_);
      IKernel::Tensors outputs;
      if (!stopped) kernel_->Forward(inputs, outputs, context_);
    } catch (const std::exception&) {
      stopped = true;
    }
    const bool failed = !pool.failure_is_pending();
    pool.fail_at(0);
    EXPECT_EQ(stopped, failed) << name_ << ", allocation " << call;
    if (failed && kernel_->IsConfigured() && kernel_->ResetState() != runtime::KERNEL_OK) {
      expect_recovery(whole);
    }
    return failed;
  }

 private:
  bool configure() {
    try {
      const bool configured = kernel_->Config(setting_.info, setting_.param, context_);
      EXPECT_EQ(configured, kernel_->IsConfigured()) << name_;
      return configured;
    } catch (const std::exception&) {
      EXPECT_FALSE(kernel_->IsConfigured()) << name_;
      return false;
    }
  }

  // From the pool, or in buffers that stand at multiples of 4 bytes.
  IKernel::Tensors tensors(bool unaligned) {
    IKernel::Tensors tensors;
    for (const PlanarTensor& planes : setting_.inputs) {
      const auto dims = dims_in_layout(planes.dims, layout_);
      const auto values = to_layout(planes.values, planes.channels(), layout_);
      if (planes.step != 0) {
        tensors.push_back(fixed_point(dims, values, planes.step));
      } else {
        tensors.push_back(unaligned ? context_.external_floats(dims, layout_, values)
                                    : context_.floats(dims, layout_, values));
      }
    }
    return tensors;
  }

  std::shared_ptr<runtime::Tensor> fixed_point(const std::vector<uint32_t>& dims,
                                               const std::vector<float>& values, uint16_t step) {
    std::vector<int16_t> numbers;
    for (const float value : values) {
      numbers.push_back(static_cast<int16_t>(std::lround(std::ldexp(value, step))));
    }
    const runtime::TensorShape shape(dims, runtime::DataType::INT16, layout_,
                                     runtime::LocationType::MainMemory,
                                     runtime::TensorShape::Extra(step));
    return context_.device()->CreateTensor(shape, numbers.data());
  }

  void expect_recovery(const Outcome& whole) {
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel_->Forward(tensors(true), outputs, context_), runtime::KERNEL_OK) << name_;
    ASSERT_EQ(outputs.size(), whole.has_output ? 1u : 0u) << name_;
    if (whole.has_output) expect_same(floats_of(*outputs[0]), whole.values);
  }

  void pass_all(bool unaligned, Outcome& outcome) {
    std::vector<float> before = std::move(first_values_);
    for (int pass = 0; pass < setting_.passes; ++pass) {
      if (!pass_once(tensors(unaligned), outcome)) break;
    }
    context_.pool().check();
    first_values_ = outcome.values;
    if (unaligned) expect_same(outcome.values, before);
  }

  void expect_same(const std::vector<float>& found, const std::vector<float>& before) {
    ASSERT_EQ(found.size(), before.size()) << name_;
    size_t different = 0;
    for (size_t i = 0; i < found.size(); ++i) different += same_bits(found[i], before[i]) ? 0 : 1;
    EXPECT_EQ(different, 0u) << name_ << ": a second run differs";
  }

  bool pass_once(const IKernel::Tensors& inputs, Outcome& outcome) {
    if (kernel_->CheckInputs(inputs) != runtime::KERNEL_OK) return false;
    const utility::LayerShapes judged = judge(inputs);
    IKernel::Tensors outputs;
    try {
      EXPECT_EQ(kernel_->Forward(inputs, outputs, context_), runtime::KERNEL_OK) << name_;
    } catch (const std::exception& failure) {
      outcome.refusal = failure.what();
      EXPECT_NE(judged.fault, "") << name_ << " throws \"" << failure.what()
                                  << "\", and check_shapes says nothing";
      return false;
    }
    outcome.ran = true;
    outcome.has_output = outputs.size() == 1;
    EXPECT_LE(outputs.size(), 1u) << name_;
    if (!outcome.has_output) return true;
    check_output(inputs, outputs);
    outcome.takes_own_output = kernel_->CheckOutputs(outputs) == runtime::KERNEL_OK;
    // What vanishes, and what a kernel makes and doesn't take, is said although it runs.
    const bool vanishes = runtime::ElementCount(outputs[0]->shape) == 0 &&
                          std::none_of(inputs.begin(), inputs.end(), [](const auto& input) {
                            return runtime::ElementCount(input->shape) == 0;
                          });
    EXPECT_EQ(judged.fault.empty(), outcome.takes_own_output && !vanishes)
        << name_ << " runs, and check_shapes says: " << judged.fault;
    outcome.shape = outputs[0]->shape;
    const std::vector<float> values = floats_of(*outputs[0]);
    outcome.values.insert(outcome.values.end(), values.begin(), values.end());
    return true;
  }

  // What `check_shapes` says of the layer behind inputs of these shapes.
  utility::LayerShapes judge(const IKernel::Tensors& inputs) {
    const auto reader = std::make_shared<runtime::Layer>();
    reader->kernel = kernel_;
    std::vector<std::shared_ptr<runtime::Layer>> layers;
    std::unordered_map<unsigned int, runtime::TensorShape> shapes;
    for (unsigned int i = 0; i < inputs.size(); ++i) {
      layers.push_back(std::make_shared<runtime::Layer>());
      layers.back()->name = "Input";
      layers.back()->kernel = input_;
      reader->inputs.emplace_back(i, 0);
      shapes[i] = inputs[i]->shape;
    }
    layers.push_back(reader);
    return utility::check_shapes(runtime::Net(layers, {}), shapes, context_).back();
  }

  void check_output(const IKernel::Tensors& inputs, const IKernel::Tensors& outputs) {
    std::vector<runtime::TensorShape> shapes;
    for (size_t i = 0; i < inputs.size(); ++i) {
      shapes.push_back(inputs[i]->shape);
      if (inputs[i] == outputs[0]) continue;
      const PlanarTensor& planes = setting_.inputs[i];
      const auto given = to_layout(planes.values, planes.channels(), layout_);
      const auto left = floats_of(*inputs[i]);
      size_t different = 0;
      for (size_t k = 0; k < given.size(); ++k) different += same_bits(given[k], left[k]) ? 0 : 1;
      EXPECT_EQ(different, 0u) << name_ << ": input " << i << " changed";
    }
    const auto inferred = kernel_->InferOutputShapes(shapes);
    ASSERT_EQ(inferred.size(), 1u) << name_;
    EXPECT_EQ(inferred[0].dims, outputs[0]->shape.dims) << name_;
    EXPECT_EQ(inferred[0].layout, outputs[0]->shape.layout) << name_;
  }

  const std::string name_;
  const Setting& setting_;
  const LayoutType layout_;
  TestContext context_;
  std::shared_ptr<IKernel> kernel_;
  const std::shared_ptr<IKernel> input_ = make_kernel("Input_Fallback_M1");
  std::vector<float> first_values_;
};

std::string text_of(const std::vector<uint32_t>& dims) {
  std::ostringstream text;
  text << "[";
  for (size_t i = 0; i < dims.size(); ++i) text << (i == 0 ? "" : ", ") << dims[i];
  text << "]";
  return text.str();
}

bool agrees(float found, float expected, double error) {
  if (found == expected || (std::isnan(found) && std::isnan(expected))) return true;
  return std::abs(double{found} - double{expected}) <= error;
}

}  // namespace

WithFailingMemory::WithFailingMemory() {
  memory_fails = true;
  failed_allocations = 0;
}

WithFailingMemory::~WithFailingMemory() { memory_fails = false; }

size_t WithFailingMemory::failures() const { return failed_allocations; }

Outcome run_kernel(const std::string& kernel, const Setting& setting, LayoutType layout) {
  Outcome outcome = Run(kernel, setting, layout).twice();
  if (!memory_fails || !outcome.ran || setting.passes != 1) return outcome;
  for (size_t call = 1; Run(kernel, setting, layout).fails_at(call, outcome); ++call) {
    ++failed_allocations;
  }
  return outcome;
}

Outcome run_planar(const std::string& kernel, const Setting& setting) {
  return run_kernel(kernel, setting, setting.inputs.at(0).layout);
}

std::vector<float> planar_values(const Outcome& outcome, uint32_t channels) {
  return from_layout(outcome.values, channels, outcome.shape.layout);
}

void expect_agreement(const std::string& kernel, const Outcome& outcome,
                      const Expectation& expected, const std::string& setting) {
  ++counts()[kernel];
  const testing::ScopedTrace trace("", 0, kernel + ": " + setting);
  ASSERT_TRUE(outcome.has_output);
  EXPECT_TRUE(outcome.takes_own_output);
  const auto dims = dims_in_layout(expected.dims, outcome.shape.layout);
  ASSERT_EQ(text_of(outcome.shape.dims), text_of(dims));
  const std::vector<float> found =
      planar_values(outcome, expected.dims.empty() ? 0 : expected.dims[0]);
  ASSERT_EQ(found.size(), expected.values.size());
  for (size_t i = 0; i < found.size(); ++i) {
    const double error = expected.errors.empty() ? 0.0 : expected.errors[i];
    const bool right = expected.errors.empty() ? same_bits(found[i], expected.values[i])
                                               : agrees(found[i], expected.values[i], error);
    ASSERT_TRUE(right) << "element " << i << " of " << text_of(expected.dims) << " is " << found[i]
                       << " instead of " << expected.values[i] << " +- " << error;
  }
}

void count_run(const std::string& kernel) { ++counts()[kernel]; }

const std::map<std::string, size_t>& comparisons() { return counts(); }

std::vector<float> numbers(Numbers kind, uint32_t seed, size_t count) {
  Random random(seed);
  switch (kind) {
    case Numbers::integers:
      return random.small_integers(count);
    case Numbers::floats:
      return random.floats(count);
    default:
      return random.uneven_floats(count, 8);
  }
}

std::vector<float> special_numbers(uint32_t seed, size_t count) {
  Random random(seed);
  std::vector<float> values = random.floats(count, 10.0f);
  for (float& value : values) {
    if (random.integer(0, 3) != 0) continue;
    value = random.one_of<float>({kInfinity, -kInfinity, kNaN, 0.0f, -0.0f, kLeastDenormal,
                                  -kLeastNormal, kLargest, -kLargest, 1.0f});
  }
  return values;
}

size_t count_of(const std::vector<uint32_t>& dims) {
  size_t count = 1;
  for (const uint32_t size : dims) count *= size;
  return count;
}

double largest(const std::vector<float>& values) {
  double most = 0.0;
  for (const float value : values) most = std::max(most, std::abs(double{value}));
  return most;
}

bool has_part(const std::string& kernel, const char* part) {
  return kernel.find(part) != std::string::npos;
}

std::string family_of(const std::string& kernel) {
  std::string family = kernel.substr(0, kernel.find('_'));
  std::transform(family.begin(), family.end(), family.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return family;
}

std::vector<float> magnitudes(std::vector<float> values) {
  for (float& value : values) value = std::abs(value);
  return values;
}

}  // namespace marlo::test
