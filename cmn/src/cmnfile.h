// A stdio stream that closes itself.
#ifndef CMNFILE_H
#define CMNFILE_H

#include <cstdio>
#include <memory>

namespace kelp_cmn_4_4 {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// A file that is open for a moment: the stream's block is its own, not the heap's.
class BriefFile {
 public:
  BriefFile(const char* path, const char* mode) : m_stream(std::fopen(path, mode)) {
    if (m_stream) {
      std::setvbuf(m_stream.get(), m_block, _IOFBF, sizeof m_block);
    }
  }

  explicit operator bool() const { return m_stream != nullptr; }
  std::FILE* get() const { return m_stream.get(); }

 private:
  char m_block[4096];
  File m_stream;  // behind its block, and so closed before that goes
};

}  // namespace kelp_cmn_4_4

#endif
