// The records of ended children, through a script of what a signal handler and the main line do
// with them: they come to what a plain map and plain queues hold.
#include "cmnchildstatus.h"
#include "cmnstatusqueue.h"
#include "cmnstatusring.h"
#include "expect.h"
#include "exposed_members.h"
#include "input.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>

namespace {

using kelp_cmn_4_4::ChildStatusRecorder;
using kelp_cmn_4_4::StatusQueue;
using kelp_cmn_4_4::StatusRing;
using kelp_fuzz::expect;
using kelp_fuzz::Input;

KELP_EXPOSE(StatusRing, m_tail)
KELP_EXPOSE(StatusQueue, m_rings)
KELP_EXPOSE(StatusQueue, mappingSize)
KELP_EXPOSE(ChildStatusRecorder, m_queue)

// Bounds how many records a script may have in all, so that it stays quick.
class Budget {
 public:
  size_t upTo(size_t count) {
    count = std::min(count, m_left);
    m_left -= count;
    return count;
  }

 private:
  size_t m_left = 4000;
};

bool isSame(const StatusRing::Record& a, const StatusRing::Record& b) {
  return a.pid == b.pid && a.status == b.status;
}

// Few enough children that their numbers come again.
StatusRing::Record someRecord(Input& input) {
  const auto pid = static_cast<int>(input.upTo(40));
  return {pid, static_cast<int>(input.upTo(255))};
}

// ---- a ring

// A slot that somebody took and has not filled is no record yet.
struct PlainSlot {
  StatusRing::Record record;
  bool isFilled;
};

// What a producer does that is stopped for good between its two steps.
void takeSlot(StatusRing& ring) { (ring.*memberOf(StatusRing_m_tail{})).fetch_add(1); }

void expectFront(const StatusRing& ring, const std::deque<PlainSlot>& plain) {
  const StatusRing::Record* const front = ring.front();
  const bool isThere = !plain.empty() && plain.front().isFilled;
  expect((front != nullptr) == isThere, "the oldest record, or none");
  expect(front == nullptr || isSame(*front, plain.front().record), "the oldest record first");
}

void scriptRing(Input& input) {
  constexpr size_t most = 16;
  std::array<StatusRing::Slot, most> slots;
  const size_t capacity = size_t{1} << input.upTo(4);
  StatusRing ring(slots.data(), capacity);
  std::deque<PlainSlot> plain;
  while (!input.empty()) {
    switch (input.upTo(5)) {
      case 0:
        if (plain.size() < capacity) {
          takeSlot(ring);
          plain.push_back({{}, false});
        }
        break;
      case 1:
        ring.forgetUnfinished();
        plain.erase(std::remove_if(plain.begin(), plain.end(),
                                   [](const PlainSlot& slot) { return !slot.isFilled; }),
                    plain.end());
        break;
      case 2:
        if (ring.front() != nullptr) {
          ring.pop();
          plain.pop_front();
        }
        break;
      default: {
        const StatusRing::Record record = someRecord(input);
        expect(ring.push(record) == (plain.size() < capacity), "pushed where there is room");
        if (plain.size() < capacity) {
          plain.push_back({record, true});
        }
      }
    }
    expect(ring.used() == plain.size(), "as many slots in use");
    expectFront(ring, plain);
  }
}

// ---- a queue, which grows

// The pages that a queue took, which it keeps, go with it here.
void giveBackPages(StatusQueue& queue) {
  auto& rings = queue.*memberOf(StatusQueue_m_rings{});
  for (size_t level = 1; level < rings.size() && rings[level] != nullptr; ++level) {
    munmap(rings[level], memberOf(StatusQueue_mappingSize{})(StatusQueue::firstCapacity << level));
  }
}

// Takes so many, while others come: each that is taken has another one pushed.
void takeSome(StatusQueue& queue, std::deque<StatusRing::Record>& plain, size_t count,
              bool othersCome) {
  size_t most = plain.size();
  queue.handOut([&](const StatusRing::Record& record) {
    expect(!plain.empty() && most-- > 0, "no more records than there were");
    expect(isSame(record, plain.front()), "the oldest record first");
    if (count == 0) {
      return false;
    }
    --count;
    plain.pop_front();
    if (othersCome) {
      const StatusRing::Record other{record.pid + 1, record.status};
      expect(queue.push(other), "room for another");
      plain.push_back(other);
    }
    return true;
  });
  expect(count == 0 || most == 0, "as many as there were, or as were asked for");
}

void scriptQueue(Input& input) {
  StatusQueue queue;
  std::deque<StatusRing::Record> plain;
  Budget budget;
  while (!input.empty()) {
    size_t pushed = 0;
    switch (input.upTo(4)) {
      case 0:
        takeSome(queue, plain, input.upTo(5000), false);
        break;
      case 1:
        takeSome(queue, plain, input.upTo(50), true);
        break;
      case 2:
        queue.forgetUnfinished();  // there is none
        break;
      case 3:
        pushed = input.upTo(1500);
        break;
      default:
        pushed = input.upTo(30);
    }
    for (pushed = budget.upTo(pushed); pushed > 0; --pushed) {
      const StatusRing::Record record{static_cast<int>(pushed), static_cast<int>(plain.size())};
      expect(queue.push(record), "room for one more");
      plain.push_back(record);
    }
    expect(queue.empty() == plain.empty(), "empty, or not");
  }
  takeSome(queue, plain, plain.size(), false);
  giveBackPages(queue);
}

// ---- the recorder

// Records come while nobody is in the map, and while the main line is: around what would be a fork.
class RecorderScript {
 public:
  ~RecorderScript() { giveBackPages(m_recorder.*memberOf(ChildStatusRecorder_m_queue{})); }
  RecorderScript() = default;
  RecorderScript(const RecorderScript&) = delete;
  RecorderScript& operator=(const RecorderScript&) = delete;

  void step(Input& input) {
    switch (input.upTo(6)) {
      case 0:
        extract(static_cast<int>(input.upTo(40)));
        break;
      case 1:
        m_recorder.drainAndTopUp(m_map);
        break;
      case 2:
        ++m_forks;
        m_recorder.beforeFork();
        break;
      case 3:
        endFork();
        break;
      case 4:
        recordMany(static_cast<int>(m_budget.upTo(input.upTo(1200))));
        break;
      default: {
        const StatusRing::Record record = someRecord(input);
        m_recorder.record(m_map, record.pid, record.status);
        m_plain[record.pid] = record.status;
      }
    }
  }

  void expectAll() {
    while (m_forks > 0) {
      endFork();
    }
    m_recorder.drainAndTopUp(m_map);
    expect(m_map == m_plain, "all that was recorded, and nothing else");
  }

 private:
  // While the main line is in the map itself, it finds nothing.
  void extract(int pid) {
    int status = -1;
    const bool isKnown = m_recorder.extract(m_map, pid, status);
    const auto found = m_plain.find(pid);
    if (m_forks > 0) {
      expect(!isKnown, "nothing while the map is in use");
      return;
    }
    expect(isKnown == (found != m_plain.end()), "the child's record, or none");
    expect(status == (isKnown ? found->second : -1), "the last status");
    if (isKnown) {
      m_plain.erase(found);
    }
  }

  void endFork() {
    if (m_forks > 0) {
      --m_forks;
      m_recorder.afterFork(m_map);
    }
  }

  void recordMany(int count) {
    constexpr int firstOfMany = 1000;
    for (int i = 0; i < count; ++i) {
      m_recorder.record(m_map, firstOfMany + i, i);
      m_plain[firstOfMany + i] = i;
    }
  }

  ChildStatusRecorder m_recorder;
  ChildStatusRecorder::Map m_map;
  std::map<int, int> m_plain;
  Budget m_budget;
  int m_forks = 0;
};

void scriptRecorder(Input& input) {
  RecorderScript script;
  while (!input.empty()) {
    script.step(input);
  }
  script.expectAll();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  switch (input.upTo(2)) {
    case 0:
      scriptRing(input);
      break;
    case 1:
      scriptQueue(input);
      break;
    default:
      scriptRecorder(input);
  }
  return 0;
}
