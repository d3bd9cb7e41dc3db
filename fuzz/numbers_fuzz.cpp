// Numbers are written, and texts read, as plain forms and the platform do it, in every direction of
// rounding and with a decimal comma; what was written is read back.
#include "Q_strtoimax.h"
#include "Q_strtoumax.h"
#include "cmnstringtool.h"
#include "comma_locale.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "locales.h"
#include "plain_text.h"

#include <cctype>
#include <cerrno>
#include <cfenv>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_fuzz::atEdge;
using kelp_fuzz::expect;
using kelp_fuzz::Input;
using kelp_test::plainDecimal;
using kelp_test::widened;

// As long as it lives, the thread's locale has a decimal comma.
class WithComma {
 public:
  WithComma() {
    static const locale_t commas = [] {
      const kelp_test::CommaLocale made;
      return duplocale(LC_GLOBAL_LOCALE);
    }();
    uselocale(commas);
  }
  ~WithComma() { uselocale(LC_GLOBAL_LOCALE); }
  WithComma(const WithComma&) = delete;
  WithComma& operator=(const WithComma&) = delete;
};

class WithRounding {
 public:
  explicit WithRounding(size_t number) {
    constexpr int directions[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
    std::fesetround(directions[number]);
  }
  ~WithRounding() { std::fesetround(FE_TONEAREST); }
  WithRounding(const WithRounding&) = delete;
  WithRounding& operator=(const WithRounding&) = delete;
};

template <class Number>
void checkInteger(Number number, std::string (*narrow)(Number), std::wstring (*wide)(Number)) {
  const std::string expected = plainDecimal(number);
  expect(narrow(number) == expected, "the digits of the number");
  expect(wide(number) == widened(expected), "the same in wide characters");
}

void checkWritten(uint64_t bits, double floating) {
  checkInteger<int>(static_cast<int>(bits), Tool::int2str, Tool::int2wstr);
  checkInteger<long>(static_cast<long>(bits), Tool::int2str, Tool::int2wstr);
  checkInteger<unsigned int>(static_cast<unsigned int>(bits), Tool::uint2str, Tool::uint2wstr);
  checkInteger<unsigned long>(bits, Tool::uint2str, Tool::uint2wstr);
  expect(Tool::double2str(floating) == kelp_test::plainDouble(floating), "what %g makes of it");

  const auto number = static_cast<int>(bits);
  const auto unsignedNumber = static_cast<unsigned int>(bits);
  expect(Tool::str2int(Tool::int2str(number)) == number, "the same int");
  expect(Tool::str2uint(Tool::uint2str(unsignedNumber)) == unsignedNumber, "the same unsigned int");
  unsigned long read = 0;
  expect(Tool::str2uint64(Tool::uint2str(bits), read) == 0 && read == bits, "the same 64 bits");
  char digits[32];
  std::snprintf(digits, sizeof digits, "%.17g", floating);
  const bool isNearest = std::fegetround() == FE_TONEAREST;
  expect(!isNearest || std::isnan(floating) || Tool::str2double(digits) == floating,
         "the same double");
}

// ---- reading

struct Decimal {
  bool negative = false;
  unsigned long magnitude = 0;
  bool overflow = false;
};

Decimal plainlyRead(const char* text) {
  while (std::isspace(static_cast<unsigned char>(*text)) != 0) {
    ++text;
  }
  Decimal decimal;
  decimal.negative = *text == '-';
  text += *text == '-' || *text == '+' ? 1 : 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    const auto digit = static_cast<unsigned long>(*text - '0');
    decimal.overflow = decimal.overflow || decimal.magnitude > (ULONG_MAX - digit) / 10;
    decimal.magnitude = decimal.magnitude * 10 + digit;
  }
  return decimal;
}

long plainLong(const Decimal& decimal) {
  if (decimal.overflow || decimal.magnitude > LONG_MAX) {
    return decimal.negative ? LONG_MIN : LONG_MAX;
  }
  const auto magnitude = static_cast<long>(decimal.magnitude);
  return decimal.negative ? -magnitude : magnitude;
}

unsigned long plainUnsignedLong(const Decimal& decimal) {
  if (decimal.overflow) {
    return ULONG_MAX;
  }
  return decimal.negative ? 0 - decimal.magnitude : decimal.magnitude;
}

uint64_t bitsOf(double number) {
  uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

bool areSame(double first, double second) { return bitsOf(first) == bitsOf(second); }

void checkRead(const std::string& text) {
  auto guarded = atEdge(text);
  const std::string& argument = guarded.text();
  const Decimal decimal = plainlyRead(text.c_str());
  const auto low = static_cast<unsigned int>(plainLong(decimal));
  const double floating = std::strtod(text.c_str(), nullptr);
  expect(Tool::str2int(argument) == static_cast<int>(low), "the low bits of a long");
  expect(Tool::str2uint(argument) == low, "the same unsigned");
  expect(areSame(Tool::str2double(argument), floating), "the platform's double");

  const int status = text.empty() ? -1 : 0;
  int number = 17;
  unsigned int unsignedNumber = 17;
  unsigned long longNumber = 17;
  double floatingNumber = 17;
  expect(Tool::str2int(argument, number) == status, "0, but of an empty text");
  expect(Tool::str2uint(argument, unsignedNumber) == status, "0, but of an empty text");
  expect(Tool::str2uint64(argument, longNumber) == status, "0, but of an empty text");
  expect(Tool::str2double(argument, floatingNumber) == status, "0, but of an empty text");
  expect(number == (text.empty() ? 17 : static_cast<int>(low)), "the low bits of a long");
  expect(unsignedNumber == (text.empty() ? 17 : low), "the same unsigned");
  expect(longNumber == (text.empty() ? 17 : plainUnsignedLong(decimal)), "the unsigned long");
  expect(areSame(floatingNumber, text.empty() ? 17 : floating), "the platform's double");
  expect(Tool::isDigit(argument) == kelp_test::areDigits(text), "whether all are digits");
}

// ---- the scanner's converters

template <class Number>
void checkConverter(const std::string& text, int base,
                    Number (*converter)(const char*, char**, int),
                    Number (*platforms)(const char*, char**, int) noexcept) {
  char* expectedEnd = nullptr;
  errno = 0;
  const Number expected = platforms(text.c_str(), &expectedEnd, base);
  const int expectedError = errno;
  auto guarded = atEdge(text);
  const char* const start = guarded.text().data();
  char* end = nullptr;
  errno = 0;
  const Number number = converter(start, &end, base);
  expect(number == expected, "the platform's number");
  expect(errno == expectedError, "the platform's errno");
  const bool isBadBase = base < 0 || base == 1 || base > 36;  // the platform gives no end then
  expect(end - start == (isBadBase ? 0 : expectedEnd - text.c_str()), "the platform's end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  Input input(data, size);
  const bool hasComma = input.choice();
  const WithRounding rounding(input.upTo(3));
  const auto bits = input.number<uint64_t>() >> input.upTo(63);
  const auto floating = input.number<double>();
  const int base = static_cast<int>(input.upTo(40)) - 2;
  {
    constexpr size_t fewLocales = 6;
    const kelp_fuzz::ChosenLocale locale(input, fewLocales);
    const std::string text = Input(input).text();
    checkRead(text);
    checkConverter(text, base, __Qstrtoimax, strtoimax);
    checkConverter(text, base, __Qstrtoumax, strtoumax);
    checkWritten(bits, floating);
  }
  if (hasComma) {
    const WithComma comma;
    checkRead(input.rest());
    checkWritten(bits, floating);
  }
  return 0;
}
