// One round: a job in a process of its own, and what became of both.
#pragma once

#include "call_sites.h"
#include "calls.h"
#include "job.h"
#include "stack.h"

#include <array>
#include <string>

namespace kelp_test {

// How many of the blocks that are left were asked for at one place.
struct LeakPlace {
  Stack stack;
  int blocks = 0;
};

// What a round's process tells. Lies in memory that it shares with whoever began it.
struct Report {
  static constexpr size_t textSize = 4000;
  static constexpr size_t leakPlacesKept = 256;

  std::array<char, textSize> outcome;        // of the run in which the call failed
  std::array<char, textSize> secondOutcome;  // of another, whose job was then destroyed at once
  std::array<char, textSize> next;           // of the first job's next run
  std::array<char, textSize> changes;        // in the process
  std::array<char, textSize> complaint;      // anything else
  CallCounts calls;                          // seen in the first run, where nothing was to fail
  int failed;                                // how many calls did, in both runs
  int blocks;                                // that are left
  bool leftChildren;
  bool isDone;

  int endingSignal;  // 0 while it has not met one; SIGALRM where it hung
  bool exited;       // somebody called exit()
  Stack end;         // where that was

  std::array<LeakPlace, leakPlacesKept> leakPlaces;
  size_t leakPlacesUsed;
  bool hasMoreLeakPlaces;  // than are kept
};

// What a round does besides.
enum class Round { plain, findsLeaks };

// Runs a round and waits for its end, by force if it hangs. Without a fault it counts the calls
// that are made `where`.
void runRound(const Operation& operation, const Fault* fault, Where where, Round kind,
              Report& report);

// A round without a fault that also notes where the calls of its first run come from.
void runRoundFor(CallSites& sites, const Operation& operation, Where where, Report& report);

// The same in this very process, without a fault: what is done once in a process is done then.
std::string runHere(const Operation& operation);

}  // namespace kelp_test
