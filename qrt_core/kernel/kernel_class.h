#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "qrt_core/kernel/epilogue.h"
#include "qrt_core/runtime/engine/kernel.h"
#include "qrt_core/runtime/engine/kernel_copy.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/utility/build_options.h"

namespace marlo::kernel {

/// How `Config` reads the verdict of `CheckConfig`.
enum class ConfigTest {
  /// Configured unless the verdict is -1.
  not_refused,
  /// Configured only for the verdict 0.
  accepted,
  /// Configured for any verdict but 0. Goes with the check that accepts two empty pointers only, so
  /// that a layer description or a parameter passes and a call without either is refused. Model
  /// files depend on it: it is what makes an input layer configurable.
  inverted,
  /// Configured whatever the verdict, as far as the description can be read. Callers of
  /// `CheckConfig` see refusals that `Config` doesn't share; that is meant.
  ignored,
};

/// What every row of a kernel family begins with.
struct KernelRow {
  const char* name = nullptr;                        ///< class name and registry key
  ConfigTest config_test = ConfigTest::not_refused;  ///< how `Config` reads its check
  runtime::InstructionSet needs = runtime::InstructionSet::baseline;  ///< of its cores
  runtime::InputUse input_use = runtime::InputUse::reads;             ///< of the first input
  Epilogue epilogue = Epilogue::none;  ///< what becomes of a result before it is stored
};

/// `row` for a core that needs AVX.
template <typename Row>
constexpr Row on_avx(Row row) {
  row.needs = runtime::InstructionSet::avx;
  return row;
}

/// `row` for a core that fuses products and sums.
template <typename Row>
constexpr Row on_fma(Row row) {
  row.needs = runtime::InstructionSet::fma;
  return row;
}

/// `row` for a core that needs AVX-512.
template <typename Row>
constexpr Row on_avx512(Row row) {
  row.needs = runtime::InstructionSet::avx512;
  return row;
}

/// `row` for a kernel that writes over its first input.
template <typename Row>
constexpr Row in_place(Row row) {
  row.input_use = runtime::InputUse::overwrites;
  return row;
}

/// `row` with an activation of its own.
template <typename Row>
constexpr Row with_epilogue(Epilogue epilogue, Row row) {
  row.epilogue = epilogue;
  return row;
}

/// `row` under the given name.
template <typename Row>
constexpr Row named(const char* name, Row row) {
  row.name = name;
  return row;
}

/// Declares kernel class `Name` and its row, `rows::Name`.
#define QRT_KERNEL(Name, row)                             \
  namespace rows {                                        \
  inline constexpr auto Name = kernel::named(#Name, row); \
  }                                                       \
  using Name = KernelClass<rows::Name>;

/// The address of the row of kernel class `Name`, for a family's list of rows.
#define QRT_KERNEL_ROW(Name, row) &rows::Name,

/// Where one call of `Forward` runs.
class Pass {
 public:
  /// @param kernel its name, for messages
  /// @param context may be null: not every kernel needs a device
  Pass(const char* kernel, const runtime::Context* context) : kernel_(kernel), context_(context) {}

  /// The device that makes the tensors of the pass.
  /// @throws std::runtime_error that names the kernel, without context or device
  runtime::DeviceCPU& device() const { return *shared_device(); }

  /// The same for functions that keep a device. @throws std::runtime_error as `device`
  const std::shared_ptr<runtime::DeviceCPU>& shared_device() const;

  /// A new tensor, whose numbers are whatever stood in its memory.
  /// @throws std::runtime_error as `device`
  std::shared_ptr<runtime::TensorCPU> create(runtime::TensorShape shape) const;

 private:
  const char* kernel_;
  const runtime::Context* context_;
};

/// The slots of a family that few families change.
///
/// A family derives from it, hides what it changes and adds
///   int CheckConfig(const LayerInfo*, const InferenceParam*) const;
///   bool Configure(const LayerInfo*, const InferenceParam*, const Context&);
///   int CheckInputs(const Tensors&) const;
///   int CheckOutputs(const Tensors&) const;
///   int Forward(const Tensors& inputs, Tensors& outputs, const Pass&);
/// where a pointer may be null. In `Forward` there are at least `kLeastInputs` inputs, none of them
/// null, and they and the outputs are two vectors.
class KernelFamily {
 public:
  using Context = runtime::Context;                  ///< where a kernel is configured
  using InferenceParam = runtime::InferenceParam;    ///< parameters beyond the description
  using LayerInfo = runtime::LayerInfo;              ///< the layer's description
  using Misfits = std::vector<runtime::Misfit>;      ///< points that don't fit
  using Shapes = std::vector<runtime::TensorShape>;  ///< one per input or output
  using Tensors = runtime::IKernel::Tensors;         ///< one per input or output

  /// Inputs without which a pass is refused.
  static constexpr size_t kLeastInputs = 1;

  /// Whether the family's `Forward` gets whatever inputs there are, null ones as well: it hands
  /// them on, looks at none, or refuses them by a text of its own.
  static constexpr bool kTakesAnyInputs = false;

  /// Accepts two empty pointers only.
  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
    return info == nullptr && param == nullptr ? runtime::KERNEL_OK : runtime::KERNEL_REFUSED;
  }

  /// Takes nothing from the description. @return true
  bool Configure(const LayerInfo*, const InferenceParam*, const Context&) { return true; }

  /// A copy of the inputs' shapes.
  Shapes InferOutputShapes(const Shapes& shapes) const { return shapes; }

  /// There is no state. @return -4
  int ResetState() { return runtime::KERNEL_HAS_NO_STATE; }

  /// Called once on a copy of a configured family, which so far shares every tensor with the original:
  /// a family that writes to tensors of its own in a pass, a state or scratch memory, takes new ones
  /// here. What `Configure` has packed stays shared, and nothing may write to it.
  void begin_own_state(const Context&) {}

  /// @name Facts
  /// See `runtime::IKernelFacts`. Where a check refuses and its family has no reason, the kernel
  /// class gives a general one.
  /// @{
  Misfits refusals(const LayerInfo*, const InferenceParam*) const { return {}; }
  Misfits input_refusals(const Shapes&) const { return {}; }
  Misfits pass_refusals(const Shapes&) const { return {}; }
  /// None.
  Misfits differences(const LayerInfo&, const Shapes&) const { return {}; }
  /// @}
};

/// @name Steps of `FamilyKernel` that depend on no family
/// @{

/// Whether a kernel with this reading of its check is configured for a verdict.
bool is_configurable(ConfigTest test, int verdict);

/// What a context pointer points at, or a context without devices: not every kernel needs one.
const runtime::Context& context_or_none(const std::shared_ptr<runtime::Context>& context);

/// @throws std::runtime_error that names the kernel, for fewer inputs or a null one
void require_inputs(const char* kernel, const runtime::IKernel::Tensors& inputs, size_t least);

/// That a kernel takes other layers than this one.
runtime::Misfit general_refusal(const char* kernel, const runtime::LayerInfo* info);

/// That a kernel takes other inputs.
runtime::Misfit general_input_refusal(const char* kernel, const KernelFamily::Shapes& inputs);

/// Tensors of these shapes for checks, which look at shapes only: their memory must not be touched.
runtime::IKernel::Tensors hollow_tensors(const KernelFamily::Shapes& shapes);
/// @}

/// The slots of a kernel, carried out by a family with a row.
template <typename Row>
class FamilyKernel : public runtime::IKernel,
                     public runtime::IKernelFacts,
                     public runtime::IKernelCopy {
  using Family = typename Row::Family;
  using Context = std::shared_ptr<runtime::Context>;
  using Info = std::shared_ptr<runtime::LayerInfo>;
  using Misfits = KernelFamily::Misfits;
  using Param = std::shared_ptr<runtime::InferenceParam>;
  using Shapes = KernelFamily::Shapes;

 public:
  /// @param row outlives the kernel
  explicit FamilyKernel(const Row& row) : row_(row), family_(row) {}

  std::string GetKernelName() override { return row_.name; }

  /// As the family says.
  int CheckConfig(Info info, Param param) override {
    return family_.CheckConfig(info.get(), param.get());
  }

  /// Asks the family's check, reads its verdict as the row's `config_test` says, and has the family
  /// take the description. @return whether the kernel is configured
  bool Config(Info info, Param param, Context context) override {
    configured = false;
    const int verdict = family_.CheckConfig(info.get(), param.get());
    if (!is_configurable(row_.config_test, verdict)) return false;
    configured = family_.Configure(info.get(), param.get(), context_or_none(context));
    return configured;
  }

  Shapes InferOutputShapes(const Shapes& shapes) override {
    return family_.InferOutputShapes(shapes);
  }

  int ResetState() override { return family_.ResetState(); }

  int CheckInputs(const Tensors& tensors) override { return family_.CheckInputs(tensors); }

  /// As the family says. `inputs` and `outputs` may be one vector.
  /// @throws std::runtime_error that names the kernel, where an input is missing or null, or a
  ///   device is needed and missing
  int Forward(const Tensors& inputs, Tensors& outputs, Context context) override {
    if (!Family::kTakesAnyInputs) require_inputs(row_.name, inputs, Family::kLeastInputs);
    const Pass pass(row_.name, context.get());
    if (&inputs != &outputs) return family_.Forward(inputs, outputs, pass);
    const Tensors held = inputs;  // what comes out may stand in the place of what went in
    return family_.Forward(held, outputs, pass);
  }

  int CheckOutputs(const Tensors& tensors) override { return family_.CheckOutputs(tensors); }

  std::shared_ptr<runtime::IKernel> copy_for(const Context& context) const override {
    const std::shared_ptr<FamilyKernel> copy(new FamilyKernel(row_, family_));
    copy->configured = configured;
    if (configured) copy->family_.begin_own_state(context_or_none(context));
    return copy;
  }

  runtime::InstructionSet needs() const override { return row_.needs; }

  runtime::InputUse input_use() const override { return row_.input_use; }

  std::string_view epilogue() const override { return name_of(row_.epilogue); }

  Misfits refusals(const runtime::LayerInfo* info,
                   const runtime::InferenceParam* param) const override {
    Misfits found = family_.refusals(info, param);
    if (!found.empty()) return found;
    if (!is_configurable(row_.config_test, family_.CheckConfig(info, param))) {
      found.push_back(general_refusal(row_.name, info));
    }
    return found;
  }

  Misfits input_refusals(const Shapes& inputs) const override {
    if (family_.CheckInputs(hollow_tensors(inputs)) == runtime::KERNEL_OK) return {};
    Misfits found = family_.input_refusals(inputs);
    if (found.empty()) found.push_back(general_input_refusal(row_.name, inputs));
    return found;
  }

  Misfits pass_refusals(const Shapes& inputs) const override {
    return family_.pass_refusals(inputs);
  }

  Misfits differences(const runtime::LayerInfo& info, const Shapes& inputs) const override {
    return family_.differences(info, inputs);
  }

 private:
  FamilyKernel(const Row& row, const Family& family) : row_(row), family_(family) {}

  const Row& row_;
  Family family_;
};

/// The kernel class of one row. The row's type names its family as `Family`. See `QRT_KERNEL`.
template <const auto& row>
class KernelClass final : public FamilyKernel<std::decay_t<decltype(row)>> {
 public:
  static constexpr const char* name = row.name;  ///< class name and registry key

  KernelClass() : FamilyKernel<std::decay_t<decltype(row)>>(row) {}
};

}  // namespace marlo::kernel
