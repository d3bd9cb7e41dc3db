// What the fault loop makes fail: an operation of the library's, run again and again.
#pragma once

#include "interposed_calls.h"

#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace kelp_test {

// An operation with all that it needs. Made, described and destroyed while nothing fails.
class Job {
 public:
  Job() = default;
  virtual ~Job() = default;
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  // What fails. Keeps what it comes to, and builds nothing of its own.
  virtual void run() = 0;

  // What the last run came to, unless it threw.
  virtual std::string outcome() = 0;

  // What a run that throws must leave as it was.
  virtual std::string state() { return std::string(); }
};

// Stands for the outcome of a run in which nothing fails.
constexpr char asEver[] = "as ever";

// What may become of a run in which one of these calls fails. Outcomes are patterns of the shell's.
struct Allowance {
  std::vector<Call> calls;
  std::vector<std::string> outcomes;
  Where where = Where::anywhere;
  std::vector<std::string> nextOutcomes{asEver};
  bool leavesChildren = false;
};

// Every kind of memory.
inline const std::vector<Call>& memoryCalls() {
  static const std::vector<Call> calls{Call::malloc,      Call::calloc,     Call::realloc,
                                       Call::throwingNew, Call::nothrowNew, Call::anyMemory};
  return calls;
}

// What reading and writing files takes.
inline const std::vector<Call>& fileCalls() {
  static const std::vector<Call> calls{Call::access, Call::stat,    Call::mkdir,  Call::fopen,
                                       Call::fgets,  Call::fread,   Call::fputs,  Call::fclose,
                                       Call::puts,   Call::fprintf, Call::printf, Call::setvbuf};
  return calls;
}

struct Operation {
  std::string name;
  std::function<std::unique_ptr<Job>()> make;

  // A call that none of these names must change nothing; memory may always come to std::bad_alloc.
  std::vector<Allowance> allowances;

  // Made once and kept while the operation is examined; may be null.
  std::function<std::shared_ptr<void>()> fixture;

  // What the documentation says must not fail.
  std::vector<Call> spared;

  // Whether its rounds begin in a process that has never run it.
  bool isCold = false;

  // A round that takes longer hangs.
  unsigned int longestSeconds = 30;
};

// A value that was made in its place, without a copy, which might need memory.
template <class Value>
class Kept {
 public:
  Kept() = default;
  ~Kept() { reset(); }
  Kept(const Kept&) = delete;
  Kept& operator=(const Kept&) = delete;

  template <class Make>
  void keep(Make& make) {
    reset();
    m_value = ::new (m_memory) Value(make());
  }
  void reset() {
    if (m_value != nullptr) {
      std::exchange(m_value, nullptr)->~Value();
    }
  }
  Value& operator*() { return *m_value; }

 private:
  alignas(Value) unsigned char m_memory[sizeof(Value)] = {};
  Value* m_value = nullptr;
};

// Runs a function that gives its result, and has another one put that into words.
template <class Run, class Describe>
class FunctionJob : public Job {
 public:
  FunctionJob(const Run& run, const Describe& describe) : m_run(run), m_describe(describe) {}
  void run() override { m_result.keep(m_run); }
  std::string outcome() override { return m_describe(*m_result); }

 private:
  Run m_run;
  Describe m_describe;
  Kept<decltype(std::declval<Run&>()())> m_result;
};

template <class Run, class Describe>
Operation function(const std::string& name, Run run, Describe describe,
                   const std::vector<Allowance>& allowances = {}) {
  const auto make = [run, describe]() -> std::unique_ptr<Job> {
    return std::make_unique<FunctionJob<Run, Describe>>(run, describe);
  };
  return {name, make, allowances, nullptr, {}, false};
}

// An operation whose job is made from nothing.
template <class SomeJob>
Operation operationOf(const std::string& name, const std::vector<Allowance>& allowances = {},
                      const std::function<std::shared_ptr<void>()>& fixture = nullptr) {
  const auto make = []() -> std::unique_ptr<Job> { return std::make_unique<SomeJob>(); };
  return {name, make, allowances, fixture, {}, false};
}

// The tables of operations.
using Operations = std::vector<Operation>;
Operations textOperations();
Operations scanningOperations();
Operations settingsOperations();
Operations traceOperations();
Operations messageOperations();
Operations processOperations();
Operations recordOperations();
Operations namingOperations();
Operations leafOperations();

}  // namespace kelp_test
