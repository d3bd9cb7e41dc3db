// What is known to fail inside the libraries that the library stands on. Each is shown by a program
// of its own, foreign_faults_test, in which the library is not.
#pragma once

#include <string>
#include <vector>

namespace kelp_test {

enum class Failing { crashes, exits, hangs, leaks };

struct ForeignFault {
  Failing how;
  std::string object;    // its file, by a pattern of the shell's
  std::string function;  // likewise
  std::string test;      // that shows it
  std::string reason;
};

// All that foreign_faults.txt lists. Ends the process where that cannot be read.
const std::vector<ForeignFault>& foreignFaults();

}  // namespace kelp_test
