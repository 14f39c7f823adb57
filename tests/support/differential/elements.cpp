#include <cmath>

#include "qrt_core/runtime/model/elementwise_info.h"
#include "tests/support/differential/operation.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"

// Activations and operators on two tensors.

namespace marlo::test {

using runtime::LayoutType;

namespace {

bool begins_with(const std::string& kernel, const std::string& part) {
  return kernel.rfind(part, 0) == 0;
}

std::vector<uint32_t> choose_dims(Choices& choices) {
  const uint32_t channels = choices.yes() ? 8 * choices.size(1, 3) : choices.size(1, 20);
  return {channels, choices.size(1, 9), choices.size(1, 11)};
}

// In blocks where there are whole ones, and in planes.
std::vector<LayoutType> layouts_for(uint32_t channels) {
  std::vector<LayoutType> layouts = {LayoutType::CHW};
  if (channels % 4 == 0) layouts.push_back(LayoutType::C4HW4);
  if (channels % 8 == 0) layouts.push_back(LayoutType::C8HW8);
  return layouts;
}

class Activations final : public Operation {
 public:
  std::vector<std::string> families() const override {
    std::vector<std::string> families;
    for (const char* function : kFunctions) {
      families.push_back(family_of(function));
    }
    return families;
  }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    const std::string function = kFunctions[choices.below(std::size(kFunctions))];
    auto info = std::make_shared<runtime::ActivationInfo>();
    info->activation_alpha = half_float::half(static_cast<float>(choices.between(-8, 8)) / 8.0f);
    info->activation_beta = half_float::half(static_cast<float>(choices.between(-8, 8)) / 4.0f);
    info->weight = weight_text({static_cast<float>(choices.between(-8, 8)) / 16.0f});
    PlanarTensor input{choose_dims(choices), LayoutType::CHW, {}};
    const bool special = choices.yes();
    const uint32_t seed = choices.seed();
    const size_t count = count_of(input.dims);
    input.values = special ? special_numbers(seed, count) : Random(seed).floats(count, 10.0f);
    const Setting setting{info, nullptr, {input}};
    const Outcome result = run_planar(function + "_Fallback_Float_M1", setting);
    for (const std::string& kernel : kernels) {
      if (!begins_with(kernel, function + "_")) continue;
      for (const LayoutType layout : layouts_for(input.channels())) {
        const Outcome outcome = run_kernel(kernel, setting, layout);
        if (!outcome.ran && outcome.refusal.empty()) continue;
        compare(kernel, input, result, outcome);
      }
    }
  }

 private:
  static constexpr const char* kFunctions[] = {"ReLU",  "ReLU6",   "HSigmoid", "HSwish", "Leaky",
                                               "PReLU", "Sigmoid", "TanH",     "Linear"};

  // Where a kernel is documented to give something else, the expectation follows what it gave:
  // vectors of rectifiers and leaky functions make 0 of a NaN, and 0 of a -0.
  static void compare(const std::string& kernel, const PlanarTensor& input, const Outcome& result,
                      const Outcome& outcome) {
    Expectation expected{input.dims, result.values, {}};
    const std::vector<float> found = planar_values(outcome, input.channels());
    expected.errors.assign(expected.values.size(), 0.0);
    for (size_t i = 0; i < found.size() && i < expected.values.size(); ++i) {
      const float x = input.values[i];
      float& value = expected.values[i];
      const bool drops_nan = begins_with(kernel, "ReLU") || begins_with(kernel, "Leaky") ||
                             begins_with(kernel, "PReLU");
      const bool drops_infinity = begins_with(kernel, "Leaky") || begins_with(kernel, "PReLU");
      if (std::isnan(x) && drops_nan && found[i] == 0.0f) value = 0.0f;
      // A slope of 0 times an infinity.
      if (std::isinf(x) && drops_infinity && std::isnan(found[i])) value = kNaN;
      if (begins_with(kernel, "Sigmoid") || begins_with(kernel, "TanH")) {
        expected.errors[i] = exponential_error(kernel, x);
        if (is_out_of_range(kernel, x)) value = found[i];
      }
    }
    expect_agreement(kernel, outcome, expected, std::to_string(input.values.size()) + " elements");
  }

  // The fast exponential may be off by 4 percent, which moves its argument by 0.041 and the
  // function by that times its slope; the polynomial, and the portable kernel, by a few units.
  static double exponential_error(const std::string& kernel, double x) {
    constexpr double kFast = 0.045;
    const double units = 8 * kEpsilon;
    const double sigmoid = 1.0 / (1.0 + std::exp(-x));
    const double tangent = std::tanh(x);
    if (kernel == "Sigmoid_SSE_Float_M1") return kFast * sigmoid * (1.0 - sigmoid) + units;
    if (kernel == "TanH_SSE_Float_M1") return kFast * (1.0 - tangent * tangent) + units;
    return units;
  }

  // Beyond +-700 the fast exponential overflows or turns negative, and a NaN becomes what it likes.
  static bool is_out_of_range(const std::string& kernel, float x) {
    if (has_part(kernel, "_Fallback_")) return false;
    return std::isnan(x) || std::abs(x) > 300.0f;
  }
};

class ElementwiseOperators final : public Operation {
 public:
  std::vector<std::string> families() const override { return {"elementwise"}; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    auto info = std::make_shared<runtime::ElementWiseOperatorInfo>();
    info->op_type = static_cast<uint16_t>(choices.below(4));
    PlanarTensor a{choose_dims(choices), LayoutType::CHW, {}};
    PlanarTensor b = a;
    const uint32_t seed = choices.seed();
    a.values = special_numbers(seed, count_of(a.dims));
    b.values = special_numbers(seed + 1, count_of(b.dims));
    const Setting setting{info, nullptr, {a, b}};
    const Outcome result = run_planar("Elementwise_Fallback_Float_M1", setting);
    for (const std::string& kernel : kernels) {
      Expectation expected{a.dims, result.values, {}};
      const kernel::Epilogue epilogue = epilogue_of(kernel);
      for (float& value : expected.values) {
        if (epilogue == kernel::Epilogue::none) break;
        value = static_cast<float>(exact_epilogue(epilogue, value));
      }
      for (const LayoutType layout : layouts_for(a.channels())) {
        const Outcome outcome = run_kernel(kernel, setting, layout);
        if (!outcome.ran && outcome.refusal.empty()) continue;
        expect_agreement(kernel, outcome, expected, "operator " + std::to_string(info->op_type));
      }
    }
  }
};

// A feature map and its channels' factors, in either order; and any two shapes for the portable
// kernel alone.
class BroadcastOperators final : public Operation {
 public:
  std::vector<std::string> families() const override { return {"broadcastoperator"}; }

  void run(Choices& choices, const std::vector<std::string>& kernels) const override {
    auto info = std::make_shared<runtime::BroadcastOperatorInfo>();
    info->op_type = static_cast<uint16_t>(choices.yes() ? kMultiply : choices.below(6));
    PlanarTensor map{choose_dims(choices), LayoutType::CHW, {}};
    PlanarTensor factors{{map.channels(), 1, 1}, LayoutType::CHW, {}};
    const uint32_t seed = choices.seed();
    map.values = special_numbers(seed, count_of(map.dims));
    factors.values = special_numbers(seed + 1, map.channels());
    Setting setting{info, nullptr, {map, factors}};
    if (choices.yes()) std::swap(setting.inputs[0], setting.inputs[1]);
    const Outcome result = run_planar("BroadcastOperator_Fallback_Float_M1", setting);
    if (!result.ran) return;
    const Expectation expected{map.dims, result.values, {}};
    for (const std::string& kernel : kernels) {
      for (const LayoutType layout : layouts_for(map.channels())) {
        const Outcome outcome = run_kernel(kernel, setting, layout);
        if (!outcome.ran && outcome.refusal.empty()) continue;
        const bool multiplies = has_part(kernel, "_Mul_");
        if (multiplies && info->op_type != kMultiply) continue;
        // A map of height 1 in front is taken for the factors.
        if (multiplies && setting.inputs[0].dims == map.dims && map.dims[1] == 1) continue;
        expect_agreement(kernel, outcome, expected, "operator " + std::to_string(info->op_type));
      }
    }
  }

 private:
  static constexpr uint32_t kMultiply = 2;
};

}  // namespace

std::unique_ptr<Operation> activations() { return std::make_unique<Activations>(); }
std::unique_ptr<Operation> elementwise_operators() {
  return std::make_unique<ElementwiseOperators>();
}
std::unique_ptr<Operation> broadcast_operators() { return std::make_unique<BroadcastOperators>(); }

}  // namespace marlo::test
