#include "round.h"

#include "heap.h"
#include "leaks.h"
#include "process_state.h"

#include <gtest/gtest.h>

#include <cxxabi.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

namespace kelp_test {
namespace {

Report* current = nullptr;
CallSites* currentSites = nullptr;  // null where nobody wants them
pid_t roundProcess = 0;

template <size_t size>
void store(std::array<char, size>& target, const std::string& text) {
  const size_t length = std::min(text.size(), size - 1);
  std::memcpy(target.data(), text.data(), length);
  target[length] = '\0';
}

// What comes while the process ends by exit() changes nothing.
void noteEnd(int number) {
  if (!current->exited) {
    current->endingSignal = number;
    current->end.capture();
  }
  _exit(1);
}

void noteExit() {
  if (getpid() == roundProcess) {
    current->exited = true;
    current->end.capture();
  }
}

void watchForTheEnd(unsigned int longestSeconds) {
  Stack().capture();  // what it needs once
  static std::array<char, 65536> memory;
  const stack_t stack{memory.data(), 0, memory.size()};
  sigaltstack(&stack, nullptr);
  struct sigaction action {};
  action.sa_handler = noteEnd;
  action.sa_flags = SA_ONSTACK;
  for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM}) {
    sigaction(number, &action, nullptr);
  }
  std::atexit(noteExit);
  alarm(longestSeconds);
}

std::string thrownName() {
  int status = 0;
  const char* const name = abi::__cxa_current_exception_type()->name();
  char* const text = abi::__cxa_demangle(name, nullptr, nullptr, &status);
  std::string result = status == 0 ? text : name;
  std::free(text);
  return result;
}

// Runs the job as it stands; what is thrown is caught only when nothing fails any more.
template <class Arm>
std::string attempt(Job& job, Arm arm) {
  const std::string before = job.state();
  try {
    [[maybe_unused]] const auto armed = arm();
    job.run();
  } catch (...) {
    const std::string name = thrownName();
    return job.state() == before ? name : name + ", and changed " + before + " to " + job.state();
  }
  return job.outcome();
}

struct Nothing {};

// Counts every call. Needs no memory, which would be counted, too.
class Counting {
 public:
  explicit Counting(Where where) {
    for (size_t i = 0; i < callCount; ++i) {
      m_failures.at(i).emplace(static_cast<Call>(i), 0, INT_MAX, Times::once, where);
    }
    if (currentSites != nullptr) {
      std::exchange(currentSites, nullptr)->watch();
    }
  }
  ~Counting() {
    CallSites::endWatch();
    for (size_t i = 0; i < callCount; ++i) {
      current->calls.at(i) = m_failures.at(i)->calls();
    }
  }
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;

 private:
  std::array<std::optional<ScopedFailure>, callCount> m_failures;
};

class Armed {
 public:
  explicit Armed(const Fault& fault)
      : m_failure(fault.call, fault.error, fault.nth, fault.times, fault.where) {}
  ~Armed() { current->failed += m_failure.failed(); }
  Armed(const Armed&) = delete;
  Armed& operator=(const Armed&) = delete;

 private:
  ScopedFailure m_failure;
};

std::string attemptWith(Job& job, const Fault* fault, Where where) {
  if (fault != nullptr) {
    return attempt(job, [&] { return Armed(*fault); });
  }
  return attempt(job, [&] { return Counting(where); });
}

void work(const Operation& operation, const Fault* fault, Where where) {
  {
    const std::unique_ptr<Job> job = operation.make();
    store(current->outcome, attemptWith(*job, fault, where));
    store(current->next, attempt(*job, [] { return Nothing(); }));
  }
  const std::unique_ptr<Job> job = operation.make();
  store(current->secondOutcome, attemptWith(*job, fault, where));
}

void lookAround(const ProcessState& before) {
  expectChangeOf("SIGCHLD");
  expectChangeOf("children");
  const ProcessState after = ProcessState::capture();
  std::string changes;
  for (const std::string& line : unexpectedChanges(before, after)) {
    changes += line + "; ";
  }
  store(current->changes, changes);
  current->leftChildren = after.hasChildren;
  if (testing::Test::HasFailure()) {
    store(current->complaint, "a check of the operation's own failed");
  }
}

[[noreturn]] void beRound(const Operation& operation, const Fault* fault, Where where, Round kind) {
  roundProcess = getpid();
  setpgid(0, 0);
  dup2(STDOUT_FILENO, STDERR_FILENO);  // what fails says so, to nobody
  watchForTheEnd(operation.longestSeconds);
  const ProcessState before = ProcessState::capture();
  {
    std::optional<LeakRecorder> recorder;
    if (kind == Round::findsLeaks) {
      recorder.emplace();
    }
    HeapWatch watch;
    work(operation, fault, where);
    watch.end();
    current->blocks = watch.blocks();
    if (recorder) {
      recorder->tell(*current);
    }
  }
  lookAround(before);
  current->isDone = true;
  _exit(0);
}

// The signal is blocked meanwhile: the library's handler would reap whatever has ended.
class OwnChildren {
 public:
  OwnChildren() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    sigprocmask(SIG_BLOCK, &set, &m_old);
  }
  ~OwnChildren() { inChild(); }
  void inChild() const { sigprocmask(SIG_SETMASK, &m_old, nullptr); }
  OwnChildren(const OwnChildren&) = delete;
  OwnChildren& operator=(const OwnChildren&) = delete;

 private:
  sigset_t m_old{};
};

// For a round's process, and for what it has left, which is ended. The process is reaped last:
// until then its number is no other's.
int waitForAll(pid_t round) {
  siginfo_t info{};
  while (waitid(P_PID, static_cast<id_t>(round), &info, WEXITED | WNOWAIT) == -1 &&
         errno == EINTR) {
  }
  kill(-round, SIGKILL);
  int status = 0;
  while (waitpid(round, &status, 0) == -1 && errno == EINTR) {
  }
  while (waitpid(-1, nullptr, 0) > 0) {
  }
  return status;
}

}  // namespace

void runRound(const Operation& operation, const Fault* fault, Where where, Round kind,
              Report& report) {
  report = Report();
  current = &report;
  const OwnChildren own;
  const pid_t child = fork();
  if (child == 0) {
    own.inChild();
    beRound(operation, fault, where, kind);
  }
  if (child < 0) {
    store(report.complaint, "no process could be made");
    return;
  }
  const int status = waitForAll(child);
  if (!report.isDone && report.endingSignal == 0 && !report.exited) {
    store(report.complaint, "its process ended with wait status " + std::to_string(status));
  }
}

void runRoundFor(CallSites& sites, const Operation& operation, Where where, Report& report) {
  currentSites = &sites;
  runRound(operation, nullptr, where, Round::plain, report);
  currentSites = nullptr;
}

std::string runHere(const Operation& operation) {
  const std::unique_ptr<Job> job = operation.make();
  attempt(*job, [] { return Nothing(); });
  return attempt(*job, [] { return Nothing(); });
}

}  // namespace kelp_test
