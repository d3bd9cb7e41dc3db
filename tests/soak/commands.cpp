#include "commands.h"

#include "scratch.h"

#include <signal.h>

namespace kelp_soak {
namespace {

std::string hostile(const std::string& arguments) {
  return std::string("'") + HOSTILE_CHILD_PATH + "' " + arguments;
}

std::string letters(size_t count) {
  std::string result(count, '\0');
  for (size_t i = 0; i < count; ++i) {
    result[i] = static_cast<char>('a' + i % 26);
  }
  return result;
}

std::string countedLines(size_t count) {
  std::string result;
  for (size_t i = 0; i < count; ++i) {
    result += std::to_string(i) + "\n";
  }
  return result;
}

Command exiting(const std::string& name, int status) {
  return {name, hostile("exit " + std::to_string(status)), "", "", {false, status}};
}

Command exitingAnyhow(Random& random) {
  return exiting("exit other", static_cast<int>(random.between(1, 254)));
}

Command dying(Random& random) {
  static const std::vector<int> deadly = {SIGHUP,  SIGINT,  SIGQUIT, SIGILL,  SIGTRAP, SIGABRT,
                                          SIGBUS,  SIGFPE,  SIGKILL, SIGUSR1, SIGSEGV, SIGUSR2,
                                          SIGPIPE, SIGALRM, SIGTERM, SIGXCPU, SIGXFSZ, SIGVTALRM,
                                          SIGPROF, SIGSYS,  SIGIO,   SIGPWR,  40,      64};
  const int signalNumber = random.of(deadly);
  return {"signal", hostile("die " + std::to_string(signalNumber)), "", "", {true, signalNumber}};
}

Command silent(Random& random) {
  const int status = random.oneIn(2) ? 0 : 9;
  const std::string milliseconds = std::to_string(random.below(150));
  return {"silent",
          hostile("silence " + milliseconds + " " + std::to_string(status)),
          "",
          "",
          {false, status}};
}

Command huge(Random& random) {
  const size_t size = random.between(1U << 20, 12U << 20);
  return {"huge line", hostile("bytes " + std::to_string(size)), "", letters(size), {false, 0}};
}

Command manyLines(Random& random) {
  std::string line = "lines";
  std::string output;
  for (size_t i = random.between(1, 40); i > 0; --i) {
    const size_t length = random.oneIn(4) ? random.between(8180, 8200) : random.below(20000);
    line += " " + std::to_string(length);
    output += letters(length) + "\n";
  }
  return {"long lines", hostile(line), "", output, {false, 0}};
}

Command lingering(Random& random) {
  const int status = static_cast<int>(random.below(4));
  const std::string milliseconds = std::to_string(random.below(250));
  return {"closed output",
          hostile("linger " + milliseconds + " " + std::to_string(status)),
          "",
          "closing\n",
          {false, status}};
}

Command echoing(Random& random, const std::string& inputFile) {
  const std::string text = letters(random.below(100000));
  kelp_test::writeFile(inputFile, text);
  return {"echo of input", hostile("echo"), inputFile, text, {false, 0}};
}

Command systemProgram(Random& random) {
  static const std::vector<Command> programs = {
      {"program", "/bin/true", "", "", {false, 0}},
      {"program", "/bin/false", "", "", {false, 1}},
      {"program", "/bin/echo 'one two'  three", "", "one two three\n", {false, 0}},
      {"program", "/bin/sh -c 'echo out; echo err >&2; exit 5'", "", "out\nerr\n", {false, 5}},
      {"program", "/bin/sh -c 'kill -9 $$'", "", "", {true, SIGKILL}},
      {"program", "/bin/sh -c '(exit 4) & (exit 5) & wait; exit 6'", "", "", {false, 6}}};
  return random.of(programs);
}

Command failingInTheChild(Random& random) {
  return random.oneIn(2) ? Command{"not started", "/tmp", "", "", {false, 1}}
                         : Command{"not started", "/bin/true", "/no/such/file", "", {false, 1}};
}

}  // namespace

std::vector<End> Command::ends(bool early) const {
  std::vector<End> byForce = {{true, SIGTERM}, {true, SIGKILL}};
  if (runsOn && !early) {
    return byForce;
  }
  if (early || endless) {
    // It writes to nobody; or waits to write, while a later command holds the other end, too.
    return {end, {true, SIGPIPE}, byForce[0], byForce[1]};
  }
  return {end};
}

Command countingCommand(Random& random) {
  const size_t count = random.oneIn(8) ? random.between(5000, 15000) : random.between(1, 500);
  return {
      "tiny lines", hostile("count " + std::to_string(count)), "", countedLines(count), {false, 0}};
}

Command tellingCommand(Random& random) {
  const std::string status = std::to_string(random.below(256));
  return {"telling",
          hostile("say 'status " + status + "\\n' " + status),
          "",
          "status " + status + "\n",
          {false, std::stoi(status)}};
}

Command someEndingCommand(Random& random, const std::string& inputFile) {
  switch (random.below(28)) {
    case 0:
    case 1:
      return exiting("exit 0", 0);
    case 2:
    case 3:
      return exiting("exit 3", 3);
    case 4:
      return exiting("exit 127", 127);
    case 5:
      return exiting("exit 128", 128);
    case 6:
      return exiting("exit 255", 255);
    case 7:
    case 8:
      return exitingAnyhow(random);
    case 9:
    case 10:
    case 11:
      return dying(random);
    case 12:
      return silent(random);
    case 13:
      return huge(random);
    case 14:
    case 15:
      return manyLines(random);
    case 16:
      return lingering(random);
    case 17:
      return echoing(random, inputFile);
    case 18:
    case 19:
    case 20:
      return systemProgram(random);
    case 21:
      return failingInTheChild(random);
    case 22:
    case 23:
      return tellingCommand(random);
    default:
      return countingCommand(random);
  }
}

Command endlessCommand() {
  return {"endless", hostile("flood"), "", "", {true, SIGPIPE}, true, false};
}

Command silentCommand() {
  return {"silent for ever", hostile("silence 100000 0"), "", "", {true, SIGTERM}, false, true};
}

Command closedForEverCommand() {
  return {"closed for ever", hostile("closeoutput"), "", "closing\n", {true, SIGTERM}, false, true};
}

Command someLastingCommand(Random& random) {
  static const std::vector<Command> lasting = {
      {"stays", hostile("stay"), "", "r\n", {true, SIGTERM}, false, true},
      {"ignores SIGTERM", hostile("ignoreterm"), "", "r\n", {true, SIGKILL}, false, true},
      closedForEverCommand()};
  return random.of(lasting);
}

Command unparsableCommand(Random& random) {
  static const std::vector<std::string> lines = {"", " \t ", "/bin/echo 'open", "/bin/echo \\"};
  return {"unparsable", random.of(lines), "", "", {false, 0}};
}

Command missingCommand(Random& random) {
  static const std::vector<std::string> lines = {"/no/such/program", "/etc/passwd x", "true"};
  return {"not executable", random.of(lines), "", "", {false, 0}};
}

std::string numberedLines(size_t bytes) {
  std::string result;
  for (size_t i = 0; result.size() < bytes; ++i) {
    result += std::to_string(i) + "\n";
  }
  result.resize(bytes);
  return result;
}

}  // namespace kelp_soak
