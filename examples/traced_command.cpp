// Runs a command line without a shell, prints its output, and keeps a trace of the run.
#include <cmnexecpipe.h>
#include <cmntracelog.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnExecPipePosix;
using kelp_cmn_4_4::CCmnTraceLogPtr;
using kelp_cmn_4_4::execPipeReadTimedOut;

constexpr int wrongUsage = 64;  // EX_USAGE of <sysexits.h>

struct Options {
  std::string component = "traced_command";
  std::string stdinFile;
  unsigned long timeoutSeconds = 60;
  int level = 1;
  bool echo = false;
  std::string commandLine;
};

// The usage, and last what is wrong.
int refuse(const std::string& reason) {
  std::fprintf(stderr,
               "usage: traced_command [--component NAME] [--stdin FILE] [--timeout SECONDS] "
               "[--level N] [--echo] COMMAND_LINE\ntraced_command: %s\n",
               reason.c_str());
  return wrongUsage;
}

// A number from 0 on, the whole text.
bool parseNumber(const std::string& text, unsigned long& number) {
  if (text.empty() || text.size() > 9 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  number = std::strtoul(text.c_str(), nullptr, 10);
  return true;
}

bool setOption(const std::string& name, const std::string& value, Options& options) {
  unsigned long number = 0;
  if (name == "--component") {
    options.component = value;
    return !value.empty();
  }
  if (name == "--stdin") {
    options.stdinFile = value;
    return true;
  }
  if (name == "--timeout") {
    return parseNumber(value, options.timeoutSeconds);
  }
  if (name == "--level" && parseNumber(value, number)) {
    options.level = static_cast<int>(number);
    return true;
  }
  return false;
}

// What is wrong with them; empty when they can be used.
std::string parseArguments(const std::vector<std::string>& arguments, Options& options) {
  size_t i = 0;
  for (; i < arguments.size() && arguments[i].rfind('-', 0) == 0; ++i) {
    if (arguments[i] == "--echo") {
      options.echo = true;
    } else if (i + 1 == arguments.size() || !setOption(arguments[i], arguments[i + 1], options)) {
      return "what does " + arguments[i] + " mean here?";
    } else {
      ++i;
    }
  }
  if (i == arguments.size()) {
    return "there is no command line";
  }
  options.commandLine = arguments[i];
  if (i + 1 == arguments.size()) {
    return "";
  }
  std::string whole = options.commandLine;
  while (++i < arguments.size()) {
    whole += ' ' + arguments[i];
  }
  return "a command line is one argument, in quotes: \"" + whole + '"';
}

const char* meaningOf(int code) {
  using namespace kelp_cmn_4_4;
  switch (code) {
    case execPipeOk:
      return "the command succeeded";
    case execPipePipeFailed:
      return "no pipe could be created";
    case execPipeCloseFailed:
      return "the pipe could not be closed";
    case execPipeForkFailed:
      return "no process could be created";
    case execPipeReadTimedOut:
      return "no output came in time";
    case execPipeParseFailed:
      return "the command line could not be split into words";
    case execPipeNotExecutable:
      return "its first word is not an executable file";
    case execPipeWaitFailed:
      return "the command could not be waited for";
    case execPipeExitStatus:
      return "the command exited with a status other than 0";
    case execPipeSignalled:
      return "the command was ended by a signal, or exited with a status other than 0";
    case execPipeUnexpectedStatus:
      return "the command exited with status 127 or 255, or in an unexpected way";
    default:
      return "unknown";
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const std::string wrong =
      parseArguments(std::vector<std::string>(argv + 1, argv + argc), options);
  if (!wrong.empty()) {
    return refuse(wrong);
  }

  // One log for the process; empty directory and file mean the configured or default ones. The
  // level counts only until the component's configuration file holds one.
  const CCmnTraceLogPtr log = CCmnTraceLogPtr::create();
  log->initialize(options.component.c_str(), "", "", options.level, options.echo);

  // Its destructor gives a command that timed out 10 seconds more, then asks it to end, and 10
  // seconds later ends it by force.
  CCmnExecPipePosix command;
  command.registerTraceLog(log);
  std::vector<std::string> output;
  const int result = command.Exec(options.commandLine, output, options.stdinFile,
                                  options.timeoutSeconds, "", "", "");

  for (const std::string& line : output) {
    std::fwrite(line.data(), 1, line.size(), stdout);  // a line brings its own line end
  }
  std::fflush(stdout);
  std::fprintf(stderr, "result: %d (%s)\n", result, meaningOf(result));
  std::fprintf(stderr, "trace file: %s%s\n", log->getTracePath().c_str(),
               log->isInitialized() ? "" : " (could not be opened)");
  if (result == execPipeReadTimedOut) {
    std::fputs("The command still runs: waiting for its end, 30 seconds at most.\n", stderr);
  }
  return result;
}
