#include "cmnsettingsfile.h"

#include "cmnfile.h"

#include <ace/Configuration_Import_Export.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

namespace kelp_cmn_4_4 {
namespace {

constexpr int refused = -1;

bool isRegularFile(const char* path) {
  struct stat status {};  // of no kind where there is no such file
  stat(path, &status);
  return S_ISREG(status.st_mode);
}

bool holdsZeroByte(const char* path) {
  const File file(std::fopen(path, "r"));
  char buffer[BUFSIZ];
  while (file) {
    const size_t count = std::fread(buffer, 1, sizeof buffer, file.get());
    if (count == 0 || std::memchr(buffer, '\0', count) != nullptr) {
      return count != 0;
    }
  }
  return false;
}

}  // namespace

int importSettings(ACE_Configuration_Heap& heap, const char* path) {
  // ACE looks for a line's end behind a zero byte: it would crash, take gigabytes or lose section
  // lines. What is no file, such as a pipe, cannot be read twice.
  if (isRegularFile(path) && holdsZeroByte(path)) {
    return refused;
  }
  ACE_Registry_ImpExp registry(heap);
  return registry.import_config(path);
}

}  // namespace kelp_cmn_4_4
