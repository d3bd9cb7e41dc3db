#include "cmnchildoutput.h"

#include <sys/select.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace kelp_cmn_4_4 {
namespace {

// A set of one descriptor, filled by hand, because the platform's own macros end the process above
// descriptor 1023.
class DescriptorSet {
 public:
  explicit DescriptorSet(int fd) : m_fd(static_cast<size_t>(fd)) {
    if (m_fd / bitsPerWord >= usualWords) {
      m_large.resize(m_fd / bitsPerWord + 1);
    }
  }

  // As select changes the set, each wait needs it anew.
  fd_set* renewed() {
    fd_mask* const words = m_large.empty() ? m_usual : m_large.data();
    std::fill_n(words, m_large.empty() ? usualWords : m_large.size(), fd_mask{0});
    words[m_fd / bitsPerWord] = static_cast<fd_mask>(1UL << (m_fd % bitsPerWord));
    return reinterpret_cast<fd_set*>(words);
  }

 private:
  static constexpr size_t bitsPerWord = 8 * sizeof(fd_mask);
  static constexpr size_t usualWords = 1024 / sizeof(fd_mask);  // up to descriptor 8191

  size_t m_fd;
  fd_mask m_usual[usualWords];
  std::vector<fd_mask> m_large;
};

}  // namespace

bool awaitReadable(int fd, long timeoutSeconds) {
  DescriptorSet set(fd);
  const time_t start = time(nullptr);
  time_t spent = 0;
  while (true) {
    timeval limit{};
    limit.tv_sec = timeoutSeconds - spent;
    const int ready = select(fd + 1, set.renewed(), nullptr, nullptr, &limit);
    if (ready >= 0) {
      return ready == 1;
    }
    // Deliberate: any failure is waited through, not EINTR alone. Which it is makes no difference
    // to the caller, whose time runs all the same.
    spent = time(nullptr) - start;
    if (spent >= timeoutSeconds) {
      return false;
    }
  }
}

size_t Line::append(const char* block, size_t count) {
  const size_t room = std::min(count, m_limit - m_length);
  const void* const newline = std::memchr(block, '\n', room);
  const size_t length = newline == nullptr
                            ? room
                            : static_cast<size_t>(static_cast<const char*>(newline) - block) + 1;
  std::memcpy(m_buffer + m_length, block, length);
  m_length += length;
  m_isWhole = newline != nullptr || m_length == m_limit;
  return length;
}

}  // namespace kelp_cmn_4_4
