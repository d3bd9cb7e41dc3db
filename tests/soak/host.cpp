#include "host.h"

#include "scratch.h"

#include <malloc.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#ifdef __SANITIZE_ADDRESS__
// From the sanitizer's interface, whose header not every compiler brings.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
extern "C" void __sanitizer_purge_allocator();

// What is freed comes back soon enough for the memory to be watched.
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=8"; }
#endif

namespace kelp_soak {

using kelp_cmn_4_4::CCmnExecPipePosix;

namespace {

std::string traceFile() { return std::string(kelp_test::InstallRoot::traceDir) + "soak.log"; }

}  // namespace

[[noreturn]] void wrong(const std::string& what) {
  constexpr size_t tail = 3000;
  const std::string trace = kelp_test::readFile(traceFile());
  std::printf("WRONG: %s\nthe end of the trace:\n%s\n", what.c_str(),
              trace.substr(trace.size() - std::min(tail, trace.size())).c_str());
  std::fflush(stdout);
  _exit(1);
}

std::string text(End end) {
  return (end.bySignal ? "signal " : "exit status ") + std::to_string(end.number);
}

pid_t Children::forkOrFail() {
  const pid_t child = fork();
  if (child < 0) {
    wrong("fork failed, errno " + std::to_string(errno));
  }
  return child;
}

void Children::addOwn(int pid, Kind kind, End end) {
  m_all.push_back({pid, kind, {end}});
  ++m_count.started;
}

void Children::addClosed(int pid, const std::vector<End>& ends) {
  m_all.push_back({pid, Kind::closed, ends});
}

void Children::start(Random& random) {
  const End end =
      random.oneIn(8) ? End{true, SIGKILL} : End{false, static_cast<int>(random.below(256))};
  const auto microseconds = static_cast<useconds_t>(random.oneIn(3) ? random.below(5000) : 0);
  const pid_t child = forkOrFail();
  if (child == 0) {
    if (microseconds > 0) {
      usleep(microseconds);
    }
    if (end.bySignal) {
      raise(end.number);
    }
    _exit(end.number);
  }
  addOwn(child, Kind::amongOthers, end);
}

namespace {

std::string text(const std::vector<End>& ends) {
  std::string result;
  for (const End& end : ends) {
    result += (result.empty() ? "" : " or ") + text(end);
  }
  return result;
}

// Whether the library has a record of it, which must be right.
bool takeRecord(SoakPipe& pipe, int pid, const std::vector<End>& ends) {
  int number = -1;
  if (!pipe.CheckChildStatusMap(pid, &number)) {
    return false;
  }
  if (std::none_of(ends.begin(), ends.end(),
                   [number](const End& end) { return end.number == number; })) {
    wrong("the record of child " + std::to_string(pid) + " says " + std::to_string(number) +
          ", expected " + text(ends));
  }
  return true;
}

// Whether it was left for waitpid, which must tell the right status.
bool reap(int pid, const std::vector<End>& ends) {
  int status = 0;
  pid_t reaped = 0;
  do {
    reaped = waitpid(pid, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  if (reaped < 0) {
    return false;
  }
  const End found =
      WIFSIGNALED(status) ? End{true, WTERMSIG(status)} : End{false, WEXITSTATUS(status)};
  if (std::none_of(ends.begin(), ends.end(), [found](const End& end) {
        return end.bySignal == found.bySignal && end.number == found.number;
      })) {
    wrong("child " + std::to_string(pid) + " ended with " + text(found) + ", expected " +
          text(ends));
  }
  return true;
}

}  // namespace

void Children::tally(const Child& child, bool reaped, bool recorded) {
  if (child.kind == Kind::closed) {
    m_zombiesOfCommands += reaped ? 1 : 0;
    return;
  }
  m_count.reaped += reaped ? 1 : 0;
  m_count.recorded += recorded ? 1 : 0;
  if (!reaped && !recorded) {
    if (child.kind == Kind::alone) {
      wrong("the status of the only child is lost");
    }
    ++m_count.lost;
  }
}

// The record comes last: reaping may let the handler make one.
void Children::account(SoakPipe& pipe) {
  for (const Child& child : m_all) {
    const bool reaped = reap(child.pid, child.ends);
    tally(child, reaped, takeRecord(pipe, child.pid, child.ends));
  }
  std::vector<Child>().swap(m_all);
  if (waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD) {
    wrong("there is a child that nobody started");
  }
}

namespace {

std::atomic<uint64_t> interruptionCount{0};
std::atomic<int> interruptionsToAbort{0};
std::atomic<CCmnExecPipePosix*> toAbort{nullptr};

void interrupted(int) {
  ++interruptionCount;
  CCmnExecPipePosix* const pipe = toAbort;
  if (pipe != nullptr && --interruptionsToAbort <= 0) {
    pipe->Abort();
    toAbort = nullptr;
  }
}

}  // namespace

Timer::Timer() {
  struct sigaction action {};
  action.sa_handler = interrupted;
  sigemptyset(&action.sa_mask);
  sigaction(SIGALRM, &action, nullptr);
}

Timer::~Timer() {
  every(0);
  signal(SIGALRM, SIG_DFL);
}

void Timer::every(long microseconds) {
  const timeval interval{microseconds / 1000000, microseconds % 1000000};
  const itimerval timer{interval, interval};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

void Timer::abortAfter(int interruptions, CCmnExecPipePosix& pipe) {
  interruptionsToAbort = interruptions;
  toAbort = &pipe;
}

void Timer::abortNothing() { toAbort = nullptr; }

uint64_t Timer::interruptions() { return interruptionCount; }

void Allocations::change(Random& random) {
  for (size_t i = random.below(20); i > 0; --i) {
    const size_t size = random.oneIn(50) ? random.below(300000) : random.below(2000);
    m_texts.emplace_back(size, static_cast<char>('a' + size % 26));
  }
  while (m_texts.size() > 500) {
    std::string& gone = m_texts[random.below(m_texts.size())];
    if (gone.find_first_not_of(static_cast<char>('a' + gone.size() % 26)) != std::string::npos) {
      wrong("memory of the host has changed");
    }
    std::swap(gone, m_texts.back());
    m_texts.pop_back();
  }
}

void Allocations::clear() { std::vector<std::string>().swap(m_texts); }

namespace {

constexpr uintmax_t largestTrace = 2U << 20;

// Such as "2024-05-01 12:34:56.123456 message".
bool isStamped(const std::string& line) {
  static const std::string stamp = "dddd-dd-dd dd:dd:dd.dddddd ";
  for (size_t i = 0; i < stamp.size(); ++i) {
    const bool digit = i < line.size() && line[i] >= '0' && line[i] <= '9';
    if (i >= line.size() || (stamp[i] == 'd' ? !digit : line[i] != stamp[i])) {
      return false;
    }
  }
  return true;
}

}  // namespace

Trace::Trace() : m_log(new kelp_cmn_4_4::CCmnTraceLog) {
  using kelp_test::InstallRoot;
  InstallRoot::makeConfigDir();
  kelp_test::writeFile(std::string(InstallRoot::configDir) + "soak.conf",
                       "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:00000003\n");
  m_log->initialize("soak", "", "", 0, false);
  if (!m_log->isInitialized()) {
    wrong("the trace log cannot be opened");
  }
}

void Trace::line() {
  m_log->trace(2, "the host's line %llu", static_cast<unsigned long long>(m_written++));
}

void Trace::checkWhenGrown() {
  std::error_code error;
  const uintmax_t size = std::filesystem::file_size(traceFile(), error);
  if (!error && size > largestTrace) {
    check();
  }
}

void Trace::check() {
  static const std::string own = "the host's line ";
  std::ifstream file(traceFile());
  for (std::string line; std::getline(file, line); ++m_lines) {
    if (!isStamped(line)) {
      wrong("a line of the trace: '" + line + "'");
    }
    const size_t place = line.find(own);
    if (place != std::string::npos && line.substr(place + own.size()) != std::to_string(m_read++)) {
      wrong("a line of the trace: '" + line + "', expected line " + std::to_string(m_read - 1));
    }
  }
  if (m_read != m_written) {
    wrong("the trace has " + std::to_string(m_read) + " lines of the host, expected " +
          std::to_string(m_written));
  }
  std::error_code ignored;
  std::filesystem::remove(traceFile(), ignored);
}

size_t residentBytes() {
  // What is free is of no interest.
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_purge_allocator();
#else
  malloc_trim(0);
#endif
  std::ifstream file("/proc/self/statm");
  size_t pages = 0;
  file >> pages >> pages;
  return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

#ifndef __SANITIZE_ADDRESS__
namespace {

// The freed blocks that the platform keeps at hand for a thread, seven of a size, count as used: a
// quarter of a megabyte, or none. Afterwards it is as much each time.
void fillThreadCache() {
  constexpr size_t largest = 1032;
  std::vector<std::unique_ptr<char[]>> blocks;
  blocks.reserve(largest);  // one block, and too large to be kept
  for (size_t size = 24; size <= largest; size += 16) {
    for (int i = 0; i < 7; ++i) {
      blocks.push_back(std::make_unique<char[]>(size));
    }
  }
}

}  // namespace
#endif

size_t heapBytes() {
#ifdef __SANITIZE_ADDRESS__
  return __sanitizer_get_current_allocated_bytes();
#else
  fillThreadCache();
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
#endif
}

}  // namespace kelp_soak
