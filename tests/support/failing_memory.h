// Memory that runs out at each place in turn. For programs that link interposed_calls.cpp in.
#pragma once

#include "interposed_calls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <string>

namespace kelp_test {

// Runs `prepare` and then `operation` with every allocation of one kind failing in turn, once and
// from then on, until it passes untouched. After each, `check` is told whether it threw
// std::bad_alloc.
template <class Prepare, class Operation, class Check>
void failEachAllocation(Prepare prepare, Operation operation, Check check) {
  for (const Call call : {Call::malloc, Call::throwingNew, Call::nothrowNew}) {
    for (const Times times : {Times::once, Times::onwards}) {
      int failed = 1;
      for (int nth = 1; failed != 0; ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth) + " of kind " +
                     std::to_string(static_cast<int>(call)) +
                     (times == Times::once ? "" : " and all that follow"));
        ASSERT_LT(nth, 2000);
        prepare();
        bool threw = false;
        {
          const ScopedFailure failure(call, ENOMEM, nth, times);
          try {
            operation();
          } catch (const std::bad_alloc&) {
            threw = true;
          }
          failed = failure.failed();
        }
        check(threw);
        ASSERT_FALSE(failed == 0 && threw);
      }
    }
  }
}

}  // namespace kelp_test
