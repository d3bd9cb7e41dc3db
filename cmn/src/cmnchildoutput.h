// Reading a child's output, block by block, into lines.
#ifndef CMNCHILDOUTPUT_H
#define CMNCHILDOUTPUT_H

#include <cstddef>

namespace kelp_cmn_4_4 {

// Whether a time-limited wait found the descriptor readable; tries again as long as select fails
// and time is left.
bool awaitReadable(int fd, long timeoutSeconds);

// A line as it grows in the caller's buffer.
class Line {
 public:
  Line(char* buffer, int size) : m_buffer(buffer), m_limit(static_cast<size_t>(size) - 1) {}

  // Appends what a block holds of the line, and gives how much that was.
  size_t append(const char* block, size_t count);

  bool isEmpty() const { return m_length == 0; }
  bool isWhole() const { return m_isWhole; }  // ended, or as long as there is room for
  void terminate() { m_buffer[m_length] = '\0'; }

 private:
  char* m_buffer;
  size_t m_limit;
  size_t m_length = 0;
  bool m_isWhole = false;
};

}  // namespace kelp_cmn_4_4

#endif
