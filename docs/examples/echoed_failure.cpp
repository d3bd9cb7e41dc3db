// With an echo, a child's own failure line comes back as the command's output.
#include <cmnexecpipe.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace kelp_cmn_4_4;

// A directory passes for an executable file, and then cannot be executed.
static void run(const char* which, CCmnExecPipePosix& pipe) {
  std::vector<std::string> lines;
  pipe.Exec("/usr", lines, "", 10, "", "", "");
  std::fprintf(stderr, "%s: %zu lines of output\n", which, lines.size());
  for (const std::string& line : lines) {
    const size_t text = line.find("execv");
    std::fprintf(stderr, "  %s", text < line.size() ? line.c_str() + text : line.c_str());
  }
}

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // as at a terminal
  const CCmnTraceLogPtr log = CCmnTraceLogPtr::create();
  CCmnExecPipePosix pipe;
  pipe.registerTraceLog(log);

  log->initialize("diskwatch", "", "", 1, true);
  run("with an echo", pipe);
  log->initialize("diskwatch", "", "", 1, false);
  run("without", pipe);
  return 0;
}
