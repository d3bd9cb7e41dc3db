// What the fault loop finds in operations that do what they should not, and in one that does not.
#include "another_process.h"
#include "calls.h"
#include "examination.h"
#include "job.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

namespace {

using namespace kelp_test;

// A job made of two functions.
template <class Run>
Operation operation(Run run) {
  return function("an operation", run, [](const std::string& result) { return result; });
}

constexpr char none[] = "exit 0";
constexpr char some[] = "exit 3";
constexpr char noRound[] = "exit 4";

void beSilent() {
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
}

// In another process, whose standard error nobody reads.
std::string findingsOf(const Operation& examined, const Extent& extent = {}) {
  return endOfAnotherProcess([&] {
    beSilent();
    Tally tally{};
    examine(examined, extent, tally);
    _exit(tally.findings != 0 ? 3 : tally.rounds == 0 ? 4 : 0);
  });
}

// Who looks at a block: else a compiler may leave out both its making and its end.
void* volatile looker = nullptr;

std::unique_ptr<char[]> block() {
  std::unique_ptr<char[]> result = std::make_unique<char[]>(100);
  looker = result.get();
  return result;
}

void* plainMemory() {
  void* const result = std::malloc(10);
  looker = result;
  return result;
}

TEST(FaultLoop, FindsNothingWhereMemoryThatFailsIsTold) {
  EXPECT_EQ(findingsOf(operation([] {
              const auto first = block();
              const auto second = block();
              return std::string("done");
            })),
            none);
}

TEST(FaultLoop, HasNoRoundsWhereNothingCanFail) {
  EXPECT_EQ(findingsOf(operation([] { return std::string("done"); })), noRound);
}

TEST(FaultLoop, FindsACrash) {
  EXPECT_EQ(findingsOf(operation([] {
              void* const memory = plainMemory();
              *static_cast<volatile char*>(memory) = 'x';
              std::free(memory);
              return std::string("done");
            })),
            some);
}

TEST(FaultLoop, FindsAnEndByExit) {
  EXPECT_EQ(findingsOf(operation([] {
              void* const memory = plainMemory();
              if (memory == nullptr) {
                std::exit(0);
              }
              std::free(memory);
              return std::string("done");
            })),
            some);
}

TEST(FaultLoop, FindsWhatHangs) {
  Operation hanging = operation([] {
    void* const first = plainMemory();
    void* const second = plainMemory();
    while (first == nullptr && second != nullptr) {
      pause();
    }
    std::free(second);
    std::free(first);
    return std::string("done");
  });
  hanging.longestSeconds = 1;
  hanging.spared = {Call::anyMemory};
  EXPECT_EQ(findingsOf(hanging), some);
}

// Two blocks, the first of which is lost where the second cannot be had.
std::string leakOnce() {
  char* const first = block().release();
  const auto second = block();
  delete[] first;
  return "done";
}

TEST(FaultLoop, FindsALeak) { EXPECT_EQ(findingsOf(operation(leakOnce)), some); }

// Leaves blocks that nobody gives back, whatever fails.
void leaveBlocks(int count) {
  const Unfailing unfailing;
  for (volatile int i = 0; i < count; i = i + 1) {
    plainMemory();
  }
}

// The same, each from a place of its own: two to the power of the depth.
[[gnu::noinline]] void leaveBlocksOfManyPlaces(int depth) {
  if (depth == 0) {
    leaveBlocks(1);
  } else {
    leaveBlocksOfManyPlaces(depth - 1);
    looker = nullptr;
    leaveBlocksOfManyPlaces(depth - 1);
    looker = nullptr;
  }
}

template <class Leave>
class AtItsEnd {
 public:
  explicit AtItsEnd(Leave leave) : m_leave(leave) {}
  ~AtItsEnd() { m_leave(); }
  AtItsEnd(const AtItsEnd&) = delete;
  AtItsEnd& operator=(const AtItsEnd&) = delete;

 private:
  const Leave m_leave;
};

TEST(FaultLoop, FindsALeakAmongManyBlocksThatAlwaysStay) {
  EXPECT_EQ(findingsOf(operation([] {
              const AtItsEnd leaving([] { leaveBlocks(100); });
              return leakOnce();
            })),
            some);
}

TEST(FaultLoop, FindsNothingAmongManyBlocksThatAlwaysStay) {
  EXPECT_EQ(findingsOf(operation([] {
              const AtItsEnd leaving([] { leaveBlocks(100); });
              const auto first = block();
              const auto second = block();
              return std::string("done");
            })),
            none);
}

// Such blocks could not be told from the one that is lost.
TEST(FaultLoop, FindsALeakAmongBlocksFromMorePlacesThanItKeeps) {
  EXPECT_EQ(findingsOf(operation([] {
              const AtItsEnd leaving([] { leaveBlocksOfManyPlaces(9); });
              return leakOnce();
            })),
            some);
}

TEST(FaultLoop, FindsADescriptorThatStaysOpen) {
  EXPECT_EQ(findingsOf(operation([] {
              const int descriptor = open("/dev/null", O_RDONLY);
              const auto second = block();
              close(descriptor);
              return std::string("done");
            })),
            some);
}

TEST(FaultLoop, FindsAChildThatIsLeft) {
  EXPECT_EQ(findingsOf(operation([] {
              const pid_t child = fork();
              if (child == 0) {
                _exit(0);
              }
              const auto second = block();
              waitpid(child, nullptr, 0);
              return std::string("done");
            })),
            some);
}

TEST(FaultLoop, FindsAResultThatNobodyAllowed) {
  const auto run = [] { return std::string(access("/", F_OK) == 0 ? "there" : "not there"); };
  Operation examined = operation(run);
  EXPECT_EQ(findingsOf(examined), some);
  examined.allowances = {{{Call::access}, {"not *"}}};
  EXPECT_EQ(findingsOf(examined), none);
  examined.allowances = {{{Call::access}, {"not *"}, Where::child}};
  EXPECT_EQ(findingsOf(examined), some);
  examined.allowances.clear();
  examined.spared = {Call::access};
  EXPECT_EQ(findingsOf(examined), noRound);
}

class Damaging : public Job {
 public:
  void run() override {
    const std::string before = m_text;
    m_text = "damaged";
    const auto second = block();
    m_text = before;
  }
  std::string outcome() override { return m_text; }

 private:
  std::string m_text = "whole";
};

TEST(FaultLoop, FindsAnObjectThatDoesItsNextJobWrong) {
  EXPECT_EQ(findingsOf(operationOf<Damaging>("an operation")), some);
}

class Changing : public Damaging {
 public:
  void run() override {
    m_state = "new";
    const auto second = block();
    m_state = "old";
  }
  std::string state() override { return m_state; }

 private:
  std::string m_state = "old";
};

TEST(FaultLoop, FindsAnExceptionThatLeavesAChange) {
  EXPECT_EQ(findingsOf(operationOf<Changing>("an operation")), some);
}

TEST(FaultLoop, FindsWhatOnlyTheSecondCallDoesWrong) {
  EXPECT_EQ(findingsOf(operation([] {
              static_cast<void>(access("/", F_OK));
              return std::string(access("/", F_OK) == 0 ? "there" : "not there");
            })),
            some);
}

TEST(FaultLoop, FindsWhatFailsInAChild) {
  Operation examined = operation([] {
    const pid_t child = fork();
    if (child == 0) {
      _exit(access("/", F_OK));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return describeEnd(status);
  });
  examined.spared = {Call::waitpid, Call::fork};
  EXPECT_EQ(findingsOf(examined), some);
  examined.allowances = {{{Call::access}, {"exit 255"}, Where::child}};
  EXPECT_EQ(findingsOf(examined), none);
}

TEST(FaultLoop, TriesAShareAndEndsInTime) {
  Extent extent;
  extent.end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  const auto run = [] {
    const auto first = block();
    return std::string("done");
  };
  EXPECT_EQ(findingsOf(operation(run), extent), none);
  extent.end = std::chrono::steady_clock::now();
  EXPECT_EQ(findingsOf(operation(run), extent), noRound);
}

int roundsOf(const Operation& examined, const Extent& extent = {}) {
  const std::string end = endOfAnotherProcess([&] {
    beSilent();
    Tally tally{};
    examine(examined, extent, tally);
    _exit(tally.findings != 0 ? 255 : tally.rounds);
  });
  return std::stoi(end.substr(end.find(' ')));
}

TEST(FaultLoop, TriesAsManyRoundsAsItIsTold) {
  Extent extent;
  extent.rounds = 2;
  EXPECT_EQ(roundsOf(operation([] {
                       const auto first = block();
                       return std::string("done");
                     }),
                     extent),
            2);
}

int errorsOf(Call call) {
  for (const FailingCall& failing : failingCalls()) {
    if (failing.call == call) {
      return static_cast<int>(failing.errors.size());
    }
  }
  return 0;
}

// Each error that a call can give, once and from then on.
TEST(FaultLoop, LetsTheFirstTwoAndTheLastOfALoopSpeakForAll) {
  Operation examined = operation([] {
    for (volatile int i = 0; i < 50; i = i + 1) {
      static_cast<void>(mkdir("/", 0));
    }
    for (volatile int i = 0; i < 2; i = i + 1) {
      static_cast<void>(dup2(-1, -1));
    }
    return std::string("done");
  });
  EXPECT_EQ(roundsOf(examined), (3 * errorsOf(Call::mkdir) + 2 * errorsOf(Call::dup2)) * 2);
}

}  // namespace
