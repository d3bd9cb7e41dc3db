#include "leaks.h"

namespace kelp_test {
namespace {

LeakRecorder* recorder = nullptr;

}  // namespace

LeakRecorder::LeakRecorder() {
  recorder = this;
  setHeapListener({given, released});
}

LeakRecorder::~LeakRecorder() {
  setHeapListener({});
  recorder = nullptr;
}

void LeakRecorder::given(const HeapRequest& request, const void* block) {
  recorder->m_blocks.erase(request.old);
  recorder->m_blocks[block].capture();
}

void LeakRecorder::released(const void* block) { recorder->m_blocks.erase(block); }

void LeakRecorder::tell(Report& report) const {
  for (const auto& [block, stack] : m_blocks) {
    if (static_cast<size_t>(report.leaks) < Report::leaksKept) {
      report.leakStacks.at(static_cast<size_t>(report.leaks)) = stack;
    }
    ++report.leaks;
  }
}

}  // namespace kelp_test
