// Work that several threads do at once.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kelp_test {

constexpr size_t threadCount = 4;

// All begin at the same moment. The work takes the thread's number and tells how often something
// was wrong.
inline void inThreads(const std::function<int(size_t)>& work, size_t count = threadCount) {
  std::atomic<size_t> ready{0};
  std::vector<int> wrong(count);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      for (++ready; ready < count;) {
        std::this_thread::yield();
      }
      wrong[i] = work(i);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, std::vector<int>(count));
}

// A call, and whether it gave what was expected of it.
struct Call {
  std::string name;
  std::function<bool()> isRight;
};

template <class Function, class Expected>
Call call(std::string name, Function function, Expected expected) {
  return {std::move(name), [function, expected] { return function() == expected; }};
}

// All calls, again and again; how many were wrong, in the first round that had some.
inline int wrongCalls(const std::vector<Call>& calls, int rounds) {
  int wrong = 0;
  for (int round = 0; round < rounds && wrong == 0; ++round) {
    for (const Call& each : calls) {
      if (!each.isRight()) {
        ADD_FAILURE() << each.name;
        ++wrong;
      }
    }
  }
  return wrong;
}

}  // namespace kelp_test
