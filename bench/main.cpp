// bench DIRECTORY [ROW …]: measures the rows whose names hold one of the words, or all, prints the
// table, and writes table.json and chart.dat into the directory.
#include "measure.h"
#include "report.h"

#include <clocale>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

using namespace kelp_bench;

bool isWanted(const std::string& name, const std::vector<std::string>& words) {
  bool wanted = words.empty();
  for (const std::string& word : words) {
    wanted = wanted || name.find(word) != std::string::npos;
  }
  return wanted;
}

void addAllRows() {
  addTextRows();
  addScannerRows();
  addMessageRows();
  addTraceRows();
  addProcessRows();
  addNamingRows();
  addXmlRows();
  addDigestRows();
}

int run(const std::string& directory, const std::vector<std::string>& words) {
  addAllRows();
  Report report;
  for (const Row& row : rows()) {
    if (isWanted(row.name(), words)) {
      report.add(measure(row));
    }
  }
  for (const Growth& growth : growths()) {
    if (isWanted(growth.name, words)) {
      report.add(measure(growth));
    }
  }
  return report.write(directory) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: bench DIRECTORY [ROW …]\n", stderr);
    return 64;
  }
  if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) {
    std::fputs("bench: there is no locale C.UTF-8\n", stderr);
    return 1;
  }
  try {
    return run(argv[1], {argv + 2, argv + argc});
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return 1;
  }
}
