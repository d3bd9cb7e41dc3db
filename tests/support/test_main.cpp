#include "process_state.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  kelp_test::installProcessStateGuard();
  return RUN_ALL_TESTS();
}
