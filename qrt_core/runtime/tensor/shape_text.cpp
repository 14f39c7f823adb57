#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::runtime {
namespace {

// The layouts that `PrintedName`, whose texts are part of older messages, leaves out.
const char* other_name(LayoutType layout) {
  switch (layout) {
    case LayoutType::GN4C4HW4n4c:
      return "GN4C4HW4n4c";
    case LayoutType::G4NCHWg4:
      return "G4NCHWg4";
    case LayoutType::G8NCHWg8:
      return "G8NCHWg8";
    case LayoutType::GN4CHWn4:
      return "GN4CHWn4";
    case LayoutType::GN8CHWn8:
      return "GN8CHWn8";
    case LayoutType::GN:
      return "GN";
    case LayoutType::C:
      return "C";
    case LayoutType::BC:
      return "BC";
    case LayoutType::SC:
      return "SC";
    case LayoutType::GNCL:
      return "GNCL";
    case LayoutType::CL:
      return "CL";
    case LayoutType::NC:
      return "NC";
    case LayoutType::N8C8c8n8:
      return "N8C8c8n8";
    case LayoutType::GN8C8HWc8n8:
      return "GN8C8HWc8n8";
    case LayoutType::GN4C8HWn4c8:
      return "GN4C8HWn4c8";
    case LayoutType::GN8C4HWn8c4:
      return "GN8C4HWn8c4";
    default:
      return nullptr;
  }
}

}  // namespace

std::string LayoutText(LayoutType layout) {
  const char* name = PrintedName(layout);
  if (name == nullptr) name = other_name(layout);
  return name != nullptr ? name : "layout " + std::to_string(static_cast<uint32_t>(layout));
}

std::string ShapeText(const TensorShape& shape) {
  const char* type = PrintedName(shape.data_type);
  std::string text = type != nullptr ? type : "unknown type";
  text += " " + LayoutText(shape.layout) + " [";
  const char* between = "";
  for (const uint32_t size : shape.dims) {
    text += between + std::to_string(size);
    between = ", ";
  }
  text += "]";
  if (shape.location != LocationType::MainMemory) {
    const char* where = PrintedName(shape.location);
    text += std::string(" in ") + (where != nullptr ? where : "an unknown location");
  }
  return text;
}

std::string ShapesText(const std::vector<TensorShape>& shapes) {
  std::string text;
  for (const TensorShape& shape : shapes) {
    text += (text.empty() ? "" : " and ") + ShapeText(shape);
  }
  return text.empty() ? "nothing" : text;
}

}  // namespace marlo::runtime
