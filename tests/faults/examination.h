// The loop over all rounds of an operation.
#pragma once

#include "job.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace kelp_test {

struct Extent {
  // Without either everything is done; else a random share, until the time has come or so many
  // rounds are done.
  std::optional<std::chrono::steady_clock::time_point> end;
  std::optional<int> rounds;
  unsigned int seed = 0;
};

// What became of an operation's rounds. In memory that its process shares.
struct Tally {
  int calls;   // in the run in which nothing failed
  int rounds;  // in which something did
  int findings;
  int foreign;  // rounds that met what is known of other libraries
};

// Examines an operation in this process, and prints what it finds on standard error.
void examine(const Operation& operation, const Extent& extent, Tally& tally);

}  // namespace kelp_test
