#include "cmnmillisleep.h"

#include "interposed_calls.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace {

using kelp_cmn_4_4::millisleep;
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
  EXPECT_EQ(nullptr, rest);
  errno = nanosleepError;
  return nanosleepError == 0 ? 0 : -1;
}

unsigned int recordSleep(unsigned int seconds) {
  sleeps.push_back(seconds);
  return 0;
}

// Sleeps that do not sleep, with the given error.
class Recording {
 public:
  explicit Recording(int error) : replaced_(recording()) {
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
  ScopedReplacements replaced_;
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
    ASSERT_EQ(1U, nanosleeps.size());
    EXPECT_EQ(c.seconds, nanosleeps[0].seconds);
    EXPECT_EQ(c.nanoseconds, nanosleeps[0].nanoseconds);
    EXPECT_TRUE(sleeps.empty());
  }
}

TEST(Millisleep, IsNotRepeatedAfterAnInterruptionOrAnyOtherFailure) {
  for (const int error : {EINTR, EINVAL, EFAULT, EPERM}) {
    SCOPED_TRACE(error);
    const Recording recording(error);
    millisleep(250);
    EXPECT_EQ(1U, nanosleeps.size());
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

// The fallback lasts as long as its process, so it happens in a process of its own.
template <class Body>
void inAnotherProcess(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(0, status);
}

TEST(Millisleep, FallsBackToWholeSecondsForGoodWithoutNanosleep) {
  inAnotherProcess([] {
    const Recording recording(ENOSYS);
    millisleep(1);
    EXPECT_EQ(1U, nanosleeps.size());
    EXPECT_EQ(std::vector<unsigned int>{1}, sleeps);
    nanosleepError = 0;
    millisleep(1);
    EXPECT_EQ(1U, nanosleeps.size());
    EXPECT_EQ((std::vector<unsigned int>{1, 1}), sleeps);
  });
}

// A whole second more than needed for whole seconds is meant.
TEST(Millisleep, FallbackAddsASecondAndCutsTheRest) {
  inAnotherProcess([] {
    const Recording recording(ENOSYS);
    for (const long milliseconds : {0L, 1L, 999L, 1000L, 1001L, 1999L, 2000L, 59500L}) {
      millisleep(milliseconds);
    }
    EXPECT_EQ((std::vector<unsigned int>{1, 1, 1, 2, 2, 2, 3, 60}), sleeps);
    EXPECT_EQ(1U, nanosleeps.size());
  });
}

TEST(Millisleep, OtherFailuresDoNotPreventTheFallbackLater) {
  inAnotherProcess([] {
    const Recording recording(EINTR);
    millisleep(5);
    nanosleepError = ENOSYS;
    millisleep(5);
    EXPECT_EQ(2U, nanosleeps.size());
    EXPECT_EQ(std::vector<unsigned int>{1}, sleeps);
  });
}

}  // namespace
