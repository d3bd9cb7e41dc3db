// A host to be tried: it reads its settings, traces, speaks the user's language and names a host.
#include <cmnconfiguration.h>
#include <cmnicucatalog.h>
#include <cmnnetwork.h>
#include <cmnpathtool.h>
#include <cmntracelog.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

int main() {
  CCmnTraceLog log;
  log.initialize("backupd", "", "", 1, false);
  log.trace(1, "started");
  log.trace(3, "a detail");

  tstr dir;
  tstr file;
  CCmnPathTool::getConfigFileInfo("backupd", dir, file);
  CCmnConfiguration settings(dir.c_str(), file.c_str(), true);
  tstr target;
  settings.getStringValue("BACKUP\\TARGETS", "main", target);
  std::printf("target: %s\n", target.c_str());

  CCmnIcuMessageCatalog catalog("de", "diskwatch");
  if (catalog.init() == catalogOk) {
    std::printf("pattern: %s\n", catalog.getMessage("MSG_DISK_FULL", nullptr).c_str());
  }
  std::printf("files: %s\n", CCmnNetwork::getAddressListForHost("files").begin()->c_str());
  return 0;
}
