#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/kernel.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "tests/support/differential/choices.h"

// One kernel on one layer, in hostile memory, and the comparison of what it makes.

namespace marlo::test {

/// A tensor in planar form, whatever layout a kernel gets it in.
struct PlanarTensor {
  std::vector<uint32_t> dims;
  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of the planar form
  std::vector<float> values;
  uint16_t step = 0;  ///< fractional bits of an INT16 tensor; 0 for FLOAT32

  uint32_t channels() const { return dims.empty() ? 0 : dims[0]; }
};

/// A layer, and what it is given in each pass.
struct Setting {
  std::shared_ptr<runtime::LayerInfo> info;
  std::shared_ptr<runtime::InferenceParam> param;
  std::vector<PlanarTensor> inputs;
  int passes = 1;  ///< with the state that the kernel carries, if any
};

/// What came of running a kernel.
struct Outcome {
  bool ran = false;     ///< configured, its inputs taken, and `Forward` returned
  std::string refusal;  ///< the text of what `Forward` threw
  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of the inputs
  bool has_output = false;
  bool takes_own_output = false;  ///< `CheckOutputs` does
  runtime::TensorShape shape;     ///< of the output
  std::vector<float> values;      ///< of the output, as they lie in memory, of all passes
};

/// Runs a kernel with its inputs in a layout. Whatever it is given, it may leave no tensor, and
/// must treat memory alike each time: a fault is a failure of the running test. What it makes is
/// what `InferOutputShapes` said and `CheckOutputs` takes, the same in every run, and its input
/// stays as it was unless it is the output too. `check_shapes` finds a fault where it throws, and none
/// where it runs, but what vanishes and what the kernel itself refuses.
Outcome run_kernel(const std::string& kernel, const Setting& setting, runtime::LayoutType layout);

/// While one of these lives, `run_kernel` also runs each kernel with a pool that fails at the n-th
/// allocation, for every n: that has to end in an exception or a refusal, leave no block, and leave
/// the kernel able to make the same of its inputs once there is memory.
class WithFailingMemory {
 public:
  WithFailingMemory();
  WithFailingMemory(const WithFailingMemory&) = delete;
  WithFailingMemory& operator=(const WithFailingMemory&) = delete;
  ~WithFailingMemory();

  /// How many allocations have failed.
  size_t failures() const;
};

/// `run_kernel` with the layout of the planar form.
Outcome run_planar(const std::string& kernel, const Setting& setting);

/// The output in planar form. @param channels that it has there
std::vector<float> planar_values(const Outcome& outcome, uint32_t channels);

/// What is expected, and how far each number may be off.
struct Expectation {
  std::vector<uint32_t> dims;  ///< planar
  std::vector<float> values;
  std::vector<double> errors;  ///< empty: the bits have to be the same
};

/// Compares an output, and counts the comparison for the kernel. @param setting told on a failure
void expect_agreement(const std::string& kernel, const Outcome& outcome,
                      const Expectation& expected, const std::string& setting);

/// Counts a run that nothing can be compared with but the second one.
void count_run(const std::string& kernel);

/// The kinds of numbers that layers are tried with.
enum class Numbers { integers, floats, uneven };

/// `count` numbers: from -4 to 4, from -1 to 1, or of very different magnitudes.
std::vector<float> numbers(Numbers kind, uint32_t seed, size_t count);

/// The same with some infinities, NaNs, zeros of both signs and denormals among them.
std::vector<float> special_numbers(uint32_t seed, size_t count);

/// Elements of dims.
size_t count_of(const std::vector<uint32_t>& dims);

/// The largest magnitude, which is no NaN; 0 of no numbers.
double largest(const std::vector<float>& values);

/// Whether a kernel's name has a part, "_G1_" say.
bool has_part(const std::string& kernel, const char* part);

/// What stands before the first '_' of a kernel's name, in lower case.
std::string family_of(const std::string& kernel);

/// The magnitudes of numbers.
std::vector<float> magnitudes(std::vector<float> values);

}  // namespace marlo::test
