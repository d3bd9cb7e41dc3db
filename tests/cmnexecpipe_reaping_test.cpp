// How ended children are recorded, waited for and reported.
#include "another_process.h"
#include "cmnchildstatus.h"
#include "exec_fixture.h"
#include "heap.h"
#include "interposed_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

using namespace kelp_cmn_4_4;
using namespace kelp_test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int prepared = static_cast<int>(ChildStatusRecorder::preparedNodes);
constexpr int queued = static_cast<int>(StatusQueue::firstCapacity);

pid_t reapedNothing(pid_t, int*, int) { return 0; }

// Children that run on forever, as far as waitpid tells.
class RunningChildren {
 public:
  RunningChildren() : m_scope(replacements()) {}

 private:
  static Replacements replacements() {
    Replacements result;
    result.waitpid = reapedNothing;
    return result;
  }
  ScopedReplacements m_scope;
};

class ExecPipeHandler : public ExecTest {
 protected:
  ExecPipeHandler() { m_pipe.registerTraceLog(m_log); }

  ProbedPipe m_pipe;
};

int waitpidPid = 0;
int waitpidOptions = 0;

TEST_F(ExecPipeHandler, ReapsAnyOneChildWithoutWaiting) {
  Replacements replacements;
  static int calls;
  calls = 0;
  replacements.waitpid = [](pid_t pid, int* status, int options) {
    ++calls;
    waitpidPid = pid;
    waitpidOptions = options;
    *status = 0x1234;
    return fakePid + 1;
  };
  const ScopedReplacements scope(replacements);
  tell(fakePid, 5);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(waitpidPid, -1);
  EXPECT_EQ(waitpidOptions, WNOHANG);
  // The signal's number and status count, not those that waitpid gave; this is meant.
  EXPECT_THAT(ProbedPipe::m_childStatusMap, ElementsAre(std::make_pair(fakePid, 5)));
}

TEST_F(ExecPipeHandler, RecordsAlsoWhenNothingWasReaped) {
  const RunningChildren running;
  tell(fakePid, 7);
  EXPECT_THAT(ProbedPipe::m_childStatusMap, ElementsAre(std::make_pair(fakePid, 7)));
}

TEST_F(ExecPipeHandler, RecordsNothingWhenWaitpidFails) {
  for (const int error : {ECHILD, EINTR}) {
    const ScopedFailure failure(Call::waitpid, error);
    tell(fakePid, 7);
    EXPECT_EQ(failure.failed(), 1);
  }
  tell(fakePid, 7);  // there are no children
  EXPECT_THAT(ProbedPipe::m_childStatusMap, IsEmpty());
}

TEST_F(ExecPipeHandler, RecordsNothingWithoutInformationButReaps) {
  static int calls;
  calls = 0;
  Replacements replacements;
  replacements.waitpid = [](pid_t, int*, int) -> pid_t { return ++calls; };
  const ScopedReplacements scope(replacements);
  CCmnExecPipePosix::GetChildStatus(SIGCHLD, nullptr, nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(ProbedPipe::m_childStatusMap, IsEmpty());
}

TEST_F(ExecPipeHandler, OverwritesAnOlderRecord) {
  const RunningChildren running;
  tell(fakePid, 7);
  tell(fakePid, 9);
  tell(fakePid + 1, 1);
  EXPECT_THAT(ProbedPipe::m_childStatusMap,
              ElementsAre(std::make_pair(fakePid, 9), std::make_pair(fakePid + 1, 1)));
}

TEST_F(ExecPipeHandler, KeepsErrno) {
  {
    const RunningChildren running;
    errno = 4711;
    tell(fakePid, 7);
    EXPECT_EQ(errno, 4711);
  }
  const ScopedFailure failure(Call::waitpid, ECHILD);
  errno = 4712;
  tell(fakePid, 7);
  EXPECT_EQ(errno, 4712);
}

TEST_F(ExecPipeHandler, AllocatesNothing) {
  const RunningChildren running;
  HeapWatch watch;
  for (int i = 0; i < prepared + 20 * queued; ++i) {
    tell(fakePid + i, i);
  }
  watch.end();
  EXPECT_EQ(watch.requests(), 0);
}

void expectAllFound(ProbedPipe& pipe, int count) {
  for (int i = 0; i < count; ++i) {
    int status = -1;
    ASSERT_TRUE(pipe.CheckChildStatusMap(fakePid + i, &status)) << i;
    ASSERT_EQ(status, i % 256) << i;
    ASSERT_FALSE(pipe.CheckChildStatusMap(fakePid + i, &status)) << i;
  }
  EXPECT_THAT(ProbedPipe::m_childStatusMap, IsEmpty());
}

TEST_F(ExecPipeHandler, LosesNothingHoweverManyRecordsWait) {
  m_pipe.registerTraceLog(Log());
  for (const int count :
       {1, prepared - 1, prepared, prepared + 1, prepared + 2, prepared + queued - 1,
        prepared + queued, prepared + queued + 1, prepared + queued + 2, prepared + 9 * queued}) {
    SCOPED_TRACE(count);
    {
      const RunningChildren running;
      for (int i = 0; i < count; ++i) {
        tell(fakePid + i, i % 256);
      }
    }
    expectAllFound(m_pipe, count);
  }
}

TEST_F(ExecPipeHandler, TheLastStatusOfANumberWinsHoweverManyRecordsWait) {
  m_pipe.registerTraceLog(Log());
  for (const int count : {prepared, prepared + 1, prepared + queued, prepared + queued + 1,
                          prepared + queued + 100}) {
    SCOPED_TRACE(count);
    {
      const RunningChildren running;
      for (const int older : {2, 1, 0}) {
        for (int i = 0; i < count; ++i) {
          tell(fakePid + i, (i + older) % 256);
        }
      }
    }
    expectAllFound(m_pipe, count);
  }
}

TEST_F(ExecPipeHandler, ShowsPreparedRecordsInTheMapAtOnce) {
  int ignored = 0;
  m_pipe.CheckChildStatusMap(fakePid, &ignored);  // tops up
  const RunningChildren running;
  for (int i = 1; i <= prepared; ++i) {
    tell(fakePid + i, 0);
    EXPECT_EQ(ProbedPipe::m_childStatusMap.size(), static_cast<size_t>(i));
  }
}

TEST_F(ExecPipeHandler, StartingACommandTakesWaitingRecordsIntoTheMap) {
  {
    const RunningChildren running;
    for (int i = 0; i < prepared + 400; ++i) {
      tell(fakePid + i, i % 256);
    }
  }
  const BlockedChildSignal blocked;
  Lines output;
  EXPECT_EQ(m_pipe.run(hostile("exit 0"), output), execPipeOk);
  EXPECT_EQ(ProbedPipe::m_childStatusMap.size(), static_cast<size_t>(prepared + 400));
}

// It comes while the main line is in the map, as a signal may come there.
TEST_F(ExecPipeHandler, KeepsARecordThatComesWhileTheMapIsInUse) {
  const RunningChildren running;
  tell(fakePid, 1);  // takes a prepared node, which has to be made good
  bool come = false;
  HeapWatch watch([&come](const HeapRequest&) {
    if (!std::exchange(come, true)) {
      tell(fakePid + 1, 2);
    }
    return true;
  });
  int status = -1;
  const bool found = m_pipe.CheckChildStatusMap(fakePid + 2, &status);
  watch.end();
  EXPECT_FALSE(found);
  ASSERT_TRUE(come);
  EXPECT_EQ(ProbedPipe::m_childStatusMap.count(fakePid + 1), 0U) << "nobody else may change it";
  tell(fakePid + 3, 3);  // the next one takes it along
  EXPECT_EQ(ProbedPipe::m_childStatusMap.count(fakePid + 1), 1U);
  EXPECT_EQ(ProbedPipe::m_childStatusMap.count(fakePid + 3), 1U);
  EXPECT_TRUE(m_pipe.CheckChildStatusMap(fakePid + 1, &status));
  EXPECT_EQ(status, 2);
  EXPECT_TRUE(m_pipe.CheckChildStatusMap(fakePid, &status));
  EXPECT_EQ(status, 1);
}

// --- a child that ends when the process has destroyed the library's static objects

constexpr int checksHold = 42;
bool (*checkedAtExit)() = nullptr;  // GoogleTest has ended by then
int waitsAtExit = 0;
int yieldsAtExit = 0;

// Runs last of all when the process exits, because it is registered first of all.
void checkAtExit(int, void*) {
  if (checkedAtExit != nullptr) {
    _exit(checkedAtExit() ? checksHold : 1);
  }
}

// Not with atexit, which would bind it to the end of this program's own static objects.
void registerCheck() { on_exit(checkAtExit, nullptr); }

// What stands here is called before any library is initialized.
__attribute__((section(".preinit_array"), used)) void (*const beforeAnything)() = registerCheck;

TEST_F(ExecPipeHandler, DoesNothingOnceTheMapIsDestroyed) {
  const BlockedChildSignal blocked;  // an earlier test may have installed the handler
  const std::string end = endOfAnotherProcess([] {
    checkedAtExit = [] {
      tell(fakePid, 1);
      return waitsAtExit == 0;
    };
    Replacements replacements;
    replacements.waitpid = [](pid_t, int*, int) {
      ++waitsAtExit;
      return 0;
    };
    new ScopedReplacements(replacements);
    std::exit(0);
  });
  EXPECT_EQ(end, "exit " + std::to_string(checksHold));
}

// A command that a late destructor of the host runs.
TEST_F(ExecPipeHandler, ACommandWaitsForNobodyOnceTheMapIsDestroyed) {
  const BlockedChildSignal blocked;
  const std::string end = endOfAnotherProcess([] {
    checkedAtExit = [] {
      yieldsAtExit = 0;  // a search for leaks may have yielded before
      unblockSignals();
      Lines output;
      ProbedPipe late;
      return late.run(hostile("say late 3"), output) == execPipeExitStatus &&
             output == Lines{"late"} && yieldsAtExit == 0;
    };
    Replacements replacements;
    replacements.schedYield = [] {
      ++yieldsAtExit;
      return realCalls().schedYield();
    };
    new ScopedReplacements(replacements);
    std::exit(0);
  });
  EXPECT_EQ(end, "exit " + std::to_string(checksHold));
}

// --- the child of a fork by a host with threads

// Somebody who is in the map, in another thread, when the host forks: until the host waits for him,
// or has forked without.
std::atomic<bool> someoneIsInTheMap{false};
std::atomic<bool> hostHasForked{false};

bool stayInTheMap(const HeapRequest& /*request*/) {
  if (!someoneIsInTheMap.exchange(true)) {
    while (!hostHasForked) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }
  return true;
}

void runACommandInAChildOfTheHost() {
  inAnotherProcess([] {
    unblockSignals();
    Lines output;
    ProbedPipe pipe;
    EXPECT_EQ(pipe.run(hostile("say x"), output), execPipeOk);
    EXPECT_THAT(output, ElementsAre("x"));
  });
}

TEST_F(ExecPipeHandler, CommandsRunInTheChildOfAHostWhoseOtherThreadIsInTheMap) {
  const BlockedChildSignal blocked;
  {
    const RunningChildren running;
    tell(fakePid, 1);  // takes a prepared node, which has to be made good
  }
  someoneIsInTheMap = false;
  hostHasForked = false;
  Replacements replacements;
  replacements.schedYield = [] {
    hostHasForked = true;
    return realCalls().schedYield();
  };
  const ScopedReplacements scope(replacements);
  std::thread looking([] {
    ProbedPipe other;
    int status = 0;
    const HeapWatch watch(stayInTheMap);
    other.CheckChildStatusMap(fakePid + 1, &status);
  });
  EXPECT_TRUE(eventually([] { return someoneIsInTheMap.load(); }));
  runACommandInAChildOfTheHost();
  hostHasForked = true;
  looking.join();
}

TEST_F(ExecPipeHandler, CommandsRunInTheChildrenOfAHostThatLooksUpAllTheTime) {
  const BlockedChildSignal blocked;
  std::atomic<bool> done{false};
  std::thread looking([&done] {
    ProbedPipe other;
    for (int status = 0; !done;) {
      other.CheckChildStatusMap(fakePid, &status);
    }
  });
  for (int i = 0; i < 60; ++i) {
    runACommandInAChildOfTheHost();
  }
  done = true;
  looking.join();
}

TEST_F(ExecPipeHandler, RecordsTheHostsOwnChildrenToo) {
  Lines output;
  ASSERT_EQ(m_pipe.run(hostile("exit 0"), output), execPipeOk);
  const pid_t child = fork();
  if (child == 0) {
    _exit(42);
  }
  ASSERT_TRUE(ProbedPipe::awaitRecord(child));
  const BlockedChildSignal blocked;
  EXPECT_EQ(ProbedPipe::m_childStatusMap[child], 42);
  EXPECT_EQ(waitpid(child, nullptr, WNOHANG), -1);
}

TEST_F(ExecPipeHandler, RecordsExitCodesAndSignalNumbersPlain) {
  const struct {
    const char* mode;
    int status;
  } cases[] = {{"exit 0", 0}, {"exit 3", 3}, {"exit 255", 255}, {"die 9", 9}, {"die 15", 15}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    ASSERT_EQ(m_pipe.ExecPipe(hostile(c.mode), ""), execPipeOk);
    ASSERT_TRUE(ProbedPipe::awaitRecord(m_pipe.m_childPid));
    {
      const BlockedChildSignal blocked;
      EXPECT_EQ(ProbedPipe::m_childStatusMap[m_pipe.m_childPid], c.status);
    }
    m_pipe.Close(10);
  }
}

TEST_F(ExecPipeHandler, CheckingTakesTheRecordOutAndTracesIt) {
  ProbedPipe::m_childStatusMap = {{4711, 3}, {4712, 0}, {4713, 1}};
  int status = 77;
  EXPECT_FALSE(m_pipe.CheckChildStatusMap(4710, &status));
  EXPECT_EQ(status, 77);
  EXPECT_THAT(traced(), IsEmpty());
  EXPECT_TRUE(m_pipe.CheckChildStatusMap(4711, &status));
  EXPECT_EQ(status, 3);
  EXPECT_TRUE(m_pipe.CheckChildStatusMap(4712, &status));
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(m_pipe.CheckChildStatusMap(4711, &status));
  EXPECT_THAT(ProbedPipe::m_childStatusMap, ElementsAre(std::make_pair(4713, 1)));
  EXPECT_THAT(
      traced(),
      ElementsAre(
          "CheckChildStatus: child already exited with non-zero exit status of 3 (pid:4711)",
          "CheckChildStatusMap: child already exited with 0 status (child pid:4712, ret:0)"));
}

TEST_F(ExecPipeHandler, DetailsNeedTraceLevelThree) {
  m_pipe.registerTraceLog(openLog(2));
  ProbedPipe::m_childStatusMap = {{fakePid, 3}};
  m_pipe.m_childPid = fakePid;
  EXPECT_EQ(m_pipe.WaitPid(0), 3);
  EXPECT_THAT(traced(), IsEmpty());
  m_pipe.m_childPid = -1;
}

TEST_F(ExecPipeHandler, WorksWithoutATraceLog) {
  m_pipe.registerTraceLog(Log());
  ProbedPipe::m_childStatusMap = {{4711, 3}};
  int status = 0;
  EXPECT_TRUE(m_pipe.CheckChildStatusMap(4711, &status));
  EXPECT_EQ(m_pipe.WaitPid(0), -1);
}

// --- waiting, by a clock of the test's own

struct Kill {
  long atMilliseconds;
  pid_t pid;
  int signalNumber;
  bool operator==(const Kill& other) const {
    return atMilliseconds == other.atMilliseconds && pid == other.pid &&
           signalNumber == other.signalNumber;
  }
};

void PrintTo(const Kill& kill, std::ostream* out) {
  *out << "{" << kill.atMilliseconds << " ms, " << kill.pid << ", signal " << kill.signalNumber
       << "}";
}

struct FakeSystem {
  long milliseconds = 0;          // the time
  std::vector<Kill> kills;        // what was sent
  int killError = 0;              // what sending fails with
  std::vector<long> polls;        // when waitpid was called for the child
  long endsAt = LONG_MAX;         // when waitpid finds the child ended
  int status = 0;                 // and its status
  int waitError = 0;              // or what waitpid fails with from then on
  int recordOnFailure = INT_MIN;  // what the handler records just before waitpid fails
  pid_t found = fakePid;          // what waitpid returns then
} fake;

time_t fakeTime(time_t* now) {
  EXPECT_EQ(now, nullptr);
  return fake.milliseconds / 1000;
}

int fakeNanosleep(const timespec* duration, timespec*) {
  EXPECT_EQ(duration->tv_sec, 0);
  EXPECT_EQ(duration->tv_nsec, 100000000);
  fake.milliseconds += 100;
  errno = EINTR;
  return -1;
}

pid_t fakeWaitpid(pid_t pid, int* status, int options) {
  if (pid == -1) {
    return 0;  // the handler's
  }
  EXPECT_EQ(pid, fakePid);
  EXPECT_EQ(options, WNOHANG);
  fake.polls.push_back(fake.milliseconds);
  if (fake.milliseconds < fake.endsAt) {
    return 0;
  }
  if (fake.waitError != 0) {
    if (fake.recordOnFailure != INT_MIN) {
      tell(fakePid, fake.recordOnFailure);
    }
    errno = fake.waitError;
    return -1;
  }
  *status = fake.status;
  return fake.found;
}

int fakeKill(pid_t pid, int signalNumber) {
  fake.kills.push_back({fake.milliseconds, pid, signalNumber});
  errno = fake.killError;
  return fake.killError == 0 ? 0 : -1;
}

class ExecPipeWaitPid : public ExecPipeHandler {
 protected:
  ExecPipeWaitPid() : m_scope(replacements()) {
    fake = FakeSystem();
    m_pipe.m_childPid = fakePid;
  }
  ~ExecPipeWaitPid() override { m_pipe.m_childPid = -1; }

  static Replacements replacements() {
    Replacements result;
    result.time = fakeTime;
    result.nanosleep = fakeNanosleep;
    result.waitpid = fakeWaitpid;
    result.kill = fakeKill;
    return result;
  }

 private:
  ScopedReplacements m_scope;
};

const std::string pidText = std::to_string(fakePid);
const std::string notInMap = "CCmnExecPipePosix::WaitPid: child pid " + pidText +
                             " not in childStatusMap, calling waitpid()";
const std::string hung = "CCmnExecPipePosix::WaitPid ERROR: child process appears to be hung";

std::string foundInMap(int status) {
  return "CCmnExecPipePosix::WaitPid: found child pid " + pidText + " in map, returning " +
         std::to_string(status);
}

Lines without(const std::string& line, Lines lines) {
  lines.erase(std::remove(lines.begin(), lines.end(), line), lines.end());
  return lines;
}

TEST_F(ExecPipeWaitPid, WithoutAChildFailsAtOnce) {
  for (const int pid : {-1, 0, -4711}) {
    m_pipe.m_childPid = pid;
    EXPECT_EQ(m_pipe.WaitPid(10), -1);
    EXPECT_EQ(m_pipe.m_childPid, pid);
  }
  EXPECT_EQ(traced(), Lines(3, "CCmnExecPipePosix::WaitPid ERROR: invalid child process pid"));
  EXPECT_THAT(fake.polls, IsEmpty());
  EXPECT_THAT(fake.kills, IsEmpty());
}

TEST_F(ExecPipeWaitPid, TakesTheRecordFirst) {
  for (const int status : {3, 0, -1}) {
    m_log = openLog(3);
    m_pipe.registerTraceLog(m_log);
    fake.endsAt = 0;
    fake.status = 0x700;
    ProbedPipe::m_childStatusMap[fakePid] = status;
    EXPECT_EQ(m_pipe.WaitPid(10), status);
    EXPECT_THAT(fake.polls, IsEmpty());
    ASSERT_EQ(traced().size(), 2U);
    EXPECT_EQ(traced()[1], foundInMap(status));
    EXPECT_EQ(m_pipe.m_childPid, fakePid) << "which Close() changes";
    EXPECT_THAT(ProbedPipe::m_childStatusMap, IsEmpty());
  }
}

TEST_F(ExecPipeWaitPid, GivesTheRawStatusFromWaitpid) {
  for (const int status : {0, 0x300, 9, 0x7f, 0x137f, 0xffff}) {
    fake.polls.clear();
    fake.endsAt = 0;
    fake.status = status;
    EXPECT_EQ(m_pipe.WaitPid(10), status);
    EXPECT_EQ(fake.polls.size(), 1U);
    EXPECT_EQ(m_pipe.m_childPid, fakePid);
  }
  EXPECT_EQ(traced(), Lines(6, notInMap));
}

TEST_F(ExecPipeWaitPid, AsksEveryHundredMilliseconds) {
  fake.endsAt = 500;
  EXPECT_EQ(m_pipe.WaitPid(10), 0);
  EXPECT_THAT(fake.polls, ElementsAre(0, 100, 200, 300, 400, 500));
  EXPECT_EQ(traced(), Lines(6, notInMap));
  EXPECT_THAT(fake.kills, IsEmpty());
}

TEST_F(ExecPipeWaitPid, FindsARecordThatComesBetweenTwoPolls) {
  Replacements replacements = ExecPipeWaitPid::replacements();
  replacements.nanosleep = [](const timespec*, timespec*) {
    fake.milliseconds += 100;
    tell(fakePid, 5);
    return 0;
  };
  const ScopedReplacements scope(replacements);
  EXPECT_EQ(m_pipe.WaitPid(10), 5);
  EXPECT_EQ(fake.polls.size(), 1U);
}

TEST_F(ExecPipeWaitPid, ConsultsTheMapOnceMoreWhenTheHandlerCameBetween) {
  for (const int status : {0, 4}) {
    m_log = openLog(3);
    m_pipe.registerTraceLog(m_log);
    fake.endsAt = 0;
    fake.waitError = ECHILD;
    fake.recordOnFailure = status;
    EXPECT_EQ(m_pipe.WaitPid(10), status);
    ASSERT_EQ(traced().size(), 3U);
    EXPECT_EQ(traced()[0], notInMap);
    EXPECT_EQ(traced()[2], foundInMap(status));
  }
}

TEST_F(ExecPipeWaitPid, FailsForAChildThatNobodyKnows) {
  fake.endsAt = 0;
  fake.waitError = ECHILD;
  EXPECT_EQ(m_pipe.WaitPid(10), -1);
  EXPECT_EQ(fake.polls.size(), 1U);
  EXPECT_THAT(traced(), ElementsAre(notInMap));
  EXPECT_THAT(fake.kills, IsEmpty());
}

TEST_F(ExecPipeWaitPid, OtherFailuresAndOtherChildrenAreAskedAgain) {
  fake.endsAt = 0;
  for (const int error : {EINTR, EINVAL}) {
    fake.waitError = error;
    fake.kills.clear();
    EXPECT_EQ(m_pipe.WaitPid(0), -1);
    EXPECT_EQ(fake.kills.size(), 2U);
  }
  fake.waitError = 0;
  fake.found = fakePid + 1;
  EXPECT_EQ(m_pipe.WaitPid(0), -1);
}

// Only a failed waitpid has an errno: one left over from before means nothing.
TEST_F(ExecPipeWaitPid, ARunningChildIsNotTakenForAnUnknownOne) {
  Replacements replacements = ExecPipeWaitPid::replacements();
  replacements.waitpid = [](pid_t, int*, int) {
    errno = ECHILD;
    return fake.milliseconds < 300 ? 0 : fakePid;
  };
  const ScopedReplacements scope(replacements);
  m_pipe.WaitPid(10);
  EXPECT_EQ(fake.milliseconds, 300);
}

TEST_F(ExecPipeWaitPid, EscalatesFromPollingToTerminatingToKilling) {
  m_pipe.registerTraceLog(Log());
  // The clock's whole seconds count, so a period of n lasts up to n + 1.
  const struct {
    long timeoutSeconds;
    long startsAt;
    long terminatedAt;
    long killedAt;
    long givenUpAt;
  } cases[] = {
      {10, 0, 11000, 22000, 33000},     {1, 0, 2000, 4000, 6000},
      {0, 0, 1000, 2000, 3000},         {0, 700, 1000, 2000, 3000},
      {10, 5900, 16000, 27000, 38000},  {29, 0, 30000, 60000, 90000},
      {30, 0, 31000, 62000, 93000},     {31, 0, 32000, 63000, 94000},
      {100, 0, 101000, 132000, 163000}, {-1, 0, 0, 0, 0},
      {-50, 300, 300, 300, 300},        {LONG_MIN, 0, 0, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.timeoutSeconds);
    fake = FakeSystem();
    fake.milliseconds = c.startsAt;
    EXPECT_EQ(m_pipe.WaitPid(c.timeoutSeconds), -1);
    EXPECT_THAT(fake.kills, ElementsAre(Kill{c.terminatedAt, fakePid, SIGTERM},
                                        Kill{c.killedAt, fakePid, SIGKILL}));
    EXPECT_EQ(fake.milliseconds, c.givenUpAt);
    EXPECT_EQ(static_cast<long>(fake.polls.size()), (c.givenUpAt - c.startsAt) / 100);
    EXPECT_EQ(m_pipe.m_childPid, fakePid);
  }
}

TEST_F(ExecPipeWaitPid, TracesAChildThatHangs) {
  EXPECT_EQ(m_pipe.WaitPid(0), -1);
  EXPECT_THAT(without(notInMap, traced()), ElementsAre(hung));
  EXPECT_EQ(traced().back(), hung);
}

TEST_F(ExecPipeWaitPid, ReapsAChildThatTheSignalsEnded) {
  m_pipe.registerTraceLog(Log());
  for (const long endsAt : {11000L, 15000L, 22000L, 32900L}) {
    fake = FakeSystem();
    fake.endsAt = endsAt;
    fake.status = SIGTERM;
    EXPECT_EQ(m_pipe.WaitPid(10), SIGTERM);
    EXPECT_EQ(fake.milliseconds, endsAt);
    EXPECT_EQ(fake.kills.size(), endsAt < 22000 ? 1U : 2U);
  }
}

TEST_F(ExecPipeWaitPid, FailuresToSignalAreTracedAndTheEscalationGoesOn) {
  for (const int error : {ESRCH, EPERM}) {
    fake = FakeSystem();
    fake.killError = error;
    m_log = openLog(1);
    m_pipe.registerTraceLog(m_log);
    EXPECT_EQ(m_pipe.WaitPid(10), -1);
    EXPECT_EQ(fake.kills.size(), 2U);
    EXPECT_THAT(traced(), ElementsAre("CCmnExecPipePosix::WaitPid ERROR: kill(" + pidText +
                                          ", SIGTERM) failed, errno " + std::to_string(error),
                                      "CCmnExecPipePosix::WaitPid ERROR: kill(" + pidText +
                                          ", SIGKILL) failed, errno " + std::to_string(error),
                                      hung));
  }
}

// --- closing

// Answers WaitPid from the test.
class DecodingPipe : public ProbedPipe {
 public:
  int status = 0;
  std::vector<long> asked;
  int WaitPid(long timeoutSeconds) override {
    asked.push_back(timeoutSeconds);
    return status;
  }
  int closeWith(int value) {
    status = value;
    m_childPid = fakePid;
    m_commandLine = "the command";
    m_lastError = ECmnExecPipe("old", 99);
    return Close(10);
  }
};

int decoded(int status) {
  const auto bits = static_cast<unsigned int>(status);
  return status == -1              ? execPipeWaitFailed
         : bits % 128 == 127       ? execPipeUnexpectedStatus
         : bits % 128 != 0         ? execPipeSignalled
         : (bits / 256) % 256 != 0 ? execPipeExitStatus
                                   : execPipeOk;
}

void expectDecoded(DecodingPipe& pipe, int status) {
  const int code = pipe.closeWith(status);
  ASSERT_EQ(code, decoded(status)) << status;
  ASSERT_EQ(pipe.m_childPid, -1) << status;
  const ECmnExecPipe error = pipe.getLastError();
  ASSERT_EQ(error.m_code, code == 0 ? 99 : code) << status;
  ASSERT_EQ(error.m_command, code == 0 ? "old" : "the command") << status;
  ASSERT_EQ(error.m_message, L"") << status;
  ASSERT_EQ(error.m_detail, 0) << status;
}

TEST(ExecPipeClose, DecodesEveryWaitStatus) {
  DecodingPipe pipe;
  for (int status = 0; status <= 0x1ffff; ++status) {
    ASSERT_NO_FATAL_FAILURE(expectDecoded(pipe, status));
  }
  for (const int status : {-1, -2, -128, -129, -256, -257, INT_MIN, INT_MAX, 0x7fffff80}) {
    ASSERT_NO_FATAL_FAILURE(expectDecoded(pipe, status));
  }
}

TEST(ExecPipeClose, TellsExitsSignalsStopsAndFailuresApart) {
  DecodingPipe pipe;
  EXPECT_EQ(pipe.closeWith(0), execPipeOk);
  EXPECT_EQ(pipe.closeWith(3 << 8), execPipeExitStatus);
  EXPECT_EQ(pipe.closeWith(255 << 8), execPipeExitStatus);
  EXPECT_EQ(pipe.closeWith(SIGTERM), execPipeSignalled);
  EXPECT_EQ(pipe.closeWith(SIGSEGV | 0x80), execPipeSignalled);
  EXPECT_EQ(pipe.closeWith(0x137f), execPipeUnexpectedStatus);
  EXPECT_EQ(pipe.closeWith(-1), execPipeWaitFailed);
}

TEST(ExecPipeClose, PassesTheTimeOutToWaitPid) {
  DecodingPipe pipe;
  for (const long timeout : {0L, 10L, -1L, LONG_MAX}) {
    pipe.m_childPid = fakePid;
    pipe.Close(timeout);
  }
  EXPECT_THAT(pipe.asked, ElementsAre(0, 10, -1, LONG_MAX));
}

TEST(ExecPipeClose, WithNothingOpenDoesNothing) {
  DecodingPipe pipe;
  pipe.m_lastError = ECmnExecPipe("old", 99);
  EXPECT_EQ(pipe.Close(10), execPipeOk);
  EXPECT_EQ(pipe.Close(10), execPipeOk);
  EXPECT_THAT(pipe.asked, IsEmpty());
  EXPECT_EQ(pipe.getLastError().m_code, 99);
}

TEST(ExecPipeClose, ClosesTheReadEndAlsoWithoutAChild) {
  DecodingPipe pipe;
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  pipe.m_readFd = ends[0];
  EXPECT_EQ(pipe.Close(10), execPipeOk);
  EXPECT_EQ(pipe.m_readFd, -1);
  EXPECT_EQ(close(ends[0]), -1);
  close(ends[1]);
  EXPECT_THAT(pipe.asked, IsEmpty());
}

TEST(ExecPipeClose, KeepsTheReadAhead) {
  DecodingPipe pipe;
  pipe.m_bufferCount = 5;
  pipe.m_bufferPos = 2;
  EXPECT_EQ(pipe.closeWith(0), execPipeOk);
  EXPECT_EQ(pipe.m_bufferCount, 5);
  EXPECT_EQ(pipe.m_bufferPos, 2);
}

// Anything but -1 counts as a child.
TEST(ExecPipeClose, WaitsForAnInvalidChildInVain) {
  expectChangeOf("SIGCHLD");
  ProbedPipe pipe;
  pipe.m_childPid = 0;
  EXPECT_EQ(pipe.Close(10), execPipeWaitFailed);
  EXPECT_EQ(pipe.m_childPid, -1);
  EXPECT_EQ(pipe.getLastError().m_code, execPipeWaitFailed);
}

class ExecPipeReaping : public ExecPipeHandler {
 protected:
  Lines m_output;
};

// A plain exit code from the map is read as a wait status on purpose.
TEST_F(ExecPipeReaping, TheMapsExitCodesAreReadAsWaitStatuses) {
  for (int value = 0; value < 256; ++value) {
    ProbedPipe::m_childStatusMap[fakePid] = value;
    m_pipe.registerTraceLog(Log());
    m_pipe.m_childPid = fakePid;
    const int expected = value % 128 == 0     ? execPipeOk
                         : value % 128 == 127 ? execPipeUnexpectedStatus
                                              : execPipeSignalled;
    EXPECT_EQ(m_pipe.Close(10), expected) << value;
  }
}

TEST_F(ExecPipeReaping, AChildThatTheHandlerReapedIsReportedByItsPlainCode) {
  m_pipe.handlerFirst = true;
  const struct {
    const char* mode;
    int code;
  } cases[] = {
      {"exit 0", execPipeOk},          {"exit 3", execPipeSignalled},
      {"exit 126", execPipeSignalled}, {"exit 127", execPipeUnexpectedStatus},
      {"exit 128", execPipeOk},        {"exit 255", execPipeUnexpectedStatus},
      {"die 15", execPipeSignalled},   {"die 9", execPipeSignalled},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    EXPECT_EQ(m_pipe.run(hostile(c.mode), m_output), c.code);
    EXPECT_FALSE(ProbedPipe::hasRecord(m_pipe.m_childPid));
  }
  EXPECT_EQ(m_pipe.getLastError().m_code, execPipeSignalled);
  EXPECT_EQ(m_pipe.getLastError().m_command, hostile("die 9"));
}

TEST_F(ExecPipeReaping, TheHandlersWayIsTraced) {
  m_pipe.handlerFirst = true;
  ASSERT_EQ(m_pipe.ExecPipe(hostile("exit 3"), ""), execPipeOk);
  const std::string pid = std::to_string(m_pipe.m_childPid);
  EXPECT_EQ(m_pipe.Close(10), execPipeSignalled);
  EXPECT_THAT(
      traced(),
      ElementsAre(
          "CheckChildStatus: child already exited with non-zero exit status of 3 (pid:" + pid + ")",
          "CCmnExecPipePosix::WaitPid: found child pid " + pid + " in map, returning 3"));
}

TEST_F(ExecPipeReaping, TheWaitpidWayIsTraced) {
  const BlockedChildSignal blocked;
  ASSERT_EQ(m_pipe.ExecPipe(hostile("exit 3"), ""), execPipeOk);
  const std::string pid = std::to_string(m_pipe.m_childPid);
  EXPECT_EQ(m_pipe.Close(10), execPipeExitStatus);
  const Lines lines = traced();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines, Lines(lines.size(), "CCmnExecPipePosix::WaitPid: child pid " + pid +
                                           " not in childStatusMap, calling waitpid()"));
}

TEST_F(ExecPipeReaping, AChildReapedBySomebodyElseIsAFailureToWait) {
  const BlockedChildSignal blocked;
  ASSERT_EQ(m_pipe.ExecPipe(hostile("exit 3"), ""), execPipeOk);
  const pid_t child = m_pipe.m_childPid;
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(m_pipe.Close(10), execPipeWaitFailed);
  EXPECT_EQ(m_pipe.getLastError().m_code, execPipeWaitFailed);
  EXPECT_EQ(m_pipe.getLastError().m_command, hostile("exit 3"));
  EXPECT_EQ(m_pipe.getLastError().m_message, L"");
  EXPECT_EQ(m_pipe.m_childPid, -1);
}

// Every start installs the handler, whatever was there; else the system would reap the child.
TEST_F(ExecPipeReaping, AStartUndoesThatTheHostIgnoresChildSignals) {
  signal(SIGCHLD, SIG_IGN);
  const BlockedChildSignal blocked;
  EXPECT_EQ(m_pipe.run(hostile("exit 3"), m_output), execPipeExitStatus);
}

// A clock that runs as fast as the library sleeps, and stands still once a given signal was sent.
struct FastClock {
  long milliseconds = 0;
  int stopsAt = 0;
  bool stopped = false;
  std::vector<int> signals;
} fast;

class FastForward {
 public:
  explicit FastForward(int stopsAt) : m_scope(replacements()) {
    fast = FastClock();
    fast.stopsAt = stopsAt;
  }

 private:
  static Replacements replacements() {
    Replacements result;
    result.time = [](time_t*) -> time_t { return fast.milliseconds / 1000; };
    result.nanosleep = [](const timespec*, timespec* rest) {
      constexpr timespec moment{0, 500000};
      fast.milliseconds += fast.stopped ? 0 : 100;
      return realCalls().nanosleep(&moment, rest);
    };
    result.kill = [](pid_t pid, int signalNumber) {
      fast.signals.push_back(signalNumber);
      fast.stopped = signalNumber == fast.stopsAt;
      return realCalls().kill(pid, signalNumber);
    };
    return result;
  }
  ScopedReplacements m_scope;
};

TEST_F(ExecPipeReaping, AChildThatClosesItsOutputAndStaysIsTerminated) {
  const BlockedChildSignal blocked;
  const FastForward clock(SIGTERM);
  EXPECT_EQ(m_pipe.run(hostile("closeoutput"), m_output), execPipeSignalled);
  EXPECT_THAT(m_output, ElementsAre("closing\n"));
  EXPECT_THAT(fast.signals, ElementsAre(SIGTERM));
  EXPECT_EQ(fast.milliseconds, 11000) << "ten of the clock's seconds must pass";
}

TEST_F(ExecPipeReaping, AChildThatIgnoresTerminationIsKilled) {
  const BlockedChildSignal blocked;
  ASSERT_EQ(m_pipe.ExecPipe(hostile("ignoreterm"), ""), execPipeOk);
  ASSERT_EQ(m_pipe.next(), "r\n");
  const FastForward clock(SIGKILL);
  EXPECT_EQ(m_pipe.Close(100), execPipeSignalled);
  EXPECT_THAT(fast.signals, ElementsAre(SIGTERM, SIGKILL));
  EXPECT_EQ(fast.milliseconds, 132000);
}

TEST_F(ExecPipeReaping, TheDestructorEndsAChildByForceAfterTenSeconds) {
  const BlockedChildSignal blocked;
  const FastForward clock(SIGKILL);
  pid_t child = -1;
  {
    ProbedPipe other;
    ASSERT_EQ(other.ExecPipe(hostile("ignoreterm"), ""), execPipeOk);
    ASSERT_EQ(other.next(), "r\n");
    child = other.m_childPid;
  }
  EXPECT_THAT(fast.signals, ElementsAre(SIGTERM, SIGKILL));
  EXPECT_EQ(fast.milliseconds, 22000);
  EXPECT_EQ(realCalls().kill(child, 0), -1);
}

TEST_F(ExecPipeReaping, AStoppedChildIsKilled) {
  const BlockedChildSignal blocked;
  ASSERT_EQ(m_pipe.ExecPipe(hostile("stop"), ""), execPipeOk);
  ASSERT_EQ(m_pipe.next(), "stopping\n");
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(m_pipe.m_childPid), &info, WSTOPPED | WNOWAIT), 0);
  const FastForward clock(SIGKILL);  // a stopped process does not take SIGTERM
  EXPECT_EQ(m_pipe.Close(0), execPipeSignalled);
  EXPECT_THAT(fast.signals, ElementsAre(SIGTERM, SIGKILL));
}

TEST_F(ExecPipeReaping, ReallyPollsUntilTheClocksSecondChanges) {
  const BlockedChildSignal blocked;
  ASSERT_EQ(m_pipe.ExecPipe(hostile("stay"), ""), execPipeOk);
  ASSERT_EQ(m_pipe.next(), "r\n");
  const time_t before = time(nullptr);
  EXPECT_EQ(m_pipe.Close(0), execPipeSignalled);
  EXPECT_GT(time(nullptr), before);
}

}  // namespace
