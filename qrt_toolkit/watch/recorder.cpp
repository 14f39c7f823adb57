#include "qrt_toolkit/watch/recorder.h"

#include <cstring>
#include <type_traits>

namespace marlo::toolkit {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;

namespace {

template <typename T>
std::vector<double> widened(const TensorShape& shape, const void* memory) {
  using Number = std::conditional_t<std::is_same_v<T, half_float::half>, float, T>;
  std::vector<double> values(ElementCount(shape));
  const char* from = static_cast<const char*>(memory);
  for (size_t i = 0; i < values.size(); ++i) {
    T value;
    std::memcpy(&value, from + i * sizeof value, sizeof value);
    values[i] = static_cast<double>(static_cast<Number>(value));
  }
  return values;
}

}  // namespace

std::vector<double> numbers_of(const TensorShape& shape, const void* memory) {
  switch (shape.data_type) {
    case DataType::FLOAT32:
      return widened<float>(shape, memory);
    case DataType::FLOAT16:
      return widened<half_float::half>(shape, memory);
    case DataType::INT32:
      return widened<int32_t>(shape, memory);
    case DataType::INT16:
      return widened<int16_t>(shape, memory);
    case DataType::INT8:
      return widened<int8_t>(shape, memory);
    case DataType::UINT32:
      return widened<uint32_t>(shape, memory);
    case DataType::UINT16:
      return widened<uint16_t>(shape, memory);
    case DataType::UINT8:
      return widened<uint8_t>(shape, memory);
  }
  return {};
}

/// A kernel whose outputs are copied.
class Recorder::RecordedKernel final : public KernelWrapper {
 public:
  RecordedKernel(std::shared_ptr<IKernel> kernel, const KernelPlace& place, Records& records)
      : KernelWrapper(std::move(kernel)), place_(place), records_(records) {}

  int Forward(const Tensors& inputs, Tensors& outputs, ContextPointer context) override {
    const size_t before = outputs.size();
    const int result = KernelWrapper::Forward(inputs, outputs, std::move(context));
    // A converter has one output, which takes the place of that of the layer's own kernel.
    for (size_t i = before; i < outputs.size(); ++i) {
      if (outputs[i] == nullptr || outputs[i]->handle.cpu == nullptr) continue;
      const auto position = place_.position + static_cast<uint32_t>(i - before);
      records_[{place_.layer, position}] = {
          place_.layer, position, outputs[i]->shape,
          std::string(static_cast<const char*>(outputs[i]->handle.cpu),
                      ByteSize(outputs[i]->shape))};
    }
    return result;
  }

 private:
  KernelPlace place_;
  Records& records_;
};

Recorder::Recorder(runtime::Net& net)
    : kernels_(net,
               [this](const KernelPlace& place,
                      const KernelsTaken::Kernel& kernel) -> KernelsTaken::Kernel {
                 if (place.role == KernelRole::input_converter) return kernel;
                 return std::make_shared<RecordedKernel>(kernel, place, records_);
               }) {}

Recorder::~Recorder() = default;

std::vector<LayerRecord> Recorder::take_records() {
  std::vector<LayerRecord> records;
  for (auto& [place, record] : records_) records.push_back(in_planes(std::move(record)));
  records_.clear();
  return records;
}

LayerRecord in_planes(LayerRecord record) {
  const size_t block = BlockSize(record.shape.layout);
  const std::vector<uint32_t> dims = record.shape.dims;
  if (block == 1 || dims.size() != 4 || dims[3] != block) return record;
  const size_t size = ElementSize(record.shape.data_type);
  const size_t pixels = size_t{dims[1]} * dims[2];
  std::string planes(record.bytes.size(), '\0');
  for (size_t outer = 0; outer < dims[0]; ++outer) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      for (size_t inner = 0; inner < block; ++inner) {
        const size_t from = (outer * pixels + pixel) * block + inner;
        const size_t to = (outer * block + inner) * pixels + pixel;
        std::memcpy(&planes[to * size], &record.bytes[from * size], size);
      }
    }
  }
  record.bytes = std::move(planes);
  record.shape.layout = LayoutType::CHW;
  record.shape.dims = {static_cast<uint32_t>(dims[0] * block), dims[1], dims[2]};
  return record;
}

}  // namespace marlo::toolkit
