// The calls that fail, and how.
#pragma once

#include "interposed_calls.h"

#include <array>
#include <string>
#include <vector>

namespace kelp_test {

// One failure, or many: the n-th call, or all from the n-th on.
struct Fault {
  Call call;
  int error;
  int nth;
  Times times;
  Where where;
};
std::string describe(const Fault& fault);

struct FailingCall {
  Call call;
  const char* name;
  std::vector<int> errors;  // what it can give
};

// Every call that can be made to fail.
const std::vector<FailingCall>& failingCalls();

bool isMemory(Call call);

// Fails for what it is given alone: too long a text, a character that cannot be encoded. Of the
// library's own formats none does.
bool isFormatting(Call call);

using CallCounts = std::array<int, callCount>;

}  // namespace kelp_test
