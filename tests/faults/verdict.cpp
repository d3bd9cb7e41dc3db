#include "verdict.h"

#include <fnmatch.h>
#include <signal.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <vector>

namespace kelp_test {
namespace {

constexpr char noMemory[] = "std::bad_alloc";

bool contains(const std::vector<Call>& calls, Call call) {
  return std::find(calls.begin(), calls.end(), call) != calls.end();
}

bool concerns(const Allowance& allowance, const Fault& fault) {
  const bool isThere = allowance.where == Where::anywhere || allowance.where == fault.where;
  return isThere && contains(allowance.calls, fault.call);
}

bool matchesAny(const std::vector<std::string>& patterns, const std::string& text,
                const std::string& usual) {
  return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
    return pattern == asEver ? text == usual : fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
  });
}

// What the operation's allowances say of a fault, all of them together.
struct Allowed {
  std::vector<std::string> outcomes;
  std::vector<std::string> nextOutcomes{asEver};
  bool leavesChildren = false;
};

Allowed allowedFor(const Operation& operation, const Fault& fault) {
  Allowed allowed;
  if (isMemory(fault.call)) {
    allowed.outcomes = {asEver, noMemory};
  }
  for (const Allowance& allowance : operation.allowances) {
    if (concerns(allowance, fault)) {
      const auto append = [](auto& all, const auto& more) {
        all.insert(all.end(), more.begin(), more.end());
      };
      append(allowed.outcomes, allowance.outcomes);
      append(allowed.nextOutcomes, allowance.nextOutcomes);
      allowed.leavesChildren = allowed.leavesChildren || allowance.leavesChildren;
    }
  }
  if (allowed.outcomes.empty()) {
    // What comes of a format that fails is documented only where it is the caller's.
    allowed.outcomes = {isFormatting(fault.call) ? "*" : asEver};
  }
  return allowed;
}

std::string howItEnded(const Report& report) {
  if (report.endingSignal == SIGALRM) {
    return "hung";
  }
  return report.exited ? "ended by exit()"
                       : std::string("ended by ") + sigdescr_np(report.endingSignal);
}

Verdict verdictOnEnd(const Report& report) {
  const Failing how = report.endingSignal == SIGALRM ? Failing::hangs
                      : report.exited                ? Failing::exits
                                                     : Failing::crashes;
  if (const ForeignFault* known = foreignFault(how, report.end)) {
    return {"", known};
  }
  return {howItEnded(report) + " at\n" + describe(report.end), nullptr};
}

std::vector<LeakPlace> leakPlacesIn(const Report& report) {
  return {report.leakPlaces.begin(), report.leakPlaces.begin() + report.leakPlacesUsed};
}

std::string problemOf(const Report& report) {
  if (report.complaint[0] != '\0') {
    return report.complaint.data();
  }
  return report.changes[0] == '\0' ? "" : std::string("left behind: ") + report.changes.data();
}

}  // namespace

Usual usualOf(const Report& report) { return {report.outcome.data(), report.blocks}; }

std::string problemOfUsual(const Report& report) {
  if (!report.isDone || report.endingSignal != 0) {
    return report.complaint[0] != '\0' ? report.complaint.data()
                                       : howItEnded(report) + " at\n" + describe(report.end);
  }
  const std::string outcome = report.outcome.data();
  for (const auto* text : {&report.next, &report.secondOutcome}) {
    if (outcome != text->data()) {
      return "first " + outcome + ", then " + text->data();
    }
  }
  return report.leftChildren ? "it left children" : problemOf(report);
}

Verdict verdictOn(const Operation& operation, const Fault& fault, const Usual& usual,
                  const Report& report) {
  if (report.endingSignal != 0 || report.exited) {
    return verdictOnEnd(report);
  }
  if (const std::string problem = problemOf(report); !problem.empty()) {
    return {problem, nullptr};
  }
  const Allowed allowed = allowedFor(operation, fault);
  for (const auto* outcome : {&report.outcome, &report.secondOutcome}) {
    if (!matchesAny(allowed.outcomes, outcome->data(), usual.outcome)) {
      return {std::string("gave ") + outcome->data() + " instead of " + usual.outcome, nullptr};
    }
  }
  if (!matchesAny(allowed.nextOutcomes, report.next.data(), usual.outcome)) {
    return {std::string("then gave ") + report.next.data() + " instead of " + usual.outcome,
            nullptr};
  }
  if (report.leftChildren && !allowed.leavesChildren) {
    return {"left a child", nullptr};
  }
  return {};
}

Verdict verdictOnLeaksOf(const Report& usual, const Report& report) {
  if (usual.hasMoreLeakPlaces || report.hasMoreLeakPlaces) {
    return {"left blocks that were asked for at too many places to be compared", nullptr};
  }
  std::map<std::string, int> expected;
  for (const LeakPlace& place : leakPlacesIn(usual)) {
    expected[describe(place.stack)] += place.blocks;
  }
  Verdict verdict;
  for (const LeakPlace& place : leakPlacesIn(report)) {
    int& left = expected[describe(place.stack)];
    left -= place.blocks;
    if (left >= 0) {
      continue;
    }
    verdict.foreign = foreignFault(Failing::leaks, place.stack);
    if (verdict.foreign == nullptr) {
      return {"left a block that was asked for at\n" + describe(place.stack), nullptr};
    }
  }
  return verdict;
}

}  // namespace kelp_test
