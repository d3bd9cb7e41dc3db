#include "cmnstringtool.h"

#include "all_texts.h"
#include "heap.h"
#include "plain_text.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_cmn_4_4::tstr;
using kelp_test::allTexts;
using kelp_test::done;
using kelp_test::HeapCall;
using kelp_test::HeapWatch;
using kelp_test::plainlyFound;
using kelp_test::plainlyLeftTrimmed;
using kelp_test::plainlyReplaced;
using kelp_test::plainlyRightTrimmed;
using kelp_test::refused;
using kelp_test::ScopedLocale;
using kelp_test::utf16;
using kelp_test::utf8;
using testing::ElementsAre;

const char* const bothLocales[] = {"C", "C.utf8"};

// With its zero bytes.
template <class Char, size_t size>
std::basic_string<Char> whole(const Char (&literal)[size]) {
  return std::basic_string<Char>(literal, size - 1);
}

const std::string zeroByte(1, '\0');

tstr wholeTstr(const std::string& bytes) { return tstr(bytes.data(), bytes.size()); }

icu::UnicodeString units(const std::u16string& text) {
  return icu::UnicodeString(text.data(), static_cast<int32_t>(text.size()));
}

std::u16string unitsOf(const icu::UnicodeString& text) {
  return std::u16string(text.getBuffer(), static_cast<size_t>(text.length()));
}

std::u16string str2units(std::string bytes) { return unitsOf(Tool::str2ustr(bytes)); }

std::string units2str(const std::u16string& text) {
  icu::UnicodeString argument = units(text);
  return Tool::ustr2str(argument);
}

// Every character near an edge of the encodings, and a spread over the rest; no surrogates, not 0.
std::vector<char32_t> manyCharacters() {
  std::vector<char32_t> result;
  for (char32_t c = 1; c <= 0x10ffff; c += (c < 0x900 ? 1 : 61)) {
    result.push_back(c);
  }
  for (const unsigned int edge : {0x80U, 0x800U, 0xd800U, 0xe000U, 0x10000U, 0x20000U, 0x110000U}) {
    for (char32_t c = edge - 4; c < edge + 4; ++c) {
      result.push_back(c);
    }
  }
  result.erase(
      std::remove_if(result.begin(), result.end(),
                     [](char32_t c) { return (c >= 0xd800 && c < 0xe000) || c > 0x10ffff; }),
      result.end());
  return result;
}

std::string shown(const std::string& text) { return testing::PrintToString(text); }

std::string euros(size_t count) {
  std::string result;
  while (count-- > 0) {
    result += "\xe2\x82\xac";
  }
  return result;
}

template <class Job>
bool throwsWithoutMemory(Job job) {
  const HeapWatch watch(1);
  try {
    job();
  } catch (const std::bad_alloc&) {
    return true;
  }
  return false;
}

// ---- narrow to wide

TEST(Str2wstr, ConvertsAsciiInEveryLocale) {
  for (const char* locale : bothLocales) {
    const ScopedLocale scope(locale);
    EXPECT_EQ(Tool::str2wstr(std::string("a1 ~\n")), L"a1 ~\n") << locale;
    EXPECT_EQ(Tool::str2wstr(std::string()), L"") << locale;
  }
}

TEST(Str2wstr, DecodesTheLocalesCharacters) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::str2wstr(std::string("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80z")),
            L"a\u00e9\u20ac\U0001f600z");
  for (const char32_t c : manyCharacters()) {
    ASSERT_EQ(Tool::str2wstr(utf8(c)), std::wstring(1, static_cast<wchar_t>(c)))
        << "character " << static_cast<unsigned long>(c);
  }
}

TEST(Str2wstr, GivesNothingForTextWithAnyInvalidByte) {
  const ScopedLocale scope("C.utf8");
  for (const char* text :
       {"\xff", "abc\xff",
        "\xff"
        "abc",
        "a\x80", "a\xe2\x82", "\xe2\x82z", "\xf0\x9f\x98", "\xc3", "\xc0\x80", "\xed\xa0\x80"}) {
    EXPECT_EQ(Tool::str2wstr(std::string(text)), L"") << shown(text);
  }
}

// Only the platform decides, and it knows the numbers that UTF-8 once had.
TEST(Str2wstr, TakesMoreThanUnicodeInUtf8) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::str2wstr(std::string("\xf4\x90\x80\x80")), std::wstring(1, wchar_t{0x110000}));
  EXPECT_EQ(Tool::str2wstr(std::string("\xfd\xbf\xbf\xbf\xbf\xbf")),
            std::wstring(1, wchar_t{0x7fffffff}));
  EXPECT_EQ(str2units("\xf4\x90\x80\x80"), u"");
  EXPECT_EQ(str2units("\xfd\xbf\xbf\xbf\xbf\xbf"), u"");
}

TEST(Str2wstr, EndsAtAZeroByte) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::str2wstr(whole("ab\0cd")), L"ab");
  EXPECT_EQ(Tool::str2wstr(whole("\0cd")), L"");
  EXPECT_EQ(Tool::str2wstr(whole("ab\0\xff")), L"ab");
}

TEST(Str2wstr, ConvertsLongTexts) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::str2wstr(euros(1000000)), std::wstring(1000000, L'\u20ac'));
}

TEST(Str2wstr, AllocatesFourBytesPerCharacterAndTheTerminator) {
  const ScopedLocale scope("C.utf8");
  const std::string text = euros(2);
  std::wstring result = Tool::str2wstr(text);  // the platform loads its converters at first need
  HeapWatch watch;
  result = Tool::str2wstr(text);
  watch.end();
  EXPECT_EQ(result, L"\u20ac\u20ac");
  EXPECT_EQ(watch.requests(), 1);
  EXPECT_EQ(watch.requests(HeapCall::malloc), 1);
  EXPECT_EQ(watch.request(0).size, 4 * 2 + 4U);
}

TEST(Str2wstr, ThrowsWhenItsBufferCannotBeAllocated) {
  const ScopedLocale scope("C.utf8");
  const std::string text = euros(100);
  EXPECT_TRUE(throwsWithoutMemory([&text] { Tool::str2wstr(text); }));
}

TEST(Str2wstr, CopiesAWideTextAsItIs) {
  const ScopedLocale scope("C");
  const std::wstring text = whole(L"a\0\u20ac\xd800\0");
  EXPECT_EQ(Tool::str2wstr(text), text);
}

TEST(Mbs2wcs, IsStr2wstr) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::mbs2wcs("a\xe2\x82\xac"), L"a\u20ac");
  EXPECT_EQ(Tool::mbs2wcs("a\xff"), L"");
  EXPECT_EQ(Tool::mbs2wcs(whole("a\0b")), L"a");
}

// ---- wide to narrow

TEST(Wstr2str, ConvertsAsciiInEveryLocale) {
  for (const char* locale : bothLocales) {
    const ScopedLocale scope(locale);
    EXPECT_EQ(Tool::wstr2str(std::wstring(L"a1 ~\n")), "a1 ~\n") << locale;
    EXPECT_EQ(Tool::wstr2str(std::wstring()), "") << locale;
  }
}

TEST(Wstr2str, EncodesTheLocalesCharacters) {
  const ScopedLocale scope("C.utf8");
  for (const char32_t c : manyCharacters()) {
    ASSERT_EQ(Tool::wstr2str(std::wstring(1, static_cast<wchar_t>(c))), utf8(c))
        << "character " << static_cast<unsigned long>(c);
  }
}

TEST(Wstr2str, CutsAtTwoBytesPerCharacterAndTwoMoreBetweenCharacters) {
  const ScopedLocale scope("C.utf8");
  for (const char32_t c : {U'a', U'\u00e9', U'\u20ac', U'\U0001f600'}) {
    const std::string encoded = utf8(c);
    for (size_t length = 0; length <= 60; ++length) {
      const size_t fitting = std::min(length, (2 * length + 2) / encoded.size());
      std::string expected;
      for (size_t i = 0; i < fitting; ++i) {
        expected += encoded;
      }
      EXPECT_EQ(Tool::wstr2str(std::wstring(length, static_cast<wchar_t>(c))), expected)
          << length << " characters of " << encoded.size() << " bytes";
    }
  }
}

TEST(Wstr2str, CutsMixedTextWhereTheBudgetEnds) {
  const ScopedLocale scope("C.utf8");
  const struct {
    std::wstring text;
    std::string expected;
  } rows[] = {
      {L"\u20ac\u20ac\u20ac"
       L"a",
       euros(3) + "a"},  // 10 of 10 bytes
      {L"\u20ac\u20ac\u20ac\u20ac"
       L"a",
       euros(4)},  // 12 of 12, none left
      {L"\u20ac\u20ac\u20ac\u20ac\u20ac"
       L"a",
       euros(4)},  // the fifth does not fit, and what follows it does not come either
      {L"\u00e9\U0001f600", "\xc3\xa9\xf0\x9f\x98\x80"},
      {L"\U0001f600\U0001f600"
       L"ab",
       "\xf0\x9f\x98\x80\xf0\x9f\x98\x80"
       "ab"},
      {L"\U0001f600\U0001f600"
       L"a",
       "\xf0\x9f\x98\x80\xf0\x9f\x98\x80"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Tool::wstr2str(row.text), row.expected) << shown(row.expected);
  }
}

TEST(Wstr2str, CountsItsBudgetByTheWholeLengthOfTheText) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::wstr2str(whole(L"\u20ac\u20ac\u20ac\0xxxxx")), euros(3));
}

TEST(Wstr2str, KeepsWhatStandsBeforeACharacterTheLocaleDoesNotHave) {
  {
    const ScopedLocale scope("C");
    EXPECT_EQ(Tool::wstr2str(std::wstring(L"ab\u20ac"
                                          L"cd")),
              "ab");
    EXPECT_EQ(Tool::wstr2str(std::wstring(L"\u20ac"
                                          L"cd")),
              "");
  }
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::wstr2str(whole(L"a\u20ac\xd800z")), "a\xe2\x82\xac");
  EXPECT_EQ(Tool::wstr2str(whole(L"\xd800z")), "");
}

// Every block of the heap is full of marks at first.
TEST(Wstr2str, AddsNothingToWhatWasConvertedBeforeAnError) {
  const ScopedLocale scope("C");
  const std::wstring text = std::wstring(40, L'a') + L'\u20ac' + std::wstring(40, L'b');
  EXPECT_EQ(Tool::wstr2str(text), std::string(40, 'a'));
}

TEST(Wstr2str, AddsNothingToTextThatUsesItsBudgetUp) {
  const ScopedLocale scope("C.utf8");
  const std::wstring text(41, L'\u20ac');
  EXPECT_EQ(Tool::wstr2str(text), euros(28));  // 84 of 84 bytes
}

TEST(Wstr2str, EndsAtAZeroCharacter) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::wstr2str(whole(L"ab\0cd")), "ab");
  EXPECT_EQ(Tool::wstr2str(whole(L"\0cd")), "");
}

TEST(Wstr2str, ConvertsLongTexts) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::wstr2str(std::wstring(1000000, L'a')), std::string(1000000, 'a'));
  EXPECT_EQ(Tool::wstr2str(std::wstring(1000000, L'\u20ac')), euros(2000002 / 3));
}

TEST(Wstr2str, AllocatesTwoBytesPerCharacterAndTwoMore) {
  const ScopedLocale scope("C.utf8");
  const std::wstring text = L"\u00e9\u00e9\u00e9";
  std::string result = Tool::wstr2str(text);
  HeapWatch watch;
  result = Tool::wstr2str(text);
  watch.end();
  EXPECT_EQ(result, "\xc3\xa9\xc3\xa9\xc3\xa9");
  EXPECT_EQ(watch.requests(), 1);
  EXPECT_EQ(watch.requests(HeapCall::malloc), 1);
  EXPECT_EQ(watch.request(0).size, 2 * 3 + 2U);
}

TEST(Wstr2str, ThrowsWhenItsBufferCannotBeAllocated) {
  const ScopedLocale scope("C.utf8");
  const std::wstring text(100, L'\u00e9');
  EXPECT_TRUE(throwsWithoutMemory([&text] { Tool::wstr2str(text); }));
}

TEST(Wstr2str, CopiesANarrowTextAsItIs) {
  const ScopedLocale scope("C.utf8");
  const std::string text = whole("a\0\xff\xe2\x82\0");
  EXPECT_EQ(Tool::wstr2str(text), text);
}

TEST(Wcs2mbs, IsWstr2str) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::wcs2mbs(L"a\u20ac"), "a\xe2\x82\xac");
  EXPECT_EQ(Tool::wcs2mbs(whole(L"a\0b")), "a");
  EXPECT_EQ(Tool::wcs2mbs(std::wstring(3, L'\U0001f600')), utf8(U'\U0001f600') + utf8(0x1f600));
}

// ---- ACE strings

TEST(Str2tstr, CopiesUpToAZeroByte) {
  const struct {
    std::string text;
    std::string expected;
  } rows[] = {{"", ""},
              {"abc", "abc"},
              {"a\xff\x80", "a\xff\x80"},
              {whole("ab\0cd"), "ab"},
              {whole("\0cd"), ""},
              {std::string(100000, 'x'), std::string(100000, 'x')}};
  for (const auto& row : rows) {
    const tstr result = Tool::str2tstr(row.text);
    EXPECT_EQ(result.length(), row.expected.size());
    EXPECT_STREQ(result.c_str(), row.expected.c_str());
  }
}

TEST(Str2tstr, GivesATextOfItsOwn) {
  std::string text = "abc";
  const tstr result = Tool::str2tstr(text);
  text[0] = '#';
  EXPECT_STREQ(result.c_str(), "abc");
}

TEST(Tstr2str, CopiesUpToAZeroByte) {
  EXPECT_EQ(Tool::tstr2str(tstr()), "");
  EXPECT_EQ(Tool::tstr2str("a\xff"), "a\xff");
  EXPECT_EQ(Tool::tstr2str(wholeTstr(whole("ab\0cd"))), "ab");
  EXPECT_EQ(Tool::tstr2str(wholeTstr(whole("\0cd"))), "");
  EXPECT_EQ(Tool::tstr2str(tstr(static_cast<const char*>(nullptr))), "");
}

TEST(Tstr2wstr, ConvertsByTheLocale) {
  const ScopedLocale scope("C.utf8");
  EXPECT_EQ(Tool::tstr2wstr(tstr()), L"");
  EXPECT_EQ(Tool::tstr2wstr("a\xe2\x82\xac"), L"a\u20ac");
  EXPECT_EQ(Tool::tstr2wstr("a\xff"), L"");
  EXPECT_EQ(Tool::tstr2wstr(wholeTstr(whole("ab\0\xff"))), L"ab");
}

TEST(Wstr2tstr, ConvertsByTheLocale) {
  const ScopedLocale scope("C.utf8");
  EXPECT_STREQ(Tool::wstr2tstr(L"").c_str(), "");
  EXPECT_STREQ(Tool::wstr2tstr(L"a\u20ac").c_str(), "a\xe2\x82\xac");
  EXPECT_STREQ(Tool::wstr2tstr(std::wstring(3, L'\u20ac')).c_str(), euros(2).c_str());
  const tstr result = Tool::wstr2tstr(whole(L"ab\0cd"));
  EXPECT_STREQ(result.c_str(), "ab");
  EXPECT_EQ(result.length(), 2U);
}

// ---- ICU strings

TEST(Str2ustr, DecodesUtf8InEveryLocale) {
  for (const char* locale : bothLocales) {
    const ScopedLocale scope(locale);
    EXPECT_EQ(str2units(""), u"");
    EXPECT_EQ(str2units("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80z"), u"a\u00e9\u20ac\U0001f600z");
    for (const char32_t c : manyCharacters()) {
      ASSERT_EQ(str2units(utf8(c)), utf16(c)) << "character " << static_cast<unsigned long>(c);
    }
  }
}

TEST(Str2ustr, GivesNothingForMalformedUtf8) {
  for (const char* text : {"\xff", "abc\xff",
                           "\xff"
                           "abc",
                           "a\x80", "a\xe2\x82", "\xe2\x82z", "\xf0\x9f\x98", "\xc3", "\xc0\x80",
                           "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80"}) {
    std::string argument = text;
    const icu::UnicodeString result = Tool::str2ustr(argument);
    EXPECT_TRUE(result.isEmpty()) << shown(text);
    EXPECT_FALSE(result.isBogus()) << shown(text);
  }
}

TEST(Str2ustr, EndsAtAZeroByte) {
  EXPECT_EQ(str2units(whole("ab\0cd")), u"ab");
  EXPECT_EQ(str2units(whole("\0cd")), u"");
  EXPECT_EQ(str2units(whole("ab\0\xff")), u"ab");
}

TEST(Str2ustr, LeavesItsArgumentAsItIs) {
  for (const std::string& text : {whole("ab\0cd"), whole("a\xff"), whole("\xe2\x82\xac")}) {
    std::string argument = text;
    Tool::str2ustr(argument);
    EXPECT_EQ(argument, text);
  }
}

TEST(Str2ustr, ConvertsLongTexts) {
  EXPECT_EQ(str2units(euros(1000000)), std::u16string(1000000, u'\u20ac'));
}

TEST(Ustr2str, EncodesUtf8InEveryLocale) {
  for (const char* locale : bothLocales) {
    const ScopedLocale scope(locale);
    EXPECT_EQ(units2str(u""), "");
    EXPECT_EQ(units2str(u"\u00e9"), "\xc3\xa9");
    EXPECT_EQ(units2str(u"a\u20ac\U0001f600z"), "a\xe2\x82\xac\xf0\x9f\x98\x80z");
    for (const char32_t c : manyCharacters()) {
      ASSERT_EQ(units2str(utf16(c)), utf8(c)) << "character " << static_cast<unsigned long>(c);
    }
  }
}

TEST(Ustr2str, GivesNothingForABogusString) {
  icu::UnicodeString text("abc");
  text.setToBogus();
  EXPECT_EQ(Tool::ustr2str(text), "");
  EXPECT_TRUE(text.isBogus());
}

TEST(Ustr2str, GivesNothingForAnUnpairedSurrogate) {
  for (const std::u16string& text :
       {std::u16string{0xd83d}, std::u16string{0xde00}, std::u16string{'a', 0xd83d},
        std::u16string{'a', 0xd83d, 'b'}, std::u16string{'a', 0xde00, 0xd83d, 'b'},
        std::u16string{'a', 0, 0xd83d}}) {
    EXPECT_EQ(units2str(text), "");
  }
}

TEST(Ustr2str, EndsAtAZeroCharacter) {
  EXPECT_EQ(units2str(whole(u"ab\0cd")), "ab");
  EXPECT_EQ(units2str(whole(u"\0cd")), "");
}

TEST(Ustr2str, LeavesTheTextOfItsArgumentAsItIs) {
  const std::u16string text = whole(u"ab\0\u20ac");
  icu::UnicodeString argument = units(text);
  Tool::ustr2str(argument);
  EXPECT_EQ(unitsOf(argument), text);
}

TEST(Ustr2str, ReadsABufferWithoutTerminator) {
  const char16_t buffer[] = {'a', 'b', 'c', 'd'};
  icu::UnicodeString argument(UBool{0}, buffer, 2);
  EXPECT_EQ(Tool::ustr2str(argument), "ab");
  EXPECT_EQ(unitsOf(argument), u"ab");
  EXPECT_EQ(argument.getBuffer(), buffer);
}

TEST(Ustr2str, ConvertsLongTexts) {
  EXPECT_EQ(units2str(std::u16string(1000000, u'\u20ac')), euros(1000000));
}

TEST(Tstr2ustr, DecodesUtf8) {
  const ScopedLocale scope("C");
  tstr text = "a\xe2\x82\xac";
  EXPECT_EQ(unitsOf(Tool::tstr2ustr(text)), u"a\u20ac");
  EXPECT_STREQ(text.c_str(), "a\xe2\x82\xac");
  tstr cut = wholeTstr(whole("ab\0\xff"));
  EXPECT_EQ(unitsOf(Tool::tstr2ustr(cut)), u"ab");
  EXPECT_EQ(cut.length(), 4U);
  tstr malformed = "a\xff";
  EXPECT_TRUE(Tool::tstr2ustr(malformed).isEmpty());
  tstr empty;
  EXPECT_TRUE(Tool::tstr2ustr(empty).isEmpty());
}

TEST(Ustr2tstr, EncodesUtf8) {
  const ScopedLocale scope("C");
  icu::UnicodeString text = units(u"a\u20ac");
  EXPECT_STREQ(Tool::ustr2tstr(text).c_str(), "a\xe2\x82\xac");
  icu::UnicodeString cut = units(whole(u"ab\0cd"));
  EXPECT_EQ(Tool::ustr2tstr(cut).length(), 2U);
  EXPECT_STREQ(Tool::ustr2tstr(cut).c_str(), "ab");
  icu::UnicodeString malformed = units(std::u16string{'a', 0xd83d});
  EXPECT_EQ(Tool::ustr2tstr(malformed).length(), 0U);
}

// ---- numbers to text

TEST(NumbersToText, AreDecimal) {
  EXPECT_EQ(Tool::int2str(0), "0");
  EXPECT_EQ(Tool::int2str(-42), "-42");
  EXPECT_EQ(Tool::int2str(INT_MAX), "2147483647");
  EXPECT_EQ(Tool::int2str(INT_MIN), "-2147483648");
  EXPECT_EQ(Tool::int2str(0L), "0");
  EXPECT_EQ(Tool::int2str(LONG_MAX), "9223372036854775807");
  EXPECT_EQ(Tool::int2str(LONG_MIN), "-9223372036854775808");
  EXPECT_EQ(Tool::uint2str(0U), "0");
  EXPECT_EQ(Tool::uint2str(UINT_MAX), "4294967295");
  EXPECT_EQ(Tool::uint2str(0UL), "0");
  EXPECT_EQ(Tool::uint2str(ULONG_MAX), "18446744073709551615");
}

TEST(NumbersToText, AreTheSameInWideText) {
  EXPECT_EQ(Tool::int2wstr(-42), L"-42");
  EXPECT_EQ(Tool::int2wstr(INT_MIN), L"-2147483648");
  EXPECT_EQ(Tool::int2wstr(LONG_MAX), L"9223372036854775807");
  EXPECT_EQ(Tool::int2wstr(LONG_MIN), L"-9223372036854775808");
  EXPECT_EQ(Tool::uint2wstr(UINT_MAX), L"4294967295");
  EXPECT_EQ(Tool::uint2wstr(ULONG_MAX), L"18446744073709551615");
}

TEST(NumbersToText, GiveDoublesSixSignificantDigits) {
  const struct {
    double number;
    const char* text;
  } rows[] = {{0.0, "0"},
              {-0.0, "-0"},
              {0.1, "0.1"},
              {0.5, "0.5"},
              {-2.25, "-2.25"},
              {1.0 / 3, "0.333333"},
              {100000.0, "100000"},
              {1000000.0, "1e+06"},
              {1234567.0, "1.23457e+06"},
              {0.0001, "0.0001"},
              {0.00001, "1e-05"},
              {-1.5e300, "-1.5e+300"},
              {-1.23457e-300, "-1.23457e-300"},
              {std::numeric_limits<double>::infinity(), "inf"},
              {-std::numeric_limits<double>::infinity(), "-inf"},
              {std::numeric_limits<double>::quiet_NaN(), "nan"}};
  for (const auto& row : rows) {
    EXPECT_EQ(Tool::double2str(row.number), row.text);
  }
}

TEST(NumbersToText, NeedMemoryOnlyForATextThatIsLong) {
  HeapWatch watch;
  Tool::int2str(INT_MIN);
  Tool::uint2str(UINT_MAX);
  Tool::double2str(-1.23457e-300);
  const int forShortTexts = watch.requests();
  Tool::int2str(LONG_MIN);
  watch.end();
  EXPECT_EQ(forShortTexts, 0);
  EXPECT_EQ(watch.requests(), 1);
}

TEST(NumbersToText, NameTruthValues) {
  EXPECT_EQ(Tool::bool2str(true), "true");
  EXPECT_EQ(Tool::bool2str(false), "false");
}

// ---- text to numbers

template <class Number>
struct Reading {
  std::string text;
  Number number;
};

// By the form that returns the number and by the one that returns a status.
template <class Number>
void expectRead(const std::vector<Reading<Number>>& rows, Number (*read)(const std::string&),
                int (*readInto)(const std::string&, Number&)) {
  for (const Reading<Number>& row : rows) {
    EXPECT_EQ(read(row.text), row.number) << shown(row.text);
    Number number = 77;
    EXPECT_EQ(readInto(row.text, number), done) << shown(row.text);
    EXPECT_EQ(number, row.number) << shown(row.text);
  }
}

TEST(TextToNumbers, ReadsSignedNumbers) {
  const std::vector<Reading<int>> rows = {
      {"0", 0},
      {"42", 42},
      {" 42abc", 42},
      {"\t\n\v\f\r 7", 7},
      {"-42", -42},
      {"+42", 42},
      {"- 42", 0},
      {"abc", 0},
      {"   ", 0},
      {"-", 0},
      {"010", 10},
      {"0x10", 0},
      {"3.9", 3},
      {"12" + zeroByte + "34", 12},
      {zeroByte + "34", 0},
      {"2147483647", INT_MAX},
      {"2147483648", INT_MIN},  // narrowed, not clamped
      {"4294967295", -1},
      {"4294967297", 1},
      {"9223372036854775807", -1},
      {"9223372036854775808", -1},  // beyond long: its largest, narrowed
      {"-9223372036854775809", 0}};
  expectRead(rows, Tool::str2int, Tool::str2int);
}

TEST(TextToNumbers, ReadsUnsignedNumbersAsSignedOnesAndKeepsTheLowHalf) {
  const std::vector<Reading<unsigned int>> rows = {
      {"0", 0},
      {" +42abc", 42},
      {"abc", 0},
      {"  ", 0},
      {"12" + zeroByte + "34", 12},
      {"4294967295", 4294967295U},
      {"-1", 4294967295U},
      {"-2147483648", 2147483648U},
      {"4294967296", 0},
      {"4294967299", 3},
      // Beyond long: 2^63 - 1 by the signed parse, whose low half has all bits.
      {"9223372036854775808", 4294967295U},
      {"18446744073709551616", 4294967295U},
      {"-9223372036854775808", 0},
      {"-9223372036854775809", 0}};
  expectRead(rows, Tool::str2uint, Tool::str2uint);
}

TEST(TextToNumbers, ReadsUnsignedLongNumbersUpToTheLargest) {
  const std::vector<Reading<unsigned long>> rows = {{"0", 0},
                                                    {" +42abc", 42},
                                                    {"abc", 0},
                                                    {"  ", 0},
                                                    {"0x10", 0},
                                                    {"12" + zeroByte + "34", 12},
                                                    {"4294967296", 4294967296UL},
                                                    {"9223372036854775808", 9223372036854775808UL},
                                                    {"18446744073709551615", ULONG_MAX},
                                                    {"18446744073709551616", ULONG_MAX},
                                                    {"-1", ULONG_MAX}};
  for (const auto& row : rows) {
    unsigned long number = 77;
    EXPECT_EQ(Tool::str2uint64(row.text, number), done) << shown(row.text);
    EXPECT_EQ(number, row.number) << shown(row.text);
  }
}

TEST(TextToNumbers, ReadsDoubles) {
  const double infinity = std::numeric_limits<double>::infinity();
  const std::vector<Reading<double>> rows = {{"0", 0.0},
                                             {" -2.5x", -2.5},
                                             {"+1e3", 1000.0},
                                             {"1e", 1.0},
                                             {".5", 0.5},
                                             {"abc", 0.0},
                                             {"  ", 0.0},
                                             {"0x1p3", 8.0},
                                             {"inf", infinity},
                                             {"-1e999", -infinity},
                                             {"1e-999", 0.0},
                                             {"1,5", 1.0},
                                             {"1" + zeroByte + "2", 1.0},
                                             {"0.1", 0.1}};
  expectRead(rows, Tool::str2double, Tool::str2double);
}

TEST(TextToNumbers, GivesZeroForAnEmptyText) {
  EXPECT_EQ(Tool::str2int(""), 0);
  EXPECT_EQ(Tool::str2uint(""), 0U);
  EXPECT_EQ(Tool::str2double(""), 0.0);
}

TEST(TextToNumbers, RefusesAnEmptyTextAndLeavesTheNumber) {
  int signedNumber = 77;
  EXPECT_EQ(Tool::str2int("", signedNumber), refused);
  EXPECT_EQ(signedNumber, 77);
  unsigned int unsignedNumber = 77;
  EXPECT_EQ(Tool::str2uint("", unsignedNumber), refused);
  EXPECT_EQ(unsignedNumber, 77U);
  unsigned long longNumber = 77;
  EXPECT_EQ(Tool::str2uint64("", longNumber), refused);
  EXPECT_EQ(longNumber, 77UL);
  double doubleNumber = 77.0;
  EXPECT_EQ(Tool::str2double("", doubleNumber), refused);
  EXPECT_EQ(doubleNumber, 77.0);
}

// ---- inspection, comparison and case

TEST(IsDigit, HoldsForDecimalDigitsOnly) {
  for (int byte = 0; byte < 256; ++byte) {
    const bool digit = byte >= 48 && byte <= 57;
    const std::string c(1, static_cast<char>(byte));
    EXPECT_EQ(Tool::isDigit(c), digit) << byte;
    EXPECT_EQ(Tool::isDigit(c + "12"), digit) << byte;
    EXPECT_EQ(Tool::isDigit("1" + c + "2"), digit) << byte;
    EXPECT_EQ(Tool::isDigit("12" + c), digit) << byte;
  }
  EXPECT_TRUE(Tool::isDigit("0123456789"));
  EXPECT_FALSE(Tool::isDigit("12a"));
  EXPECT_FALSE(Tool::isDigit(" 1"));
}

TEST(IsDigit, HoldsForAnEmptyText) { EXPECT_TRUE(Tool::isDigit("")); }

int asciiUpper(int c) { return c >= 97 && c <= 122 ? c - 32 : c; }
int asciiLower(int c) { return c >= 65 && c <= 90 ? c + 32 : c; }

TEST(CompareNoCase, ComparesPositionByPosition) {
  const struct {
    std::string first;
    std::string second;
    bool equal;
  } rows[] = {{"Host1", "hOST1", true},
              {"", "", true},
              {"a", "ab", false},
              {"ab", "a", false},
              {"", "a", false},
              {"abc", "Xbc", false},
              {"abc", "aXc", false},
              {"abc", "abX", false},
              {"ab-c", "AB-C", true},
              {whole("a\0b"), whole("A\0B"), true},
              {whole("a\0b"), whole("A\0C"), false},
              {whole("a\0"), "a", false},
              // The bytes of these letters are none by themselves.
              {"\xc3\xa9", "\xc3\x89", false},
              {std::string(1000000, 'a'), std::string(1000000, 'A'), true},
              {std::string(1000000, 'a') + "b", std::string(1000000, 'A') + "c", false}};
  for (const char* locale : bothLocales) {
    const ScopedLocale scope(locale);
    for (const auto& row : rows) {
      EXPECT_EQ(Tool::CompareNoCase(row.first, row.second), row.equal)
          << row.first.substr(0, 10) << " " << row.second.substr(0, 10);
    }
  }
}

TEST(CompareNoCase, ComparesWideTextByTheLocale) {
  {
    const ScopedLocale scope("C.utf8");
    EXPECT_TRUE(Tool::CompareNoCase(std::wstring(L"caf\u00e9"), std::wstring(L"CAF\u00c9")));
    // Equal in upper case only.
    EXPECT_TRUE(Tool::CompareNoCase(std::wstring(L"s"), std::wstring(L"\u017f")));
  }
  const ScopedLocale scope("C");
  EXPECT_FALSE(Tool::CompareNoCase(std::wstring(L"caf\u00e9"), std::wstring(L"CAF\u00c9")));
  EXPECT_TRUE(Tool::CompareNoCase(std::wstring(), std::wstring()));
  EXPECT_FALSE(Tool::CompareNoCase(std::wstring(L"a"), std::wstring(L"ab")));
  EXPECT_TRUE(Tool::CompareNoCase(whole(L"a\0b"), whole(L"A\0B")));
  EXPECT_FALSE(Tool::CompareNoCase(whole(L"a\0b"), whole(L"A\0C")));
}

TEST(Case, MapsTheLettersOfAllBytes) {
  std::string text;
  std::string lower;
  std::string upper;
  for (int byte = 0; byte < 256; ++byte) {
    text += static_cast<char>(byte);
    lower += static_cast<char>(asciiLower(byte));
    upper += static_cast<char>(asciiUpper(byte));
  }
  for (const char* locale : bothLocales) {  // no byte above 0x7f is a letter in either
    const ScopedLocale scope(locale);
    EXPECT_EQ(Tool::tostrlower(text), lower);
    EXPECT_EQ(Tool::tostrupper(text), upper);
    EXPECT_EQ(Tool::tostrlower(std::string()), "");
    EXPECT_EQ(Tool::tostrupper(std::string()), "");
  }
}

TEST(Case, MapsTheLettersOfWideTextByTheLocale) {
  {
    const ScopedLocale scope("C.utf8");
    EXPECT_EQ(Tool::tostrupper(std::wstring(L"caf\u00e9-1")), L"CAF\u00c9-1");
    EXPECT_EQ(Tool::tostrlower(std::wstring(L"CAF\u00c9-1")), L"caf\u00e9-1");
  }
  const ScopedLocale scope("C");
  EXPECT_EQ(Tool::tostrupper(std::wstring(L"caf\u00e9-1")), L"CAF\u00e9-1");
  EXPECT_EQ(Tool::tostrlower(std::wstring(L"CAF\u00c9-1")), L"caf\u00c9-1");
}

TEST(Case, MapsLongTexts) {
  EXPECT_EQ(Tool::tostrlower(std::string(1000000, 'A')), std::string(1000000, 'a'));
  EXPECT_EQ(Tool::tostrupper(std::string(1000000, 'a')), std::string(1000000, 'A'));
}

// ---- trimming

TEST(Trim, AgreesWithThePlainFormOnAllShortTexts) {
  for (const std::string& text : allTexts(whole("xa\0"), 6)) {
    for (const char* set : {static_cast<const char*>(nullptr), "", "x", "a", "ax", "xax", "q"}) {
      SCOPED_TRACE(shown(text) + " by " + (set == nullptr ? "null" : set));
      ASSERT_EQ(Tool::ltrim(text, set), plainlyLeftTrimmed(text, set));
      ASSERT_EQ(Tool::rtrim(text, set), plainlyRightTrimmed(text, set));
      ASSERT_EQ(Tool::trim(text, set), plainlyRightTrimmed(plainlyLeftTrimmed(text, set), set));
    }
  }
}

TEST(Trim, RemovesTheSetsBytesAtTheEnds) {
  EXPECT_EQ(Tool::trim("  a b \t", " \t"), "a b");
  EXPECT_EQ(Tool::ltrim("  a b \t", " \t"), "a b \t");
  EXPECT_EQ(Tool::rtrim("  a b \t", " \t"), "  a b");
  EXPECT_EQ(Tool::trim("xxx", "x"), "");
  EXPECT_EQ(Tool::ltrim("xxx", "x"), "");
  EXPECT_EQ(Tool::rtrim("xxx", "x"), "");
  EXPECT_EQ(Tool::ltrim("abc", nullptr), "abc");
  EXPECT_EQ(Tool::trim("\xff\xfe"
                       "a\xff",
                       "\xff\xfe"),
            "a");
}

TEST(Trim, RemovesTheLibrarysWhiteSpaceByDefault) {
  const std::string text = " \n\t\r\v \f\r\t\n ";
  EXPECT_EQ(Tool::ltrim(text), "\v \f\r\t\n ");
  EXPECT_EQ(Tool::rtrim(text), " \n\t\r\v \f");
  EXPECT_EQ(Tool::trim(text), "\v \f");
}

TEST(Trim, EndsAtAKeptZeroByteOnlyWhereItTrimsOnTheLeft) {
  const std::string text = whole(" a\0b ");
  EXPECT_EQ(Tool::ltrim(text, " "), "a");
  EXPECT_EQ(Tool::trim(text, " "), "a");
  EXPECT_EQ(Tool::rtrim(text, " "), whole(" a\0b"));
  EXPECT_EQ(Tool::ltrim(whole("a\0b"), "x"), "a");  // nothing to remove, and yet
  EXPECT_EQ(Tool::ltrim(whole("a\0b"), ""), whole("a\0b"));
  EXPECT_EQ(Tool::ltrim(whole("a\0b"), nullptr), whole("a\0b"));
}

TEST(Trim, TakesLongTexts) {
  const std::string blanks(1000000, ' ');
  EXPECT_EQ(Tool::ltrim(blanks + "a"), "a");
  EXPECT_EQ(Tool::rtrim("a" + blanks), "a");
  EXPECT_EQ(Tool::trim(blanks + "a" + blanks), "a");
  EXPECT_EQ(Tool::trim(blanks), "");
}

TEST(Trim, TakesASetAsLongAsTheText) {
  const std::string text(1 << 22, 'a');
  const std::string set = std::string(text.size(), 'b') + "a";  // one by one: 10^13 comparisons
  EXPECT_EQ(Tool::ltrim(text, set.c_str()), "");
  EXPECT_EQ(Tool::rtrim(text, set.c_str()), "");
  EXPECT_EQ(Tool::trim(text + "c" + text, set.c_str()), "c");
}

// ---- find

struct Found {
  unsigned long position;
  unsigned long index;
  bool operator==(const Found& other) const {
    return position == other.position && index == other.index;
  }
};
void PrintTo(const Found& found, std::ostream* out) {
  *out << "position " << found.position << " of " << found.index;
}

constexpr unsigned long nowhere = std::string::npos;

Found findIn(const std::vector<std::string>& list, const char* pattern, unsigned long index,
             bool trimRight = false) {
  const unsigned long position = Tool::find(list, pattern, index, trimRight);
  return {position, index};
}

TEST(Find, GivesTheFirstTextThatContainsThePattern) {
  const std::vector<std::string> list{"abc", "xbcbc", "bc"};
  EXPECT_EQ(findIn(list, "bc", 0), (Found{1, 0}));
  EXPECT_EQ(findIn(list, "bc", 1), (Found{1, 1}));
  EXPECT_EQ(findIn(list, "bc", 2), (Found{0, 2}));
  EXPECT_EQ(findIn(list, "xb", 0), (Found{0, 1}));
  EXPECT_EQ(findIn(list, "bcb", 0), (Found{1, 1}));
}

TEST(Find, SetsTheIndexToTheSizeWhenNothingMatches) {
  EXPECT_EQ(findIn({"abc", "xyz"}, "q", 0), (Found{nowhere, 2}));
  EXPECT_EQ(findIn({"abc", "xyz"}, "BC", 0), (Found{nowhere, 2}));
  EXPECT_EQ(findIn({"abc", "xyz"}, "bc", 1), (Found{nowhere, 2}));
  EXPECT_EQ(findIn({"abc", "xyz"}, "bc", 2), (Found{nowhere, 2}));
  EXPECT_EQ(findIn({}, "bc", 0), (Found{nowhere, 0}));
}

TEST(Find, LeavesAnIndexThatLiesPastTheEnd) {
  EXPECT_EQ(findIn({"abc", "xyz"}, "bc", 3), (Found{nowhere, 3}));
  EXPECT_EQ(findIn({"abc", "xyz"}, "bc", ULONG_MAX), (Found{nowhere, ULONG_MAX}));
  EXPECT_EQ(findIn({}, "bc", 5), (Found{nowhere, 5}));
}

TEST(Find, GoesOnWhenCalledWithTheNextIndex) {
  const std::vector<std::string> list{"a1", "b", "xa", "c", "a"};
  std::vector<unsigned long> found;
  unsigned long index = 0;
  while (Tool::find(list, "a", index, false) != nowhere) {
    found.push_back(index++);
  }
  EXPECT_THAT(found, ElementsAre(0, 2, 4));
  EXPECT_EQ(index, 5UL);
}

TEST(Find, SearchesWithoutTrailingWhiteSpaceWhereAskedTo) {
  const std::vector<std::string> list{"abc  ", "xyz"};
  EXPECT_EQ(findIn(list, "c  ", 0, true), (Found{nowhere, 2}));
  EXPECT_EQ(findIn(list, "c  ", 0, false), (Found{2, 0}));
  EXPECT_EQ(findIn(list, "c", 0, true), (Found{2, 0}));
  EXPECT_EQ(findIn({"  a b \n\t\r "}, "a b", 0, true), (Found{2, 0}));
  for (const char* blank : {"a ", "a\n", "a\t", "a\r"}) {
    EXPECT_EQ(findIn({blank}, blank, 0, true), (Found{nowhere, 1})) << shown(blank);
  }
  for (const char* other : {"a\v", "a\f"}) {
    EXPECT_EQ(findIn({other}, other, 0, true), (Found{0, 0})) << shown(other);
  }
  EXPECT_EQ(findIn({" \t "}, " ", 0, true), (Found{nowhere, 1}));
}

TEST(Find, FindsAnEmptyPatternEverywhere) {
  EXPECT_EQ(findIn({"abc"}, "", 0), (Found{0, 0}));
  EXPECT_EQ(findIn({""}, "", 0), (Found{0, 0}));
  EXPECT_EQ(findIn({"  "}, "", 0, true), (Found{0, 0}));
  EXPECT_EQ(findIn({}, "", 0), (Found{nowhere, 0}));
}

TEST(Find, LooksBeyondZeroBytes) {
  EXPECT_EQ(findIn({whole("a\0b")}, "b", 0), (Found{2, 0}));
  EXPECT_EQ(findIn({whole("a\0b ")}, "b", 0, true), (Found{2, 0}));
}

TEST(Find, AgreesWithThePlainFormOnAllShortTexts) {
  const std::vector<std::string> patterns = allTexts("ab ", 3);
  for (const std::string& text : allTexts(whole("ab \0"), 5)) {
    for (const std::string& pattern : patterns) {
      for (const bool trimRight : {false, true}) {
        const size_t position = plainlyFound(text, pattern, trimRight);
        ASSERT_EQ(findIn({text}, pattern.c_str(), 0, trimRight),
                  (Found{position, position == nowhere ? 1UL : 0UL}))
            << shown(text) << " for " << shown(pattern) << (trimRight ? " trimmed" : "");
      }
    }
  }
}

TEST(Find, TakesALongPatternThatAlmostMatchesEverywhere) {
  const std::string half(1 << 22, 'a');
  const std::vector<std::string> list{half + half + "  "};
  // From every place anew: 10^13 comparisons.
  EXPECT_EQ(findIn(list, (half + "b").c_str(), 0), (Found{nowhere, 1}));
  EXPECT_EQ(findIn(list, ("b" + half).c_str(), 0, true), (Found{nowhere, 1}));
  EXPECT_EQ(findIn(list, (half + " ").c_str(), 0), (Found{half.size(), 0}));
  EXPECT_EQ(findIn(list, (half + " ").c_str(), 0, true), (Found{nowhere, 1}));
}

TEST(Find, CopiesNoTextInOrderToTrimIt) {
  const std::vector<std::string> list{std::string(100, 'a') + "  ", std::string(100, 'b') + "  "};
  unsigned long index = 0;
  HeapWatch watch;
  const unsigned long position = Tool::find(list, "bb", index, true);
  watch.end();
  EXPECT_EQ(position, 0UL);
  EXPECT_EQ(index, 1UL);
  EXPECT_EQ(watch.requests(), 0);
}

// ---- searchreplace

TEST(Searchreplace, AgreesWithThePlainFormOnAllShortTexts) {
  for (const std::string& text : allTexts("ab", 7)) {
    for (const std::string& from : allTexts("ab", 3)) {
      for (const std::string& to : allTexts("ab", 2)) {
        ASSERT_EQ(Tool::searchreplace(text, from, to), plainlyReplaced(text, from, to))
            << text << ": " << from << " by " << to;
      }
    }
  }
}

TEST(Searchreplace, ReplacesFromLeftToRightWithoutOverlap) {
  EXPECT_EQ(Tool::searchreplace("aaa", "aa", "b"), "ba");
  EXPECT_EQ(Tool::searchreplace("a&b&c", "&", "&amp;"), "a&amp;b&amp;c");
  EXPECT_EQ(Tool::searchreplace("abcabc", "abc", ""), "");
  EXPECT_EQ(Tool::searchreplace("abc", "abcd", "x"), "abc");
  EXPECT_EQ(Tool::searchreplace("\xff\xfe", "\xfe", "\x80"), "\xff\x80");
}

TEST(Searchreplace, GivesNothingForAnEmptyText) {
  EXPECT_EQ(Tool::searchreplace("", "a", "b"), "");
  EXPECT_EQ(Tool::searchreplace("", "", "b"), "");
}

TEST(Searchreplace, CopiesTheTextAsItIsWhenThereIsNothingToSearchFor) {
  EXPECT_EQ(Tool::searchreplace("abc", "", "x"), "abc");
  EXPECT_EQ(Tool::searchreplace(whole("a\0b"), "", "x"), whole("a\0b"));
}

TEST(Searchreplace, EndsItsResultAtAZeroByte) {
  EXPECT_EQ(Tool::searchreplace(whole("ab\0ab"), "b", "c"), "ac");
  EXPECT_EQ(Tool::searchreplace(whole("ab\0ab"), "q", "c"), "ab");  // nothing replaced, and yet
  EXPECT_EQ(Tool::searchreplace(whole("\0ab"), "b", "c"), "");
  EXPECT_EQ(Tool::searchreplace("aXb", "X", "1" + zeroByte + "2"), "a1");
}

TEST(Searchreplace, SearchesForZeroBytesToo) {
  EXPECT_EQ(Tool::searchreplace(whole("a\0b\0c"), whole("\0"), "-"), "a-b-c");
  EXPECT_EQ(Tool::searchreplace(whole("a\0b\0c"), whole("\0b"), "-"), "a-");
  EXPECT_EQ(Tool::searchreplace(whole("a\0b"), whole("a\0"), ""), "b");
}

TEST(Searchreplace, TakesLongTexts) {
  const std::string text(1000000, 'a');
  EXPECT_EQ(Tool::searchreplace(text, std::string(1000, 'a'), "b"), std::string(1000, 'b'));
  EXPECT_EQ(Tool::searchreplace(text, std::string(1000, 'a'), std::string(2000, 'b')),
            std::string(2000000, 'b'));
  EXPECT_EQ(Tool::searchreplace(text, text, ""), "");
  // Each place matches almost to the end.
  EXPECT_EQ(Tool::searchreplace(text, std::string(1000, 'a') + "b", "x"), text);
  EXPECT_EQ(Tool::searchreplace(text, "b" + std::string(1000, 'a'), "x"), text);
}

TEST(Searchreplace, TakesManyMatches) {
  const std::string text(20000, 'a');
  EXPECT_EQ(Tool::searchreplace(text, "a", "bb"), std::string(40000, 'b'));
  EXPECT_EQ(Tool::searchreplace(text, "aa", "b"), std::string(10000, 'b'));
  EXPECT_EQ(Tool::searchreplace(text, "a", ""), "");
}

// ---- duplicates

struct Freed {
  void operator()(void* block) const { std::free(block); }
};
template <class Char>
using Duplicate = std::unique_ptr<Char[], Freed>;

std::vector<size_t> requestedSizes(const HeapWatch& watch) {
  std::vector<size_t> sizes;
  for (size_t i = 0; i < static_cast<size_t>(watch.requests()); ++i) {
    sizes.push_back(watch.request(i).size);
  }
  return sizes;
}

std::vector<unsigned long> askedFor;
alignas(wchar_t) char arena[256];

void* fromArena(unsigned long size) {
  askedFor.push_back(size);
  std::memset(arena, '#', sizeof arena);
  return arena;
}

TEST(Strdup, CopiesTheTextWithItsTerminatorIntoTheAllocatorsBlock) {
  for (const std::string& text :
       {std::string(), std::string("abc"), whole("a\0b"), whole("\xff\0")}) {
    askedFor.clear();
    EXPECT_EQ(Tool::strdup(text, fromArena), arena);
    EXPECT_THAT(askedFor, ElementsAre(text.size() + 1));
    EXPECT_EQ(std::string(arena, text.size() + 2), text + '\0' + '#') << shown(text);
  }
}

TEST(Wstrdup, CopiesTheTextWithItsTerminatorIntoTheAllocatorsBlock) {
  for (const std::wstring& text : {std::wstring(), std::wstring(L"ab\u20ac"), whole(L"a\0b")}) {
    askedFor.clear();
    EXPECT_EQ(static_cast<void*>(Tool::wstrdup(text, fromArena)), static_cast<void*>(arena));
    EXPECT_THAT(askedFor, ElementsAre((text.size() + 1) * 4));
    EXPECT_EQ(std::memcmp(arena, text.c_str(), (text.size() + 1) * 4), 0);
    EXPECT_EQ(arena[(text.size() + 1) * 4], '#');
  }
}

TEST(Tstrdup, CopiesUpToAZeroByteIntoTheAllocatorsBlock) {
  askedFor.clear();
  EXPECT_EQ(Tool::tstrdup(wholeTstr(whole("ab\0cd")), fromArena), arena);
  EXPECT_THAT(askedFor, ElementsAre(3));
  EXPECT_EQ(std::string(arena, 4), whole("ab\0#"));
  askedFor.clear();
  Tool::tstrdup(tstr(), fromArena);
  EXPECT_THAT(askedFor, ElementsAre(1));
  EXPECT_EQ(std::string(arena, 2), whole("\0#"));
}

TEST(Duplicates, ComeFromMallocWithoutAnAllocator) {
  const std::string text = "abc";
  const std::wstring wideText = L"abc";
  const tstr aceText = "abc";
  HeapWatch watch;
  const Duplicate<char> narrow(Tool::strdup(text, nullptr));
  const Duplicate<wchar_t> wide(Tool::wstrdup(wideText, nullptr));
  const Duplicate<char> ace(Tool::tstrdup(aceText, nullptr));
  watch.end();
  EXPECT_THAT(requestedSizes(watch), ElementsAre(4, 16, 4));
  EXPECT_EQ(watch.requests(HeapCall::malloc), 3);
  EXPECT_STREQ(narrow.get(), "abc");
  EXPECT_STREQ(wide.get(), L"abc");
  EXPECT_STREQ(ace.get(), "abc");
}

TEST(Duplicates, TakeLongTexts) {
  const std::string text(1000000, 'a');
  const Duplicate<char> copy(Tool::strdup(text, nullptr));
  EXPECT_EQ(copy.get(), text);
}

TEST(Tstrduplist, CopiesTheTextsInOrderAndEndsWithNull) {
  const std::vector<tstr> list{tstr("one"), tstr(), wholeTstr(whole("two\0three")), tstr("one")};
  HeapWatch watch;
  char** copies = Tool::tstrduplist(list);
  watch.end();
  EXPECT_THAT(requestedSizes(watch), ElementsAre(5 * sizeof(char*), 4, 1, 4, 4));
  EXPECT_EQ(watch.requests(HeapCall::malloc), 5);
  ASSERT_NE(copies, nullptr);
  EXPECT_STREQ(copies[0], "one");
  EXPECT_STREQ(copies[1], "");
  EXPECT_STREQ(copies[2], "two");
  EXPECT_STREQ(copies[3], "one");
  EXPECT_NE(copies[0], copies[3]);
  EXPECT_EQ(copies[4], nullptr);
  Tool::tstrfreelist(copies);
  EXPECT_EQ(copies, nullptr);
}

TEST(Tstrduplist, GivesAnArrayOfOneNullForNoTexts) {
  char** copies = Tool::tstrduplist({});
  ASSERT_NE(copies, nullptr);
  EXPECT_EQ(copies[0], nullptr);
  Tool::tstrfreelist(copies);
  EXPECT_EQ(copies, nullptr);
}

TEST(Tstrduplist, GivesNullWhenTheArrayCannotBeAllocated) {
  const std::vector<tstr> list{tstr("one")};
  HeapWatch watch(1);
  char** copies = Tool::tstrduplist(list);
  watch.end();
  EXPECT_EQ(copies, nullptr);
  EXPECT_EQ(watch.requests(), 1);
}

TEST(Tstrduplist, FreesWhatItHasCopiedWhenACopyThrows) {
  // Only the long text needs a block of its own on its way: the fourth, after array and copies.
  const std::vector<tstr> list{tstr("one"), tstr("two"), tstr(std::string(40, 'x').c_str()),
                               tstr("four")};
  bool thrown = false;
  HeapWatch watch(4);
  try {
    Tool::tstrduplist(list);
  } catch (const std::bad_alloc&) {
    thrown = true;
  }
  watch.end();
  EXPECT_TRUE(thrown);
  EXPECT_EQ(watch.request(3).size, 41U);
  EXPECT_EQ(watch.refused(), 1);
  EXPECT_EQ(watch.blocks(), 0);
}

TEST(Tstrfreelist, DoesNothingWithNull) {
  char** list = nullptr;
  Tool::tstrfreelist(list);
  EXPECT_EQ(list, nullptr);
}

TEST(Tstrfreelist, FreesUpToTheFirstNull) {
  char** list = static_cast<char**>(std::malloc(3 * sizeof(char*)));
  char untouched[] = "not from the heap";
  list[0] = Tool::strdup("a", nullptr);
  list[1] = nullptr;
  list[2] = untouched;
  Tool::tstrfreelist(list);
  EXPECT_EQ(list, nullptr);
}

}  // namespace
