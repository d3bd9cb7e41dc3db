#include "rows.h"

#include <cmntracelog.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#ifdef KELP_BENCH_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace kelp_bench {
namespace {

constexpr char productConfig[] = "/usr/tulsk/krellvane/rk.conf";
constexpr char traceFile[] = "/usr/tulsk/krellvane/logs/zorvt/bench.log";
constexpr char message[] = "a line of an ordinary length, with the number 4711";

// The private view is thrown away when the program ends.
void installProduct() {
  std::filesystem::create_directories("/usr/tulsk/krellvane/logs");
  std::filesystem::create_directories("/usr/tulsk/lib/kelp/configfiles");
  std::FILE* const file = std::fopen(productConfig, "w");
  for (int line = 0; line < 40; ++line) {
    std::fprintf(file, "SETTING_%d = value of the setting %d\n", line, line);
  }
  std::fclose(file);
}

long readWhole(const char* path) {
  const int fd = open(path, O_RDONLY);
  char block[4096];
  long size = 0;
  for (ssize_t count = 1; count > 0;) {
    count = read(fd, block, sizeof block);
    size += count;
  }
  close(fd);
  return size;
}

void appendLine(const char* path) {
  const int fd = open(path, O_RDWR | O_CREAT | O_APPEND, 0666);
  const std::string line = std::string("2026-01-01 00:00:00.000000 ") + message + "\n";
  benchmark::DoNotOptimize(write(fd, line.data(), line.size()));
  close(fd);
}

void addTraceRow(const std::string& name, int level, double target) {
  const auto log = std::make_shared<kelp_cmn_4_4::CCmnTraceLog>();
  log->initialize("bench", "", "", 1, false);
  const bool written = level <= 1;
  Row& row = addRow("trace " + name, target);
  row.library([log, level] {
       log->trace(level, "a line of an ordinary length, with the number %d", 4711);
       return std::string_view();
     })
      .peer("bare system calls", [written] {
        benchmark::DoNotOptimize(readWhole(productConfig));
        if (written) {
          appendLine(traceFile);
        }
        return std::string_view();
      });
#ifdef KELP_BENCH_SPDLOG
  if (written) {
    row.peer("spdlog, opened for each line", [] {
      const auto sink = std::make_shared<spdlog::sinks::basic_file_sink_st>(traceFile);
      spdlog::logger("bench", sink).info("a line of an ordinary length, with the number {}", 4711);
      return std::string_view();
    });
  }
#endif
}

}  // namespace

void addTraceRows() {
  if (std::getenv("KELP_PRIVATE_VIEW") == nullptr) {
    std::fputs("bench: the rows of the trace run in the private view only\n", stderr);
    return;
  }
  installProduct();
  addTraceRow("suppressed", 3, 1.3);
  addTraceRow("written", 1, 1.3);
}

}  // namespace kelp_bench
