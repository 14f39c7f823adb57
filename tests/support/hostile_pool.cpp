#include "tests/support/hostile_pool.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <random>
#include <utility>
#include <vector>

#include "tests/support/sanitizer.h"

namespace marlo::test {
namespace {

// Bytes of canaries in front of a block.
constexpr size_t kInFront = 64;

// Pages that are kept for the next block of their size, and what is too large to be kept.
constexpr size_t kKeptPages = 16;
constexpr size_t kMostKeptBytes = size_t{1} << 20;

size_t page_bytes() {
  static const auto bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return bytes;
}

using KeptPages = std::map<size_t, std::vector<unsigned char*>>;

KeptPages& kept_pages() {
  thread_local KeptPages pages;
  return pages;
}

unsigned char* map_pages(size_t size) {
  void* const pages = mmap(nullptr, size + page_bytes(), PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  auto* const begin = static_cast<unsigned char*>(pages);
  if (mprotect(begin + size, page_bytes(), PROT_NONE) != 0) throw std::bad_alloc();
  return begin;
}

// Bytes between a block and the page behind it, 0 unless QRT_TEST_GUARD_GAP says otherwise: the emulator of Debian 12
// reads the lanes too that the mask of vmaskmovps leaves out, which no processor does. Canaries are in the gap.
size_t guard_gap() {
  static const size_t bytes = [] {
    const char* const text = std::getenv("QRT_TEST_GUARD_GAP");
    return text == nullptr ? size_t{0} : static_cast<size_t>(std::strtoul(text, nullptr, 10));
  }();
  return bytes;
}

// Which blocks stand at their page, where both can't be had.
bool stands_at_page() {
  thread_local std::minstd_rand random(1);
  return random() / 16 % 2 == 0;
}

using Pattern = std::array<unsigned char, sizeof(uint32_t)>;

Pattern pattern_of(uint32_t bits) {
  Pattern pattern;
  std::memcpy(pattern.data(), &bits, sizeof bits);
  return pattern;
}

void fill(unsigned char* memory, size_t size, uint32_t bits) {
  const Pattern pattern = pattern_of(bits);
  size_t filled = std::min(size, pattern.size());
  std::copy_n(pattern.begin(), filled, memory);
  for (; filled < size; filled += std::min(filled, size - filled)) {
    std::memcpy(memory + filled, memory, std::min(filled, size - filled));
  }
}

bool is_canary(const unsigned char* memory, size_t i) {
  static const Pattern pattern = pattern_of(kCanaryBits);
  return memory[i] == pattern[i % pattern.size()];
}

// Whether there are canaries only: those of one pattern, each like the one before.
bool are_canaries(const unsigned char* memory, size_t begin, size_t end) {
  constexpr size_t kPeriod = sizeof(Pattern);
  size_t i = begin;
  for (; i < end && i < begin + kPeriod; ++i) {
    if (!is_canary(memory, i)) return false;
  }
  return i == end || std::memcmp(memory + begin, memory + i, end - i) == 0;
}

// The first index from `begin` that holds no canary, or `end`.
size_t first_change(const unsigned char* memory, size_t begin, size_t end) {
  if (are_canaries(memory, begin, end)) return end;
  while (begin < end && is_canary(memory, begin)) ++begin;
  return begin;
}

// One more than the last index below `end` that holds no canary, or 0.
size_t last_change(const unsigned char* memory, size_t end) {
  if (are_canaries(memory, 0, end)) return 0;
  while (end > 0 && is_canary(memory, end - 1)) --end;
  return end;
}

}  // namespace

GuardedPages::GuardedPages(size_t bytes)
    : begin_(nullptr), size_((bytes + page_bytes() - 1) / page_bytes() * page_bytes()) {
  std::vector<unsigned char*>& kept = kept_pages()[size_];
  if (kept.empty()) {
    begin_ = map_pages(size_);
  } else {
    begin_ = kept.back();
    kept.pop_back();
  }
}

GuardedPages::GuardedPages(GuardedPages&& other) noexcept
    : begin_(std::exchange(other.begin_, nullptr)), size_(other.size_) {}

GuardedPages::~GuardedPages() {
  if (begin_ == nullptr) return;
  QRT_ALLOW_ACCESS(begin_, size_);
  std::vector<unsigned char*>& kept = kept_pages()[size_];
  if (size_ <= kMostKeptBytes && kept.size() < kKeptPages) {
    kept.push_back(begin_);
  } else {
    munmap(begin_, size_ + page_bytes());
  }
}

HostilePool::HostilePool(size_t alignment) : alignment_(alignment) {}

HostilePool::~HostilePool() {
  for (const auto& [address, block] : blocks_) {
    check(block);
    ADD_FAILURE() << "a block of " << block.size << " bytes was never freed";
  }
}

void* HostilePool::Allocate(uint64_t size) {
  ++allocations_;
  if (calls_to_failure_ != 0 && --calls_to_failure_ == 0) return nullptr;
  const auto bytes = static_cast<size_t>(size);
  GuardedPages pages(kInFront + 2 * alignment_ + bytes + guard_gap());
  unsigned char* start = pages.end() - guard_gap() - bytes;
  start -= reinterpret_cast<uintptr_t>(start) % alignment_;
  const bool is_aligned_to_more = reinterpret_cast<uintptr_t>(start) % (2 * alignment_) == 0;
  if (is_aligned_to_more && !stands_at_page()) start -= alignment_;

  fill(pages.begin(), static_cast<size_t>(pages.end() - pages.begin()), kCanaryBits);
  fill(start, bytes, kFreshBits);
  const Block& block = blocks_.emplace(start, Block{std::move(pages), start, bytes}).first->second;
  refuse_access(block);
  return start;
}

void HostilePool::Free(void* address) {
  const auto found = blocks_.find(address);
  if (found == blocks_.end()) {
    ADD_FAILURE() << "an address was freed that isn't in use";
    return;
  }
  check(found->second);
  blocks_.erase(found);
}

uint64_t HostilePool::TotalBytes() {
  uint64_t bytes = 0;
  for (const auto& [address, block] : blocks_) bytes += block.size;
  return bytes;
}

void HostilePool::check() const {
  for (const auto& [address, block] : blocks_) check(block);
}

void HostilePool::check(const Block& block) {
  const unsigned char* const memory = block.pages.begin();
  const auto size = static_cast<size_t>(block.pages.end() - memory);
  const auto offset = static_cast<size_t>(block.start - memory);
  QRT_ALLOW_ACCESS(memory, size);
  const size_t in_front = last_change(memory, offset);
  if (in_front != 0) {
    ADD_FAILURE() << "a block of " << block.size << " bytes was written at offset -"
                  << offset + 1 - in_front << ", in front of it";
  }
  const size_t end = offset + block.size;
  const size_t behind = first_change(memory, end, size);
  if (behind != size) {
    ADD_FAILURE() << "a block of " << block.size << " bytes was written at offset "
                  << behind - offset << ", behind it";
  }
  refuse_access(block);
}

void HostilePool::refuse_access(const Block& block) {
  QRT_REFUSE_ACCESS(block.pages.begin(), block.start - block.pages.begin());
  QRT_REFUSE_ACCESS(block.end(), block.pages.end() - block.end());
}

}  // namespace marlo::test
