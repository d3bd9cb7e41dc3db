// Runs a command and reads its lines.
#include <cmnexecpipe.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace kelp_cmn_4_4;

int main() {
  constexpr unsigned long secondsOfSilence = 10;
  CCmnExecPipePosix pipe;
  std::vector<std::string> lines;
  const int result = pipe.Exec("/usr/bin/printf '%s\\n' 'two words' $HOME *", lines, "",
                               secondsOfSilence, "", "", "");
  for (const std::string& line : lines) {
    std::printf("  %s", line.c_str());  // brings its line end
  }
  std::printf("result %d\n", result);

  // Standard input is a file. What needs a shell is given to one.
  pipe.Exec("/usr/bin/wc -l", lines, "/etc/hosts", secondsOfSilence, "", "", "");
  std::printf("lines of /etc/hosts: %s", lines[0].c_str());
  pipe.Exec("/bin/sh -c 'cd / && echo \"now in $PWD\" >&2'", lines, "", secondsOfSilence, "", "",
            "");
  std::printf("from standard error: %s", lines[0].c_str());
  return 0;
}
