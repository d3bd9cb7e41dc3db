// Short-lived children by the thousand, of the library and of the host, while the main line
// allocates, runs commands and consults the map. A handler that merely inserted into the map would
// crash or hang here.
#include "cmnchildstatus.h"
#include "cmnexecpipe.h"
#include "heap.h"
#include "interposed_calls.h"
#include "process_state.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kelp_cmn_4_4;
using kelp_test::HeapWatch;
using kelp_test::realCalls;
using kelp_test::Replacements;
using kelp_test::ScopedReplacements;

class StormPipe : public CCmnExecPipePosix {
 public:
  static const std::map<int, int>& statuses() { return m_childStatusMap; }

  static void forgetRecords() {
    int ignored = 0;
    StormPipe().CheckChildStatusMap(0, &ignored);
    m_childStatusMap.clear();
  }
};

constexpr int mostChildren = 20000;
#if defined(__SANITIZE_ADDRESS__)
constexpr int fewestChildren = 2500;  // each costs many times as much
#elif defined(__OPTIMIZE__)
constexpr int fewestChildren = mostChildren;
#else
constexpr int fewestChildren = 10000;
#endif

// What the last waitpid of this thread gave.
thread_local volatile pid_t lastReaped = -1;

// Stands between the signal and the library's handler, and writes down what that has to record:
// what the signal tells, whenever waitpid did not fail. Sees whether it allocates, too.
class Witness {
 public:
  Witness() : m_scope(replacements()) {
    count = 0;
    allocations = 0;
    for (auto& record : seen) {
      record = Record{0, 0};
    }
    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_sigaction, &CCmnExecPipePosix::GetChildStatus);
    action.sa_sigaction = handler;
    sigaction(SIGCHLD, &action, nullptr);
  }
  ~Witness() { signal(SIGCHLD, SIG_DFL); }
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  // A handler in another thread may just be writing its record down.
  static std::map<int, int> recorded() {
    std::map<int, int> result;
    for (size_t i = 0; i < count; ++i) {
      Record record = seen.at(i);
      for (; record.pid == 0; record = seen.at(i)) {
        std::this_thread::yield();
      }
      result[record.pid] = record.status;
    }
    return result;
  }
  static size_t recordCount() { return count; }
  static int allocationsInHandler() { return allocations; }

 private:
  static Replacements replacements() {
    Replacements result;
    result.waitpid = [](pid_t pid, int* status, int options) {
      return lastReaped = realCalls().waitpid(pid, status, options);
    };
    return result;
  }

  struct alignas(2 * sizeof(int)) Record {  // or clang++ calls a library for its copies
    int pid;
    int status;
  };
  static_assert(std::atomic<Record>::is_always_lock_free);

  static void handler(int number, siginfo_t* info, void* context) {
    const pid_t kept = lastReaped;
    HeapWatch watch;
    CCmnExecPipePosix::GetChildStatus(number, info, context);
    watch.end();
    allocations += watch.requests();
    if (lastReaped >= 0) {
      const size_t place = count++;
      if (place < seen.size()) {
        seen[place] = Record{info->si_pid, info->si_status};
      }
    }
    lastReaped = kept;
  }

  static inline std::atomic<size_t> count{0};
  static inline std::atomic<int> allocations{0};
  static inline std::array<std::atomic<Record>, mostChildren> seen{};

  const ScopedReplacements m_scope;
};

// Starts children that end at once, and allocates meanwhile, so that their signals meet the
// allocator at work.
class Host {
 public:
  void startForked(int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_GT(startChild(true, 0), 0);
      allocate();
    }
  }
  // Four of five by vfork, which costs a tenth. What matters here is fork, which may hold the
  // heap's locks when a signal comes.
  void startMany(int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_GT(startChild(i % 5 == 0, m_started % 256), 0);
      allocate();
    }
  }
  void allocate() {
    for (size_t size = 16; size < 4096; size *= 2) {
      m_blocks.emplace_back(size, 'x');
    }
    if (m_blocks.size() > 500) {
      m_blocks.clear();
    }
  }
  int started() const { return m_started; }

 private:
  // Not inlined: vfork may change what its caller holds in registers.
  [[gnu::noinline]] pid_t startChild(bool byFork, int status) {
    const pid_t child = byFork ? fork() : vfork();
    if (child == 0) {
      _exit(status);
    }
    ++m_started;
    return child;
  }

  std::vector<std::string> m_blocks;
  int m_started = 0;
};

// Several children may end for one signal, so some are left over for the host to reap.
void reapTheRest() {
  while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

constexpr int runs = 50;

void storm() {
  kelp_test::expectChangeOf("SIGCHLD");
  StormPipe pipe;
  Host host;
  int unknown = 0;
  for (int run = 0; run < runs; ++run) {
    const std::string word = "run" + std::to_string(run);
    host.startForked(8);
    ASSERT_EQ(pipe.ExecPipe("/bin/echo " + word, ""), execPipeOk);
    host.startForked(8);
    char line[64];
    unsigned char timedOut = 0;
    ASSERT_TRUE(pipe.ReadLine(line, sizeof line, &timedOut, 60));
    EXPECT_EQ(line, word + "\n");
    EXPECT_FALSE(pipe.ReadLine(line, sizeof line, &timedOut, 60));
    EXPECT_EQ(timedOut, 0);
    int status = -1;
    EXPECT_FALSE(pipe.CheckChildStatusMap(-7, &status));
    // A signal stands for any number of children, so this one's status may be lost. Nothing
    // else may happen to it.
    const int result = pipe.Close(60);
    EXPECT_TRUE(result == execPipeOk || result == execPipeWaitFailed) << result;
    unknown += result == execPipeWaitFailed ? 1 : 0;
    host.allocate();
  }
  EXPECT_EQ(host.started(), runs * 16);
  EXPECT_LT(unknown, runs);
  reapTheRest();
  for (const auto& [pid, status] : StormPipe::statuses()) {
    EXPECT_GT(pid, 0);
    EXPECT_EQ(status, 0);
  }
}

// What the library records between two of its calls before the queue must grow.
constexpr size_t roomWithoutGrowth =
    ChildStatusRecorder::preparedNodes + StatusQueue::firstCapacity;

// A host that runs one command and then children of its own, without another call of the library.
void runChildrenWithoutTheLibrary() {
  kelp_test::expectChangeOf("SIGCHLD");
  StormPipe pipe;
  ASSERT_EQ(pipe.ExecPipe("/bin/echo", ""), execPipeOk);
  pipe.Close(60);
  StormPipe::forgetRecords();
  const Witness witness;
  Host host;
  // A signal may stand for several children.
  while (host.started() < fewestChildren ||
         (Witness::recordCount() <= roomWithoutGrowth && host.started() < mostChildren)) {
    host.startMany(100);
  }
  std::printf("%d children\n", host.started());
  EXPECT_GT(Witness::recordCount(), roomWithoutGrowth);
  reapTheRest();
  int ignored = 0;
  pipe.CheckChildStatusMap(0, &ignored);
  EXPECT_TRUE(Witness::recorded() == StormPipe::statuses());
  EXPECT_EQ(Witness::allocationsInHandler(), 0);
  StormPipe::forgetRecords();
}

// Does nothing, but makes fork hold the heap's locks.
class IdleThread {
 public:
  IdleThread()
      : m_thread([this] {
          std::unique_lock<std::mutex> lock(m_mutex);
          m_wake.wait(lock, [this] { return m_done; });
        }) {}
  ~IdleThread() {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_done = true;
    }
    m_wake.notify_one();
    m_thread.join();
  }
  IdleThread(const IdleThread&) = delete;
  IdleThread& operator=(const IdleThread&) = delete;

 private:
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_done = false;
  std::thread m_thread;
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
