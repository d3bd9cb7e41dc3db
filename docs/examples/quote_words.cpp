// Writes words of all kinds into a command line.
#include <cmnexecpipe.h>

#include <cstdio>
#include <string>
#include <vector>

static std::string inSingleQuotes(const std::string& word) {
  std::string result = "'";
  for (const char c : word) {
    result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return result + "'";
}

int main() {
  kelp_cmn_4_4::CCmnExecPipePosix pipe;
  for (const char* word : {"two words", "it's", "a\"b\\", ""}) {
    const std::string command = "/usr/bin/printf '<%s>\\n' " + inSingleQuotes(word);
    std::vector<std::string> lines;
    pipe.Exec(command, lines, "", 10, "", "", "");
    std::printf("%s\n", command.c_str());
    for (const std::string& line : lines) {
      std::printf("%s", line.c_str());
    }
  }
  return 0;
}
