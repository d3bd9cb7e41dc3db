// The rows of the benchmarks' table: what the library does, beside what a host would use instead.
#pragma once

#include <unicode/unistr.h>

#include <benchmark/benchmark.h>
#ifdef KELP_BENCH_QT
#include <QString>
#endif

#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kelp_bench {

constexpr char libraryName[] = "kelp_cmn_4_4";

// What a contender's result is compared by.
inline std::string comparable(std::string_view text) { return std::string(text); }
std::string comparable(std::wstring_view text);
std::string comparable(const icu::UnicodeString& text);
std::string comparable(const std::vector<std::string>& texts);
#ifdef KELP_BENCH_QT
inline std::string comparable(const QString& text) { return text.toStdString(); }
#endif
inline std::string comparable(long number) { return std::to_string(number); }

struct Contender {
  std::string name;
  std::function<std::string()> result;
};

// One line of the table. The library comes first, the peer that the target speaks of second.
class Row {
 public:
  // A slow row is measured once in a round, and in fewer rounds.
  enum class Pace { quick, slow };

  Row(std::string name, double target, Pace pace = Pace::quick);

  template <class Run>
  Row& library(Run run) {
    return add(libraryName, run);
  }

  // What `run` gives must be the library's result.
  template <class Run>
  Row& peer(const std::string& name, Run run) {
    return add(name, run);
  }

  const std::string& name() const { return m_name; }
  double target() const { return m_target; }
  bool isSlow() const { return m_pace == Pace::slow; }
  const std::vector<Contender>& contenders() const { return m_contenders; }

 private:
  template <class Run>
  Row& add(const std::string& name, Run run) {
    auto* const measured = benchmark::RegisterBenchmark((m_name + "/" + name).c_str(),
                                                        [run](benchmark::State& state) mutable {
                                                          for (auto _ : state) {
                                                            benchmark::DoNotOptimize(run());
                                                          }
                                                        });
    measured->UseRealTime();
    if (isSlow()) {
      measured->Iterations(1);
    } else {
      measured->MinTime(0.005);
    }
    m_contenders.push_back({name, [run]() mutable { return comparable(run()); }});
    return *this;
  }

  std::string m_name;
  double m_target;
  Pace m_pace;
  std::vector<Contender> m_contenders;
};

// An operation whose input can grow: `prepare` makes it ready for an input of a size.
struct Growth {
  std::string name;
  size_t size;  // of the smallest input
  std::function<std::function<void()>(size_t size)> prepare;
};

std::deque<Row>& rows();
std::vector<Growth>& growths();

inline Row& addRow(const std::string& name, double target, Row::Pace pace = Row::Pace::quick) {
  return rows().emplace_back(name, target, pace);
}

// Each subsystem's rows.
void addTextRows();
void addScannerRows();
void addMessageRows();
void addTraceRows();
void addProcessRows();
void addNamingRows();
void addXmlRows();
void addDigestRows();

}  // namespace kelp_bench
