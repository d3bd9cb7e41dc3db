// Reads lines as they come, and ends a command that falls silent.
#include <cmnexecpipe.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

int main() {
  CCmnExecPipePosix pipe;
  int result = pipe.ExecPipe("/bin/sh -c 'echo one; echo two; exec /bin/sleep 60'", "");
  if (result != execPipeOk) {
    std::printf("not started: %d\n", result);
    return 1;
  }

  constexpr long secondsOfSilence = 1;
  char line[256];
  unsigned char timedOut = 0;
  while (pipe.ReadLine(line, sizeof line, &timedOut, secondsOfSilence)) {
    std::printf("%s", line);
  }
  std::printf("%s\n", timedOut != 0 ? "silence" : "the end");

  result = pipe.Close(1);  // waits a second, then sends SIGTERM
  std::printf("closed: %s\n", result == execPipeSignalled ? "ended by a signal" : "?");
  return 0;
}
