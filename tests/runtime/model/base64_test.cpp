#include "qrt_core/runtime/model/base64.h"

#include <gtest/gtest.h>

#include <random>

namespace marlo::test {
namespace {

using runtime::Base64Decode;

std::string encode(const std::string& bytes) {
  return runtime::Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

TEST(Base64, EncodesTheVectorsOfItsStandard) {
  const char* const pairs[][2] = {{"", ""},
                                  {"f", "Zg=="},
                                  {"fo", "Zm8="},
                                  {"foo", "Zm9v"},
                                  {"foob", "Zm9vYg=="},
                                  {"fooba", "Zm9vYmE="},
                                  {"foobar", "Zm9vYmFy"}};
  for (const auto& [bytes, text] : pairs) {
    EXPECT_EQ(encode(bytes), text);
    EXPECT_EQ(Base64Decode(text), bytes);
  }
}

TEST(Base64, OfOneByteEndsInTwoEqualSignsAndOfTwoBytesInOne) {
  EXPECT_EQ(encode("\xFF"), "/w==");
  EXPECT_EQ(encode("\xFF\xFF"), "//8=");
}

TEST(Base64, UsesTheWholeAlphabetInOrder) {
  std::string bytes;
  for (unsigned group = 0; group < 16; ++group) {
    const unsigned first = 4 * group;
    const unsigned bits = first << 18 | (first + 1) << 12 | (first + 2) << 6 | (first + 3);
    bytes += static_cast<char>(bits >> 16);
    bytes += static_cast<char>(bits >> 8);
    bytes += static_cast<char>(bits);
  }
  const char* const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  EXPECT_EQ(encode(bytes), alphabet);
  EXPECT_EQ(Base64Decode(alphabet), bytes);
}

TEST(Base64, DecodesWhatItEncodedForEverySize) {
  std::mt19937 random(1);
  for (size_t size = 0; size < 300; ++size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    ASSERT_EQ(encode(bytes).size(), (size + 2) / 3 * 4);
    ASSERT_EQ(Base64Decode(encode(bytes)), bytes) << size;
    ASSERT_EQ(runtime::Base64DecodedSize(encode(bytes)), size);
  }
}

TEST(Base64, StopsAtALineBreak) {
  EXPECT_EQ(Base64Decode("Zm9v\nYmFy"), "foo");
  EXPECT_EQ(Base64Decode("Zm9vYm\nFy"), "foob");
}

TEST(Base64, StopsAtTheFirstCharacterOutsideTheAlphabetAtEachPlace) {
  const std::string text = "Zm9vYmFyZm9v";
  const std::string bytes = "foobarfoo";
  for (int c = 0; c < 256; ++c) {
    const auto character = static_cast<char>(c);
    const bool valid = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                       c == '+' || c == '/';
    for (size_t place = 0; place < text.size(); ++place) {
      std::string changed = text;
      changed[place] = character;
      const std::string decoded = Base64Decode(changed);
      ASSERT_EQ(runtime::Base64DecodedSize(changed), decoded.size());
      const size_t kept =
          valid ? bytes.size() : place / 4 * 3 + (place % 4 > 1 ? place % 4 - 1 : 0);
      ASSERT_EQ(decoded.size(), kept) << "character " << c << " at " << place;
      if (!valid) {
        ASSERT_EQ(decoded, bytes.substr(0, kept));
      }
    }
  }
}

TEST(Base64, OfAPartialGroupGivesOneByteLessThanItsCharacters) {
  EXPECT_EQ(Base64Decode("Zm9vY"), "foo") << "a single character gives nothing";
  EXPECT_EQ(Base64Decode("Zm9vYm"), "foob");
  EXPECT_EQ(Base64Decode("Zm9vYmE"), "fooba");
  EXPECT_EQ(Base64Decode("Zm9vYmE=Zm9v"), "fooba") << "nothing is read behind the padding";
  EXPECT_EQ(Base64Decode("="), "");
  EXPECT_EQ(Base64Decode(std::string("Zm\0v", 4)), "f");
}

TEST(Base64, DecodesAsFarAsThereIsRoom) {
  const std::string bytes = "foobarfo";
  for (size_t room = 0; room <= bytes.size() + 3; ++room) {
    std::string to(room + 1, '#');
    const size_t count = runtime::Base64DecodeTo("Zm9vYmFyZm8=", to.data(), room);
    EXPECT_EQ(count, std::min(room, bytes.size()));
    EXPECT_EQ(to, bytes.substr(0, count) + std::string(to.size() - count, '#')) << room;
  }
}

}  // namespace
}  // namespace marlo::test
