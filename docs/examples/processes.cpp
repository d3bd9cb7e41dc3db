// Runs commands that succeed, fail, cannot be run and hang.
#include <cmnexecpipe.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace kelp_cmn_4_4;

// Prints the command's output and the result code.
static int run(CCmnExecPipePosix& pipe, const std::string& command) {
  constexpr unsigned long secondsOfSilence = 1;
  std::vector<std::string> output;
  const int result = pipe.Exec(command, output, "", secondsOfSilence, "", "", "");
  for (const std::string& line : output) {
    std::printf("  %s", line.c_str());  // brings its line end
  }
  return result;
}

int main() {
  CCmnExecPipePosix pipe;
  int result = run(pipe, "/usr/bin/printf '%s\\n' 'two words' $HOME *");
  std::printf("printf: %d\n", result);

  // A status other than 0 is one of two codes: it depends on who sees the child's end first.
  result = run(pipe, "/bin/false");
  const bool hasFailed = result == execPipeExitStatus || result == execPipeSignalled;
  std::printf("false: %s\n", hasFailed ? "failed" : "?");

  std::printf("no path: %d\n", run(pipe, "printf x"));
  std::printf("open quote: %d\n", run(pipe, "/bin/echo 'x"));
  std::printf("last error: %s\n", pipe.getLastError().m_command.c_str());

  // A command that prints nothing for so long is left alone: closing is for the host to do.
  std::printf("silence: %d\n", run(pipe, "/bin/sleep 60"));
  std::printf("closed: %d\n", pipe.Close(1));  // waits a second, then sends SIGTERM
  return 0;
}
