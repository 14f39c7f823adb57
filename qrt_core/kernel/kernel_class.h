#pragma once

#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qrt_core/runtime/engine/kernel.h"

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
};

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

/// The slots of a family that few families change.
///
/// A family derives from it, hides what it changes and adds
///   int CheckConfig(const LayerInfo*, const InferenceParam*) const;
///   bool Configure(const LayerInfo*, const InferenceParam*, const Context&);
///   int CheckInputs(const Tensors&) const;
///   int CheckOutputs(const Tensors&) const;
///   int Forward(const Tensors& inputs, Tensors& outputs, const Context&);
/// where a pointer may be null.
class KernelFamily {
 public:
  using Context = runtime::Context;                  ///< where a pass runs
  using InferenceParam = runtime::InferenceParam;    ///< parameters beyond the description
  using LayerInfo = runtime::LayerInfo;              ///< the layer's description
  using Shapes = std::vector<runtime::TensorShape>;  ///< one per input or output
  using Tensors = runtime::IKernel::Tensors;         ///< one per input or output

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
};

/// What a context pointer points at, or a context without devices: not every kernel needs one.
inline const runtime::Context& context_or_none(const std::shared_ptr<runtime::Context>& context) {
  static const runtime::Context none;
  return context != nullptr ? *context : none;
}

/// The kernel class of one row of a family: the slots of `IKernel`, carried out by the family with
/// that row. The row's type names its family as `Family`. See `QRT_KERNEL`.
template <const auto& row>
class KernelClass final : public runtime::IKernel {
  using Family = typename std::decay_t<decltype(row)>::Family;
  using Context = std::shared_ptr<runtime::Context>;
  using Info = std::shared_ptr<runtime::LayerInfo>;
  using Param = std::shared_ptr<runtime::InferenceParam>;

 public:
  static constexpr const char* name = row.name;  ///< class name and registry key

  std::string GetKernelName() override { return row.name; }

  /// As the family says.
  int CheckConfig(Info info, Param param) override {
    return family_.CheckConfig(info.get(), param.get());
  }

  /// Asks `CheckConfig`, reads its verdict as the row's `config_test` says, and has the family
  /// take the description. @return whether the kernel is configured
  bool Config(Info info, Param param, Context context) override {
    configured = false;
    if (!passes(CheckConfig(info, param))) return false;
    configured = family_.Configure(info.get(), param.get(), context_or_none(context));
    return configured;
  }

  std::vector<runtime::TensorShape> InferOutputShapes(
      const std::vector<runtime::TensorShape>& shapes) override {
    return family_.InferOutputShapes(shapes);
  }

  int ResetState() override { return family_.ResetState(); }

  int CheckInputs(const Tensors& tensors) override { return family_.CheckInputs(tensors); }

  /// As the family says. Without a context, one without devices is passed on.
  int Forward(const Tensors& inputs, Tensors& outputs, Context context) override {
    return family_.Forward(inputs, outputs, context_or_none(context));
  }

  int CheckOutputs(const Tensors& tensors) override { return family_.CheckOutputs(tensors); }

 private:
  static constexpr bool passes(int verdict) {
    switch (row.config_test) {
      case ConfigTest::accepted:
        return verdict == runtime::KERNEL_OK;
      case ConfigTest::inverted:
        return verdict != runtime::KERNEL_OK;
      case ConfigTest::ignored:
        return true;
      default:
        return verdict != runtime::KERNEL_REFUSED;
    }
  }

  Family family_{row};
};

}  // namespace marlo::kernel
