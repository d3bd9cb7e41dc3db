#include "Q_strtoimax.h"

#include "Q_strtoumax.h"
#include "all_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace {

constexpr int untouched = 12345;

template <class Number>
struct Conversion {
  Number value;
  ptrdiff_t consumed;
  int error;
};

template <class Number>
Conversion<Number> convert(Number (*converter)(const char*, char**, int), const std::string& text,
                           int base) {
  char* end = nullptr;
  errno = untouched;
  const Number value = converter(text.c_str(), &end, base);
  return {value, end - text.c_str(), errno};
}

struct Case {
  const char* text;
  int base;
  intmax_t value;
  uintmax_t unsignedValue;
  ptrdiff_t consumed;
};

const Case cases[] = {
    {"", 10, 0, 0, 0},
    {"  ", 10, 0, 0, 0},
    {"abc", 10, 0, 0, 0},
    {"+", 10, 0, 0, 0},
    {" - 1", 10, 0, 0, 0},
    {"+-1", 10, 0, 0, 0},
    {"0", 10, 0, 0, 1},
    {"-0", 10, 0, 0, 2},
    {"42x", 10, 42, 42, 2},
    {" \t\n\v\f\r+42", 10, 42, 42, 9},
    {"-42", 10, -42, UINTMAX_MAX - 41, 3},
    {"0042", 10, 42, 42, 4},
    {"102", 2, 2, 2, 2},
    {"0778", 8, 63, 63, 3},
    {"0x1f", 8, 0, 0, 1},
    {"0x1f", 10, 0, 0, 1},
    {"0x1f", 16, 31, 31, 4},
    {"0X1Fg", 16, 31, 31, 4},
    {"-0x1f", 16, -31, UINTMAX_MAX - 30, 5},
    {"1fg", 16, 31, 31, 2},
    {"0x", 16, 0, 0, 1},
    {"0xg", 16, 0, 0, 1},
    {"x1", 16, 0, 0, 0},
    {"zZ", 36, 35 * 36 + 35, 35 * 36 + 35, 2},
    {"z", 35, 0, 0, 0},
    {"0x1", 36, 33 * 36 + 1, 33 * 36 + 1, 3},
    {"0x1f", 0, 31, 31, 4},
    {"0X1f", 0, 31, 31, 4},
    {"0x", 0, 0, 0, 1},
    {"0xg", 0, 0, 0, 1},
    {"-0xg", 0, 0, 0, 2},
    {"017", 0, 15, 15, 3},
    {"08", 0, 0, 0, 1},
    {"19a", 0, 19, 19, 2},
    // Binary numbers have no prefix.
    {"0b1", 0, 0, 0, 1},
    {"0b1", 2, 0, 0, 1},
    {"0b1", 16, 0xb1, 0xb1, 3},
};

TEST(Strtoimax, ConvertsTheLongestNumberAtTheStart) {
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("\"") + c.text + "\" base " + std::to_string(c.base));
    const auto number = convert(__Qstrtoimax, c.text, c.base);
    EXPECT_EQ(number.value, c.value);
    EXPECT_EQ(number.consumed, c.consumed);
    EXPECT_EQ(number.error, untouched);
  }
}

TEST(Strtoumax, ConvertsTheLongestNumberAtTheStart) {
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("\"") + c.text + "\" base " + std::to_string(c.base));
    const auto number = convert(__Qstrtoumax, c.text, c.base);
    EXPECT_EQ(number.value, c.unsignedValue);
    EXPECT_EQ(number.consumed, c.consumed);
    EXPECT_EQ(number.error, untouched);
  }
}

TEST(Strtoimax, StopsAtTheRangeOfTheType) {
  const struct {
    const char* text;
    intmax_t value;
    int error;
  } limits[] = {
      {"9223372036854775806", INTMAX_MAX - 1, untouched},
      {"9223372036854775807", INTMAX_MAX, untouched},
      {"9223372036854775808", INTMAX_MAX, ERANGE},
      {"-9223372036854775807", INTMAX_MIN + 1, untouched},
      {"-9223372036854775808", INTMAX_MIN, untouched},
      {"-9223372036854775809", INTMAX_MIN, ERANGE},
      {"18446744073709551615", INTMAX_MAX, ERANGE},
      {"18446744073709551616", INTMAX_MAX, ERANGE},
      {"-18446744073709551616", INTMAX_MIN, ERANGE},
  };
  for (const auto& limit : limits) {
    SCOPED_TRACE(limit.text);
    const auto number = convert(__Qstrtoimax, limit.text, 10);
    EXPECT_EQ(number.value, limit.value);
    EXPECT_EQ(number.error, limit.error);
    EXPECT_EQ(number.consumed, static_cast<ptrdiff_t>(std::string(limit.text).size()));
  }
}

TEST(Strtoumax, StopsAtTheRangeOfTheType) {
  const struct {
    const char* text;
    uintmax_t value;
    int error;
  } limits[] = {
      {"18446744073709551614", UINTMAX_MAX - 1, untouched},
      {"18446744073709551615", UINTMAX_MAX, untouched},
      {"18446744073709551616", UINTMAX_MAX, ERANGE},
      {"-18446744073709551615", 1, untouched},
      {"-18446744073709551616", UINTMAX_MAX, ERANGE},
  };
  for (const auto& limit : limits) {
    SCOPED_TRACE(limit.text);
    const auto number = convert(__Qstrtoumax, limit.text, 10);
    EXPECT_EQ(number.value, limit.value);
    EXPECT_EQ(number.error, limit.error);
    EXPECT_EQ(number.consumed, static_cast<ptrdiff_t>(std::string(limit.text).size()));
  }
}

std::string digitsOf(uintmax_t value, unsigned base) {
  std::string digits;
  for (; value != 0; value /= base) {
    digits += "0123456789abcdefghijklmnopqrstuvwxyz"[value % base];
  }
  std::reverse(digits.begin(), digits.end());
  return digits;
}

std::string plusOne(std::string digits, unsigned base) {
  const char highest = digitsOf(base - 1, base)[0];
  for (size_t i = digits.size(); i-- > 0;) {
    if (digits[i] != highest) {
      digits[i] = digits[i] == '9' ? 'a' : static_cast<char>(digits[i] + 1);
      return digits;
    }
    digits[i] = '0';
  }
  return "1" + digits;
}

TEST(Converters, KnowTheirLimitsInEveryBase) {
  for (unsigned base = 2; base <= 36; ++base) {
    SCOPED_TRACE(base);
    const int asInt = static_cast<int>(base);
    const std::string greatest = digitsOf(UINTMAX_MAX, base);
    EXPECT_EQ(convert(__Qstrtoumax, greatest, asInt).value, UINTMAX_MAX);
    EXPECT_EQ(convert(__Qstrtoumax, greatest, asInt).error, untouched);
    EXPECT_EQ(convert(__Qstrtoumax, plusOne(greatest, base), asInt).value, UINTMAX_MAX);
    EXPECT_EQ(convert(__Qstrtoumax, plusOne(greatest, base), asInt).error, ERANGE);

    const std::string greatestSigned = digitsOf(INTMAX_MAX, base);
    const std::string least = "-" + plusOne(greatestSigned, base);
    EXPECT_EQ(convert(__Qstrtoimax, greatestSigned, asInt).value, INTMAX_MAX);
    EXPECT_EQ(convert(__Qstrtoimax, greatestSigned, asInt).error, untouched);
    EXPECT_EQ(convert(__Qstrtoimax, plusOne(greatestSigned, base), asInt).error, ERANGE);
    EXPECT_EQ(convert(__Qstrtoimax, least, asInt).value, INTMAX_MIN);
    EXPECT_EQ(convert(__Qstrtoimax, least, asInt).error, untouched);
  }
}

TEST(Converters, ReadAnOverlongNumberToItsEnd) {
  // The magnitude wraps to 0 on the way, which must not look like a number that fits.
  const std::string text = "1" + std::string(1000, '0') + "7";
  for (const int base : {2, 8, 10, 16}) {
    SCOPED_TRACE(base);
    const bool lastIsDigit = base != 2;
    const ptrdiff_t length = lastIsDigit ? 1002 : 1001;
    EXPECT_EQ(convert(__Qstrtoimax, text, base).value, INTMAX_MAX);
    EXPECT_EQ(convert(__Qstrtoimax, text, base).consumed, length);
    EXPECT_EQ(convert(__Qstrtoumax, text, base).value, UINTMAX_MAX);
    EXPECT_EQ(convert(__Qstrtoumax, text, base).error, ERANGE);
  }
}

TEST(Converters, RefuseABadBase) {
  for (const int base : {-1, 1, 37, INT32_MIN, INT32_MAX}) {
    SCOPED_TRACE(base);
    const auto number = convert(__Qstrtoimax, "11", base);
    EXPECT_EQ(number.value, 0);
    EXPECT_EQ(number.consumed, 0);
    EXPECT_EQ(number.error, EINVAL);
    const auto unsignedNumber = convert(__Qstrtoumax, "11", base);
    EXPECT_EQ(unsignedNumber.value, 0U);
    EXPECT_EQ(unsignedNumber.consumed, 0);
    EXPECT_EQ(unsignedNumber.error, EINVAL);
  }
}

TEST(Converters, NeedNoPlaceForTheEnd) {
  EXPECT_EQ(__Qstrtoimax("-12x", nullptr, 10), -12);
  EXPECT_EQ(__Qstrtoumax("12x", nullptr, 10), 12U);
}

void expectThePlatforms(const std::string& text, int base) {
  const auto expected = convert(strtoimax, text, base);
  const auto actual = convert(__Qstrtoimax, text, base);
  const auto unsignedExpected = convert(strtoumax, text, base);
  const auto unsignedActual = convert(__Qstrtoumax, text, base);
  const bool badBase = base == 1 || base == 37;  // the platform then sets no end
  ASSERT_TRUE(actual.value == expected.value && actual.error == expected.error &&
              actual.consumed == (badBase ? 0 : expected.consumed))
      << '"' << text << "\" base " << base;
  ASSERT_TRUE(unsignedActual.value == unsignedExpected.value &&
              unsignedActual.error == unsignedExpected.error &&
              unsignedActual.consumed == (badBase ? 0 : unsignedExpected.consumed))
      << '"' << text << "\" base " << base;
}

TEST(Converters, AgreeWithThePlatformOnEveryShortText) {
  for (const std::string& text : kelp_test::allTexts("0179afxzX+- \t", 4)) {
    for (const int base : {0, 2, 8, 10, 16, 36, 1, 37}) {
      ASSERT_NO_FATAL_FAILURE(expectThePlatforms(text, base));
    }
  }
}

TEST(Converters, AgreeWithThePlatformOnEveryByte) {
  for (int byte = 1; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    for (int base = 0; base <= 37; ++base) {
      ASSERT_NO_FATAL_FAILURE(expectThePlatforms(text, base));
      ASSERT_NO_FATAL_FAILURE(expectThePlatforms("1" + text, base));
    }
  }
}

}  // namespace
