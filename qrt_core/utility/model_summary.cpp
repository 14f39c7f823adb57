#include "qrt_core/utility/model_summary.h"

#include <cstring>

#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::utility {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;

namespace {

using Json = runtime::json::Value;

constexpr char kStart[] = "{\"qrt_model\":";

const Json* member(const Json& object, const char* key) {
  if (!object.IsObject()) return nullptr;
  const auto found = object.FindMember(key);
  return found == object.MemberEnd() ? nullptr : &found->value;
}

std::string text_of(const Json& object, const char* key) {
  const Json* const value = member(object, key);
  return value != nullptr && value->IsString()
             ? std::string(value->GetString(), value->GetStringLength())
             : "";
}

std::vector<float> numbers_of(const Json& object, const char* key) {
  std::vector<float> numbers;
  const Json* const value = member(object, key);
  if (value == nullptr || !value->IsArray()) return numbers;
  for (const Json& number : value->GetArray()) {
    if (number.IsNumber()) numbers.push_back(static_cast<float>(number.GetDouble()));
  }
  return numbers;
}

LayoutType layout_named(const std::string& name) {
  for (const LayoutType layout :
       {LayoutType::C, LayoutType::CL, LayoutType::SC, LayoutType::BC, LayoutType::CHW}) {
    if (name == runtime::LayoutText(layout)) return layout;
  }
  return LayoutType::FLEXIABLE;
}

DescribedTensor tensor_of(const Json& object) {
  DescribedTensor described;
  described.name = text_of(object, "name");
  described.layout = layout_named(text_of(object, "layout"));
  if (const Json* const shape = member(object, "shape"); shape != nullptr && shape->IsArray()) {
    for (const Json& size : shape->GetArray()) {
      described.sizes.push_back(size.IsUint() ? size.GetUint() : 0);
    }
  }
  const Json* const batch = member(object, "batch");
  if (batch != nullptr && batch->IsBool() && batch->GetBool()) {
    const Json* const axis = member(object, "batch_axis");
    described.batch = axis != nullptr && axis->IsUint() ? axis->GetUint() : 0;
  }
  if (const Json* const picture = member(object, "picture")) {
    described.color = text_of(*picture, "color");
    described.mean = numbers_of(*picture, "mean");
    described.scale = numbers_of(*picture, "scale");
  }
  return described;
}

std::vector<DescribedTensor> tensors_of(const Json& object, const char* key) {
  std::vector<DescribedTensor> tensors;
  const Json* const value = member(object, key);
  if (value == nullptr || !value->IsArray()) return tensors;
  for (const Json& tensor : value->GetArray()) tensors.push_back(tensor_of(tensor));
  return tensors;
}

bool fits(const std::vector<uint32_t>& sizes, const std::vector<uint32_t>& described) {
  if (sizes.size() != described.size()) return false;
  for (size_t i = 0; i < sizes.size(); ++i) {
    if (described[i] != 0 && described[i] != sizes[i]) return false;
  }
  return true;
}

}  // namespace

std::optional<ModelSummary> read_summary(const std::string& summary) {
  if (summary.compare(0, std::strlen(kStart), kStart) != 0) return std::nullopt;
  const std::string line = summary.substr(0, summary.find('\n'));
  runtime::json::Document document;
  runtime::json::parse(document, line.c_str());
  if (!document.IsObject()) return std::nullopt;
  return ModelSummary{text_of(document, "source"), text_of(document, "producer"),
                      tensors_of(document, "inputs"), tensors_of(document, "outputs")};
}

std::optional<TensorShape> described_shape(const DescribedTensor& described,
                                           std::vector<uint32_t> sizes) {
  const bool has_batch = described.batch && *described.batch < sizes.size() &&
                         sizes.size() == described.sizes.size() + 1 && sizes[*described.batch] == 1;
  if (has_batch) sizes.erase(sizes.begin() + static_cast<std::ptrdiff_t>(*described.batch));
  // A single number may be given without axes, or with its batch only.
  if (sizes.empty()) sizes = {1};
  if (!fits(sizes, described.sizes)) return std::nullopt;
  return TensorShape(std::move(sizes), DataType::FLOAT32, described.layout);
}

}  // namespace marlo::utility
