// What may be done in a clever way gives what a plain form gives: in locales of all kinds, for
// texts of every length, and with nothing read behind the end.
#include "all_texts.h"
#include "cmnstringtool.h"
#include "comma_locale.h"
#include "letters_locale.h"
#include "long_texts.h"
#include "plain_text.h"
#include "until_failure.h"

#include <gtest/gtest.h>

#include <locale.h>

#include <algorithm>
#include <cfenv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_test::Alphabet;
using kelp_test::BinaryRead;
using kelp_test::Bytes;
using kelp_test::CommaLocale;
using kelp_test::forEachLength;
using kelp_test::forEachText;
using kelp_test::forEachTextOf;
using kelp_test::GuardedPage;
using kelp_test::GuardedTexts;
using kelp_test::Ingredients;
using kelp_test::LettersLocale;
using kelp_test::plainDecimal;
using kelp_test::plainDouble;
using kelp_test::plainlyEqual;
using kelp_test::plainlyLower;
using kelp_test::plainlyUpper;
using kelp_test::ScopedLocale;
using kelp_test::TextMixer;
using kelp_test::untilFailure;
using kelp_test::widened;
using testing::PrintToString;

const std::string zeroByte(1, '\0');
const std::wstring zeroCharacter(1, L'\0');

std::string oneByte(int byte) { return std::string(1, static_cast<char>(byte)); }

// ---- the locales

struct LocaleKind {
  const char* name;
  const char* platforms;  // null for one to be made
  const char* charset;
  int longestCharacter;
  Alphabet (*alphabet)();
};

void PrintTo(const LocaleKind& kind, std::ostream* out) { *out << kind.name; }

const LocaleKind localeKinds[] = {
    {"C", "C", nullptr, 0, nullptr},
    {"Utf8", "C.utf8", nullptr, 0, nullptr},
    {"Latin1", nullptr, "ISO-8859-1", 1, kelp_test::latinAlphabet},
    {"TurkishOneByte", nullptr, "ISO-8859-9", 1, kelp_test::turkishAlphabet},
    {"TurkishUtf8", nullptr, "UTF-8", 6, kelp_test::turkishAlphabet},
    {"ShiftJis", nullptr, "SHIFT_JIS", 2, kelp_test::asciiAlphabet},
    {"OddLetters", nullptr, "ISO-8859-1", 1, kelp_test::oddAlphabet},
};

class InLocale : public testing::TestWithParam<LocaleKind> {
 protected:
  void SetUp() override {
    const LocaleKind& kind = GetParam();
    if (kind.platforms != nullptr) {
      m_platforms.emplace(kind.platforms);
      return;
    }
    m_made.emplace(kind.charset, kind.longestCharacter, kind.alphabet());
    if (!m_made->isSet()) {
      GTEST_SKIP() << "localedef gives no locale of " << kind.charset;
    }
  }

 private:
  std::optional<ScopedLocale> m_platforms;
  std::optional<LettersLocale> m_made;
};

std::string testName(const testing::TestParamInfo<LocaleKind>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Of, InLocale, testing::ValuesIn(localeKinds), testName);

const std::string commonBytes = "aAbBiIjJxXyYqQzZ0123456789 .,:-_@`~\\\t\n\x7f";
const std::wstring commonCharacters(commonBytes.begin(), commonBytes.end());

// Characters that some of the locales have, and of which some are letters there.
const std::vector<std::wstring> someCharacters = {L"\u00e9", L"\u00c9",     L"\u00df", L"\u00ff",
                                                  L"\u0130", L"\u0131",     L"\u017f", L"\u20ac",
                                                  L"\u3042", L"\U0001f600", L"\u00a5", L"\u00a0"};

Ingredients<char> validBytes() {
  Ingredients<char> result{commonBytes, {"z", zeroByte}};
  for (const std::wstring& character : someCharacters) {
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    const size_t length = std::wcrtomb(bytes, character[0], &state);
    if (length != static_cast<size_t>(-1)) {
      result.rare.emplace_back(bytes, length);
    }
  }
  return result;
}

Ingredients<char> anyBytes() {
  Ingredients<char> result{commonBytes, {}};
  for (int byte = 0; byte < 0x100; ++byte) {
    result.rare.push_back(oneByte(byte));
  }
  return result;
}

Ingredients<wchar_t> validCharacters() {
  Ingredients<wchar_t> result{commonCharacters, {L"z", zeroCharacter}};
  for (const std::wstring& character : someCharacters) {
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    if (std::wcrtomb(bytes, character[0], &state) != static_cast<size_t>(-1)) {
      result.rare.push_back(character);
    }
  }
  return result;
}

Ingredients<wchar_t> anyCharacters() {
  Ingredients<wchar_t> result{commonCharacters, someCharacters};
  for (const unsigned int c : {0U, 0x80U, 0xffU, 0x100U, 0xd800U, 0xffffU, 0x110000U, 0x7fffffffU,
                               0x80000000U, 0x80000041U, 0xffffffffU}) {
    result.rare.emplace_back(1, static_cast<wchar_t>(c));
  }
  return result;
}

// ---- between narrow and wide

TEST_P(InLocale, DecodesTextsOfEveryLengthAsCharacterByCharacter) {
  for (const Ingredients<char>& ingredients : {validBytes(), anyBytes()}) {
    forEachLength(ingredients, [](const std::string& text) {
      ASSERT_EQ(Tool::str2wstr(text), kelp_test::plainlyDecoded(text)) << PrintToString(text);
    });
  }
}

TEST_P(InLocale, EncodesTextsOfEveryLengthAsCharacterByCharacterUpToTheBudget) {
  for (const Ingredients<wchar_t>& ingredients : {validCharacters(), anyCharacters()}) {
    forEachLength(ingredients, [](const std::wstring& text) {
      ASSERT_EQ(Tool::wstr2str(text), kelp_test::plainlyEncoded(text)) << PrintToString(text);
    });
  }
}

TEST_P(InLocale, DecodesAndEncodesEveryByteAndEveryCharacterByItself) {
  for (int byte = 0; byte < 0x100; ++byte) {
    const std::string text = oneByte(byte);
    EXPECT_EQ(Tool::str2wstr(text), kelp_test::plainlyDecoded(text)) << byte;
  }
  for (wchar_t c = 0; c < 0x11000; ++c) {
    const std::wstring text(1, c);
    ASSERT_EQ(Tool::wstr2str(text), kelp_test::plainlyEncoded(text)) << PrintToString(c);
  }
}

// ---- case

template <class Text>
void checkCase(const Text& text) {
  ASSERT_EQ(Tool::tostrupper(text), plainlyUpper(text)) << PrintToString(text);
  ASSERT_EQ(Tool::tostrlower(text), plainlyLower(text)) << PrintToString(text);
}

template <class Char>
void checkCaseOfEveryLength(const Ingredients<Char>& ingredients) {
  using Text = std::basic_string<Char>;
  constexpr size_t longest = 300;
  TextMixer<Char> mixer(ingredients);
  GuardedTexts<Char> guarded(longest + 1);
  const auto checkComparison = [&guarded](const Text& text, const Text& other) {
    ASSERT_EQ(Tool::CompareNoCase(text, guarded.over(other).text()), plainlyEqual(text, other))
        << PrintToString(text) << " and " << PrintToString(other);
  };
  const auto check = [&](const Text& text) {
    ASSERT_NO_FATAL_FAILURE(checkCase(text));
    ASSERT_NO_FATAL_FAILURE(checkComparison(text, plainlyUpper(text)));
    ASSERT_NO_FATAL_FAILURE(checkComparison(text, plainlyLower(text) + Char{'a'}));
    if (!text.empty()) {
      Text changed = plainlyLower(text);
      ASSERT_NO_FATAL_FAILURE(checkComparison(text, changed.substr(1)));
      changed[mixer.below(text.size())] = mixer.mixed(1, 50)[0];
      ASSERT_NO_FATAL_FAILURE(checkComparison(text, changed));
    }
  };
  forEachLength(ingredients, check, longest);
}

TEST_P(InLocale, MapsAndComparesNarrowTextsOfEveryLengthByteByByte) {
  checkCaseOfEveryLength(anyBytes());
}

TEST_P(InLocale, MapsAndComparesWideTextsOfEveryLengthCharacterByCharacter) {
  checkCaseOfEveryLength(anyCharacters());
}

TEST_P(InLocale, MapsEveryByteAndEveryCharacter) {
  std::string bytes;
  for (int byte = 0; byte < 0x100; ++byte) {
    bytes += static_cast<char>(byte);
  }
  checkCase(bytes);
  std::wstring characters;
  for (wchar_t c = 0; c < 0x11000; ++c) {
    characters += c;
  }
  EXPECT_TRUE(Tool::tostrupper(characters) == plainlyUpper(characters));
  EXPECT_TRUE(Tool::tostrlower(characters) == plainlyLower(characters));
}

TEST(LongText, IsMappedAsTheLocaleSaysWhereTheLastOfAsciiIsALetterBesides) {
  kelp_test::Alphabet alphabet = kelp_test::asciiAlphabet();
  alphabet.pairs.emplace_back(L'\x7f', L'\u00fe');
  const LettersLocale locale("ISO-8859-1", 1, alphabet);
  if (!locale.isSet()) {
    GTEST_SKIP() << "localedef gives no such locale";
  }
  ASSERT_EQ(tolower(0x7f), 0xfe);
  EXPECT_EQ(Tool::tostrlower(std::string(300, '\x7f')), std::string(300, '\xfe'));
}

TEST_P(InLocale, ComparesEveryPairOfBytes) {
  const std::string sevenMore = "of many";
  for (int a = 0; a < 0x100; ++a) {
    for (int b = 0; b < 0x100; ++b) {
      const bool expected = plainlyEqual(oneByte(a), oneByte(b));
      ASSERT_EQ(Tool::CompareNoCase(oneByte(a), oneByte(b)), expected) << a << ' ' << b;
      ASSERT_EQ(Tool::CompareNoCase(oneByte(a) + sevenMore, oneByte(b) + sevenMore), expected)
          << a << ' ' << b;
    }
  }
}

TEST_P(InLocale, ComparesEveryPairOfCharactersWithLettersAmongThem) {
  for (wchar_t a = 0; a < 0x180; ++a) {
    for (wchar_t b = 0; b < 0x180; ++b) {
      const std::wstring first(1, a);
      const std::wstring second(1, b);
      ASSERT_EQ(Tool::CompareNoCase(first, second), plainlyEqual(first, second))
          << PrintToString(a) << ' ' << PrintToString(b);
    }
  }
}

// ---- hexadecimal

BinaryRead readGuarded(const std::string& hex, int size, size_t room) {
  GuardedPage<unsigned char> out(room);
  std::fill_n(out.data(), room, kelp_test::untouched);
  BinaryRead read = {kelp_test::done, size, {}};
  read.status = Tool::str2binary(out.data(), &read.size, hex);
  read.out.assign(out.data(), out.data() + room);
  return read;
}

TEST_P(InLocale, ReadsEveryPairOfBytesAsStrtolDoes) {
  unsigned char out = 0;
  for (int first = 0; first < 0x100; ++first) {
    for (int second = 0; second < 0x100; ++second) {
      const std::string pair = oneByte(first) + oneByte(second);
      int size = 1;
      ASSERT_EQ(Tool::str2binary(&out, &size, pair), kelp_test::done);
      const BinaryRead expected = kelp_test::plainlyRead(pair, 1, 1);
      ASSERT_EQ(out, expected.out[0]) << first << ' ' << second;
    }
  }
}

TEST_P(InLocale, ReadsHexadecimalTextsOfEveryLengthPairByPair) {
  Ingredients<char> ingredients{
      "0123456789abcdefABCDEF",
      {"0x", "zz", " a", "a ", "-1", "+f", "\xff", "\xa0", "g", "G", "/", ":", "`", "@"}};
  ingredients.rare.push_back(zeroByte);
  forEachLength(ingredients, [](const std::string& hex) {
    const size_t room = hex.size() / 2;
    const int size = static_cast<int>(room);
    if (!hex.empty()) {
      ASSERT_EQ(readGuarded(hex, size, room), kelp_test::plainlyRead(hex, size, room))
          << PrintToString(hex);
      ASSERT_EQ(readGuarded(hex, size - 1, room), kelp_test::plainlyRead(hex, size - 1, room))
          << PrintToString(hex);
    }
  });
}

TEST(PlainForm, OfBytesInHexadecimalHoldsForEveryLength) {
  forEachLength(anyBytes(), [](const std::string& text) {
    GuardedPage<unsigned char> page(text.size());
    const Bytes bytes(text.begin(), text.end());
    std::copy(bytes.begin(), bytes.end(), page.data());
    const int count = static_cast<int>(bytes.size());
    const std::string expected = kelp_test::plainHexadecimal(bytes);
    ASSERT_EQ(Tool::binary2str(page.data(), count), expected);
    ASSERT_EQ(Tool::binary2wstr(page.data(), count),
              std::wstring(expected.begin(), expected.end()));
  });
}

TEST(PlainForm, OfAnIdentifierHoldsForEveryLength) {
  forEachLength(anyBytes(), [](const std::string& text) {
    ASSERT_EQ(Tool::str2uid(0x12, text), kelp_test::plainIdentifier(0x12, text));
  });
}

// ---- UTF-8 and UTF-16

std::u16string unitsOf(const icu::UnicodeString& text) {
  return std::u16string(text.getBuffer(), static_cast<size_t>(text.length()));
}

void checkFromUtf8(const std::string& text) {
  std::string argument = text;
  ASSERT_EQ(unitsOf(Tool::str2ustr(argument)), kelp_test::plainlyFromUtf8(text))
      << PrintToString(text);
}

// Of units that a page ends behind, without a terminator.
void checkToUtf8(const std::u16string& units) {
  GuardedPage<char16_t> page(units);
  icu::UnicodeString alias(UBool{0}, page.data(), static_cast<int32_t>(units.size()));
  ASSERT_EQ(Tool::ustr2str(alias), kelp_test::plainlyToUtf8(units)) << PrintToString(units);
  icu::UnicodeString own(units.data(), static_cast<int32_t>(units.size()));
  ASSERT_EQ(Tool::ustr2str(own), kelp_test::plainlyToUtf8(units)) << PrintToString(units);
}

Ingredients<char> utf8Pieces() {
  Ingredients<char> result{commonBytes, {zeroByte, "\xff", "\x80", "\xed\xa0\x80", "\xc0\x80"}};
  for (const unsigned int c :
       {0x7fU, 0x80U, 0x7ffU, 0x800U, 0xd7ffU, 0xe000U, 0xffffU, 0x10000U, 0x10ffffU}) {
    result.rare.push_back(kelp_test::utf8(c));
    result.rare.push_back(kelp_test::utf8(c));  // so that more is valid than malformed
  }
  return result;
}

TEST(PlainForm, OfUtf8HoldsForEveryLength) {
  forEachLength(utf8Pieces(), [](std::string& text) {
    ASSERT_EQ(unitsOf(Tool::str2ustr(text)), kelp_test::plainlyFromUtf8(text))
        << PrintToString(text);
  });
}

TEST(PlainForm, OfUtf8HoldsForEveryFewBytesAtTheEdgesOfItsForms) {
  for (int first = 0; first < 0x100; ++first) {
    for (int second = 0; second < 0x100; ++second) {
      ASSERT_NO_FATAL_FAILURE(checkFromUtf8(oneByte(first) + oneByte(second)));
    }
  }
  const std::string edges =
      "a\x7f\x80\x8f\x90\x9f\xa0\xbf\xc1\xc2\xdf\xe0\xe1\xed\xee\xf0\xf3\xf4\xf5";
  forEachText(edges, 4, untilFailure(checkFromUtf8));
}

TEST(PlainForm, OfUtf16HoldsForEveryLength) {
  const Ingredients<char16_t> ingredients{
      std::u16string(commonBytes.begin(), commonBytes.end()),
      {u"\u00e9", u"\u20ac", u"\U0001f600", u"\U0001f600", std::u16string(1, u'\0'), {0xd83d}}};
  forEachLength(ingredients,
                [](const std::u16string& text) { ASSERT_NO_FATAL_FAILURE(checkToUtf8(text)); });
}

TEST(PlainForm, OfUtf16HoldsForEveryFewUnitsAtTheEdgesOfItsForms) {
  const char16_t edges[] = {0,      0x7f,   0x80,   0x7ff,  0x800, 0xd7ff,
                            0xd800, 0xdbff, 0xdc00, 0xdfff, 0xe000};
  forEachText("0123456789:", 4, untilFailure([&edges](const std::string& digits) {
                std::u16string units;
                for (const char digit : digits) {
                  units += edges[digit - '0'];
                }
                checkToUtf8(units);
              }));
}

// ---- trimming, searching, replacing and tokens

const Ingredients<char> blanksAndMore{" \t\n\r", {"a", "b", "\v", "\xff", zeroByte}};
const Ingredients<char> aAndMore{"a", {" ", "b", "ab", "\xff", zeroByte}};

TEST(PlainForm, OfTrimmingHoldsForEveryLength) {
  for (const Ingredients<char>& ingredients : {blanksAndMore, aAndMore}) {
    forEachLength(ingredients, [](const std::string& text) {
      for (const char* set : {" \n\t\r", "a", "ab\xff \n\t\r"}) {
        const std::string left = kelp_test::plainlyLeftTrimmed(text, set);
        ASSERT_EQ(Tool::ltrim(text, set), left) << PrintToString(text);
        ASSERT_EQ(Tool::rtrim(text, set), kelp_test::plainlyRightTrimmed(text, set))
            << PrintToString(text);
        ASSERT_EQ(Tool::trim(text, set), kelp_test::plainlyRightTrimmed(left, set))
            << PrintToString(text);
      }
    });
  }
}

TEST(PlainForm, OfFindingHoldsForEveryLength) {
  for (const Ingredients<char>& ingredients : {blanksAndMore, aAndMore}) {
    forEachLength(ingredients, [](const std::string& text) {
      const std::vector<std::string> list{text};
      for (const char* pattern : {"", "a", "b", "ab", "aab", "aaaaaaaaaaaaaaaaab", "a ", "\xff"}) {
        for (const bool trimRight : {false, true}) {
          unsigned long index = 0;
          ASSERT_EQ(Tool::find(list, pattern, index, trimRight),
                    kelp_test::plainlyFound(text, pattern, trimRight))
              << PrintToString(text) << " for " << pattern;
        }
      }
    });
  }
}

TEST(PlainForm, OfReplacingHoldsForEveryLength) {
  const std::vector<std::string> texts = {"a",    "ab",          "aa", "aaaaaaaaaaaaaaaaab",
                                          "\xff", zeroByte + "a"};
  for (const Ingredients<char>& ingredients : {aAndMore, anyBytes()}) {
    forEachLength(
        ingredients,
        [&texts](const std::string& text) {
          for (const std::string& from : texts) {
            for (const std::string& to : {std::string(), text.substr(0, 20)}) {
              ASSERT_EQ(Tool::searchreplace(text, from, to),
                        kelp_test::plainlyReplaced(text, from, to))
                  << PrintToString(text) << ": " << PrintToString(from) << " by "
                  << PrintToString(to);
            }
          }
        },
        130);
  }
}

TEST(PlainForm, OfTokenizingHoldsForEveryLength) {
  for (const Ingredients<char>& ingredients : {blanksAndMore, aAndMore, anyBytes()}) {
    forEachLength(ingredients, [](const std::string& text) {
      for (const char* delimiters : {"", "a", " ", "b\xff", " \t\n\r", "abcdefghijklmnopqrst"}) {
        ASSERT_EQ(Tool::tokenize(text, delimiters), kelp_test::plainTokens(text, delimiters))
            << PrintToString(text) << " by " << PrintToString(delimiters);
      }
    });
  }
}

TEST(PlainForm, OfDigitsHoldsForEveryLength) {
  const Ingredients<char> digits{"0123456789", {"/", ":", "a", "\xb2", "\xff", zeroByte}};
  forEachLength(digits, [](const std::string& text) {
    ASSERT_EQ(Tool::isDigit(text), kelp_test::areDigits(text)) << PrintToString(text);
  });
}

// ---- XML

void checkXml(const std::string& text) {
  ASSERT_EQ(Tool::convertToXmlSpecialCharacters(text), kelp_test::plainlyEscaped(text))
      << PrintToString(text);
  ASSERT_EQ(Tool::convertFromXmlSpecialCharacters(text), kelp_test::plainlyUnescaped(text))
      << PrintToString(text);
}

const std::vector<std::string> entityPieces = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;", "&apos;",
                                               "&",     "amp;", "lt;",  "gt;",    "#39;",  "quot;",
                                               ";",     "\"",   "<",    "'"};

TEST(PlainForm, OfXmlHoldsForEveryLength) {
  Ingredients<char> ingredients{commonBytes, entityPieces};
  ingredients.rare.emplace_back("\xff");
  forEachLength(ingredients, checkXml);
  ingredients.rare.push_back(zeroByte);
  forEachLength(ingredients, checkXml);
}

TEST(PlainForm, OfXmlHoldsForEveryFewPieces) {
  std::vector<std::string> pieces = entityPieces;
  pieces.emplace_back(">");
  pieces.emplace_back("a");
  pieces.push_back(zeroByte);
  forEachTextOf(pieces, 3, untilFailure(checkXml));
  forEachText("&lt;#39" + zeroByte, 5, untilFailure(checkXml));
}

// ---- numbers

unsigned int seed = 1;

void checkIntegers(unsigned long bits) {
  const auto signedInt = static_cast<int>(bits);
  const auto unsignedInt = static_cast<unsigned int>(bits);
  const auto signedLong = static_cast<long>(bits);
  ASSERT_EQ(Tool::int2str(signedInt), plainDecimal(signedInt));
  ASSERT_EQ(Tool::uint2str(unsignedInt), plainDecimal(unsignedInt));
  ASSERT_EQ(Tool::int2str(signedLong), plainDecimal(signedLong));
  ASSERT_EQ(Tool::uint2str(bits), plainDecimal(bits));
  ASSERT_EQ(Tool::int2wstr(signedInt), widened(plainDecimal(signedInt)));
  ASSERT_EQ(Tool::uint2wstr(unsignedInt), widened(plainDecimal(unsignedInt)));
  ASSERT_EQ(Tool::int2wstr(signedLong), widened(plainDecimal(signedLong)));
  ASSERT_EQ(Tool::uint2wstr(bits), widened(plainDecimal(bits)));
}

TEST(PlainForm, OfIntegersHoldsForSmallOnesAndAroundEveryPower) {
  for (unsigned long number = 0; number < 12000; ++number) {
    ASSERT_NO_FATAL_FAILURE(checkIntegers(number));
    ASSERT_NO_FATAL_FAILURE(checkIntegers(0 - number));
  }
  std::vector<unsigned long> powers;
  for (int shift = 0; shift < 64; ++shift) {
    powers.push_back(1UL << shift);
  }
  for (unsigned long power = 1; power <= ULONG_MAX / 10; power *= 10) {
    powers.push_back(10 * power);
  }
  for (const unsigned long power : powers) {
    for (unsigned long near = 0; near < 8; ++near) {
      ASSERT_NO_FATAL_FAILURE(checkIntegers(power + near - 4));
      ASSERT_NO_FATAL_FAILURE(checkIntegers(4 - power - near));
    }
  }
}

TEST(PlainForm, OfIntegersHoldsForRandomOnes) {
  std::mt19937_64 random(seed);
  for (int i = 0; i < 20000; ++i) {
    ASSERT_NO_FATAL_FAILURE(checkIntegers(random() >> (random() % 64)));
  }
}

double doubleOf(uint64_t bits) {
  double number = 0;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

// Around every power of ten, half way between two texts, and of any bits.
std::vector<double> manyDoubles() {
  using Limits = std::numeric_limits<double>;
  std::vector<double> numbers{
      0.0,           Limits::infinity(),   Limits::quiet_NaN(),         Limits::max(),
      Limits::min(), Limits::denorm_min(), doubleOf(0x7ff4000000000001)};
  for (int exponent = -320; exponent <= 308; ++exponent) {
    const double power = std::pow(10.0, exponent);
    for (const double factor : {1.0, 9.999994, 9.999995, 9.9999949999999, 1.234565, 5.0000005}) {
      numbers.push_back(factor * power);
      numbers.push_back(std::nextafter(factor * power, 0.0));
      numbers.push_back(std::nextafter(factor * power, Limits::infinity()));
    }
  }
  for (int i = 0; i < 3000; ++i) {
    numbers.push_back(i);
    numbers.push_back(i / 8.0);
    numbers.push_back(100000 + i + 0.5);  // exactly half way
    numbers.push_back(1000000.0 + 10 * i + 5);
  }
  std::mt19937_64 random(seed);
  for (int i = 0; i < 5000; ++i) {
    numbers.push_back(doubleOf(random()));
  }
  return numbers;
}

class ScopedRounding {
 public:
  explicit ScopedRounding(int mode) { std::fesetround(mode); }
  ~ScopedRounding() { std::fesetround(FE_TONEAREST); }
  ScopedRounding(const ScopedRounding&) = delete;
  ScopedRounding& operator=(const ScopedRounding&) = delete;
};

void checkDoublesInEveryRoundingMode() {
  const std::vector<double> numbers = manyDoubles();
  for (const int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    const ScopedRounding rounding(mode);
    for (const double number : numbers) {
      ASSERT_EQ(Tool::double2str(number), plainDouble(number)) << mode;
      ASSERT_EQ(Tool::double2str(-number), plainDouble(-number)) << mode;
    }
  }
}

TEST(PlainForm, OfDoublesHoldsInEveryRoundingMode) {
  checkDoublesInEveryRoundingMode();
  const ScopedRounding rounding(FE_UPWARD);
  EXPECT_EQ(Tool::double2str(1.0000001), "1.00001");
  EXPECT_EQ(Tool::double2str(-1.0000001), "-1");
}

TEST(PlainForm, OfDoublesHoldsWithADecimalComma) {
  const CommaLocale locale;
  if (!locale.isSet()) {
    GTEST_SKIP() << "localedef gives no locale";
  }
  checkDoublesInEveryRoundingMode();
  EXPECT_EQ(Tool::double2str(0.5), "0,5");
  EXPECT_EQ(Tool::double2str(-1.25e100), "-1,25e+100");
}

// ---- a thread's own locale

// What is the process's locale becomes the calling thread's alone, and the process's is "C".
class ThreadsLocale {
 public:
  explicit ThreadsLocale(int category)
      : m_locale(duplocale(LC_GLOBAL_LOCALE)), m_old(uselocale(m_locale)) {
    setlocale(category, "C");
  }
  ~ThreadsLocale() {
    uselocale(m_old);
    freelocale(m_locale);
  }
  ThreadsLocale(const ThreadsLocale&) = delete;
  ThreadsLocale& operator=(const ThreadsLocale&) = delete;

 private:
  locale_t m_locale;
  locale_t m_old;
};

TEST(ThreadsOwnLocale, HoldsForLettersAndConversions) {
  const LettersLocale made("ISO-8859-9", 1, kelp_test::turkishAlphabet());
  if (!made.isSet()) {
    GTEST_SKIP() << "localedef gives no locale";
  }
  EXPECT_EQ(Tool::tostrupper(std::string("di")), "D\xdd");
  {
    const ThreadsLocale threads(LC_CTYPE);
    EXPECT_EQ(Tool::tostrupper(std::string("di")), "D\xdd");
    EXPECT_EQ(Tool::tostrlower(std::wstring(L"DI")), L"d\u0131");
    EXPECT_FALSE(Tool::CompareNoCase(std::string("i"), std::string("I")));
    EXPECT_EQ(Tool::str2wstr(std::string("i\xdd")), L"i\u0130");
    EXPECT_EQ(Tool::wstr2str(std::wstring(L"i\u0130")), "i\xdd");
  }
  EXPECT_EQ(Tool::tostrupper(std::string("di")), "DI");
  EXPECT_TRUE(Tool::CompareNoCase(std::string("i"), std::string("I")));
  EXPECT_EQ(Tool::wstr2str(std::wstring(L"i\u0130")), "i");
}

TEST(ThreadsOwnLocale, HoldsForTheDecimalPoint) {
  const CommaLocale made;
  if (!made.isSet()) {
    GTEST_SKIP() << "localedef gives no locale";
  }
  EXPECT_EQ(Tool::double2str(0.5), "0,5");
  {
    const ThreadsLocale threads(LC_NUMERIC);
    EXPECT_EQ(Tool::double2str(0.5), "0,5");
    EXPECT_EQ(Tool::str2double("0,5"), 0.5);
  }
  EXPECT_EQ(Tool::double2str(0.5), "0.5");
}

}  // namespace
