// Traces into the component's file.
#include <cmntracelog.h>

#include <cstdio>
#include <fstream>
#include <string>

using namespace kelp_cmn_4_4;

// Without the time, a date and a clock time of this very moment.
static void printLinesOf(const tstr& path) {
  std::ifstream file(path.c_str());
  for (std::string line; std::getline(file, line);) {
    const size_t clock = line.find(' ') + 1;
    std::printf("traced: %s\n", line.substr(line.find(' ', clock) + 1).c_str());
  }
}

int main() {
  // Empty directory and file: those of the configuration file, or else the defaults.
  constexpr int level = 2;
  const CCmnTraceLogPtr log = CCmnTraceLogPtr::create();
  log->initialize("diskwatch", "", "", level, false);
  if (!log->isInitialized()) {
    std::printf("no trace in %s\n", log->getTracePath().c_str());
    return 1;
  }
  std::printf("level after the set-up: %d\n", log->getTraceLevel());
  log->trace(1, "%s cannot be read, errno %d", "/home/a", 13);
  log->trace(2, "%d files saved", 12);
  log->trace(3, "not of interest at level 2");
  std::printf("level after a trace: %d\n", log->getTraceLevel());
  std::printf("%s\n", log->getTracePath().c_str());
  printLinesOf(log->getTracePath());
  return 0;
}
