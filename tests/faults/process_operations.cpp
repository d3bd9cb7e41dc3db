// Running commands, and the records of children that have ended.
#include "exec_fixture.h"
#include "job.h"
#include "words.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelp_test {
namespace {

using namespace kelp_cmn_4_4;

// ---- time, which passes only while somebody looks at the clock

const int* child = nullptr;  // its number
bool isEnding = false;       // it ends by itself, or has got a signal that ends it
bool heedsTermination = true;
int looks = 0;

// A child that is ending is waited for: it is not to lose against this clock.
void awaitEnd() {
  siginfo_t info{};
  if (isEnding && *child > 0) {
    waitid(P_PID, static_cast<id_t>(*child), &info, WEXITED | WNOWAIT);
  }
}

time_t passingTime(time_t*) {
  constexpr int looksInASecond = 4;
  awaitEnd();
  return 1000 + ++looks / looksInASecond;
}

int noteKill(pid_t pid, int number) {
  isEnding = isEnding || number == SIGKILL || (number == SIGTERM && heedsTermination);
  return realCalls().kill(pid, number);
}

Replacements withPassingTime() {
  Replacements result;
  result.time = passingTime;
  result.nanosleep = [](const timespec*, timespec*) { return 0; };
  result.sleep = [](unsigned int) { return 0U; };
  result.kill = noteKill;
  return result;
}

// ---- what surrounds the operations

// The child's status comes from waitpid alone, always in the same way.
struct Surroundings {
  explicit Surroundings(bool blocks) {
    InstallRoot::makeConfigDir();
    writeFile(std::string(InstallRoot::configDir) + "faults.conf",
              "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:00000003\n");
    writeFile("/usr/tulsk/input", "from a file\n");
    if (blocks) {
      blocked.emplace();
    }
  }
  InstallRoot root;
  ScopedReplacements replacements{withPassingTime()};
  std::optional<BlockedChildSignal> blocked;
};
std::shared_ptr<void> quiet() { return std::make_shared<Surroundings>(true); }
std::shared_ptr<void> withHandler() { return std::make_shared<Surroundings>(false); }

CCmnTraceLogPtr openLog() {
  CCmnTraceLogPtr log(new CCmnTraceLog);
  log->initialize("faults", "", "", 3, false);
  return log;
}

// ---- whole runs

struct Run {
  std::string command;
  std::string stdinFile;
  bool endsByItself = true;
  bool isTraced = false;
  bool isAborted = false;
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
    constexpr unsigned long timeout = 60;
    child = &m_pipe.m_childPid;
    isEnding = m_run.endsByItself;
    heedsTermination = true;
    m_output.clear();
    m_leftOver = static_cast<size_t>(std::max(m_pipe.m_bufferCount - m_pipe.m_bufferPos, 0));
    m_result = m_pipe.Exec(m_run.command, m_output, m_run.stdinFile, timeout, "", "", "");
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

// A child that has to be killed, and one that has not ended when its object does.
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

// ---- without a process

char hookText[] = "one\ntwo\n";
char hookBuffer[sizeof hookText];

class InAChildContext : public Job {
 public:
  InAChildContext() {
    m_pipe.m_pfnIsChildContext = [] { return 1; };
    m_pipe.m_pfnExecInChild = [](const char*, char** output, int* length) {
      std::memcpy(hookBuffer, hookText, sizeof hookText);
      *output = hookBuffer;
      *length = sizeof hookText - 1;
      ++given;
      return 5;
    };
    m_pipe.m_pfnFreeOutput = [](char*, int) { ++freed; };
  }
  void run() override {
    given = freed = 0;
    m_output.clear();
    m_result = m_pipe.Exec(m_command, m_output, "", 60, "", "", "");
  }
  std::string outcome() override { return words(m_result) + ": " + words(m_output) + inUse(); }
  std::string state() override { return inUse(); }

 private:
  static std::string inUse() { return words(given - freed); }

  static int given;
  static int freed;
  const std::string m_command = "a command of some length";
  CCmnExecPipePosix m_pipe;
  std::vector<std::string> m_output;
  int m_result = 0;
};
int InAChildContext::given = 0;
int InAChildContext::freed = 0;

class Splitting : public Job {
 public:
  void run() override {
    m_pipe.ClearArgsList();
    m_result = m_pipe.ParseCommand("'a b' c d e f g h i j k l m");
  }
  std::string outcome() override {
    return words(m_result) + (m_result ? ": " + words(m_pipe.arguments()) : "");
  }

 private:
  ProbedPipe m_pipe;
  bool m_result = false;
};

// ---- records of children

int noChild(pid_t, int*, int) { return 0; }

// More of them than there is room for without pages from the system.
class Recording : public Job {
 public:
  Recording() { m_replacements.waitpid = noChild; }
  void run() override {
    const ScopedReplacements scope(m_replacements);
    for (int i = 0; i < count; ++i) {
      tell(fakePid + i, 0);
    }
  }
  std::string outcome() override {
    int known = 0;
    for (int i = 0; i < count; ++i) {
      int status = -1;
      known += m_pipe.CheckChildStatusMap(fakePid + i, &status) && status == 0 ? 1 : 0;
    }
    return words(known);
  }

 private:
  static constexpr int count = 5000;
  Replacements m_replacements = withPassingTime();
  CCmnExecPipePosix m_pipe;
};

class LookingUp : public Job {
 public:
  // Without a log: under the sanitizers each line, of which a failure leaves one out, shows in the
  // count of blocks.
  LookingUp() { m_replacements.waitpid = noChild; }
  void run() override {
    {
      const ScopedReplacements scope(m_replacements);
      for (int i = 0; i < count; ++i) {
        tell(fakePid + i, 7);
      }
    }
    m_known = 0;
    for (int i = 0; i < count; ++i) {
      int status = -1;
      m_known += m_pipe.CheckChildStatusMap(fakePid + i, &status) && status == 7 ? 1 : 0;
    }
  }
  std::string outcome() override { return words(m_known); }

 private:
  static constexpr int count = 70;
  Replacements m_replacements = withPassingTime();
  CCmnExecPipePosix m_pipe;
  int m_known = 0;
};

void addOthers(Operations& all) {
  all.push_back(operationOf<InAChildContext>("processes: Exec in a child context", {}, quiet));
  all.push_back(operationOf<Splitting>("processes: ParseCommand", {{memoryCalls(), {"0"}}}, quiet));
  // Where waitpid fails, or a page for the record, there is none.
  const std::vector<Allowance> records{{{Call::mmap, Call::waitpid}, {"[0-9]*"}}};
  all.push_back(operationOf<Recording>("processes: GetChildStatus", records, quiet));
  all.push_back(operationOf<LookingUp>("processes: CheckChildStatusMap", records, quiet));
  all.push_back(function(
      "processes: a pipe with a list",
      [list = std::vector<std::string>{"a host of some length, to be kept"}] {
        return std::make_unique<CCmnExecPipePosix>(list);
      },
      [](const std::unique_ptr<CCmnExecPipePosix>& pipe) {
        return words(pipe->getLastError().m_code);
      }));
  all.push_back(function(
      "processes: a record",
      [text = std::string("a command of some length"), message = std::wstring(50, L'x')] {
        return ECmnExecPipe(text, message, 5, 7);
      },
      [](const ECmnExecPipe& record) {
        return words(record.m_command) + words(record.m_message);
      }));
}

}  // namespace

Operations processOperations() {
  Operations all;
  addRuns(all);
  addSteps(all);
  addOthers(all);
  return all;
}

}  // namespace kelp_test
