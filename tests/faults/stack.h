// Where a process stood when it ended, or asked for memory, and whose fault that is.
#pragma once

#include "foreign_faults.h"

#include <array>
#include <cstddef>
#include <string>

namespace kelp_test {

// Return addresses, the innermost first. They mean the same in all processes forked from one.
struct Stack {
  static constexpr size_t depth = 64;
  std::array<void*, depth> frames{};
  int size = 0;

  // May be called in a signal handler, once it has been called outside of one.
  void capture();
};
bool operator==(const Stack& a, const Stack& b);

// For what failed within a call from this program or the library into another one. Null for what is
// not known.
const ForeignFault* foreignFault(Failing how, const Stack& stack);

// The stack in words, a line for each function that is not the platform's, the sanitizer's or this
// program's.
std::string describe(const Stack& stack);

}  // namespace kelp_test
