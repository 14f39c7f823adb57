#include "tools/qrt/npy.h"

#include <gmock/gmock.h>

#include <cstring>

#include "qrt_core/qrt_core.h"
#include "tools/qrt/errors.h"

namespace qrt_tool {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string npy(const std::string& header, const std::string& data, int major = 1) {
  std::string bytes = "\x93NUMPY";
  bytes += static_cast<char>(major);
  bytes += '\0';
  for (int i = 0; i < (major == 1 ? 2 : 4); ++i) {
    bytes += static_cast<char>((header.size() >> (8 * i)) & 0xFF);
  }
  return bytes + header + data;
}

std::string header(const std::string& descr, const std::string& shape,
                   const std::string& fortran = "False") {
  return "{'descr': '" + descr + "', 'fortran_order': " + fortran + ", 'shape': " + shape + ", }\n";
}

template <typename T>
std::string bytes_of(std::initializer_list<T> numbers) {
  return std::string(reinterpret_cast<const char*>(numbers.begin()), numbers.size() * sizeof(T));
}

std::string refusal(const std::string& bytes) {
  try {
    parse_npy(bytes);
  } catch (const ToolError& error) {
    EXPECT_EQ(error.exit_code(), kInputError);
    return error.what();
  }
  return "accepted";
}

TEST(Npy, ReadsFloats) {
  const NumberArray array =
      parse_npy(npy(header("<f4", "(2, 2)"), bytes_of<float>({1, -2, 0.5f, 3})));
  EXPECT_THAT(array.sizes, ElementsAre(2u, 2u));
  EXPECT_THAT(array.values, ElementsAre(1.0f, -2.0f, 0.5f, 3.0f));
}

TEST(Npy, ReadsVersion2) {
  EXPECT_THAT(parse_npy(npy(header("<f4", "(1,)"), bytes_of<float>({7}), 2)).values,
              ElementsAre(7.0f));
}

TEST(Npy, ReadsEveryNumberType) {
  const auto values = [](const char* descr, const std::string& data) {
    return parse_npy(npy(header(descr, "(2,)"), data)).values;
  };
  EXPECT_THAT(values("<f8", bytes_of<double>({0.25, -8})), ElementsAre(0.25f, -8.0f));
  EXPECT_THAT(values("<f2", bytes_of<uint16_t>({0x3C00, 0xC000})), ElementsAre(1.0f, -2.0f));
  EXPECT_THAT(values("|u1", bytes_of<uint8_t>({0, 255})), ElementsAre(0.0f, 255.0f));
  EXPECT_THAT(values("|i1", bytes_of<int8_t>({-128, 127})), ElementsAre(-128.0f, 127.0f));
  EXPECT_THAT(values("<u2", bytes_of<uint16_t>({1, 65535})), ElementsAre(1.0f, 65535.0f));
  EXPECT_THAT(values("<i2", bytes_of<int16_t>({-1, 300})), ElementsAre(-1.0f, 300.0f));
  EXPECT_THAT(values("<u4", bytes_of<uint32_t>({1, 1u << 31})), ElementsAre(1.0f, 2147483648.0f));
  EXPECT_THAT(values("<i4", bytes_of<int32_t>({-5, 6})), ElementsAre(-5.0f, 6.0f));
  EXPECT_THAT(values("<u8", bytes_of<uint64_t>({9, 10})), ElementsAre(9.0f, 10.0f));
  EXPECT_THAT(values("<i8", bytes_of<int64_t>({-9, 10})), ElementsAre(-9.0f, 10.0f));
  EXPECT_THAT(values("|b1", std::string("\x00\x01", 2)), ElementsAre(0.0f, 1.0f));
}

TEST(Npy, HeaderEntriesMayStandInAnyOrderAndQuotes) {
  const std::string text = "{\"shape\":(1,),'fortran_order':False , \"descr\":\"<f4\"}   \n";
  EXPECT_THAT(parse_npy(npy(text, bytes_of<float>({2}))).values, ElementsAre(2.0f));
}

TEST(Npy, ScalarHasNoSizes) {
  const NumberArray array = parse_npy(npy(header("<f4", "()"), bytes_of<float>({2})));
  EXPECT_TRUE(array.sizes.empty());
  EXPECT_THAT(array.values, ElementsAre(2.0f));
}

TEST(Npy, RefusesFortranOrder) {
  EXPECT_THAT(refusal(npy(header("<f4", "(1,)", "True"), bytes_of<float>({2}))),
              HasSubstr("Fortran order; expected C order"));
}

TEST(Npy, RefusesBigEndian) {
  EXPECT_THAT(refusal(npy(header(">f4", "(1,)"), bytes_of<float>({2}))), HasSubstr("big-endian"));
}

TEST(Npy, RefusesOtherTypesByName) {
  EXPECT_THAT(refusal(npy(header("<c8", "(1,)"), std::string(8, ' '))), HasSubstr("\"<c8\""));
}

TEST(Npy, RefusesAnotherVersion) {
  EXPECT_THAT(refusal(npy(header("<f4", "(1,)"), bytes_of<float>({2}), 3)),
              HasSubstr("version 3.0"));
}

TEST(Npy, RefusesMissingAndSpareBytes) {
  EXPECT_THAT(refusal(npy(header("<f4", "(2,)"), bytes_of<float>({2}))),
              HasSubstr("needs 8 bytes, but 4 follow"));
  EXPECT_THAT(refusal(npy(header("<f4", "(1,)"), bytes_of<float>({2, 3}))),
              HasSubstr("needs 4 bytes, but 8 follow"));
}

TEST(Npy, RefusesSizesWhoseProductOverflows) {
  EXPECT_THAT(refusal(npy(header("<f4", "(4294967295, 4294967295, 4294967295, 4294967295)"),
                          bytes_of<float>({2}))),
              HasSubstr("needs more bytes"));
  EXPECT_THAT(refusal(npy(header("<f4", "(99999999999,)"), "")),
              HasSubstr("list of up to 8 sizes"));
}

TEST(Npy, RefusesAnEmptyArray) {
  EXPECT_THAT(refusal(npy(header("<f4", "(3, 0)"), "")), HasSubstr("empty"));
}

TEST(Npy, EveryTruncatedFileIsRefused) {
  const std::string whole = npy(header("<f4", "(1, 2)"), bytes_of<float>({2, 3}));
  for (size_t size = 0; size < whole.size(); ++size) {
    EXPECT_NE(refusal(whole.substr(0, size)), "accepted") << size << " bytes";
  }
}

TEST(Npy, EveryChangedHeaderByteIsReadOrRefused) {
  const std::string whole = npy(header("<f4", "(1, 2)"), bytes_of<float>({2, 3}));
  size_t refused = 0;
  for (size_t at = 0; at + 8 < whole.size(); ++at) {
    for (const char c : {'\0', '\xFF', '(', ')', '\'', ',', '9', ' '}) {
      std::string changed = whole;
      changed[at] = c;
      refused += refusal(changed) != "accepted";
    }
  }
  EXPECT_GT(refused, 100u);
}

TEST(Npy, WrittenTensorReadsBack) {
  std::shared_ptr<marlo::runtime::Context> context;
  marlo::utility::create_context(context, 32);
  const float numbers[] = {1, 2, 3, 4, 5, 6};
  const auto tensor = context->cpu->CreateF32CHWMainMem({1, 2, 3}, numbers);
  const std::string bytes = npy_bytes(*tensor);
  EXPECT_EQ((bytes.size() - sizeof numbers) % 64, 0u);
  const NumberArray array = parse_npy(bytes);
  EXPECT_THAT(array.sizes, ElementsAre(1u, 2u, 3u));
  EXPECT_THAT(array.values, ElementsAre(1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f));
}

}  // namespace
}  // namespace qrt_tool
