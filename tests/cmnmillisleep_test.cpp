#include "cmnmillisleep.h"

#include "another_process.h"
#include "interposed_calls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

namespace {

using kelp_cmn_4_4::millisleep;
using kelp_test::inAnotherProcess;
using kelp_test::Replacements;
using kelp_test::ScopedReplacements;

struct Asked {
  time_t seconds;
  long nanoseconds;
};

std::vector<Asked> nanosleeps;
std::vector<unsigned int> sleeps;
int nanosleepError = 0;

int recordNanosleep(const timespec* duration, timespec* rest) {
  nanosleeps.push_back({duration->tv_sec, duration->tv_nsec});
  EXPECT_EQ(rest, nullptr);
  if (nanosleepError == 0) {
    return 0;
  }
  errno = nanosleepError;
  return -1;
}

unsigned int recordSleep(unsigned int seconds) {
  sleeps.push_back(seconds);
  return 0;
}

// Sleeps that do not sleep, with the given error.
class Recording {
 public:
  explicit Recording(int error) : m_replaced(recording()) {
    nanosleeps.clear();
    sleeps.clear();
    nanosleepError = error;
  }

 private:
  static Replacements recording() {
    Replacements result;
    result.nanosleep = recordNanosleep;
    result.sleep = recordSleep;
    return result;
  }
  ScopedReplacements m_replaced;
};

TEST(Millisleep, SplitsTheTimeIntoSecondsAndNanoseconds) {
  const struct {
    long milliseconds;
    time_t seconds;
    long nanoseconds;
  } cases[] = {
      {0, 0, 0},         {1, 0, 1000000},        {100, 0, 100000000},    {999, 0, 999000000},
      {1000, 1, 0},      {1001, 1, 1000000},     {61234, 61, 234000000}, {5000000000, 5000000, 0},
      {-1, 0, -1000000}, {-1500, -1, -500000000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.milliseconds);
    const Recording recording(0);
    millisleep(c.milliseconds);
    ASSERT_EQ(nanosleeps.size(), 1U);
    EXPECT_EQ(nanosleeps[0].seconds, c.seconds);
    EXPECT_EQ(nanosleeps[0].nanoseconds, c.nanoseconds);
    EXPECT_TRUE(sleeps.empty());
  }
}

TEST(Millisleep, IsNotMisledByAnErrorOfBefore) {
  inAnotherProcess([] {
    const Recording recording(0);
    for (int round = 0; round < 2; ++round) {
      errno = ENOSYS;
      millisleep(1);
    }
    EXPECT_EQ(nanosleeps.size(), 2U);
    EXPECT_TRUE(sleeps.empty());
  });
}

TEST(Millisleep, IsNotRepeatedAfterAnInterruptionOrAnyOtherFailure) {
  for (const int error : {EINTR, EINVAL, EFAULT, EPERM}) {
    SCOPED_TRACE(error);
    const Recording recording(error);
    millisleep(250);
    EXPECT_EQ(nanosleeps.size(), 1U);
    EXPECT_TRUE(sleeps.empty());
  }
}

TEST(Millisleep, ReallySleeps) {
  timespec before{};
  timespec after{};
  clock_gettime(CLOCK_MONOTONIC, &before);
  millisleep(20);
  clock_gettime(CLOCK_MONOTONIC, &after);
  EXPECT_GE((after.tv_sec - before.tv_sec) * 1000000000 + after.tv_nsec - before.tv_nsec, 20000000);
}

// The fallback lasts as long as its process.
TEST(Millisleep, FallsBackToWholeSecondsForGoodWithoutNanosleep) {
  inAnotherProcess([] {
    const Recording recording(ENOSYS);
    millisleep(1);
    EXPECT_EQ(nanosleeps.size(), 1U);
    EXPECT_EQ(sleeps, std::vector<unsigned int>{1});
    nanosleepError = 0;
    millisleep(1);
    EXPECT_EQ(nanosleeps.size(), 1U);
    EXPECT_EQ(sleeps, (std::vector<unsigned int>{1, 1}));
  });
}

// A whole second more than needed for whole seconds is meant.
TEST(Millisleep, FallbackAddsASecondAndCutsTheRest) {
  inAnotherProcess([] {
    const Recording recording(ENOSYS);
    for (const long milliseconds : {0L, 1L, 999L, 1000L, 1001L, 1999L, 2000L, 59500L}) {
      millisleep(milliseconds);
    }
    EXPECT_EQ(sleeps, (std::vector<unsigned int>{1, 1, 1, 2, 2, 2, 3, 60}));
    EXPECT_EQ(nanosleeps.size(), 1U);
  });
}

TEST(Millisleep, OtherFailuresDoNotPreventTheFallbackLater) {
  inAnotherProcess([] {
    const Recording recording(EINTR);
    millisleep(5);
    nanosleepError = ENOSYS;
    millisleep(5);
    EXPECT_EQ(nanosleeps.size(), 2U);
    EXPECT_EQ(sleeps, std::vector<unsigned int>{1});
  });
}

}  // namespace
