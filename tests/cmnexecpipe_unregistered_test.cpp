// Commands in a child that the host forks, where there was no memory for the library's handlers of
// pthread_atfork.
#include "another_process.h"
#include "exec_fixture.h"
#include "heap.h"
#include "interposed_calls.h"
#include "next_symbol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace {

using namespace kelp_cmn_4_4;
using namespace kelp_test;
using testing::AnyOf;
using testing::ElementsAre;

bool isRefused = false;

bool isTheLibrarys(void (*handler)()) {
  Dl_info info{};
  return dladdr(reinterpret_cast<void*>(handler), &info) != 0 &&
         std::strstr(info.dli_fname, "libkelp") != nullptr;
}

}  // namespace

// What pthread_atfork calls. The first time the program is not yet initialised.
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(),
                                 void* object) {
  if (isTheLibrarys(prepare)) {
    isRefused = true;
    return ENOMEM;
  }
  const auto real = nextSymbol<decltype(__register_atfork)>("__register_atfork");
  return real(prepare, parent, child, object);
}

namespace {

class UnregisteredHandlers : public ExecTest {};

TEST_F(UnregisteredHandlers, LeaveTheCommandsOfAChildAsTheyAre) {
  ASSERT_TRUE(isRefused);
  inAnotherProcess([] {
    Lines output;
    ProbedPipe pipe;
    EXPECT_EQ(pipe.run(hostile("say x"), output), execPipeOk);
    EXPECT_THAT(output, ElementsAre("x"));
  });
}

std::atomic<bool> isInside{false};
std::atomic<bool> hasForked{false};

bool stayInside(const HeapRequest& /*request*/) {
  isInside = true;
  while (!hasForked) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  return true;
}

TEST_F(UnregisteredHandlers, MayCostTheStatusWhereAnotherThreadWasInTheMap) {
  const BlockedChildSignal blocked;
  {
    Replacements reapingNothing;
    reapingNothing.waitpid = [](pid_t, int*, int) { return 0; };
    const ScopedReplacements scope(reapingNothing);
    tell(fakePid, 1);  // takes a prepared node, which has to be made good
  }
  std::thread looking([] {
    ProbedPipe other;
    int status = 0;
    const HeapWatch watch(stayInside);
    other.CheckChildStatusMap(fakePid + 9, &status);
  });
  EXPECT_TRUE(eventually([] { return isInside.load(); }));
  inAnotherProcess([] {
    unblockSignals();
    Lines output;
    ProbedPipe pipe;
    EXPECT_THAT(pipe.run(hostile("say x"), output), AnyOf(execPipeOk, execPipeWaitFailed));
    EXPECT_THAT(output, ElementsAre("x"));
  });
  hasForked = true;
  looking.join();
}

}  // namespace
