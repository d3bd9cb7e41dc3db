// Short-lived children by the thousand, of the library and of the host, while the main line
// allocates, runs commands and consults the map. A handler that merely inserted into the map would
// crash or hang here.
#include "process_state.h"

#include <gtest/gtest.h>

#include <cmnexecpipe.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

// What the last waitpid of this thread gave.
thread_local volatile pid_t lastReaped = -1;

// Allocations in a signal handler are counted.
thread_local volatile bool inHandler = false;
std::atomic<int> allocatedInHandler{0};

}  // namespace

__attribute__((noinline)) void* operator new(size_t size) {
  if (inHandler) {
    ++allocatedInHandler;
  }
  void* const block = std::malloc(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}
// Whatever operator delete releases must have come from malloc.
void* operator new(size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
__attribute__((noinline)) void operator delete(void* block) noexcept { std::free(block); }
__attribute__((noinline)) void operator delete(void* block, size_t) noexcept { std::free(block); }

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
  const long result = syscall(SYS_wait4, pid, status, options, nullptr);
  lastReaped = static_cast<pid_t>(result);
  return lastReaped;
}

namespace kelp_cmn_4_4 {
namespace {

class StormPipe : public CCmnExecPipePosix {
 public:
  static const std::map<int, int>& statuses() { return m_childStatusMap; }

  static void forgetRecords() {
    int ignored = 0;
    StormPipe().CheckChildStatusMap(0, &ignored);
    m_childStatusMap.clear();
  }
};

// Stands between the signal and the library's handler, and writes down what that has to record:
// what the signal tells, whenever waitpid did not fail.
class Witness {
 public:
  Witness() {
    count = 0;
    allocatedInHandler = 0;
    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_sigaction, &CCmnExecPipePosix::GetChildStatus);
    action.sa_sigaction = handler;
    sigaction(SIGCHLD, &action, nullptr);
  }
  ~Witness() { signal(SIGCHLD, SIG_DFL); }
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  static std::map<int, int> recorded() {
    std::map<int, int> result;
    for (size_t i = 0; i < count; ++i) {
      result[seen.at(i).first] = seen.at(i).second;
    }
    return result;
  }

 private:
  static void handler(int number, siginfo_t* info, void* context) {
    const pid_t kept = lastReaped;
    inHandler = true;
    CCmnExecPipePosix::GetChildStatus(number, info, context);
    inHandler = false;
    if (lastReaped >= 0) {
      const size_t place = count++;
      if (place < seen.size()) {
        seen[place] = {info->si_pid, info->si_status};
      }
    }
    lastReaped = kept;
  }

  static inline std::atomic<size_t> count{0};
  static inline std::array<std::pair<int, int>, 100000> seen{};
};

// Starts children that end at once, and allocates meanwhile, so that their signals meet the
// allocator at work.
class Host {
 public:
  void startChildren(int count) {
    for (int i = 0; i < count; ++i) {
      const pid_t child = fork();
      if (child == 0) {
        _exit(0);
      }
      ASSERT_GT(child, 0);
      ++started_;
      allocate();
    }
  }
  // Four of five by vfork, which costs a tenth. What matters here is fork, which may hold the
  // heap's locks when a signal comes.
  void startManyChildren(int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_GT(startChild(i / 100 % 5 == 0, i % 256), 0);
      allocate();
    }
  }
  void allocate() {
    for (size_t size = 16; size < 4096; size *= 2) {
      blocks_.emplace_back(size, 'x');
    }
    if (blocks_.size() > 500) {
      blocks_.clear();
    }
  }
  int started() const { return started_; }

 private:
  // Not inlined: vfork may change what its caller holds in registers.
  [[gnu::noinline]] static pid_t startChild(bool byFork, int status) {
    const pid_t child = byFork ? fork() : vfork();
    if (child == 0) {
      _exit(status);
    }
    return child;
  }

  std::vector<std::string> blocks_;
  int started_ = 0;
};

// Several children may end for one signal, so some are left over for the host to reap.
void reapTheRest() {
  while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

void storm() {
  kelp_test::expectChangeOf("SIGCHLD");
  StormPipe pipe;
  Host host;
  int unknown = 0;
  for (int run = 0; run < 150; ++run) {
    const std::string word = "run" + std::to_string(run);
    std::vector<std::string> output;
    host.startChildren(8);
    ASSERT_EQ(pipe.ExecPipe("/bin/echo " + word, ""), 0);
    host.startChildren(8);
    char line[64];
    unsigned char timedOut = 0;
    ASSERT_TRUE(pipe.ReadLine(line, sizeof line, &timedOut, 60));
    EXPECT_EQ(line, word + "\n");
    EXPECT_FALSE(pipe.ReadLine(line, sizeof line, &timedOut, 60));
    EXPECT_EQ(timedOut, 0);
    int status = -1;
    EXPECT_FALSE(pipe.CheckChildStatusMap(-7, &status));
    // A signal stands for any number of children, so this one's status may be gone: 8. Nothing else
    // may happen to it.
    const int result = pipe.Close(60);
    EXPECT_TRUE(result == 0 || result == 8) << result;
    unknown += result == 8 ? 1 : 0;
    host.allocate();
  }
  EXPECT_EQ(host.started(), 150 * 16);
  EXPECT_LT(unknown, 150);
  reapTheRest();
  for (const auto& [pid, status] : StormPipe::statuses()) {
    EXPECT_GT(pid, 0);
    EXPECT_EQ(status, 0);
  }
}

#ifdef __SANITIZE_ADDRESS__
constexpr int ownChildren = 2500;  // a fork takes a hundred times as long there
#else
constexpr int ownChildren = 20000;
#endif

// A host that runs one command and then children of its own, without another call of the library.
void runChildrenWithoutTheLibrary() {
  kelp_test::expectChangeOf("SIGCHLD");
  StormPipe pipe;
  ASSERT_EQ(pipe.ExecPipe("/bin/echo", ""), 0);
  pipe.Close(60);
  StormPipe::forgetRecords();
  const Witness witness;
  Host host;
  host.startManyChildren(ownChildren);
  std::cout << ownChildren << " children without a call of the library\n";
  reapTheRest();
  int ignored = 0;
  pipe.CheckChildStatusMap(0, &ignored);
  EXPECT_GT(StormPipe::statuses().size(), 1000U) << "most signals come one by one";
  EXPECT_TRUE(Witness::recorded() == StormPipe::statuses());
  EXPECT_EQ(allocatedInHandler, 0);
  StormPipe::forgetRecords();
}

// Does nothing, but makes fork hold the heap's locks.
class IdleThread {
 public:
  IdleThread()
      : thread_([this] {
          std::unique_lock<std::mutex> lock(mutex_);
          wake_.wait(lock, [this] { return done_; });
        }) {}
  ~IdleThread() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }
  IdleThread(const IdleThread&) = delete;
  IdleThread& operator=(const IdleThread&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
  std::thread thread_;
};

TEST(ChildExitStorm, LosesNoOutputAndNeitherCrashesNorHangsInOneThread) { storm(); }

TEST(ChildExitStorm, LosesNoOutputAndNeitherCrashesNorHangsBesideAnIdleThread) {
  const IdleThread idle;
  storm();
}

TEST(ChildExitStorm, RecordsEveryChildOfAHostThatDoesNotCallTheLibraryInOneThread) {
  runChildrenWithoutTheLibrary();
}

TEST(ChildExitStorm, RecordsEveryChildOfAHostThatDoesNotCallTheLibraryBesideAnIdleThread) {
  const IdleThread idle;
  runChildrenWithoutTheLibrary();
}

}  // namespace
}  // namespace kelp_cmn_4_4
