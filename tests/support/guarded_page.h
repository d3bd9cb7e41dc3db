// Memory that ends, or begins, at a page nobody may touch, so that one element too far
// faults at once.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kelp_test {

template <class Char>
class GuardedPage {
 public:
  // Room for `count` elements; the first byte after the last one faults.
  explicit GuardedPage(size_t count) : m_count(count) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t bytes = count * sizeof(Char);
    m_size = (bytes / page + 2) * page;
    m_base = static_cast<char*>(
        mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (m_base == MAP_FAILED || mprotect(m_base + m_size - page, page, PROT_NONE) != 0) {
      throw std::runtime_error("GuardedPage: no memory");
    }
    m_start = m_base + m_size - page - bytes;
  }
  // The same, filled with exactly these elements and no terminator.
  explicit GuardedPage(const std::basic_string<Char>& content) : GuardedPage(content.size()) {
    std::memcpy(m_start, content.data(), content.size() * sizeof(Char));
  }
  ~GuardedPage() { munmap(m_base, m_size); }
  GuardedPage(const GuardedPage&) = delete;
  GuardedPage& operator=(const GuardedPage&) = delete;

  Char* data() { return reinterpret_cast<Char*>(m_start); }
  size_t size() const { return m_count; }

 private:
  size_t m_count;
  size_t m_size = 0;
  char* m_base = nullptr;
  char* m_start = nullptr;
};

}  // namespace kelp_test
