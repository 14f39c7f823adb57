#pragma once

#include <cstdint>

// What a program that includes counting_allocator.h in one of its files knows about its allocator.

namespace marlo::test {

namespace counting {
inline thread_local uint64_t calls = 0;
inline thread_local uint64_t calls_to_failure = 0;
inline thread_local int64_t objects = 0;
inline thread_local uint64_t blocks_to_failure = 0;
}  // namespace counting

/// Calls to the allocator so far, whichever function made them.
inline uint64_t allocator_calls() {
  // Compilers take malloc to leave all variables alone, and would not look again.
  asm volatile("" ::: "memory");
  return counting::calls;
}

/// Lets the n-th call of an operator new from now on throw, counted from 1; 0 lets none throw.
inline void fail_new_at(uint64_t call) { counting::calls_to_failure = call; }

/// Whether the call that `fail_new_at` chose is yet to come.
inline bool new_failure_is_pending() { return counting::calls_to_failure != 0; }

/// Lets the n-th aligned block from now on be refused by the system, counted from 1; 0 lets none.
/// Pools ask for such blocks. Under a sanitizer nothing is refused.
inline void refuse_block_at(uint64_t call) { counting::blocks_to_failure = call; }

/// Whether the call that `refuse_block_at` chose is yet to come.
inline bool block_refusal_is_pending() { return counting::blocks_to_failure != 0; }

/// Objects that operators new of this thread made, less those that it ended.
inline int64_t live_objects() { return counting::objects; }

}  // namespace marlo::test
