// Runs a command line in a host of a given size, straight and through the broker, and says what
// each way costs.
#include "command_broker.h"

#include <signal.h>
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>

namespace {

using command_broker::Broker;
using command_broker::BrokeredPipe;

constexpr int wrongUsage = 64;  // EX_USAGE of <sysexits.h>
constexpr int runs = 15;

// What the quickest of some runs took.
double milliseconds(const std::function<void()>& run) {
  using Clock = std::chrono::steady_clock;
  double best = 1e9;
  for (int i = 0; i < runs; ++i) {
    const Clock::time_point start = Clock::now();
    run();
    best = std::min(best, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  return best;
}

int run(kelp_cmn_4_4::CCmnExecPipePosix& pipe, const std::string& command,
        std::vector<std::string>& lines) {
  return pipe.Exec(command, lines, "", 60, "", "", "");
}

int show(size_t megabytes, const std::string& command) {
  Broker broker;  // before the host grows
  const std::vector<char> memory(megabytes << 20, 'x');
  BrokeredPipe brokered(broker);
  std::vector<std::string> lines;
  const int code = run(brokered, command, lines);
  for (const std::string& line : lines) {
    std::printf("%s\n", line.c_str());
  }
  std::printf("result code: %d\n", code);

  const double quick = milliseconds([&] { run(brokered, command, lines); });
  kelp_cmn_4_4::CCmnExecPipePosix straight;
  const double slow = milliseconds([&] { run(straight, command, lines); });
  std::printf("in a host of %zu MiB: %.1f ms through the broker, %.1f ms without it\n", megabytes,
              quick, slow);

  kill(broker.pid(), SIGKILL);
  const bool isTold = run(brokered, command, lines) == command_broker::brokerLost;
  std::printf("the broker's death is %s\n", isTold ? "told" : "not told");
  return isTold ? code : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 3) {
    std::fputs("usage: command_broker [MEGABYTES [COMMAND_LINE]]\n", stderr);
    return wrongUsage;
  }
  const size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1024;
  try {
    return show(megabytes, argc > 2 ? argv[2] : "/bin/echo a line from the command");
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "command_broker: %s\n", failure.what());
    return 1;
  }
}
