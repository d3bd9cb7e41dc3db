// For checks of very many texts, of which the first that fails is enough.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace kelp_test {

// The same check, of no text after one that failed.
template <class Check>
auto untilFailure(Check check) {
  return [check](const std::string& text) {
    if (!testing::Test::HasFailure()) {
      SCOPED_TRACE(testing::PrintToString(text));
      check(text);
    }
  };
}

}  // namespace kelp_test
