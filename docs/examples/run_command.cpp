// Runs commands and reads their lines.
#include <cmnexecpipe.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace kelp_cmn_4_4;

// Standard input is a file; empty for "/dev/null".
static void run(const std::string& command, const std::string& input) {
  constexpr unsigned long secondsOfSilence = 10;
  CCmnExecPipePosix pipe;
  std::vector<std::string> lines;
  const int result = pipe.Exec(command, lines, input, secondsOfSilence, "", "", "");
  for (const std::string& line : lines) {
    std::printf("  %s", line.c_str());  // brings its line end
  }
  std::printf("result %d\n", result);
}

int main() {
  run("/usr/bin/printf '%s\\n' 'two words' $HOME *", "");
  run("/usr/bin/wc -l", "/etc/hosts");
  // What needs a shell is given to one. Standard error comes in its place among the output.
  run(R"(/bin/sh -c 'cd / && echo "now in $PWD" && echo "no error" >&2')", "");
  return 0;
}
