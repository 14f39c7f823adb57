#pragma once

#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "qrt_core/kernel/epilogue.h"
#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/type_name.h"
#include "qrt_core/runtime/tensor/shape_text.h"

// How families say what they take. A family writes each of its demands once, as an expectation;
// `CheckConfig` asks whether any is left unmet, and whoever asks for reasons gets those.

namespace marlo::kernel {

/// "ReLUInfo" of marlo::runtime::ReLUInfo; "no description" for none.
inline std::string class_of(const runtime::LayerInfo* info) {
  if (info == nullptr) return "no description";
  const std::string name = runtime::demangled(typeid(*info).name());
  const size_t colon = name.rfind(':');
  return colon == std::string::npos ? name : name.substr(colon + 1);
}

/// That a description is not of class `Info`.
template <typename Info>
runtime::Misfit other_class(const runtime::LayerInfo* info) {
  const std::string name = runtime::demangled(typeid(Info).name());
  return {"", "a description of class " + name.substr(name.rfind(':') + 1), class_of(info)};
}

/// "3 x 5"
template <typename Number>
std::string by(Number height, Number width) {
  return std::to_string(height) + " x " + std::to_string(width);
}

/// "1 slope", "2 slopes"
inline std::string counted(uint64_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

/// "[1, -1, 3]"
template <typename Number>
std::string listed(const std::vector<Number>& numbers) {
  std::string text;
  for (const Number number : numbers) text += (text.empty() ? "" : ", ") + std::to_string(number);
  return "[" + text + "]";
}

/// That a kernel's results are those of an activation besides, member "epilogue".
inline void add_epilogue_difference(Epilogue epilogue, std::vector<runtime::Misfit>& misfits) {
  if (epilogue == Epilogue::none) return;
  misfits.push_back(
      {"epilogue", "none, or that of the one layer that reads the results and passes them through",
       name_of(epilogue)});
}

/// The demands that something doesn't meet.
class Expectations {
 public:
  /// Notes a demand that isn't met.
  Expectations& expect(bool met, std::string member, std::string expected, std::string found) {
    if (!met) unmet_.push_back({std::move(member), std::move(expected), std::move(found)});
    return *this;
  }

  /// Notes a description of another class than `Info`, and a parameter where there must be none.
  /// @return the description; null for another class
  template <typename Info>
  const Info* describe(const runtime::LayerInfo* info, const runtime::InferenceParam* param) {
    const auto* description = dynamic_cast<const Info*>(info);
    if (description == nullptr) unmet_.push_back(other_class<Info>(info));
    expect(param == nullptr, "", "no inference parameter", "one");
    return description;
  }

  /// Notes inputs other than one FLOAT32 tensor in main memory.
  /// @return whether there is one
  bool one_float(const KernelFamily::Shapes& inputs) {
    const bool met = inputs.size() == 1 && inputs[0].data_type == runtime::DataType::FLOAT32 &&
                     inputs[0].location == runtime::LocationType::MainMemory;
    expect(met, "inputs", "one FLOAT32 tensor in main memory", runtime::ShapesText(inputs));
    return met;
  }

  /// The same of one layout.
  bool one_float_of(const KernelFamily::Shapes& inputs, runtime::LayoutType layout) {
    if (!one_float(inputs)) return false;
    expect(inputs[0].layout == layout, "input 0", "layout " + runtime::LayoutText(layout),
           runtime::ShapeText(inputs[0]));
    return inputs[0].layout == layout;
  }

  bool met() const { return unmet_.empty(); }
  KernelFamily::Misfits unmet() && { return std::move(unmet_); }

 private:
  KernelFamily::Misfits unmet_;
};

/// Numbers that a weight text holds: that of conv/weights.h.
uint64_t numbers_in(const std::string& base64);

}  // namespace marlo::kernel
