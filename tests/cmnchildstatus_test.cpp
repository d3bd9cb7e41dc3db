// The way of a child's status from the signal handler into the map, piece by piece and without
// signals.
#include "cmnchildstatus.h"

#include "another_process.h"
#include "heap.h"
#include "interposed_calls.h"
#include "single_step.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace kelp_cmn_4_4;
using kelp_test::Call;
using kelp_test::HeapCall;
using kelp_test::HeapRequest;
using kelp_test::HeapWatch;
using kelp_test::inAnotherProcess;
using kelp_test::realCalls;
using kelp_test::Replacements;
using kelp_test::ScopedFailure;
using kelp_test::ScopedReplacements;
using kelp_test::Times;

// Counts how often anybody gives way while waiting.
std::atomic<long> yields{0};

class YieldCount {
 public:
  explicit YieldCount(int (*schedYield)() = yieldAndCount) : m_scope(replacements(schedYield)) {
    yields = 0;
  }

 private:
  static int yieldAndCount() {
    ++yields;
    return realCalls().schedYield();
  }
  static Replacements replacements(int (*schedYield)()) {
    Replacements result;
    result.schedYield = schedYield;
    return result;
  }
  ScopedReplacements m_scope;
};

// What comes at every allocation of this thread, as a signal may.
template <class Interruption>
HeapWatch::Decision interruptedBy(Interruption interruption) {
  return [interruption](const HeapRequest&) {
    interruption();
    return true;
  };
}

using Map = ChildStatusRecorder::Map;
constexpr int prepared = static_cast<int>(ChildStatusRecorder::preparedNodes);
constexpr int queued = static_cast<int>(StatusQueue::firstCapacity);
constexpr int otherPid = 1'000'000'000;  // beyond those that a test counts from 1

void recordMany(ChildStatusRecorder& recorder, Map& map, int firstPid, int count) {
  for (int i = 0; i < count; ++i) {
    recorder.record(map, firstPid + i, i);
  }
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

TEST(ChildStatusRecorder, AllocatesNothingInTheHandlerHoweverManyRecordsCome) {
  ChildStatusRecorder recorder;
  Map map;
  HeapWatch watch;
  recordMany(recorder, map, 1, prepared + 20 * queued);
  watch.end();
  EXPECT_EQ(watch.requests(), 0);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared));
  recorder.drainAndTopUp(map);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared + 20 * queued));
}

TEST(ChildStatusRecorder, HandsOutEveryRecordOfMapAndQueueOnce) {
  ChildStatusRecorder recorder;
  Map map;
  const int count = prepared + 3 * queued + 10;
  recordMany(recorder, map, 1, count);
  for (int i = 0; i < count; ++i) {
    int status = -1;
    ASSERT_TRUE(recorder.extract(map, 1 + i, status)) << i;
    ASSERT_EQ(status, i);
    ASSERT_FALSE(recorder.extract(map, 1 + i, status)) << i;
    ASSERT_EQ(status, i);
  }
  EXPECT_TRUE(map.empty());
}

TEST(ChildStatusRecorder, KeepsTheLatestOfSeveralRecordsOfAChildAcrossTheQueue) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  recorder.record(map, otherPid, 1);  // into the queue
  recorder.record(map, otherPid, 2);
  int status = 0;
  EXPECT_TRUE(recorder.extract(map, otherPid, status));
  EXPECT_EQ(status, 2);
}

TEST(ChildStatusRecorder, HasNodesAgainAfterEachUseByTheMainLine) {
  ChildStatusRecorder recorder;
  Map map;
  for (int round = 0; round < 3; ++round) {
    recordMany(recorder, map, 1 + 1000 * round, prepared);
    recorder.drainAndTopUp(map);
    recorder.record(map, 900 + 1000 * round, 1);
    EXPECT_EQ(map.count(900 + 1000 * round), 1U);
    int status = 0;
    EXPECT_FALSE(recorder.extract(map, -1, status));
  }
}

TEST(ChildStatusRecorder, GivesNodesBackInsteadOfAllocatingAnew) {
  ChildStatusRecorder recorder;
  Map map;
  HeapWatch watch;
  for (int i = 0; i < 1000; ++i) {
    recorder.record(map, i, i);
    int status = -1;
    recorder.extract(map, i, status);
  }
  watch.end();
  EXPECT_EQ(watch.requests(), 0);
}

TEST(ChildStatusRecorder, TakesARecordIntoTheQueueWhenTheHandlerInterruptsTheMainLineInTheMap) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  int interruptions = 0;
  {
    const HeapWatch handler(
        interruptedBy([&] { recorder.record(map, otherPid + interruptions++, 3); }));
    recorder.drainAndTopUp(map);  // allocates nodes, each time interrupted
  }
  EXPECT_GE(interruptions, prepared);
  for (int i = 0; i < interruptions; ++i) {
    int status = -1;
    EXPECT_TRUE(recorder.extract(map, otherPid + i, status)) << i;
    EXPECT_EQ(status, 3);
  }
}

TEST(ChildStatusRecorder, TheLatestStatusWinsHoweverManyRecordsCome) {
  for (const int count : {prepared, prepared + 1, queued, prepared + queued, 5 * queued}) {
    ChildStatusRecorder recorder;
    Map map;
    for (const int older : {2, 1, 0}) {
      for (int i = 0; i < count; ++i) {
        recorder.record(map, 1 + i, i + older);
      }
    }
    recorder.drainAndTopUp(map);
    ASSERT_EQ(map.size(), static_cast<size_t>(count));
    for (const auto& [pid, status] : map) {
      ASSERT_EQ(status, pid - 1);
    }
  }
}

TEST(ChildStatusRecorder, TheLatestStatusWinsThoughAnOlderOneStillWaits) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  {
    const HeapWatch handlerAndNoMemory([&](const HeapRequest&) {
      recorder.record(map, otherPid, 0);  // for which there is no node
      recorder.record(map, 1, 5);
      return false;
    });
    recorder.drainAndTopUp(map);
  }
  EXPECT_EQ(map.count(otherPid), 0U);
  recorder.record(map, 1, 6);
  int status = -1;
  EXPECT_TRUE(recorder.extract(map, 1, status));
  EXPECT_EQ(status, 6);
}

TEST(ChildStatusRecorder, LosesNoRecordThoughThousandsComeWhileTheMapIsInUse) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  bool come = false;
  {
    const HeapWatch handler(interruptedBy([&] {
      if (!std::exchange(come, true)) {
        recordMany(recorder, map, otherPid, 5 * queued);
      }
    }));
    recorder.drainAndTopUp(map);
  }
  for (int i = 0; i < 5 * queued; ++i) {
    int status = -1;
    ASSERT_TRUE(recorder.extract(map, otherPid + i, status)) << i;
    ASSERT_EQ(status, i);
  }
}

TEST(ChildStatusRecorder, LosesARecordOnlyWhereTheSystemHasNoPages) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared + queued);
  {
    const ScopedFailure noPages(Call::mmap, ENOMEM, 1, Times::onwards);
    recorder.record(map, otherPid, 5);
    EXPECT_EQ(noPages.failed(), 1);
  }
  recorder.record(map, otherPid + 1, 6);
  int status = -1;
  EXPECT_FALSE(recorder.extract(map, otherPid, status));
  EXPECT_TRUE(recorder.extract(map, otherPid + 1, status));
  EXPECT_EQ(status, 6);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared + queued));
}

// Every instruction of the main line, those of malloc included, is followed by a record.
TEST(ChildStatusRecorder, LosesNothingThoughRecordsComeBetweenAnyTwoInstructions) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared + 3);
  int pid = otherPid;
  kelp_test::SingleStep step(1, 4000, [&] {
    recorder.record(map, pid, pid);
    ++pid;
  });
  int status = -1;
  EXPECT_TRUE(step.run([&] { recorder.extract(map, 1, status); }));
  EXPECT_EQ(status, 0);
  EXPECT_GT(pid, otherPid + 100);
  recorder.drainAndTopUp(map);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared + 2 + pid - otherPid));
  for (int i = otherPid; i < pid; ++i) {
    ASSERT_EQ(map[i], i);
  }
}

TEST(ChildStatusRecorder, ToppingUpStopsQuietlyWhereMemoryEnds) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  {
    const HeapWatch noMemory(1, Times::onwards, HeapCall::throwingNew);
    recorder.drainAndTopUp(map);
  }
  recorder.record(map, otherPid, 1);
  EXPECT_EQ(map.count(otherPid), 0U);
  int status = 0;
  EXPECT_TRUE(recorder.extract(map, otherPid, status));
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
  EXPECT_TRUE(recorder.extract(map, 1, status));
  EXPECT_EQ(status, 9);
}

TEST(ChildStatusRecorder, NobodyWaitsForAMapThatIsGone) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  const ChildStatusRecorder::Visit endless(recorder);
  recorder.close();
  const YieldCount counted;
  int status = 77;
  EXPECT_FALSE(recorder.extract(map, 1, status));
  recorder.drainAndTopUp(map);
  recorder.record(map, 2, 9);
  std::thread([&] {
    EXPECT_FALSE(recorder.extract(map, 1, status));
    recorder.drainAndTopUp(map);
    recorder.beforeFork();
    recorder.afterFork(map);
  }).join();
  EXPECT_EQ(yields, 0);
  EXPECT_EQ(status, 77);
  EXPECT_EQ(map.size(), 1U);
}

// As a look-up in a host's own signal handler would.
TEST(ChildStatusRecorder, NobodyWaitsForAMapThatHisOwnThreadIsIn) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, 2);
  const YieldCount counted;
  bool found = true;
  {
    const HeapWatch handler(interruptedBy([&] {
      int status = -1;
      found = recorder.extract(map, 2, status);
      recorder.close();
    }));
    recorder.drainAndTopUp(map);
  }
  EXPECT_FALSE(found);
  EXPECT_EQ(yields, 0);
}

// Somebody in the map, in another thread, until he is let go.
class InTheMap {
 public:
  InTheMap(ChildStatusRecorder& recorder, Map& map)
      : m_thread([this, &recorder, &map] {
          const HeapWatch watch(interruptedBy([this] {
            m_inside = true;
            while (!m_go) {
              std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
          }));
          recorder.drainAndTopUp(map);  // allocates, for want of a node
        }) {
    while (!m_inside) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }
  ~InTheMap() {
    m_go = true;
    m_thread.join();
  }
  InTheMap(const InTheMap&) = delete;
  InTheMap& operator=(const InTheMap&) = delete;

  void letGo() { m_go = true; }

 private:
  std::atomic<bool> m_inside{false};
  std::atomic<bool> m_go{false};
  std::thread m_thread;
};

// Somebody who is let go once anybody waits.
class LetGoOnceAwaited {
 public:
  explicit LetGoOnceAwaited(InTheMap& somebody, std::chrono::milliseconds later = {})
      : m_thread([&somebody, later] {
          while (yields == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
          }
          std::this_thread::sleep_for(later);
          somebody.letGo();
        }) {}
  ~LetGoOnceAwaited() { m_thread.join(); }
  LetGoOnceAwaited(const LetGoOnceAwaited&) = delete;
  LetGoOnceAwaited& operator=(const LetGoOnceAwaited&) = delete;

 private:
  std::thread m_thread;
};

TEST(ChildStatusRecorder, LeavesAMapAloneThatIsGivenBackAfterItsEnd) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  {
    const InTheMap somebody(recorder, map);
    recorder.close();  // waits in vain
  }
  for (int round = 0; round < 2; ++round) {  // the first one holds up nobody
    const YieldCount counted;
    int status = 77;
    recorder.record(map, 2, 9);
    EXPECT_FALSE(recorder.extract(map, 1, status));
    recorder.drainAndTopUp(map);
    EXPECT_EQ(status, 77);
    EXPECT_EQ(yields, 0);
  }
  EXPECT_EQ(map, (Map{{1, 9}}));
}

// In a real-time thread 20,000 yields are over before anybody else has run.
TEST(ChildStatusRecorder, WaitsForATimeAndNotForANumberOfYields) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  InTheMap somebody(recorder, map);
  const YieldCount inVain([] {
    ++yields;
    return 0;
  });
  const LetGoOnceAwaited lettingGo(somebody, std::chrono::milliseconds(10));
  int status = -1;
  EXPECT_TRUE(recorder.extract(map, 1, status));
  EXPECT_EQ(status, 9);
}

// --- around a fork

// The recorder that this thread's forks concern. Others have none.
struct Forking {
  ChildStatusRecorder& recorder;
  Map& map;
};
thread_local const Forking* concerned = nullptr;

template <class Step>
void whereConcerned(Step step) {
  if (concerned != nullptr) {
    step(concerned->recorder, concerned->map);
  }
}

// As the library has it done.
[[maybe_unused]] const int atFork = pthread_atfork(
    [] { whereConcerned([](ChildStatusRecorder& recorder, Map&) { recorder.beforeFork(); }); },
    [] {
      whereConcerned([](ChildStatusRecorder& recorder, Map& map) { recorder.afterFork(map); });
    },
    [] {
      whereConcerned(
          [](ChildStatusRecorder& recorder, Map& map) { recorder.afterForkInChild(map); });
    });

// Runs checks in a forked child.
template <class Body>
void inAChildOf(ChildStatusRecorder& recorder, Map& map, Body body) {
  const Forking forking{recorder, map};
  concerned = &forking;
  inAnotherProcess(body);
  concerned = nullptr;
}

bool isOpen(ChildStatusRecorder& recorder) {
  const ChildStatusRecorder::Visit visit(recorder);
  return static_cast<bool>(visit);
}

// A recorder whose map lacks these numbers records at once and gives back.
void expectRecords(ChildStatusRecorder& recorder, Map& map) {
  EXPECT_TRUE(isOpen(recorder));
  recorder.record(map, otherPid, 1);
  EXPECT_EQ(map.count(otherPid), 1U);
  recordMany(recorder, map, otherPid + 1, 2 * queued);
  int status = -1;
  EXPECT_TRUE(recorder.extract(map, otherPid, status));
  EXPECT_EQ(status, 1);
  EXPECT_TRUE(recorder.extract(map, otherPid + 2 * queued, status));
  EXPECT_EQ(status, 2 * queued - 1);
}

TEST(ChildStatusRecorder, GoesOnOnBothSidesOfAFork) {
  ChildStatusRecorder recorder;
  Map map;
  for (const int waiting : {0, prepared + 5, prepared + queued}) {
    recordMany(recorder, map, 1, waiting);
    inAChildOf(recorder, map, [&] {
      recorder.drainAndTopUp(map);
      EXPECT_EQ(map.size(), static_cast<size_t>(waiting));
      expectRecords(recorder, map);
    });
    recorder.drainAndTopUp(map);
    EXPECT_EQ(map.size(), static_cast<size_t>(waiting));
    expectRecords(recorder, map);
    map.clear();
    recorder.drainAndTopUp(map);
  }
}

TEST(ChildStatusRecorder, ShowsAChildThatEndedDuringTheForkInTheMapAtOnce) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.beforeFork();
  recorder.record(map, 1, 9);
  EXPECT_TRUE(map.empty());
  recorder.afterFork(map);
  EXPECT_EQ(map.count(1), 1U);
}

TEST(ChildStatusRecorder, AForkAwaitsWhoeverIsInTheMap) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  InTheMap somebody(recorder, map);
  const YieldCount counted;
  const LetGoOnceAwaited lettingGo(somebody);
  inAChildOf(recorder, map, [&] { expectRecords(recorder, map); });
}

// A handler in another thread need not be awaited: it is not in the child, nor is its visit.
TEST(ChildStatusRecorder, AForkAwaitsNoVisitAndLeavesItBehind) {
  ChildStatusRecorder recorder;
  Map map;
  const ChildStatusRecorder::Visit endless(recorder);
  const YieldCount counted;
  inAChildOf(recorder, map, [&] {
    expectRecords(recorder, map);
    EXPECT_EQ(yields, 0);
  });
  EXPECT_EQ(yields, 0);
}

// The child's map may be half changed then, so nobody touches it, and nobody waits for it.
TEST(ChildStatusRecorder, IsClosedInAChildWhereSomebodyWasChangingTheMap) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  const InTheMap somebody(recorder, map);
  inAChildOf(recorder, map, [&] {
    const YieldCount counted;
    int status = -1;
    EXPECT_FALSE(isOpen(recorder));
    EXPECT_FALSE(recorder.extract(map, 1, status));
    EXPECT_EQ(yields, 0);
  });
}

#ifdef __SANITIZE_ADDRESS__
constexpr long instructionsBetweenForks = 101;
#else
constexpr long instructionsBetweenForks = 11;
#endif

// The handler is recording while somebody else is in the map, who then leaves it. Whatever the
// handler had begun is never finished in the child.
TEST(ChildStatusRecorder, GoesOnInTheChildOfAForkWhereverAHandlerHadCome) {
  bool reached = true;
  for (long n = 1; reached; n += instructionsBetweenForks) {
    ChildStatusRecorder recorder;
    Map map;
    recorder.record(map, 1, 9);
    auto somebody = std::make_unique<InTheMap>(recorder, map);
    const ChildStatusRecorder::Visit visit(recorder);
    kelp_test::SingleStep step(n, n, [&] {
      somebody.reset();
      SCOPED_TRACE(n);
      inAChildOf(recorder, map, [&] { expectRecords(recorder, map); });
    });
    reached = step.run([&] { recorder.record(map, 2, 9); });
    somebody.reset();
    recorder.drainAndTopUp(map);
    EXPECT_EQ(map.count(2), 1U);
  }
}

TEST(ChildStatusRecorder, ASignalHandlerMayForkWhileItsThreadIsInTheMap) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, 2);
  const YieldCount counted;
  bool come = false;
  {
    const HeapWatch handler(interruptedBy([&] {
      if (std::exchange(come, true)) {
        return;
      }
      inAChildOf(recorder, map, [&] { EXPECT_FALSE(isOpen(recorder)); });
      recorder.record(map, 3, 3);
      EXPECT_EQ(map.count(3), 0U) << "the thread is in the map again";
    }));
    recorder.drainAndTopUp(map);
  }
  EXPECT_TRUE(come);
  EXPECT_EQ(yields, 0);
  expectRecords(recorder, map);
  EXPECT_EQ(map.count(3), 1U);
}

TEST(ChildStatusRecorder, ForksInSeveralThreadsBesideHandlersAndLookUps) {
  ChildStatusRecorder recorder;
  Map map;
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    while (!done) {
      const ChildStatusRecorder::Visit visit(recorder);
      recorder.record(map, 1, 1);
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  });
  threads.emplace_back([&] {
    for (int status = 0; !done;) {
      recorder.extract(map, 1, status);
    }
  });
  const auto forkMany = [&] {
    for (int i = 0; i < 30; ++i) {
      inAChildOf(recorder, map, [&] { expectRecords(recorder, map); });
    }
  };
  std::thread forking(forkMany);
  forkMany();
  forking.join();
  done = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
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
        while (i - waitingFor.load() > 200) {
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
      while (!recorder.extract(map, 1 + h * each + i, status)) {
        recorder.drainAndTopUp(map);
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
