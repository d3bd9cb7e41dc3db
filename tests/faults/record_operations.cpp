// What an exec pipe does without a process of its own, and the records of children that have ended.
#include "job.h"
#include "process_surroundings.h"
#include "words.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace kelp_test {
namespace {

using namespace kelp_cmn_4_4;

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
  LookingUp() {
    m_pipe.registerTraceLog(openLog());
    m_replacements.waitpid = noChild;
  }
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

void addRecords(Operations& all) {
  // Where waitpid fails, or a page for the record, there is none.
  const std::vector<Allowance> records{{{Call::mmap, Call::waitpid}, {"[0-9]*"}}};
  all.push_back(operationOf<Recording>("processes: GetChildStatus", records, quiet));
  all.push_back(operationOf<LookingUp>("processes: CheckChildStatusMap", records, quiet));
}

// ---- values

class AddingArguments : public Job {
 public:
  void run() override {
    m_pipe.ClearArgsList();
    m_results = 0;
    for (int i = 0; i < count; ++i) {
      m_results += m_pipe.AddArgument("an argument", 11) ? 1 : 0;
    }
  }
  std::string outcome() override {
    return words(m_results) + ": " + words(m_results == count ? m_pipe.arguments() : Lines());
  }

 private:
  static constexpr int count = 12;  // more than there is room for at first
  ProbedPipe m_pipe;
  int m_results = 0;
};

const std::string command = "a command of some length, so that it is long";

class AssigningARecord : public Job {
 public:
  void run() override { m_target = m_source; }
  std::string outcome() override { return state(); }
  std::string state() override {
    return words(m_target.m_command) + words(m_target.m_message) + words(m_target.m_code) +
           words(m_target.m_detail);
  }

 private:
  const ECmnExecPipe m_source{command, std::wstring(50, L'x'), 5, 7};
  ECmnExecPipe m_target{"an old command", L"an old message", 6, 8};
};

void addValues(Operations& all) {
  all.push_back(operationOf<InAChildContext>("processes: Exec in a child context", {}, quiet));
  all.push_back(operationOf<Splitting>("processes: ParseCommand", {{memoryCalls(), {"0"}}}, quiet));
  all.push_back(operationOf<AddingArguments>("processes: AddArgument",
                                             {{memoryCalls(), {"[0-9]*: "}}}, quiet));
  all.push_back(function(
      "processes: a pipe with a list",
      [list = std::vector<std::string>{"a host of some length, to be kept"}] {
        return std::make_unique<CCmnExecPipePosix>(list);
      },
      [](const std::unique_ptr<CCmnExecPipePosix>& pipe) {
        return words(pipe->getLastError().m_code);
      }));
  const auto inWords = [](const ECmnExecPipe& record) {
    return words(record.m_command) + words(record.m_message) + words(record.m_code) +
           words(record.m_detail);
  };
  all.push_back(function(
      "processes: a record",
      [text = command, message = std::wstring(50, L'x')] {
        return ECmnExecPipe(text, message, 5, 7);
      },
      inWords));
  all.push_back(function(
      "processes: copy a record",
      [record = ECmnExecPipe(command, std::wstring(50, L'x'), 5, 7)] { return record; }, inWords));
  all.push_back(operationOf<AssigningARecord>("processes: assign a record"));
  const auto failed = std::make_shared<ProbedPipe>();
  failed->m_lastError = ECmnExecPipe(command, 7);
  all.push_back(function(
      "processes: getLastError", [failed] { return failed->getLastError(); }, inWords));
}

}  // namespace

Operations recordOperations() {
  Operations all;
  addRecords(all);
  addValues(all);
  return all;
}

}  // namespace kelp_test
