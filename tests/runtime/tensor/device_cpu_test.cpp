#include "qrt_core/runtime/tensor/device_cpu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <numeric>

#include "qrt_core/qrt_core.h"
#include "tests/support/counting_pool.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"

// Declared by the library and never defined by it; a device only holds pointers to it.
class marlo::runtime::ThreadPool {};

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::HasSubstr;

const TensorShape kThreeFloats({3}, DataType::FLOAT32, LayoutType::C);

TEST(DetectCPUDevice, GivesZerosAndEmptyVectors) {
  const CPUDeviceDesc desc = DetectCPUDevice();
  EXPECT_EQ(desc.features, 0u);
  EXPECT_TRUE(desc.core_ids.empty());
  EXPECT_EQ(desc.core_count, 0u);
  EXPECT_TRUE(desc.core_frequencies.empty());
  EXPECT_EQ(desc.l1_bytes, 0u);
  EXPECT_EQ(desc.l2_bytes, 0u);
  EXPECT_EQ(desc.l3_bytes, 0u);
  EXPECT_EQ(desc.memory_bytes, 0u);
}

TEST(CreateDeviceCPU, KeepsWhatItIsGivenAndStartsOutsideDynamicMode) {
  CPUDeviceDesc desc;
  desc.core_count = 8;
  desc.core_ids = {1, 2};
  const auto fixed = std::make_shared<AlignUpPool>();
  const auto threads = std::make_shared<ThreadPool>();
  const auto dynamic = std::make_shared<AlignedPool>();
  const auto device = CreateDeviceCPU(desc, fixed, threads, dynamic);
  EXPECT_EQ(device->descriptor.core_count, 8u);
  EXPECT_EQ(device->descriptor.core_ids, desc.core_ids);
  EXPECT_EQ(device->static_pool, fixed);
  EXPECT_EQ(device->thread_pool, threads);
  EXPECT_EQ(device->dynamic_pool, dynamic);
  EXPECT_FALSE(device->dynamic_mode);
  EXPECT_EQ(device->shared_from_this(), device);
}

// A pool that writes down its end.
class MortalPool : public MemoryPool {
 public:
  MortalPool(const char* name, std::vector<std::string>* ends) : name_(name), ends_(ends) {}
  ~MortalPool() override { ends_->push_back(name_); }
  void ReleaseFreeBlocks() override {}
  void* Allocate(uint64_t) override { return nullptr; }
  void Free(void*) override {}
  uint64_t TotalBytes() override { return 0; }

 private:
  const char* name_;
  std::vector<std::string>* ends_;
};

TEST(DeviceCPU, EndReleasesTheDynamicPoolThenTheStaticOneThenTheThreads) {
  std::vector<std::string> ends;
  const auto end_threads = [&ends](ThreadPool* pool) {
    ends.emplace_back("threads");
    delete pool;
  };
  auto device = CreateDeviceCPU({}, std::make_shared<MortalPool>("static", &ends),
                                std::shared_ptr<ThreadPool>(new ThreadPool, end_threads),
                                std::make_shared<MortalPool>("dynamic", &ends));
  device.reset();
  EXPECT_THAT(ends, ::testing::ElementsAre("dynamic", "static", "threads"));
}

TEST(CreateContextOfDevices, TakesVulkanBeforeCuda) {
  // The pointers are only stored, so any address tells them apart.
  int gl = 0, metal = 0, vulkan = 0, cuda = 0, profiler = 0;
  const auto fake = [](int* place, auto* type) {
    using Device = std::remove_pointer_t<decltype(type)>;
    return std::shared_ptr<Device>(std::shared_ptr<void>(), reinterpret_cast<Device*>(place));
  };
  const auto context = CreateContext(nullptr, fake(&gl, static_cast<DeviceOpenGL*>(nullptr)),
                                     fake(&metal, static_cast<DeviceMetalCompute*>(nullptr)),
                                     fake(&vulkan, static_cast<DeviceVulkan*>(nullptr)),
                                     fake(&cuda, static_cast<DeviceCUDAStream*>(nullptr)),
                                     fake(&profiler, static_cast<Profiler*>(nullptr)));
  EXPECT_EQ(context->cpu, nullptr);
  EXPECT_EQ(static_cast<void*>(context->opengl.get()), &gl);
  EXPECT_EQ(static_cast<void*>(context->metal.get()), &metal);
  EXPECT_EQ(static_cast<void*>(context->vulkan.get()), &vulkan);
  EXPECT_EQ(static_cast<void*>(context->cuda.get()), &cuda);
  EXPECT_EQ(static_cast<void*>(context->profiler.get()), &profiler);
}

TEST(CreateTensor, OutsideAPassTakesFromTheStaticPoolEvenIfADynamicPoolExists) {
  CountingContext counting;
  const auto tensor = counting.device().CreateTensor(kThreeFloats, nullptr);
  EXPECT_EQ(counting.static_pool->blocks_in_use(), 1u);
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 0u);
}

TEST(CreateTensor, InDynamicModeTakesFromTheDynamicPool) {
  CountingContext counting;
  counting.device().dynamic_mode = true;
  const auto tensor = counting.device().CreateTensor(kThreeFloats, nullptr);
  EXPECT_EQ(counting.static_pool->blocks_in_use(), 0u);
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 1u);
}

TEST(CreateTensor, InDynamicModeWithoutADynamicPoolTakesFromTheStaticPool) {
  CountingContext counting;
  counting.device().dynamic_mode = true;
  counting.device().dynamic_pool.reset();
  const auto tensor = counting.device().CreateTensor(kThreeFloats, nullptr);
  EXPECT_EQ(counting.static_pool->blocks_in_use(), 1u);
}

TEST(CreateTensorDynamic, TakesFromTheDynamicPoolInEitherMode) {
  CountingContext counting;
  const auto outside = counting.device().CreateTensorDynamic(kThreeFloats, nullptr);
  counting.device().dynamic_mode = true;
  const auto inside = counting.device().CreateTensorDynamic(kThreeFloats, nullptr);
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 2u);
  EXPECT_EQ(counting.static_pool->allocations(), 0u);
}

TEST(CreateTensorDynamic, WithoutADynamicPoolThrows) {
  test::LogCapture log;
  CountingContext counting;
  counting.device().dynamic_pool.reset();
  EXPECT_THAT(failure_of([&] { counting.device().CreateTensorDynamic(kThreeFloats, nullptr); }),
              HasSubstr("no pool"));
}

TEST(TensorDeleter, ReturnsTheBufferToThePoolThatGaveItWhateverTheModeIsThen) {
  CountingContext counting;
  auto fixed = counting.device().CreateTensor(kThreeFloats, nullptr);
  counting.device().dynamic_mode = true;
  auto dynamic = counting.device().CreateTensor(kThreeFloats, nullptr);
  fixed.reset();
  EXPECT_EQ(counting.static_pool->releases(), 1u);
  EXPECT_EQ(counting.dynamic_pool->releases(), 0u);
  counting.device().dynamic_mode = false;
  dynamic.reset();
  EXPECT_EQ(counting.static_pool->releases(), 1u);
  EXPECT_EQ(counting.dynamic_pool->releases(), 1u);
}

TEST(TensorDeleter, RunsWithTheLastReferenceOfAnyKind) {
  CountingContext counting;
  std::shared_ptr<Tensor> base = counting.device().CreateTensor(kThreeFloats, nullptr);
  auto copy = base->shared_from_this();
  base.reset();
  EXPECT_EQ(counting.static_pool->blocks_in_use(), 1u);
  copy.reset();
  EXPECT_EQ(counting.static_pool->blocks_in_use(), 0u);
}

TEST(CreateTensor, CopiesTheDataItIsGiven) {
  CountingContext counting;
  float data[] = {1.0f, 2.0f, 3.0f};
  for (const bool dynamic : {false, true}) {
    counting.device().dynamic_mode = dynamic;
    const auto tensor = counting.device().CreateTensor(kThreeFloats, data);
    EXPECT_NE(tensor->RawPointer(), data);
    EXPECT_EQ(std::memcmp(tensor->RawPointer(), data, sizeof data), 0);
  }
}

TEST(CreateTensor, RefusesSizesOf4GiBOrMore) {
  test::LogCapture log;
  CountingContext counting;
  const std::vector<TensorShape> shapes = {
      TensorShape({0x40000000}, DataType::FLOAT32, LayoutType::C),
      TensorShape({0x40000001}, DataType::FLOAT32, LayoutType::C),
      TensorShape({0x10000, 0x10000}, DataType::UINT8, LayoutType::FLEXIABLE),
      TensorShape({0x10000, 0x10000, 0x10000, 0x10000, 2}, DataType::UINT8, LayoutType::FLEXIABLE),
      TensorShape({0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, DataType::FLOAT32, LayoutType::CHW),
  };
  for (const TensorShape& shape : shapes) {
    EXPECT_THAT(failure_of([&] { counting.device().CreateTensor(shape, nullptr); }),
                HasSubstr("4 GiB"));
    EXPECT_THAT(failure_of([&] { counting.device().CreateTensorDynamic(shape, nullptr); }),
                HasSubstr("4 GiB"));
  }
  EXPECT_EQ(counting.static_pool->allocations() + counting.dynamic_pool->allocations(), 0u);
}

TEST(CreateTensor, MakesTensorsOfNoBytes) {
  CountingContext counting;
  const auto none = counting.device().CreateTensor(
      TensorShape({0xFFFFFFFF, 0, 0xFFFFFFFF}, DataType::FLOAT32, LayoutType::CHW), nullptr);
  const auto unknown = counting.device().CreateTensor(
      TensorShape({5}, static_cast<DataType>(50), LayoutType::C), nullptr);
  EXPECT_NE(none->RawPointer(), unknown->RawPointer());
  EXPECT_EQ(counting.static_pool->blocks_in_use(), 2u);
}

TEST(CreateTensor, WithoutAStaticPoolThrowsAndOnlyExternalTensorsServe) {
  test::LogCapture log;
  const auto device = CreateDeviceCPU({}, nullptr, nullptr, nullptr);
  EXPECT_THAT(failure_of([&] { device->CreateTensor(kThreeFloats, nullptr); }),
              HasSubstr("no pool"));
  float data[3] = {};
  EXPECT_EQ(device->CreateTensorExternal(kThreeFloats, data)->RawPointer(), data);
}

TEST(CreateTensor, PoolWithoutMemoryIsABadAlloc) {
  std::vector<std::string> ends;
  const auto device = CreateDeviceCPU({}, std::make_shared<MortalPool>("null", &ends), nullptr, {});
  EXPECT_THROW(device->CreateTensor(kThreeFloats, nullptr), std::bad_alloc);
}

TEST(CreateTensor, FailureOfThePoolLosesNothing) {
  CountingContext counting;
  counting.static_pool->fail_at(1);
  EXPECT_THROW(counting.device().CreateTensor(kThreeFloats, nullptr), std::bad_alloc);
  EXPECT_EQ(counting.static_pool->blocks_in_use(), 0u);
  EXPECT_NE(counting.device().CreateTensor(kThreeFloats, nullptr), nullptr);
}

TEST(CreateTensorExternal, UsesTheCallersBufferAndLeavesItReadableAtTheEnd) {
  CountingContext counting;
  std::vector<float> data = {1.0f, 2.0f, 3.0f};
  auto tensor = counting.device().CreateTensorExternal(kThreeFloats, data.data());
  EXPECT_EQ(tensor->RawPointer(), data.data());
  static_cast<float*>(tensor->RawPointer())[1] = 7.0f;
  tensor.reset();
  EXPECT_EQ(data, (std::vector<float>{1.0f, 7.0f, 3.0f}));
  EXPECT_EQ(counting.static_pool->allocations() + counting.static_pool->releases(), 0u);
}

TEST(CreateTensorExternal, TouchesNoPoolInDynamicModeEither) {
  CountingContext counting;
  counting.device().dynamic_mode = true;
  float data[3] = {};
  counting.device().CreateTensorExternal(kThreeFloats, data);
  EXPECT_EQ(counting.dynamic_pool->allocations() + counting.dynamic_pool->releases(), 0u);
}

}  // namespace
}  // namespace marlo::test
