// kelp_faults [all|SECONDS|ROUNDSx [OPERATION …]]: makes every call that the library makes fail in
// turn, and looks at what becomes of it. Without arguments everything is tried; with a number of
// seconds about as long a share of it, at random; with one such as "3x" so many rounds of each
// operation, always the same. Prints a line for each operation, and ends with 1 where there was a
// finding.
#include "calls.h"
#include "examination.h"
#include "job.h"
#include "scripted_resolver.h"

#include <ace/Log_Category.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace kelp_test;

Operations allOperations() {
  Operations all;
  for (const auto& table :
       {textOperations, scanningOperations, settingsOperations, traceOperations, messageOperations,
        processOperations, recordOperations, namingOperations, leafOperations}) {
    for (Operation& operation : table()) {
      all.push_back(operation);
    }
  }
  return all;
}

Operations chosen(const std::vector<std::string>& names) {
  Operations all = allOperations();
  if (!names.empty()) {
    const auto isOther = [&](const Operation& operation) {
      return std::none_of(names.begin(), names.end(), [&](const std::string& name) {
        return operation.name.find(name) != std::string::npos;
      });
    };
    all.erase(std::remove_if(all.begin(), all.end(), isOther), all.end());
  }
  return all;
}

Tally& sharedTally() {
  void* const memory =
      mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    std::abort();
  }
  return *new (memory) Tally();
}

int resolverFailure(ResolverCall call) {
  const Call number = call == ResolverCall::getaddrinfo   ? Call::getaddrinfo
                      : call == ResolverCall::getnameinfo ? Call::getnameinfo
                                                          : Call::gethostname;
  return isToFail(number) ? errno : 0;
}

// What a round writes to standard output is nobody's to read; its orphans come to this process.
void beExaminer() {
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  // What is made once: a stream's buffer, ACE's log, and each text of the platform's for an error.
  std::puts("");
  ACE_Log_Category::ace_lib().per_thr_obj()->log(LM_DEBUG, ACE_TEXT(""));
  for (int error = 1; error < 200; ++error) {
    char text[100];
    [[maybe_unused]] const char* const name = strerror_r(error, text, sizeof text);
    static_cast<void>(std::strerror(error));
  }
  setResolverRule(resolverFailure);
}

// In a process of its own, so that no operation finds what another has done once for all.
Tally examineApart(const Operation& operation, const Extent& extent) {
  Tally& shared = sharedTally();
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    beExaminer();
    examine(operation, extent, shared);
    std::fflush(nullptr);
    _exit(0);
  }
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
    std::fprintf(stderr, "%s: its examination ended with wait status %d\n", operation.name.c_str(),
                 status);
    ++shared.findings;
  }
  const Tally tally = shared;
  munmap(&shared, sizeof shared);
  return tally;
}

// How much of it all is tried.
struct Bounds {
  double seconds = 0;
  std::optional<int> rounds;
  unsigned int seed = 1;
};

Bounds boundsFrom(const std::string& word) {
  Bounds bounds;
  if (word == "all") {
    return bounds;
  }
  if (word.back() == 'x') {
    bounds.rounds = std::atoi(word.c_str());
  } else {
    bounds.seconds = std::strtod(word.c_str(), nullptr);
    bounds.seed = std::random_device()();
    std::printf("a share at random, of seed %u\n", bounds.seed);
  }
  return bounds;
}

// What is left of the time is shared by those that are left.
Extent extentFor(const Bounds& bounds, std::chrono::steady_clock::time_point begin, size_t left) {
  Extent extent;
  extent.rounds = bounds.rounds;
  extent.seed = bounds.seed;
  if (bounds.seconds > 0) {
    const auto now = std::chrono::steady_clock::now();
    const auto end = begin + std::chrono::duration<double>(bounds.seconds);
    const std::chrono::duration<double> share = (end - now) / static_cast<double>(left);
    extent.end = now + std::chrono::duration_cast<std::chrono::milliseconds>(share);
  }
  return extent;
}

std::string lineFor(const Operation& operation, const Tally& tally) {
  char line[256];
  std::snprintf(line, sizeof line, "%-44s %6d calls %7d rounds %6d theirs %4d findings\n",
                operation.name.c_str(), tally.calls, tally.rounds, tally.foreign, tally.findings);
  return line;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  if (words.empty()) {
    words.emplace_back("all");
  }
  const Bounds bounds = boundsFrom(words[0]);
  setlocale(LC_ALL, "C.UTF-8");
  const Operations operations = chosen({words.begin() + 1, words.end()});
  const auto begin = std::chrono::steady_clock::now();
  Tally sum{};
  for (size_t i = 0; i < operations.size(); ++i) {
    const Tally tally =
        examineApart(operations[i], extentFor(bounds, begin, operations.size() - i));
    std::printf("%s", lineFor(operations[i], tally).c_str());
    std::fflush(stdout);
    sum.calls += tally.calls;
    sum.rounds += tally.rounds;
    sum.foreign += tally.foreign;
    sum.findings += tally.findings;
  }
  std::printf("%zu operations, %d calls, %d rounds, %d theirs, %d findings\n", operations.size(),
              sum.calls, sum.rounds, sum.foreign, sum.findings);
  return sum.findings == 0 ? 0 : 1;
}
