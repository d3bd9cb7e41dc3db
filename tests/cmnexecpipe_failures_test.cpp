// Every call that the exec pipe makes fails: once, and from then on.
#include "exec_fixture.h"
#include "interposed_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

namespace {

using kelp_cmn_4_4::CCmnExecPipePosix;
using kelp_test::BlockedChildSignal;
using kelp_test::Call;
using kelp_test::hostile;
using kelp_test::ProbedPipe;
using kelp_test::realCalls;
using kelp_test::Replacements;
using kelp_test::ScopedFailure;
using kelp_test::ScopedReplacements;
using kelp_test::Times;
using kelp_test::Where;
using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

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
class ExecPipeFailures : public kelp_test::ExecTest {
 protected:
  void SetUp() override {
    ExecTest::SetUp();
    traceAnew();
  }
  void traceAnew() {
    log = openLog(1);
    pipe.registerTraceLog(log);
  }
  int run(const std::string& command, const std::string& stdinFile = "") {
    return pipe.run(command, output, stdinFile);
  }
  void expectLastError(const std::string& command, int code) {
    const kelp_cmn_4_4::ECmnExecPipe error = pipe.getLastError();
    EXPECT_EQ(error.m_command, command);
    EXPECT_EQ(error.m_code, code);
    EXPECT_EQ(error.m_message, L"") << "on purpose";
    EXPECT_EQ(error.m_detail, 0) << "on purpose";
  }

  const ScopedReplacements quick{impatient()};
  const BlockedChildSignal blocked;
  ProbedPipe pipe;
  Lines output;
};

constexpr Times bothTimes[] = {Times::once, Times::onwards};

TEST_F(ExecPipeFailures, WithoutTheHandlerTheCommandRunsAllTheSame) {
  for (const Times times : bothTimes) {
    traceAnew();
    const ScopedFailure failure(Call::sigaction, EINVAL, 1, times);
    EXPECT_EQ(run(hostile("say x")), 0);
    EXPECT_THAT(output, ElementsAre("x"));
    EXPECT_THAT(
        traced(),
        ElementsAre(launching + "ERROR: sigaction could not register SIGCHLD signal handler"));
    EXPECT_EQ(failure.failed(), 1);
  }
}

TEST_F(ExecPipeFailures, ALineThatCannotBeSplitGivesSix) {
  const ScopedFailure noPipe(Call::pipe, EMFILE);
  for (const char* command : {"", " \t", "prog 'open", "prog \"", "prog \\", "\\"}) {
    output = {"kept"};
    EXPECT_EQ(run(command), 6);
    expectLastError(command, 6);
    EXPECT_EQ(pipe.m_commandLine, command);
    EXPECT_EQ(pipe.m_readFd, -1);
    EXPECT_EQ(pipe.m_childPid, -1);
    EXPECT_THAT(output, ElementsAre("kept"));
  }
  EXPECT_EQ(noPipe.calls(), 0);
  EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(ExecPipeFailures, AFileThatIsNotExecutableGivesSeven) {
  const kelp_test::ScratchDirectory scratch;
  const std::string plain = scratch.path() + "plain";
  kelp_test::writeFile(plain, "");
  chmod(plain.c_str(), 0644);
  const ScopedFailure noPipe(Call::pipe, EMFILE);
  for (const std::string& command : {std::string("/no/such/program"), plain, plain + "/x",
                                     std::string("''"), std::string("sh")}) {
    output = {"kept"};
    EXPECT_EQ(run(command), 7) << command;
    expectLastError(command, 7);
    EXPECT_THAT(output, ElementsAre("kept"));
  }
  EXPECT_EQ(noPipe.calls(), 0);
  EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(ExecPipeFailures, AccessFailingGivesSeven) {
  for (const int error : {EACCES, ENOENT, ELOOP, ENAMETOOLONG, ETXTBSY, EIO}) {
    const ScopedFailure failure(Call::access, error);
    EXPECT_EQ(run(hostile("exit 0")), 7);
    EXPECT_EQ(failure.failed(), 1);
    expectLastError(hostile("exit 0"), 7);
  }
}

// An executable directory passes the check and fails in the child.
TEST_F(ExecPipeFailures, ADirectoryFailsInTheChild) {
  EXPECT_EQ(run("/usr"), 11);
  EXPECT_THAT(traced(), ElementsAre(launching + "ERROR: execv() failed, errno 13"));
}

TEST_F(ExecPipeFailures, GrowingTheVectorFails) {
  const std::string command = "a b c d e f g h i j k l m n o p q r s t u";
  for (int nth = 1; nth <= 3; ++nth) {
    for (const Times times : bothTimes) {
      SCOPED_TRACE(nth);
      traceAnew();
      {
        const ScopedFailure failure(Call::realloc, ENOMEM, nth, times);
        EXPECT_EQ(run(command), 6);
        EXPECT_EQ(failure.failed(), 1);
      }
      expectLastError(command, 6);
      EXPECT_EQ(pipe.m_argc, 10 * (nth - 1)) << "the old vector stays";
      EXPECT_EQ(pipe.m_argCapacity, 10 * (nth - 1));
      if (nth > 1) {
        EXPECT_EQ(pipe.arguments()[0], "a");
      }
      EXPECT_THAT(traced(), ElementsAre("CCmnExecPipePosix::AddArgument ERROR: realloc(" +
                                        std::to_string(80 * nth) + ") failed, errno 12"));
    }
  }
}

TEST_F(ExecPipeFailures, GrowingForTheClosingNullFails) {
  const ScopedFailure failure(Call::realloc, ENOMEM, 2);
  EXPECT_EQ(run("a b c d e f g h i j"), 6);
  EXPECT_EQ(pipe.m_argc, 10);
  EXPECT_THAT(traced(),
              ElementsAre("CCmnExecPipePosix::AddArgument ERROR: realloc(160) failed, errno 12"));
}

TEST_F(ExecPipeFailures, AllocatingAnArgumentFails) {
  ASSERT_TRUE(pipe.AddArgument("first", 5));
  {
    const ScopedFailure failure(Call::nothrowNew, ENOMEM);
    EXPECT_FALSE(pipe.AddArgument("'second'", 8));
    EXPECT_EQ(failure.failed(), 1);
  }
  EXPECT_THAT(pipe.arguments(), ElementsAre("first"));
  EXPECT_THAT(traced(),
              ElementsAre("CCmnExecPipePosix::AddArgument() ERROR: new[9] failed, errno 12"));
}

TEST_F(ExecPipeFailures, AllocatingAnyArgumentOfALineFails) {
  pipe.registerTraceLog(Log());
  for (int nth = 1; nth <= 3; ++nth) {
    for (const Times times : bothTimes) {
      const ScopedFailure failure(Call::nothrowNew, ENOMEM, nth, times);
      EXPECT_EQ(run("one two three"), 6);
      EXPECT_EQ(failure.failed(), 1);
      EXPECT_EQ(pipe.m_argc, nth - 1);
      expectLastError("one two three", 6);
    }
  }
}

TEST_F(ExecPipeFailures, GrowingFailsSilentlyWithoutATraceLog) {
  pipe.registerTraceLog(Log());
  const ScopedFailure failure(Call::realloc, ENOMEM);
  EXPECT_FALSE(pipe.AddArgument("x", 1));
  EXPECT_EQ(pipe.m_argCapacity, 0);
}

long pipeAddress = 0;
int pipeError = 0;

TEST_F(ExecPipeFailures, PipeFailingGivesOne) {
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
      EXPECT_EQ(run(hostile("exit 0")), 1);
    }
    expectLastError(hostile("exit 0"), 1);
    EXPECT_EQ(pipe.m_readFd, -1);
    EXPECT_EQ(pipe.m_childPid, -1);
    EXPECT_THAT(traced(), ElementsAre(launching + "ERROR: pipe(" +
                                      std::to_string(static_cast<int>(pipeAddress)) +
                                      ") failed, errno " + std::to_string(error)));
  }
}

TEST_F(ExecPipeFailures, ForkFailingGivesFourAndReleasesThePipe) {
  for (const int error : {EAGAIN, ENOMEM}) {
    traceAnew();
    const ScopedFailure failure(Call::fork, error);
    EXPECT_EQ(run(hostile("exit 0")), 4);
    EXPECT_EQ(failure.failed(), 1);
    EXPECT_LT(pipe.m_childPid, 0);
    expectLastError(hostile("exit 0"), 4);
    EXPECT_THAT(traced(),
                ElementsAre(launching + "ERROR: fork() failed, errno " + std::to_string(error)));
    EXPECT_EQ(pipe.Close(10), 0);
  }
}

TEST_F(ExecPipeFailures, ClosingAfterAFailedForkFailsToo) {
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
      EXPECT_EQ(pipe.ExecPipe(hostile("exit 0"), ""), 4);
      EXPECT_EQ(noClose.calls(), 2);
    }
    EXPECT_EQ(traced(), c.lines);
    expectLastError(hostile("exit 0"), 4);
  }
}

TEST_F(ExecPipeFailures, TheParentsCloseFailingIsOnlyTraced) {
  for (const int error : {EIO, EINTR}) {
    traceAnew();
    {
      const ScopedFailure failure(Call::close, error, 1);
      ASSERT_EQ(pipe.ExecPipe(hostile("exit 0"), ""), 0);
      EXPECT_EQ(failure.failed(), 1);
    }
    EXPECT_THAT(traced(), ElementsAre(launching + "ERROR: parent close(pipe[1]) failed, errno " +
                                      std::to_string(error)));
    EXPECT_EQ(pipe.Close(10), 0);
  }
}

TEST_F(ExecPipeFailures, ReadFailingEndsTheOutputAndDropsTheLine) {
  for (const int error : {EIO, EINTR, EAGAIN, EBADF}) {
    traceAnew();
    ASSERT_EQ(pipe.ExecPipe(hostile("say 'one\\npart'"), ""), 0);
    char line[64];
    unsigned char timedOut = 77;
    ASSERT_TRUE(pipe.ReadLine(line, sizeof line, &timedOut, 60));
    std::memset(line, '#', sizeof line);
    {
      const ScopedFailure failure(Call::read, error);
      EXPECT_FALSE(pipe.ReadLine(line, sizeof line, &timedOut, 60));
      EXPECT_EQ(failure.failed(), 1);
    }
    EXPECT_EQ(timedOut, 0);
    EXPECT_EQ(std::string(line, 5), std::string("part#")) << "no terminator, on purpose";
    EXPECT_EQ(pipe.m_bufferCount, -1) << "kept, on purpose";
    EXPECT_EQ(pipe.m_readFd, -1);
    EXPECT_THAT(traced(), ElementsAre("CCmnExecPipePosix::ReadLine ERROR: read() failed, errno " +
                                      std::to_string(error)));
    EXPECT_EQ(pipe.Close(10), 0);
    EXPECT_EQ(run(hostile("say next")), 0);
    EXPECT_THAT(output, ElementsAre("next")) << "nothing of it is left";
  }
}

TEST_F(ExecPipeFailures, ReadFailingInTheMiddleOfExec) {
  const std::string line = std::string(511, 'x') + "\\n";
  for (int nth = 1; nth <= 3; ++nth) {
    for (const Times times : bothTimes) {
      traceAnew();
      {
        const ScopedFailure failure(Call::read, EIO, nth, times, Where::here);
        EXPECT_EQ(run(hostile("say '" + line + line + "'")), 0) << nth;
        EXPECT_EQ(failure.failed(), 1);
      }
      EXPECT_EQ(output.size(), static_cast<size_t>(nth - 1));
      EXPECT_EQ(traced().size(), 1U);
    }
  }
}

TEST_F(ExecPipeFailures, CloseFailingAtTheEndOfTheOutputIsOnlyTraced) {
  for (const bool endOfFile : {true, false}) {
    traceAnew();
    ASSERT_EQ(pipe.ExecPipe(hostile(endOfFile ? "exit 0" : "stay"), ""), 0);
    const std::string fd = std::to_string(pipe.m_readFd);
    char line[64];
    unsigned char timedOut = 0;
    if (!endOfFile) {
      ASSERT_TRUE(pipe.ReadLine(line, sizeof line, &timedOut, 60));
    }
    {
      const ScopedFailure failure(Call::close, EIO);
      EXPECT_FALSE(pipe.ReadLine(line, sizeof line, &timedOut, endOfFile ? 60 : 0));
      EXPECT_EQ(failure.failed(), 1);
    }
    EXPECT_EQ(timedOut, endOfFile ? 0 : 1);
    EXPECT_EQ(pipe.m_readFd, -1);
    // "Readline" is meant.
    EXPECT_THAT(traced(), ElementsAre("CCmnExecPipePosix::Readline ERROR: close(" + fd +
                                      ") failed, errno 5"));
    if (!endOfFile) {
      kill(pipe.m_childPid, SIGKILL);
    }
    EXPECT_EQ(pipe.Close(10), endOfFile ? 0 : 12);
  }
}

TEST_F(ExecPipeFailures, CloseFailingInCloseGivesThree) {
  for (const int error : {EIO, EINTR, EBADF}) {
    traceAnew();
    ASSERT_EQ(pipe.ExecPipe(hostile("exit 0"), ""), 0);
    {
      const ScopedFailure failure(Call::close, error);
      EXPECT_EQ(pipe.Close(10), 3);
      EXPECT_EQ(failure.failed(), 1);
    }
    EXPECT_EQ(pipe.m_readFd, -1);
    EXPECT_EQ(pipe.m_childPid, -1);
    expectLastError(hostile("exit 0"), 3);
    EXPECT_THAT(traced(), IsEmpty());
    EXPECT_EQ(pipe.Close(10), 0) << "only once";
  }
}

TEST_F(ExecPipeFailures, CloseFailingWithoutAChildGivesThree) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  close(ends[1]);
  pipe.m_readFd = ends[0];
  const ScopedFailure failure(Call::close, EIO);
  EXPECT_EQ(pipe.Close(10), 3);
  expectLastError("", 3);
}

TEST_F(ExecPipeFailures, TheChildsFailureGoesBeforeThatOfClosing) {
  const struct {
    const char* mode;
    int code;
  } cases[] = {{"exit 3", 11}, {"die 9", 12}};
  for (const auto& c : cases) {
    ASSERT_EQ(pipe.ExecPipe(hostile(c.mode), ""), 0);
    const ScopedFailure failure(Call::close, EIO);
    EXPECT_EQ(pipe.Close(10), c.code);
    expectLastError(hostile(c.mode), c.code);
  }
  ASSERT_EQ(pipe.ExecPipe(hostile("exit 0"), ""), 0);
  ASSERT_EQ(waitpid(pipe.m_childPid, nullptr, 0), pipe.m_childPid);
  const ScopedFailure failure(Call::close, EIO);
  EXPECT_EQ(pipe.Close(10), 8);
  expectLastError(hostile("exit 0"), 8);
}

TEST_F(ExecPipeFailures, EveryCodeLeavesCommandAndCodeOnly) {
  EXPECT_EQ(run(hostile("exit 3")), 11);
  expectLastError(hostile("exit 3"), 11);
  EXPECT_EQ(run(hostile("die 9")), 12);
  expectLastError(hostile("die 9"), 12);
  EXPECT_EQ(run(hostile("exit 0")), 0);
  expectLastError(hostile("die 9"), 12);
}

// ---- in the child ----

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

TEST_F(ExecPipeFailures, InTheChildAreTracedThereAndGiveStatusOne) {
  for (const ChildFailure& c : childFailures) {
    SCOPED_TRACE(std::to_string(static_cast<int>(c.call)) + "/" + std::to_string(c.nth));
    traceAnew();
    const ScopedFailure failure(c.call, c.error, c.nth, Times::once, Where::child);
    EXPECT_EQ(run(hostile("say x"), c.stdinFile), c.ends ? 11 : 0);
    EXPECT_EQ(output, c.ends ? Lines() : Lines{"x"});
    EXPECT_EQ(failure.failed(), 1);
    Lines expected;
    if (c.traced != nullptr) {
      expected.push_back(launching + c.traced + ", errno " + std::to_string(c.error));
    }
    EXPECT_EQ(traced(), expected);
  }
}

TEST_F(ExecPipeFailures, InTheChildFromThenOn) {
  for (const ChildFailure& c : childFailures) {
    if (!c.ends) {
      continue;
    }
    traceAnew();
    const ScopedFailure failure(c.call, c.error, c.nth, Times::onwards, Where::child);
    EXPECT_EQ(run(hostile("say x"), c.stdinFile), 11);
    EXPECT_EQ(failure.failed(), 1) << "nothing more is tried";
    EXPECT_EQ(traced().size(), 1U);
  }
  traceAnew();
  const ScopedFailure failure(Call::close, EIO, 1, Times::onwards, Where::child);
  EXPECT_EQ(run(hostile("say x")), 0);
  EXPECT_EQ(failure.failed(), 3);
  EXPECT_THAT(traced(), ElementsAre(launching + "ERROR: child close(pipe[0]) failed, errno 5",
                                    launching + "ERROR: child close(pipe[1]) failed, errno 5"));
}

// The child really ends with status 1.
TEST_F(ExecPipeFailures, InTheChildEndItWithStatusOne) {
  const ScopedFailure failure(Call::execv, EACCES, 1, Times::once, Where::child);
  ASSERT_EQ(pipe.ExecPipe(hostile("exit 0"), ""), 0);
  EXPECT_EQ(pipe.WaitPid(60), 1 << 8);
  pipe.m_childPid = -1;
}

TEST_F(ExecPipeFailures, InTheChildAreSilentWithoutATraceLog) {
  pipe.registerTraceLog(Log());
  for (const ChildFailure& c : childFailures) {
    const ScopedFailure failure(c.call, c.error, c.nth, Times::once, Where::child);
    EXPECT_EQ(run(hostile("say x"), c.stdinFile), c.ends ? 11 : 0);
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
      const char* value = getenv(name);
      old_.emplace_back(value != nullptr, value != nullptr ? value : "");
      setenv(name, "inherited", 1);
    }
  }
  ~InheritedVariables() {
    for (size_t i = 0; i < old_.size(); ++i) {
      old_[i].first ? setenv(environmentStep[i], old_[i].second.c_str(), 1)
                    : unsetenv(environmentStep[i]);
    }
  }
  InheritedVariables(const InheritedVariables&) = delete;
  InheritedVariables& operator=(const InheritedVariables&) = delete;

 private:
  std::vector<std::pair<bool, std::string>> old_;
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
      EXPECT_EQ(run(hostile("env")), 0);
      EXPECT_EQ(failure.failed(), 1);
      if (call == Call::putenv) {
        EXPECT_EQ(failure.calls(), nth) << "went on after the failure";
      }
      EXPECT_THAT(traced(), ElementsAre(launching + "locale modification failed, errno 12"));
      expectStoppedAt(nth, output);
    }
  }
  traceAnew();
  EXPECT_EQ(run(hostile("env")), 0);
  expectStoppedAt(14, output);
  EXPECT_THAT(traced(), IsEmpty());
}

#ifndef KELP_COVERAGE  // saving the counters before execv takes memory
TEST_F(ExecPipeFailures, WithoutAnyMemoryTheChildStillExecutes) {
  pipe.registerTraceLog(Log());
  const InheritedVariables inherited;
  const ScopedFailure failure(Call::malloc, ENOMEM, 5, Times::onwards, Where::child);
  EXPECT_EQ(run(hostile("env")), 0);
  expectStoppedAt(5, output);
  EXPECT_EQ(failure.failed(), 1);
}
#endif

// ---- in the child of a host whose standard descriptors are closed ----

// Runs in another process, with the standard descriptors named by the bits closed, and tells
// whether all went well.
template <class Body>
void inAnotherProcess(int closed, Body body) {
  const pid_t child = fork();
  if (child == 0) {
    for (int fd = 0; fd < 3; ++fd) {
      if ((closed >> fd & 1) != 0) {
        close(fd);
      }
    }
    _exit(body() ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << closed;
}

TEST_F(ExecPipeFailures, NoRoomToMoveAPipeEndLosesNoOutput) {
  for (int closed = 1; closed < 8; ++closed) {
    inAnotherProcess(closed, [this] {
      const ScopedFailure failure(Call::fcntl, EMFILE, 1, Times::onwards, Where::child);
      return run(hostile("both")) == 0 && output.size() == 6 && failure.failed() >= 1;
    });
  }
}

// The input's number is 0 from the start then, and stays open.
TEST_F(ExecPipeFailures, AnInputThatIsStandardInputAlreadyIsLeftThere) {
  const kelp_test::ScratchDirectory scratch;
  const std::string file = scratch.path() + "in";
  kelp_test::writeFile(file, "input\n");
  inAnotherProcess(1, [this, &file] {
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
    return run(hostile("echo"), file) == 0 && output == Lines{"input\n"} && dup2Calls.calls() == 2;
  });
}

// As it comes when another thread uses descriptors at the same time.
TEST_F(ExecPipeFailures, AWriteEndThatHasBecomeStandardInputLosesNoOutput) {
  inAnotherProcess(1, [this] {
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
    return run(hostile("both")) == 0 && output.size() == 6;
  });
}

// ---- no memory ----

// Every allocation of a run fails, one after the other. What leaves is only std::bad_alloc, in the
// process that called, and the object can be used again.
TEST_F(ExecPipeFailures, RunningOutOfMemoryLeavesNothingBehind) {
  for (const bool withLog : {false, true}) {
    pipe.registerTraceLog(withLog ? log : Log());
    bool passed = false;
    for (int nth = 1; !passed; ++nth) {
      SCOPED_TRACE(nth);
      ASSERT_LT(nth, 200);
      const std::string command = hostile("say 'a line that is too long for a short string\\n' 3");
      const auto before = kelp_test::ProcessState::capture().descriptors;
      int code = -1;
      const pid_t self = getpid();
      {
        const ScopedFailure failure(Call::throwingNew, ENOMEM, nth, Times::once, Where::here);
        try {
          code = run(command);
        } catch (const std::bad_alloc&) {
          code = -2;
        }
        passed = failure.failed() == 0;
      }
      if (getpid() != self) {
        _exit(77);
      }
      EXPECT_TRUE(code == -2 || code == 6 || code == 11 || !passed) << code;
      pipe.Close(60);
      EXPECT_EQ(kelp_test::ProcessState::capture().descriptors, before);
      EXPECT_EQ(pipe.m_childPid, -1);
      EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }
  }
}

// Nobody closes after an exception here: it has left nothing that the next run could overwrite.
TEST_F(ExecPipeFailures, AnExceptionOutOfExecLeavesNeitherADescriptorNorAChild) {
  pipe.registerTraceLog(Log());
  const std::string command = hostile("say 'a line that is too long for a short string\\n' 3");
  for (const bool closeFails : {false, true}) {
    bool passed = false;
    int thrown = 0;
    for (int nth = 1; !passed; ++nth) {
      SCOPED_TRACE(nth);
      ASSERT_LT(nth, 200);
      const auto before = kelp_test::ProcessState::capture().descriptors;
      {
        const ScopedFailure noMemory(Call::throwingNew, ENOMEM, nth, Times::onwards);
        const ScopedFailure noClose(Call::close, EIO, closeFails ? 2 : INT_MAX, Times::onwards);
        try {
          run(command);
        } catch (const std::bad_alloc&) {
          ++thrown;
        }
        passed = noMemory.failed() == 0;
      }
      EXPECT_EQ(kelp_test::ProcessState::capture().descriptors, before);
      EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
      EXPECT_EQ(run(command), 11) << "the next run is as any other";
    }
    EXPECT_GT(thrown, 5);
  }
}

// Records that wait for memory are kept; starting a command neither throws nor loses the pipe
// because of them.
TEST_F(ExecPipeFailures, NoMemoryForWaitingRecordsDoesNotKeepACommandFromStarting) {
  constexpr int fakePid = 10000000;
  {
    Replacements replacements = impatient();
    replacements.waitpid = [](pid_t, int*, int) { return 0; };
    const ScopedReplacements scope(replacements);
    for (int i = 0; i < 500; ++i) {
      siginfo_t info{};
      info.si_pid = fakePid + i;
      info.si_status = i % 256;
      CCmnExecPipePosix::GetChildStatus(SIGCHLD, &info, nullptr);
    }
  }
  Replacements replacements = impatient();
  static std::unique_ptr<ScopedFailure> noMemory;
  replacements.pipe = [](int* ends) {
    noMemory = std::make_unique<ScopedFailure>(Call::throwingNew, ENOMEM, 1, Times::onwards);
    return realCalls().pipe(ends);
  };
  int code = -1;
  {
    const ScopedReplacements scope(replacements);
    try {
      code = pipe.ExecPipe(hostile("exit 0"), "");
    } catch (const std::bad_alloc&) {
      code = -2;
    }
  }
  EXPECT_GT(noMemory->failed(), 0);
  noMemory.reset();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(pipe.Close(60), 0);
  pipe.registerTraceLog(Log());
  for (int i = 0; i < 500; ++i) {
    int status = -1;
    ASSERT_TRUE(pipe.CheckChildStatusMap(fakePid + i, &status)) << i;
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
    int code = -1;
    try {
      code = pipe.ExecPipe(hostile("exit 0"), "");
    } catch (const std::bad_alloc&) {
      code = -2;
    }
    if (getpid() != self) {
      _exit(77);
    }
    ASSERT_EQ(code, 0);
    EXPECT_EQ(pipe.WaitPid(60), c.ends ? 1 << 8 : 0);
    EXPECT_EQ(noMemory.failed() > 0, c.traced != nullptr);
    pipe.m_childPid = -1;
    pipe.Close(0);
  }
}

// A failure that cannot be traced is dealt with as any other.
TEST_F(ExecPipeFailures, WithoutMemoryTheOutputStillEnds) {
  ASSERT_EQ(pipe.ExecPipe(hostile("exit 0"), ""), 0);
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
    EXPECT_FALSE(pipe.ReadLine(line, sizeof line, &timedOut, 60));
  }
  EXPECT_GT(noMemory->failed(), 0);
  noMemory.reset();
  EXPECT_EQ(pipe.m_readFd, -1);
  EXPECT_EQ(pipe.Close(60), 0);
}

// A child once reaped is not waited for again, and a closed descriptor not closed again.
TEST_F(ExecPipeFailures, WithoutMemoryForTheRecordCloseIsDoneAllTheSame) {
  pipe.registerTraceLog(Log());
  ASSERT_EQ(pipe.ExecPipe(hostile("say 'a command too long for a short string' 3"), ""), 0);
  {
    const ScopedFailure noMemory(Call::throwingNew, ENOMEM, 1, Times::onwards);
    EXPECT_THROW(pipe.Close(60), std::bad_alloc);
  }
  EXPECT_EQ(pipe.m_readFd, -1);
  EXPECT_EQ(pipe.m_childPid, -1);
  ASSERT_EQ(pipe.ExecPipe(hostile("exit 0"), ""), 0);
  {
    const ScopedFailure failure(Call::close, EIO);
    const ScopedFailure noMemory(Call::throwingNew, ENOMEM, 1, Times::onwards);
    EXPECT_THROW(pipe.Close(60), std::bad_alloc);
  }
  EXPECT_EQ(pipe.m_readFd, -1);
  EXPECT_EQ(pipe.m_childPid, -1);
}

// The destructor has no caller to tell.
TEST_F(ExecPipeFailures, WithoutMemoryTheDestructorStillReaps) {
  auto other = std::make_unique<ProbedPipe>();
  ASSERT_EQ(other->ExecPipe(hostile("exit 3"), ""), 0);
  const pid_t child = other->m_childPid;
  const ScopedFailure noMemory(Call::throwingNew, ENOMEM, 1, Times::onwards);
  other.reset();
  EXPECT_GT(noMemory.calls(), 0);
  EXPECT_EQ(kill(child, 0), -1);
}

}  // namespace
