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
#include <type_traits>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnExecPipeBase;
using kelp_cmn_4_4::CCmnTraceable;
using kelp_cmn_4_4::ECmnExecPipe;
using testing::ElementsAre;

using Lines = std::vector<std::string>;

static_assert(std::is_base_of_v<CCmnTraceable, CCmnExecPipeBase>);
static_assert(std::is_abstract_v<CCmnExecPipeBase>);
static_assert(std::has_virtual_destructor_v<CCmnExecPipeBase>);
static_assert(!std::is_final_v<CCmnExecPipeBase>);
static_assert(!std::is_copy_constructible_v<CCmnExecPipeBase>);
static_assert(!std::is_copy_assignable_v<CCmnExecPipeBase>);
static_assert(!std::is_final_v<ECmnExecPipe>);
static_assert(std::is_copy_constructible_v<ECmnExecPipe>);

static_assert(std::is_same_v<decltype(ECmnExecPipe::m_command), std::string>);
static_assert(std::is_same_v<decltype(ECmnExecPipe::m_message), std::wstring>);
static_assert(std::is_same_v<decltype(ECmnExecPipe::m_code), int>);
static_assert(std::is_same_v<decltype(ECmnExecPipe::m_detail), long>);

static_assert(std::is_same_v<decltype(&CCmnExecPipeBase::ExecPipe),
                             int (CCmnExecPipeBase::*)(std::string, std::string)>);
static_assert(
    std::is_same_v<decltype(&CCmnExecPipeBase::WaitPid), int (CCmnExecPipeBase::*)(long)>);
static_assert(std::is_same_v<decltype(&CCmnExecPipeBase::Close), int (CCmnExecPipeBase::*)(long)>);
static_assert(std::is_same_v<decltype(&CCmnExecPipeBase::ReadLine),
                             bool (CCmnExecPipeBase::*)(char*, int, unsigned char*, long)>);
static_assert(
    std::is_same_v<decltype(&CCmnExecPipeBase::IsAbortRequested), bool (CCmnExecPipeBase::*)()>);
static_assert(
    std::is_same_v<decltype(&CCmnExecPipeBase::IsChildContext), int (CCmnExecPipeBase::*)()>);
static_assert(std::is_same_v<decltype(&CCmnExecPipeBase::ExecCommandInChildContext),
                             int (CCmnExecPipeBase::*)(std::string, Lines&)>);
static_assert(
    std::is_same_v<decltype(&CCmnExecPipeBase::Exec),
                   int (CCmnExecPipeBase::*)(std::string, Lines&, std::string, unsigned long,
                                             std::string, std::string, std::string)>);
static_assert(std::is_same_v<decltype(&CCmnExecPipeBase::Abort), void (CCmnExecPipeBase::*)()>);
static_assert(std::is_same_v<decltype(&CCmnExecPipeBase::Init), void (CCmnExecPipeBase::*)()>);
static_assert(std::is_same_v<decltype(&CCmnExecPipeBase::getLastError),
                             ECmnExecPipe (CCmnExecPipeBase::*)()>);
static_assert(std::is_same_v<decltype(CCmnExecPipeBase::m_pfnIsChildContext), int (*)()>);
static_assert(std::is_same_v<decltype(CCmnExecPipeBase::m_pfnExecInChild),
                             int (*)(const char*, char**, int*)>);
static_assert(std::is_same_v<decltype(CCmnExecPipeBase::m_pfnFreeOutput), void (*)(char*, int)>);

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
    EXPECT_EQ('\0', buffer[0]);
    EXPECT_EQ(0, *timedOut);
    if (next_ == readings.size()) {
      return false;
    }
    const Reading& reading = readings[next_++];
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
  size_t next_ = 0;
};

// Leaves everything but the pure operations to the base.
class PlainPipe : public CCmnExecPipeBase {
 public:
  int ExecPipe(std::string, std::string) override { return 0; }
  int WaitPid(long) override { return 0; }
  int Close(long) override { return 0; }
  bool ReadLine(char*, int, unsigned char*, long) override { return false; }
};

TEST(ExecPipeRecord, StartsEmpty) {
  const ECmnExecPipe record;
  EXPECT_EQ("", record.m_command);
  EXPECT_EQ(L"", record.m_message);
  EXPECT_EQ(0, record.m_code);
  EXPECT_EQ(0, record.m_detail);
}

TEST(ExecPipeRecord, IsBuiltWithoutMessageAndDetailOrWhole) {
  const ECmnExecPipe brief("c", 6);
  EXPECT_EQ("c", brief.m_command);
  EXPECT_EQ(L"", brief.m_message);
  EXPECT_EQ(6, brief.m_code);
  EXPECT_EQ(0, brief.m_detail);
  const ECmnExecPipe whole("d", L"m", 1, 24);
  EXPECT_EQ("d", whole.m_command);
  EXPECT_EQ(L"m", whole.m_message);
  EXPECT_EQ(1, whole.m_code);
  EXPECT_EQ(24, whole.m_detail);
}

TEST(ExecPipeRecord, FieldsLieInOrder) {
  const ECmnExecPipe record;
  const void* const fields[] = {&record.m_command, &record.m_message, &record.m_code,
                                &record.m_detail};
  for (size_t i = 1; i < 4; ++i) {
    EXPECT_TRUE(std::less<>()(fields[i - 1], fields[i])) << i;
  }
}

TEST(ExecPipeRecord, CopyConstructionCopiesEverything) {
  const ECmnExecPipe original("command", L"message", 11, 3);
  const ECmnExecPipe copy(original);
  EXPECT_EQ("command", copy.m_command);
  EXPECT_EQ(L"message", copy.m_message);
  EXPECT_EQ(11, copy.m_code);
  EXPECT_EQ(3, copy.m_detail);
}

// Narrow on purpose.
TEST(ExecPipeRecord, AssignmentCopiesOnlyCommandAndCode) {
  const ECmnExecPipe source("new command", L"new message", 12, 9);
  ECmnExecPipe target("old command", L"old message", 11, 3);
  ECmnExecPipe& result = (target = source);
  EXPECT_EQ(&target, &result);
  EXPECT_EQ("new command", target.m_command);
  EXPECT_EQ(L"old message", target.m_message);
  EXPECT_EQ(12, target.m_code);
  EXPECT_EQ(3, target.m_detail);
}

TEST(ExecPipeRecord, AssignmentOfATemporaryIsAsNarrowAndLeavesItWhole) {
  ECmnExecPipe source("a command too long for a short string", L"message", 12, 9);
  ECmnExecPipe target;
  target = std::move(source);
  EXPECT_EQ("a command too long for a short string", target.m_command);
  EXPECT_EQ(L"", target.m_message);
  EXPECT_EQ(12, target.m_code);
  EXPECT_EQ(0, target.m_detail);
  EXPECT_EQ("a command too long for a short string", source.m_command);
  EXPECT_EQ(L"message", source.m_message);
}

TEST(ExecPipeRecord, MovingCopies) {
  ECmnExecPipe source("a command too long for a short string", L"a message just as long", 12, 9);
  const ECmnExecPipe target(std::move(source));
  EXPECT_EQ(L"a message just as long", target.m_message);
  EXPECT_EQ("a command too long for a short string", source.m_command);
  EXPECT_EQ(L"a message just as long", source.m_message);
}

TEST(ExecPipeRecord, AssignmentToItselfChangesNothing) {
  ECmnExecPipe record("command", L"message", 11, 3);
  const ECmnExecPipe& same = record;
  record = same;
  EXPECT_EQ("command", record.m_command);
  EXPECT_EQ(L"message", record.m_message);
  EXPECT_EQ(11, record.m_code);
  EXPECT_EQ(3, record.m_detail);
}

TEST(ExecPipeCodes, HaveTheirNumbers) {
  using namespace kelp_cmn_4_4;
  EXPECT_EQ(0, execPipeOk);
  EXPECT_EQ(1, execPipePipeFailed);
  EXPECT_EQ(3, execPipeCloseFailed);
  EXPECT_EQ(4, execPipeForkFailed);
  EXPECT_EQ(5, execPipeReadTimedOut);
  EXPECT_EQ(6, execPipeParseFailed);
  EXPECT_EQ(7, execPipeNotExecutable);
  EXPECT_EQ(8, execPipeWaitFailed);
  EXPECT_EQ(11, execPipeExitStatus);
  EXPECT_EQ(12, execPipeSignalled);
  EXPECT_EQ(13, execPipeUnexpectedStatus);
}

void expectFresh(ScriptedPipe& pipe) {
  EXPECT_FALSE(pipe.m_abortRequested);
  EXPECT_FALSE(pipe.IsAbortRequested());
  EXPECT_EQ(nullptr, pipe.m_pfnIsChildContext);
  EXPECT_EQ(nullptr, pipe.m_pfnExecInChild);
  EXPECT_EQ(nullptr, pipe.m_pfnFreeOutput);
  EXPECT_EQ("", pipe.m_lastError.m_command);
  EXPECT_EQ(L"", pipe.m_lastError.m_message);
  EXPECT_EQ(0, pipe.m_lastError.m_code);
  EXPECT_EQ(0, pipe.m_lastError.m_detail);
  EXPECT_EQ("", pipe.m_hostString1);
  EXPECT_EQ("", pipe.m_hostString2);
  EXPECT_EQ("", pipe.m_stdinFile);
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
  EXPECT_EQ(0, pipe.IsChildContext());
  EXPECT_EQ(0, pipe.ExecCommandInChildContext("cmd", output));
  EXPECT_THAT(output, ElementsAre("kept"));
  pipe.Init();
  EXPECT_EQ(0, pipe.getLastError().m_code);
}

TEST(ExecPipeBase, LastErrorIsAWholeCopy) {
  ScriptedPipe pipe;
  pipe.m_lastError.m_command = "c";
  pipe.m_lastError.m_message = L"m";
  pipe.m_lastError.m_code = 1;
  pipe.m_lastError.m_detail = 2;
  ECmnExecPipe copy = pipe.getLastError();
  EXPECT_EQ("c", copy.m_command);
  EXPECT_EQ(L"m", copy.m_message);
  EXPECT_EQ(1, copy.m_code);
  EXPECT_EQ(2, copy.m_detail);
  copy.m_command = "changed";
  EXPECT_EQ("c", pipe.m_lastError.m_command);
}

TEST(ExecPipeBaseExec, CallsTheOperationsInOrder) {
  ScriptedPipe pipe;
  pipe.readings = {{"one\n", true}, {"two\n", true, 0}, {"three", true}, {nullptr, false}};
  Lines output{"old"};
  EXPECT_EQ(0, pipe.run(output));
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
    EXPECT_EQ(77, pipe.run(output));
    EXPECT_THAT(pipe.calls, ElementsAre("IsChildContext", "ExecCommandInChildContext(cmd)"));
    EXPECT_THAT(output, ElementsAre("kept", "from the hook"));
    EXPECT_EQ(0, pipe.getLastError().m_code);
  }
}

TEST(ExecPipeBaseExec, GivesAFailureToStartBackAndKeepsTheOutput) {
  for (const int code : {1, 4, 6, 7, -1}) {
    ScriptedPipe pipe;
    pipe.started = code;
    Lines output{"kept"};
    EXPECT_EQ(code, pipe.run(output));
    EXPECT_THAT(pipe.calls, ElementsAre("IsChildContext", "ExecPipe(cmd,res)"));
    EXPECT_THAT(output, ElementsAre("kept"));
    EXPECT_EQ(0, pipe.getLastError().m_code) << "recording is ExecPipe's job";
  }
}

TEST(ExecPipeBaseExec, ClearsTheOutputOfACommandThatSaysNothing) {
  ScriptedPipe pipe;
  Lines output{"old"};
  EXPECT_EQ(0, pipe.run(output));
  EXPECT_TRUE(output.empty());
}

TEST(ExecPipeBaseExec, GivesTheResultOfClosingBack) {
  for (const int code : {0, 3, 8, 11, 12, 13}) {
    ScriptedPipe pipe;
    pipe.readings = {{"line", true}};
    pipe.closed = code;
    Lines output;
    EXPECT_EQ(code, pipe.run(output));
    EXPECT_THAT(output, ElementsAre("line"));
  }
}

TEST(ExecPipeBaseExec, ReturnsAtOnceOnATimeOut) {
  for (const bool stored : {false, true}) {
    ScriptedPipe pipe;
    pipe.readings = {{"one\n", true}, {"part", stored, 1}, {"never\n", true}};
    Lines output;
    EXPECT_EQ(5, pipe.run(output));
    EXPECT_THAT(output, ElementsAre("one\n")) << "what came with the time-out is dropped";
    EXPECT_THAT(pipe.calls,
                ElementsAre("IsChildContext", "ExecPipe(cmd,res)", "IsAbortRequested",
                            "ReadLine(8191,7)", "IsAbortRequested", "ReadLine(8191,7)"));
    EXPECT_EQ("cmd", pipe.getLastError().m_command);
    EXPECT_EQ(5, pipe.getLastError().m_code);
    EXPECT_EQ(L"", pipe.getLastError().m_message);
    EXPECT_EQ(0, pipe.getLastError().m_detail);
  }
}

TEST(ExecPipeBaseExec, OnlyAMarkOfOneIsATimeOut) {
  ScriptedPipe pipe;
  pipe.readings = {{"one\n", true, 2}, {"two\n", true, 255}, {nullptr, false, 2}};
  Lines output;
  EXPECT_EQ(0, pipe.run(output));
  EXPECT_THAT(output, ElementsAre("one\n", "two\n"));
  EXPECT_EQ("Close(10)", pipe.calls.back());
}

// The script's ReadLine checks both marks before each call.
TEST(ExecPipeBaseExec, SetsTheMarkAndTheBufferAnewBeforeEachLine) {
  ScriptedPipe pipe;
  pipe.readings = {{"one\n", true, 2}, {"two\n", true, 3}, {nullptr, true}, {nullptr, false}};
  Lines output;
  EXPECT_EQ(0, pipe.run(output));
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
    EXPECT_EQ("ReadLine(8191," + std::to_string(c.passed) + ")", pipe.calls[3]);
    EXPECT_EQ("Close(10)", pipe.calls[4]);
  }
}

TEST(ExecPipeBaseExec, HasRoomForTheLongestLine) {
  const std::string longest(8190, 'x');
  ScriptedPipe pipe;
  pipe.readings = {{longest.c_str(), true}};
  Lines output;
  EXPECT_EQ(0, pipe.run(output));
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
    EXPECT_EQ("Close(10)", pipe.calls.back());
    EXPECT_EQ(1, std::count(pipe.calls.begin(), pipe.calls.end(), "Close(10)"));
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
  pipe.closed = 12;
  pipe.Abort();
  for (int run = 0; run < 2; ++run) {
    pipe.calls.clear();
    Lines output{"old"};
    EXPECT_EQ(12, pipe.run(output));
    EXPECT_TRUE(output.empty());
    EXPECT_THAT(pipe.calls, ElementsAre("IsChildContext", "ExecPipe(cmd,res)", "IsAbortRequested",
                                        "Close(10)"));
  }
}

TEST(ExecPipeBaseAbort, DoesNotKeepACommandFromFailingToStart) {
  ScriptedPipe pipe;
  pipe.started = 6;
  pipe.Abort();
  Lines output;
  EXPECT_EQ(6, pipe.run(output));
}

void expectAbortedAfterTheFirstLine(ScriptedPipe& pipe) {
  Lines output;
  EXPECT_EQ(0, pipe.run(output));
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
