#include "qrt_core/runtime/tensor/data_type.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "qrt_core/runtime/tensor/tensor_shape.h"

namespace marlo::test {

using namespace runtime;

namespace {

struct DataTypeRow {
  DataType type;
  uint32_t code;
  const char* name;
  uint32_t bytes;
};

constexpr DataTypeRow kDataTypes[] = {
    {DataType::FLOAT32, 0, "FLOAT32", 4}, {DataType::FLOAT16, 1, "FLOAT16", 2},
    {DataType::INT32, 2, "INT32", 4},     {DataType::INT16, 3, "INT16", 2},
    {DataType::INT8, 4, "INT8", 1},       {DataType::UINT32, 5, "UINT32", 4},
    {DataType::UINT16, 6, "UINT16", 2},   {DataType::UINT8, 7, "UINT8", 1},
};

TEST(DataType, CodesNamesAndElementSizesAreThoseOfTheTable) {
  for (const DataTypeRow& row : kDataTypes) {
    EXPECT_EQ(static_cast<uint32_t>(row.type), row.code);
    EXPECT_STREQ(PrintedName(row.type), row.name);
    EXPECT_EQ(ElementSize(row.type), row.bytes) << row.name;
  }
}

TEST(DataType, OtherCodesHaveTheElementSize0AndNoName) {
  for (const uint32_t code : {8u, 9u, 100u, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(ElementSize(static_cast<DataType>(code)), 0u) << code;
    EXPECT_EQ(PrintedName(static_cast<DataType>(code)), nullptr) << code;
  }
}

TEST(LayoutType, CodesAndNamesAreThoseOfTheTable) {
  const std::map<uint32_t, std::string> names = {
      {0, "CHW"},          {1, "HWC"},          {2, "C4HW4"},       {3, "C8HW8"},
      {8, "NCHW"},         {9, "N4C4HW4n4c"},   {10, "N8C8HW8n8c"}, {11, "GNCHW"},
      {12, "GN4C4HW4n4c"}, {16, "GN8C8HW8n8c"}, {22, "NHWC"},       {23, "FLEXIABLE"},
  };
  for (uint32_t code = 0; code < 64; ++code) {
    const char* name = PrintedName(static_cast<LayoutType>(code));
    const auto expected = names.find(code);
    if (expected == names.end()) {
      EXPECT_EQ(name, nullptr) << code;
    } else {
      EXPECT_STREQ(name, expected->second.c_str()) << code;
    }
  }
}

TEST(LayoutType, EnumeratorsStandForTheirCodes) {
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::CHW), 0u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::HWC), 1u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::C4HW4), 2u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::C8HW8), 3u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::NCHW), 8u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::N4C4HW4n4c), 9u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::N8C8HW8n8c), 10u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::GNCHW), 11u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::GN4C4HW4n4c), 12u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::GN8C8HW8n8c), 16u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::GN), 21u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::NHWC), 22u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::FLEXIABLE), 23u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::C), 24u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::BC), 25u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::SC), 30u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::GNCL), 32u);
  EXPECT_EQ(static_cast<uint32_t>(LayoutType::CL), 33u);
}

TEST(LocationType, CodesAndNamesAreThoseOfTheTable) {
  const std::map<uint32_t, std::string> names = {
      {0x10000, "CPUObject"},       {0x10001, "MainMemory"},  {0x20000, "OpenGLObject"},
      {0x20001, "OpenGLSSBO"},      {0x20002, "OpenGLUBO"},   {0x20004, "OpenGLImage"},
      {0x40000, "MetalObject"},     {0x41001, "MetalBuffer"}, {0x41002, "MetalNoCopyBuffer"},
      {0x41004, "MetalTempBuffer"}, {0x42001, "MetalImage"},  {0x42002, "MetalTempImage"},
  };
  for (const auto& [code, name] : names) {
    EXPECT_STREQ(PrintedName(static_cast<LocationType>(code)), name.c_str());
  }
  for (const uint32_t code : {0u, 1u, 0xFFFFu, 0x10002u, 0x20003u, 0x41000u, 0x42004u}) {
    EXPECT_EQ(PrintedName(static_cast<LocationType>(code)), nullptr) << code;
  }
  EXPECT_EQ(static_cast<uint32_t>(LocationType::MainMemory), 0x10001u);
}

TEST(TensorShape, DefaultHasNoDimsAndIsFloatInMainMemory) {
  const TensorShape shape;
  EXPECT_TRUE(shape.dims.empty());
  EXPECT_EQ(shape.data_type, DataType::FLOAT32);
  EXPECT_EQ(shape.layout, LayoutType::CHW);
  EXPECT_EQ(shape.location, LocationType::MainMemory);
  EXPECT_EQ(shape.extra.step_size, 0);
}

TEST(TensorShape, ComparesAllFiveFields) {
  const TensorShape shape({1, 2, 3}, DataType::INT16, LayoutType::CHW, LocationType::MainMemory,
                          TensorShape::Extra(9));
  EXPECT_EQ(shape, TensorShape(shape));
  TensorShape other = shape;
  other.dims[2] = 4;
  EXPECT_NE(shape, other);
  other = shape;
  other.data_type = DataType::UINT16;
  EXPECT_NE(shape, other);
  other = shape;
  other.layout = LayoutType::FLEXIABLE;
  EXPECT_NE(shape, other);
  other = shape;
  other.location = LocationType::CPUObject;
  EXPECT_NE(shape, other);
  other = shape;
  other.extra.step_size = 8;
  EXPECT_NE(shape, other);
}

TEST(ElementCount, IsTheProductOfTheDims) {
  EXPECT_EQ(ElementCount(TensorShape({2, 3, 5}, DataType::INT8, LayoutType::CHW)), 30u);
  EXPECT_EQ(ElementCount(TensorShape({7}, DataType::INT8, LayoutType::C)), 7u);
  EXPECT_EQ(ElementCount(TensorShape({2, 0, 5}, DataType::INT8, LayoutType::CHW)), 0u);
}

TEST(ElementCount, OfEmptyDimsIs1) { EXPECT_EQ(ElementCount(TensorShape()), 1u); }

TEST(ByteSize, OfAOneElementTensorOfEmptyDimsIsTheElementSize) {
  for (const DataTypeRow& row : kDataTypes) {
    EXPECT_EQ(ByteSize(TensorShape({}, row.type, LayoutType::CHW)), row.bytes);
  }
}

TEST(ByteSize, OfAnUnknownDataTypeIs0) {
  EXPECT_EQ(ByteSize(TensorShape({4, 4}, static_cast<DataType>(8), LayoutType::CHW)), 0u);
}

TEST(ByteSize, IsElementSizeTimesElementCount) {
  for (const DataTypeRow& row : kDataTypes) {
    EXPECT_EQ(ByteSize(TensorShape({3, 5, 7}, row.type, LayoutType::CHW)), 105 * row.bytes);
  }
}

TEST(ByteSize, WrapsBeyond32Bits) {
  const TensorShape shape({0x10000, 0x10000}, DataType::FLOAT32, LayoutType::FLEXIABLE);
  EXPECT_EQ(ElementCount(shape), 0u);
  EXPECT_EQ(ByteSize(shape), 0u);
  const TensorShape third({0x40000001}, DataType::FLOAT32, LayoutType::C);
  EXPECT_EQ(ByteSize(third), 4u);
}

}  // namespace
}  // namespace marlo::test
