#include "rows.h"

#include <Q_sscanf.h>

#include <cstdio>
#include <string>

namespace kelp_bench {
namespace {

constexpr int intSize = sizeof(int);
constexpr char tagFormat[] = "<ARGVALUE INDEX=%d TYPE=%d>";

void addTagRow(const std::string& where, const std::string& rest, double target) {
  const std::string text = "<ARGVALUE INDEX=12 TYPE=3>" + rest;
  addRow("Q_sscanf tag, " + where, target)
      .library([text] {
        int index = 0;
        int type = 0;
        Q_sscanf(text.c_str(), tagFormat, &index, intSize, &type, intSize);
        return 0L + index + type;
      })
      .peer("sscanf", [text] {
        int index = 0;
        int type = 0;
        std::sscanf(text.c_str(), tagFormat, &index, &type);
        return 0L + index + type;
      });
}

void addNumbersRow() {
  const std::string text = "17 -2345 1234567";
  addRow("Q_sscanf three numbers", 0.3)
      .library([text] {
        int a = 0;
        int b = 0;
        int c = 0;
        Q_sscanf(text.c_str(), "%d %d %d", &a, intSize, &b, intSize, &c, intSize);
        return 0L + a + b + c;
      })
      .peer("sscanf", [text] {
        int a = 0;
        int b = 0;
        int c = 0;
        std::sscanf(text.c_str(), "%d %d %d", &a, &b, &c);
        return 0L + a + b + c;
      });
}

void addWordRow() {
  const std::string text = "backup-server.example.com up";
  addRow("Q_sscanf a word", 0.4)
      .library([text] {
        char word[64];
        Q_sscanf(text.c_str(), "%s", word, static_cast<int>(sizeof word));
        return std::string(word);
      })
      .peer("sscanf", [text] {
        char word[64];
        std::sscanf(text.c_str(), "%63s", word);
        return std::string(word);
      });
}

}  // namespace

void addScannerRows() {
  addNumbersRow();
  addWordRow();
  addTagRow("short", "value</ARGVALUE>", 0.3);
  addTagRow("at the head of 1 MiB", std::string(1 << 20, 'x'), 0.01);
  growths().push_back({"Q_sscanf, digits", 1000, [](size_t size) {
                         return [text = std::string(size, '7')] {
                           double number = 0;
                           Q_sscanf(text.c_str(), "%lf", &number, 8);
                           benchmark::DoNotOptimize(number);
                         };
                       }});
}

}  // namespace kelp_bench
