// Commands that several threads run at once.
#include "another_process.h"
#include "cmntracelog.h"
#include "exec_fixture.h"
#include "in_threads.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>

namespace {

using namespace kelp_cmn_4_4;
using kelp_test::eventually;
using kelp_test::hostile;
using kelp_test::InstallRoot;
using kelp_test::inThreads;
using kelp_test::Lines;
using kelp_test::ProbedPipe;
using testing::AnyOf;

class ThreadsWithCommands : public testing::Test {
 protected:
  ThreadsWithCommands() { kelp_test::expectChangeOf("SIGCHLD"); }
  ~ThreadsWithCommands() override {
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
    ProbedPipe::forgetRecords();
  }
};

// A status that is lost is all that may happen where commands overlap; the output never is.
int wrongRuns(ProbedPipe& pipe, size_t thread, int runs) {
  int wrong = 0;
  for (int run = 0; run < runs; ++run) {
    const std::string word = std::to_string(thread) + "." + std::to_string(run);
    Lines output;
    const int code = pipe.run("/bin/echo " + word, output);
    wrong += code != execPipeOk && code != execPipeWaitFailed ? 1 : 0;
    wrong += output != Lines{word + "\n"} ? 1 : 0;
  }
  return wrong;
}

int wrongRuns(size_t thread, int runs) {
  ProbedPipe pipe;
  return wrongRuns(pipe, thread, runs);
}

TEST_F(ThreadsWithCommands, RunThemAtOnce) {
  inThreads([](size_t i) { return wrongRuns(i, 15); });
}

// Knows the numbers of its children.
class ListingPipe : public ProbedPipe {
 public:
  std::set<int> children;

  int WaitPid(long timeoutSeconds) override {
    children.insert(m_childPid);
    return ProbedPipe::WaitPid(timeoutSeconds);
  }
};

// The numbers of the children that the trace tells of: each of its lines names one.
std::set<int> tracedChildren(const std::string& path) {
  std::set<int> result;
  std::istringstream lines(kelp_test::readFile(path));
  for (std::string line; std::getline(lines, line);) {
    const size_t place = line.find_first_of("0123456789", line.find("pid"));
    result.insert(place == std::string::npos ? -1 : std::atoi(line.c_str() + place));
  }
  return result;
}

TEST_F(ThreadsWithCommands, TraceThemIntoLogsOfTheirOwn) {
  const InstallRoot root;
  InstallRoot::makeConfigDir();
  inThreads([](size_t i) {
    const CCmnTraceLogPtr log(new CCmnTraceLog);
    log->initialize(("pipe" + std::to_string(i)).c_str(), "", "", 3, false);
    ListingPipe pipe;
    pipe.registerTraceLog(log);
    const int wrong = wrongRuns(pipe, i, 10);
    const std::set<int> traced = tracedChildren(log->getTracePath().c_str());
    return wrong + (traced.empty() || traced != pipe.children ? 1 : 0);
  });
}

TEST_F(ThreadsWithCommands, RunThemWhileTheHostReapsItsOwnChildren) {
  std::atomic<bool> done{false};
  std::thread host([&done] {
    while (!done) {
      const pid_t child = fork();
      if (child == 0) {
        _exit(0);
      }
      while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
      }
    }
  });
  inThreads([](size_t i) { return wrongRuns(i, 10); }, 2);
  done = true;
  host.join();
}

TEST_F(ThreadsWithCommands, RunThemBesideAThreadThatReapsEveryChild) {
  std::atomic<bool> done{false};
  std::thread reaper([&done] {
    while (!done) {
      if (waitpid(-1, nullptr, WNOHANG) <= 0) {
        std::this_thread::yield();
      }
    }
  });
  inThreads([](size_t i) { return wrongRuns(i, 10); }, 2);
  done = true;
  reaper.join();
}

TEST_F(ThreadsWithCommands, LookRecordsUpWhileOthersAreMade) {
  Lines output;
  ProbedPipe().run("/bin/true", output);
  std::atomic<int> found{0};
  inThreads([&found](size_t i) {
    ProbedPipe pipe;
    const int first = kelp_test::fakePid + static_cast<int>(i) * 1000;
    for (int pid = first; pid < first + 300; ++pid) {
      const pid_t child = pid % 50 == 0 ? fork() : -1;
      if (child == 0) {
        _exit(3);
      }
      int status = -1;
      found += pipe.CheckChildStatusMap(pid, &status) ? 1 : 0;
    }
    return 0;
  });
  EXPECT_EQ(found, 0);
}

class CountingPipe : public ProbedPipe {
 public:
  std::atomic<int> lines{0};

  bool ReadLine(char* buffer, int size, unsigned char* expired, long timeoutSeconds) override {
    ++lines;
    return ProbedPipe::ReadLine(buffer, size, expired, timeoutSeconds);
  }
};

// One after the other: while another command holds the read end, too, none of them gets SIGPIPE.
TEST_F(ThreadsWithCommands, AreEndedByAnAbortFromAnother) {
  for (int round = 0; round < 4; ++round) {
    CountingPipe pipe;
    Lines output;
    int code = -1;
    std::thread running([&] { code = pipe.run(hostile("flood"), output); });
    EXPECT_TRUE(eventually([&pipe] { return pipe.lines > 3; }));
    pipe.Abort();
    running.join();
    EXPECT_EQ(code, execPipeSignalled);
    EXPECT_GE(output.size(), 3U);
    size_t wrong = 0;
    for (size_t i = 0; i < output.size(); ++i) {
      wrong += output[i] != std::to_string(i) + "\n" ? 1 : 0;
    }
    EXPECT_EQ(wrong, 0U);
  }
}

TEST_F(ThreadsWithCommands, StartReadAndCloseOneInTurn) {
  ProbedPipe pipe;
  char line[16] = "";
  unsigned char timedOut = 0;
  int code = -1;
  std::thread([&] { pipe.ExecPipe("/bin/echo word", ""); }).join();
  std::thread([&] { pipe.ReadLine(line, sizeof line, &timedOut, 60); }).join();
  std::thread([&] { code = pipe.Close(60); }).join();
  EXPECT_STREQ(line, "word\n");
  EXPECT_EQ(code, execPipeOk);
}

TEST_F(ThreadsWithCommands, RunThemWhereSomeBlockTheSignal) {
  inThreads([](size_t i) {
    std::optional<kelp_test::BlockedChildSignal> blocked;
    if (i % 2 == 0) {
      blocked.emplace();
    }
    return wrongRuns(i, 10);
  });
}

// The child must be able to run commands, whatever the others were doing.
TEST_F(ThreadsWithCommands, AreNotInTheWayOfTheHostsForks) {
  std::atomic<bool> done{false};
  std::thread looking([&done] {
    ProbedPipe pipe;
    for (int status = 0; !done;) {
      pipe.CheckChildStatusMap(kelp_test::fakePid, &status);
    }
  });
  for (int round = 0; round < 5; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      Lines output;
      ProbedPipe pipe;
      const int code = pipe.run("/bin/echo x", output);
      _exit(code == execPipeOk && output == Lines{"x\n"} ? 0 : 1);
    }
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_THAT(status, AnyOf(0, -1));  // the handler may have reaped it
  }
  done = true;
  looking.join();
}

}  // namespace
