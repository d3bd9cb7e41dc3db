// The way of a child's status from the signal handler into the map, piece by piece and without
// signals.
#include "cmnchildstatus.h"

#include "single_step.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
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

// How often anybody gave way while waiting, and whether that does nothing, as in a real-time thread
// that nobody may run beside.
std::atomic<long> yields{0};
std::atomic<bool> yieldsInVain{false};

thread_local bool refusePages = false;

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

extern "C" int sched_yield() noexcept {
  ++yields;
  return yieldsInVain ? 0 : static_cast<int>(syscall(SYS_sched_yield));
}

extern "C" void* mmap(void* address, size_t size, int access, int flags, int fd,
                      off_t offset) noexcept {
  if (refusePages) {
    errno = ENOMEM;
    return MAP_FAILED;
  }
  // NOLINTNEXTLINE(performance-no-int-to-ptr): what the system call gives
  return reinterpret_cast<void*>(syscall(SYS_mmap, address, size, access, flags, fd, offset));
}

namespace kelp_cmn_4_4 {
namespace {

using Map = ChildStatusRecorder::Map;
constexpr int prepared = static_cast<int>(ChildStatusRecorder::preparedNodes);
constexpr int queued = static_cast<int>(StatusQueue::firstCapacity);

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
  {
    const CountingAllocations counted;
    recordMany(recorder, map, 1, prepared + 20 * queued);
  }
  EXPECT_EQ(allocations, 0);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared));
  recorder.prepare(map);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared + 20 * queued));
}

TEST(ChildStatusRecorder, HandsOutEveryRecordOfMapAndQueueOnce) {
  ChildStatusRecorder recorder;
  Map map;
  const int count = prepared + 3 * queued + 10;
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

TEST(ChildStatusRecorder, KeepsTheLatestOfSeveralRecordsOfAChildAcrossTheQueue) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  recorder.record(map, 5000, 1);  // into the queue
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

TEST(ChildStatusRecorder, TakesARecordIntoTheQueueWhenTheHandlerInterruptsTheMainLineInTheMap) {
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

TEST(ChildStatusRecorder, TheLatestStatusWinsHoweverManyRecordsCome) {
  for (const int count : {prepared, prepared + 1, queued, prepared + queued, 5 * queued}) {
    ChildStatusRecorder recorder;
    Map map;
    for (const int older : {2, 1, 0}) {
      for (int i = 0; i < count; ++i) {
        recorder.record(map, 1 + i, i + older);
      }
    }
    recorder.prepare(map);
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
    const Interrupting handler([&] {
      recorder.record(map, 1000, 0);  // for which there is no node
      recorder.record(map, 1, 5);
    });
    refuseAllocations = true;
    recorder.prepare(map);
    refuseAllocations = false;
  }
  EXPECT_EQ(map.count(1000), 0U);
  recorder.record(map, 1, 6);
  int status = -1;
  EXPECT_TRUE(recorder.take(map, 1, status));
  EXPECT_EQ(status, 6);
}

TEST(ChildStatusRecorder, LosesNoRecordThoughThousandsComeWhileTheMapIsInUse) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared);
  bool come = false;
  {
    const Interrupting handler([&] {
      if (!come) {
        come = true;
        recordMany(recorder, map, 10000, 5 * queued);
      }
    });
    recorder.prepare(map);
  }
  for (int i = 0; i < 5 * queued; ++i) {
    int status = -1;
    ASSERT_TRUE(recorder.take(map, 10000 + i, status)) << i;
    ASSERT_EQ(status, i);
  }
}

TEST(ChildStatusRecorder, LosesARecordOnlyWhereTheSystemHasNoPages) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared + queued);
  refusePages = true;
  recorder.record(map, 100000, 5);
  refusePages = false;
  recorder.record(map, 100001, 6);
  int status = -1;
  EXPECT_FALSE(recorder.take(map, 100000, status));
  EXPECT_TRUE(recorder.take(map, 100001, status));
  EXPECT_EQ(status, 6);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared + queued));
}

// Every instruction of the main line, those of malloc included, is followed by a record.
TEST(ChildStatusRecorder, LosesNothingThoughRecordsComeBetweenAnyTwoInstructions) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, prepared + 3);
  int pid = 1000;
  kelp_test::SingleStep step(1, 4000, [&] {
    recorder.record(map, pid, pid);
    ++pid;
  });
  int status = -1;
  EXPECT_TRUE(step.run([&] { recorder.take(map, 1, status); }));
  EXPECT_EQ(status, 0);
  EXPECT_GT(pid, 1100);
  recorder.prepare(map);
  EXPECT_EQ(map.size(), static_cast<size_t>(prepared + 2 + pid - 1000));
  for (int i = 1000; i < pid; ++i) {
    ASSERT_EQ(map[i], i);
  }
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

TEST(ChildStatusRecorder, NobodyWaitsForAMapThatIsGone) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  const ChildStatusRecorder::Visit endless(recorder);
  recorder.close();
  yields = 0;
  int status = 77;
  EXPECT_FALSE(recorder.take(map, 1, status));
  recorder.prepare(map);
  recorder.record(map, 2, 9);
  std::thread([&] {
    EXPECT_FALSE(recorder.take(map, 1, status));
    recorder.prepare(map);
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
  yields = 0;
  bool found = true;
  {
    const Interrupting handler([&] {
      int status = -1;
      found = recorder.take(map, 2, status);
      recorder.close();
    });
    recorder.prepare(map);
  }
  EXPECT_FALSE(found);
  EXPECT_EQ(yields, 0);
}

// Somebody in the map, in another thread, until he is let go.
class InTheMap {
 public:
  InTheMap(ChildStatusRecorder& recorder, Map& map)
      : handler_([this] {
          if (std::this_thread::get_id() == thread_.get_id() && !inside_.exchange(true)) {
            while (!go_) {
              std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
          }
        }),
        thread_([this, &recorder, &map] {
          while (!started_) {
            std::this_thread::yield();
          }
          recorder.prepare(map);  // allocates, for want of a node
        }) {
    started_ = true;
    while (!inside_) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }
  ~InTheMap() {
    go_ = true;
    thread_.join();
  }
  InTheMap(const InTheMap&) = delete;
  InTheMap& operator=(const InTheMap&) = delete;

  void letGo() { go_ = true; }

 private:
  std::atomic<bool> started_{false};
  std::atomic<bool> inside_{false};
  std::atomic<bool> go_{false};
  const Interrupting handler_;
  std::thread thread_;
};

// In a real-time thread 20,000 yields are over before anybody else has run.
TEST(ChildStatusRecorder, WaitsForATimeAndNotForANumberOfYields) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  InTheMap somebody(recorder, map);
  yieldsInVain = true;
  yields = 0;
  std::thread lettingGo([&] {
    while (yields == 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    somebody.letGo();
  });
  int status = -1;
  EXPECT_TRUE(recorder.take(map, 1, status));
  EXPECT_EQ(status, 9);
  lettingGo.join();
  yieldsInVain = false;
}

// ---- around a fork ----

// The result of a check in the child of a fork.
template <class Check>
int inAChildOf(ChildStatusRecorder& recorder, Map& map, Check check) {
  recorder.beforeFork();
  const pid_t child = fork();
  if (child == 0) {
    recorder.afterForkInChild(map);
    _exit(check() ? 0 : 1);
  }
  recorder.afterFork(map);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

bool isOpen(ChildStatusRecorder& recorder) {
  const ChildStatusRecorder::Visit visit(recorder);
  return static_cast<bool>(visit);
}

// Whether a recorder, whose map lacks these numbers, records at once and gives back.
bool records(ChildStatusRecorder& recorder, Map& map) {
  recorder.record(map, 5000, 1);
  const bool atOnce = map.count(5000) == 1;
  recordMany(recorder, map, 6000, 2 * queued);
  int first = -1;
  int last = -1;
  return isOpen(recorder) && atOnce && recorder.take(map, 5000, first) && first == 1 &&
         recorder.take(map, 6000 + 2 * queued - 1, last) && last == 2 * queued - 1;
}

TEST(ChildStatusRecorder, GoesOnOnBothSidesOfAFork) {
  ChildStatusRecorder recorder;
  Map map;
  for (const int waiting : {0, prepared + 5, prepared + queued}) {
    recordMany(recorder, map, 1, waiting);
    EXPECT_EQ(inAChildOf(recorder, map,
                         [&] {
                           recorder.prepare(map);
                           return map.size() == static_cast<size_t>(waiting) &&
                                  records(recorder, map);
                         }),
              0);
    recorder.prepare(map);
    EXPECT_EQ(map.size(), static_cast<size_t>(waiting));
    EXPECT_TRUE(records(recorder, map));
    map.clear();
    recorder.prepare(map);
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
  yields = 0;
  std::thread lettingGo([&] {
    while (yields == 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    somebody.letGo();
  });
  EXPECT_EQ(inAChildOf(recorder, map, [&] { return records(recorder, map); }), 0);
  lettingGo.join();
}

// A handler in another thread need not be awaited: it is not in the child, nor is its visit.
TEST(ChildStatusRecorder, AForkAwaitsNoVisitAndLeavesItBehind) {
  ChildStatusRecorder recorder;
  Map map;
  const ChildStatusRecorder::Visit endless(recorder);
  yields = 0;
  EXPECT_EQ(inAChildOf(recorder, map, [&] { return records(recorder, map) && yields == 0; }), 0);
  EXPECT_EQ(yields, 0);
}

// The child's map may be half changed then, so nobody touches it, and nobody waits for it.
TEST(ChildStatusRecorder, IsClosedInAChildWhereSomebodyWasChangingTheMap) {
  ChildStatusRecorder recorder;
  Map map;
  recorder.record(map, 1, 9);
  const InTheMap somebody(recorder, map);
  EXPECT_EQ(inAChildOf(recorder, map,
                       [&] {
                         yields = 0;
                         int status = -1;
                         return !isOpen(recorder) && !recorder.take(map, 1, status) && yields == 0;
                       }),
            0);
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
      EXPECT_EQ(inAChildOf(recorder, map, [&] { return records(recorder, map); }), 0) << n;
    });
    reached = step.run([&] { recorder.record(map, 2, 9); });
    somebody.reset();
    recorder.prepare(map);
    EXPECT_EQ(map.count(2), 1U);
  }
}

TEST(ChildStatusRecorder, ASignalHandlerMayForkWhileItsThreadIsInTheMap) {
  ChildStatusRecorder recorder;
  Map map;
  recordMany(recorder, map, 1, 2);
  yields = 0;
  bool come = false;
  {
    const Interrupting handler([&] {
      if (come) {
        return;
      }
      come = true;
      EXPECT_EQ(inAChildOf(recorder, map, [&] { return !isOpen(recorder); }), 0);
      recorder.record(map, 3, 3);
      EXPECT_EQ(map.count(3), 0U) << "the thread is in the map again";
    });
    recorder.prepare(map);
  }
  EXPECT_TRUE(come);
  EXPECT_EQ(yields, 0);
  EXPECT_TRUE(records(recorder, map));
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
      recorder.take(map, 1, status);
    }
  });
  const auto forkMany = [&] {
    for (int i = 0; i < 30; ++i) {
      EXPECT_EQ(inAChildOf(recorder, map, [&] { return records(recorder, map); }), 0);
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
