// The way of a child's status from the signal handler into the map, piece by piece and without
// signals.
#include "cmnchildstatus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <thread>
#include <vector>

namespace {

// What an allocation is interrupted by, as it would be by a signal; and how many there were.
std::function<void()>* interruption = nullptr;
thread_local bool counting = false;
std::atomic<int> allocations{0};
std::atomic<bool> refuseAllocations{false};

class Interrupting {
 public:
  explicit Interrupting(std::function<void()> handler) : handler_(std::move(handler)) {
    interruption = &handler_;
  }
  ~Interrupting() { interruption = nullptr; }
  Interrupting(const Interrupting&) = delete;
  Interrupting& operator=(const Interrupting&) = delete;

 private:
  std::function<void()> handler_;
};

class CountingAllocations {
 public:
  CountingAllocations() {
    allocations = 0;
    counting = true;
  }
  ~CountingAllocations() { counting = false; }
  CountingAllocations(const CountingAllocations&) = delete;
  CountingAllocations& operator=(const CountingAllocations&) = delete;
};

}  // namespace

__attribute__((noinline)) void* operator new(size_t size) {
  if (counting) {
    ++allocations;
  }
  if (interruption != nullptr) {
    (*interruption)();
  }
  void* block = refuseAllocations ? nullptr : std::malloc(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}
// Whatever operator delete releases must have come from malloc.
void* operator new(size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
__attribute__((noinline)) void operator delete(void* block) noexcept { std::free(block); }
__attribute__((noinline)) void operator delete(void* block, size_t) noexcept { std::free(block); }

namespace kelp_cmn_4_4 {
namespace {

using Map = ChildStatusRecorder::Map;
constexpr int prepared = static_cast<int>(ChildStatusRecorder::preparedNodes);
constexpr int ringCapacity = static_cast<int>(StatusRing::capacity);

void recordMany(ChildStatusRecorder& recorder, Map& map, int firstPid, int count) {
  for (int i = 0; i < count; ++i) {
    recorder.record(map, firstPid + i, i);
  }
}

TEST(StatusRing, GivesRecordsBackInTheirOrderHoweverOftenItGoesRound) {
  StatusRing ring;
  for (int i = 0; i < 3 * ringCapacity + 7; ++i) {
    ASSERT_TRUE(ring.push({i, -i}));
    if (i % 2 == 1) {
      for (const int expected : {i - 1, i}) {
        ASSERT_NE(ring.front(), nullptr);
        EXPECT_EQ(ring.front()->pid, expected);
        EXPECT_EQ(ring.front()->status, -expected);
        ring.pop();
      }
    }
  }
}

TEST(StatusRing, TakesItsCapacityAndNotOneMore) {
  EXPECT_EQ(ringCapacity, 1024);
  StatusRing ring;
  EXPECT_TRUE(ring.empty());
  EXPECT_EQ(ring.front(), nullptr);
  for (int i = 0; i < ringCapacity; ++i) {
    ASSERT_TRUE(ring.push({i, 0}));
  }
  EXPECT_FALSE(ring.push({-1, 0}));
  ring.pop();
  EXPECT_TRUE(ring.push({-2, 0}));
  EXPECT_FALSE(ring.push({-3, 0}));
  EXPECT_FALSE(ring.empty());
}

TEST(StatusRing, LosesNothingAmongProducersInSeveralThreads) {
  StatusRing ring;
  constexpr int producers = 4;
  constexpr int each = 5000;
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&ring, p] {
      for (int i = 0; i < each; ++i) {
        while (!ring.push({p, i})) {
          std::this_thread::yield();
        }
      }
    });
  }
  std::vector<int> next(producers, 0);
  for (int taken = 0; taken < producers * each;) {
    const StatusRing::Record* record = ring.front();
    if (record == nullptr) {
      std::this_thread::yield();
      continue;
    }
    EXPECT_EQ(record->status, next[static_cast<size_t>(record->pid)]++);
    ring.pop();
    ++taken;
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_TRUE(ring.empty());
}

// The ring is never full here, so no record may be refused; a producer that is overtaken between
// two looks must not mistake that for a full ring.
TEST(StatusRing, RefusesNothingWhileThereIsRoom) {
  constexpr int records = 200000;
  const auto ring = std::make_unique<StatusRing>();
  std::atomic<int> waiting{0};
  std::atomic<int> refused{0};
  const auto produce = [&](int first) {
    for (int i = 0; i < records; ++i) {
      while (waiting.fetch_add(1) >= 900) {
        waiting.fetch_sub(1);
        std::this_thread::yield();
      }
      if (!ring->push({first + i, i})) {
        ++refused;
        waiting.fetch_sub(1);
      }
    }
  };
  std::thread one(produce, 0);
  std::thread two(produce, records);
  std::vector<bool> seen(size_t{2} * records);
  int last[2] = {-1, -1};
  for (int taken = 0; taken + refused.load() < 2 * records;) {
    if (const StatusRing::Record* const record = ring->front()) {
      const int producer = record->pid / records;
      ASSERT_LT(last[producer], record->status) << "out of order";
      last[producer] = record->status;
      seen[static_cast<size_t>(record->pid)] = true;
      ring->pop();
      waiting.fetch_sub(1);
      ++taken;
    }
  }
  one.join();
  two.join();
  EXPECT_EQ(0, refused);
  EXPECT_TRUE(ring->empty());
  EXPECT_EQ(2 * records, std::count(seen.begin(), seen.end(), true));
}

TEST(ChildStatusRecorder, ShowsARecordInTheMapAtOnceWhilePreparedNodesLast) {
  ChildStatusRecorder recorder;
  Map map;
  for (int i = 0; i < prepared; ++i) {
    recorder.record(map, 100 + i, i);
    ASSERT_EQ(map.size(), static_cast<size_t>(i) + 1);
    ASSERT_EQ(map[100 + i], i);
  }
  recorder.record(map, 99, 7);
  EXPECT_EQ(map.count(99), 0U);
}

TEST(ChildStatusRecorder, OverwritesARecordWithoutANode) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 100, prepared);
  recorder.record(map, 100, 42);
  EXPECT_EQ(map[100], 42);
}

TEST(ChildStatusRecorder, AllocatesNothingInTheHandlerUntilTheRingIsFull) {
  ChildStatusRecorder recorder;
  Map map;
  {
    const CountingAllocations counted;
    recordMany(recorder, map, 1, prepared + ringCapacity);
  }
  EXPECT_EQ(allocations, 0);
}

TEST(ChildStatusRecorder, InsertsPlainlyWhenTheRingIsFullAndTheMapIsFree) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared + ringCapacity);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared));
  recorder.record(map, 100000, 5);
  EXPECT_EQ(map[100000], 5);
}

TEST(ChildStatusRecorder, SurvivesAPlainInsertionForWhichThereIsNoMemory) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared + ringCapacity);
  refuseAllocations = true;
  recorder.record(map, 100000, 5);
  refuseAllocations = false;
  EXPECT_EQ(map.count(100000), 0U);
}

TEST(ChildStatusRecorder, HandsOutEveryRecordOfMapAndRingOnce) {
  ChildStatusRecorder recorder;
  Map map;
  const int count = prepared + ringCapacity + 10;
  recordMany(recorder, map, 1, count);
  for (int i = 0; i < count; ++i) {
    int status = -1;
    ASSERT_TRUE(recorder.take(map, 1 + i, status)) << i;
    ASSERT_EQ(status, i);
    ASSERT_FALSE(recorder.take(map, 1 + i, status)) << i;
    ASSERT_EQ(status, i);
  }
  EXPECT_TRUE(map.empty());
}

TEST(ChildStatusRecorder, KeepsTheLatestOfSeveralRecordsOfAChildAcrossTheRing) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  recorder.record(map, 5000, 1);  // into the ring
  recorder.record(map, 5000, 2);
  int status = 0;
  EXPECT_TRUE(recorder.take(map, 5000, status));
  EXPECT_EQ(status, 2);
}

TEST(ChildStatusRecorder, HasNodesAgainAfterEachUseByTheMainLine) {
  ChildStatusRecorder recorder;
  Map map;
  for (int round = 0; round < 3; ++round) {
    recordMany(recorder, map, 1 + 1000 * round, prepared);
    recorder.prepare(map);
    recorder.record(map, 900 + 1000 * round, 1);
    EXPECT_EQ(map.count(900 + 1000 * round), 1U);
    int status = 0;
    EXPECT_FALSE(recorder.take(map, -1, status));
  }
}

TEST(ChildStatusRecorder, GivesNodesBackInsteadOfAllocatingAnew) {
  ChildStatusRecorder recorder;
  Map map;
  const CountingAllocations counted;
  for (int i = 0; i < 1000; ++i) {
    recorder.record(map, i, i);
    int status = -1;
    recorder.take(map, i, status);
  }
  EXPECT_EQ(allocations, 0);
}

TEST(ChildStatusRecorder, TakesARecordIntoTheRingWhenTheHandlerInterruptsTheMainLineInTheMap) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  int interruptions = 0;
  {
    const Interrupting handler([&] { recorder.record(map, 1000 + interruptions++, 3); });
    recorder.prepare(map);  // allocates nodes, each time interrupted
  }
  EXPECT_GE(interruptions, prepared);
  for (int i = 0; i < interruptions; ++i) {
    int status = -1;
    EXPECT_TRUE(recorder.take(map, 1000 + i, status)) << i;
    EXPECT_EQ(status, 3);
  }
}

TEST(ChildStatusRecorder, LosesARecordOnlyWhenTheRingIsFullWhileTheMapIsInUse) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  int pid = 10000;
  {
    const Interrupting handler([&] {
      for (int i = 0; i < ringCapacity + 1 && pid < 10000 + ringCapacity + 1; ++i) {
        recorder.record(map, pid++, 3);
      }
    });
    recorder.prepare(map);
  }
  int status = 0;
  EXPECT_TRUE(recorder.take(map, 10000 + ringCapacity - 1, status));
  EXPECT_FALSE(recorder.take(map, 10000 + ringCapacity, status));
}

TEST(ChildStatusRecorder, ToppingUpStopsQuietlyWhereMemoryEnds) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  refuseAllocations = true;
  recorder.prepare(map);
  refuseAllocations = false;
  recorder.record(map, 7000, 1);
  EXPECT_EQ(map.count(7000), 0U);
  int status = 0;
  EXPECT_TRUE(recorder.take(map, 7000, status));
}

TEST(ChildStatusRecorder, AdmitsNoVisitAndTouchesNoMapOnceItIsClosed) {
  ChildStatusRecorder recorder;
  Map map;
  {
    const ChildStatusRecorder::Visit before(recorder);
    EXPECT_TRUE(before);
  }
  recorder.close();
  const ChildStatusRecorder::Visit after(recorder);
  EXPECT_FALSE(after);
  recorder.record(map, 1, 1);
  EXPECT_TRUE(map.empty());
}

TEST(ChildStatusRecorder, DoesNotWaitForEverForAVisitThatNeverEnds) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  const ChildStatusRecorder::Visit endless(recorder);
  int status = 0;
  EXPECT_TRUE(recorder.take(map, 1, status));
  EXPECT_EQ(status, 9);
}

TEST(ChildStatusRecorder, LosesNothingBetweenHandlersInThreadsAndTheMainLine) {
  ChildStatusRecorder recorder;
  Map map;
  constexpr int handlers = 3;
  constexpr int each = 3000;
  std::atomic<int> waitingFor{0};
  std::vector<std::thread> threads;
  for (int h = 0; h < handlers; ++h) {
    threads.emplace_back([&, h] {
      for (int i = 0; i < each; ++i) {
        while (i - waitingFor.load() > 200) {  // never more in flight than the ring can hold
          std::this_thread::yield();
        }
        const ChildStatusRecorder::Visit visit(recorder);
        recorder.record(map, 1 + h * each + i, i);
      }
    });
  }
  for (int i = 0; i < each; ++i) {
    for (int h = 0; h < handlers; ++h) {
      int status = -1;
      while (!recorder.take(map, 1 + h * each + i, status)) {
        recorder.prepare(map);
        std::this_thread::yield();
      }
      ASSERT_EQ(status, i);
    }
    waitingFor = i;
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_TRUE(map.empty());
}

}  // namespace
}  // namespace kelp_cmn_4_4
