// Reads the component's configuration file, changes it, and shows what stands in it then.
#include <cmnconfiguration.h>
#include <cmnpathtool.h>

#include <cstdio>
#include <fstream>
#include <string>

using namespace kelp_cmn_4_4;

int main() {
  tstr dir;
  tstr file;
  CCmnPathTool::getConfigFileInfo("backupd", dir, file);
  CCmnConfiguration settings(dir.c_str(), file.c_str(), true);
  if (settings.getLastError().getCode() != 0) {
    std::printf("%s\n", settings.getLastError().what());
    return 1;
  }

  unsigned int level = 0;
  settings.getIntegerValue("DEBUG_TRACE_INFO", "TRACELEVEL", level);
  tstr target = "/tmp";
  int status = settings.getStringValue("BACKUP\\TARGETS", "main", target);
  std::printf("level %u; main: status %d, %s\n", level, status, target.c_str());
  target = "/tmp";  // stays where there is no such value
  status = settings.getStringValue("BACKUP\\TARGETS", "spare", target);
  std::printf("spare: status %d, %s\n", status, target.c_str());

  // The section that was named last is the current one.
  settings.setIntegerValue("keep", 7);
  status = settings.exportConfig();  // nothing was written before
  std::printf("export: status %d\n", status);

  std::ifstream written((dir + file).c_str());
  for (std::string line; std::getline(written, line);) {
    std::puts(line.c_str());
  }
  return 0;
}
