// Memory that runs out. For programs that have heap.cpp among their sources.
#pragma once

#include "cmntypes.h"
#include "heap.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

namespace kelp_test {

// Runs `prepare` and then `operation` with every request of one kind refused in turn, once and from
// then on, until it passes untouched. After each, `check` is told whether it threw std::bad_alloc.
template <class Prepare, class Operation, class Check>
void failEachAllocation(Prepare prepare, Operation operation, Check check) {
  for (const HeapCall call : {HeapCall::malloc, HeapCall::calloc, HeapCall::realloc,
                              HeapCall::throwingNew, HeapCall::nothrowNew}) {
    for (const Times times : {Times::once, Times::onwards}) {
      int refused = 1;
      for (int nth = 1; refused != 0; ++nth) {
        SCOPED_TRACE("request " + std::to_string(nth) + " of kind " +
                     std::to_string(static_cast<unsigned int>(call)) +
                     (times == Times::once ? "" : " and all that follow"));
        ASSERT_LT(nth, 2000);
        prepare();
        bool threw = false;
        {
          HeapWatch watch(nth, times, call);
          try {
            operation();
          } catch (const std::bad_alloc&) {
            threw = true;
          }
          watch.end();
          refused = watch.refused();
        }
        check(threw);
        ASSERT_FALSE(refused == 0 && threw);
      }
    }
  }
}

// A text whose maker had no memory for it, as ACE leaves it: its c_str() is null.
inline kelp_cmn_4_4::tstr brokenText() {
  const HeapWatch watch(1, Times::onwards, HeapCall::nothrowNew);
  return kelp_cmn_4_4::tstr("text");
}

}  // namespace kelp_test
