#include "examination.h"

#include "round.h"
#include "verdict.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <set>

namespace kelp_test {
namespace {

constexpr int longestLoop = 20000;

Report& sharedReport() {
  void* const memory =
      mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    std::abort();
  }
  return *new (memory) Report();
}

std::string abbreviated(const std::string& text) {
  constexpr size_t most = 1500;
  return text.size() <= most ? text : text.substr(0, most) + " ...";
}

class Examination {
 public:
  Examination(const Operation& operation, const Extent& extent, Tally& tally)
      : m_operation(operation), m_extent(extent), m_tally(tally), m_report(sharedReport()) {}
  ~Examination() { munmap(&m_report, sizeof(Report)); }
  Examination(const Examination&) = delete;
  Examination& operator=(const Examination&) = delete;

  void run() {
    prepare();
    if (lookAtUntouched()) {
      m_extent.end || m_extent.rounds ? tryShare() : tryAll();
    }
    printFindings();
  }

 private:
  void prepare() {
    m_fixture = m_operation.fixture ? m_operation.fixture() : nullptr;
    if (!m_operation.isCold) {
      runHere(m_operation);
    }
  }

  // How the operation goes where nothing fails, and what it calls.
  bool lookAtUntouched() {
    countCalls(Where::here);
    m_usual = usualOf(m_report);
    const std::string problem = problemOfUsual(m_report);
    if (!problem.empty()) {
      find(problem, "while nothing failed");
    } else if (callsOf(Call::fork, Where::here) != 0) {
      countCalls(Where::child);
    }
    return problem.empty();
  }

  void countCalls(Where where) {
    CallSites sites;
    runRoundFor(sites, m_operation, where, m_report);
    m_repeated[where] = sites.repeated();
    m_calls[where] = m_report.calls;
    m_tally.calls += sumOf(m_report.calls);
  }

  static int sumOf(const CallCounts& counts) {
    int sum = 0;
    for (const FailingCall& failing : failingCalls()) {
      sum += failing.call == Call::anyMemory ? 0 : counts.at(static_cast<size_t>(failing.call));
    }
    return sum;
  }

  int callsOf(Call call, Where where) { return m_calls[where].at(static_cast<size_t>(call)); }

  bool isSpared(Call call) const {
    const std::vector<Call>& spared = m_operation.spared;
    return std::find(spared.begin(), spared.end(), call) != spared.end();
  }

  bool isSpokenFor(const Fault& fault) {
    return m_repeated[fault.where].count({fault.call, fault.nth}) != 0;
  }

  // Any request of memory, once, is one of its kind, once.
  template <class Try>
  void forEachLine(Try tryLine) {
    for (const Where where : {Where::here, Where::child}) {
      for (const FailingCall& failing : failingCalls()) {
        if (callsOf(failing.call, where) == 0 || isSpared(failing.call)) {
          continue;
        }
        for (const int error : failing.errors) {
          for (const Times times : {Times::once, Times::onwards}) {
            if (times == Times::onwards || failing.call != Call::anyMemory) {
              tryLine(Fault{failing.call, error, 1, times, where});
            }
          }
        }
      }
    }
  }

  // The first, the second, ... until none fails any more.
  void tryAll() {
    forEachLine([this](Fault fault) {
      while (isSpokenFor(fault) || tryRound(fault)) {
        if (++fault.nth > longestLoop) {
          find("there is no end", describe(fault));
          return;
        }
      }
    });
  }

  void tryShare() {
    std::vector<Fault> faults;
    forEachLine([this, &faults](Fault fault) {
      for (; fault.nth <= callsOf(fault.call, fault.where); ++fault.nth) {
        if (!isSpokenFor(fault)) {
          faults.push_back(fault);
        }
      }
    });
    std::mt19937 random(m_extent.seed);
    std::shuffle(faults.begin(), faults.end(), random);
    for (const Fault& fault : faults) {
      if (isAtItsEnd()) {
        return;
      }
      tryRound(fault);
    }
  }

  bool isAtItsEnd() const {
    return (m_extent.rounds && m_tally.rounds >= *m_extent.rounds) ||
           (m_extent.end && std::chrono::steady_clock::now() >= *m_extent.end);
  }

  // Whether anything failed in it.
  bool tryRound(const Fault& fault) {
    runRound(m_operation, &fault, fault.where, Round::plain, m_report);
    const bool ended = !m_report.isDone;
    if (m_report.failed == 0 && !ended) {
      return false;
    }
    ++m_tally.rounds;
    judge(fault);
    return true;
  }

  void judge(const Fault& fault) {
    const Report report = m_report;
    Verdict verdict = verdictOn(m_operation, fault, m_usual, report);
    if (verdict.problem.empty() && report.isDone && report.blocks > m_usual.blocks) {
      verdict = verdictOnLeaks(fault);
    }
    if (!verdict.problem.empty()) {
      find(verdict.problem, describe(fault));
    } else if (verdict.foreign != nullptr) {
      ++m_tally.foreign;
      if (m_foreign.insert(verdict.foreign).second) {
        std::fprintf(stderr, "%s: theirs: %s: %s\n", m_operation.name.c_str(),
                     verdict.foreign->function.c_str(), verdict.foreign->reason.c_str());
      }
    }
  }

  Verdict verdictOnLeaks(const Fault& fault) {
    if (m_usualLeaks == nullptr) {
      runRound(m_operation, nullptr, fault.where, Round::findsLeaks, m_report);
      m_usualLeaks = std::make_unique<Report>(m_report);
    }
    runRound(m_operation, &fault, fault.where, Round::findsLeaks, m_report);
    return verdictOnLeaksOf(*m_usualLeaks, m_report);
  }

  // One finding, however many rounds come to it.
  void find(const std::string& problem, const std::string& where) {
    std::vector<std::string>& rounds = m_findings[problem];
    if (rounds.empty()) {
      ++m_tally.findings;
    }
    rounds.push_back(where);
  }

  void printFindings() const {
    constexpr size_t shown = 3;
    for (const auto& [problem, rounds] : m_findings) {
      std::fprintf(stderr, "%s: %s\n", m_operation.name.c_str(), abbreviated(problem).c_str());
      for (size_t i = 0; i < std::min(shown, rounds.size()); ++i) {
        std::fprintf(stderr, "    %s\n", rounds[i].c_str());
      }
      if (rounds.size() > shown) {
        std::fprintf(stderr, "    and %zu more\n", rounds.size() - shown);
      }
    }
  }

  const Operation& m_operation;
  const Extent& m_extent;
  Tally& m_tally;
  Report& m_report;
  std::shared_ptr<void> m_fixture;
  std::map<Where, CallCounts> m_calls;
  std::map<Where, std::set<std::pair<Call, int>>> m_repeated;
  Usual m_usual;
  std::unique_ptr<Report> m_usualLeaks;  // made where it is needed
  std::set<const ForeignFault*> m_foreign;
  std::map<std::string, std::vector<std::string>> m_findings;  // problem -> where it was met
};

}  // namespace

void examine(const Operation& operation, const Extent& extent, Tally& tally) {
  Examination(operation, extent, tally).run();
}

}  // namespace kelp_test
