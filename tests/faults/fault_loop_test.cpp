// What the fault loop finds in operations that do what they should not, and in one that does not.
#include "another_process.h"
#include "examination.h"
#include "job.h"

#include <gtest/gtest.h>

#include <fcntl.h>
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

// In another process, whose standard error nobody reads.
std::string findingsOf(const Operation& examined, const Extent& extent = {}) {
  return endOfAnotherProcess([&] {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    Tally tally{};
    examine(examined, extent, tally);
    _exit(tally.findings != 0 ? 3 : tally.rounds == 0 ? 4 : 0);
  });
}

std::unique_ptr<char[]> block() { return std::make_unique<char[]>(100); }

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
              auto* const volatile memory = static_cast<volatile char*>(std::malloc(10));
              *memory = 'x';
              std::free(const_cast<char*>(memory));
              return std::string("done");
            })),
            some);
}

TEST(FaultLoop, FindsAnEndByExit) {
  EXPECT_EQ(findingsOf(operation([] {
              void* const memory = std::malloc(10);
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
    void* const memory = std::malloc(10);
    while (memory == nullptr) {
      pause();
    }
    std::free(memory);
    return std::string("done");
  });
  hanging.longestSeconds = 1;
  hanging.spared = {Call::anyMemory};
  EXPECT_EQ(findingsOf(hanging), some);
}

TEST(FaultLoop, FindsALeak) {
  EXPECT_EQ(findingsOf(operation([] {
              auto* const first = new int[100];
              const auto second = block();
              delete[] first;
              return std::string("done");
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

}  // namespace
