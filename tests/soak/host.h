// What the host does beside its commands: children of its own, timers, allocations, a trace.
#pragma once

#include "cmnexecpipe.h"
#include "cmntracelog.h"
#include "commands.h"
#include "install_root.h"

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kelp_soak {

// Says what was wrong, and ends the process.
[[noreturn]] void wrong(const std::string& what);

std::string text(End end);

class SoakPipe : public kelp_cmn_4_4::CCmnExecPipePosix {
 public:
  int ExecPipe(std::string command, std::string reserved) override {
    const int code = CCmnExecPipePosix::ExecPipe(std::move(command), std::move(reserved));
    m_startedPid = m_childPid;
    return code;
  }

  // The last command's number, which Close() forgets.
  int startedPid() const { return m_startedPid; }

  // Output that was read ahead, which the next run hands out first.
  std::string leftOver() const {
    return {m_readBuffer + m_bufferPos, static_cast<size_t>(m_bufferCount - m_bufferPos)};
  }

  // Else the next ExecPipe() would take the file that the last Exec() named.
  void forgetInput() { m_stdinFile.clear(); }

  static size_t recordCount() { return m_childStatusMap.size(); }

 private:
  int m_startedPid = -1;
};

// Children of this process that have been started, or left by the library, and how each must be
// found to have ended.
class Children {
 public:
  // Of the host's own: each ends at once or soon.
  void start(Random& random);
  // One that runs commands of its own and exits with 0 when all is right.
  template <class Work>
  void startWorking(Work work);
  // A command that the library has closed: it may still be a zombie, or have a record, or both.
  void addClosed(int pid, const std::vector<End>& ends);

  // Waits for each, and checks what waitpid and the library's record tell of it. Afterwards this
  // process has no children.
  void account(SoakPipe& pipe);

  // Of the host's own: all, and how many of them had a record, were left for waitpid, had neither.
  struct Count {
    uint64_t started = 0;
    uint64_t recorded = 0;
    uint64_t reaped = 0;
    uint64_t lost = 0;
  };
  const Count& count() const { return m_count; }
  uint64_t zombiesOfCommands() const { return m_zombiesOfCommands; }

 private:
  enum class Kind { amongOthers, alone, closed };
  struct Child {
    int pid;
    Kind kind;
    std::vector<End> ends;
  };
  static pid_t forkOrFail();
  void addOwn(int pid, Kind kind, End end);
  void tally(const Child& child, bool reaped, bool recorded);

  std::vector<Child> m_all;
  Count m_count;
  uint64_t m_zombiesOfCommands = 0;
};

// Interrupts the process now and then, and may abort a pipe from within its handler.
class Timer {
 public:
  Timer();
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  static void every(long microseconds);
  static void abortAfter(int interruptions, kelp_cmn_4_4::CCmnExecPipePosix& pipe);
  static void abortNothing();
  static uint64_t interruptions();
};

// Texts that come and go, each checked when it goes.
class Allocations {
 public:
  void change(Random& random);
  void clear();

 private:
  std::vector<std::string> m_texts;
};

// The log that all pipes share: its file is read, checked and thrown away again and again.
class Trace {
 public:
  Trace();
  using Log = kelp_cmn_4_4::CCmnTraceLogPtr;

  const Log& log() const { return m_log; }
  void line();
  void checkWhenGrown();
  void check();
  uint64_t lines() const { return m_lines; }

 private:
  const kelp_test::InstallRoot m_root;
  Log m_log;
  uint64_t m_written = 0;
  uint64_t m_read = 0;
  uint64_t m_lines = 0;
};

size_t residentBytes();
size_t heapBytes();

template <class Work>
void Children::startWorking(Work work) {
  const pid_t child = forkOrFail();
  if (child == 0) {
    _exit(work() ? 0 : 1);
  }
  addOwn(child, Kind::alone, {false, 0});
}

}  // namespace kelp_soak
