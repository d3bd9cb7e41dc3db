// Gigabytes of address space that are the same few pages again and again, so that a text of any
// size costs next to no memory.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace kelp_test {

// `size` bytes that repeat `unit`, whose size is a power of 2, and pages of zeros behind them. To
// write a byte is to write it wherever the same few pages come again.
class EndlessPages {
 public:
  // Further flags for mmap: MAP_POPULATE where all of it will be written.
  EndlessPages(size_t size, const std::string& unit, int flags = 0)
      : m_size((size / pieceSize + 1) * pieceSize) {
    const int fd = memfd_create("pages", MFD_CLOEXEC);
    m_base = static_cast<char*>(mmap(nullptr, m_size + pieceSize, PROT_READ | PROT_WRITE,
                                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    m_usable = m_base != MAP_FAILED && ftruncate(fd, pieceSize) == 0 && mapAll(fd, flags);
    close(fd);
    if (m_usable) {
      fill(unit);
    }
    m_start = m_usable ? m_base + m_size - size : nullptr;
  }
  ~EndlessPages() {
    if (m_base != MAP_FAILED) {
      munmap(m_base, m_size + pieceSize);
    }
  }
  EndlessPages(const EndlessPages&) = delete;
  EndlessPages& operator=(const EndlessPages&) = delete;

  // Null where so much address space cannot be had.
  char* data() const { return m_start; }

 private:
  static constexpr size_t pieceSize = size_t{1} << 21;

  bool mapAll(int fd, int flags) {
    for (size_t offset = 0; offset < m_size; offset += pieceSize) {
      if (mmap(m_base + offset, pieceSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED | flags,
               fd, 0) == MAP_FAILED) {
        return false;
      }
    }
    return true;
  }

  void fill(const std::string& unit) {
    for (size_t offset = 0; offset < pieceSize; offset += unit.size()) {
      std::memcpy(m_base + offset, unit.data(), unit.size());
    }
  }

  size_t m_size;
  char* m_base = nullptr;
  char* m_start = nullptr;
  bool m_usable = false;
};

}  // namespace kelp_test
