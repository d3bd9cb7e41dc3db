// A file that has a path, and lies in memory only.
#pragma once

#include "expect.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>

namespace kelp_fuzz {

class MemoryFile {
 public:
  MemoryFile() : m_descriptor(memfd_create("kelp_fuzz", MFD_CLOEXEC)) {
    expect(m_descriptor != -1, "a file in memory");
  }
  ~MemoryFile() { close(m_descriptor); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Its path is one behind the other.
  static constexpr const char* directory = "/proc/self/fd/";
  std::string name() const { return std::to_string(m_descriptor); }

  void hold(const std::string& content) const {
    const bool written = ftruncate(m_descriptor, 0) == 0 &&
                         pwrite(m_descriptor, content.data(), content.size(), 0) ==
                             static_cast<ssize_t>(content.size());
    expect(written, "the file's content");
  }

  std::string content() const {
    std::string content(static_cast<size_t>(lseek(m_descriptor, 0, SEEK_END)), '\0');
    const ssize_t count = pread(m_descriptor, content.data(), content.size(), 0);
    expect(count == static_cast<ssize_t>(content.size()), "the whole file");
    return content;
  }

 private:
  int m_descriptor;
};

}  // namespace kelp_fuzz
