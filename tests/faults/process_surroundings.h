// What operations with children have around them.
#pragma once

#include "exec_fixture.h"
#include "interposed_calls.h"

#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>

namespace kelp_test {

// ---- time, which passes only while somebody looks at the clock

inline const int* child = nullptr;  // its number
inline bool isEnding = false;       // it ends by itself, or has got a signal that ends it
inline bool heedsTermination = true;
inline int looks = 0;

// A child that is ending is waited for: it is not to lose against this clock.
inline void awaitEnd() {
  siginfo_t info{};
  if (isEnding && *child > 0) {
    waitid(P_PID, static_cast<id_t>(*child), &info, WEXITED | WNOWAIT);
  }
}

inline time_t passingTime(time_t*) {
  constexpr int looksInASecond = 4;
  awaitEnd();
  return 1000 + ++looks / looksInASecond;
}

inline int noteKill(pid_t pid, int number) {
  isEnding = isEnding || number == SIGKILL || (number == SIGTERM && heedsTermination);
  return realCalls().kill(pid, number);
}

inline Replacements withPassingTime() {
  Replacements result;
  result.time = passingTime;
  result.nanosleep = [](const timespec*, timespec*) { return 0; };
  result.sleep = [](unsigned int) { return 0U; };
  result.kill = noteKill;
  return result;
}

// ---- what surrounds the operations

// The child's status comes from waitpid alone, always in the same way.
struct Surroundings {
  explicit Surroundings(bool blocks) {
    InstallRoot::makeConfigDir();
    writeFile(std::string(InstallRoot::configDir) + "faults.conf",
              "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:00000003\n");
    writeFile("/usr/tulsk/input", "from a file\n");
    if (blocks) {
      blocked.emplace();
    }
  }
  InstallRoot root;
  ScopedReplacements replacements{withPassingTime()};
  std::optional<BlockedChildSignal> blocked;
};
inline std::shared_ptr<void> quiet() { return std::make_shared<Surroundings>(true); }
inline std::shared_ptr<void> withHandler() { return std::make_shared<Surroundings>(false); }

inline kelp_cmn_4_4::CCmnTraceLogPtr openLog() {
  kelp_cmn_4_4::CCmnTraceLogPtr log(new kelp_cmn_4_4::CCmnTraceLog);
  log->initialize("faults", "", "", 3, false);
  return log;
}

}  // namespace kelp_test
