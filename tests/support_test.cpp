// The tests' own tools: that a watch really refuses, counts and lets go, and so on.
#include "all_texts.h"
#include "another_process.h"
#include "exposed_members.h"
#include "failing_memory.h"
#include "heap.h"
#include "install_root.h"
#include "next_symbol.h"
#include "xerces_memory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using kelp_test::allTexts;
using kelp_test::anyNew;
using kelp_test::endOfAnotherProcess;
using kelp_test::freshByte;
using kelp_test::HeapCall;
using kelp_test::HeapRequest;
using kelp_test::HeapWatch;
using kelp_test::Times;
using testing::ElementsAre;

// ---- the heap

// Compilers know much of what malloc and new give, and leave out what nobody looks at.
void* volatile seen = nullptr;

void* look(void* block) {
  seen = block;
  return seen;
}

// A request and its release. True where a block was given.
bool asks(HeapCall call, size_t size = 10) {
  void* block = nullptr;
  switch (call) {
    case HeapCall::malloc:
      block = look(std::malloc(size));
      std::free(block);
      break;
    case HeapCall::calloc:
      block = look(std::calloc(size, 1));
      std::free(block);
      break;
    case HeapCall::realloc:
      seen = nullptr;  // a compiler that knew this would call malloc
      block = look(std::realloc(seen, size));
      std::free(block);
      break;
    case HeapCall::throwingNew:
      try {
        block = look(::operator new(size));
        ::operator delete(block);
      } catch (const std::bad_alloc&) {
        block = nullptr;
      }
      break;
    case HeapCall::nothrowNew:
      block = look(::operator new(size, std::nothrow));
      ::operator delete(block);
      break;
  }
  return block != nullptr;
}

constexpr HeapCall allCalls[] = {HeapCall::malloc, HeapCall::calloc, HeapCall::realloc,
                                 HeapCall::throwingNew, HeapCall::nothrowNew};

TEST(HeapWatch, SeesEveryKindOfRequestOnceAndByItsKind) {
  for (const HeapCall call : allCalls) {
    HeapWatch watch;
    const bool given = asks(call, 77);
    watch.end();
    EXPECT_TRUE(given);
    EXPECT_EQ(watch.requests(), 1);
    EXPECT_EQ(watch.requests(call), 1);
    EXPECT_EQ(watch.releases(), 1);
    EXPECT_EQ(watch.refused(), 0);
    EXPECT_EQ(watch.blocks(), 0);
    EXPECT_EQ(watch.request(0).size, 77U);
    EXPECT_EQ(watch.given(0), seen);
    EXPECT_EQ(watch.released(0), seen);
  }
}

TEST(HeapWatch, SeesArraysToo) {
  HeapWatch watch;
  delete[] static_cast<char*>(look(new char[33]));
  delete[] static_cast<char*>(look(new (std::nothrow) char[44]));
  watch.end();
  EXPECT_EQ(watch.requests(), 2);
  EXPECT_EQ(watch.requests(anyNew), 2);
  EXPECT_EQ(watch.request(0).size, 33U);
  EXPECT_EQ(watch.request(1).size, 44U);
  EXPECT_EQ(watch.newBlocks(), 0);
}

TEST(HeapWatch, SeesTheTextThatStrdupAsksFor) {
  const char* const volatile text = "a text";
  HeapWatch watch;
  std::free(look(strdup(text)));
  watch.end();
  EXPECT_EQ(watch.requests(HeapCall::malloc), 1);
  EXPECT_EQ(watch.request(0).size, sizeof "a text");
  EXPECT_EQ(watch.blocks(), 0);
  HeapWatch refusing(1);
  char* const copy = strdup(text);
  refusing.end();
  EXPECT_EQ(copy, nullptr);
  std::free(copy);
}

TEST(HeapWatch, RefusesTheNthRequestAndNoOther) {
  for (const HeapCall call : allCalls) {
    HeapWatch watch(2);
    errno = 0;
    const bool first = asks(call);
    const bool second = asks(call);
    const int error = errno;
    const bool third = asks(call);
    watch.end();
    EXPECT_TRUE(first);
    EXPECT_FALSE(second);
    EXPECT_EQ(error, ENOMEM);
    EXPECT_EQ(watch.given(1), nullptr);
    EXPECT_EQ(watch.refused(), 1);
    EXPECT_TRUE(third);
  }
}

TEST(HeapWatch, RefusesAllFromTheNthOn) {
  HeapWatch watch(2, Times::onwards, HeapCall::malloc);
  bool given[4];
  for (bool& each : given) {
    each = asks(HeapCall::malloc);
  }
  watch.end();
  EXPECT_THAT(given, ElementsAre(true, false, false, false));
  EXPECT_EQ(watch.refused(), 3);
}

TEST(HeapWatch, RefusesNoCallsButThoseItIsGiven) {
  for (const HeapCall call : allCalls) {
    for (const HeapCall other : allCalls) {
      HeapWatch watch(1, Times::onwards, call);
      const bool given = asks(other);
      watch.end();
      EXPECT_EQ(given, call != other);
    }
  }
}

TEST(HeapWatch, LetsGoWhenItEnds) {
  { const HeapWatch watch(1, Times::onwards); }
  HeapWatch ended(1, Times::onwards);
  ended.end();
  for (const HeapCall call : allCalls) {
    EXPECT_TRUE(asks(call));
  }
  EXPECT_EQ(ended.requests(), 0);
}

TEST(HeapWatch, CountsTheBlocksThatAreLeftAndThoseThatHaveGone) {
  auto* const before = new int(1);
  void* const grown = std::malloc(10);
  HeapWatch watch;
  void* const left = look(std::malloc(1));
  auto* const another = new int(2);
  seen = another;
  void* const moved = look(std::realloc(grown, 1000));
  delete before;
  std::free(nullptr);
  watch.end();
  EXPECT_EQ(watch.blocks(), 1);
  EXPECT_EQ(watch.newBlocks(), 0);
  EXPECT_EQ(watch.request(2).old, grown);
  std::free(left);
  std::free(moved);
  delete another;
}

TEST(HeapWatch, LeavesOtherThreadsAlone) {
  bool given = false;
  std::thread thread([&given] {
    while (HeapWatch().requests() == 0 && !given) {
      given = asks(HeapCall::malloc);
    }
  });
  HeapWatch watch(1, Times::onwards);
  thread.join();
  watch.end();
  EXPECT_TRUE(given);
  EXPECT_EQ(watch.requests(), 0);
}

TEST(HeapWatch, AsksAFunctionWhoseOwnRequestsItDoesNotSee) {
  std::vector<size_t> sizes;
  HeapWatch watch([&sizes](const HeapRequest& request) {
    sizes.push_back(request.size);
    return request.size != 2;
  });
  const bool first = asks(HeapCall::malloc, 1);
  const bool second = asks(HeapCall::malloc, 2);
  watch.end();
  EXPECT_TRUE(first);
  EXPECT_FALSE(second);
  EXPECT_THAT(sizes, ElementsAre(1U, 2U));
  EXPECT_EQ(watch.requests(), 2);
  EXPECT_EQ(watch.blocks(), 0);
}

TEST(HeapWatch, MayStandWithinAnotherAndEndBeforeOrAfterIt) {
  HeapWatch outer;
  HeapWatch inner(1);
  const bool refused = !asks(HeapCall::malloc);
  outer.end();
  const bool given = asks(HeapCall::malloc);
  inner.end();
  EXPECT_TRUE(refused);
  EXPECT_TRUE(given);
  EXPECT_EQ(outer.requests(), 1);
  EXPECT_EQ(inner.requests(), 2);
}

volatile int requestsInHandler = 0;

void watchInHandler(int /*signal*/) {
  HeapWatch watch(1, Times::onwards, HeapCall::malloc);
  asks(HeapCall::malloc);
  asks(HeapCall::throwingNew);
  watch.end();
  requestsInHandler = watch.requests();
}

TEST(HeapWatch, MayBeMadeInASignalHandlerThatInterruptsARequest) {
  signal(SIGUSR1, watchInHandler);
  HeapWatch watch([](const HeapRequest&) { return raise(SIGUSR1) == 0; });
  const bool given = asks(HeapCall::malloc);
  watch.end();
  signal(SIGUSR1, SIG_DFL);
  EXPECT_TRUE(given);
  EXPECT_EQ(requestsInHandler, 2);
  EXPECT_EQ(watch.requests(), 1);
}

TEST(HeapWatch, RemembersTheFirstRequestsAndCountsOn) {
  HeapWatch watch;
  for (size_t size = 1; size <= 2 * HeapWatch::remembered; ++size) {
    asks(HeapCall::malloc, size);
  }
  watch.end();
  EXPECT_EQ(watch.requests(), static_cast<int>(2 * HeapWatch::remembered));
  EXPECT_EQ(watch.request(HeapWatch::remembered - 1).size, HeapWatch::remembered);
}

bool allFresh(const void* block, size_t size) {
  const auto* const bytes = static_cast<const unsigned char*>(block);
  return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == freshByte; });
}

struct Large {
  char bytes[10000];
};

TEST(Heap, GivesBlocksThatAreFilledThroughout) {
  constexpr size_t size = sizeof(Large);
  const std::unique_ptr<void, void (*)(void*)> block(std::malloc(size), std::free);
  EXPECT_TRUE(allFresh(look(block.get()), size));
  const std::unique_ptr<char[]> array(new char[size]);
  EXPECT_TRUE(allFresh(look(array.get()), size));
  const std::unique_ptr<Large> object(new Large);
  EXPECT_TRUE(allFresh(look(object.get()), sizeof(Large)));
}

bool refusesHundred(const HeapRequest& request) { return request.size != 100; }

TEST(FreshBytes, FillWhatIsGivenForAsLongAsTheyAreSet) {
  {
    const kelp_test::FreshBytes fresh('x');
    const std::unique_ptr<char[]> text(new char[5]);
    EXPECT_EQ(std::string(text.get(), 5), "xxxxx");
  }
  const std::unique_ptr<char[]> text(new char[5]);
  EXPECT_TRUE(allFresh(text.get(), 5));
}

TEST(HeapRule, HoldsInOtherThreadsAndProcessesUntilItIsTakenBack) {
  kelp_test::setHeapRule(refusesHundred);
  bool inThread = true;
  std::thread([&inThread] { inThread = asks(HeapCall::throwingNew, 100); }).join();
  kelp_test::inAnotherProcess([] { EXPECT_FALSE(asks(HeapCall::malloc, 100)); });
  const bool here = asks(HeapCall::nothrowNew, 100);
  kelp_test::setHeapRule(nullptr);
  EXPECT_FALSE(inThread);
  EXPECT_FALSE(here);
  EXPECT_TRUE(asks(HeapCall::malloc, 100));
}

alignas(std::max_align_t) char ownBlock[100];

TEST(HeapLender, GivesNewItsOwnBlocksAndTakesThemBack) {
  static int taken;
  taken = 0;
  kelp_test::HeapLender lender;
  lender.lend = [](size_t size) -> void* { return size == sizeof ownBlock ? ownBlock : nullptr; };
  lender.takeBack = [](void* block) {
    taken += block == ownBlock ? 1 : 0;
    return block == ownBlock;
  };
  kelp_test::setHeapLender(lender);
  void* const lent = look(::operator new(sizeof ownBlock));
  void* const array = look(::operator new[](sizeof ownBlock, std::nothrow));
  void* const other = look(::operator new(sizeof ownBlock - 1));
  ::operator delete(other);
  ::operator delete[](array);
  ::operator delete(lent);
  kelp_test::setHeapLender({});
  EXPECT_EQ(lent, ownBlock);
  EXPECT_EQ(array, ownBlock);
  EXPECT_NE(other, ownBlock);
  EXPECT_EQ(taken, 2);
}

TEST(FailEachAllocation, RefusesEachInTurnOnceAndOnwardsAndThenNone) {
  int runs = 0;
  int threw = 0;
  kelp_test::failEachAllocation([&] { ++runs; },
                                [] {
                                  delete static_cast<int*>(look(new int));
                                  delete static_cast<int*>(look(new int));
                                },
                                [&](bool thrown) { threw += thrown ? 1 : 0; });
  // For each of five kinds one that passes, once and onwards; and two that do not.
  EXPECT_EQ(runs, 2 * (5 + 2));
  EXPECT_EQ(threw, 2 * 2);
}

// ---- the next symbol

bool everyLetterIsUpperCase = false;

}  // namespace

extern "C" int isupper(int c) noexcept {
  static const auto platforms = kelp_test::nextSymbol<decltype(isupper)>("isupper");
  return everyLetterIsUpperCase ? 1 : platforms(c);
}

namespace {

TEST(NextSymbol, IsTheFunctionBehindTheProgramsOwn) {
  int (*volatile asked)(int) = isupper;
  EXPECT_EQ(asked('a'), 0);
  everyLetterIsUpperCase = true;
  const int replaced = asked('a');
  everyLetterIsUpperCase = false;
  EXPECT_EQ(replaced, 1);
}

TEST(NextSymbol, EndsTheProcessWhereThereIsNone) {
  EXPECT_EQ(endOfAnotherProcess([] { kelp_test::nextSymbol<void()>("there_is_no_such_function"); }),
            "signal " + std::to_string(SIGABRT));
}

// ---- texts

TEST(AllTexts, AreAllOfThemTheEmptyOneFirst) {
  EXPECT_THAT(allTexts("", 3), ElementsAre(""));
  EXPECT_THAT(allTexts("ab", 0), ElementsAre(""));
  EXPECT_THAT(allTexts("ab", 2),
              testing::UnorderedElementsAre("", "a", "b", "aa", "ab", "ba", "bb"));
  EXPECT_EQ(allTexts(std::string("\0xyz", 4), 5).size(), 1U + 4 + 16 + 64 + 256 + 1024);
}

TEST(AllTexts, MayConsistOfPieces) {
  std::vector<std::string> texts;
  kelp_test::forEachTextOf({"one", ""}, 2, [&](const std::string& text) { texts.push_back(text); });
  EXPECT_THAT(texts, ElementsAre("", "one", "", "oneone", "one", "one", ""));
}

// ---- fields

class Closed {
 private:
  int m_number = 42;
};
KELP_EXPOSE(Closed, m_number)

TEST(ExposedMember, CanBeReadAndWritten) {
  Closed closed;
  EXPECT_EQ(closed.*memberOf(Closed_m_number{}), 42);
  closed.*memberOf(Closed_m_number{}) = 7;
  EXPECT_EQ(closed.*memberOf(Closed_m_number{}), 7);
}

// ---- another process

TEST(AnotherProcess, TellsHowItEnded) {
  EXPECT_EQ(endOfAnotherProcess([] {}), "exit 0");
  EXPECT_EQ(endOfAnotherProcess([] { _exit(42); }), "exit 42");
  EXPECT_EQ(endOfAnotherProcess([] { raise(SIGKILL); }), "signal 9");
  EXPECT_EQ(endOfAnotherProcess([] { throw std::runtime_error("nobody catches it"); }),
            "signal " + std::to_string(SIGABRT));
}

TEST(AnotherProcess, PassesOnThatACheckFailed) {
  EXPECT_EQ(endOfAnotherProcess([] {
              kelp_test::closeStandardDescriptors(1 | 2 | 4);  // nobody is to read of it
              ADD_FAILURE();
            }),
            "exit 1");
}

TEST(AnotherProcess, ChangesNothingHere) {
  int changed = 0;
  kelp_test::inAnotherProcess([&changed] { changed = 1; });
  EXPECT_EQ(changed, 0);
}

// ---- Xerces-C's memory

TEST(XercesMemory, CountsFailsAndTellsWhatComesLate) {
  kelp_test::XercesMemory memory;
  void* const first = memory.allocate(100);
  void* const second = memory.allocate(10);
  EXPECT_EQ(memory.blocks(), 2U);
  EXPECT_EQ(memory.largest(), 100U);
  memory.deallocate(first);
  EXPECT_EQ(memory.blocks(), 1U);
  memory.failAfter = 1;
  memory.allocate(1);
  EXPECT_THROW(memory.allocate(1), xercesc::OutOfMemoryException);
  EXPECT_EQ(memory.lateCalls(), 0);
  memory.end();
  memory.deallocate(second);
  EXPECT_EQ(memory.lateCalls(), 1);
}

}  // namespace
