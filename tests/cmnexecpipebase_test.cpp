#include "cmnexecpipebase.h"

#include "process_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <climits>
#include <cstring>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kelp_cmn_4_4;
using testing::ElementsAre;

using Lines = std::vector<std::string>;

// What a ReadLine does: stores a line (unless it is null), sets the time-out mark (unless
// negative), gives its result.
struct Reading {
  const char* line;
  bool result;
  int mark;
  std::function<void()> meanwhile;

  Reading(const char* text, bool stored, int timedOut = -1, std::function<void()> action = {})
      : line(text), result(stored), mark(timedOut), meanwhile(std::move(action)) {}
};

// Writes down every virtual call with its arguments and answers from a script.
class ScriptedPipe : public CCmnExecPipeBase {
 public:
  using CCmnExecPipeBase::CCmnExecPipeBase;
  using CCmnExecPipeBase::m_abortRequested;
  using CCmnExecPipeBase::m_hostList;
  using CCmnExecPipeBase::m_hostString1;
  using CCmnExecPipeBase::m_hostString2;
  using CCmnExecPipeBase::m_lastError;
  using CCmnExecPipeBase::m_stdinFile;
  using CCmnExecPipeBase::m_traceLog;

  int childContext = 0;
  int started = 0;
  int closed = 0;
  bool closingThrows = false;
  std::vector<Reading> readings;
  Lines calls;

  int ExecPipe(std::string command, std::string reserved) override {
    calls.push_back("ExecPipe(" + command + "," + reserved + ")");
    seenStrings = {m_hostString1, m_hostString2, m_stdinFile};
    return started;
  }
  int WaitPid(long timeoutSeconds) override {
    calls.push_back("WaitPid(" + std::to_string(timeoutSeconds) + ")");
    return 0;
  }
  int Close(long timeoutSeconds) override {
    calls.push_back("Close(" + std::to_string(timeoutSeconds) + ")");
    if (closingThrows) {
      throw std::bad_alloc();
    }
    return closed;
  }
  bool ReadLine(char* buffer, int size, unsigned char* timedOut, long timeoutSeconds) override {
    calls.push_back("ReadLine(" + std::to_string(size) + "," + std::to_string(timeoutSeconds) +
                    ")");
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(*timedOut, 0);
    if (m_next == readings.size()) {
      return false;
    }
    const Reading& reading = readings[m_next++];
    if (reading.meanwhile) {
      reading.meanwhile();
    }
    if (reading.line != nullptr) {
      std::strcpy(buffer, reading.line);
    }
    if (reading.mark >= 0) {
      *timedOut = static_cast<unsigned char>(reading.mark);
    }
    return reading.result;
  }
  bool IsAbortRequested() override {
    calls.push_back("IsAbortRequested");
    return CCmnExecPipeBase::IsAbortRequested();
  }
  int IsChildContext() override {
    calls.push_back("IsChildContext");
    seenStrings = {m_hostString1, m_hostString2, m_stdinFile};
    return childContext;
  }
  int ExecCommandInChildContext(std::string command, Lines& output) override {
    calls.push_back("ExecCommandInChildContext(" + command + ")");
    output.push_back("from the hook");
    return 77;
  }
  void Init() override { calls.push_back("Init"); }

  int run(Lines& output, unsigned long timeoutSeconds = 7) {
    return Exec("cmd", output, "in", timeoutSeconds, "res", "h1", "h2");
  }

  Lines seenStrings;

 private:
  size_t m_next = 0;
};

// Leaves everything but the pure operations to the base.
class PlainPipe : public CCmnExecPipeBase {
 public:
  int ExecPipe(std::string, std::string) override { return 0; }
  int WaitPid(long) override { return 0; }
  int Close(long) override { return 0; }
  bool ReadLine(char*, int, unsigned char*, long) override { return false; }
};

void expectRecord(const ECmnExecPipe& record, const std::string& command,
                  const std::wstring& message, int code, long detail) {
  EXPECT_EQ(record.m_command, command);
  EXPECT_EQ(record.m_message, message);
  EXPECT_EQ(record.m_code, code);
  EXPECT_EQ(record.m_detail, detail);
}

TEST(ExecPipeRecord, StartsEmpty) {
  const ECmnExecPipe record;
  expectRecord(record, "", L"", execPipeOk, 0);
}

TEST(ExecPipeRecord, IsBuiltWithoutMessageAndDetailOrWhole) {
  const ECmnExecPipe brief("c", execPipeParseFailed);
  expectRecord(brief, "c", L"", execPipeParseFailed, 0);
  const ECmnExecPipe whole("d", L"m", execPipePipeFailed, 24);
  expectRecord(whole, "d", L"m", execPipePipeFailed, 24);
}

TEST(ExecPipeRecord, CopyConstructionCopiesEverything) {
  const ECmnExecPipe original("command", L"message", execPipeExitStatus, 3);
  const ECmnExecPipe copy(original);
  expectRecord(copy, "command", L"message", execPipeExitStatus, 3);
}

// Narrow on purpose.
TEST(ExecPipeRecord, AssignmentCopiesOnlyCommandAndCode) {
  const ECmnExecPipe source("new command", L"new message", execPipeSignalled, 9);
  ECmnExecPipe target("old command", L"old message", execPipeExitStatus, 3);
  ECmnExecPipe& result = (target = source);
  EXPECT_EQ(&result, &target);
  expectRecord(target, "new command", L"old message", execPipeSignalled, 3);
}

TEST(ExecPipeRecord, AssignmentOfATemporaryIsAsNarrowAndLeavesItWhole) {
  ECmnExecPipe source("a command too long for a short string", L"message", execPipeSignalled, 9);
  ECmnExecPipe target;
  target = std::move(source);
  expectRecord(target, "a command too long for a short string", L"", execPipeSignalled, 0);
  EXPECT_EQ(source.m_command, "a command too long for a short string");
  EXPECT_EQ(source.m_message, L"message");
}

TEST(ExecPipeRecord, MovingCopies) {
  ECmnExecPipe source("a command too long for a short string", L"a message just as long",
                      execPipeSignalled, 9);
  const ECmnExecPipe target(std::move(source));
  EXPECT_EQ(target.m_message, L"a message just as long");
  EXPECT_EQ(source.m_command, "a command too long for a short string");
  EXPECT_EQ(source.m_message, L"a message just as long");
}

TEST(ExecPipeRecord, AssignmentToItselfChangesNothing) {
  ECmnExecPipe record("command", L"message", execPipeExitStatus, 3);
  const ECmnExecPipe& same = record;
  record = same;
  expectRecord(record, "command", L"message", execPipeExitStatus, 3);
}

TEST(ExecPipeCodes, AreThoseThatHostsWereCompiledWith) {
  EXPECT_EQ(execPipeOk, 0);
  EXPECT_EQ(execPipePipeFailed, 1);
  EXPECT_EQ(execPipeCloseFailed, 3);
  EXPECT_EQ(execPipeForkFailed, 4);
  EXPECT_EQ(execPipeReadTimedOut, 5);
  EXPECT_EQ(execPipeParseFailed, 6);
  EXPECT_EQ(execPipeNotExecutable, 7);
  EXPECT_EQ(execPipeWaitFailed, 8);
  EXPECT_EQ(execPipeExitStatus, 11);
  EXPECT_EQ(execPipeSignalled, 12);
  EXPECT_EQ(execPipeUnexpectedStatus, 13);
}

void expectFresh(ScriptedPipe& pipe) {
  EXPECT_FALSE(pipe.m_abortRequested);
  EXPECT_FALSE(pipe.IsAbortRequested());
  EXPECT_EQ(pipe.m_pfnIsChildContext, nullptr);
  EXPECT_EQ(pipe.m_pfnExecInChild, nullptr);
  EXPECT_EQ(pipe.m_pfnFreeOutput, nullptr);
  expectRecord(pipe.m_lastError, "", L"", execPipeOk, 0);
  EXPECT_EQ(pipe.m_hostString1, "");
  EXPECT_EQ(pipe.m_hostString2, "");
  EXPECT_EQ(pipe.m_stdinFile, "");
  EXPECT_FALSE(pipe.m_traceLog);
}

TEST(ExecPipeBase, StartsWithNothingSet) {
  ScriptedPipe pipe;
  expectFresh(pipe);
  EXPECT_TRUE(pipe.m_hostList.empty());
}

TEST(ExecPipeBase, KeepsACopyOfTheHostsList) {
  Lines list{"one", "", "three"};
  ScriptedPipe pipe(list);
  EXPECT_THAT(list, ElementsAre("one", "", "three"));
  list.clear();
  expectFresh(pipe);
  EXPECT_THAT(pipe.m_hostList, ElementsAre("one", "", "three"));
}

TEST(ExecPipeBase, ConstructionCallsNoOperation) {
  EXPECT_TRUE(ScriptedPipe().calls.empty());
  EXPECT_TRUE(ScriptedPipe(Lines{"x"}).calls.empty());
}

TEST(ExecPipeBase, ChildContextDoesNothingByItself) {
  PlainPipe pipe;
  Lines output{"kept"};
  EXPECT_EQ(pipe.IsChildContext(), 0);
  EXPECT_EQ(pipe.ExecCommandInChildContext("cmd", output), 0);
  EXPECT_THAT(output, ElementsAre("kept"));
  pipe.Init();
  EXPECT_EQ(pipe.getLastError().m_code, execPipeOk);
}

TEST(ExecPipeBase, LastErrorIsAWholeCopy) {
  ScriptedPipe pipe;
  pipe.m_lastError.m_command = "c";
  pipe.m_lastError.m_message = L"m";
  pipe.m_lastError.m_code = 1;
  pipe.m_lastError.m_detail = 2;
  ECmnExecPipe copy = pipe.getLastError();
  expectRecord(copy, "c", L"m", execPipePipeFailed, 2);
  copy.m_command = "changed";
  EXPECT_EQ(pipe.m_lastError.m_command, "c");
}

TEST(ExecPipeBaseExec, StartsThenReadsToTheEndThenCloses) {
  ScriptedPipe pipe;
  pipe.readings = {{"one\n", true}, {"two\n", true, 0}, {"three", true}, {nullptr, false}};
  Lines output{"old"};
  EXPECT_EQ(pipe.run(output), execPipeOk);
  EXPECT_THAT(output, ElementsAre("one\n", "two\n", "three"));
  EXPECT_THAT(pipe.calls, ElementsAre("IsChildContext", "ExecPipe(cmd,res)", "IsAbortRequested",
                                      "ReadLine(8191,7)", "IsAbortRequested", "ReadLine(8191,7)",
                                      "IsAbortRequested", "ReadLine(8191,7)", "IsAbortRequested",
                                      "ReadLine(8191,7)", "Close(10)"));
}

TEST(ExecPipeBaseExec, KeepsTheHostsStringsAndTheInputFileBeforeAnythingElse) {
  for (const int childContext : {0, 1}) {
    ScriptedPipe pipe;
    pipe.childContext = childContext;
    Lines output;
    pipe.run(output);
    EXPECT_THAT(pipe.seenStrings, ElementsAre("h1", "h2", "in"));
    pipe.Exec("c", output, "", 1, "", "", "");
    EXPECT_THAT(pipe.seenStrings, ElementsAre("", "", ""));
  }
}

TEST(ExecPipeBaseExec, HandsAChildContextsCommandOverAndDoesNothingElse) {
  for (const int childContext : {1, -1, 256}) {
    ScriptedPipe pipe;
    pipe.childContext = childContext;
    Lines output{"kept"};
    EXPECT_EQ(pipe.run(output), 77);
    EXPECT_THAT(pipe.calls, ElementsAre("IsChildContext", "ExecCommandInChildContext(cmd)"));
    EXPECT_THAT(output, ElementsAre("kept", "from the hook"));
    EXPECT_EQ(pipe.getLastError().m_code, execPipeOk);
  }
}

TEST(ExecPipeBaseExec, GivesAFailureToStartBackAndKeepsTheOutput) {
  for (const int code :
       {execPipePipeFailed, execPipeForkFailed, execPipeParseFailed, execPipeNotExecutable, -1}) {
    ScriptedPipe pipe;
    pipe.started = code;
    Lines output{"kept"};
    EXPECT_EQ(pipe.run(output), code);
    EXPECT_THAT(pipe.calls, ElementsAre("IsChildContext", "ExecPipe(cmd,res)"));
    EXPECT_THAT(output, ElementsAre("kept"));
    EXPECT_EQ(pipe.getLastError().m_code, execPipeOk) << "recording is ExecPipe's job";
  }
}

TEST(ExecPipeBaseExec, ClearsTheOutputOfACommandThatSaysNothing) {
  ScriptedPipe pipe;
  Lines output{"old"};
  EXPECT_EQ(pipe.run(output), execPipeOk);
  EXPECT_TRUE(output.empty());
}

TEST(ExecPipeBaseExec, GivesTheResultOfClosingBack) {
  for (const int code : {execPipeOk, execPipeCloseFailed, execPipeWaitFailed, execPipeExitStatus,
                         execPipeSignalled, execPipeUnexpectedStatus}) {
    ScriptedPipe pipe;
    pipe.readings = {{"line", true}};
    pipe.closed = code;
    Lines output;
    EXPECT_EQ(pipe.run(output), code);
    EXPECT_THAT(output, ElementsAre("line"));
  }
}

TEST(ExecPipeBaseExec, ReturnsAtOnceOnATimeOut) {
  for (const bool stored : {false, true}) {
    ScriptedPipe pipe;
    pipe.readings = {{"one\n", true}, {"part", stored, 1}, {"never\n", true}};
    Lines output;
    EXPECT_EQ(pipe.run(output), execPipeReadTimedOut);
    EXPECT_THAT(output, ElementsAre("one\n")) << "what came with the time-out is dropped";
    EXPECT_THAT(pipe.calls,
                ElementsAre("IsChildContext", "ExecPipe(cmd,res)", "IsAbortRequested",
                            "ReadLine(8191,7)", "IsAbortRequested", "ReadLine(8191,7)"));
    expectRecord(pipe.getLastError(), "cmd", L"", execPipeReadTimedOut, 0);
  }
}

TEST(ExecPipeBaseExec, OnlyAMarkOfOneIsATimeOut) {
  ScriptedPipe pipe;
  pipe.readings = {{"one\n", true, 2}, {"two\n", true, 255}, {nullptr, false, 2}};
  Lines output;
  EXPECT_EQ(pipe.run(output), execPipeOk);
  EXPECT_THAT(output, ElementsAre("one\n", "two\n"));
  EXPECT_EQ(pipe.calls.back(), "Close(10)");
}

// The script's ReadLine checks both marks before each call.
TEST(ExecPipeBaseExec, SetsTheMarkAndTheBufferAnewBeforeEachLine) {
  ScriptedPipe pipe;
  pipe.readings = {{"one\n", true, 2}, {"two\n", true, 3}, {nullptr, true}, {nullptr, false}};
  Lines output;
  EXPECT_EQ(pipe.run(output), execPipeOk);
  EXPECT_THAT(output, ElementsAre("one\n", "two\n", ""));
}

TEST(ExecPipeBaseExec, PassesTheTimeOutOnAsItIs) {
  const struct {
    unsigned long given;
    long passed;
  } cases[] = {{0, 0}, {1, 1}, {LONG_MAX, LONG_MAX}, {ULONG_MAX, -1}, {1UL << 63, LONG_MIN}};
  for (const auto& c : cases) {
    ScriptedPipe pipe;
    Lines output;
    pipe.run(output, c.given);
    EXPECT_EQ(pipe.calls[3], "ReadLine(8191," + std::to_string(c.passed) + ")");
    EXPECT_EQ(pipe.calls[4], "Close(10)");
  }
}

TEST(ExecPipeBaseExec, HasRoomForTheLongestLine) {
  const std::string longest(8190, 'x');
  ScriptedPipe pipe;
  pipe.readings = {{longest.c_str(), true}};
  Lines output;
  EXPECT_EQ(pipe.run(output), execPipeOk);
  EXPECT_THAT(output, ElementsAre(longest));
}

// What leaves Exec ends the command first: the next one would overwrite child and read end.
TEST(ExecPipeBaseExec, EndsTheCommandWhenReadingThrowsAndThrowsOn) {
  for (const bool closingThrows : {false, true}) {
    ScriptedPipe pipe;
    pipe.readings = {{"one\n", true},
                     {"two\n", true, 0, [] { throw std::runtime_error("from reading"); }}};
    pipe.closingThrows = closingThrows;
    Lines output;
    EXPECT_THROW(pipe.run(output), std::runtime_error);
    EXPECT_THAT(output, ElementsAre("one\n"));
    EXPECT_EQ(pipe.calls.back(), "Close(10)");
    EXPECT_EQ(std::count(pipe.calls.begin(), pipe.calls.end(), "Close(10)"), 1);
  }
}

TEST(ExecPipeBaseExec, ThrowsOnWhatClosingThrows) {
  ScriptedPipe pipe;
  pipe.closingThrows = true;
  Lines output;
  EXPECT_THROW(pipe.run(output), std::bad_alloc);
}

TEST(ExecPipeBaseAbort, OnlySetsAFlag) {
  ScriptedPipe pipe;
  pipe.Abort();
  EXPECT_TRUE(pipe.calls.empty());
  EXPECT_TRUE(pipe.m_abortRequested);
  EXPECT_TRUE(pipe.IsAbortRequested());
}

TEST(ExecPipeBaseAbort, BeforeExecReadsNothingAndClosesAndLasts) {
  ScriptedPipe pipe;
  pipe.readings = {{"never\n", true}};
  pipe.closed = execPipeSignalled;
  pipe.Abort();
  for (int run = 0; run < 2; ++run) {
    pipe.calls.clear();
    Lines output{"old"};
    EXPECT_EQ(pipe.run(output), execPipeSignalled);
    EXPECT_TRUE(output.empty());
    EXPECT_THAT(pipe.calls, ElementsAre("IsChildContext", "ExecPipe(cmd,res)", "IsAbortRequested",
                                        "Close(10)"));
  }
}

TEST(ExecPipeBaseAbort, DoesNotKeepACommandFromFailingToStart) {
  ScriptedPipe pipe;
  pipe.started = execPipeParseFailed;
  pipe.Abort();
  Lines output;
  EXPECT_EQ(pipe.run(output), execPipeParseFailed);
}

void expectAbortedAfterTheFirstLine(ScriptedPipe& pipe) {
  Lines output;
  EXPECT_EQ(pipe.run(output), execPipeOk);
  EXPECT_THAT(output, ElementsAre("one\n"));
  EXPECT_THAT(pipe.calls, ElementsAre("IsChildContext", "ExecPipe(cmd,res)", "IsAbortRequested",
                                      "ReadLine(8191,7)", "IsAbortRequested", "Close(10)"));
}

TEST(ExecPipeBaseAbort, FromAnotherThreadEndsTheReadingAfterTheLine) {
  ScriptedPipe pipe;
  const auto abort = [&pipe] { std::thread([&pipe] { pipe.Abort(); }).join(); };
  pipe.readings = {{"one\n", true, 0, abort}, {"never\n", true}};
  expectAbortedAfterTheFirstLine(pipe);
}

ScriptedPipe* pipeToAbort = nullptr;

TEST(ExecPipeBaseAbort, WorksInASignalHandler) {
  ScriptedPipe pipe;
  pipeToAbort = &pipe;
  const auto old = signal(SIGUSR1, [](int) { pipeToAbort->Abort(); });
  pipe.readings = {{"one\n", true, 0, [] { raise(SIGUSR1); }}, {"never\n", true}};
  expectAbortedAfterTheFirstLine(pipe);
  signal(SIGUSR1, old);
}

}  // namespace
