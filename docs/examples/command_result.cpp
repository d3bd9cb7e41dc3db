// Tells how commands ended.
#include <cmnexecpipe.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace kelp_cmn_4_4;

static int run(CCmnExecPipePosix& pipe, const std::string& command,
               std::vector<std::string>& lines) {
  constexpr unsigned long secondsOfSilence = 10;
  return pipe.Exec(command, lines, "", secondsOfSilence, "", "", "");
}

static bool hasFailed(int result) {
  // It depends on who sees the command's end first.
  return result == execPipeExitStatus || result == execPipeSignalled;
}

int main() {
  CCmnExecPipePosix pipe;
  std::vector<std::string> lines;
  std::printf("false: %s\n", hasFailed(run(pipe, "/bin/false", lines)) ? "failed" : "?");
  std::printf("no path: %d\n", run(pipe, "printf x", lines));
  std::printf("open quote: %d\n", run(pipe, "/bin/echo 'x", lines));
  const ECmnExecPipe failure = pipe.getLastError();
  std::printf("last error: %d, %s\n", failure.m_code, failure.m_command.c_str());

  // The status itself comes as the last line of the output, which a lost one does not change.
  for (const char* path : {"/", "/no/such"}) {
    const std::string command = std::string("/bin/ls -d ") + path;
    run(pipe, "/bin/sh -c '" + command + "; echo status $?'", lines);
    const bool hasSucceeded = !lines.empty() && lines.back() == "status 0\n";
    std::printf("%s: %s\n", command.c_str(), hasSucceeded ? "succeeded" : "failed");
  }
  return 0;
}
