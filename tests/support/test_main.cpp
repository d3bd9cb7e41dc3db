#include "process_state.h"

#include <gtest/gtest.h>

#ifdef KELP_SANITIZE_THREADS
#include <chrono>
#include <thread>
#endif

int main(int argc, char** argv) {
#ifdef KELP_SANITIZE_THREADS
  // The sanitizer may lose a signal that comes in a thread's first call that can wait. This is it.
  std::this_thread::sleep_for(std::chrono::microseconds(1));
#endif
  testing::InitGoogleTest(&argc, argv);
  kelp_test::installProcessStateGuard();
  return RUN_ALL_TESTS();
}
