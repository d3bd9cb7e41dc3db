// What a test must leave as it found it.
#pragma once

#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace kelp_test {

// A picture of everything in the process that a library call could change behind its caller's back.
struct ProcessState {
  std::map<int, std::string> descriptors;  // number -> what it refers to
  std::vector<std::string> dispositions;   // by signal number
  std::string signalMask;
  std::string locale;
  std::string workingDirectory;
  mode_t umask = 0;
  std::vector<std::string> environment;
  bool hasChildren = false;

  static ProcessState capture();
};

// Names a change that the running test makes on purpose; "SIGCHLD" is the only one that the library
// itself makes.
void expectChangeOf(const std::string& what);

// The differences between two pictures, a line each, without those that were expected.
std::vector<std::string> unexpectedChanges(const ProcessState& before, const ProcessState& after);

// Makes every test of the program fail that leaves the process otherwise than it found it.
void installProcessStateGuard();

}  // namespace kelp_test
