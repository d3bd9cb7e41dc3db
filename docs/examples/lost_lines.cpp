// A log whose second set-up failed says that it is initialized, and loses its lines.
#include <cmnpathtool.h>
#include <cmntracelog.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

// What a host asks instead.
static bool takesLines(const CCmnTraceLog& log) {
  return log.isInitialized() && CCmnPathTool::verify(log.getTracePath().c_str()) == 0;
}

static void report(const char* when, const CCmnTraceLog& log) {
  std::printf("%s: initialized %d, takes lines %d\n", when, log.isInitialized() ? 1 : 0,
              takesLines(log) ? 1 : 0);
}

int main() {
  CCmnTraceLog log;
  log.initialize("diskwatch", "", "", 1, false);
  report("first", log);
  log.initialize("diskwatch", "/no/such", "diskwatch.log", 1, false);
  report("second", log);
  log.trace(1, "lost");

  // Directory and file stand in the configuration file now: the defaults are no longer used.
  log.initialize("diskwatch", "", "", 1, false);
  report("third", log);
  tstr dir;
  tstr file;
  CCmnPathTool::getTraceFileInfo("diskwatch", dir, file);
  log.initialize("diskwatch", dir, file, 1, false);
  report("fourth", log);
  return 0;
}
