// What the exec pipe's tests share: the external command, a pipe whose inside shows, a trace log
// that can be read.
#pragma once

#include "cmnexecpipe.h"
#include "cmntracelog.h"
#include "install_root.h"
#include "process_state.h"
#include "scratch.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace kelp_test {

using Lines = std::vector<std::string>;

// The command line that runs the helper program in one of its modes.
inline std::string hostile(const std::string& arguments) {
  return std::string("'") + HOSTILE_CHILD_PATH + "' " + arguments;
}

// No process ever has such a number.
constexpr int fakePid = 10000000;

// Calls the handler with what the signal would tell.
inline void tell(int pid, int status) {
  siginfo_t info{};
  info.si_signo = SIGCHLD;
  info.si_pid = pid;
  info.si_status = status;
  kelp_cmn_4_4::CCmnExecPipePosix::GetChildStatus(SIGCHLD, &info, nullptr);
}

// Blocks SIGCHLD, so that only the library's own waitpid reaps.
class BlockedChildSignal {
 public:
  BlockedChildSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &set, &m_old);
  }
  ~BlockedChildSignal() { pthread_sigmask(SIG_SETMASK, &m_old, nullptr); }
  BlockedChildSignal(const BlockedChildSignal&) = delete;
  BlockedChildSignal& operator=(const BlockedChildSignal&) = delete;

 private:
  sigset_t m_old{};
};

// For the beginning of another process's work.
inline void unblockSignals() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Asks until the condition holds, for at most a minute.
template <class Condition>
bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Sets an environment variable for as long as it lives.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : m_name(name) {
    if (const char* old = getenv(name)) {
      m_old = old;
    }
    setenv(name, value, 1);
  }
  ~ScopedVariable() { m_old ? setenv(m_name, m_old->c_str(), 1) : unsetenv(m_name); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* m_name;
  std::optional<std::string> m_old;
};

class ProbedPipe : public kelp_cmn_4_4::CCmnExecPipePosix {
 public:
  using CCmnExecPipePosix::CCmnExecPipePosix;
  using CCmnExecPipePosix::m_abortRequested;
  using CCmnExecPipePosix::m_act;
  using CCmnExecPipePosix::m_argc;
  using CCmnExecPipePosix::m_argCapacity;
  using CCmnExecPipePosix::m_argv;
  using CCmnExecPipePosix::m_bufferCount;
  using CCmnExecPipePosix::m_bufferPos;
  using CCmnExecPipePosix::m_childPid;
  using CCmnExecPipePosix::m_childStatusMap;
  using CCmnExecPipePosix::m_commandLine;
  using CCmnExecPipePosix::m_hostList;
  using CCmnExecPipePosix::m_hostString1;
  using CCmnExecPipePosix::m_hostString2;
  using CCmnExecPipePosix::m_lastError;
  using CCmnExecPipePosix::m_readBuffer;
  using CCmnExecPipePosix::m_readFd;
  using CCmnExecPipePosix::m_stdinFile;
  using CCmnExecPipePosix::m_traceLog;

  // Before waiting, lets the handler reap and record the child.
  bool handlerFirst = false;

  int WaitPid(long timeoutSeconds) override {
    if (handlerFirst) {
      EXPECT_TRUE(awaitRecord(m_childPid));
    }
    return CCmnExecPipePosix::WaitPid(timeoutSeconds);
  }

  // A look-up takes records that came while the map was in use into the map.
  static bool hasRecord(int pid) {
    const BlockedChildSignal blocked;
    int ignored = 0;
    ProbedPipe().CheckChildStatusMap(0, &ignored);
    return m_childStatusMap.count(pid) != 0;
  }

  static bool awaitRecord(int pid) {
    return eventually([pid] { return hasRecord(pid); });
  }

  // Empties the map and whatever waits to be taken into it.
  static void forgetRecords() {
    const BlockedChildSignal blocked;
    int ignored = 0;
    ProbedPipe().CheckChildStatusMap(0, &ignored);
    m_childStatusMap.clear();
  }

  int run(const std::string& command, Lines& output, const std::string& stdinFile = "",
          unsigned long timeoutSeconds = 60) {
    return Exec(command, output, stdinFile, timeoutSeconds, "", "", "");
  }

  // The next line by a buffer of that size, or nothing.
  std::optional<std::string> next(int size = 100, long timeoutSeconds = 60) {
    std::vector<char> buffer(static_cast<size_t>(std::max(size, 1)) + 1, '#');
    timedOut = 77;
    const bool stored = ReadLine(buffer.data(), size, &timedOut, timeoutSeconds);
    EXPECT_EQ(buffer.back(), '#') << "wrote behind the buffer";
    untouched = buffer[0] == '#';
    if (!stored) {
      return std::nullopt;
    }
    return std::string(buffer.begin(), std::find(buffer.begin(), buffer.end() - 1, '\0'));
  }
  unsigned char timedOut = 77;
  bool untouched = false;

  Lines arguments() const { return {m_argv, m_argv + m_argc}; }
  const char* argument(int number) const { return m_argv[number]; }
};

// The trace log's files lie in the install root.
class ExecTest : public testing::Test {
 protected:
  ExecTest() {
    expectChangeOf("SIGCHLD");
    InstallRoot::makeConfigDir();
    m_log = openLog(3);
  }
  ~ExecTest() override { ProbedPipe::forgetRecords(); }

  using Log = kelp_cmn_4_4::CCmnTraceLogPtr;

  // Starts an empty trace file.
  static Log openLog(int level) {
    std::error_code ignored;
    std::filesystem::remove(traceFile(), ignored);
    writeFile(std::string(InstallRoot::configDir) + "exectest.conf",
              "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:0000000" + std::to_string(level) + "\n");
    Log result(new kelp_cmn_4_4::CCmnTraceLog);
    result->initialize("exectest", "", "", 0, false);
    EXPECT_TRUE(result->isInitialized());
    return result;
  }

  // The messages traced so far, without their times.
  static Lines traced() {
    Lines messages;
    std::istringstream lines(readFile(traceFile()));
    for (std::string line; std::getline(lines, line);) {
      const size_t date = line.find(' ');
      const size_t clock = date == std::string::npos ? date : line.find(' ', date + 1);
      messages.push_back(clock == std::string::npos ? line : line.substr(clock + 1));
    }
    return messages;
  }

  Log m_log;

 private:
  static std::string traceFile() { return std::string(InstallRoot::traceDir) + "exectest.log"; }

  const InstallRoot m_root;
};

}  // namespace kelp_test
