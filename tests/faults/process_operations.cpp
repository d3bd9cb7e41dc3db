// Running commands.
#include "job.h"
#include "process_surroundings.h"
#include "words.h"

#include <signal.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelp_test {
namespace {

using namespace kelp_cmn_4_4;

// ---- whole runs

struct Run {
  std::string command;
  std::string stdinFile;
  bool endsByItself = true;
  bool isTraced = false;
  bool isAborted = false;
  unsigned long timeout = 60;
};

class Executing : public Job {
 public:
  explicit Executing(const Run& run) : m_run(run) {
    if (m_run.isTraced) {
      m_pipe.registerTraceLog(openLog());
    }
    if (m_run.isAborted) {
      m_pipe.Abort();
    }
  }
  void run() override {
    child = &m_pipe.m_childPid;
    isEnding = m_run.endsByItself;
    heedsTermination = true;
    m_output.clear();
    m_leftOver = static_cast<size_t>(std::max(m_pipe.m_bufferCount - m_pipe.m_bufferPos, 0));
    m_result = m_pipe.Exec(m_run.command, m_output, m_run.stdinFile, m_run.timeout, "", "", "");
    if (m_result == execPipeReadTimedOut) {
      m_pipe.Close(1);
    }
  }
  // What an earlier run had read ahead comes first, on purpose.
  std::string outcome() override {
    std::string text;
    for (const std::string& line : m_output) {
      text += line;
    }
    return words(m_result) + ": " + text.substr(std::min(m_leftOver, text.size()));
  }

 private:
  const Run m_run;
  ProbedPipe m_pipe;
  std::vector<std::string> m_output;
  size_t m_leftOver = 0;
  int m_result = 0;
};

// What a failing call gives, here and in the child.
std::vector<Allowance> failuresOfExec() {
  return {
      {memoryCalls(), {"6: "}, Where::here},
      {{Call::access}, {"7: "}, Where::here},
      {{Call::pipe}, {"1: "}, Where::here},
      {{Call::fork}, {"4: "}, Where::here},
      {{Call::select}, {"5: *", asEver}, Where::here},
      {{Call::read}, {"0: *", "1[12]: *"}, Where::here},
      {{Call::waitpid}, {"8: *", asEver}, Where::here, {asEver}, true},
      {{Call::open, Call::dup2, Call::execv}, {"11: ", "12: "}, Where::child},
  };
}

Operation executing(const std::string& name, const Run& run) {
  const auto make = [run] { return std::make_unique<Executing>(run); };
  return {"processes: " + name, make, failuresOfExec(), quiet, {}, false};
}

void addRuns(Operations& all) {
  const std::string lines = hostile("say 'one\\ntwo\\n'");
  all.push_back(executing("Exec", {lines, ""}));
  all.push_back(executing("Exec, traced", {lines, "", true, true}));
  all.push_back(executing("Exec of an exit status", {hostile("exit 3"), ""}));
  all.push_back(executing("Exec of a signal", {hostile("die 9"), ""}));
  all.push_back(executing("Exec in silence", {hostile("exit 0"), ""}));
  all.push_back(executing("Exec of much output", {hostile("bytes 1300"), ""}));
  all.push_back(executing("Exec with an input", {hostile("echo"), "/usr/tulsk/input"}));
  all.push_back(executing("Exec of what is not executable", {"/usr/tulsk/input", ""}));
  all.push_back(executing("Exec of an open quote", {"/bin/true 'x", ""}));
  all.push_back(executing("Exec of many words", {hostile("args a b c d e f g h i j k l m"), ""}));
  Operation aborted = executing("Exec after Abort", {hostile("exit 0"), "", true, false, true});
  aborted.allowances.push_back({{Call::close}, {"3: ", asEver}, Where::here});
  all.push_back(aborted);
  Operation endless = executing("Exec of what runs on", {hostile("closeoutput"), "", false});
  endless.allowances.push_back({{Call::kill}, {"8: *", "12: *"}, Where::here, {asEver}, true});
  all.push_back(endless);
  // It is silent: no output is there at once. Where it cannot be run, its output may end first.
  Run silent{hostile("silence 100000 0"), "", false};
  silent.timeout = 0;
  Operation late = executing("Exec that runs out of time", silent);
  late.allowances.push_back({{Call::kill}, {asEver}, Where::here, {asEver}, true});
  late.allowances.push_back({{Call::open, Call::dup2, Call::execv}, {asEver}, Where::child});
  all.push_back(late);
  Operation handled = executing("Exec, reaped by the handler", {lines, "", true, true});
  handled.fixture = withHandler;
  handled.allowances.push_back({{Call::sigaction}, {asEver}, Where::here});
  all.push_back(handled);
}

// ---- step by step

class Stepping : public Job {
 public:
  Stepping() { m_pipe.registerTraceLog(openLog()); }
  void run() override {
    child = &m_pipe.m_childPid;
    isEnding = true;
    m_length = 0;
    m_started = m_pipe.ExecPipe(m_command, m_nothing);
    char piece[4];
    unsigned char timedOut = 0;
    while (m_started == 0 && m_pipe.ReadLine(piece, sizeof piece, &timedOut, 60)) {
      std::memcpy(m_text + m_length, piece, std::strlen(piece));
      m_length += std::strlen(piece);
    }
    m_closed = m_pipe.Close(1);
  }
  std::string outcome() override {
    return words(m_started) + ": " + std::string(m_text, m_length) + ": " + words(m_closed);
  }

 private:
  const std::string m_command = hostile("say 'a line\\nanother'");
  const std::string m_nothing;
  ProbedPipe m_pipe;
  char m_text[100] = "";
  size_t m_length = 0;
  int m_started = 0;
  int m_closed = 0;
};

// A child that has to be killed.
class Ending : public Job {
 public:
  explicit Ending(bool heeds) : m_heeds(heeds) { m_pipe.registerTraceLog(openLog()); }
  void run() override {
    child = &m_pipe.m_childPid;
    isEnding = false;
    heedsTermination = m_heeds;
    char line[10];
    unsigned char timedOut = 0;
    m_started = m_pipe.ExecPipe(m_command, m_nothing);
    m_read = m_started == 0 && m_pipe.ReadLine(line, sizeof line, &timedOut, 60);
    m_closed = m_pipe.Close(1);
  }
  std::string outcome() override {
    return words(m_started) + ": " + words(m_read) + ": " + words(m_closed);
  }

 private:
  const bool m_heeds;
  const std::string m_command = hostile(m_heeds ? "stay" : "ignoreterm");
  const std::string m_nothing;
  ProbedPipe m_pipe;
  int m_started = 0;
  bool m_read = false;
  int m_closed = 0;
};

// A child that has not ended when its object does.
class Destroying : public Job {
 public:
  void run() override {
    m_pipe.emplace();
    child = &m_pipe->m_childPid;
    isEnding = false;
    heedsTermination = true;
    m_pid = -1;
    m_started = m_pipe->ExecPipe(m_command, m_nothing);
    m_pid = m_pipe->m_childPid;
    m_pipe.reset();
    isEnding = false;
  }
  std::string outcome() override {
    const bool isThere = m_pid > 0 && kill(m_pid, 0) == 0;
    return words(m_started) + (m_pid < 0 ? ": no child" : isThere ? ": a child" : ": ended");
  }

 private:
  const std::string m_command = hostile("stay");
  const std::string m_nothing;
  std::optional<ProbedPipe> m_pipe;
  int m_pid = -1;
  int m_started = 0;
};

// Then Close() finds no child any more.
class Waiting : public Job {
 public:
  void run() override {
    child = &m_pipe.m_childPid;
    isEnding = true;
    m_started = m_pipe.ExecPipe(m_command, m_nothing);
    m_status = m_pipe.WaitPid(60);
    m_closed = m_pipe.Close(1);
  }
  std::string outcome() override {
    return words(m_started) + ": " + words(m_status) + ": " + words(m_closed);
  }

 private:
  const std::string m_command = hostile("exit 3");
  const std::string m_nothing;
  ProbedPipe m_pipe;
  int m_started = 0;
  int m_status = 0;
  int m_closed = 0;
};

void addSteps(Operations& all) {
  Operation steps = operationOf<Stepping>("processes: ExecPipe, ReadLine, Close", {}, quiet);
  steps.allowances = {
      {memoryCalls(), {"6: : 0"}, Where::here},
      {{Call::access}, {"7: : 0"}, Where::here},
      {{Call::pipe}, {"1: : 0"}, Where::here},
      {{Call::fork}, {"4: : 0"}, Where::here},
      {{Call::select}, {"0: *: *"}, Where::here},
      {{Call::read}, {"0: *: *"}, Where::here},
      {{Call::waitpid}, {"0: *: 8", asEver}, Where::here, {asEver}, true},
      {{Call::open, Call::dup2, Call::execv}, {"0: : 1[12]"}, Where::child},
  };
  all.push_back(steps);
  for (const bool heeds : {true, false}) {
    const auto make = [heeds] { return std::make_unique<Ending>(heeds); };
    Operation ending = {std::string("processes: Close of what ") + (heeds ? "stays" : "resists"),
                        make,
                        {},
                        quiet,
                        {},
                        false};
    ending.allowances = {
        {memoryCalls(), {"6: 0: 0"}, Where::here},
        {{Call::access}, {"7: 0: 0"}, Where::here},
        {{Call::pipe}, {"1: 0: 0"}, Where::here},
        {{Call::fork}, {"4: 0: 0"}, Where::here},
        {{Call::select, Call::read}, {"0: [01]: 12"}, Where::here},
        {{Call::close}, {"0: 1: 12", "0: 1: 3"}, Where::here},
        {{Call::waitpid, Call::kill}, {"0: 1: 8", asEver}, Where::here, {asEver}, true},
        {{Call::open, Call::dup2, Call::execv}, {"0: 0: 1[12]"}, Where::child},
    };
    all.push_back(ending);
  }
}

void addEnds(Operations& all) {
  Operation destroying = operationOf<Destroying>("processes: destroy what has a child", {}, quiet);
  destroying.allowances = {
      {memoryCalls(), {"6: no child"}, Where::here},
      {{Call::access}, {"7: no child"}, Where::here},
      {{Call::pipe}, {"1: no child"}, Where::here},
      {{Call::fork}, {"4: no child"}, Where::here},
      {{Call::waitpid, Call::kill}, {"0: a child", asEver}, Where::here, {asEver}, true},
  };
  all.push_back(destroying);
  Operation waiting = operationOf<Waiting>("processes: WaitPid", {}, quiet);
  waiting.allowances = {
      {memoryCalls(), {"6: -1: 0"}, Where::here},
      {{Call::access}, {"7: -1: 0"}, Where::here},
      {{Call::pipe}, {"1: -1: 0"}, Where::here},
      {{Call::fork}, {"4: -1: 0"}, Where::here},
      {{Call::close}, {"0: 768: 3", asEver}, Where::here},
      {{Call::waitpid}, {"0: -1: 11", "0: -1: 8", asEver}, Where::here, {asEver}, true},
      {{Call::open, Call::dup2, Call::execv}, {"0: 256: 8"}, Where::child},
  };
  all.push_back(waiting);
}

}  // namespace

Operations processOperations() {
  Operations all;
  addRuns(all);
  addSteps(all);
  addEnds(all);
  return all;
}

}  // namespace kelp_test
