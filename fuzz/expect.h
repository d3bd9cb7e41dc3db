// What a fuzzer demands. A demand that is not met ends the process, which is how a fuzzer
// learns of it.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace kelp_fuzz {

inline void expect(bool met, const char* demand) {
  if (!met) {
    std::fprintf(stderr, "not met: %s\n", demand);
    std::abort();
  }
}

}  // namespace kelp_fuzz
