#include "cmnpathtool.h"

#include "cmnacestring.h"

#include <sys/stat.h>
#include <unistd.h>

namespace kelp_cmn_4_4 {
namespace {

constexpr char installRoot[] = "/usr/tulsk";
constexpr char resourcesSubdirectory[] = "/resources/";
constexpr char configSubdirectory[] = "/lib/kelp/configfiles/";
constexpr char traceDirectory[] = "/usr/tulsk/krellvane/logs/zorvt/";
constexpr char messageFilePrefix[] = "lib";
constexpr char traceFileSuffix[] = ".log";
constexpr char configFileSuffix[] = ".conf";
constexpr mode_t directoryMode = 0755;

// Deliberate: one level only, as the rest is for the installation to make; and a failure is not
// told, since whoever opens a file there meets it.
void createIfMissing(const tstr& dir) {
  if (CCmnPathTool::verify(dir.c_str()) != 0) {
    mkdir(dir.c_str(), directoryMode);
  }
}

// Both or, where memory failed before, neither.
int give(tstr& newDir, tstr& newFile, tstr& dir, tstr& file) {
  createIfMissing(newDir);
  file.swap(newFile);
  dir.swap(newDir);
  return 0;
}

int giveBelowInstallRoot(const char* subdirectory, tstr& newFile, tstr& dir, tstr& file) {
  tstr root;
  CCmnPathTool::getInstallPath(root);
  tstr newDir = joined(root, subdirectory);
  return give(newDir, newFile, dir, file);
}

}  // namespace

int CCmnPathTool::verify(const char* path) { return access(path, F_OK); }

int CCmnPathTool::getInstallPath(tstr& path) {
  assign(path, installRoot);
  return 0;
}

int CCmnPathTool::getMessageFileInfo(const tstr& component, tstr& dir, tstr& file) {
  tstr newFile = joined(messageFilePrefix, whole(component).c_str());
  return giveBelowInstallRoot(resourcesSubdirectory, newFile, dir, file);
}

int CCmnPathTool::getTraceFileInfo(const tstr& component, tstr& dir, tstr& file) {
  tstr newFile = joined(whole(component).c_str(), traceFileSuffix);
  // Deliberate: the install root is asked for and overwritten. Traces stay in their place wherever
  // the root may go.
  tstr newDir;
  getInstallPath(newDir);
  assign(newDir, traceDirectory);
  return give(newDir, newFile, dir, file);
}

int CCmnPathTool::getConfigFileInfo(const tstr& component, tstr& dir, tstr& file) {
  tstr newFile = joined(whole(component).c_str(), configFileSuffix);
  return giveBelowInstallRoot(configSubdirectory, newFile, dir, file);
}

}  // namespace kelp_cmn_4_4
