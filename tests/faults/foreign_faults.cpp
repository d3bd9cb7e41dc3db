#include "foreign_faults.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>

namespace kelp_test {
namespace {

// The next line of an entry; empty at its end, and at the end of the file.
std::string nextLine(std::istream& file) {
  std::string line;
  std::getline(file, line);
  return line;
}

Failing failing(const std::string& word) {
  static const std::map<std::string, Failing> words{{"crashes", Failing::crashes},
                                                    {"exits", Failing::exits},
                                                    {"hangs", Failing::hangs},
                                                    {"leaks", Failing::leaks}};
  const auto found = words.find(word);
  if (found == words.end()) {
    std::fprintf(stderr, "%s: there is no \"%s\"\n", KELP_FOREIGN_FAULTS, word.c_str());
    std::abort();
  }
  return found->second;
}

std::vector<ForeignFault> readAll() {
  std::vector<ForeignFault> all;
  std::ifstream file(KELP_FOREIGN_FAULTS);
  if (!file) {
    std::perror(KELP_FOREIGN_FAULTS);
    std::abort();
  }
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] != '#') {
      const Failing how = failing(line);
      std::string object = nextLine(file);
      std::string function = nextLine(file);
      std::string test = nextLine(file);
      std::string reason = nextLine(file);
      all.push_back({how, object, function, test, reason});
    }
  }
  return all;
}

}  // namespace

const std::vector<ForeignFault>& foreignFaults() {
  static const std::vector<ForeignFault> all = readAll();
  return all;
}

}  // namespace kelp_test
