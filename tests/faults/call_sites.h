// Where a round's calls come from. A loop in the library, or in one below it, calls from one place
// a thousand times; there the first of them, the second and the last speak for all.
#pragma once

#include "interposed_calls.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>

namespace kelp_test {

// Lies in memory that it shares with the processes that note their calls. One at a time.
class CallSites {
 public:
  CallSites();
  ~CallSites();
  CallSites(const CallSites&) = delete;
  CallSites& operator=(const CallSites&) = delete;

  // From here on the calls are noted that a failure counts.
  void watch();
  static void endWatch();

  // The calls that others speak for, by their kinds and numbers.
  std::set<std::pair<Call, int>> repeated() const;

 private:
  static constexpr size_t capacity = 65536;  // what comes after that speaks for itself
  struct Site {
    Call call;
    int number;
    uint64_t place;
  };
  struct Log {
    std::atomic<size_t> size;
    Site sites[capacity];
  };
  static void note(Call call, int number);

  static Log* watching;
  Log* const m_log;
};

}  // namespace kelp_test
