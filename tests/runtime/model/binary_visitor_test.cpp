#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "qrt_core/runtime/model/file_visitor.h"
#include "tests/runtime/model/all_types.h"
#include "tests/runtime/model/classes.h"
#include "tests/runtime/model/file_helpers.h"

// Large blocks can be forbidden: what a count promises must not be taken before it is checked.
namespace {
size_t largest_block = std::numeric_limits<size_t>::max();

void* take(size_t size) {
  void* const address = size <= largest_block ? std::malloc(size) : nullptr;
  if (address == nullptr) throw std::bad_alloc();
  return address;
}
}  // namespace

void* operator new(size_t size) { return take(size); }
void* operator new[](size_t size) { return take(size); }
void operator delete(void* address) noexcept { std::free(address); }
void operator delete[](void* address) noexcept { std::free(address); }
void operator delete(void* address, size_t) noexcept { std::free(address); }
void operator delete[](void* address, size_t) noexcept { std::free(address); }

namespace marlo::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

template <typename T>
std::string bytes_of(T value) {
  One<T> object(std::move(value));
  return written(object, "bin").substr(4);
}

template <typename T>
T read_value(const std::string& body, T initial = T()) {
  One<T> object(std::move(initial));
  EXPECT_TRUE(read_bytes(object, binary_file(body)));
  return object.value;
}

template <typename T>
std::string refusal(const std::string& body) {
  One<T> object;
  return error_of([&] { read_bytes(object, binary_file(body)); });
}

TEST(BinaryFile, OfATimeInfoHasItsDocumented44Bytes) {
  runtime::TimeInfo time;
  time.year = 2024;
  time.moon = 12;
  time.day = 31;
  time.hour = 23;
  time.min = 59;
  time.sec = 58;
  const std::string expected = std::string("\x2F\x4E\0\0\x08\0\0\0\0\0\0\0", 12) + "TimeInfo" +
                               std::string("\xE8\x07\0\0\x0C\0\0\0\x1F\0\0\0", 12) +
                               std::string("\x17\0\0\0\x3B\0\0\0\x3A\0\0\0", 12);
  ASSERT_EQ(expected.size(), 44u);
  EXPECT_EQ(written(time, "bin"), expected);
  runtime::TimeInfo other;
  ASSERT_TRUE(read_bytes(other, expected));
  EXPECT_EQ(other.year, 2024u);
  EXPECT_EQ(other.moon, 12u);
  EXPECT_EQ(other.day, 31u);
  EXPECT_EQ(other.hour, 23u);
  EXPECT_EQ(other.min, 59u);
  EXPECT_EQ(other.sec, 58u);
}

TEST(BinaryValue, OfEachTypeTakesItsWidthLittleEndian) {
  EXPECT_EQ(bytes_of<bool>(true), le(1, 1));
  EXPECT_EQ(bytes_of<char>('x'), "x");
  EXPECT_EQ(bytes_of<uint8_t>(0xFE), "\xFE");
  EXPECT_EQ(bytes_of<int8_t>(-2), "\xFE");
  EXPECT_EQ(bytes_of<uint16_t>(0x0102), "\x02\x01");
  EXPECT_EQ(bytes_of<int16_t>(-2), "\xFE\xFF");
  EXPECT_EQ(bytes_of<uint32_t>(0x01020304), "\x04\x03\x02\x01");
  EXPECT_EQ(bytes_of<int32_t>(-2), "\xFE\xFF\xFF\xFF");
  EXPECT_EQ(bytes_of<uint64_t>(0x0102030405060708), "\x08\x07\x06\x05\x04\x03\x02\x01");
  EXPECT_EQ(bytes_of<int64_t>(-2), le(~uint64_t{1}, 8));
  EXPECT_EQ(bytes_of<float>(1.0f), le(0x3F800000, 4));
  EXPECT_EQ(bytes_of<double>(1.0), le(0x3FF0000000000000, 8));
  EXPECT_EQ(bytes_of<half_float::half>(half_float::half(1.0f)), le(0x3C00, 2));
}

TEST(BinaryValue, OfStringsAndVectorsIsACountAndTheElements) {
  EXPECT_EQ(bytes_of<std::string>("abc"), le(3, 8) + "abc");
  EXPECT_EQ(bytes_of(std::vector<uint16_t>{1, 2}), le(2, 8) + le(1, 2) + le(2, 2));
  EXPECT_EQ(bytes_of(std::vector<int16_t>{-1}), le(1, 8) + le(0xFFFF, 2));
  EXPECT_EQ(bytes_of(std::vector<uint32_t>{7}), le(1, 8) + le(7, 4));
  EXPECT_EQ(bytes_of(std::vector<int32_t>{-1}), le(1, 8) + le(0xFFFFFFFF, 4));
  EXPECT_EQ(bytes_of(std::vector<uint64_t>{7}), le(1, 8) + le(7, 8));
  EXPECT_EQ(bytes_of(std::vector<int64_t>{-1}), le(1, 8) + le(~uint64_t{0}, 8));
  EXPECT_EQ(bytes_of(std::vector<float>{1.0f}), le(1, 8) + le(0x3F800000, 4));
  EXPECT_EQ(bytes_of(std::vector<half_float::half>{half_float::half(1.0f)}),
            le(1, 8) + le(0x3C00, 2));
  EXPECT_EQ(bytes_of(std::vector<std::string>{"a", ""}), le(2, 8) + counted("a") + counted(""));
  EXPECT_EQ(bytes_of(std::vector<std::vector<uint16_t>>{{}, {5}}),
            le(2, 8) + le(0, 8) + le(1, 8) + le(5, 2));
}

TEST(BinaryValue, AStringOfLength0Takes8Bytes) { EXPECT_EQ(bytes_of<std::string>("").size(), 8u); }

TEST(BinaryValue, AnEmptyVectorTakes8Bytes) {
  EXPECT_EQ(bytes_of(std::vector<float>{}).size(), 8u);
  EXPECT_EQ(bytes_of(std::vector<half_float::half>{}).size(), 8u);
  EXPECT_EQ(bytes_of(std::vector<uint64_t>{}).size(), 8u);
  EXPECT_EQ(bytes_of(std::vector<std::string>{}).size(), 8u);
  EXPECT_EQ(bytes_of(std::vector<std::vector<uint16_t>>{}).size(), 8u);
}

TEST(BinaryValue, AStringKeepsAnEmbeddedNul) {
  const std::string text("ab\0cd", 5);
  EXPECT_EQ(read_value<std::string>(bytes_of(text)), text);
}

TEST(BinaryValue, ANestedObjectHasNothingOfItsOwn) {
  runtime::TensorShape shape({1}, runtime::DataType::INT8, runtime::LayoutType::C);
  shape.extra.step_size = 3;
  EXPECT_EQ(written(shape, "bin"),
            binary_file(counted("TensorShape") + le(1, 8) + le(1, 4) + le(4, 4) + le(24, 4) +
                        le(0x10001, 4) + counted("Extra") + le(3, 2)));
}

TEST(BinaryValue, AnyByteButZeroIsTrue) {
  EXPECT_TRUE(read_value<bool>("\x02", false));
  EXPECT_TRUE(read_value<bool>("\xFF", false));
  EXPECT_FALSE(read_value<bool>(std::string(1, '\0'), true));
}

TEST(BinaryVector, IsReplacedAndNotAppendedTo) {
  EXPECT_THAT(read_value<std::vector<uint16_t>>(le(1, 8) + le(5, 2), {1, 2, 3}), ElementsAre(5));
  EXPECT_THAT(read_value<std::vector<float>>(le(0, 8), {1.0f}), IsEmpty());
  EXPECT_THAT(read_value<std::vector<std::string>>(le(1, 8) + counted("a"), {"x", "y"}),
              ElementsAre("a"));
  EXPECT_EQ(read_value<std::string>(counted(""), "old"), "");
}

TEST(BinaryVector, OfVectorsBeginsWithAsManyEmptyOnesAndDropsTheEmptyOnesInside) {
  using Lists = std::vector<std::vector<uint16_t>>;
  const std::string body =
      le(3, 8) + le(1, 8) + le(5, 2) + le(0, 8) + le(2, 8) + le(6, 2) + le(7, 2);
  EXPECT_EQ(read_value<Lists>(body), (Lists{{}, {}, {}, {5}, {6, 7}}));
}

TEST(BinaryVector, OfStringsWithACountBelowZeroIsEmpty) {
  EXPECT_THAT(read_value<std::vector<std::string>>(le(~uint64_t{0}, 8), {"old"}), IsEmpty());
  EXPECT_THAT(read_value<std::vector<std::string>>(le(uint64_t{1} << 63, 8), {"old"}), IsEmpty());
}

TEST(BinaryVersion, AnEmptyFileKeepsTheCurrentOneAndItsFirstValueFails) {
  const TemporaryFolder folder;
  write_file(folder.file("empty"), "");
  std::FILE* const stream = std::fopen(folder.file("empty").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  runtime::FILEReader reader(stream, 0);
  EXPECT_EQ(reader._serialization_protocol_version, 20015u);
  uint16_t value = 0;
  EXPECT_EQ(error_of([&] { reader.Visit(&value, nullptr); }),
            "[QRT]: failed to read a unsigned short value, error code is 0.\n\n");
  std::fclose(stream);
}

TEST(BinaryVersion, Of20015PassesAnd20016Fails) {
  One<int8_t> object;
  EXPECT_TRUE(read_bytes(object, binary_file("\x05", 20015)));
  EXPECT_EQ(object.value, 5);
  EXPECT_EQ(error_of([&] { read_bytes(object, binary_file("\x05", 20016)); }),
            "[QRT]: _serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.\n");
  EXPECT_THAT(error_of([&] { read_bytes(object, binary_file("\x05", 0xFFFFFFFF)); }),
              HasSubstr("_serialization_protocol_version >"));
}

TEST(BinaryVersion, Of0And19999FollowsTheOldestRows) {
  for (const uint32_t version : {0u, 19999u}) {
    runtime::NetExtraInfo info;
    info.summary = "kept";
    ASSERT_TRUE(read_bytes(
        info, binary_file(counted("NetExtraInfo") + std::string(20, '\1') + le(0x80000001, 4) +
                              counted("TimeInfo") + std::string(24, '\2') + counted("cpu"),
                          version)));
    EXPECT_EQ(info.version, 0x01010101u) << version;
    EXPECT_EQ(info.fmlas, 0x80000001u) << version;
    EXPECT_EQ(info.time.sec, 0x02020202u) << version;
    EXPECT_EQ(info.device, "cpu") << version;
    EXPECT_EQ(info.summary, "kept") << version;
  }
}

TEST(BinaryVersion, GivenToAReaderIsTakenAndNothingIsRead) {
  const TemporaryFolder folder;
  write_file(folder.file("file"), "\x07");
  std::FILE* const stream = std::fopen(folder.file("file").c_str(), "rb");
  runtime::FILEReader reader(stream, 20003);
  EXPECT_EQ(reader._serialization_protocol_version, 20003u);
  uint8_t value = 0;
  reader.Visit(&value, nullptr);
  EXPECT_EQ(value, 7);
  std::fclose(stream);
}

TEST(BinaryReader, RefusesANullStream) {
  EXPECT_EQ(error_of([] { runtime::FILEReader(nullptr, 0); }),
            "[QRT]: cant construct FILEReader object using a NULL ptr.\n");
}

TEST(BinaryReader, NamesTheTypeThatCameShort) {
  EXPECT_EQ(refusal<uint64_t>("1234567"),
            "[QRT]: failed to read a unsigned long value, error code is 0.\n\n");
  EXPECT_THAT(refusal<float>("123"), HasSubstr("failed to read a float value, error code is 0.\n"));
  EXPECT_THAT(refusal<double>(""), HasSubstr("failed to read a double value"));
  EXPECT_THAT(refusal<bool>(""), HasSubstr("failed to read a bool value"));
  EXPECT_THAT(refusal<char>(""), HasSubstr("failed to read a char value"));
  EXPECT_THAT(refusal<int8_t>(""), HasSubstr("failed to read a signed char value"));
  EXPECT_THAT(refusal<half_float::half>("1"), HasSubstr("failed to read a half_float::half value"));
  EXPECT_THAT(refusal<std::string>("1234567"), HasSubstr("failed to read a unsigned long value"))
      << "the length itself";
}

// Each container, with a count that the file can't hold, and no memory to take it on trust.
template <typename T>
class BinaryCount : public ::testing::Test {
 protected:
  BinaryCount() { largest_block = size_t{1} << 26; }
  ~BinaryCount() override { largest_block = std::numeric_limits<size_t>::max(); }
};

using Containers =
    ::testing::Types<std::string, std::vector<uint64_t>, std::vector<uint32_t>,
                     std::vector<int64_t>, std::vector<int32_t>, std::vector<std::string>,
                     std::vector<int16_t>, std::vector<uint16_t>, std::vector<half_float::half>,
                     std::vector<float>, std::vector<std::vector<uint16_t>>>;
TYPED_TEST_SUITE(BinaryCount, Containers);

TYPED_TEST(BinaryCount, BeyondTheFileIsRefusedBeforeMemoryIsTaken) {
  const char* const kind = std::is_same_v<TypeParam, std::string> ? "basic_string" : "vector";
  for (const uint64_t count :
       {uint64_t{100}, uint64_t{1} << 32, uint64_t{1} << 61, uint64_t{0x7FFFFFFFFFFFFFFF}}) {
    const std::string text = refusal<TypeParam>(le(count, 8) + std::string(40, '\0'));
    EXPECT_THAT(text, ContainsRegex("failed to read a .*" + std::string(kind) +
                                    ".* value, error code is 0\\."))
        << count;
  }
}

TYPED_TEST(BinaryCount, ThatIsExactlyTheRestOfTheFilePasses) {
  using Element = typename TypeParam::value_type;
  constexpr size_t kBytes =
      std::is_arithmetic_v<Element> || sizeof(Element) == 2 ? sizeof(Element) : 8;
  TypeParam value = read_value<TypeParam>(le(3, 8) + std::string(3 * kBytes, '\0'));
  EXPECT_EQ(value.size(), 3u);
}

TEST(BinaryBlobCount, BeyondTheFileIsRefusedBeforeMemoryIsTaken) {
  largest_block = size_t{1} << 26;
  const std::string layer = counted("GRUCellInfo") + le(37, 2) + counted("a") + le(0, 8) +
                            le(0, 2) + le(1, 2) + le(1, 2) + le(0, 1);
  for (const uint64_t count : {uint64_t{9}, uint64_t{1} << 40, ~uint64_t{0}}) {
    const auto info = make_object("GRUCellInfo");
    EXPECT_THAT(error_of([&] {
                  read_bytes(*info, binary_file(layer + le(count, 8) + std::string(17, '\0')));
                }),
                HasSubstr("failed to read a half_float::half value, error code is 0"));
  }
  const std::string sequence = counted("GRUInfo") + le(38, 2) + counted("a") + le(0, 8) + le(0, 2) +
                               le(1, 2) + le(1, 2) + le(0, 1) + le(1, 2) + le(0, 1) + le(0, 2);
  for (const uint64_t count : {uint64_t{3}, uint64_t{1} << 40, ~uint64_t{0}}) {
    const auto info = make_object("GRUInfo");
    EXPECT_THAT(error_of([&] {
                  read_bytes(*info, binary_file(sequence + le(count, 8) + std::string(17, '\0')));
                }),
                HasSubstr("failed to read a "));
  }
  largest_block = std::numeric_limits<size_t>::max();
}

// A pipe has no size to compare with.
class Pipe {
 public:
  explicit Pipe(const std::string& bytes) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(ends[1]);
    stream_ = fdopen(ends[0], "rb");
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() { std::fclose(stream_); }

  std::FILE* stream() const { return stream_; }

 private:
  std::FILE* stream_;
};

TEST(BinaryStream, ThatIsNoFileIsReadToItsEnd) {
  const Pipe pipe(binary_file(counted("abc") + le(2, 8) + le(1, 2) + le(2, 2)));
  runtime::FILEReader reader(pipe.stream(), 0);
  std::string text;
  std::vector<uint16_t> numbers;
  reader.Visit(&text, nullptr);
  reader.Visit(&numbers, nullptr);
  EXPECT_EQ(text, "abc");
  EXPECT_THAT(numbers, ElementsAre(1, 2));
}

TEST(BinaryStream, ThatIsNoFileTakesNoMemoryForACountItDoesNotHold) {
  largest_block = size_t{1} << 26;
  for (const uint64_t count : {uint64_t{1} << 34, ~uint64_t{0} >> 1}) {
    const Pipe pipe(le(count, 8) + "abc");
    runtime::FILEReader reader(pipe.stream(), 20015);
    std::string text;
    EXPECT_THAT(error_of([&] { reader.Visit(&text, nullptr); }), HasSubstr("failed to read a "));
    const Pipe other(le(count, 8) + "abc");
    runtime::FILEReader lists_reader(other.stream(), 20015);
    std::vector<std::vector<uint16_t>> lists;
    EXPECT_THAT(error_of([&] { lists_reader.Visit(&lists, nullptr); }),
                HasSubstr("failed to read a "));
  }
  largest_block = std::numeric_limits<size_t>::max();
}

// A device that takes no bytes, without a buffer that would hide it.
class FullDisk {
 public:
  FullDisk() : stream_(std::fopen("/dev/full", "wb")) {
    if (stream_ != nullptr) std::setvbuf(stream_, nullptr, _IONBF, 0);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  ~FullDisk() {
    if (stream_ != nullptr) std::fclose(stream_);
  }

  std::FILE* stream() const { return stream_; }

 private:
  std::FILE* stream_;
};

TEST(BinaryWriter, ThatCannotWriteNamesAValueOrTheCount) {
  const FullDisk disk;
  if (disk.stream() == nullptr) GTEST_SKIP() << "there is no /dev/full";
  runtime::FILEWriter writer(disk.stream(), false);
  uint16_t value = 1;
  EXPECT_THAT(error_of([&] { writer.Visit(&value, nullptr); }),
              StartsWith("[QRT]: failed to write a unsigned short value, error code is "));
  std::string text = "abc";
  EXPECT_THAT(error_of([&] { writer.Visit(&text, nullptr); }),
              StartsWith("[QRT]: failed to write the unsigned long value, error code is "));
  EXPECT_THAT(error_of([&] { runtime::FILEWriter(disk.stream(), true); }),
              StartsWith("[QRT]: failed to write a unsigned int value, error code is "));
}

TEST(BinaryWriter, AtAFullDiskDoesNotReportSuccess) {
  One<uint16_t> object(1);
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "there is no /dev/full";
  for (const char* form : {"bin", "json"}) {
    const LogCapture log;
    EXPECT_FALSE(object.ToFile("/dev/full", form)) << form;
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "[QRT]: Failed to write model file, file path: /dev/full.\n");
  }
}

TEST(BinaryWriter, WritesTheHeaderOnlyWhenAsked) {
  const TemporaryFolder folder;
  for (const bool header : {true, false}) {
    std::FILE* const stream = std::fopen(folder.file("file").c_str(), "wb");
    runtime::FILEWriter writer(stream, header);
    EXPECT_EQ(writer._serialization_protocol_version, 20015u);
    std::fclose(stream);
    EXPECT_EQ(contents(folder.file("file")), header ? std::string("\x2F\x4E\0\0", 4) : "");
  }
}

TEST(BinaryAttributes, OfEveryTypeComeBack) {
  AllTypes object;
  object.f64 = 0.1;
  object.f32 = std::numeric_limits<float>::quiet_NaN();
  object.text = std::string("a\0b", 3);
  object.u16ss.clear();
  const std::string bytes = written(object, "bin");
  AllTypes other;
  other.text.clear(), other.f64 = 0, other.u64s.clear(), other.boolean = false;
  ASSERT_TRUE(read_bytes(other, bytes));
  EXPECT_EQ(other.f64, 0.1);
  EXPECT_EQ(other.text, object.text);
  EXPECT_EQ(written(other, "bin"), bytes);
}

}  // namespace
}  // namespace marlo::test
