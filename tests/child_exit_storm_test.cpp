// Short-lived children by the thousand, of the library and of the host, while the main line
// allocates, runs commands and consults the map. A handler that merely inserted into the map would
// crash or hang here.
#include "process_state.h"

#include <gtest/gtest.h>

#include <cmnexecpipe.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kelp_cmn_4_4 {
namespace {

class StormPipe : public CCmnExecPipePosix {
 public:
  static const std::map<int, int>& statuses() { return m_childStatusMap; }
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

TEST(ChildExitStorm, LosesNoOutputAndNeitherCrashesNorHangsInOneThread) { storm(); }

TEST(ChildExitStorm, LosesNoOutputAndNeitherCrashesNorHangsBesideAnIdleThread) {
  std::mutex mutex;
  std::condition_variable wake;
  bool done = false;
  std::thread idle([&] {
    std::unique_lock<std::mutex> lock(mutex);
    wake.wait(lock, [&] { return done; });
  });
  storm();
  {
    const std::lock_guard<std::mutex> lock(mutex);
    done = true;
  }
  wake.notify_one();
  idle.join();
}

}  // namespace
}  // namespace kelp_cmn_4_4
