// Runs what would change the test's own process for good.
#pragma once

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace kelp_test {

// "exit 3" or "signal 9".
inline std::string describeEnd(int waitStatus) {
  return WIFEXITED(waitStatus) ? "exit " + std::to_string(WEXITSTATUS(waitStatus))
                               : "signal " + std::to_string(WTERMSIG(waitStatus));
}

// Runs the body in a forked child and tells how that ended: with 0 if the body returned and no
// check in it failed, and with 1 if one did, of which the child has printed all. An exception that
// leaves the body ends the child by a signal. No destructor of the test's runs in the child.
template <class Body>
std::string endOfAnotherProcess(Body body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    // NOLINTNEXTLINE(bugprone-exception-escape): GoogleTest must not run its further tests here
    [&body]() noexcept { body(); }();
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  if (child == -1 || waitpid(child, &status, 0) != child) {
    return "not run";
  }
  return describeEnd(status);
}

// The same for a body whose checks all pass.
template <class Body>
void inAnotherProcess(Body body) {
  EXPECT_EQ(endOfAnotherProcess(body), "exit 0");
}

// Closes those of the standard descriptors that the bits name: 1 for input, 2 for output, 4 for
// errors. For the beginning of such a body.
inline void closeStandardDescriptors(int bits) {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if ((bits >> fd & 1) != 0) {
      close(fd);
    }
  }
}

}  // namespace kelp_test
