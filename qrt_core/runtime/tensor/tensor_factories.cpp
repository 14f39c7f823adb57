#include "qrt_core/runtime/tensor/device_cpu.h"

// The named factories: each builds a shape and calls one of the three basic ones.

namespace marlo::runtime {

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32CHWMainMem(const Dims& dims, const void* data) {
  return CreateTensor(TensorShape(dims, DataType::FLOAT32, LayoutType::CHW), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32CHWMainMemExternal(const Dims& dims, void* data) {
  return CreateTensorExternal(TensorShape(dims, DataType::FLOAT32, LayoutType::CHW), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF16CHWMainMem(const Dims& dims, const void* data) {
  return CreateTensor(TensorShape(dims, DataType::FLOAT16, LayoutType::CHW), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF16C4HW4MainMem(const Dims& dims, const void* data) {
  return CreateTensor(TensorShape(dims, DataType::FLOAT16, LayoutType::C4HW4), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF16C8HW8MainMem(const Dims& dims, const void* data) {
  return CreateTensor(TensorShape(dims, DataType::FLOAT16, LayoutType::C8HW8), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32FlexiableMainMemory(const Dims& dims,
                                                                   const void* data) {
  return CreateTensor(TensorShape(dims, DataType::FLOAT32, LayoutType::FLEXIABLE), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32FlexiableMainMemExternal(const Dims& dims,
                                                                        void* data) {
  return CreateTensorExternal(TensorShape(dims, DataType::FLOAT32, LayoutType::FLEXIABLE), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF16FlexiableMainMemory(const Dims& dims,
                                                                   const void* data) {
  return CreateTensor(TensorShape(dims, DataType::FLOAT16, LayoutType::FLEXIABLE), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF16FlexiableMainMemExternal(const Dims& dims,
                                                                        void* data) {
  return CreateTensorExternal(TensorShape(dims, DataType::FLOAT16, LayoutType::FLEXIABLE), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateS16CHWMainMem(const Dims& dims, const void* data) {
  return CreateTensor(TensorShape(dims, DataType::INT16, LayoutType::CHW), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateS16CHWMainMemExternal(const Dims& dims, void* data) {
  return CreateTensorExternal(TensorShape(dims, DataType::INT16, LayoutType::CHW), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateU8CHWMainMem(const Dims& dims, const void* data) {
  return CreateTensor(TensorShape(dims, DataType::UINT8, LayoutType::CHW), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateU8CHWMainMemExternal(const Dims& dims, void* data) {
  return CreateTensorExternal(TensorShape(dims, DataType::UINT8, LayoutType::CHW), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateU8HWCMainMem(const Dims& dims, const void* data) {
  return CreateTensor(TensorShape(dims, DataType::UINT8, LayoutType::HWC), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateU8HWCMainMemExternal(const Dims& dims, void* data) {
  return CreateTensorExternal(TensorShape(dims, DataType::UINT8, LayoutType::HWC), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32CMainMemory(const unsigned int& size,
                                                           const void* data) {
  return CreateTensor(TensorShape({size}, DataType::FLOAT32, LayoutType::C), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32CMainMemExternal(const unsigned int& size,
                                                                void* data) {
  return CreateTensorExternal(TensorShape({size}, DataType::FLOAT32, LayoutType::C), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF16CMainMemory(const unsigned int& size,
                                                           const void* data) {
  return CreateTensor(TensorShape({size}, DataType::FLOAT16, LayoutType::C), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF32CMainMem(const unsigned int& size) {
  return create_zero(TensorShape({size}, DataType::FLOAT32, LayoutType::C));
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF16CMainMem(const unsigned int& size) {
  return create_zero(TensorShape({size}, DataType::FLOAT16, LayoutType::C));
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF32CHWMainMem(const unsigned int& c,
                                                              const unsigned int& h,
                                                              const unsigned int& w) {
  return create_zero(TensorShape({c, h, w}, DataType::FLOAT32, LayoutType::CHW));
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF32FlexiableMainMem(const Dims& dims) {
  return create_zero(TensorShape(dims, DataType::FLOAT32, LayoutType::FLEXIABLE));
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF16FlexiableMainMem(const Dims& dims) {
  return create_zero(TensorShape(dims, DataType::FLOAT16, LayoutType::FLEXIABLE));
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateBGR888Tensor(const unsigned int& height,
                                                         const unsigned int& width, Pixels data) {
  return CreateU8HWCMainMem({height, width, 3}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateBGR888TensorExternal(const unsigned int& height,
                                                                 const unsigned int& width,
                                                                 void* data) {
  return CreateU8HWCMainMemExternal({height, width, 3}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateRGB888Tensor(const unsigned int& height,
                                                         const unsigned int& width, Pixels data) {
  return CreateU8HWCMainMem({height, width, 3}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateRGB888TensorExternal(const unsigned int& height,
                                                                 const unsigned int& width,
                                                                 void* data) {
  return CreateU8HWCMainMemExternal({height, width, 3}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateBGRA8888Tensor(const unsigned int& height,
                                                           const unsigned int& width, Pixels data) {
  return CreateU8HWCMainMem({height, width, 4}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateBGRA8888TensorExternal(const unsigned int& height,
                                                                   const unsigned int& width,
                                                                   void* data) {
  return CreateU8HWCMainMemExternal({height, width, 4}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateRGBA8888Tensor(const unsigned int& height,
                                                           const unsigned int& width, Pixels data) {
  return CreateU8HWCMainMem({height, width, 4}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateRGBA8888TensorExternal(const unsigned int& height,
                                                                   const unsigned int& width,
                                                                   void* data) {
  return CreateU8HWCMainMemExternal({height, width, 4}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateGray8Tensor(const unsigned int& height,
                                                        const unsigned int& width, Pixels data) {
  return CreateU8HWCMainMem({height, width, 1}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateGray8TensorExternal(const unsigned int& height,
                                                                const unsigned int& width,
                                                                void* data) {
  return CreateU8HWCMainMemExternal({height, width, 1}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateYPlane8BitTensor(const unsigned int& height,
                                                             const unsigned int& width,
                                                             Pixels data) {
  return CreateU8HWCMainMem({height, width, 1}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateYPlane8BitTensorExternal(const unsigned int& height,
                                                                     const unsigned int& width,
                                                                     void* data) {
  return CreateU8HWCMainMemExternal({height, width, 1}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateUVPlane8BitTensor(const unsigned int& height,
                                                              const unsigned int& width,
                                                              Pixels data) {
  return CreateU8HWCMainMem({height, width, 2}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateUVPlane8BitTensorExternal(const unsigned int& height,
                                                                      const unsigned int& width,
                                                                      void* data) {
  return CreateU8HWCMainMemExternal({height, width, 2}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateBGRUInt8CHWTensor(const unsigned int& height,
                                                              const unsigned int& width,
                                                              Pixels data) {
  return CreateU8CHWMainMem({3, height, width}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateBGRUInt8CHWTensorExternal(const unsigned int& height,
                                                                      const unsigned int& width,
                                                                      void* data) {
  return CreateU8CHWMainMemExternal({3, height, width}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateRGBUInt8CHWTensor(const unsigned int& height,
                                                              const unsigned int& width,
                                                              Pixels data) {
  return CreateU8CHWMainMem({3, height, width}, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateRGBUInt8CHWTensorExternal(const unsigned int& height,
                                                                      const unsigned int& width,
                                                                      void* data) {
  return CreateU8CHWMainMemExternal({3, height, width}, data);
}

}  // namespace marlo::runtime
