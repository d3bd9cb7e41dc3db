#include "measure.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <stdexcept>

namespace kelp_bench {
namespace {

constexpr int quickRounds = 41;
constexpr int slowRounds = 9;

using Series = std::vector<double>;

// Takes the time of each contender in one round.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      m_times[run.benchmark_name()].push_back(run.GetAdjustedRealTime());
    }
  }
  // The library appends the kind of clock to the name.
  const Series& of(const std::string& row, const std::string& contender) const {
    return m_times.lower_bound(row + "/" + contender + "/")->second;
  }

 private:
  std::map<std::string, Series> m_times;
};

double quantile(Series values, double part) {
  const auto index =
      static_cast<size_t>(std::lround(part * static_cast<double>(values.size() - 1)));
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index),
                   values.end());
  return values[index];
}

Series ratios(const Series& own, const Series& peer) {
  Series result;
  for (size_t round = 0; round < own.size(); ++round) {
    result.push_back(own[round] / peer[round]);
  }
  return result;
}

void checkResults(const Row& row) {
  const std::string expected = row.contenders().front().result();
  for (const Contender& contender : row.contenders()) {
    if (contender.result() != expected) {
      throw std::runtime_error(row.name() + ": " + contender.name + " has another result");
    }
  }
}

std::string escaped(const std::string& text) {
  std::string pattern;
  for (const char c : text) {
    pattern += std::string_view("\\^$.|?*+()[]{}").find(c) == std::string_view::npos
                   ? std::string(1, c)
                   : std::string("\\") + c;
  }
  return pattern;
}

Collector runRounds(const Row& row) {
  Collector collector;
  const int rounds = row.isSlow() ? slowRounds : quickRounds;
  for (int round = 0; round <= rounds; ++round) {
    Collector warmUp;
    benchmark::RunSpecifiedBenchmarks(round == 0 ? &warmUp : &collector,
                                      "^" + escaped(row.name()) + "/");
  }
  return collector;
}

double nanosecondsOf(const std::function<void()>& run) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds enough(20);
  double best = 1e18;
  const Clock::time_point begin = Clock::now();
  while (Clock::now() - begin < enough) {
    const Clock::time_point start = Clock::now();
    run();
    best = std::min(best, std::chrono::duration<double, std::nano>(Clock::now() - start).count());
  }
  return best;
}

}  // namespace

Measurement measure(const Row& row) {
  checkResults(row);
  const Collector collector = runRounds(row);
  Measurement result{row.name(), row.target(), {}};
  const Series& own = collector.of(row.name(), libraryName);
  for (const Contender& contender : row.contenders()) {
    result.times.push_back(
        {contender.name, quantile(collector.of(row.name(), contender.name), 0.5)});
  }
  if (result.times.size() > 1) {
    const Series named = ratios(own, collector.of(row.name(), result.times[1].contender));
    result.ratio = quantile(named, 0.5);
    result.low = quantile(named, 0.25);
    result.high = quantile(named, 0.75);
    const auto best =
        std::min_element(result.times.begin() + 1, result.times.end(),
                         [](const Times& a, const Times& b) { return a.median < b.median; });
    result.ratioToBest = quantile(ratios(own, collector.of(row.name(), best->contender)), 0.5);
  }
  return result;
}

Slope measure(const Growth& growth) {
  Slope slope{growth.name, {}};
  for (const size_t factor : {1UL, 10UL, 100UL, 1000UL}) {
    slope.times.push_back(nanosecondsOf(growth.prepare(growth.size * factor)));
    if (slope.times.size() > 1) {
      const size_t last = slope.times.size() - 1;
      slope.worst = std::max(slope.worst, slope.times[last] / slope.times[last - 1] / 10);
    }
  }
  return slope;
}

}  // namespace kelp_bench
