#include "cmnexecpipe.h"

#include "Q_strings.h"
#include "cmnchildoutput.h"
#include "cmnchildstatus.h"
#include "cmncommandline.h"
#include "cmnexecchild.h"
#include "cmnmillisleep.h"
#include "cmnstringtool.h"
#include "cmntracecall.h"

#include <pthread.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace kelp_cmn_4_4 {

struct sigaction CCmnExecPipePosix::m_act;
std::map<int, int> CCmnExecPipePosix::m_childStatusMap;

namespace {

constexpr long destructorTimeoutSeconds = 10;
constexpr int slotsPerGrowth = 10;
constexpr size_t messageSize = 100;
constexpr long maxSecondsAfterSignal = 30;
constexpr long pollMilliseconds = 100;

// Never destroyed: a child may end while the process destroys its static objects.
ChildStatusRecorder& recorder = *new ChildStatusRecorder;

struct SharedMap : CCmnExecPipePosix {
  using CCmnExecPipePosix::m_childStatusMap;
};

// Destroyed before the map, which was constructed before it.
struct Recording {
  Recording() {
    pthread_atfork([] { recorder.beforeFork(); },
                   [] { recorder.afterFork(SharedMap::m_childStatusMap); },
                   [] { recorder.afterForkInChild(SharedMap::m_childStatusMap); });
  }
  ~Recording() { recorder.close(); }
} recording;

// Several threads may do this at the same time, so plain stores would be a data race. Relaxed: all
// of them write the same words, and nobody takes other data to be there because of them.
void assignWhole(struct sigaction& target, const struct sigaction& source) {
  using Word [[gnu::may_alias]] = unsigned long;
  static_assert(sizeof target % sizeof(Word) == 0);
  for (size_t i = 0; i < sizeof target / sizeof(Word); ++i) {
    __atomic_store_n(reinterpret_cast<Word*>(&target) + i,
                     *(reinterpret_cast<const Word*>(&source) + i), __ATOMIC_RELAXED);
  }
}

template <class... Args>
std::wstring failureText(const char* format, Args... args) {
  char text[messageSize];
  Q_snprintf(text, sizeof text, format, args...);
  return CCmnStringTool::str2wstr(std::string(text));
}

void closeOrTrace(const CCmnTraceLogPtr& log, int fd, const char* failure) {
  if (close(fd) != 0) {
    traceTo(log, traceError, failure, errno);
  }
}

void releaseUnusedPipe(const CCmnTraceLogPtr& log, const PipeEnds& ends, int forkError) {
  closeOrTrace(log, ends.readEnd,
               "CCmnExecPipePosix::ExecPipe ERROR: failed fork close(pipe[0]) failed, errno %d");
  closeOrTrace(log, ends.writeEnd,
               "CCmnExecPipePosix::ExecPipe ERROR: failed fork close(pipe[1]) failed, errno %d");
  traceTo(log, traceError, "CCmnExecPipePosix::ExecPipe ERROR: fork() failed, errno %d", forkError);
}

int recordFailure(ECmnExecPipe& lastError, const ECmnExecPipe& failure) {
  lastError = failure;
  return failure.m_code;
}

ECmnExecPipe pipeFailure(const CCmnTraceLogPtr& log, const std::string& command, const int* fds,
                         int error) {
  traceTo(log, traceError, "CCmnExecPipePosix::ExecPipe ERROR: pipe(%d) failed, errno %d",
          // Deliberate: the array's address. Filters of trace files expect a number there.
          static_cast<int>(reinterpret_cast<intptr_t>(fds)), error);
  return {command, failureText("errno=%d", error), execPipePipeFailed, error};
}

ECmnExecPipe closeFailure(const std::string& command, int fd, int error) {
  return {command, failureText("close(%d) failed, errno %d", fd, error), execPipeCloseFailed,
          error};
}

// How many bytes came: 0 at the end of the output and when the time ran out, negative for an error.
template <size_t size>
int readInTime(const CCmnTraceLogPtr& log, int fd, char (&block)[size], unsigned char& timedOut,
               long timeoutSeconds) {
  timedOut = awaitReadable(fd, timeoutSeconds) ? 0 : 1;
  if (timedOut != 0) {
    return 0;
  }
  const auto count = static_cast<int>(read(fd, block, size));
  if (count < 0) {
    traceTo(log, traceError, "CCmnExecPipePosix::ReadLine ERROR: read() failed, errno %d", errno);
  }
  return count;
}

void closeReadEnd(const CCmnTraceLogPtr& log, int fd) {
  if (close(fd) != 0) {
    // Deliberate: "Readline" is spelled so. Filters of trace files look for it.
    traceTo(log, traceError, "CCmnExecPipePosix::Readline ERROR: close(%d) failed, errno %d", fd,
            errno);
  }
}

void installHandler(const CCmnTraceLogPtr& log, struct sigaction& installed) {
  // Deliberate: set anew for every command, as a host may have set another meanwhile; the one
  // before is neither kept nor called, since only one of them can reap a child. Without SA_RESTART,
  // as hosts take the EINTR of their own waits for the news that a child has ended.
  struct sigaction action {};
  action.sa_sigaction = CCmnExecPipePosix::GetChildStatus;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO | SA_NOCLDSTOP;
  if (sigaction(SIGCHLD, &action, nullptr) != 0) {
    traceTo(log, traceError,
            "CCmnExecPipePosix::ExecPipe ERROR: sigaction could not register SIGCHLD signal "
            "handler");
  }
  assignWhole(installed, action);
}

bool findInMap(CCmnExecPipePosix& pipe, const CCmnTraceLogPtr& log, int pid, int& value) {
  if (!pipe.CheckChildStatusMap(pid, &value)) {
    return false;
  }
  traceTo(log, traceDetail, "CCmnExecPipePosix::WaitPid: found child pid %d in map, returning %d",
          pid, value);
  return true;
}

// Whether the wait came to an end in time: with the child's status, or with -1 for a child that
// cannot be found.
bool pollChild(CCmnExecPipePosix& pipe, const CCmnTraceLogPtr& log, int pid, long seconds,
               int& result) {
  const time_t start = time(nullptr);
  // Deliberate: in the clock's whole seconds, the last one included, so that a time of 0 looks
  // once at least.
  while (time(nullptr) - start <= seconds) {
    if (findInMap(pipe, log, pid, result)) {
      return true;
    }
    traceTo(log, traceDetail,
            "CCmnExecPipePosix::WaitPid: child pid %d not in childStatusMap, calling waitpid()",
            pid);
    int status = 0;
    const int reaped = waitpid(pid, &status, WNOHANG);
    if (reaped == pid) {
      result = status;
      return true;
    }
    if (reaped == -1 && errno == ECHILD) {
      if (!findInMap(pipe, log, pid, result)) {
        result = -1;
      }
      return true;
    }
    millisleep(pollMilliseconds);
  }
  return false;
}

struct Escalation {
  int signalNumber;
  const char* failure;
};
constexpr Escalation escalation[] = {
    {SIGTERM, "CCmnExecPipePosix::WaitPid ERROR: kill(%d, SIGTERM) failed, errno %d"},
    {SIGKILL, "CCmnExecPipePosix::WaitPid ERROR: kill(%d, SIGKILL) failed, errno %d"}};

// Deliberate: reads every status as an encoded wait status, also a plain exit code or signal number
// from the map. Hosts know an exit status of 3 as a signal 3, and act on that code.
ECmnExecPipe decodeStatus(const std::string& command, int status) {
  if (status == -1) {
    return {command, L"Error in WaitPid()", execPipeWaitFailed, 0};
  }
  const int signalBits = status & 0x7f;
  const int exitStatus = (status >> 8) & 0xff;
  if (signalBits == 0x7f) {
    return {command, failureText("Command terminated with unexpected status: %d", status),
            execPipeUnexpectedStatus, status};
  }
  if (signalBits != 0) {
    return {command, failureText("Command terminated by signal %d", signalBits), execPipeSignalled,
            signalBits};
  }
  if (exitStatus != 0) {
    return {command, failureText("Command exited with status %d", exitStatus), execPipeExitStatus,
            exitStatus};
  }
  return {};
}

// Divides the text, which may be null.
void appendLines(char* text, int length, std::vector<std::string>& output) {
  char* line = text;
  int handedOut = 0;
  while (line != nullptr && handedOut < length) {
    char* newline = std::strchr(line, '\n');
    if (newline == nullptr) {
      break;  // Deliberate: drops what follows the last line end, which a hook has cut off.
    }
    *newline = '\0';
    output.emplace_back(line);
    handedOut += static_cast<int>(newline - line) + 1;
    line = newline + 1;
  }
}

}  // namespace

CCmnExecPipePosix::CCmnExecPipePosix() { CCmnExecPipePosix::Init(); }

CCmnExecPipePosix::CCmnExecPipePosix(std::vector<std::string> hostList)
    : CCmnExecPipeBase(std::move(hostList)) {
  CCmnExecPipePosix::Init();
}

CCmnExecPipePosix::~CCmnExecPipePosix() {
  try {
    CCmnExecPipePosix::Close(destructorTimeoutSeconds);
  } catch (const std::bad_alloc&) {
    // There was no memory to record how the child ended, which nobody can ask any more.
  }
  ClearArgsList();
}

// Deliberate: releases nothing. The constructors call it on members that have no value yet.
void CCmnExecPipePosix::Init() {
  m_bufferCount = 0;
  m_bufferPos = 0;
  m_childPid = -1;
  m_readFd = -1;
  m_argc = 0;
  m_argCapacity = 0;
  m_argv = nullptr;
}

int CCmnExecPipePosix::IsChildContext() {
  return m_pfnIsChildContext != nullptr ? m_pfnIsChildContext() : 0;
}

int CCmnExecPipePosix::ExecCommandInChildContext(std::string command,
                                                 std::vector<std::string>& output) {
  if (m_pfnExecInChild == nullptr) {
    return 1;
  }
  char* text = nullptr;
  int length = 0;
  const int result = m_pfnExecInChild(command.c_str(), &text, &length);
  // Deliberate: the free hook is not called. A hook without output has made none.
  if (length == 0) {
    return result;
  }
  const auto release = [&] {
    if (m_pfnFreeOutput != nullptr) {
      m_pfnFreeOutput(text, length);
    }
  };
  try {
    appendLines(text, length, output);
  } catch (...) {
    release();
    throw;
  }
  release();
  return result;
}

void CCmnExecPipePosix::ClearArgsList() {
  if (m_argv == nullptr) {
    return;
  }
  for (int i = 0; i < m_argc; ++i) {
    delete[] m_argv[i];
  }
  std::free(m_argv);
  m_argv = nullptr;
  m_argc = 0;
  m_argCapacity = 0;
}

bool CCmnExecPipePosix::AddArgument(const char* text, int length) {
  if (m_argc >= m_argCapacity) {
    const int bytes = (m_argCapacity + slotsPerGrowth) * static_cast<int>(sizeof(char*));
    void* grown = std::realloc(m_argv, static_cast<size_t>(bytes));
    if (grown == nullptr) {
      traceTo(m_traceLog, traceError,
              "CCmnExecPipePosix::AddArgument ERROR: realloc(%d) failed, errno %d", bytes, errno);
      return false;
    }
    m_argv = static_cast<char**>(grown);
    m_argCapacity += slotsPerGrowth;
  }
  if (length == 0) {
    m_argv[m_argc] = nullptr;
    return true;
  }
  char* argument = new (std::nothrow) char[static_cast<size_t>(length) + 1];
  if (argument == nullptr) {
    traceTo(m_traceLog, traceError,
            "CCmnExecPipePosix::AddArgument() ERROR: new[%d] failed, errno %d", length + 1, errno);
    return false;
  }
  m_argv[m_argc++] = argument;
  return decodeArgument(text, length, argument);
}

bool CCmnExecPipePosix::ParseCommand(const char* commandLine) {
  const char* p = commandLine;
  while (true) {
    p = skipBlanks(p);
    if (*p == '\0') {
      break;
    }
    const char* end = endOfWord(p);
    if (end == nullptr || !AddArgument(p, static_cast<int>(end - p))) {
      return false;
    }
    p = end;
  }
  return m_argc > 0 && AddArgument(nullptr, 0);
}

int CCmnExecPipePosix::ExecPipe(std::string command, std::string /*reserved*/) {
  installHandler(m_traceLog, m_act);
  // Deliberate: what an abandoned run left in the read-ahead stays, for ReadLine() to hand out
  // first. A host that aborted a command can so still get it.
  m_commandLine = command;
  ClearArgsList();
  if (!ParseCommand(command.c_str())) {
    return recordFailure(m_lastError, {command, execPipeParseFailed});
  }
  // Deliberate: PATH is not searched, so that the environment cannot say what is run.
  if (access(m_argv[0], X_OK) != 0) {
    return recordFailure(m_lastError, {command, execPipeNotExecutable});
  }
  int fds[2];
  if (pipe(fds) != 0) {
    return recordFailure(m_lastError, pipeFailure(m_traceLog, command, fds, errno));
  }
  const PipeEnds ends{fds[0], fds[1]};
  recorder.drainAndTopUp(m_childStatusMap);
  m_childPid = fork();
  if (m_childPid == 0) {
    runExecChild(m_traceLog, ends, m_stdinFile, m_argv);
  }
  if (m_childPid < 0) {
    releaseUnusedPipe(m_traceLog, ends, errno);
    return recordFailure(m_lastError, {command, execPipeForkFailed});
  }
  m_readFd = ends.readEnd;
  closeOrTrace(m_traceLog, ends.writeEnd,
               "CCmnExecPipePosix::ExecPipe ERROR: parent close(pipe[1]) failed, errno %d");
  return execPipeOk;
}

bool CCmnExecPipePosix::ReadLine(char* buffer, int size, unsigned char* timedOut,
                                 long timeoutSeconds) {
  *timedOut = 0;
  if (m_readFd == -1 || size < 2) {
    return false;
  }
  Line line(buffer, size);
  do {
    if (m_bufferPos < m_bufferCount) {
      m_bufferPos += static_cast<int>(line.append(
          m_readBuffer + m_bufferPos, static_cast<size_t>(m_bufferCount - m_bufferPos)));
      if (line.isWhole()) {
        line.terminate();
        return true;
      }
    }
    m_bufferPos = 0;
    m_bufferCount = 0;
    m_bufferCount = readInTime(m_traceLog, m_readFd, m_readBuffer, *timedOut, timeoutSeconds);
  } while (m_bufferCount > 0);
  // Deliberate: a read error, which leaves its negative count behind, drops what came of the line.
  // It must not pass for the last one.
  const bool lastLine = !line.isEmpty() && m_bufferCount == 0;
  if (lastLine) {
    line.terminate();
  }
  // Deliberate: after a time-out, too. What a late child still writes is not taken for an answer.
  closeReadEnd(m_traceLog, std::exchange(m_readFd, -1));
  return lastLine;
}

void CCmnExecPipePosix::GetChildStatus(int /*signalNumber*/, siginfo_t* info, void* /*context*/) {
  const int kept = errno;
  if (const ChildStatusRecorder::Visit visit(recorder); visit) {
    int status = 0;
    // Deliberate: reaps one child, and records what the signal tells, not what waitpid found. They
    // may be two children, and only the signal's status is the plain code that the map holds.
    if (waitpid(-1, &status, WNOHANG) >= 0 && info != nullptr) {
      recorder.record(m_childStatusMap, info->si_pid, info->si_status);
    }
  }
  errno = kept;
}

bool CCmnExecPipePosix::CheckChildStatusMap(int pid, int* status) {
  int value = 0;
  if (!recorder.extract(m_childStatusMap, pid, value)) {
    return false;
  }
  *status = value;
  // Deliberate: two names in the texts. Filters of trace files look for both.
  if (value != 0) {
    traceTo(m_traceLog, traceDetail,
            "CheckChildStatus: child already exited with non-zero exit status of %d (pid:%d)",
            value, pid);
  } else {
    traceTo(m_traceLog, traceDetail,
            "CheckChildStatusMap: child already exited with 0 status (child pid:%d, ret:%d)", pid,
            value);
  }
  return true;
}

int CCmnExecPipePosix::WaitPid(long timeoutSeconds) {
  if (m_childPid <= 0) {
    traceTo(m_traceLog, traceError, "CCmnExecPipePosix::WaitPid ERROR: invalid child process pid");
    return -1;
  }
  int status = -1;
  if (pollChild(*this, m_traceLog, m_childPid, timeoutSeconds, status)) {
    return status;
  }
  for (const Escalation& step : escalation) {
    if (kill(m_childPid, step.signalNumber) != 0) {
      traceTo(m_traceLog, traceError, step.failure, m_childPid, errno);
    }
    if (pollChild(*this, m_traceLog, m_childPid, std::min(timeoutSeconds, maxSecondsAfterSignal),
                  status)) {
      return status;
    }
  }
  traceTo(m_traceLog, traceError,
          "CCmnExecPipePosix::WaitPid ERROR: child process appears to be hung");
  return -1;
}

int CCmnExecPipePosix::Close(long timeoutSeconds) {
  int result = execPipeOk;
  if (m_readFd != -1) {
    const int fd = std::exchange(m_readFd, -1);
    if (close(fd) != 0) {
      const int error = errno;
      result = execPipeCloseFailed;
      try {
        m_lastError = closeFailure(m_commandLine, fd, error);
      } catch (const std::bad_alloc&) {
        CCmnExecPipePosix::Close(timeoutSeconds);  // the child, which would be left to nobody
        throw;
      }
    }
  }
  if (m_childPid == -1) {
    return result;
  }
  const int status = WaitPid(timeoutSeconds);
  m_childPid = -1;
  const ECmnExecPipe failure = decodeStatus(m_commandLine, status);
  // Deliberate: how the child ended goes before a failure of closing, as this is what
  // was asked for.
  if (failure.m_code == execPipeOk) {
    return result;
  }
  m_lastError = failure;
  return failure.m_code;
}

}  // namespace kelp_cmn_4_4
