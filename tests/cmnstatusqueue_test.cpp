// The queue that signal handlers fill: its order, its growth, and whatever may come between two of
// its instructions. No signal of a child is needed here.
#include "cmnstatusqueue.h"

#include "another_process.h"
#include "interposed_calls.h"
#include "next_symbol.h"
#include "single_step.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <deque>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

std::atomic<int> unmapped{0};  // how often pages were given back

}  // namespace

extern "C" int munmap(void* pages, size_t size) noexcept {
  static const auto platforms = kelp_test::nextSymbol<decltype(munmap)>("munmap");
  ++unmapped;
  return platforms(pages, size);
}

namespace {

using namespace kelp_cmn_4_4;
using kelp_test::Call;
using kelp_test::ScopedFailure;
using kelp_test::Times;

using Record = StatusQueue::Record;

constexpr int firstCapacity = static_cast<int>(StatusQueue::firstCapacity);
constexpr int ringCapacity = 1024;

// Two numbers beyond all others here.
constexpr int interrupted = 1'000'000'000;
constexpr int interrupting = 2'000'000'000;

struct OwnRing {
  std::array<StatusRing::Slot, ringCapacity> slots;
  StatusRing ring{slots.data(), ringCapacity};
};

template <size_t levels>
void pushMany(GrowingStatusQueue<levels>& queue, int first, int count) {
  for (int i = first; i < first + count; ++i) {
    ASSERT_TRUE(queue.push({i, -i})) << i;
  }
}

// The numbers handed out; every status must be that of its number.
template <size_t levels>
std::vector<int> drained(GrowingStatusQueue<levels>& queue) {
  std::vector<int> pids;
  queue.handOut([&pids](Record record) {
    EXPECT_EQ(record.pid, -record.status);
    pids.push_back(record.pid);
    return true;
  });
  return pids;
}

std::vector<int> numbers(int first, int count) {
  std::vector<int> result;
  for (int i = first; i < first + count; ++i) {
    result.push_back(i);
  }
  return result;
}

// --- one ring

TEST(StatusRing, GivesRecordsBackInTheirOrderHoweverOftenItGoesRound) {
  OwnRing own;
  StatusRing& ring = own.ring;
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
  OwnRing own;
  StatusRing& ring = own.ring;
  EXPECT_EQ(ring.used(), 0U);
  EXPECT_EQ(ring.front(), nullptr);
  for (int i = 0; i < ringCapacity; ++i) {
    ASSERT_TRUE(ring.push({i, 0}));
  }
  EXPECT_FALSE(ring.push({-1, 0}));
  ring.pop();
  EXPECT_TRUE(ring.push({-2, 0}));
  EXPECT_FALSE(ring.push({-3, 0}));
  EXPECT_EQ(ring.used(), static_cast<size_t>(ringCapacity));
}

TEST(StatusRing, LosesNothingAmongProducersInSeveralThreads) {
  OwnRing own;
  StatusRing& ring = own.ring;
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
    const Record* record = ring.front();
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
  EXPECT_EQ(ring.used(), 0U);
}

// The ring is never full here, so no record may be refused; a producer that is overtaken between
// two looks must not mistake that for a full ring.
TEST(StatusRing, RefusesNothingWhileThereIsRoom) {
  constexpr int records = 200000;
  const auto own = std::make_unique<OwnRing>();
  StatusRing& ring = own->ring;
  std::atomic<int> waiting{0};
  std::atomic<int> refused{0};
  const auto produce = [&](int first) {
    for (int i = 0; i < records; ++i) {
      while (waiting.fetch_add(1) >= ringCapacity - 100) {
        waiting.fetch_sub(1);
        std::this_thread::yield();
      }
      if (!ring.push({first + i, i})) {
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
    if (const Record* const record = ring.front()) {
      const int producer = record->pid / records;
      ASSERT_LT(last[producer], record->status) << "out of order";
      last[producer] = record->status;
      seen[static_cast<size_t>(record->pid)] = true;
      ring.pop();
      waiting.fetch_sub(1);
      ++taken;
    }
  }
  one.join();
  two.join();
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(ring.used(), 0U);
  EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 2 * records);
}

TEST(StatusRing, ForgetsWhatIsUnfinishedAndNothingElse) {
  for (const int unfinished : {0, 1, 2, 3}) {
    SCOPED_TRACE(unfinished);
    OwnRing own;
    for (int i = 0; i < 4; ++i) {
      ASSERT_TRUE(own.ring.push({i, -i}));
    }
    own.slots[static_cast<size_t>(unfinished)].filled = false;
    own.ring.forgetUnfinished();
    EXPECT_EQ(own.ring.used(), 3U);
    for (int i = 0; i < 4; ++i) {
      if (i != unfinished) {
        ASSERT_NE(own.ring.front(), nullptr);
        EXPECT_EQ(own.ring.front()->pid, i);
        EXPECT_EQ(own.ring.front()->status, -i);
        own.ring.pop();
      }
    }
    EXPECT_EQ(own.ring.used(), 0U);
    EXPECT_EQ(own.ring.front(), nullptr);
  }
}

// --- growth

TEST(StatusQueue, MapsNothingUntilItsFirstRingIsFull) {
  StatusQueue queue;
  const ScopedFailure counted(Call::mmap, ENOMEM, INT_MAX);
  pushMany(queue, 0, firstCapacity);
  EXPECT_EQ(counted.calls(), 0);
  pushMany(queue, firstCapacity, 1);
  EXPECT_EQ(counted.calls(), 1);
  EXPECT_EQ(drained(queue), numbers(0, firstCapacity + 1));
}

TEST(StatusQueue, GivesRecordsBackInTheirOrderHoweverFarItGrew) {
  StatusQueue queue;
  EXPECT_TRUE(queue.empty());
  pushMany(queue, 0, 50 * firstCapacity);
  EXPECT_FALSE(queue.empty());
  EXPECT_EQ(drained(queue), numbers(0, 50 * firstCapacity));
  EXPECT_TRUE(queue.empty());
}

TEST(StatusQueue, UsesItsPagesAgain) {
  StatusQueue queue;
  pushMany(queue, 0, 10 * firstCapacity);
  drained(queue);
  const ScopedFailure counted(Call::mmap, ENOMEM, INT_MAX);
  for (int round = 0; round < 20; ++round) {
    pushMany(queue, 0, 8 * firstCapacity);
    EXPECT_EQ(drained(queue), numbers(0, 8 * firstCapacity));
  }
  EXPECT_EQ(counted.calls(), 0);
}

TEST(StatusQueue, KeepsWhatIsNotTaken) {
  StatusQueue queue;
  pushMany(queue, 0, 3 * firstCapacity);
  for (int next = 0; next < 3 * firstCapacity; next += firstCapacity * 2 / 3) {
    int offered = -1;
    queue.handOut([&](Record record) {
      offered = record.pid;
      return record.pid < next;
    });
    EXPECT_EQ(offered, next);
  }
}

TEST(StatusQueue, LeavesWhatComesWhileItHandsOut) {
  StatusQueue queue;
  const int count = firstCapacity + 3;
  pushMany(queue, 0, count);
  std::vector<int> pids;
  queue.handOut([&](Record record) {
    pids.push_back(record.pid);
    EXPECT_TRUE(queue.push({count + record.pid, -(count + record.pid)}));
    return record.pid < 2 * count;
  });
  EXPECT_EQ(pids, numbers(0, count));
  EXPECT_EQ(drained(queue), numbers(count, count));
}

TEST(StatusQueue, LosesARecordOnlyWhereTheSystemHasNoPages) {
  StatusQueue queue;
  pushMany(queue, 0, firstCapacity);
  {
    const ScopedFailure noPages(Call::mmap, ENOMEM, 1, Times::onwards);
    EXPECT_FALSE(queue.push({interrupted, -interrupted}));
    EXPECT_EQ(noPages.failed(), 1);
  }
  EXPECT_EQ(drained(queue), numbers(0, firstCapacity));
  const ScopedFailure noPages(Call::mmap, ENOMEM, 1, Times::onwards);
  pushMany(queue, 0, firstCapacity);
  EXPECT_EQ(noPages.calls(), 0) << "there is room again";
}

TEST(StatusQueue, LosesARecordWhereItMayGrowNoMore) {
  GrowingStatusQueue<2> queue;
  for (int round = 0; round < 2; ++round) {
    pushMany(queue, 0, (round == 0 ? 3 : 2) * firstCapacity);  // its newest ring is the one in use
    EXPECT_FALSE(queue.push({interrupted, -interrupted}));
    EXPECT_FALSE(queue.empty());
    EXPECT_EQ(drained(queue), numbers(0, (round == 0 ? 3 : 2) * firstCapacity));
    EXPECT_TRUE(queue.empty());
  }
  pushMany(queue, 0, 1);
  queue.forgetUnfinished();
  EXPECT_EQ(drained(queue), numbers(0, 1));
}

TEST(StatusQueue, AgreesWithAPlainQueue) {
  for (unsigned int seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    StatusQueue queue;
    std::deque<int> plain;
    int next = 0;
    for (int step = 0; step < 60; ++step) {
      for (size_t count = random() % firstCapacity; count > 0; --count) {
        ASSERT_TRUE(queue.push({next, -next}));
        plain.push_back(next++);
      }
      size_t wanted = random() % (firstCapacity + firstCapacity / 10);
      queue.handOut([&](Record record) {
        if (wanted == 0) {
          return false;
        }
        --wanted;
        EXPECT_EQ(record.pid, plain.front());
        plain.pop_front();
        return true;
      });
      ASSERT_EQ(queue.empty(), plain.empty());
    }
    EXPECT_EQ(drained(queue), std::vector<int>(plain.begin(), plain.end()));
  }
}

// --- several threads

TEST(StatusQueue, LosesNothingAmongThreadsThatMakeItGrow) {
  constexpr int producers = 4;
  constexpr int each = 20000;
  StatusQueue queue;
  std::atomic<int> finished{0};
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < each; ++i) {
        ASSERT_TRUE(queue.push({p, i}));
      }
      ++finished;
    });
  }
  std::vector<int> next(producers, 0);
  const auto takeAll = [&] {
    queue.handOut([&](Record record) {
      EXPECT_EQ(record.status, next[static_cast<size_t>(record.pid)]++);
      return true;
    });
  };
  while (finished < producers) {
    takeAll();
  }
  takeAll();
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(next, std::vector<int>(producers, each));
  EXPECT_TRUE(queue.empty());
}

// Each thread pushes a number that is greater than all pushed before it, and none waits for the
// consumer, so that rings are left behind while others still push into them.
TEST(StatusQueue, WhatIsPushedAfterAnotherRecordComesOutAfterIt) {
  constexpr int rounds = 20;
  constexpr int total = 30000;
  for (int round = 0; round < rounds; ++round) {
    StatusQueue queue;
    std::atomic<int> last{0};  // the greatest number whose push has ended
    const auto produce = [&] {
      for (int number = 0; number < total;) {
        const int before = last.load();
        number = before + 1;
        ASSERT_TRUE(queue.push({number, before}));
        int seen = before;
        while (seen < number && !last.compare_exchange_weak(seen, number)) {
        }
      }
    };
    std::thread one(produce);
    std::thread two(produce);
    int greatest = 0;
    while (greatest < total) {
      queue.handOut([&](Record record) {
        // Two threads may push the same number; all up to the one before had been pushed.
        EXPECT_GE(greatest, record.status);
        greatest = std::max(greatest, record.pid);
        return true;
      });
    }
    one.join();
    two.join();
  }
}

// --- two producers that make it grow at once

StatusQueue* growing = nullptr;

// As another producer would: pushes while a push asks for pages, which are not refused to this one.
void pushMeanwhile(Call /*call*/, int /*number*/) {
  const kelp_test::Unfailing pagesForThisOne;
  ASSERT_TRUE(growing->push({interrupting, -interrupting}));
}

class FullQueue : public testing::Test {
 protected:
  FullQueue() {
    pushMany(m_queue, 0, firstCapacity);
    growing = &m_queue;
    kelp_test::setCallListener(pushMeanwhile);
  }
  ~FullQueue() override { kelp_test::setCallListener(nullptr); }

  void expectBothRecords() {
    std::vector<int> expected = numbers(0, firstCapacity);
    expected.insert(expected.end(), {interrupting, interrupted});
    EXPECT_EQ(drained(m_queue), expected);
  }

  StatusQueue m_queue;
};

TEST_F(FullQueue, TakesTheRingOfAnotherProducerWhereThereAreNoPagesForItsOwn) {
  const ScopedFailure noPages(Call::mmap, ENOMEM);
  EXPECT_TRUE(m_queue.push({interrupted, -interrupted}));
  EXPECT_EQ(noPages.failed(), 1);
  expectBothRecords();
}

TEST_F(FullQueue, GivesItsPagesBackWhereAnotherProducerWasFirst) {
  const ScopedFailure counted(Call::mmap, ENOMEM, INT_MAX);
  unmapped = 0;
  EXPECT_TRUE(m_queue.push({interrupted, -interrupted}));
  EXPECT_EQ(counted.calls(), 1);
  EXPECT_EQ(unmapped, 1);
  expectBothRecords();
}

// --- between two instructions

using Queue = std::unique_ptr<StatusQueue>;

// A queue that lacks just the room for what a push and its interruption bring.
Queue almostFull() {
  Queue queue = std::make_unique<StatusQueue>();
  pushMany(*queue, 0, firstCapacity - 2);
  return queue;
}

TEST(StatusQueue, APushThatPushesInterruptAnywhereLosesAndDoublesNothing) {
  Queue queue;
  kelp_test::interruptAtEachInstruction(
      [&] { queue = almostFull(); },
      [&] {
        queue->push({interrupted, -interrupted});
      },
      [&] { pushMany(*queue, interrupting, 3); },
      [&](long n) {
        std::vector<int> pids = drained(*queue);
        pids.erase(pids.begin(), pids.begin() + firstCapacity - 2);
        EXPECT_EQ(std::count(pids.begin(), pids.end(), interrupted), 1) << n;
        pids.erase(std::find(pids.begin(), pids.end(), interrupted));
        EXPECT_EQ(pids, numbers(interrupting, 3)) << n;
      });
}

TEST(StatusQueue, APushThatAConsumerInterruptsAnywhereLosesAndDoublesNothing) {
  Queue queue;
  std::vector<int> pids;
  kelp_test::interruptAtEachInstruction(
      [&] {
        queue = almostFull();
        pids.clear();
      },
      [&] {
        queue->push({interrupted, -interrupted});
      },
      [&] {
        pushMany(*queue, interrupting, 1);
        pids = drained(*queue);
        pushMany(*queue, interrupting + 1, 2);
      },
      [&](long n) {
        const std::vector<int> rest = drained(*queue);
        pids.insert(pids.end(), rest.begin(), rest.end());
        EXPECT_EQ(std::vector<int>(pids.begin(), pids.begin() + firstCapacity - 2),
                  numbers(0, firstCapacity - 2));
        pids.erase(pids.begin(), pids.begin() + firstCapacity - 2);
        EXPECT_EQ(std::count(pids.begin(), pids.end(), interrupted), 1) << n;
        pids.erase(std::find(pids.begin(), pids.end(), interrupted));
        EXPECT_EQ(pids, numbers(interrupting, 3)) << n;
        EXPECT_TRUE(queue->empty()) << n;
      });
}

// Every instruction of one and the same pass is followed by a push.
TEST(StatusQueue, AConsumerThatPushesInterruptEverywhereGetsAllInTheirOrder) {
  StatusQueue queue;
  pushMany(queue, 0, firstCapacity - 5);
  int next = firstCapacity - 5;
  std::vector<int> pids;
  pids.reserve(size_t{100} * firstCapacity);
  kelp_test::SingleStep step(1, 10000, [&] {
    queue.push({next, -next});
    ++next;
  });
  EXPECT_TRUE(step.run([&] {
    queue.handOut([&](Record record) {
      pids.push_back(record.pid);
      return true;
    });
  }));
  const std::vector<int> rest = drained(queue);
  pids.insert(pids.end(), rest.begin(), rest.end());
  EXPECT_EQ(pids, numbers(0, next));
}

#ifdef __SANITIZE_ADDRESS__
constexpr int forkEvery = 16;  // a fork takes a hundred times as long there
#else
constexpr int forkEvery = 1;
#endif

// What a thread had begun when another one forked is never finished in the child.
TEST(StatusQueue, GoesOnInTheChildOfAForkWhereverAPushHadCome) {
  for (const int waiting : {0, 5, firstCapacity - 1, firstCapacity}) {
    SCOPED_TRACE(waiting);
    Queue queue = std::make_unique<StatusQueue>();
    pushMany(*queue, 0, waiting);
    drained(*queue);
    pushMany(*queue, 0, waiting);
    int instructions = 0;
    kelp_test::SingleStep step(1, 1000000, [&] {
      if (instructions++ % forkEvery != 0) {
        return;
      }
      kelp_test::inAnotherProcess([&] {
        pushMany(*queue, interrupting, 1);  // another one's, which came later and was finished
        queue->forgetUnfinished();
        pushMany(*queue, interrupting + 1, 2);
        std::vector<int> pids = drained(*queue);
        pids.erase(std::remove(pids.begin(), pids.end(), interrupted), pids.end());
        std::vector<int> expected = numbers(0, waiting);
        for (const int number : numbers(interrupting, 3)) {
          expected.push_back(number);
        }
        EXPECT_EQ(pids, expected);
        EXPECT_TRUE(queue->empty());
        pushMany(*queue, 0, 2 * firstCapacity);
        EXPECT_EQ(drained(*queue), numbers(0, 2 * firstCapacity));
      });
    });
    EXPECT_TRUE(step.run([&] { queue->push({interrupted, -interrupted}); }));
    EXPECT_GT(instructions, 10);
    drained(*queue);
  }
}

}  // namespace
