// The text functions, called by several threads at once, some of which have locales of their own.
#include "Q_sscanf.h"
#include "Q_strings.h"
#include "Q_strtoimax.h"
#include "Q_strtoumax.h"
#include "Q_vfscanf.h"
#include "charset_locale.h"
#include "cmnstringtool.h"
#include "comma_locale.h"
#include "in_threads.h"
#include "scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Where a test has made locales of its own, the platform's newlocale forgets the list of
// directories that it searches for them.
extern "C" const char* __lsan_default_suppressions() { return "leak:argz_add_sep\n"; }

namespace {

using namespace kelp_cmn_4_4;
using kelp_test::Call;
using kelp_test::call;
using kelp_test::inThreads;
using kelp_test::scan;
using kelp_test::wrongCalls;

using Lines = std::vector<std::string>;

struct Convention {
  locale_t locale;
  const char* umlaut;  // u with two dots
  const char* half;    // the number 1.5
};

class ThreadsWithLocales : public testing::Test {
 protected:
  ThreadsWithLocales() {
    add(newlocale(LC_ALL_MASK, "C.UTF-8", nullptr), "\xc3\xbc", "1.5");
    {
      const kelp_test::CharsetLocale latin("ISO-8859-1", 1);
      if (latin.converts("\xfc", L'\u00fc')) {
        add(duplocale(LC_GLOBAL_LOCALE), "\xfc", "1.5");
      }
    }
    {
      const kelp_test::CommaLocale comma;
      if (comma.isSet()) {
        add(newlocale(LC_CTYPE_MASK, "C.UTF-8", duplocale(LC_GLOBAL_LOCALE)), "\xc3\xbc", "1,5");
      }
    }
  }
  ~ThreadsWithLocales() override {
    for (const Convention& convention : m_conventions) {
      freelocale(convention.locale);
    }
  }

  // Each of several threads uses one of the locales.
  void inThreadsOfTheirOwn(const std::function<int(const Convention&)>& work, int rounds = 300) {
    inThreads([&](size_t i) {
      const Convention& convention = m_conventions[i % m_conventions.size()];
      uselocale(convention.locale);
      int wrong = 0;
      for (int round = 0; round < rounds; ++round) {
        wrong += work(convention);
      }
      uselocale(LC_GLOBAL_LOCALE);
      return wrong;
    });
  }

  // Calls that give the same in each of the locales.
  void walkThrough(const std::vector<Call>& calls) {
    inThreadsOfTheirOwn([&calls](const Convention&) { return wrongCalls(calls, 60); }, 1);
  }

 private:
  void add(locale_t locale, const char* umlaut, const char* half) {
    if (locale != nullptr) {
      m_conventions.push_back({locale, umlaut, half});
    }
  }
  std::vector<Convention> m_conventions;
};

TEST_F(ThreadsWithLocales, ConvertText) {
  inThreadsOfTheirOwn([](const Convention& convention) {
    const std::string umlauts = std::string("A") + convention.umlaut;
    int wrong = CCmnStringTool::str2wstr(umlauts) != L"A\u00fc" ? 1 : 0;
    wrong += CCmnStringTool::wstr2str(L"A\u00fc") != umlauts ? 1 : 0;
    wrong += CCmnStringTool::mbs2wcs(umlauts) != L"A\u00fc" ? 1 : 0;
    wrong += CCmnStringTool::wcs2mbs(L"A\u00fc") != umlauts ? 1 : 0;
    wrong += CCmnStringTool::double2str(1.5) != convention.half ? 1 : 0;
    wrong += CCmnStringTool::str2double(convention.half) != 1.5 ? 1 : 0;
    wrong += CCmnStringTool::tostrupper(L"ab") != L"AB" ? 1 : 0;
    wrong += CCmnStringTool::int2wstr(-17) != L"-17" ? 1 : 0;
    std::string utf8 = "\xc3\xbc";
    icu::UnicodeString units = CCmnStringTool::str2ustr(utf8);
    wrong += units != icu::UnicodeString(static_cast<char16_t>(0xfc)) ? 1 : 0;
    wrong += CCmnStringTool::ustr2str(units) != utf8 ? 1 : 0;
    const tstr text = CCmnStringTool::wstr2tstr(L"A\u00fc");
    wrong += text != umlauts.c_str() || CCmnStringTool::tstr2wstr(text) != L"A\u00fc" ? 1 : 0;
    unsigned long number = 0;
    wrong +=
        CCmnStringTool::str2uint64("18446744073709551615", number) != 0 || ~number != 0 ? 1 : 0;
    return wrong;
  });
}

TEST_F(ThreadsWithLocales, CutReplaceAndEncodeText) {
  inThreadsOfTheirOwn([](const Convention&) {
    int wrong = CCmnStringTool::trim("  a b\n") != "a b" ? 1 : 0;
    wrong += CCmnStringTool::searchreplace("aXbX", "X", "--") != "a--b--" ? 1 : 0;
    wrong += CCmnStringTool::tokenize("a,b;c", ",;") != Lines({"a", "b", "c"}) ? 1 : 0;
    wrong += CCmnStringTool::convertToXmlSpecialCharacters("<&>") != "&lt;&amp;&gt;" ? 1 : 0;
    unsigned char bytes[2] = {0x1f, 0xa0};
    wrong += !CCmnStringTool::CompareNoCase(CCmnStringTool::binary2str(bytes, 2), "1fa0") ? 1 : 0;
    char** list = CCmnStringTool::tstrduplist({tstr("one"), tstr("two")});
    wrong += std::strcmp(list[1], "two") != 0 ? 1 : 0;
    CCmnStringTool::tstrfreelist(list);
    return wrong;
  });
}

TEST_F(ThreadsWithLocales, FormatAndScanNumbers) {
  inThreadsOfTheirOwn([](const Convention& convention) {
    char text[32];
    Q_snprintf(text, sizeof text, "%.1f%ls", 1.5, L"\u00fc");
    int wrong = text != std::string(convention.half) + convention.umlaut ? 1 : 0;
    const std::string half = convention.half;
    wchar_t wide[32];
    Q_snwprintf(wide, 32, L"%.1f%s", 1.5, convention.umlaut);
    wrong += wide != std::wstring(half.begin(), half.end()) + L"\u00fc" ? 1 : 0;
    double number = 0;
    int count = 0;
    char word[8] = "";
    wrong += Q_sscanf("-12.75e1 42 word", "%lf %d %s", &number, 8, &count, 4, word, 8) != 3 ? 1 : 0;
    wrong += number != -127.5 || count != 42 || std::strcmp(word, "word") != 0 ? 1 : 0;
    char* end = nullptr;
    wrong += __Qstrtoimax("-17x", &end, 10) != -17 || *end != 'x' ? 1 : 0;
    wrong += __Qstrtoumax("ffg", &end, 16) != 255 || *end != 'g' ? 1 : 0;
    Q_strlcpy(text, "one", sizeof text);
    Q_strlcat(text, " two", sizeof text);
    wrong += std::strcmp(text, "one two") != 0 ? 1 : 0;
    return wrong;
  });
}

TEST_F(ThreadsWithLocales, ScanStreamsOfTheirOwn) {
  inThreadsOfTheirOwn([](const Convention& convention) {
    const std::string text = std::string(" 2.5\v\t") + convention.umlaut + " 7xy";
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(
        fmemopen(const_cast<char*>(text.data()), text.size(), "r"), fclose);
    ScanSource source{nullptr, 0, 0, nullptr, 0, nullptr, stream.get()};
    double number = 0;
    char word[8] = "";
    int count = 0;
    int wrong = scan(&source, "%lf %s %d", &number, 8, word, 8, &count, 4) != 3 ? 1 : 0;
    wrong += number != 2.5 || std::strcmp(word, convention.umlaut) != 0 || count != 7 ? 1 : 0;
    updateFILE(&source);
    wrong += fgetc(stream.get()) != 'x' ? 1 : 0;
    updateVFILE(&source);
    wrong += source.unread != 1 || *source.position != 'y' ? 1 : 0;
    return wrong;
  });
}

// Gives the text in pieces of three bytes.
struct Pieces : ScanSource {
  explicit Pieces(std::string all)
      : ScanSource{nullptr, 0, 0, buffer, sizeof buffer, readPiece, nullptr},
        text(std::move(all)) {}
  Pieces(const Pieces&) = delete;
  Pieces& operator=(const Pieces&) = delete;

  std::string text;
  char buffer[3] = {};

 private:
  static int readPiece(void* cookie, char* buffer, int size) {
    std::string& text = static_cast<Pieces*>(static_cast<ScanSource*>(cookie))->text;
    const size_t count = std::min(text.size(), static_cast<size_t>(size));
    text.copy(buffer, count);
    text.erase(0, count);
    return static_cast<int>(count);
  }
};

TEST_F(ThreadsWithLocales, ScanWhatCallbacksOfTheirOwnGive) {
  inThreadsOfTheirOwn([](const Convention& convention) {
    Pieces source(std::string(" 127.5\v\t") + convention.umlaut + " 12345x");
    double number = 0;
    char word[8] = "";
    int count = 0;
    int wrong = scan(&source, "%lf %s %d", &number, 8, word, 8, &count, 4) != 3 ? 1 : 0;
    wrong += number != 127.5 || std::strcmp(word, convention.umlaut) != 0 ? 1 : 0;
    wrong += count != 12345 || source.unread != 1 || *source.position != 'x' ? 1 : 0;
    wrong += scan(&source, "x%d", &count, 4) != -1 || source.flags != Q_SCAN_EOF ? 1 : 0;
    wrong += __Qrefill(&source) != -1 || eofread(&source, source.buffer, 3) != 0 ? 1 : 0;
    return wrong;
  });
}

// Frees it.
template <class Char>
std::basic_string<Char> textOf(Char* duplicate) {
  const std::unique_ptr<Char, void (*)(void*)> owner(duplicate, std::free);
  return duplicate;
}

TEST_F(ThreadsWithLocales, ConvertBetweenTheStringTypes) {
  using Tool = CCmnStringTool;
  walkThrough({
      call(
          "mbs2wcs", [] { return Tool::mbs2wcs("two words"); }, L"two words"),
      call(
          "wcs2mbs", [] { return Tool::wcs2mbs(L"two words"); }, "two words"),
      call(
          "str2wstr of a wide one", [] { return Tool::str2wstr(std::wstring(L"one")); }, L"one"),
      call(
          "wstr2str of a narrow one", [] { return Tool::wstr2str(std::string("one")); }, "one"),
      call(
          "str2tstr, tstr2str", [] { return Tool::tstr2str(Tool::str2tstr("one")); }, "one"),
      call(
          "tstr2ustr",
          [] {
            tstr text("\xc3\xbc");
            return Tool::tstr2ustr(text);
          },
          icu::UnicodeString(static_cast<char16_t>(0xfc))),
      call(
          "ustr2tstr",
          [] {
            icu::UnicodeString text(static_cast<char16_t>(0xfc));
            return std::string(Tool::ustr2tstr(text).c_str());
          },
          "\xc3\xbc"),
      call(
          "strdup", [] { return textOf(Tool::strdup("one", nullptr)); }, "one"),
      call(
          "wstrdup", [] { return textOf(Tool::wstrdup(L"one", std::malloc)); }, L"one"),
      call(
          "tstrdup", [] { return textOf(Tool::tstrdup(tstr("one"), std::malloc)); }, "one"),
  });
}

TEST_F(ThreadsWithLocales, WriteAndReadNumbers) {
  using Tool = CCmnStringTool;
  const auto withStatus = [](auto read, const std::string& text, auto number) {
    const int status = read(text, number);
    return std::pair(status, number);
  };
  walkThrough({
      call(
          "int2str", [] { return Tool::int2str(-17); }, "-17"),
      call(
          "int2str of a long", [] { return Tool::int2str(LONG_MIN); }, "-9223372036854775808"),
      call(
          "uint2str", [] { return Tool::uint2str(4294967295U); }, "4294967295"),
      call(
          "uint2str of a long", [] { return Tool::uint2str(~0UL); }, "18446744073709551615"),
      call(
          "int2wstr of a long", [] { return Tool::int2wstr(LONG_MIN); }, L"-9223372036854775808"),
      call(
          "uint2wstr", [] { return Tool::uint2wstr(4294967295U); }, L"4294967295"),
      call(
          "uint2wstr of a long", [] { return Tool::uint2wstr(~0UL); }, L"18446744073709551615"),
      call(
          "bool2str", [] { return Tool::bool2str(true) + Tool::bool2str(false); }, "truefalse"),
      call(
          "str2int", [] { return Tool::str2int(" -17x"); }, -17),
      call(
          "str2int of 2^32", [] { return Tool::str2int("4294967296"); }, 0),
      call(
          "str2uint", [] { return Tool::str2uint("-1"); }, 4294967295U),
  });
  walkThrough({
      call(
          "str2int with a status",
          [=] { return withStatus([](auto& t, int& n) { return Tool::str2int(t, n); }, "42", 7); },
          std::pair(0, 42)),
      call(
          "str2int of nothing",
          [=] { return withStatus([](auto& t, int& n) { return Tool::str2int(t, n); }, "", 7); },
          std::pair(-1, 7)),
      call(
          "str2uint with a status",
          [=] {
            return withStatus([](auto& t, unsigned& n) { return Tool::str2uint(t, n); }, "42", 7U);
          },
          std::pair(0, 42U)),
      call(
          "str2double with a status",
          [=] {
            return withStatus([](auto& t, double& n) { return Tool::str2double(t, n); }, "4e1", 7.);
          },
          std::pair(0, 40.)),
  });
}

TEST_F(ThreadsWithLocales, InspectTrimAndChangeText) {
  using Tool = CCmnStringTool;
  walkThrough({
      call(
          "isDigit", [] { return Tool::isDigit("0123456789"); }, true),
      call(
          "isDigit of a letter", [] { return Tool::isDigit("12a4"); }, false),
      call(
          "CompareNoCase, wide", [] { return Tool::CompareNoCase(L"One", L"oNE"); }, true),
      call(
          "tostrlower", [] { return Tool::tostrlower("One-2"); }, "one-2"),
      call(
          "tostrlower, wide", [] { return Tool::tostrlower(L"One-2"); }, L"one-2"),
      call(
          "tostrupper", [] { return Tool::tostrupper("One-2"); }, "ONE-2"),
      call(
          "ltrim", [] { return Tool::ltrim(" \n\t\rone "); }, "one "),
      call(
          "rtrim", [] { return Tool::rtrim(" one \n\t\r"); }, " one"),
      call(
          "ltrim of a set", [] { return Tool::ltrim("xyaxy", "yx"); }, "axy"),
      call(
          "rtrim of a set", [] { return Tool::rtrim("xyaxy", "yx"); }, "xya"),
      call(
          "find",
          [] {
            unsigned long index = 0;
            const unsigned long place = Tool::find({"one", "two "}, "o", ++index, true);
            return std::pair(place, index);
          },
          std::pair(2UL, 1UL)),
      call(
          "isIpAddress", [] { return Tool::isIpAddress("999.1.1.1"); }, true),
      call(
          "isIpAddress of too few", [] { return Tool::isIpAddress("10.1.1"); }, false),
      call(
          "isIpAddress of a letter", [] { return Tool::isIpAddress("10.1.1.a"); }, false),
  });
}

// What a function that reads hexadecimal digits gives and stores.
template <class Function, class Text>
std::pair<int, std::string> bytesOf(Function read, const Text& hex) {
  unsigned char bytes[4] = {};
  int size = sizeof bytes;
  const int status = read(bytes, &size, hex);
  return {status, std::string(bytes, bytes + size)};
}

TEST_F(ThreadsWithLocales, WriteAndReadXmlAndHexadecimal) {
  using Tool = CCmnStringTool;
  static unsigned char bytes[] = {0x1f, 0xa0};
  walkThrough({
      call(
          "convertFromXmlSpecialCharacters",
          [] { return Tool::convertFromXmlSpecialCharacters("&lt;&gt;&quot;&#39;&amp;lt;&apos;"); },
          "<>\"'&lt;&apos;"),
      call(
          "xmlBracket", [] { return Tool::xmlBracket("a", true, true); }, "<a>\n"),
      call(
          "xmlBracket, closing", [] { return Tool::xmlBracket("a", false, false); }, "</a>"),
      call(
          "xmlBracketValue", [] { return Tool::xmlBracketValue("a", "<"); }, "\t<a>&lt;</a>\n"),
      call(
          "binary2wstr", [] { return Tool::binary2wstr(bytes, 2); }, L"1fa0"),
      call(
          "str2binary", [] { return bytesOf(Tool::str2binary, std::string("4142434")); },
          std::pair(0, std::string("ABC"))),
      call(
          "str2binary without room",
          [] { return bytesOf(Tool::str2binary, std::string("4142434445")).first; }, -1),
      call(
          "wstr2binary",
          [] {
            return bytesOf(
                [](unsigned char* out, int* size, const std::wstring& hex) {
                  return Tool::wstr2binary(out, size, hex, false);
                },
                std::wstring(L"4a4B"));
          },
          std::pair(0, std::string("JK"))),
      call(
          "str2uid", [] { return Tool::str2uid(1, "A\x80"); }, "000141ffffff80"),
      call(
          "wstr2uid", [] { return Tool::wstr2uid(0x12345, L"A"); }, "1234541"),
      call(
          "binary2uid", [] { return Tool::binary2uid(1, bytes, 2); }, L"00011fa0"),
  });
}

}  // namespace
