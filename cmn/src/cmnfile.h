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

}  // namespace kelp_cmn_4_4

#endif
