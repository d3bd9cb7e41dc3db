// soak SECONDS [SEED]: runs commands of every ending on several objects, for so long, in a process
// that does much else meanwhile, and checks each result. Ends at the first that is wrong.
#include "commands.h"
#include "host.h"
#include "process_state.h"
#include "scratch.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace kelp_soak {
namespace {

using namespace kelp_cmn_4_4;
using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;
using Codes = std::set<int>;

constexpr unsigned long patience = 120;  // seconds for output of a command that gives some
constexpr size_t longestPiece = 8190;    // of a line, from Exec()

// What Close() makes of a status: the handler's record is a plain number, which is read as an
// encoded status on purpose; waitpid's is one.
int codeFromRecord(End end) {
  const int low = end.number & 0x7f;
  return low == 0x7f ? execPipeUnexpectedStatus : low != 0 ? execPipeSignalled : execPipeOk;
}
int codeFromWaitpid(End end) {
  return end.bySignal ? execPipeSignalled : end.number != 0 ? execPipeExitStatus : execPipeOk;
}

// A status may be lost where children overlap; never that of an only child.
Codes codesFor(const std::vector<End>& ends, bool alone) {
  Codes codes;
  for (const End end : ends) {
    codes.insert(codeFromRecord(end));
    codes.insert(codeFromWaitpid(end));
  }
  if (!alone) {
    codes.insert(execPipeWaitFailed);
  }
  return codes;
}

Lines inPieces(const std::string& output) {
  Lines pieces;
  for (size_t begin = 0; begin < output.size();) {
    const size_t newline = output.find('\n', begin);
    const size_t end = newline == std::string::npos ? output.size() : newline + 1;
    pieces.push_back(output.substr(begin, std::min(end - begin, longestPiece)));
    begin += pieces.back().size();
  }
  return pieces;
}

// One command that is being read line by line.
struct Run {
  SoakPipe* pipe;
  Command command;
  std::string before;  // what an earlier run left
  int lineSize;
  size_t linesToRead;  // no more than that many
  std::string received{};
  bool ended = false;
  bool lastWasWhole = true;
};

class Soak {
 public:
  Soak(uint64_t seed, long seconds)
      : m_random(seed), m_start(Clock::now()), m_seconds(seconds), m_mayBeSlow(seconds >= 30) {
    renewPipes();
  }

  void run() {
    while (elapsed() < m_seconds) {
      round();
      m_trace.checkWhenGrown();
      if (!m_hasBaseline && elapsed() >= std::min(60L, m_seconds / 3)) {
        takeBaseline();
      }
      if (elapsed() / 60 > m_minutesTold) {
        m_minutesTold = elapsed() / 60;
        tellProgress();
      }
    }
    releaseAll();
    checkMemory();
  }

  // A row for each kind of command, with the codes that came.
  void tellAll() const {
    const Children::Count& children = m_children.count();
    std::printf("%-18s %10s\n", "command", "runs: code");
    for (const auto& [name, codes] : m_results) {
      std::printf("%-18s", name.c_str());
      for (const auto& [code, count] : codes) {
        std::printf(" %9llu: %-2d", static_cast<unsigned long long>(count), code);
      }
      std::printf("\n");
    }
    std::printf("\n");
    const std::pair<const char*, uint64_t> totals[] = {
        {"runs", m_runs},
        {"bytes of output", m_bytes},
        {"children of the host", children.started},
        {"  with a record", children.recorded},
        {"  left for waitpid", children.reaped},
        {"  with neither", children.lost},
        {"zombies of commands", m_children.zombiesOfCommands()},
        {"interruptions", Timer::interruptions()},
        {"lines of the trace", m_trace.lines()},
        {"bytes of heap before", m_heap},
        {"bytes of heap after", m_heapAfter},
        {"MB resident before", m_resident >> 20},
        {"MB resident after", m_residentAfter >> 20}};
    for (const auto& [what, number] : totals) {
      std::printf("%-22s %12llu\n", what, static_cast<unsigned long long>(number));
    }
  }

 private:
  long elapsed() const {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_start).count());
  }

  std::unique_ptr<SoakPipe> newPipe() const {
    auto pipe = std::make_unique<SoakPipe>();
    pipe->registerTraceLog(m_trace.log());
    return pipe;
  }

  SoakPipe& anyPipe() {
    auto& pipe = m_pipes[m_random.below(m_pipes.size())];
    if (m_random.oneIn(20)) {
      pipe = newPipe();
    }
    return *pipe;
  }

  std::string inputFile() const { return m_directory.path() + "input"; }

  // Nothing of an earlier round is left: no child, no zombie, no record.
  void settle() {
    m_children.account(*m_pipes[0]);
    if (SoakPipe::recordCount() != 0) {
      wrong("there is a record of a child that nobody started");
    }
  }

  void round() {
    Timer::every(static_cast<long>(m_random.between(1000, 30000)));
    settle();
    ++m_rounds;
    m_trace.line();
    m_allocations.change(m_random);
    const size_t kind = m_random.below(100);
    if (kind < 40) {
      runAlone();
    } else if (kind < 55) {
      runBesideChildren();
    } else if (kind < 75) {
      runOverlapping();
    } else if (kind < 83) {
      startChildren(m_random.between(50, 250));
    } else if (kind < 88) {
      abortFromHandler();
    } else if (kind < 93) {
      runInForkedChild();
    } else if (kind < 96) {
      runWhatCannotStart();
    } else if (kind < 98) {
      giveUp();
    } else {
      runOutOfTime();
    }
  }

  [[noreturn]] void wrongRun(const Command& command, const std::string& what) const {
    wrong("round " + std::to_string(m_rounds) + ", " + command.line + ": " + what);
  }

  void checkCode(SoakPipe& pipe, const Command& command, int code, const Codes& expected) {
    if (expected.count(code) == 0) {
      std::string all;
      for (const int one : expected) {
        all += " " + std::to_string(one);
      }
      wrongRun(command, "code " + std::to_string(code) + ", expected one of" + all);
    }
    const ECmnExecPipe error = pipe.getLastError();
    if (code != execPipeOk && (error.m_code != code || error.m_command != command.line)) {
      wrongRun(command, "the last error is " + std::to_string(error.m_code) + " of '" +
                            error.m_command + "', expected " + std::to_string(code) +
                            " of this command");
    }
    ++m_results[command.name][code];
    ++m_runs;
  }

  // When the reading was ended early, only the beginning has come.
  void checkOutput(const Command& command, const std::string& received, std::string expected,
                   bool early = false) {
    if (early && received.size() < expected.size()) {
      expected.resize(received.size());
    }
    if (received != expected) {
      const auto same =
          std::mismatch(received.begin(), received.end(), expected.begin(), expected.end());
      wrongRun(command, std::to_string(received.size()) + " bytes of output, expected " +
                            std::to_string(expected.size()) + "; the first " +
                            std::to_string(same.first - received.begin()) + " are right");
    }
    m_bytes += received.size();
  }

  void checkLines(const Command& command, const Lines& lines, const std::string& expected) {
    std::string received;
    for (const std::string& line : lines) {
      received += line;
    }
    checkOutput(command, received, expected);
    if (lines != inPieces(expected)) {
      wrongRun(command, "the output is right, but not its lines");
    }
  }

  int exec(SoakPipe& pipe, const Command& command, Lines& lines, unsigned long timeoutSeconds) {
    lines = {"from before"};
    const int code = pipe.Exec(command.line, lines, command.input, timeoutSeconds, "", "", "");
    m_children.addClosed(pipe.startedPid(), command.ends(false));
    return code;
  }

  void execWhole(SoakPipe& pipe, const Command& command, bool alone) {
    const std::string before = pipe.leftOver();
    Lines lines;
    const int code = exec(pipe, command, lines, patience);
    checkCode(pipe, command, code, codesFor(command.ends(false), alone));
    checkLines(command, lines, before + command.output);
  }

  void runAlone() {
    // Exec() gives a command ten seconds to end.
    if (m_mayBeSlow && m_random.oneIn(300)) {
      execWhole(anyPipe(), closedForEverCommand(), true);
    } else {
      execWhole(anyPipe(), someEndingCommand(m_random, inputFile()), true);
    }
  }

  void runBesideChildren() {
    startChildren(m_random.between(1, 30));
    execWhole(anyPipe(), someEndingCommand(m_random, inputFile()), false);
  }

  void startChildren(size_t count) {
    for (size_t i = 0; i < count; ++i) {
      m_children.start(m_random);
      if (m_random.oneIn(10)) {
        m_allocations.change(m_random);
        m_trace.line();
      }
    }
  }

  Run start(SoakPipe& pipe) {
    const size_t kind = m_random.below(100);
    Run run{
        &pipe,
        kind < 10                  ? endlessCommand()
        : kind < 13 && m_mayBeSlow ? someLastingCommand(m_random)
                                   : someEndingCommand(m_random, inputFile()),
        pipe.leftOver(),
        static_cast<int>(m_random.oneIn(3) ? m_random.between(2, 40) : m_random.between(41, 10000)),
        SIZE_MAX};
    // A reader of the wrong file would be none of the library's doing.
    while (!run.command.input.empty()) {
      run.command = someEndingCommand(m_random, inputFile());
    }
    if (run.command.endless || run.command.runsOn || m_random.oneIn(6)) {
      run.linesToRead = m_random.below(run.command.runsOn ? 2 : 3000);
    }
    // A command has two minutes.
    run.lineSize = std::max(run.lineSize, static_cast<int>(run.command.output.size() / 50000));
    pipe.forgetInput();
    const int code = pipe.ExecPipe(run.command.line, "");
    if (code != execPipeOk) {
      wrongRun(run.command, "code " + std::to_string(code) + " at its start, expected 0");
    }
    return run;
  }

  void readLine(Run& run) {
    std::vector<char> line(static_cast<size_t>(run.lineSize));
    unsigned char timedOut = 77;
    run.ended =
        run.linesToRead == 0 || !run.pipe->ReadLine(line.data(), run.lineSize, &timedOut, patience);
    if (run.linesToRead > 0 && timedOut != 0) {
      wrongRun(run.command, "timed out");
    }
    if (run.ended) {
      return;
    }
    --run.linesToRead;
    const size_t length = std::strlen(line.data());
    if (!run.lastWasWhole || length == 0) {
      wrongRun(run.command, "a piece of a line before its end");
    }
    run.lastWasWhole = line[length - 1] == '\n' || length == line.size() - 1;
    run.received.append(line.data(), length);
  }

  void close(Run& run) {
    const Command& command = run.command;
    const bool early = run.linesToRead == 0;
    const std::vector<End> ends = command.ends(early);
    const int code = run.pipe->Close(early ? 1 : static_cast<long>(patience));
    m_children.addClosed(run.pipe->startedPid(), ends);
    checkCode(*run.pipe, command, code, codesFor(ends, false));
    const std::string received = run.received + run.pipe->leftOver();
    checkOutput(command, received,
                run.before + (command.endless ? numberedLines(received.size()) : command.output),
                early);
  }

  void runOverlapping() {
    std::vector<Run> runs;
    for (auto& pipe : m_pipes) {
      if (m_random.oneIn(2)) {
        runs.push_back(start(*pipe));
      }
    }
    while (!runs.empty()) {
      Run& run = runs[m_random.below(runs.size())];
      for (size_t i = m_random.between(1, 2000); i > 0 && !run.ended; --i) {
        readLine(run);
      }
      if (m_random.oneIn(5)) {
        startChildren(m_random.between(1, 5));
      }
      m_allocations.change(m_random);
      if (run.ended) {
        close(run);
        std::swap(run, runs.back());
        runs.pop_back();
      }
    }
  }

  // Abort() comes from the timer's handler, in the middle of an output that has no end.
  void abortFromHandler() {
    const auto pipe = newPipe();
    const Command command = endlessCommand();
    Lines lines;
    Timer::every(static_cast<long>(m_random.between(1000, 10000)));
    Timer::abortAfter(static_cast<int>(m_random.between(1, 10)), *pipe);
    checkCode(*pipe, command, exec(*pipe, command, lines, patience),
              codesFor(command.ends(true), true));
    Timer::abortNothing();
    size_t size = 0;
    for (const std::string& line : lines) {
      size += line.size();
    }
    checkLines(command, lines, numberedLines(size));
    runAborted(*pipe);
  }

  // An object that was aborted reads nothing any more.
  void runAborted(SoakPipe& pipe) {
    Command command = countingCommand(m_random);
    command.name = "after an abort";
    Lines lines;
    const int code = pipe.Exec(command.line, lines, "", patience, "", "", "");
    m_children.addClosed(pipe.startedPid(), command.ends(true));
    checkCode(pipe, command, code, codesFor(command.ends(true), true));
    checkLines(command, lines, "");
  }

  // A child that the host forks runs commands of its own, one after the other.
  void runInForkedChild() {
    SoakPipe& pipe = anyPipe();
    m_children.startWorking([this, &pipe] {
      for (size_t i = m_random.between(1, 3); i > 0; --i) {
        execWhole(pipe, tellingCommand(m_random), true);
      }
      return true;
    });
  }

  void runWhatCannotStart() {
    const bool unparsable = m_random.oneIn(2);
    const Command command = unparsable ? unparsableCommand(m_random) : missingCommand(m_random);
    SoakPipe& pipe = anyPipe();
    Lines lines = {"from before"};
    const int code = pipe.Exec(command.line, lines, "", patience, "", "", "");
    checkCode(pipe, command, code, {unparsable ? execPipeParseFailed : execPipeNotExecutable});
    if (lines != Lines{"from before"}) {
      wrongRun(command, "the output was changed");
    }
  }

  Command lastingOrSilent() {
    return m_random.oneIn(2) ? silentCommand() : someLastingCommand(m_random);
  }

  // Without any time to end, the command is given up, but has been sent both signals.
  void giveUp() {
    Command command = lastingOrSilent();
    SoakPipe& pipe = anyPipe();
    pipe.forgetInput();
    if (pipe.ExecPipe(command.line, "") != execPipeOk) {
      wrongRun(command, "not started");
    }
    endByForce(pipe, command, -1);
  }

  void endByForce(SoakPipe& pipe, Command& command, long timeoutSeconds) {
    m_children.addClosed(pipe.startedPid(), command.ends(true));
    command.name = timeoutSeconds < 0 ? "given up" : "ended by force";
    checkCode(pipe, command, pipe.Close(timeoutSeconds),
              timeoutSeconds < 0 ? Codes{execPipeWaitFailed} : codesFor(command.ends(true), true));
  }

  void runOutOfTime() {
    const auto pipe = newPipe();
    Command command = lastingOrSilent();
    while (command.name == "closed for ever") {
      command = lastingOrSilent();
    }
    Lines lines;
    const unsigned long seconds = m_mayBeSlow ? m_random.below(2) : 0;
    const int code = pipe->Exec(command.line, lines, "", seconds, "", "", "");
    checkCode(*pipe, command, code, {execPipeReadTimedOut});
    if (!lines.empty()) {  // it may have been too slow for the first one
      checkLines(command, lines, command.output);
    }
    endByForce(*pipe, command, m_mayBeSlow && m_random.oneIn(2) ? 1 : -1);
  }

  void renewPipes() {
    for (auto& pipe : m_pipes) {
      pipe = newPipe();
    }
  }

  // What is compared at the end is taken in the same state as there: everything released that a run
  // or the host holds.
  void releaseAll() {
    renewPipes();
    settle();
    m_allocations.clear();
    m_trace.check();
  }

  // The smallest block takes 32 bytes. So one that was left behind by each round, or by each run,
  // shows after 512 of them: within minutes. The table of results may grow by a few thousand bytes.
  void checkMemory() {
    constexpr size_t heapRoom = 16U << 10;
    constexpr size_t residentRoom = 64U << 20;
    m_heapAfter = heapBytes();
    m_residentAfter = residentBytes();
    if (m_heapAfter > m_heap + heapRoom || m_residentAfter > m_resident + residentRoom) {
      wrong("the heap has grown from " + std::to_string(m_heap) + " to " +
            std::to_string(m_heapAfter) + " bytes, what is resident from " +
            std::to_string(m_resident) + " to " + std::to_string(m_residentAfter));
    }
  }

  void takeBaseline() {
    releaseAll();
    m_hasBaseline = true;
    m_resident = residentBytes();
    m_heap = heapBytes();
  }

  void tellProgress() const {
    std::printf("minute %ld: %llu runs, %zu endings, %llu children, %zu MB resident\n",
                elapsed() / 60, static_cast<unsigned long long>(m_runs), endings(),
                static_cast<unsigned long long>(m_children.count().started), residentBytes() >> 20);
    std::fflush(stdout);
  }

  size_t endings() const {
    size_t count = 0;
    for (const auto& [name, codes] : m_results) {
      count += codes.size();
    }
    return count;
  }

  Random m_random;
  const Clock::time_point m_start;
  const long m_seconds;
  const bool m_mayBeSlow;
  const kelp_test::ScratchDirectory m_directory;
  Timer m_timer;
  Trace m_trace;
  Children m_children;
  Allocations m_allocations;
  std::array<std::unique_ptr<SoakPipe>, 8> m_pipes;

  bool m_hasBaseline = false;
  size_t m_resident = 0;
  size_t m_heap = 0;
  size_t m_residentAfter = 0;
  size_t m_heapAfter = 0;
  long m_minutesTold = 0;
  uint64_t m_rounds = 0;
  uint64_t m_runs = 0;
  uint64_t m_bytes = 0;
  std::map<std::string, std::map<int, uint64_t>> m_results;  // by name and code
};

// Runs, and then compares the process with what it was.
int soak(long seconds, uint64_t seed) {
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  const auto before = kelp_test::ProcessState::capture();
  auto soak = std::make_unique<Soak>(seed, seconds);
  soak->run();
  soak->tellAll();
  soak.reset();
  kelp_test::expectChangeOf("SIGCHLD");
  for (const std::string& change :
       kelp_test::unexpectedChanges(before, kelp_test::ProcessState::capture())) {
    wrong("left behind: " + change);
  }
  std::printf("all right\n");
  return 0;
}

}  // namespace
}  // namespace kelp_soak

int main(int argc, char** argv) {
  const long seconds = argc > 1 ? std::atol(argv[1]) : 0;
  if (seconds < 1 || argc > 3) {
    std::fprintf(stderr, "usage: soak SECONDS [SEED]\n");
    return 64;
  }
  const uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : std::random_device{}();
  std::printf("%ld seconds, seed %llu\n", seconds, static_cast<unsigned long long>(seed));
  std::fflush(stdout);
  return kelp_soak::soak(seconds, seed);
}
