#include "rows.h"

#include <cmnstringtool.h>
#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <numeric>
#include <string>
#include <vector>

#ifdef KELP_BENCH_ABSEIL
#include <absl/strings/ascii.h>
#include <absl/strings/escaping.h>
#include <absl/strings/str_replace.h>
#include <absl/strings/str_split.h>
#endif

namespace kelp_bench {
namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;

std::string repeated(const std::string& text, size_t size) {
  std::string result;
  while (result.size() < size) {
    result += text;
  }
  return result.substr(0, size);
}

// Two bytes for each letter.
std::string greek(size_t bytes) { return repeated("αβγδεζηθικλμνξοπρστυφχψω", bytes / 2 * 2); }

std::string ascii(size_t size) { return repeated("The quick brown fox jumps. ", size); }

std::string sized(const std::string& name, size_t size) {
  return name + " " + std::to_string(size);
}

void addWideRows(const std::string& kind, const std::string& text, double target) {
  addRow("str2wstr " + sized(kind, text.size()), target)
      .library([text] { return Tool::str2wstr(text); })
      .peer("mbstowcs", [text, buffer = std::vector<wchar_t>(text.size() + 1)]() mutable {
        return std::wstring_view(buffer.data(),
                                 std::mbstowcs(buffer.data(), text.c_str(), buffer.size()));
      });
}

void addNarrowRows(const std::string& text, double target) {
  const std::wstring wide = Tool::str2wstr(text);
  addRow("wstr2str " + sized("ASCII", text.size()), target)
      .library([wide] { return Tool::wstr2str(wide); })
      .peer("wcstombs", [wide, buffer = std::vector<char>(4 * wide.size() + 1)]() mutable {
        return std::string_view(buffer.data(),
                                std::wcstombs(buffer.data(), wide.c_str(), buffer.size()));
      });
}

void addIcuRows(const std::string& kind, std::string text, double target) {
  Row& row = addRow("str2ustr " + sized(kind, text.size()), target);
  row.library([text]() mutable { return Tool::str2ustr(text); });
  row.peer("ICU fromUTF8", [text] { return icu::UnicodeString::fromUTF8(text); });
#ifdef KELP_BENCH_QT
  row.peer("QString::fromUtf8",
           [text] { return QString::fromUtf8(text.data(), int(text.size())); });
#endif
}

void addFromIcuRows(const std::string& text, double target) {
  icu::UnicodeString wide = icu::UnicodeString::fromUTF8(text);
  addRow("ustr2str " + sized("ASCII", text.size()), target)
      .library([wide]() mutable { return Tool::ustr2str(wide); })
      .peer("ICU toUTF8String", [wide] {
        std::string result;
        wide.toUTF8String(result);
        return result;
      });
}

void addConversionRows() {
  addWideRows("ASCII", ascii(16), 1.0);
  addWideRows("ASCII", ascii(1024), 0.5);
  addWideRows("Greek", greek(1024), 1.5);
  addNarrowRows(ascii(16), 1.0);
  addNarrowRows(ascii(1024), 0.4);
  addIcuRows("ASCII", ascii(16), 1.3);
  addIcuRows("ASCII", ascii(1024), 0.5);
  addIcuRows("Greek", greek(1024), 1.5);
  addFromIcuRows(ascii(16), 1.1);
  addFromIcuRows(ascii(1024), 0.4);
}

void addReplaceRow(const std::string& name, const std::string& text, const std::string& from,
                   const std::string& to, double target) {
  Row& row = addRow("searchreplace " + name, target);
  row.library([=] { return Tool::searchreplace(text, from, to); });
#ifdef KELP_BENCH_ABSEIL
  row.peer("Abseil StrReplaceAll", [=] { return absl::StrReplaceAll(text, {{from, to}}); });
#endif
}

#ifdef KELP_BENCH_ABSEIL
// Five replacements one after another, as the library's are described.
std::string escapedByAbseil(std::string text) {
  absl::StrReplaceAll({{"&", "&amp;"}}, &text);
  absl::StrReplaceAll({{"<", "&lt;"}}, &text);
  absl::StrReplaceAll({{">", "&gt;"}}, &text);
  absl::StrReplaceAll({{"\"", "&quot;"}}, &text);
  absl::StrReplaceAll({{"'", "&#39;"}}, &text);
  return text;
}

std::string unescapedByAbseil(std::string text) {
  absl::StrReplaceAll({{"&#39;", "'"}}, &text);
  absl::StrReplaceAll({{"&quot;", "\""}}, &text);
  absl::StrReplaceAll({{"&gt;", ">"}}, &text);
  absl::StrReplaceAll({{"&lt;", "<"}}, &text);
  absl::StrReplaceAll({{"&amp;", "&"}}, &text);
  return text;
}
#endif

void addEscapeRows(const std::string& kind, const std::string& text, double escapeTarget,
                   double unescapeTarget) {
  Row& escape = addRow("escape 1 KiB, " + kind, escapeTarget);
  escape.library([text] { return Tool::convertToXmlSpecialCharacters(text); });
  const std::string escaped = Tool::convertToXmlSpecialCharacters(text);
  Row& unescape = addRow("unescape 1 KiB, " + kind, unescapeTarget);
  unescape.library([escaped] { return Tool::convertFromXmlSpecialCharacters(escaped); });
#ifdef KELP_BENCH_ABSEIL
  escape.peer("Abseil", [text] { return escapedByAbseil(text); });
  unescape.peer("Abseil", [escaped] { return unescapedByAbseil(escaped); });
#endif
}

void addHexRows(size_t size, double writeTarget, double readTarget) {
  std::vector<unsigned char> bytes(size);
  std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
  const std::string raw(bytes.begin(), bytes.end());
  Row& write = addRow(sized("binary2str", size), writeTarget);
  write.library(
      [bytes]() mutable { return Tool::binary2str(bytes.data(), static_cast<int>(bytes.size())); });
  const std::string hex = Tool::binary2str(bytes.data(), static_cast<int>(size));
  Row& read = addRow(sized("str2binary", size), readTarget);
  read.library([hex, bytes]() mutable {
    int count = static_cast<int>(bytes.size());
    Tool::str2binary(bytes.data(), &count, hex);
    return std::string_view(reinterpret_cast<const char*>(bytes.data()),
                            static_cast<size_t>(count));
  });
#ifdef KELP_BENCH_ABSEIL
  write.peer("Abseil BytesToHexString", [raw] { return absl::BytesToHexString(raw); });
  read.peer("Abseil HexStringToBytes", [hex] { return absl::HexStringToBytes(hex); });
#endif
}

void addNumberRows() {
  addRow("int2str", 1.1)
      .library([number = 1234567]() mutable {
        benchmark::DoNotOptimize(number);
        return Tool::int2str(number);
      })
      .peer("std::to_string", [number = 1234567]() mutable {
        benchmark::DoNotOptimize(number);
        return std::to_string(number);
      });
  addRow("double2str", 0.5)
      .library([number = 3.14159265]() mutable {
        benchmark::DoNotOptimize(number);
        return Tool::double2str(number);
      })
      .peer("snprintf %g", [number = 3.14159265]() mutable {
        benchmark::DoNotOptimize(number);
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%g", number);
        return std::string(buffer);
      });
}

void addTokenRow(const std::string& name, const std::string& text, const std::string& delimiters,
                 double target) {
  Row& row = addRow("tokenize " + name, target);
  row.library([=] { return Tool::tokenize(text, delimiters); });
#ifdef KELP_BENCH_ABSEIL
  row.peer("Abseil StrSplit", [=] {
    return std::vector<std::string>(
        absl::StrSplit(text, absl::ByAnyChar(delimiters), absl::SkipEmpty()));
  });
#endif
}

void addCaseRows() {
  const std::string first = "Backup-Server.Example.COM";
  const std::string second = "backup-server.example.com";
  addRow("CompareNoCase of host names", 3)
      .library([=] { return static_cast<long>(Tool::CompareNoCase(first, second)); })
      .peer("strcasecmp",
            [=] { return static_cast<long>(strcasecmp(first.c_str(), second.c_str()) == 0); });
  Row& upper = addRow("tostrupper 1 KiB", 0.5);
  upper.library([text = ascii(1024)] { return Tool::tostrupper(text); });
#ifdef KELP_BENCH_ABSEIL
  upper.peer("Abseil AsciiStrToUpper",
             [text = ascii(1024)] { return absl::AsciiStrToUpper(text); });
#endif
}

void addGrowth(const std::string& name, size_t size,
               std::function<std::function<void()>(size_t size)> prepare) {
  growths().push_back({name, size, std::move(prepare)});
}

// What a text of each size costs; `use` gets the text.
template <class Use>
void addTextGrowth(const std::string& name, std::string (*text)(size_t size), Use use) {
  addGrowth(name, 1000, [text, use](size_t size) {
    return [made = text(size), use]() mutable { benchmark::DoNotOptimize(use(made)); };
  });
}

std::string blanks(size_t size) { return std::string(size, ' '); }
std::string quotes(size_t size) { return std::string(size, '"'); }
std::string commas(size_t size) { return repeated("a,", size); }
std::string digits(size_t size) { return repeated("0f", size); }
std::string as(size_t size) { return std::string(size, 'a'); }

void addTextGrowths() {
  addTextGrowth("str2wstr", ascii, [](const std::string& text) { return Tool::str2wstr(text); });
  addTextGrowth("wstr2str", ascii,
                [](const std::string& text) { return Tool::wstr2str(Tool::str2wstr(text)); });
  addTextGrowth("str2ustr", greek, [](std::string& text) { return Tool::str2ustr(text); });
  addTextGrowth("trim, all blanks", blanks,
                [](const std::string& text) { return Tool::trim(text, " \n\t\r"); });
  addTextGrowth("rtrim, none", ascii,
                [](const std::string& text) { return Tool::rtrim(text, " \n"); });
  addTextGrowth("searchreplace, nearly matching", as, [](const std::string& text) {
    return Tool::searchreplace(text, std::string(text.size() / 2, 'a') + "b", "c");
  });
  addTextGrowth("find, nearly matching", as, [](const std::string& text) {
    unsigned long index = 0;
    const std::string pattern = std::string(text.size() / 2, 'a') + "b";
    return Tool::find({text}, pattern.c_str(), index, true);
  });
  addTextGrowth("escape, all marked", quotes,
                [](const std::string& text) { return Tool::convertToXmlSpecialCharacters(text); });
  addTextGrowth("tokenize", commas,
                [](const std::string& text) { return Tool::tokenize(text, ",;:"); });
  addTextGrowth("str2binary", digits, [](const std::string& text) {
    std::vector<unsigned char> out(text.size() / 2);
    int size = static_cast<int>(out.size());
    return Tool::str2binary(out.data(), &size, text);
  });
  addTextGrowth("tostrupper", ascii,
                [](const std::string& text) { return Tool::tostrupper(text); });
}

}  // namespace

void addTextRows() {
  addConversionRows();
  const std::string text = ascii(10240);
  addReplaceRow("10 KB, one character, frequent", text, " ", "_", 0.8);
  addReplaceRow("10 KB, three characters", text, "fox", "cat", 0.85);
  addReplaceRow("10 KB, absent", text, "zebra", "cat", 1.2);
  addEscapeRows("marked", repeated("a < b && \"c\" > 'd' ", 1024), 0.65, 0.3);
  addEscapeRows("plain", ascii(1024), 1.0, 0.5);
  addHexRows(16, 0.8, 0.6);
  addHexRows(1024, 0.3, 0.95);
  addNumberRows();
  addTokenRow("20 fields", repeated("backup,", 140), ",", 0.6);
  addTokenRow("10 KB", repeated("backup,", 10240), ",", 0.8);
  addTokenRow("10 KB, four delimiters", repeated("backup,a;b:c d,", 10240), ",;: ", 0.4);
  addCaseRows();
  addTextGrowths();
}

}  // namespace kelp_bench
