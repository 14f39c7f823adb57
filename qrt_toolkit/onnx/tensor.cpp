#include <algorithm>
#include <cstring>
#include <fstream>
#include <utility>

#include "qrt_toolkit/onnx/protos_internal.h"

namespace marlo::toolkit {
namespace {

using onnx::TensorProto;

/// Whether `path` lies in `folder` or below, when every link is followed.
bool lies_below(const std::filesystem::path& path, const std::filesystem::path& folder) {
  const auto inner = std::filesystem::canonical(path);
  const auto outer = std::filesystem::canonical(folder);
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

struct External {
  std::string location;
  uint64_t offset = 0;
  std::optional<uint64_t> length;
};

uint64_t number_of(const std::string& key, const std::string& text) {
  const bool digits =
      !text.empty() && text.size() <= 18 &&
      std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!digits) throw NodeFault{key, "\"" + text + "\" is no number of bytes"};
  return std::stoull(text);
}

External external_of(const TensorProto& proto) {
  External external;
  for (const auto& entry : proto.external_data()) {
    if (entry.key() == "location") external.location = entry.value();
    if (entry.key() == "offset") external.offset = number_of("offset", entry.value());
    if (entry.key() == "length") external.length = number_of("length", entry.value());
  }
  return external;
}

std::string read_external(const TensorProto& proto, const std::filesystem::path& folder,
                          size_t size) {
  const External external = external_of(proto);
  const std::filesystem::path relative = external.location;
  const bool climbs = std::find(relative.begin(), relative.end(), "..") != relative.end();
  if (external.location.empty() || relative.is_absolute() || climbs) {
    throw NodeFault{"location", "\"" + external.location + "\" leads out of the model's folder"};
  }
  const std::filesystem::path path = folder / relative;
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    throw NodeFault{"location", "there is no file " + path.string(),
                    "models with external data need their data files beside them"};
  }
  if (!lies_below(path, folder)) {
    throw NodeFault{"location", "\"" + external.location + "\" leads out of the model's folder"};
  }
  const uint64_t in_file = std::filesystem::file_size(path);
  const uint64_t offset = external.offset;
  const uint64_t rest = offset <= in_file ? in_file - offset : 0;
  const uint64_t length = external.length.value_or(rest);
  if (length != size || length > rest) {
    throw NodeFault{"length", path.string() + " holds " + std::to_string(std::min(length, rest)) +
                                  " bytes for it at " + std::to_string(offset) +
                                  ", the shape takes " + std::to_string(size)};
  }
  std::string bytes(size, '\0');
  std::ifstream file(path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(bytes.data(), static_cast<std::streamsize>(size));
  if (!file) throw NodeFault{"location", path.string() + " can't be read"};
  return bytes;
}

/// The bytes of a list of numbers that each stand for one element.
template <class Held, class List>
std::string packed(const List& list) {
  std::string bytes(static_cast<size_t>(list.size()) * sizeof(Held), '\0');
  char* place = bytes.data();
  for (const auto number : list) {
    const auto held = static_cast<Held>(number);
    std::memcpy(place, &held, sizeof held);
    place += sizeof held;
  }
  return bytes;
}

/// From the list that ONNX keeps for the element type.
std::string typed_bytes(const TensorProto& proto, ElementType type) {
  switch (type) {
    case ElementType::float32:
      return packed<float>(proto.float_data());
    case ElementType::float64:
      return packed<double>(proto.double_data());
    case ElementType::int64:
      return packed<int64_t>(proto.int64_data());
    case ElementType::uint32:
      return packed<uint32_t>(proto.uint64_data());
    case ElementType::uint64:
      return packed<uint64_t>(proto.uint64_data());
    case ElementType::int32:
      return packed<int32_t>(proto.int32_data());
    case ElementType::int16:
    case ElementType::uint16:
    case ElementType::float16:
    case ElementType::bfloat16:
      return packed<uint16_t>(proto.int32_data());
    default:
      return packed<uint8_t>(proto.int32_data());
  }
}

}  // namespace

ElementType element_type_of(int onnx_type) noexcept {
  switch (onnx_type) {
    case TensorProto::FLOAT:
      return ElementType::float32;
    case TensorProto::DOUBLE:
      return ElementType::float64;
    case TensorProto::FLOAT16:
      return ElementType::float16;
    case TensorProto::BFLOAT16:
      return ElementType::bfloat16;
    case TensorProto::INT8:
      return ElementType::int8;
    case TensorProto::INT16:
      return ElementType::int16;
    case TensorProto::INT32:
      return ElementType::int32;
    case TensorProto::INT64:
      return ElementType::int64;
    case TensorProto::UINT8:
      return ElementType::uint8;
    case TensorProto::UINT16:
      return ElementType::uint16;
    case TensorProto::UINT32:
      return ElementType::uint32;
    case TensorProto::UINT64:
      return ElementType::uint64;
    case TensorProto::BOOL:
      return ElementType::boolean;
    default:
      return ElementType::undefined;
  }
}

std::string onnx_name_of(int onnx_type) {
  if (TensorProto::DataType_IsValid(onnx_type)) {
    return TensorProto::DataType_Name(static_cast<TensorProto::DataType>(onnx_type));
  }
  return "type " + std::to_string(onnx_type);
}

Constant constant_of(TensorProto& proto, const std::filesystem::path& folder) {
  Constant constant;
  constant.type = element_type_of(proto.data_type());
  constant.shape.assign(proto.dims().begin(), proto.dims().end());
  if (constant.type == ElementType::undefined) {
    throw NodeFault{"", "tensors of " + onnx_name_of(proto.data_type()) + " aren't supported"};
  }
  if (proto.has_segment()) throw NodeFault{"", "tensors in segments aren't supported"};
  const auto count = count_of(constant.shape);
  size_t size = 0;
  if (!count ||
      __builtin_mul_overflow(static_cast<size_t>(*count), size_of(constant.type), &size)) {
    throw NodeFault{"dims", "a shape of " + text_of(constant.shape) + " is impossible"};
  }
  std::string bytes;
  if (proto.data_location() == TensorProto::EXTERNAL) {
    bytes = read_external(proto, folder, size);
  } else if (proto.has_raw_data()) {
    bytes = std::move(*proto.mutable_raw_data());
  } else {
    bytes = typed_bytes(proto, constant.type);
  }
  if (bytes.size() != size) {
    throw NodeFault{"dims", "a tensor of " + text_of(constant.shape) + " " +
                                name_of(constant.type) + " takes " + std::to_string(size) +
                                " bytes, the file holds " + std::to_string(bytes.size())};
  }
  constant.bytes = std::make_shared<const std::string>(std::move(bytes));
  return constant;
}

}  // namespace marlo::toolkit
