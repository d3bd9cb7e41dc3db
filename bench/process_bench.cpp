#include "command_broker.h"
#include "rows.h"

#include <cmnexecpipe.h>
#include <stdio.h>

#include <cstdlib>
#include <string>
#include <vector>

#ifdef KELP_BENCH_BOOST
#include <boost/process.hpp>
#endif
#ifdef KELP_BENCH_GLIB
#include <glib.h>
#endif

namespace kelp_bench {
namespace {

using Lines = std::vector<std::string>;

struct CloseProcess {
  void operator()(std::FILE* stream) const { pclose(stream); }
};

Lines linesByLibrary(const std::string& command) {
  Lines lines;
  kelp_cmn_4_4::CCmnExecPipePosix pipe;
  pipe.Exec(command, lines, "", 600, "", "", "");
  return lines;
}

Lines linesByPopen(const std::string& command) {
  Lines lines;
  const std::unique_ptr<std::FILE, CloseProcess> stream(popen(command.c_str(), "r"));
  char* line = nullptr;
  size_t size = 0;
  for (ssize_t length = 0; (length = getline(&line, &size, stream.get())) > 0;) {
    lines.emplace_back(line, static_cast<size_t>(length));
  }
  std::free(line);
  return lines;
}

size_t bytesOf(const Lines& lines) {
  size_t bytes = 0;
  for (const std::string& line : lines) {
    bytes += line.size();
  }
  return bytes;
}

// The library cuts a long line into pieces, so only the number of bytes can be compared.
template <class Run>
auto counted(Run run, std::string command) {
  return [run, command] { return static_cast<long>(bytesOf(run(command))); };
}

#ifdef KELP_BENCH_GLIB
Lines linesByGlib(const std::string& command) {
  char* output = nullptr;
  g_spawn_command_line_sync(command.c_str(), &output, nullptr, nullptr, nullptr);
  Lines lines;
  for (const char* p = output; *p != '\0';) {
    const char* end = strchr(p, '\n');
    end = end == nullptr ? p + strlen(p) : end + 1;
    lines.emplace_back(p, end);
    p = end;
  }
  g_free(output);
  return lines;
}
#endif

void addOutputRow(const std::string& name, const std::string& arguments, double target) {
  const std::string command = std::string(KELP_BENCH_WRITER) + " " + arguments;
  Row& row = addRow("Exec " + name, target, Row::Pace::slow);
  row.library(counted(linesByLibrary, command));
  row.peer("popen with getline", counted(linesByPopen, command));
#ifdef KELP_BENCH_GLIB
  row.peer("GLib", counted(linesByGlib, command));
#endif
}

void addNothingRow() {
  const std::string command = KELP_BENCH_NOTHING;
  Row& row = addRow("Exec, does nothing", 1.05);
  row.library(counted(linesByLibrary, command));
#ifdef KELP_BENCH_BOOST
  row.peer("Boost.Process", [command] {
    boost::process::ipstream output;
    boost::process::child child(command, boost::process::std_out > output);
    std::string line;
    long bytes = 0;
    while (std::getline(output, line)) {
      bytes += static_cast<long>(line.size());
    }
    std::error_code ignored;  // the library's handler may have reaped it
    child.wait(ignored);
    return bytes;
  });
#endif
  row.peer("popen with getline", counted(linesByPopen, command));
}

// The host's memory, from its first use on.
void grow() {
  static const std::vector<char> memory(1UL << 30, 'x');
  benchmark::DoNotOptimize(memory.data());
}

void addGrownHostRow() {
  static command_broker::Broker broker;  // begun while the host is small
  const std::string command = KELP_BENCH_NOTHING;
  Row& row = addRow("Exec by a broker, 1 GiB", 1.0);
  row.library([command] {
    grow();
    command_broker::BrokeredPipe pipe(broker);
    Lines lines;
    pipe.Exec(command, lines, "", 600, "", "", "");
    return static_cast<long>(bytesOf(lines));
  });
  row.peer("popen with getline", counted(linesByPopen, command));
  row.peer("no broker", counted(linesByLibrary, command));
}

}  // namespace

void addProcessRows() {
  addOutputRow("50 MB in lines", "80 50000000", 3.0);
  addOutputRow("200 MB in lines", "80 200000000", 3.0);
  addOutputRow("64 MB in one line", "0 64000000", 2.9);
  addNothingRow();
  addGrownHostRow();
  growths().push_back({"Exec, output", 10000, [](size_t size) {
                         const std::string command =
                             std::string(KELP_BENCH_WRITER) + " 80 " + std::to_string(size);
                         return [command] { benchmark::DoNotOptimize(linesByLibrary(command)); };
                       }});
}

}  // namespace kelp_bench
