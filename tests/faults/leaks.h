// Where the blocks were asked for that a round leaves.
#pragma once

#include "heap.h"
#include "round.h"

#include <unordered_map>

namespace kelp_test {

// Records every block that is watched, for as long as it lives. One at a time.
class LeakRecorder {
 public:
  LeakRecorder();
  ~LeakRecorder();
  LeakRecorder(const LeakRecorder&) = delete;
  LeakRecorder& operator=(const LeakRecorder&) = delete;

  // Writes down what is left.
  void tell(Report& report) const;

 private:
  static void given(const HeapRequest& request, const void* block);
  static void released(const void* block);

  std::unordered_map<const void*, Stack> m_blocks;
};

}  // namespace kelp_test
