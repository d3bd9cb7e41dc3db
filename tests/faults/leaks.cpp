#include "leaks.h"

#include <algorithm>

namespace kelp_test {
namespace {

LeakRecorder* recorder = nullptr;

// Null where there is no room for it. Needs no memory: that would be recorded, too.
LeakPlace* placeIn(Report& report, const Stack& stack) {
  auto* const end = report.leakPlaces.begin() + report.leakPlacesUsed;
  auto* const found = std::find_if(report.leakPlaces.begin(), end,
                                   [&](const LeakPlace& place) { return place.stack == stack; });
  if (found != end) {
    return &*found;
  }
  if (report.leakPlacesUsed == Report::leakPlacesKept) {
    return nullptr;
  }
  LeakPlace& place = report.leakPlaces.at(report.leakPlacesUsed++);
  place.stack = stack;
  return &place;
}

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
    if (LeakPlace* const place = placeIn(report, stack)) {
      ++place->blocks;
    } else {
      report.hasMoreLeakPlaces = true;
    }
  }
}

}  // namespace kelp_test
