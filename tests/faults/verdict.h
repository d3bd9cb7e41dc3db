// Whether what became of a round is what the documentation gives for its failure.
#pragma once

#include "round.h"

#include <string>

namespace kelp_test {

// How an operation goes where nothing fails.
struct Usual {
  std::string outcome;
  int blocks = 0;
};
Usual usualOf(const Report& report);

// Empty where a round in which nothing failed was as it has to be.
std::string problemOfUsual(const Report& report);

// At most one of these is there.
struct Verdict {
  std::string problem;
  const ForeignFault* foreign = nullptr;
};
Verdict verdictOn(const Operation& operation, const Fault& fault, const Usual& usual,
                  const Report& report);

// The same of two rounds that found leaks: one in which nothing failed, and one in which it did.
Verdict verdictOnLeaksOf(const Report& usual, const Report& report);

}  // namespace kelp_test
