// Measuring: all contenders of a row in turns, round after round.
#pragma once

#include "rows.h"

#include <string>
#include <vector>

namespace kelp_bench {

struct Times {
  std::string contender;
  double median = 0;  // nanoseconds
};

struct Measurement {
  std::string row;
  double target = 0;
  std::vector<Times> times;
  double ratio = 0;  // to the first peer: the median over the rounds of the ratio within the round
  double low = 0;    // the quartiles of that ratio
  double high = 0;
  double ratioToBest = 0;  // to the peer with the smallest median
};

// Throws std::runtime_error where the contenders' results differ.
Measurement measure(const Row& row);

struct Slope {
  std::string name;
  std::vector<double> times;  // nanoseconds at 1, 10, 100, 1000 times the size
  double worst = 0;           // how much faster than its input the cost grew, at most
};

Slope measure(const Growth& growth);

}  // namespace kelp_bench
