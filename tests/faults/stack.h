// Where a process stood when it ended, or asked for memory, and whose fault that is.
#pragma once

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

// What is known to fail inside the libraries that the library stands on. Each is shown by a
// program of its own, foreign_faults_test, in which the library is not.
enum class Failing { crashes, leaks, exits };
struct ForeignFault {
  Failing how;
  const char* object;    // its file, by a pattern of the shell's
  const char* function;  // likewise
  const char* what;
};

// For what failed within a call from this program or the library into another one. Null for what is
// not known.
const ForeignFault* foreignFault(Failing how, const Stack& stack);

// The stack in words, a line for each function that is not the platform's, the sanitizer's or this
// program's.
std::string describe(const Stack& stack);

}  // namespace kelp_test
