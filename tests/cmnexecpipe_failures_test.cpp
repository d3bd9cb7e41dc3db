// Every call that the exec pipe makes fails: once, and from then on.
#include "another_process.h"
#include "exec_fixture.h"
#include "interposed_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <memory>
#include <new>

namespace {

using namespace kelp_cmn_4_4;
using namespace kelp_test;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string launching = "CCmnExecPipePosix::ExecPipe ";

// The library polls ten times a second; these tests cannot wait so long.
Replacements impatient() {
  Replacements result;
  result.nanosleep = [](const timespec*, timespec* rest) {
    constexpr timespec moment{0, 1000000};
    return realCalls().nanosleep(&moment, rest);
  };
  return result;
}

// Level 1, so that what is traced are the failures.
class ExecPipeFailures : public ExecTest {
 protected:
  ExecPipeFailures() { traceAnew(); }
  void traceAnew() {
    m_log = openLog(1);
    m_pipe.registerTraceLog(m_log);
  }
  int run(const std::string& command, const std::string& stdinFile = "") {
    return m_pipe.run(command, m_output, stdinFile);
  }
  void expectLastError(const std::string& command, int code) {
    const ECmnExecPipe error = m_pipe.getLastError();
    EXPECT_EQ(error.m_command, command);
    EXPECT_EQ(error.m_code, code);
    EXPECT_EQ(error.m_message, L"") << "on purpose";
    EXPECT_EQ(error.m_detail, 0) << "on purpose";
  }

  const ScopedReplacements m_quick{impatient()};
  const BlockedChildSignal m_blocked;
  ProbedPipe m_pipe;
  Lines m_output;
};

constexpr Times bothTimes[] = {Times::once, Times::onwards};

TEST_F(ExecPipeFailures, WithoutTheHandlerTheCommandRunsAllTheSame) {
  for (const Times times : bothTimes) {
    traceAnew();
    const ScopedFailure failure(Call::sigaction, EINVAL, 1, times);
    EXPECT_EQ(run(hostile("say x")), execPipeOk);
    EXPECT_THAT(m_output, ElementsAre("x"));
    EXPECT_THAT(
        traced(),
        ElementsAre(launching + "ERROR: sigaction could not register SIGCHLD signal handler"));
    EXPECT_EQ(failure.failed(), 1);
  }
}

TEST_F(ExecPipeFailures, ALineThatCannotBeSplitStartsNothing) {
  const ScopedFailure noPipe(Call::pipe, EMFILE);
  for (const char* command : {"", " \t", "prog 'open", "prog \"", "prog \\", "\\"}) {
    m_output = {"kept"};
    EXPECT_EQ(run(command), execPipeParseFailed);
    expectLastError(command, execPipeParseFailed);
    EXPECT_EQ(m_pipe.m_commandLine, command);
    EXPECT_EQ(m_pipe.m_readFd, -1);
    EXPECT_EQ(m_pipe.m_childPid, -1);
    EXPECT_THAT(m_output, ElementsAre("kept"));
  }
  EXPECT_EQ(noPipe.calls(), 0);
  EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(ExecPipeFailures, AFileThatIsNotExecutableIsNotStarted) {
  const ScratchDirectory scratch;
  const std::string plain = scratch.path() + "plain";
  writeFile(plain, "");
  chmod(plain.c_str(), 0644);
  const ScopedFailure noPipe(Call::pipe, EMFILE);
  for (const std::string& command : {std::string("/no/such/program"), plain, plain + "/x",
                                     std::string("''"), std::string("sh")}) {
    m_output = {"kept"};
    EXPECT_EQ(run(command), execPipeNotExecutable) << command;
    expectLastError(command, execPipeNotExecutable);
    EXPECT_THAT(m_output, ElementsAre("kept"));
  }
  EXPECT_EQ(noPipe.calls(), 0);
  EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(ExecPipeFailures, AFileThatCannotBeCheckedIsNotStarted) {
  for (const int error : {EACCES, ENOENT, ELOOP, ENAMETOOLONG, ETXTBSY, EIO}) {
    const ScopedFailure failure(Call::access, error);
    EXPECT_EQ(run(hostile("exit 0")), execPipeNotExecutable);
    EXPECT_EQ(failure.failed(), 1);
    expectLastError(hostile("exit 0"), execPipeNotExecutable);
  }
}

// An executable directory passes the check and fails in the child.
TEST_F(ExecPipeFailures, ADirectoryIsStartedAndFailsInTheChild) {
  EXPECT_EQ(run("/usr"), execPipeExitStatus);
  EXPECT_THAT(traced(), ElementsAre(launching + "ERROR: execv() failed, errno 13"));
}

TEST_F(ExecPipeFailures, WithoutMemoryForMoreArgumentsTheOldOnesStay) {
  const std::string command = "a b c d e f g h i j k l m n o p q r s t u";
  for (int nth = 1; nth <= 3; ++nth) {
    for (const Times times : bothTimes) {
      SCOPED_TRACE(nth);
      traceAnew();
      {
        const ScopedFailure failure(Call::realloc, ENOMEM, nth, times);
        EXPECT_EQ(run(command), execPipeParseFailed);
        EXPECT_EQ(failure.failed(), 1);
      }
      expectLastError(command, execPipeParseFailed);
      EXPECT_EQ(m_pipe.m_argc, 10 * (nth - 1)) << "the old vector stays";
      EXPECT_EQ(m_pipe.m_argCapacity, 10 * (nth - 1));
      if (nth > 1) {
        EXPECT_EQ(m_pipe.arguments()[0], "a");
      }
      EXPECT_THAT(traced(), ElementsAre("CCmnExecPipePosix::AddArgument ERROR: realloc(" +
                                        std::to_string(80 * nth) + ") failed, errno 12"));
    }
  }
}

TEST_F(ExecPipeFailures, WithoutMemoryForTheClosingNullTheLineIsNotSplit) {
  const ScopedFailure failure(Call::realloc, ENOMEM, 2);
  EXPECT_EQ(run("a b c d e f g h i j"), execPipeParseFailed);
  EXPECT_EQ(m_pipe.m_argc, 10);
  EXPECT_THAT(traced(),
              ElementsAre("CCmnExecPipePosix::AddArgument ERROR: realloc(160) failed, errno 12"));
}

TEST_F(ExecPipeFailures, WithoutMemoryForAnArgumentTheOldOnesStay) {
  ASSERT_TRUE(m_pipe.AddArgument("first", 5));
  {
    const ScopedFailure failure(Call::nothrowNew, ENOMEM);
    EXPECT_FALSE(m_pipe.AddArgument("'second'", 8));
    EXPECT_EQ(failure.failed(), 1);
  }
  EXPECT_THAT(m_pipe.arguments(), ElementsAre("first"));
  EXPECT_THAT(traced(),
              ElementsAre("CCmnExecPipePosix::AddArgument() ERROR: new[9] failed, errno 12"));
}

TEST_F(ExecPipeFailures, WithoutMemoryForAnyOfItsArgumentsALineIsNotSplit) {
  m_pipe.registerTraceLog(Log());
  for (int nth = 1; nth <= 3; ++nth) {
    for (const Times times : bothTimes) {
      const ScopedFailure failure(Call::nothrowNew, ENOMEM, nth, times);
      EXPECT_EQ(run("one two three"), execPipeParseFailed);
      EXPECT_EQ(failure.failed(), 1);
      EXPECT_EQ(m_pipe.m_argc, nth - 1);
      expectLastError("one two three", execPipeParseFailed);
    }
  }
}

TEST_F(ExecPipeFailures, GrowingFailsSilentlyWithoutATraceLog) {
  m_pipe.registerTraceLog(Log());
  const ScopedFailure failure(Call::realloc, ENOMEM);
  EXPECT_FALSE(m_pipe.AddArgument("x", 1));
  EXPECT_EQ(m_pipe.m_argCapacity, 0);
}

long pipeAddress = 0;
int pipeError = 0;

TEST_F(ExecPipeFailures, WithoutAPipeNothingIsStarted) {
  for (const int error : {EMFILE, ENFILE, EFAULT}) {
    traceAnew();
    pipeError = error;
    Replacements replacements = impatient();
    replacements.pipe = [](int* ends) {
      std::memcpy(&pipeAddress, &ends, sizeof pipeAddress);
      errno = pipeError;
      return -1;
    };
    {
      const ScopedReplacements scope(replacements);
      EXPECT_EQ(run(hostile("exit 0")), execPipePipeFailed);
    }
    expectLastError(hostile("exit 0"), execPipePipeFailed);
    EXPECT_EQ(m_pipe.m_readFd, -1);
    EXPECT_EQ(m_pipe.m_childPid, -1);
    EXPECT_THAT(traced(), ElementsAre(launching + "ERROR: pipe(" +
                                      std::to_string(static_cast<int>(pipeAddress)) +
                                      ") failed, errno " + std::to_string(error)));
  }
}

TEST_F(ExecPipeFailures, AFailedForkReleasesThePipe) {
  for (const int error : {EAGAIN, ENOMEM}) {
    traceAnew();
    const ScopedFailure failure(Call::fork, error);
    EXPECT_EQ(run(hostile("exit 0")), execPipeForkFailed);
    EXPECT_EQ(failure.failed(), 1);
    EXPECT_LT(m_pipe.m_childPid, 0);
    expectLastError(hostile("exit 0"), execPipeForkFailed);
    EXPECT_THAT(traced(),
                ElementsAre(launching + "ERROR: fork() failed, errno " + std::to_string(error)));
    EXPECT_EQ(m_pipe.Close(10), execPipeOk);
  }
}

TEST_F(ExecPipeFailures, ALogAtLevel0HearsOfNoFailure) {
  m_log = openLog(0);
  m_pipe.registerTraceLog(m_log);
  const ScopedFailure failure(Call::fork, EAGAIN);
  EXPECT_EQ(run(hostile("exit 0")), execPipeForkFailed);
  EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(ExecPipeFailures, AfterAFailedForkEachEndThatCannotBeClosedIsTraced) {
  const std::string readEnd =
      launching + "ERROR: failed fork close(pipe[0]) failed, errno " + std::to_string(EIO);
  const std::string writeEnd =
      launching + "ERROR: failed fork close(pipe[1]) failed, errno " + std::to_string(EIO);
  const std::string forked = launching + "ERROR: fork() failed, errno " + std::to_string(EAGAIN);
  const struct {
    int nth;
    Times times;
    Lines lines;
  } cases[] = {{1, Times::once, {readEnd, forked}},
               {2, Times::once, {writeEnd, forked}},
               {1, Times::onwards, {readEnd, writeEnd, forked}}};
  for (const auto& c : cases) {
    traceAnew();
    {
      const ScopedFailure noFork(Call::fork, EAGAIN);
      const ScopedFailure noClose(Call::close, EIO, c.nth, c.times);
      EXPECT_EQ(m_pipe.ExecPipe(hostile("exit 0"), ""), execPipeForkFailed);
      EXPECT_EQ(noClose.calls(), 2);
    }
    EXPECT_EQ(traced(), c.lines);
    expectLastError(hostile("exit 0"), execPipeForkFailed);
  }
}

TEST_F(ExecPipeFailures, TheParentsCloseFailingIsOnlyTraced) {
  for (const int error : {EIO, EINTR}) {
    traceAnew();
    {
      const ScopedFailure failure(Call::close, error, 1);
      ASSERT_EQ(m_pipe.ExecPipe(hostile("exit 0"), ""), execPipeOk);
      EXPECT_EQ(failure.failed(), 1);
    }
    EXPECT_THAT(traced(), ElementsAre(launching + "ERROR: parent close(pipe[1]) failed, errno " +
                                      std::to_string(error)));
    EXPECT_EQ(m_pipe.Close(10), execPipeOk);
  }
}

TEST_F(ExecPipeFailures, ReadFailingEndsTheOutputAndDropsTheLine) {
  for (const int error : {EIO, EINTR, EAGAIN, EBADF}) {
    traceAnew();
    ASSERT_EQ(m_pipe.ExecPipe(hostile("say 'one\\npart'"), ""), execPipeOk);
    char line[64];
    unsigned char timedOut = 77;
    ASSERT_TRUE(m_pipe.ReadLine(line, sizeof line, &timedOut, 60));
    std::memset(line, '#', sizeof line);
    {
      const ScopedFailure failure(Call::read, error);
      EXPECT_FALSE(m_pipe.ReadLine(line, sizeof line, &timedOut, 60));
      EXPECT_EQ(failure.failed(), 1);
    }
    EXPECT_EQ(timedOut, 0);
    EXPECT_EQ(std::string(line, 5), std::string("part#")) << "no terminator, on purpose";
    EXPECT_EQ(m_pipe.m_bufferCount, -1) << "kept, on purpose";
    EXPECT_EQ(m_pipe.m_readFd, -1);
    EXPECT_THAT(traced(), ElementsAre("CCmnExecPipePosix::ReadLine ERROR: read() failed, errno " +
                                      std::to_string(error)));
    EXPECT_EQ(m_pipe.Close(10), execPipeOk);
    EXPECT_EQ(run(hostile("say next")), execPipeOk);
    EXPECT_THAT(m_output, ElementsAre("next")) << "nothing of it is left";
  }
}

TEST_F(ExecPipeFailures, ReadFailingInTheMiddleOfExecKeepsTheLinesBeforeIt) {
  const std::string line = std::string(511, 'x') + "\\n";
  for (int nth = 1; nth <= 3; ++nth) {
    for (const Times times : bothTimes) {
      traceAnew();
      {
        const ScopedFailure failure(Call::read, EIO, nth, times, Where::here);
        EXPECT_EQ(run(hostile("say '" + line + line + "'")), execPipeOk) << nth;
        EXPECT_EQ(failure.failed(), 1);
      }
      EXPECT_EQ(m_output.size(), static_cast<size_t>(nth - 1));
      EXPECT_EQ(traced().size(), 1U);
    }
  }
}

TEST_F(ExecPipeFailures, CloseFailingAtTheEndOfTheOutputIsOnlyTraced) {
  for (const bool endOfFile : {true, false}) {
    traceAnew();
    ASSERT_EQ(m_pipe.ExecPipe(hostile(endOfFile ? "exit 0" : "stay"), ""), execPipeOk);
    const std::string fd = std::to_string(m_pipe.m_readFd);
    if (!endOfFile) {
      ASSERT_EQ(m_pipe.next(), "r\n");
    }
    {
      const ScopedFailure failure(Call::close, EIO);
      EXPECT_EQ(m_pipe.next(100, endOfFile ? 60 : 0), std::nullopt);
      EXPECT_EQ(failure.failed(), 1);
    }
    EXPECT_EQ(m_pipe.timedOut, endOfFile ? 0 : 1);
    EXPECT_EQ(m_pipe.m_readFd, -1);
    // "Readline" is meant.
    EXPECT_THAT(traced(), ElementsAre("CCmnExecPipePosix::Readline ERROR: close(" + fd +
                                      ") failed, errno 5"));
    if (!endOfFile) {
      kill(m_pipe.m_childPid, SIGKILL);
    }
    EXPECT_EQ(m_pipe.Close(10), endOfFile ? execPipeOk : execPipeSignalled);
  }
}

TEST_F(ExecPipeFailures, AReadEndThatCannotBeClosedIsReportedOnce) {
  for (const int error : {EIO, EINTR, EBADF}) {
    traceAnew();
    ASSERT_EQ(m_pipe.ExecPipe(hostile("exit 0"), ""), execPipeOk);
    {
      const ScopedFailure failure(Call::close, error);
      EXPECT_EQ(m_pipe.Close(10), execPipeCloseFailed);
      EXPECT_EQ(failure.failed(), 1);
    }
    EXPECT_EQ(m_pipe.m_readFd, -1);
    EXPECT_EQ(m_pipe.m_childPid, -1);
    expectLastError(hostile("exit 0"), execPipeCloseFailed);
    EXPECT_THAT(traced(), IsEmpty());
    EXPECT_EQ(m_pipe.Close(10), execPipeOk) << "only once";
  }
}

TEST_F(ExecPipeFailures, AReadEndThatCannotBeClosedIsReportedWithoutAChildToo) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  close(ends[1]);
  m_pipe.m_readFd = ends[0];
  const ScopedFailure failure(Call::close, EIO);
  EXPECT_EQ(m_pipe.Close(10), execPipeCloseFailed);
  expectLastError("", execPipeCloseFailed);
}

TEST_F(ExecPipeFailures, TheChildsFailureGoesBeforeThatOfClosing) {
  const struct {
    const char* mode;
    int code;
  } cases[] = {{"exit 3", execPipeExitStatus}, {"die 9", execPipeSignalled}};
  for (const auto& c : cases) {
    ASSERT_EQ(m_pipe.ExecPipe(hostile(c.mode), ""), execPipeOk);
    const ScopedFailure failure(Call::close, EIO);
    EXPECT_EQ(m_pipe.Close(10), c.code);
    expectLastError(hostile(c.mode), c.code);
  }
  ASSERT_EQ(m_pipe.ExecPipe(hostile("exit 0"), ""), execPipeOk);
  ASSERT_EQ(waitpid(m_pipe.m_childPid, nullptr, 0), m_pipe.m_childPid);
  const ScopedFailure failure(Call::close, EIO);
  EXPECT_EQ(m_pipe.Close(10), execPipeWaitFailed);
  expectLastError(hostile("exit 0"), execPipeWaitFailed);
}

TEST_F(ExecPipeFailures, EveryCodeLeavesCommandAndCodeOnly) {
  EXPECT_EQ(run(hostile("exit 3")), execPipeExitStatus);
  expectLastError(hostile("exit 3"), execPipeExitStatus);
  EXPECT_EQ(run(hostile("die 9")), execPipeSignalled);
  expectLastError(hostile("die 9"), execPipeSignalled);
  EXPECT_EQ(run(hostile("exit 0")), execPipeOk);
  expectLastError(hostile("die 9"), execPipeSignalled);
}

// --- in the child

struct ChildFailure {
  Call call;
  int nth;
  int error;
  const char* stdinFile;
  const char* traced;  // without the errno
  bool ends;           // the child
};

constexpr char noFile[] = "";
constexpr char aFile[] = "/etc/passwd";

const ChildFailure childFailures[] = {
    {Call::open, 1, EMFILE, noFile, "ERROR: Could not open /dev/null for reading", true},
    {Call::open, 1, ENOENT, noFile, "ERROR: Could not open /dev/null for reading", true},
    {Call::open, 1, EACCES, aFile, "ERROR: Could not open '/etc/passwd' for reading", true},
    {Call::open, 1, EINTR, aFile, "ERROR: Could not open '/etc/passwd' for reading", true},
    {Call::dup2, 1, EMFILE, noFile, "ERROR: dup2(stdin) failed", true},
    {Call::dup2, 1, EINTR, aFile, "ERROR: dup2(stdin) failed", true},
    {Call::dup2, 2, EBUSY, noFile, "ERROR: dup2(stdout) failed", true},
    {Call::dup2, 3, EBADF, noFile, "ERROR: dup2(stderr) failed", true},
    {Call::close, 1, EIO, noFile, nullptr, false},  // the input's number, of which nothing is told
    {Call::close, 2, EIO, noFile, "ERROR: child close(pipe[0]) failed", false},
    {Call::close, 3, EINTR, noFile, "ERROR: child close(pipe[1]) failed", false},
    {Call::execv, 1, ENOEXEC, noFile, "ERROR: execv() failed", true},
    {Call::execv, 1, E2BIG, noFile, "ERROR: execv() failed", true},
    {Call::execv, 1, ENOMEM, noFile, "ERROR: execv() failed", true},
    {Call::execv, 1, ETXTBSY, noFile, "ERROR: execv() failed", true},
    {Call::execv, 1, EACCES, noFile, "ERROR: execv() failed", true},
};

TEST_F(ExecPipeFailures, InTheChildAreTracedThereAndEndIt) {
  for (const ChildFailure& c : childFailures) {
    SCOPED_TRACE(std::to_string(static_cast<int>(c.call)) + "/" + std::to_string(c.nth));
    traceAnew();
    const ScopedFailure failure(c.call, c.error, c.nth, Times::once, Where::child);
    EXPECT_EQ(run(hostile("say x"), c.stdinFile), c.ends ? execPipeExitStatus : execPipeOk);
    EXPECT_EQ(m_output, c.ends ? Lines() : Lines{"x"});
    EXPECT_EQ(failure.failed(), 1);
    Lines expected;
    if (c.traced != nullptr) {
      expected.push_back(launching + c.traced + ", errno " + std::to_string(c.error));
    }
    EXPECT_EQ(traced(), expected);
  }
}

TEST_F(ExecPipeFailures, InTheChildThatLastAreTracedOnce) {
  for (const ChildFailure& c : childFailures) {
    if (!c.ends) {
      continue;
    }
    traceAnew();
    const ScopedFailure failure(c.call, c.error, c.nth, Times::onwards, Where::child);
    EXPECT_EQ(run(hostile("say x"), c.stdinFile), execPipeExitStatus);
    EXPECT_EQ(failure.failed(), 1) << "nothing more is tried";
    EXPECT_EQ(traced().size(), 1U);
  }
  traceAnew();
  const ScopedFailure failure(Call::close, EIO, 1, Times::onwards, Where::child);
  EXPECT_EQ(run(hostile("say x")), execPipeOk);
  EXPECT_EQ(failure.failed(), 3);
  EXPECT_THAT(traced(), ElementsAre(launching + "ERROR: child close(pipe[0]) failed, errno 5",
                                    launching + "ERROR: child close(pipe[1]) failed, errno 5"));
}

TEST_F(ExecPipeFailures, InTheChildEndItWithStatusOne) {
  for (const ChildFailure& c : childFailures) {
    if (c.ends) {
      const ScopedFailure failure(c.call, c.error, c.nth, Times::once, Where::child);
      ProbedPipe pipe;
      pipe.m_stdinFile = c.stdinFile;
      ASSERT_EQ(pipe.ExecPipe(hostile("exit 0"), ""), execPipeOk);
      EXPECT_EQ(pipe.WaitPid(60), 1 << 8);
      pipe.m_childPid = -1;
    }
  }
}

TEST_F(ExecPipeFailures, InTheChildAreSilentWithoutATraceLog) {
  m_pipe.registerTraceLog(Log());
  for (const ChildFailure& c : childFailures) {
    const ScopedFailure failure(c.call, c.error, c.nth, Times::once, Where::child);
    EXPECT_EQ(run(hostile("say x"), c.stdinFile), c.ends ? execPipeExitStatus : execPipeOk);
  }
  EXPECT_THAT(traced(), IsEmpty());
}

const char* const environmentStep[] = {
    "LANG",    "LC_ALL", "LC_COLLATE", "LC_CTYPE", "LC_MESSAGES", "LC_MONETARY", "LC_NUMERIC",
    "LC_TIME", "CDPATH", "EDITOR",     "ENV",      "FPATH",       "IFS"};

// Gives all thirteen variables a value that the child would see unchanged.
class InheritedVariables {
 public:
  InheritedVariables() {
    for (const char* name : environmentStep) {
      m_variables.emplace_back(name, "inherited");
    }
  }

 private:
  std::deque<ScopedVariable> m_variables;
};

// What the environment holds when the step stopped at the n-th variable.
void expectStoppedAt(int nth, const Lines& output) {
  for (int i = 1; i <= 13; ++i) {
    const std::string name = environmentStep[i - 1];
    const std::string expected = name + (i >= nth ? "=inherited\n" : i <= 8 ? "=C\n" : "=\n");
    EXPECT_THAT(output, testing::Contains(expected));
  }
}

TEST_F(ExecPipeFailures, TheEnvironmentStepStopsAtItsFirstFailure) {
  const InheritedVariables inherited;
  for (const Call call : {Call::putenv, Call::malloc}) {
    for (int nth = 1; nth <= 13; ++nth) {
      SCOPED_TRACE(nth);
      traceAnew();
      const ScopedFailure failure(call, ENOMEM, nth, Times::once, Where::child);
      EXPECT_EQ(run(hostile("env")), execPipeOk);
      EXPECT_EQ(failure.failed(), 1);
      if (call == Call::putenv) {
        EXPECT_EQ(failure.calls(), nth) << "went on after the failure";
      }
      EXPECT_THAT(traced(), ElementsAre(launching + "locale modification failed, errno 12"));
      expectStoppedAt(nth, m_output);
    }
  }
  traceAnew();
  EXPECT_EQ(run(hostile("env")), execPipeOk);
  expectStoppedAt(14, m_output);
  EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(ExecPipeFailures, WithoutAnyMemoryTheChildStillExecutes) {
  m_pipe.registerTraceLog(Log());
  const InheritedVariables inherited;
  const ScopedFailure failure(Call::malloc, ENOMEM, 5, Times::onwards, Where::child);
  EXPECT_EQ(run(hostile("env")), execPipeOk);
  expectStoppedAt(5, m_output);
  EXPECT_EQ(failure.failed(), 1);
}

// --- in the child of a host whose standard descriptors are closed

TEST_F(ExecPipeFailures, NoRoomToMoveAPipeEndLosesNoOutput) {
  for (int closed = 1; closed < 8; ++closed) {
    SCOPED_TRACE(closed);
    inAnotherProcess([this, closed] {
      closeStandardDescriptors(closed);
      const ScopedFailure failure(Call::fcntl, EMFILE, 1, Times::onwards, Where::child);
      EXPECT_EQ(run(hostile("both")), execPipeOk);
      EXPECT_EQ(m_output.size(), 6U);
      EXPECT_GE(failure.failed(), 1);
    });
  }
}

// The platform's streams can be replaced. What counts is the descriptor that they have by then.
TEST_F(ExecPipeFailures, AHostsStreamMayBeDescriptorZero) {
  for (FILE** const stream : {&stdout, &stderr}) {
    inAnotherProcess([this, stream] {
      close(STDIN_FILENO);
      *stream = fopen("/dev/null", "w");
      ASSERT_EQ(fileno(*stream), 0);
      EXPECT_EQ(run(hostile("exit 0")), execPipeOk);
    });
  }
}

// The input's number is 0 from the start then, and stays open.
TEST_F(ExecPipeFailures, AnInputThatIsStandardInputAlreadyIsLeftThere) {
  const ScratchDirectory scratch;
  const std::string file = scratch.path() + "in";
  writeFile(file, "input\n");
  inAnotherProcess([this, &file] {
    close(STDIN_FILENO);
    Replacements replacements = impatient();
    replacements.pipe = [](int* ends) {
      int low[2];
      if (realCalls().pipe(low) != 0) {
        return -1;
      }
      for (int i = 0; i < 2; ++i) {
        ends[i] = fcntl(low[i], F_DUPFD, 10);
        close(low[i]);
      }
      return 0;
    };
    const ScopedReplacements scope(replacements);
    const ScopedFailure dup2Calls(Call::dup2, EIO, 3, Times::onwards, Where::child);
    EXPECT_EQ(run(hostile("echo"), file), execPipeOk);
    EXPECT_THAT(m_output, ElementsAre("input\n"));
    EXPECT_EQ(dup2Calls.calls(), 2);
  });
}

// As it comes when another thread uses descriptors at the same time.
TEST_F(ExecPipeFailures, AWriteEndThatHasBecomeStandardInputLosesNoOutput) {
  inAnotherProcess([this] {
    close(STDIN_FILENO);
    Replacements replacements = impatient();
    replacements.pipe = [](int* ends) {
      if (realCalls().pipe(ends) != 0) {
        return -1;
      }
      const int spare = fcntl(ends[0], F_DUPFD, 3);
      if (ends[0] != 0 || dup2(ends[1], 0) != 0) {
        return -1;
      }
      close(ends[1]);
      ends[0] = spare;
      ends[1] = 0;
      return 0;
    };
    const ScopedReplacements scope(replacements);
    EXPECT_EQ(run(hostile("both")), execPipeOk);
    EXPECT_EQ(m_output.size(), 6U);
  });
}

// --- no memory

// No code: std::bad_alloc was thrown.
constexpr int thrown = -2;

int startedOrThrown(ProbedPipe& pipe, const std::string& command) {
  try {
    return pipe.ExecPipe(command, "");
  } catch (const std::bad_alloc&) {
    return thrown;
  }
}

// Every allocation of a run fails, one after the other. What leaves is only std::bad_alloc, in the
// process that called, and the object can be used again.
TEST_F(ExecPipeFailures, RunningOutOfMemoryLeavesNothingBehind) {
  for (const bool withLog : {false, true}) {
    m_pipe.registerTraceLog(withLog ? m_log : Log());
    bool passed = false;
    for (int nth = 1; !passed; ++nth) {
      SCOPED_TRACE(nth);
      ASSERT_LT(nth, 200);
      const std::string command = hostile("say 'a line that is too long for a short string\\n' 3");
      const auto before = ProcessState::capture().descriptors;
      int code = -1;
      const pid_t self = getpid();
      {
        const ScopedFailure failure(Call::throwingNew, ENOMEM, nth, Times::once, Where::here);
        try {
          code = run(command);
        } catch (const std::bad_alloc&) {
          code = thrown;
        }
        passed = failure.failed() == 0;
      }
      if (getpid() != self) {
        _exit(77);
      }
      EXPECT_TRUE(code == thrown || code == execPipeParseFailed || code == execPipeExitStatus ||
                  !passed)
          << code;
      m_pipe.Close(60);
      EXPECT_EQ(ProcessState::capture().descriptors, before);
      EXPECT_EQ(m_pipe.m_childPid, -1);
      EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }
  }
}

// Nobody closes after an exception here: it has left nothing that the next run could overwrite.
TEST_F(ExecPipeFailures, AnExceptionOutOfExecLeavesNeitherADescriptorNorAChild) {
  m_pipe.registerTraceLog(Log());
  const std::string command = hostile("say 'a line that is too long for a short string\\n' 3");
  for (const bool closeFails : {false, true}) {
    bool passed = false;
    int throws = 0;
    for (int nth = 1; !passed; ++nth) {
      SCOPED_TRACE(nth);
      ASSERT_LT(nth, 200);
      const auto before = ProcessState::capture().descriptors;
      {
        const ScopedFailure noMemory(Call::throwingNew, ENOMEM, nth, Times::onwards);
        const ScopedFailure noClose(Call::close, EIO, closeFails ? 2 : INT_MAX, Times::onwards);
        try {
          run(command);
        } catch (const std::bad_alloc&) {
          ++throws;
        }
        passed = noMemory.failed() == 0;
      }
      EXPECT_EQ(ProcessState::capture().descriptors, before);
      EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
      EXPECT_EQ(run(command), execPipeExitStatus) << "the next run is as any other";
    }
    EXPECT_GT(throws, 5);
  }
}

// Records that wait for memory are kept; starting a command neither throws nor loses the pipe
// because of them.
TEST_F(ExecPipeFailures, NoMemoryForWaitingRecordsDoesNotKeepACommandFromStarting) {
  {
    Replacements replacements = impatient();
    replacements.waitpid = [](pid_t, int*, int) { return 0; };
    const ScopedReplacements scope(replacements);
    for (int i = 0; i < 500; ++i) {
      tell(fakePid + i, i % 256);
    }
  }
  Replacements replacements = impatient();
  static std::unique_ptr<ScopedFailure> noMemory;
  replacements.pipe = [](int* ends) {
    noMemory = std::make_unique<ScopedFailure>(Call::throwingNew, ENOMEM, 1, Times::onwards);
    return realCalls().pipe(ends);
  };
  int code = thrown;
  {
    const ScopedReplacements scope(replacements);
    code = startedOrThrown(m_pipe, hostile("exit 0"));
  }
  EXPECT_GT(noMemory->failed(), 0);
  noMemory.reset();
  EXPECT_EQ(code, execPipeOk);
  EXPECT_EQ(m_pipe.Close(60), execPipeOk);
  m_pipe.registerTraceLog(Log());
  for (int i = 0; i < 500; ++i) {
    int status = -1;
    ASSERT_TRUE(m_pipe.CheckChildStatusMap(fakePid + i, &status)) << i;
    ASSERT_EQ(status, i % 256);
  }
}

// In the child, a failure that cannot even be traced ends it all the same: nothing there gets back
// into the host's code.
TEST_F(ExecPipeFailures, WithoutMemoryTheChildNeverReturnsIntoTheHost) {
  const pid_t self = getpid();
  for (const ChildFailure& c : childFailures) {
    const ScopedFailure failure(c.call, c.error, c.nth, Times::once, Where::child);
    const ScopedFailure noMemory(Call::throwingNew, ENOMEM, 1, Times::onwards, Where::child);
    const int code = startedOrThrown(m_pipe, hostile("exit 0"));
    if (getpid() != self) {
      _exit(77);
    }
    ASSERT_EQ(code, execPipeOk);
    EXPECT_EQ(m_pipe.WaitPid(60), c.ends ? 1 << 8 : 0);
    EXPECT_EQ(noMemory.failed() > 0, c.traced != nullptr);
    m_pipe.m_childPid = -1;
    m_pipe.Close(0);
  }
}

// A failure that cannot be traced is dealt with as any other.
TEST_F(ExecPipeFailures, WithoutMemoryTheOutputStillEnds) {
  ASSERT_EQ(m_pipe.ExecPipe(hostile("exit 0"), ""), execPipeOk);
  Replacements replacements = impatient();
  static std::unique_ptr<ScopedFailure> noMemory;
  replacements.read = [](int, void*, size_t) -> ssize_t {
    noMemory = std::make_unique<ScopedFailure>(Call::throwingNew, ENOMEM, 1, Times::onwards);
    errno = EIO;
    return -1;
  };
  char line[16];
  unsigned char timedOut = 0;
  {
    const ScopedReplacements scope(replacements);
    EXPECT_FALSE(m_pipe.ReadLine(line, sizeof line, &timedOut, 60));
  }
  EXPECT_GT(noMemory->failed(), 0);
  noMemory.reset();
  EXPECT_EQ(m_pipe.m_readFd, -1);
  EXPECT_EQ(m_pipe.Close(60), execPipeOk);
}

// A child once reaped is not waited for again, and a closed descriptor not closed again.
TEST_F(ExecPipeFailures, WithoutMemoryForTheRecordCloseIsDoneAllTheSame) {
  m_pipe.registerTraceLog(Log());
  ASSERT_EQ(m_pipe.ExecPipe(hostile("say 'a command too long for a short string' 3"), ""),
            execPipeOk);
  {
    const ScopedFailure noMemory(Call::throwingNew, ENOMEM, 1, Times::onwards);
    EXPECT_THROW(m_pipe.Close(60), std::bad_alloc);
  }
  EXPECT_EQ(m_pipe.m_readFd, -1);
  EXPECT_EQ(m_pipe.m_childPid, -1);
  ASSERT_EQ(m_pipe.ExecPipe(hostile("exit 0"), ""), execPipeOk);
  {
    const ScopedFailure failure(Call::close, EIO);
    const ScopedFailure noMemory(Call::throwingNew, ENOMEM, 1, Times::onwards);
    EXPECT_THROW(m_pipe.Close(60), std::bad_alloc);
  }
  EXPECT_EQ(m_pipe.m_readFd, -1);
  EXPECT_EQ(m_pipe.m_childPid, -1);
}

// The destructor has no caller to tell.
TEST_F(ExecPipeFailures, WithoutMemoryTheDestructorStillReaps) {
  auto other = std::make_unique<ProbedPipe>();
  ASSERT_EQ(other->ExecPipe(hostile("exit 3"), ""), execPipeOk);
  const pid_t child = other->m_childPid;
  const ScopedFailure noMemory(Call::throwingNew, ENOMEM, 1, Times::onwards);
  other.reset();
  EXPECT_GT(noMemory.calls(), 0);
  EXPECT_EQ(kill(child, 0), -1);
}

}  // namespace
