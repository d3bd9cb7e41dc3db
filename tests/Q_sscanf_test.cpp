#include "Q_sscanf.h"

#include "comma_locale.h"
#include "guarded_page.h"
#include "next_symbol.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

bool everythingIsUpperCase = false;

// As in a locale with more upper-case letters.
struct UpperCaseEverywhere {
  UpperCaseEverywhere() { everythingIsUpperCase = true; }
  ~UpperCaseEverywhere() { everythingIsUpperCase = false; }
  UpperCaseEverywhere(const UpperCaseEverywhere&) = delete;
  UpperCaseEverywhere& operator=(const UpperCaseEverywhere&) = delete;
};

}  // namespace

// In front of the platform's.
extern "C" int isupper(int c) noexcept {
  static const auto platforms = kelp_test::nextSymbol<decltype(isupper)>("isupper");
  return everythingIsUpperCase ? 1 : platforms(c);
}

namespace {

using kelp_test::GuardedPage;

constexpr char filler = '\x5a';

// A destination of any type, filled so that every byte stored shows.
struct Slot {
  Slot() { bytes.fill(filler); }

  template <class Type>
  static Slot holding(Type value) {
    Slot slot;
    // Of a long double only the bytes of the number are stored.
    constexpr size_t stored = std::is_same_v<Type, long double> ? 10 : sizeof value;
    std::memcpy(slot.bytes.data(), &value, stored);
    return slot;
  }

  bool operator==(const Slot& other) const { return bytes == other.bytes; }

  alignas(16) std::array<char, 256> bytes;
};

std::ostream& operator<<(std::ostream& out, const Slot& slot) {
  for (size_t i = 0; i < 16; ++i) {
    out << std::hex << static_cast<int>(static_cast<unsigned char>(slot.bytes[i])) << ' ';
  }
  return out << std::dec;
}

// --- the format

TEST(Sscanf, FindsTheInputAtItsEndWhereATextIsEmptyWithAnyConversion) {
  for (const char* format : {"%d", "%i",  "%o",  "%u",  "%x",  "%X",  "%p",   "%D",   "%O",
                             "%e", "%E",  "%f",  "%g",  "%G",  "%c",  "%s",   "%[a]", "%[^a]",
                             "%k", "%*d", "%*c", " %d", "%5d", "%ld", "%n%d", "%%",   "a"}) {
    SCOPED_TRACE(format);
    Slot first;
    Slot second;
    EXPECT_EQ(Q_sscanf("", format, &first, 64, &second, 64), -1);
    if (format[1] != 'n') {
      EXPECT_EQ(first, Slot());
    }
  }
}

TEST(Sscanf, TreatsATextOfWhiteSpaceAsEmptyWhereItIsSkipped) {
  Slot slot;
  for (const char* format : {"%d", "%f", "%s", "%%", " %c", " %[a]", " a"}) {
    EXPECT_EQ(Q_sscanf(" \t\n", format, &slot, 64), -1) << format;
  }
  EXPECT_EQ(Q_sscanf(" \t\n", "%[a]", &slot, 64), 0);
  EXPECT_EQ(slot, Slot());
}

TEST(Sscanf, AssignsNothingWhenTheFirstConversionDoesNotMatch) {
  for (const char* format : {"%d", "%i", "%o", "%u", "%p", "%D", "%O", "%e", "%E", "%f", "%g", "%G",
                             "%[0-9]", "%[^h]", "%k", "%*d", "%%", "%5d", "%hhd"}) {
    SCOPED_TRACE(format);
    Slot slot;
    EXPECT_EQ(Q_sscanf("hello", format, &slot, 64), 0);
    EXPECT_EQ(slot, Slot());
  }
}

TEST(Sscanf, EmptyFormatReadsNothing) {
  EXPECT_EQ(Q_sscanf("", ""), 0);
  EXPECT_EQ(Q_sscanf("abc", ""), 0);
}

TEST(Sscanf, WhiteSpaceMatchesAnyRunAndNeverFails) {
  for (const char* text : {"1,2", "1 ,\t\n2", "1\v\f\r ,      2"}) {
    int a = 0;
    int b = 0;
    int n = 0;
    EXPECT_EQ(Q_sscanf(text, "%d ,%d \n%n", &a, 4, &b, 4, &n, 4), 2) << text;
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(n, static_cast<int>(std::strlen(text)));
  }
  EXPECT_EQ(Q_sscanf("", "  "), 0);
}

TEST(Sscanf, EveryWhiteSpaceCharacterOfTheFormatMatchesARun) {
  for (const char space : {' ', '\t', '\n', '\v', '\f', '\r'}) {
    SCOPED_TRACE(static_cast<int>(space));
    int value = 0;
    int n = 0;
    EXPECT_EQ(Q_sscanf("1  x", (std::string("%d") + space + "%n").c_str(), &value, 4, &n, 4), 1);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(n, 3);
  }
}

TEST(Sscanf, OrdinaryCharactersMatchThemselves) {
  int a = 0;
  int n = -1;
  EXPECT_EQ(Q_sscanf("id=5;", "id=%d;%n", &a, 4, &n, 4), 1);
  EXPECT_EQ(a, 5);
  EXPECT_EQ(n, 5);
  EXPECT_EQ(Q_sscanf("ix=5", "id=%d", &a, 4), 0);
  EXPECT_EQ(Q_sscanf(" id=5", "id=%d", &a, 4), 0);  // no white space is skipped
  EXPECT_EQ(Q_sscanf("\xe4\xff!", "\xe4\xff%n!", &n, 4), 0);
  EXPECT_EQ(n, 2);
  EXPECT_EQ(Q_sscanf("a\x7f b", "a\x7f%n b", &n, 4), 0);
  EXPECT_EQ(n, 2);
}

TEST(Sscanf, EndOfInputAtAnOrdinaryCharacterFailsOnlyBeforeTheFirstConversion) {
  int a = 0;
  int b = 0;
  EXPECT_EQ(Q_sscanf("5", "%dx%d", &a, 4, &b, 4), 1);
  EXPECT_EQ(Q_sscanf("i", "id=%d", &a, 4), -1);
  EXPECT_EQ(Q_sscanf("5", "%*dx%d", &a, 4), 0);
}

TEST(Sscanf, TwoPercentSignsMatchOne) {
  int a = 0;
  int n = -1;
  for (const char* format : {"%d%%%n", "%d%*%%n", "%d%5%%n", "%d%l%%n"}) {
    SCOPED_TRACE(format);
    n = -1;
    EXPECT_EQ(Q_sscanf("50%", format, &a, 4, &n, 4), 1);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(Q_sscanf("50 \t%", format, &a, 4, &n, 4), 1);
    EXPECT_EQ(n, 5);
    n = -1;
    EXPECT_EQ(Q_sscanf("50x", format, &a, 4, &n, 4), 1);
    EXPECT_EQ(n, -1);
  }
}

TEST(Sscanf, PercentSignsAndCountsAreNoConversions) {
  int a = 0;
  int n = -1;
  EXPECT_EQ(Q_sscanf("%", "%%%n%d", &n, 4, &a, 4), -1);
  EXPECT_EQ(n, 1);
  EXPECT_EQ(Q_sscanf("%", "%%"), 0);
  EXPECT_EQ(Q_sscanf("", "%n%d", &n, 4, &a, 4), -1);
  EXPECT_EQ(n, 0);
}

TEST(Sscanf, SuppressedConversionsAreConversions) {
  int a = 0;
  char c = 0;
  EXPECT_EQ(Q_sscanf("5", "%*d%d", &a, 4), 0);
  EXPECT_EQ(Q_sscanf("ab", "%*s%d", &a, 4), 0);
  EXPECT_EQ(Q_sscanf("ab", "%*2c%c", &c, 1), 0);
  EXPECT_EQ(Q_sscanf("ab", "%*[ab]%c", &c, 1), 0);
  EXPECT_EQ(Q_sscanf("1.5", "%*f%d", &a, 4), 0);
}

TEST(Sscanf, AFormatCutOffInsideAConversionFailsAsInputAtItsEndDoes) {
  for (const char* end :
       {"%",  "%*", "%5",    "%*5", "%l",  "%ll", "%h",   "%hh", "%q",   "%L",    "%j",
        "%t", "%z", "%*5hh", "%[",  "%[^", "%[]", "%[^]", "%[a", "%[a-", "%[a-z", "%5["}) {
    SCOPED_TRACE(end);
    EXPECT_EQ(Q_sscanf("12", end), -1);
    int a = 0;
    EXPECT_EQ(Q_sscanf("12 a", (std::string("%d ") + end).c_str(), &a, 4), -1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(Q_sscanf("y", (std::string("x") + end).c_str()), 0);  // the scan does not get there
    EXPECT_EQ(Q_sscanf("12", (std::string("%dx") + end).c_str(), &a, 4), 1);
  }
}

// --- integers

struct IntegerCase {
  const char* text;
  const char* conversion;
  int assigned;
  int value;
  int consumed;
};

TEST(Sscanf, ReadsTheLongestTextThatCanBecomeAnInteger) {
  const IntegerCase cases[] = {
      {"42", "%d", 1, 42, 2},
      {" \t\n-42x", "%d", 1, -42, 6},
      {"+42", "%d", 1, 42, 3},
      {"007", "%d", 1, 7, 3},
      {"0x1f", "%d", 1, 0, 1},
      {"1 2", "%d", 1, 1, 1},
      {"12a", "%u", 1, 12, 2},
      {"-1", "%u", 1, -1, 2},
      {"0789", "%o", 1, 7, 2},
      {"-17", "%o", 1, -15, 3},
      {"1fG", "%x", 1, 31, 2},
      {"0x1fG", "%x", 1, 31, 4},
      {"0X1Fg", "%X", 1, 31, 4},
      {"-0x1f", "%x", 1, -31, 5},
      {"00x1f", "%x", 1, 0, 2},
      {"0x", "%x", 1, 0, 2},
      {"0xg", "%x", 1, 0, 2},
      {"-0xg", "%x", 1, 0, 3},
      {"0x0x1", "%x", 1, 0, 3},
      {"0x1f", "%i", 1, 31, 4},
      {"0X1Fg", "%i", 1, 31, 4},
      {"-0x1f", "%i", 1, -31, 5},
      {"0xg", "%i", 1, 0, 2},
      {"017", "%i", 1, 15, 3},
      {"08", "%i", 1, 0, 1},
      {"0", "%i", 1, 0, 1},
      {"-0", "%i", 1, 0, 2},
      {"0b1", "%i", 1, 0, 1},
      {"19a", "%i", 1, 19, 2},
      {"+19", "%i", 1, 19, 3},
      // The width counts sign and prefix, not the white space before them.
      {"12345", "%2d", 1, 12, 2},
      {"  12345", "%2d", 1, 12, 4},
      {"-12345", "%2d", 1, -1, 2},
      {"12345", "%0d", 1, 12345, 5},
      {"12345", "%02d", 1, 12, 2},
      {"12345", "%99999999999999999999d", 1, 12345, 5},
      {"12345", "%2147483648d", 1, 12345, 5},
      {"12345", "%4294967297d", 1, 12345, 5},
      {"0x1f", "%1x", 1, 0, 1},
      {"0x1f", "%2x", 1, 0, 2},
      {"0x1f", "%3x", 1, 1, 3},
      {"0x1f", "%1i", 1, 0, 1},
      {"0x1f", "%2i", 1, 0, 2},
      {"0x1f", "%3i", 1, 1, 3},
      {"-0x1f", "%3i", 1, 0, 3},
      {"0777", "%2i", 1, 7, 2},
  };
  for (const IntegerCase& c : cases) {
    SCOPED_TRACE(std::string(c.conversion) + " on \"" + c.text + '"');
    int value = 999;
    int consumed = -1;
    const std::string format = std::string(c.conversion) + "%n";
    EXPECT_EQ(Q_sscanf(c.text, format.c_str(), &value, 4, &consumed, 4), c.assigned);
    EXPECT_EQ(value, c.value);
    EXPECT_EQ(consumed, c.consumed);
    // Without assigning, the same is consumed.
    consumed = -1;
    EXPECT_EQ(Q_sscanf(c.text, ("%*" + format.substr(1)).c_str(), &consumed, 4), 0);
    EXPECT_EQ(consumed, c.consumed);
  }
}

TEST(Sscanf, WhatCannotBecomeANumberDoesNotMatch) {
  const struct {
    const char* text;
    const char* format;
  } cases[] = {
      {"-", "%d"},    {"+", "%i"},     {"- 1", "%d"}, {"+-1", "%d"},   {"-x", "%x"},
      {"x1", "%x"},   {"8", "%o"},     {"g", "%x"},   {"a", "%d"},     {"-5", "%1d"},
      {".5", "%d"},   {"-", "%f"},     {".", "%f"},   {"-.", "%f"},    {".e5", "%f"},
      {"e5", "%f"},   {"-.5", "%2f"},  {".5", "%1f"}, {"+ 1.5", "%g"}, {"--1", "%f"},
      {"..5", "%f"},  {"inf", "%f"},   {"nan", "%f"}, {"INF", "%e"},   {"NAN", "%G"},
      {"-inf", "%g"}, {"(nil)", "%p"}, {",5", "%f"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.format) + " on \"" + c.text + '"');
    Slot slot;
    EXPECT_EQ(Q_sscanf(c.text, c.format, &slot, 64), 0);
    EXPECT_EQ(slot, Slot());
    EXPECT_EQ(Q_sscanf(c.text, (std::string("%*") + (c.format + 1)).c_str()), 0);
  }
}

TEST(Sscanf, TakesNoOtherByteForASign) {
  for (int byte = 1; byte < 256; ++byte) {
    const std::string text = std::string(1, static_cast<char>(byte)) + "5";
    for (const char* format : {"%d", "%u", "%i", "%o", "%x", "%2d"}) {
      int expected = 77;
      int actual = 77;
      EXPECT_EQ(Q_sscanf(text.c_str(), format, &actual, static_cast<int>(sizeof actual)),
                std::sscanf(text.c_str(), format, &expected))
          << byte << ' ' << format;
      EXPECT_EQ(actual, expected) << byte << ' ' << format;
    }
  }
}

TEST(Sscanf, SplitsDigitsByWidth) {
  int a = 0;
  int b = 0;
  EXPECT_EQ(Q_sscanf("12345", "%2d%d", &a, 4, &b, 4), 2);
  EXPECT_EQ(a, 12);
  EXPECT_EQ(b, 345);
}

template <class Signed>
void expectStored(const std::string& modifier) {
  SCOPED_TRACE("modifier \"" + modifier + '"');
  // Wider than int, so that every type shows its own part of it.
  constexpr intmax_t value = -0x123456789abcdef0;
  const std::string negativeOctal = "-110642547423257157360";
  const struct {
    const char* letter;
    std::string text;
  } forms[] = {{"d", "-1311768467463790320"}, {"i", "-1311768467463790320"},
               {"i", "-0x123456789ABCDEF0"},  {"i", "-0" + negativeOctal.substr(1)},
               {"u", "-1311768467463790320"}, {"o", negativeOctal},
               {"x", "-123456789abcdef0"},    {"X", "-0x123456789abcdef0"}};
  for (const auto& form : forms) {
    SCOPED_TRACE(std::string("letter ") + form.letter);
    Slot slot;
    int next = 0;
    const std::string text = form.text + " 77";
    const std::string conversion = modifier + form.letter;
    EXPECT_EQ(Q_sscanf(text.c_str(), ("%" + conversion + "%d").c_str(), &slot,
                       static_cast<int>(sizeof(Signed)), &next, 4),
              2);
    EXPECT_EQ(slot, Slot::holding(static_cast<Signed>(value)));
    EXPECT_EQ(next, 77);

    next = 0;
    EXPECT_EQ(Q_sscanf(text.c_str(), ("%*" + conversion + "%d").c_str(), &next, 4), 1);
    EXPECT_EQ(next, 77);

    Slot cut;
    EXPECT_EQ(Q_sscanf("12345", ("%2" + conversion + "%d").c_str(), &cut, 64, &next, 4), 2);
    EXPECT_EQ(next, 345);
  }
  Slot count;
  int next = 0;
  EXPECT_EQ(Q_sscanf("abc 77", ("abc%" + modifier + "n%d").c_str(), &count, 0, &next, 4), 1);
  EXPECT_EQ(count, Slot::holding(static_cast<Signed>(3)));
  EXPECT_EQ(next, 77);
}

TEST(Sscanf, StoresIntegersByModifier) {
  expectStored<int>("");
  expectStored<signed char>("hh");
  expectStored<short>("h");
  expectStored<long>("l");
  expectStored<long long>("ll");
  expectStored<long long>("q");
  expectStored<intmax_t>("j");
  expectStored<ptrdiff_t>("t");
  expectStored<size_t>("z");
  expectStored<int>("L");  // means floating numbers only
}

TEST(Sscanf, TakesOneModifier) {
  // What follows the first one is the conversion character, here an unknown one.
  Slot slot;
  EXPECT_EQ(Q_sscanf("42d", "%lhd", &slot, 8), 1);
  EXPECT_EQ(slot, Slot::holding(42));
  Slot second;
  EXPECT_EQ(Q_sscanf("42d", "%qqd", &second, 8), 1);
  EXPECT_EQ(second, Slot::holding(42));
}

TEST(Sscanf, LimitsNumbersToTheLargestTypeThenCuts) {
  intmax_t wide = 0;
  uintmax_t wideUnsigned = 0;
  int narrow = 0;
  errno = 0;
  EXPECT_EQ(Q_sscanf("99999999999999999999", "%jd", &wide, 8), 1);
  EXPECT_EQ(wide, INTMAX_MAX);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(Q_sscanf("-99999999999999999999", "%jd", &wide, 8), 1);
  EXPECT_EQ(wide, INTMAX_MIN);
  EXPECT_EQ(Q_sscanf("99999999999999999999", "%ju", &wideUnsigned, 8), 1);
  EXPECT_EQ(wideUnsigned, UINTMAX_MAX);
  EXPECT_EQ(Q_sscanf("18446744073709551615", "%ju", &wideUnsigned, 8), 1);
  EXPECT_EQ(wideUnsigned, UINTMAX_MAX);
  EXPECT_EQ(Q_sscanf("18446744073709551615", "%jd", &wide, 8), 1);
  EXPECT_EQ(wide, INTMAX_MAX);
  EXPECT_EQ(Q_sscanf("99999999999999999999", "%d", &narrow, 4), 1);
  EXPECT_EQ(narrow, -1);
  EXPECT_EQ(Q_sscanf("4294967338", "%d", &narrow, 4), 1);
  EXPECT_EQ(narrow, 42);
}

TEST(Sscanf, ReadsNumbersOfAnyLength) {
  int value = 0;
  int consumed = 0;
  const std::string zeros(5000, '0');
  EXPECT_EQ(Q_sscanf((zeros + "7 ").c_str(), "%d%n", &value, 4, &consumed, 4), 1);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(consumed, 5001);
  double number = 0;
  EXPECT_EQ(Q_sscanf(("." + zeros + "5e5001").c_str(), "%lf%n", &number, 8, &consumed, 4), 1);
  EXPECT_EQ(number, 5.0);
  EXPECT_EQ(consumed, 5007);
}

TEST(Sscanf, ReadsNumbersWhereverTheyStand) {
  for (size_t before = 0; before < 600; ++before) {
    int value = 0;
    int n = 0;
    const std::string text = std::string(before, ' ') + "-123456789,";
    ASSERT_EQ(Q_sscanf(text.c_str(), "%d%n", &value, 4, &n, 4), 1) << before;
    ASSERT_EQ(value, -123456789) << before;
    ASSERT_EQ(n, static_cast<int>(before) + 10);
  }
}

TEST(Sscanf, ReadsPointersWhateverTheModifier) {
  for (const char* format : {"%p %d", "%hhp %d", "%lp %d", "%Lp %d"}) {
    SCOPED_TRACE(format);
    for (const char* text : {"123456789abc 7", "0X123456789ABC 7"}) {
      Slot pointer;
      int next = 0;
      EXPECT_EQ(Q_sscanf(text, format, &pointer, 8, &next, 4), 2);
      EXPECT_EQ(pointer, Slot::holding<uintptr_t>(0x123456789abc));
      EXPECT_EQ(next, 7);
    }
  }
}

TEST(Sscanf, UpperCaseDAndOAreLong) {
  for (const char* modifier : {"", "hh", "h", "l", "ll", "j", "L"}) {
    SCOPED_TRACE(modifier);
    Slot decimal;
    Slot octal;
    EXPECT_EQ(Q_sscanf("-81985529216486895 123456701234567012345",
                       (std::string("%") + modifier + "D%" + modifier + "O").c_str(), &decimal, 8,
                       &octal, 8),
              2);
    EXPECT_EQ(decimal, Slot::holding(-81985529216486895L));
    EXPECT_EQ(octal, Slot::holding(0123456701234567012345UL));
  }
  unsigned long greatest = 0;
  EXPECT_EQ(Q_sscanf("1777777777777777777777", "%O", &greatest, 8), 1);
  EXPECT_EQ(greatest, ULONG_MAX);
}

TEST(Sscanf, ReadsOctalNumbersUnsigned) {
  unsigned long greatest = 0;
  errno = 0;
  EXPECT_EQ(Q_sscanf("1777777777777777777777", "%lo", &greatest, 8), 1);
  EXPECT_EQ(greatest, ULONG_MAX);
  EXPECT_EQ(errno, 0);
}

TEST(Sscanf, SetsErrnoForStoredNumbersOutOfRangeOnly) {
  const struct {
    const char* text;
    const char* format;
    int expected;
  } rows[] = {{"99999999999999999999", "%d", ERANGE},
              {"4294967338", "%d", 0},
              {"99999999999999999999", "%*d", 0},
              {"1e999", "%lf", ERANGE},
              {"1e-999", "%lf", ERANGE},
              {"1e300", "%f", 0},
              {"1e999", "%*f", 0},
              {"word", "%d", 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.format) + " on " + row.text);
    Slot slot;
    errno = 0;
    Q_sscanf(row.text, row.format, &slot, 8);
    EXPECT_EQ(errno, row.expected);
  }
}

TEST(Sscanf, GivesInfinityOrZeroForDoublesOutOfRange) {
  double great = 0;
  double small = 1;
  EXPECT_EQ(Q_sscanf("-1e999 1e-999", "%lf%lf", &great, 8, &small, 8), 2);
  EXPECT_EQ(great, -std::numeric_limits<double>::infinity());
  EXPECT_EQ(small, 0.0);
}

// --- unknown conversion characters

TEST(Sscanf, AnyOtherConversionCharacterReadsADecimalInteger) {
  const std::string known = "%diouxXpDOeEfgGcs[n*hlqLjtz0123456789";
  for (int c = 1; c <= UCHAR_MAX; ++c) {
    if (known.find(static_cast<char>(c)) != std::string::npos) {
      continue;
    }
    for (const char* modifier : {"", "hh", "h", "l", "ll", "q", "L", "j", "t", "z"}) {
      SCOPED_TRACE("character " + std::to_string(c) + " modifier " + modifier);
      const std::string conversion = std::string(modifier) + static_cast<char>(c);
      const bool upper = c >= 'A' && c <= 'Z';
      Slot slot;
      int next = 0;
      EXPECT_EQ(Q_sscanf("  -081985529216486896x77", ("%" + conversion + "x%d").c_str(), &slot, 8,
                         &next, 4),
                2);
      EXPECT_EQ(slot, upper ? Slot::holding(-81985529216486896L)
                            : Slot::holding(static_cast<int>(-81985529216486896L)));
      EXPECT_EQ(next, 77);
      EXPECT_EQ(Q_sscanf("42 77", ("%*" + conversion + "%d").c_str(), &next, 4), 1);
      EXPECT_EQ(Q_sscanf("4277", ("%2" + conversion + "%d").c_str(), &slot, 8, &next, 4), 2);
    }
  }
}

TEST(Sscanf, OnlyAToZAreLongInEveryLocale) {
  const UpperCaseEverywhere letters;
  for (const char letter : {'\xc0', 'a', '?'}) {
    Slot slot;
    EXPECT_EQ(Q_sscanf("42", (std::string("%") + letter).c_str(), &slot, 8), 1);
    EXPECT_EQ(slot, Slot::holding(42));
  }
}

TEST(Sscanf, ASecondStarIsAnUnknownConversion) {
  int next = 0;
  EXPECT_EQ(Q_sscanf("42 7", "%**%d", &next, 4), 1);
  EXPECT_EQ(next, 7);
}

TEST(Sscanf, HasNoWideConversions) {
  char c = 0;
  char text[8];
  char set[8];
  for (const char* format : {"%lc%ls %l[a-z]", "%llc%lls %ll[a-z]", "%hc%hs %h[a-z]"}) {
    SCOPED_TRACE(format);
    EXPECT_EQ(Q_sscanf("ab1\xff rest", format, &c, 1, text, 8, set, 8), 3);
    EXPECT_EQ(c, 'a');
    EXPECT_STREQ(text, "b1\xff");
    EXPECT_STREQ(set, "rest");
  }
  Slot slot;
  EXPECT_EQ(Q_sscanf("word", "%S", &slot, 64), 0);
  EXPECT_EQ(Q_sscanf("word", "%C", &slot, 64), 0);
}

// --- floating numbers

TEST(Sscanf, ReadsTheLongestTextThatCanBecomeAFloatingNumber) {
  const struct {
    const char* text;
    const char* conversion;
    double value;
    int consumed;
  } cases[] = {
      {"1.5", "%f", 1.5, 3},
      {"  -1.5x", "%f", -1.5, 6},
      {"+1.5", "%f", 1.5, 4},
      {"1", "%f", 1, 1},
      {"1.", "%f", 1, 2},
      {".5", "%f", 0.5, 2},
      {"-.5", "%f", -0.5, 3},
      {"1.5.5", "%f", 1.5, 3},
      {"1e2", "%f", 100, 3},
      {"1E2", "%f", 100, 3},
      {"1e+2", "%f", 100, 4},
      {"1.e-2", "%lf", 0.01, 5},
      {".5e1", "%f", 5, 4},
      {"1e", "%f", 1, 2},
      {"1e+", "%f", 1, 3},
      {"1e-x", "%f", 1, 3},
      {"1ee5", "%f", 1, 2},
      {"1e5.5", "%f", 1e5, 3},
      {"0x1p3", "%f", 0, 1},
      {"1,5", "%f", 1, 1},
      {"1.5inf", "%f", 1.5, 3},
      {"007.50", "%f", 7.5, 6},
      {"1.5e2", "%1f", 1, 1},
      {"1.5e2", "%2f", 1, 2},
      {"1.5e2", "%3f", 1.5, 3},
      {"1.5e2", "%4f", 1.5, 4},
      {"1.5e2", "%5f", 150, 5},
      {"1.5e2", "%0f", 150, 5},
      {"1e+22", "%4f", 100, 4},
      {"1e999", "%f", std::numeric_limits<double>::infinity(), 5},
      {"-1e999", "%lf", -std::numeric_limits<double>::infinity(), 6},
  };
  for (const auto& c : cases) {
    const std::string written = c.conversion;
    for (const char letter : {'e', 'E', 'f', 'g', 'G'}) {
      SCOPED_TRACE(written + " as " + letter + " on \"" + c.text + '"');
      const std::string format = written.substr(0, written.size() - 1) + letter + "%n";
      const bool isDouble = written.find('l') != std::string::npos;
      Slot slot;
      int consumed = -1;
      EXPECT_EQ(Q_sscanf(c.text, format.c_str(), &slot, 0, &consumed, 4), 1);
      EXPECT_EQ(slot,
                isDouble ? Slot::holding(c.value) : Slot::holding(static_cast<float>(c.value)));
      EXPECT_EQ(consumed, c.consumed);
      consumed = -1;
      EXPECT_EQ(Q_sscanf(c.text, ("%*" + format.substr(1)).c_str(), &consumed, 4), 0);
      EXPECT_EQ(consumed, c.consumed);
    }
  }
}

TEST(Sscanf, StoresFloatingNumbersByModifier) {
  const struct {
    const char* modifier;
    Slot expected;
  } cases[] = {
      {"", Slot::holding(0.1F)},
      {"l", Slot::holding(0.1)},
      // strtod converts for every type: the nearest double, not the nearest long double.
      {"L", Slot::holding(static_cast<long double>(0.1))},
      {"hh", Slot::holding(0.1F)},
      {"h", Slot::holding(0.1F)},
      {"ll", Slot::holding(0.1F)},
      {"q", Slot::holding(0.1F)},
      {"j", Slot::holding(0.1F)},
      {"t", Slot::holding(0.1F)},
      {"z", Slot::holding(0.1F)},
  };
  for (const auto& c : cases) {
    for (const char letter : {'e', 'E', 'f', 'g', 'G'}) {
      SCOPED_TRACE(std::string(c.modifier) + letter);
      Slot slot;
      std::memset(slot.bytes.data(), filler, slot.bytes.size());
      int next = 0;
      EXPECT_EQ(Q_sscanf("0.1 77", (std::string("%") + c.modifier + letter + "%d").c_str(), &slot,
                         4, &next, 4),
                2);
      EXPECT_EQ(std::memcmp(slot.bytes.data(), c.expected.bytes.data(), 10), 0);
      EXPECT_EQ(next, 77);
    }
  }
}

TEST(Sscanf, ReadsAPointInALocaleWithADecimalComma) {
  const kelp_test::CommaLocale locale;
  if (!locale.isSet()) {
    GTEST_SKIP() << "localedef makes no locale here";
  }
  ASSERT_EQ(std::strtod("1,5", nullptr), 1.5);
  double a = 0;
  double b = 0;
  EXPECT_EQ(Q_sscanf("-1.25e1 7", "%lf%lf", &a, 8, &b, 8), 2);
  EXPECT_EQ(a, -12.5);
  EXPECT_EQ(b, 7);
  EXPECT_EQ(Q_sscanf("1,5", "%lf,%lf", &a, 8, &b, 8), 2);
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 5);
}

// --- characters and texts

TEST(Sscanf, AnAssignedCharacterIsOneWhateverTheWidth) {
  for (const char* format : {"%c%c", "%3c%c", "%0c%c", "%1c%99c", "%lc%hhc"}) {
    SCOPED_TRACE(format);
    char a[] = "####";
    char b[] = "####";
    EXPECT_EQ(Q_sscanf("xyz", format, a, 4, b, 4), 2);
    EXPECT_STREQ(a, "x###");
    EXPECT_STREQ(b, "y###");
  }
}

TEST(Sscanf, ACharacterMayBeWhiteSpaceAndNeedsNoSize) {
  for (const int size : {0, -1, 1, INT_MIN}) {
    char a = '#';
    int next = 0;
    EXPECT_EQ(Q_sscanf(" 7", "%c%d", &a, size, &next, 4), 2);
    EXPECT_EQ(a, ' ');
    EXPECT_EQ(next, 7);
  }
  char a = '#';
  EXPECT_EQ(Q_sscanf("\xff", "%c", &a, 1), 1);
  EXPECT_EQ(a, '\xff');
}

TEST(Sscanf, ASuppressedCharacterSkipsItsWidth) {
  const struct {
    const char* format;
    int consumed;
  } cases[] = {{"%*c%n", 1},
               {"%*0c%n", 1},
               {"%*1c%n", 1},
               {"%*3c%n", 3},
               {"%*5c%n", 5},
               // What there is will do.
               {"%*6c%n", 5},
               {"%*99c%n", 5}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    int consumed = -1;
    EXPECT_EQ(Q_sscanf("a b\nc", c.format, &consumed, 4), 0);
    EXPECT_EQ(consumed, c.consumed);
  }
}

struct RunCase {
  const char* text;
  const char* conversion;
  const char* run;
  int consumed;
};

const RunCase runCases[] = {
    {"word rest", "%s", "word", 4},
    {" \t\n\v\f\rword", "%s", "word", 10},
    {"w\xe4\xff!", "%s", "w\xe4\xff!", 4},
    {"word", "%2s", "wo", 2},
    {"  word", "%2s", "wo", 4},
    {"word", "%0s", "word", 4},
    {"word", "%4s", "word", 4},
    {"word", "%5s", "word", 4},
    {"abcde", "%[abc]", "abc", 3},
    {"abcde", "%2[abc]", "ab", 2},
    {"abcde", "%0[abc]", "abc", 3},
    {"abc de", "%[^ ]", "abc", 3},
    {"  x", "%[ ]", "  ", 2},
    {"  x", "%[^x]", "  ", 2},
    {"a]b", "%[]a]", "a]", 2},
    {"ab]", "%[^]]", "ab", 2},
    {"ab]x", "%[^]x]", "ab", 2},
    {"b^a", "%[b^]", "b^", 2},
    {"a^b", "%[^^]", "a", 1},
    {"amz{", "%[a-z]", "amz", 3},
    {"a5Z_-", "%[a-zA-Z0-9]", "a5Z", 3},
    {"AMZ", "%[^a-z]", "AMZ", 3},
    {"--a", "%[-]", "--", 2},
    {"-ab", "%[-a]", "-a", 2},
    {"a-b", "%[a-]", "a-", 2},
    {"ab-", "%[^-]", "ab", 2},
    {"ab-c", "%[^-c]", "ab", 2},
    {"aa-", "%[a-a]", "aa", 2},
    // Between characters that fall, "-" stands for itself, and so do they.
    {"z-am", "%[z-a]", "z-a", 3},
    {"b-zc", "%[z-ab]", "b-z", 3},
    // The end of a range may begin the next one.
    {"abcdef", "%[a-c-e]", "abcde", 5},
    {"]^_`ab", "%[]-a]", "]^_`a", 5},
    {"-./0z", "%[--/]", "-./", 3},
    {"+,-z.", "%[+--z]", "+,-z", 4},
    {"\x7f\x80\xff\x7e", "%[\x7f-\xff]", "\x7f\x80\xff", 3},
    {"%d", "%[%d]", "%d", 2},
};

TEST(Sscanf, ReadsRunsOfCharacters) {
  for (const RunCase& c : runCases) {
    SCOPED_TRACE(std::string(c.conversion) + " on \"" + c.text + '"');
    char text[64];
    int consumed = -1;
    const std::string format = std::string(c.conversion) + "%n";
    EXPECT_EQ(Q_sscanf(c.text, format.c_str(), text, 64, &consumed, 4), 1);
    EXPECT_STREQ(text, c.run);
    EXPECT_EQ(consumed, c.consumed);
    consumed = -1;
    EXPECT_EQ(Q_sscanf(c.text, ("%*" + format.substr(1)).c_str(), &consumed, 4), 0);
    EXPECT_EQ(consumed, c.consumed);
  }
}

TEST(Sscanf, AnEmptyRunDoesNotMatchAScanSet) {
  for (const char* format : {"%[a-z]", "%[^X]", "%[^XY]", "%5[a]"}) {
    Slot slot;
    EXPECT_EQ(Q_sscanf("X", format, &slot, 64), 0) << format;
    EXPECT_EQ(slot, Slot()) << format;
  }
}

TEST(Sscanf, StoresOfARunWhatTheSizeAllowsAndConsumesItAll) {
  for (const char* format : {"%s%n%d", "%[a-z]%n%d", "%[^ ]%n%d", "%5s%n%d"}) {
    for (int size = 1; size <= 7; ++size) {
      SCOPED_TRACE(std::string(format) + " size " + std::to_string(size));
      GuardedPage<char> text(std::string(static_cast<size_t>(size), '#'));
      int consumed = 0;
      int next = 0;
      EXPECT_EQ(Q_sscanf("hello 7", format, text.data(), size, &consumed, 4, &next, 4), 2);
      const std::string stored =
          std::string("hello").substr(0, static_cast<size_t>(size) - 1) + '\0';
      EXPECT_EQ(std::string(text.data(), text.size()),
                (stored + "#").substr(0, static_cast<size_t>(size)));
      EXPECT_EQ(consumed, 5);
      EXPECT_EQ(next, 7);
    }
  }
}

TEST(Sscanf, StoresNothingOfARunWithoutRoomAndCountsItAllTheSame) {
  for (const char* format : {"%s%n%d", "%[a-z]%n%d"}) {
    for (const int size : {0, -1, -5, INT_MIN}) {
      SCOPED_TRACE(std::string(format) + " size " + std::to_string(size));
      char text[] = "####";
      int consumed = 0;
      int next = 0;
      EXPECT_EQ(Q_sscanf("hello 7", format, text + 2, size, &consumed, 4, &next, 4), 2);
      EXPECT_STREQ(text, "####");
      EXPECT_EQ(consumed, 5);
      EXPECT_EQ(next, 7);
      EXPECT_EQ(Q_sscanf("hello 7", format, nullptr, size, &consumed, 4, &next, 4), 2);
    }
  }
}

TEST(Sscanf, TakesNoArgumentsForWhatItDoesNotAssign) {
  int a = 0;
  char text[8];
  EXPECT_EQ(Q_sscanf("1 2.5 w x ab 3 s", "%*d%*f%*s %*c %*[a-z]%*n%d%s", &a, 4, text, 8), 2);
  EXPECT_EQ(a, 3);
  EXPECT_STREQ(text, "s");
}

// --- counts

TEST(Sscanf, CountsWhatWasConsumedWithoutAssigning) {
  int n = -1;
  EXPECT_EQ(Q_sscanf("5  x", "%*d %n", &n, 4), 0);
  EXPECT_EQ(n, 3);
  EXPECT_EQ(Q_sscanf("", "%n", &n, 4), 0);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(Q_sscanf("  x", "%n", &n, 4), 0);
  EXPECT_EQ(n, 0);
  int m = -1;
  EXPECT_EQ(Q_sscanf("ab cd", "%5n%*s%n %*s%n", &n, 4, &m, 4, &n, 4), 0);
  EXPECT_EQ(m, 2);
  EXPECT_EQ(n, 5);
  EXPECT_EQ(Q_sscanf("x", "y%n", &n, 4), 0);
  EXPECT_EQ(n, 5);  // not reached
}

// --- the text's end

TEST(Sscanf, ReadsNothingBehindTheTerminator) {
  for (const char* format : {"%s%n", "%*s%*s%n", "%d%n", "%f%n", "%i%n", "%*9c%n", "%[^x]%n"}) {
    GuardedPage<char> text(std::string("0\0", 2));
    Slot slot;
    Slot count;
    EXPECT_LE(Q_sscanf(text.data(), format, &slot, 64, &count, 4), 1) << format;
  }
}

TEST(Sscanf, SeesAtMostIntMaxCharacters) {
  // A text of 2^31 + 2^26 characters: one file of 2^26, mapped over and over.
  constexpr size_t piece = size_t{1} << 26;
  constexpr size_t pieces = 33;
  const int file = memfd_create("long_text", 0);
  ASSERT_NE(file, -1);
  ASSERT_EQ(ftruncate(file, piece), 0);
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto* const text = static_cast<char*>(mmap(nullptr, piece * pieces + page, PROT_READ | PROT_WRITE,
                                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  ASSERT_NE(text, MAP_FAILED);
  for (size_t i = 0; i < pieces; ++i) {
    ASSERT_NE(
        mmap(text + i * piece, piece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0),
        MAP_FAILED);
  }
  std::memset(text, '7', piece);
  int first = 0;
  EXPECT_EQ(Q_sscanf(text, "%1d", &first, 4), 1);
  EXPECT_EQ(first, 7);
  munmap(text, piece * pieces + page);
  close(file);
}

// --- against the platform

// Formats and texts on which the platform's sscanf has to agree. Left out are, each for its reason:
// - input that ends after suppressed conversions only: the platform gives -1, this scanner 0;
// - "%c" with a width that assigns: one character only here;
// - L, before integers an extension of the platform, before floating numbers converted by strtold
// there;
// - "0x" and "1e" without their digits, and widths that can cut them: the platform has changed its
// mind
//   about these;
// - hexadecimal floating numbers, infinities, NaN, "(nil)": not read here;
// - a A F C S m ' I $ and what is unknown: other conversions, or flags, on the platform;
// - "+--z" in a set: the platform begins a second range with the same "-".
class Generator {
 public:
  explicit Generator(unsigned seed) : m_random(seed) {}

  struct Case {
    std::string format;
    std::string text;
  };

  Case next() {
    m_hasFloat = m_hasWidth = false;
    Case result;
    for (int count = 1 + below(3); count > 0; --count) {
      result.format += pick(between) + directive();
    }
    result.format += pick(between);
    const std::vector<std::string>& pieces = m_hasWidth   ? plainPieces
                                             : m_hasFloat ? floatPieces
                                                          : prefixPieces;
    for (int count = below(9); count > 0; --count) {
      result.text += pick(pieces);
    }
    return result;
  }

 private:
  int below(int bound) { return static_cast<int>(m_random() % static_cast<unsigned>(bound)); }

  const std::string& pick(const std::vector<std::string>& choices) {
    return choices[static_cast<size_t>(below(static_cast<int>(choices.size())))];
  }

  std::string width() {
    if (below(3) != 0) {
      return "";
    }
    return std::to_string(1 + below(6));
  }

  std::string number(const std::string& star) {
    const std::string field = width();
    m_hasWidth = m_hasWidth || !field.empty();
    if (below(4) == 0) {
      m_hasFloat = true;
      return "%" + star + field + pick({"", "l"}) + pick({"e", "E", "f", "g", "G"});
    }
    if (below(8) == 0) {
      return "%" + star + field + "p";
    }
    return "%" + star + field + pick({"", "hh", "h", "l", "ll", "q", "j", "t", "z"}) +
           pick({"d", "i", "o", "u", "x", "X"});
  }

  std::string directive() {
    const std::string star = below(4) == 0 ? "*" : "";
    switch (below(8)) {
      case 0:
        return "%" + star + (star.empty() ? "" : width()) + "c";
      case 1:
        return "%" + star + width() + "s";
      case 2:
        return "%" + star + width() + pick(sets);
      case 3:
        return "%" + pick({"", "hh", "h", "l", "ll", "q", "j", "t", "z"}) + "n";
      default:
        return number(star);
    }
  }

  static inline const std::vector<std::string> between = {"", "", "", "", " ", " ", "-", "a", "%%"};
  static inline const std::vector<std::string> sets = {"[a-z]", "[^a-z]", "[0-9]",   "[]-]",
                                                       "[^]-]", "[z-a]",  "[a-b-d]", "[-5]",
                                                       "[5-]",  "[ \t]",  "[^ ]"};
  static inline const std::vector<std::string> plainPieces = {
      " ", " ",  "\t", "-", "+", ".", "0", "1", "7", "8",
      "9", "12", "a",  "f", "b", "z", "%", "]", "^", "99999999999999999999"};
  static inline const std::vector<std::string> floatPieces = {
      " ", " ", "-", "+", ".", "0", "5", "12", ".5", "1e5", "2.5e-3", "7.E+1 ", "a", "z", "%"};
  static inline const std::vector<std::string> prefixPieces = {
      " ", " ", "-", "+", "0", "7", "8", "12", "0x1f", "0X7F", "017", "0x99999999999999999999",
      "a", "f", "z", "%", "]"};

  std::mt19937 m_random;
  bool m_hasFloat = false;
  bool m_hasWidth = false;
};

TEST(Sscanf, AgreesWithThePlatformOnGeneratedFormatsAndTexts) {
  constexpr unsigned seed = 20240607;
  constexpr int rounds = 200000;
  Generator generator(seed);
  int assigned = 0;
  for (int round = 0; round < rounds; ++round) {
    const Generator::Case c = generator.next();
    std::array<Slot, 3> actual;
    std::array<Slot, 3> expected;
    const int result = Q_sscanf(c.text.c_str(), c.format.c_str(), actual.data(), 256, &actual[1],
                                256, &actual[2], 256);
    const int platform = std::sscanf(c.text.c_str(), c.format.c_str(), expected[0].bytes.data(),
                                     expected[1].bytes.data(), expected[2].bytes.data());
    const bool onlySuppressed =
        result == 0 && platform == -1 && c.format.find('*') != std::string::npos;
    ASSERT_TRUE(result == platform || onlySuppressed)
        << "seed " << seed << " round " << round << ": \"" << c.format << "\" on \"" << c.text
        << "\" gives " << result << ", not " << platform;
    for (size_t i = 0; i < actual.size(); ++i) {
      ASSERT_EQ(actual[i], expected[i]) << "seed " << seed << " round " << round << ": \""
                                        << c.format << "\" on \"" << c.text << "\", value " << i;
    }
    assigned += result > 0 ? 1 : 0;
  }
  EXPECT_GT(assigned, rounds / 4);  // else the generator has gone blind
}

}  // namespace
