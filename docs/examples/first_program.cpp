// Runs a command and prints its lines.
#include <cmnexecpipe.h>

#include <cstdio>
#include <string>
#include <vector>

int main() {
  kelp_cmn_4_4::CCmnExecPipePosix pipe;
  std::vector<std::string> lines;
  const int result = pipe.Exec("/bin/echo 'Hello, host'", lines, "", 10, "", "", "");
  for (const std::string& line : lines) {
    std::fputs(line.c_str(), stdout);
  }
  return result;
}
