// The version in the header is that of the project (KELP_TEST_VERSION), in every form.
#include "cmnversion.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

TEST(Version, IsThatOfTheProject) {
  EXPECT_STREQ(KELP_CMN_VERSION_STRING, KELP_TEST_VERSION);
  EXPECT_EQ(std::to_string(KELP_CMN_VERSION_MAJOR) + "." + std::to_string(KELP_CMN_VERSION_MINOR) +
                "." + std::to_string(KELP_CMN_VERSION_PATCH),
            KELP_TEST_VERSION);
}

TEST(Version, IsOneNumberWithTwoDigitsForEachOfTheLowerPlaces) {
  int major = 0;
  int minor = 0;
  int patch = 0;
  ASSERT_EQ(std::sscanf(KELP_TEST_VERSION, "%d.%d.%d", &major, &minor, &patch), 3);
  char number[16];
  std::snprintf(number, sizeof number, "%d%02d%02d", major, minor, patch);
  EXPECT_EQ(std::to_string(KELP_CMN_VERSION_NUMBER), number);
}

TEST(Version, CanBeComparedByThePreprocessor) {
#if KELP_CMN_VERSION_NUMBER >= 40400 && KELP_CMN_VERSION_NUMBER < 40500
  constexpr bool isOfThisSeries = true;
#else
  constexpr bool isOfThisSeries = false;
#endif
  EXPECT_TRUE(isOfThisSeries);
}

}  // namespace
