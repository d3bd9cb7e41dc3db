#include "cmnsettingsfile.h"

#include "cmnfile.h"

#include <ace/Configuration_Import_Export.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

namespace kelp_cmn_4_4 {
namespace {

constexpr int refused = -1;

bool holdsNoZeroByte(const char* path) {
  const File file(std::fopen(path, "r"));
  char buffer[BUFSIZ];
  while (file) {
    const size_t count = std::fread(buffer, 1, sizeof buffer, file.get());
    if (std::memchr(buffer, '\0', count) != nullptr) {
      return false;
    }
    if (count < sizeof buffer) {
      return std::feof(file.get()) != 0;
    }
  }
  return false;
}

// What is no file, such as a pipe, cannot be read twice, and so is not looked at.
bool isFitForACE(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 && (!S_ISREG(status.st_mode) || holdsNoZeroByte(path));
}

}  // namespace

int importSettings(ACE_Configuration_Heap& heap, const char* path) {
  // ACE looks for a line's end behind a zero byte: it would crash, take gigabytes or lose
  // section lines.
  if (!isFitForACE(path)) {
    return refused;
  }
  ACE_Registry_ImpExp registry(heap);
  return registry.import_config(path);
}

int exportSettings(ACE_Configuration_Heap& heap, const char* path) {
  ACE_Registry_ImpExp registry(heap);
  // ACE goes on where it has no memory for a text, and leaves that out. The one sign of
  // it is errno.
  errno = 0;
  const int rc = registry.export_config(path);
  if (rc == 0 && errno == ENOMEM) {
    throw std::bad_alloc();
  }
  return rc;
}

}  // namespace kelp_cmn_4_4
