#include "qrt_core/runtime/model/base64.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace marlo::runtime {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// A bit that no group of four valid characters can set.
constexpr uint32_t kInvalid = 0x80000000;

using Table = std::array<uint32_t, 256>;

// The 24-bit contribution of each character at one of the four places of a group.
constexpr Table make_table(int place) {
  Table table{};
  for (uint32_t& entry : table) entry = kInvalid;
  for (uint32_t value = 0; value < 64; ++value) {
    table[static_cast<unsigned char>(kAlphabet[value])] = value << (6 * (3 - place));
  }
  return table;
}

constexpr std::array<Table, 4> kPlaces{make_table(0), make_table(1), make_table(2), make_table(3)};

uint32_t group_of(const unsigned char* text) {
  return kPlaces[0][text[0]] | kPlaces[1][text[1]] | kPlaces[2][text[2]] | kPlaces[3][text[3]];
}

void store_group(uint32_t group, char* bytes) {
  bytes[0] = static_cast<char>(group >> 16);
  bytes[1] = static_cast<char>(group >> 8);
  bytes[2] = static_cast<char>(group);
}

struct Pair {
  char text[2];
};

constexpr size_t kPairs = size_t{1} << 12;

// The two characters of each half of a group.
constexpr std::array<Pair, kPairs> make_pairs() {
  std::array<Pair, kPairs> pairs{};
  for (size_t half = 0; half < kPairs; ++half) {
    pairs[half] = {{kAlphabet[half >> 6], kAlphabet[half & 63]}};
  }
  return pairs;
}

constexpr std::array<Pair, kPairs> kHalves = make_pairs();

void encode_group(uint32_t group, char* text) {
  std::memcpy(text, kHalves[group >> 12].text, sizeof(Pair));
  std::memcpy(text + sizeof(Pair), kHalves[group & (kPairs - 1)].text, sizeof(Pair));
}

}  // namespace

std::string Base64Encode(const unsigned char* data, size_t size) {
  std::string text((size + 2) / 3 * 4, '=');
  char* out = text.data();
  size_t i = 0;
  for (; i + 3 <= size; i += 3, out += 4) {
    encode_group(static_cast<uint32_t>(data[i] << 16 | data[i + 1] << 8 | data[i + 2]), out);
  }
  const size_t tail = size - i;
  if (tail != 0) {
    char last[4];
    const int second = tail == 2 ? data[i + 1] << 8 : 0;
    encode_group(static_cast<uint32_t>(data[i] << 16 | second), last);
    for (size_t k = 0; k <= tail; ++k) out[k] = last[k];
  }
  return text;
}

size_t Base64DecodeTo(const std::string& text, char* bytes, size_t room) {
  const auto* in = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = in + text.size();
  char* out = bytes;
  for (; end - in >= 4 && room >= 3; in += 4, out += 3, room -= 3) {
    const uint32_t group = group_of(in);
    if (group >= kInvalid) break;
    store_group(group, out);
  }

  // What is left is a last group that is short, padded or ended by an invalid character, or more than there is room for.
  uint32_t group = 0;
  int characters = 0;
  while (in != end && characters < 4 && kPlaces[0][*in] != kInvalid) {
    group |= kPlaces[static_cast<size_t>(characters)][*in];
    ++characters;
    ++in;
  }
  char last[3];
  store_group(group, last);
  for (int k = 0; k + 1 < characters && room != 0; ++k, --room) *out++ = last[k];
  return static_cast<size_t>(out - bytes);
}

std::string Base64Decode(const std::string& text) {
  std::string bytes(text.size() / 4 * 3 + 3, '\0');
  bytes.resize(Base64DecodeTo(text, bytes.data(), bytes.size()));
  return bytes;
}

size_t Base64DecodedSize(const std::string& text) noexcept {
  size_t characters = 0;
  for (const char character : text) {
    if (kPlaces[0][static_cast<unsigned char>(character)] == kInvalid) break;
    ++characters;
  }
  const size_t rest = characters % 4;
  return characters / 4 * 3 + (rest == 0 ? 0 : rest - 1);
}

}  // namespace marlo::runtime
