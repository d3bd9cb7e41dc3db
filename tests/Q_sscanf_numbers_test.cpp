// The scanner's numbers beside the plain form, which keeps all of a text and converts it as a
// whole; without a heap, and in threads with locales of their own.
#include "Q_sscanf.h"
#include "Q_strtoimax.h"
#include "Q_strtoumax.h"
#include "Q_vfscanf.h"
#include "comma_locale.h"
#include "heap.h"
#include "next_symbol.h"
#include "plain_scanner.h"
#include "scan.h"

#include <gtest/gtest.h>

#include <locale.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cfenv>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

int localeRecordReads = 0;
bool anotherThreadWritesTheLocaleRecord = false;

}  // namespace

// In front of the platform's.
extern "C" lconv* localeconv() noexcept {
  static const auto platforms = kelp_test::nextSymbol<decltype(localeconv)>("localeconv");
  if (!anotherThreadWritesTheLocaleRecord) {
    return platforms();
  }
  ++localeRecordReads;
  static lconv record = *platforms();
  static char comma[] = ",";
  record.decimal_point = comma;
  return &record;
}

namespace {

// --- the plain form

struct Result {
  int assigned = 0;
  int consumed = 0;
  int error = 0;
  uint64_t bits = 0;

  bool operator==(const Result& other) const {
    return assigned == other.assigned && consumed == other.consumed && error == other.error &&
           bits == other.bits;
  }
};

std::ostream& operator<<(std::ostream& out, const Result& result) {
  return out << result.assigned << " assigned, " << result.consumed << " consumed, errno "
             << result.error << ", bits " << std::hex << result.bits << std::dec;
}

template <class Value>
uint64_t bitsOf(Value value) {
  static_assert(sizeof value == sizeof(uint64_t));
  uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// 0 where there is no number.
size_t floatLength(const std::string& text) {
  const kelp_test::NumberText number = kelp_test::floatAtStart(text);
  return number.isNumber ? number.length : 0;
}

Result plainFloat(const std::string& text) {
  Result result;
  const size_t length = floatLength(text);
  errno = 0;
  const double value = std::strtod(text.substr(0, length).c_str(), nullptr);
  result.error = errno;
  result.assigned = length == 0 ? 0 : 1;
  result.consumed = static_cast<int>(length);
  result.bits = bitsOf(value);
  return result;
}

Result scannedFloat(const std::string& text) {
  Result result;
  double value = 0;
  errno = 0;
  result.assigned = Q_sscanf(text.c_str(), "%lf%n", &value, 8, &result.consumed, 4);
  result.error = errno;
  result.bits = bitsOf(value);
  return result;
}

constexpr int roundings[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};

// Sets the direction of rounding and puts the old one back.
class ScopedRounding {
 public:
  explicit ScopedRounding(int rounding) : m_old(std::fegetround()) { std::fesetround(rounding); }
  ~ScopedRounding() { std::fesetround(m_old); }
  ScopedRounding(const ScopedRounding&) = delete;
  ScopedRounding& operator=(const ScopedRounding&) = delete;

 private:
  int m_old;
};

void expectThePlainValue(const std::string& text, const std::string& what) {
  for (const int rounding : roundings) {
    const ScopedRounding scope(rounding);
    const Result expected = plainFloat(text);
    const Result actual = scannedFloat(text);
    ASSERT_EQ(actual, expected) << what << ", rounding " << rounding << ": "
                                << text.substr(0, 2000);
  }
}

std::string zeros(size_t count) { return std::string(count, '0'); }

// A decimal number without end of digits: as exact as the value is.
std::string exactly(long double value) {
  char text[20000];
  const int length = std::snprintf(text, sizeof text, "%.17000Lf", value);
  std::string exact(text, static_cast<size_t>(length));
  exact.erase(exact.find_last_not_of('0') + 1);
  return exact;
}

template <class Engine>
Engine generator(unsigned seed) {
  return Engine(seed);
}

// --- floating numbers

TEST(SscanfNumbers, GiveTheValueOfTheWholeTextAtItsLimits) {
  std::vector<std::string> texts = {
      "0e999999999",
      "-0e-999999999",
      "-0.000e+99999999999999999999999",
      "0.0",
      "-0",
      "1e+",
      "1e-",
      "1e",
      "12.e",
      ".5e+",
      "1e99999999999999999999999999999999",
      "-1e99999999999999999999999999999999",
      "1e-99999999999999999999999999999999",
      "-1e-99999999999999999999999999999999",
      "1e9223372036854775807",
      "1e-9223372036854775808",
      "1e18446744073709551616",
      "1e4294967296",
      "1e-2147483648",
      "1e0000000000000000000000000000000000000000000000000000000005",
      "1.7976931348623157e308",
      "1.7976931348623158e308",
      "1.7976931348623159e308",
      "2.2250738585072014e-308",
      "2.2250738585072011e-308",
      "4.9406564584124654e-324",
      "2.4703282292062327e-324",
      "2.4703282292062328e-324",
      "1e-400",
      "9007199254740993",
      "9007199254740992.999999999999999999999999",
      "9007199254740993.000000000000000000000001",
  };
  for (const size_t count : {700U, 767U, 768U, 769U, 770U, 771U, 1200U, 5000U, 100000U}) {
    const std::string exponent = std::to_string(count);
    texts.push_back("0." + zeros(count) + "1e" + std::to_string(count + 1));
    texts.push_back("1" + zeros(count) + "e-" + exponent);
    texts.push_back("1" + zeros(count) + "." + zeros(count) + "1e-" + exponent);
    texts.push_back(zeros(count) + "1." + zeros(count) + "e5");
    texts.push_back("9007199254740993" + zeros(count) + "1e-" + exponent);
    texts.push_back("9007199254740993." + zeros(count));
    texts.push_back("9007199254740993." + zeros(count) + "1");
    texts.emplace_back(count, '9');
    texts.push_back("-" + std::string(count, '9') + "e-" + exponent);
    texts.push_back("." + std::string(count, '9'));
    texts.push_back("0." + zeros(count));
    texts.push_back("-" + zeros(count) + "e5");
  }
  for (const std::string& text : texts) {
    expectThePlainValue(text, "limit");
  }
}

// Numbers between two doubles, or where a rule of rounding, overflow or underflow begins: exactly,
// and a digit far behind above it and below it.
TEST(SscanfNumbers, GiveTheValueOfTheWholeTextWhereTheSmallestDigitDecides) {
  auto random = generator<std::mt19937_64>(20240611);
  std::vector<long double> places = {
      std::ldexp(1.0L, -1075),                            // half of the smallest
      std::ldexp(1.0L, -1022),                            // the smallest normal one
      std::ldexp(1.0L, -1022) - std::ldexp(1.0L, -1075),  // half-way below it
      std::ldexp(1.0L, -1022) - std::ldexp(1.0L, -1076),  // where underflow ends
      std::ldexp(1.0L, 1024) - std::ldexp(1.0L, 970),     // where overflow begins
      std::ldexp(1.0L, 1024) - std::ldexp(1.0L, 971),     // the largest
  };
  for (int round = 0; round < 40; ++round) {
    const int exponent = static_cast<int>(random() % 2100) - 1076;
    const auto fraction = static_cast<long double>((random() >> 11) | 1) + 0.5L;
    const long double place = std::ldexp(fraction, exponent - 52);
    // Below the normal doubles, only what lies half-way between two of them.
    places.push_back(exponent >= -1022
                         ? place
                         : std::ldexp(static_cast<long double>(random() % 1000000) + 0.5L, -1074));
  }
  for (const long double place : places) {
    const std::string exact = exactly(place);
    std::string below = exact;
    if (below.back() == '.') {
      below += "0";
    }
    // One less in the last place, then nines: as near as many digits can be.
    for (size_t i = below.size(); i-- > 0;) {
      if (below[i] == '.') {
        continue;
      }
      below[i] = below[i] == '0' ? '9' : static_cast<char>(below[i] - 1);
      if (below[i] != '9') {
        break;
      }
    }
    for (const size_t count : {0U, 1U, 500U, 2000U}) {
      const std::string what = std::to_string(static_cast<double>(place));
      expectThePlainValue(exact + zeros(count), what);
      expectThePlainValue(exact + zeros(count) + "1", what + " and more");
      expectThePlainValue("-" + exact + zeros(count) + "1", what + " and more, negative");
      expectThePlainValue(below + std::string(count, '9'), what + " and less");
    }
  }
}

// Digits, zeros and exponents of random sizes, such as a cancelled exponent.
std::string randomNumber(std::mt19937& random) {
  const auto below = [&random](size_t bound) { return static_cast<size_t>(random() % bound); };
  const auto run = [&](std::string& text) {
    const size_t lengths[] = {0, 1, 3, 17, 60, 700 + below(500), below(80)};
    const size_t length = lengths[below(7)];
    const bool isZeros = below(3) == 0;
    for (size_t i = 0; i < length; ++i) {
      text += isZeros ? '0' : static_cast<char>('0' + below(10));
    }
    return length;
  };
  const char* const signs[] = {"", "", "+", "-"};
  std::string text = signs[below(4)];
  const size_t digits = run(text) + run(text);
  size_t fraction = 0;
  if (below(3) != 0) {
    text += '.';
    fraction = run(text) + run(text) + run(text);
  }
  if (below(3) != 0) {
    const int range = static_cast<int>(below(700)) - 350;
    const int exponents[] = {
        range,           static_cast<int>(fraction) + range, range - static_cast<int>(digits),
        range * 1000003, static_cast<int>(fraction),         -static_cast<int>(digits)};
    text += below(2) == 0 ? 'e' : 'E';
    const int exponent = exponents[below(6)];
    text += exponent >= 0 && below(2) == 0 ? "+" : "";
    text += std::to_string(exponent);
    text += below(8) == 0 ? std::to_string(random()) + std::to_string(random()) : "";
  }
  return text + (below(4) == 0 ? "x" : "");
}

TEST(SscanfNumbers, GiveTheValueOfTheWholeTextForRandomNumbers) {
  constexpr unsigned seed = 20240612;
  auto random = generator<std::mt19937>(seed);
  int withNumber = 0;
  for (int round = 0; round < 3000; ++round) {
    const std::string text = randomNumber(random);
    withNumber += floatLength(text) != 0 ? 1 : 0;
    if (floatLength(text) != 0) {
      expectThePlainValue(text,
                          "seed " + std::to_string(seed) + ", round " + std::to_string(round));
    }
  }
  EXPECT_GT(withNumber, 1500);
}

TEST(SscanfNumbers, KeepTheValueOfMillionsOfDigits) {
  constexpr size_t many = 500000;
  expectThePlainValue("1" + zeros(many) + "e-" + std::to_string(many), "many zeros");
  expectThePlainValue("." + std::string(many, '3'), "many digits");

  constexpr size_t more = 12000000;
  const Result result = scannedFloat("." + zeros(more) + "1e" + std::to_string(more + 1));
  EXPECT_EQ(result.bits, bitsOf(1.0));
}

TEST(SscanfNumbers, AreCutByTheirWidthAsTheWholeTextIs) {
  auto random = generator<std::mt19937>(20240613);
  for (int round = 0; round < 2000; ++round) {
    const std::string text = randomNumber(random);
    const size_t width = 1 + random() % (text.size() + 1);
    const Result expected = plainFloat(text.substr(0, width));
    Result actual;
    double value = 0;
    errno = 0;
    const std::string format = "%" + std::to_string(width) + "lf%n";
    actual.assigned = Q_sscanf(text.c_str(), format.c_str(), &value, 8, &actual.consumed, 4);
    if (expected.assigned == 1) {
      actual.error = errno;
      actual.bits = bitsOf(value);
      ASSERT_EQ(actual, expected) << text << ", width " << width;
    } else {
      ASSERT_LE(actual.assigned, 0) << text << ", width " << width;
    }
  }
}

// --- integers

std::string randomDigits(std::mt19937& random, int base) {
  const size_t lengths[] = {0, 1, 8, 16, 17, 19, 20, 21, 22, 23, 24, 40, 300};
  std::string digits = zeros(random() % 3 == 0 ? random() % 60 : 0);
  const bool isLimit = random() % 4 == 0;
  for (size_t left = lengths[random() % 13]; left > 0; --left) {
    const char* const all = "0123456789abcdefABCDEF";
    const auto bound = static_cast<unsigned>(base == 16 ? 22 : base);
    digits += isLimit ? all[base - 1] : all[random() % bound];
  }
  if (random() % 8 == 0) {
    const char* const limits[] = {
        "9223372036854775807",    "9223372036854775808",    "9223372036854775809",
        "18446744073709551615",   "18446744073709551616",   "777777777777777777777",
        "1000000000000000000000", "1777777777777777777777", "300000000000000000000"};
    const char* const limit = limits[random() % 9];
    digits += base == 8 && std::strpbrk(limit, "89") != nullptr ? "17" : limit;
  }
  return digits;
}

TEST(SscanfNumbers, ReadIntegersOfAnyLengthAsTheConvertersDo) {
  constexpr unsigned seed = 20240614;
  auto random = generator<std::mt19937>(seed);
  const struct {
    const char* format;
    int base;
    bool isSigned;
  } forms[] = {{"%jd%n", 10, true}, {"%ju%n", 10, false}, {"%jo%n", 8, false}, {"%jx%n", 16, false},
               {"%ji%n", 10, true}, {"%ji%n", 8, true},   {"%ji%n", 16, true}};
  for (int round = 0; round < 30000; ++round) {
    const auto& form = forms[round % 7];
    const bool isPrefixed = form.format[2] == 'i';
    const char* const signs[] = {"", "+", "-"};
    std::string text = signs[random() % 3];
    const bool takesPrefix = form.base == 16 && (isPrefixed || random() % 2 == 0);
    text += takesPrefix ? (random() % 2 == 0 ? "0x" : "0X") : "";
    text += isPrefixed && form.base == 8 ? "0" : "";
    text += isPrefixed && form.base == 10 ? "1" : "";
    text += randomDigits(random, form.base);
    if (text.find_first_of("0123456789abcdefABCDEF") == std::string::npos) {
      continue;
    }
    errno = 0;
    const int base = isPrefixed ? 0 : form.base;
    const bool hasDigits = text.back() != 'x' && text.back() != 'X';
    const auto expected = form.isSigned
                              ? static_cast<uintmax_t>(__Qstrtoimax(text.c_str(), nullptr, base))
                              : __Qstrtoumax(text.c_str(), nullptr, base);
    const int expectedError = errno;
    uintmax_t value = 4711;
    int consumed = 0;
    errno = 0;
    ASSERT_EQ(Q_sscanf((text + "g").c_str(), form.format, &value, 8, &consumed, 4), 1)
        << form.format << " on " << text << (hasDigits ? "" : ", a prefix alone");
    ASSERT_EQ(errno, expectedError) << form.format << " on " << text << ", seed " << seed;
    ASSERT_EQ(value, expected) << form.format << " on " << text << ", seed " << seed;
    ASSERT_EQ(consumed, static_cast<int>(text.size())) << form.format << " on " << text;
  }
}

// --- without a heap

TEST(SscanfNumbers, NeedNoHeap) {
  const struct {
    std::string text;
    const char* format;
  } cases[] = {
      {std::string(1000000, '7'), "%jd%n"},
      {zeros(1000000) + "7", "%ju%n"},
      {"0x" + std::string(100000, 'f'), "%ji%n"},
      {std::string(1000000, '7') + "." + std::string(1000000, '7'), "%lf%n"},
      {"0." + zeros(1000000) + "5e1000000", "%le%n"},
      {"1e" + std::string(100000, '9'), "%f%n"},
      {std::string(1000, ' ') + std::string(100000, 'w'), "%s%n"},
      {std::string(100000, 'w'), "%[^0-9]%n"},
      {"0x" + std::string(100000, 'f'), "%p%n"},
      {std::string(100000, '7'), "%*f%*d%n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    alignas(16) char slot[64] = "";
    int consumed = 0;
    int result = 0;
    kelp_test::HeapWatch watch(1, kelp_test::Times::onwards);
    try {
      result = std::strchr(c.format, '*') != nullptr
                   ? Q_sscanf(c.text.c_str(), c.format, &consumed, 4)
                   : Q_sscanf(c.text.c_str(), c.format, slot, 64, &consumed, 4);
    } catch (const std::bad_alloc&) {
      result = INT_MIN;
    }
    watch.end();
    EXPECT_NE(result, INT_MIN) << "an exception left a C interface";
    EXPECT_EQ(watch.requests(), 0);
    if (std::strchr(c.format, '*') == nullptr) {
      EXPECT_EQ(result, 1);
      EXPECT_EQ(consumed, static_cast<int>(c.text.size()));
    }
  }
}

// Digits without end, from a source that holds but a page of them.
struct EndlessDigits {
  static int give(void* cookie, char* to, int size) {
    auto* const self = reinterpret_cast<EndlessDigits*>(cookie);
    const int count = static_cast<int>(std::min<int64_t>(size, self->left));
    std::memset(to, '1', static_cast<size_t>(count));
    self->left -= count;
    return count;
  }
  ScanSource record{nullptr, 0, 0, nullptr, 0, give, nullptr};
  int64_t left = 0;
};

TEST(SscanfNumbers, AreConsumedWhateverTheirLength) {
  char page[4096];
  for (const char* format : {"%lf%ln", "%jd%ln"}) {
    EndlessDigits digits;
    digits.record.base = page;
    digits.record.size = sizeof page;
    digits.left = 3000000;
    alignas(16) char slot[8];
    long consumed = 0;
    EXPECT_EQ(kelp_test::scan(&digits.record, format, slot, 8, &consumed, 8), 1);
    EXPECT_EQ(consumed, 3000000);
  }
}

// --- locales

TEST(SscanfNumbers, DoNotLookAtTheRecordThatAllThreadsShare) {
  double value = 0;
  anotherThreadWritesTheLocaleRecord = true;
  EXPECT_EQ(Q_sscanf("1.5", "%lf", &value, 8), 1);
  anotherThreadWritesTheLocaleRecord = false;
  EXPECT_EQ(value, 1.5);
  EXPECT_EQ(localeRecordReads, 0);
}

TEST(SscanfNumbers, AreReadAlikeByThreadsWithLocalesOfTheirOwn) {
  const kelp_test::CommaLocale comma;
  if (!comma.isSet()) {
    GTEST_SKIP() << "localedef makes no locale here";
  }
  const locale_t locales[] = {newlocale(LC_NUMERIC_MASK, "C", nullptr),
                              duplocale(LC_GLOBAL_LOCALE)};
  std::atomic<int> wrong{0};
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (const locale_t locale : locales) {
    ASSERT_NE(locale, nullptr);
    threads.emplace_back([&, locale] {
      uselocale(locale);
      for (++ready; ready < 2;) {
        std::this_thread::yield();
      }
      for (int round = 0; round < 50000; ++round) {
        double value = 0;
        if (Q_sscanf("-12.75e1", "%lf", &value, 8) != 1 || value != -127.5) {
          ++wrong;
        }
      }
      uselocale(LC_GLOBAL_LOCALE);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0);
  for (const locale_t locale : locales) {
    freelocale(locale);
  }
}

}  // namespace
