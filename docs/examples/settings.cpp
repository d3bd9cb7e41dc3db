// Traces into the component's file, then reads the component's settings and adds some of its own.
#include <cmnconfiguration.h>
#include <cmnpathtool.h>
#include <cmntracelog.h>

#include <cstdio>
#include <fstream>
#include <string>

using namespace kelp_cmn_4_4;
using TraceLog = CCmnSmartPtr<CCmnTraceLog, CCmnContextSingletonAllocator<CCmnTraceLog>>;

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
  const TraceLog log = TraceLog::create();
  log->initialize("backupd", "", "", level, false);
  if (!log->isInitialized()) {
    std::printf("no trace in %s\n", log->getTracePath().c_str());
    return 1;
  }
  std::printf("level after the set-up: %d\n", log->getTraceLevel());
  log->trace(1, "%s cannot be read, errno %d", "/home/a", 13);
  log->trace(2, "%d files saved", 12);
  log->trace(3, "not of interest at level 2");
  std::printf("level after a trace: %d\n", log->getTraceLevel());
  printLinesOf(log->getTracePath());

  tstr dir;
  tstr file;
  CCmnPathTool::getConfigFileInfo("backupd", dir, file);
  CCmnConfiguration settings(dir.c_str(), file.c_str(), true);
  unsigned int configured = 0;
  int status = settings.getIntegerValue("DEBUG_TRACE_INFO", "TRACELEVEL", configured);
  std::printf("TRACELEVEL: status %d, value %u\n", status, configured);

  ACE_Configuration_Section_Key section;
  settings.openSection("BACKUP\\TARGETS", section, 1);
  settings.setStringValue("main", "/srv/backup");
  settings.setIntegerValue("keep", 7);
  status = settings.exportConfig();  // nothing was written before
  std::printf("export: status %d\n", status);

  tstr target;
  status = settings.getStringValue("BACKUP\\TARGETS", "spare", target);
  std::printf("spare: status %d, \"%s\"\n", status, target.c_str());
  return 0;
}
