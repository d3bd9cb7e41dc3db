#include "charset_locale.h"
#include "cmnstringtool.h"
#include "heap.h"
#include "letters_locale.h"
#include "plain_text.h"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cwchar>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_test::CharsetLocale;
using kelp_test::FreshBytes;
using kelp_test::plainlyDecoded;
using kelp_test::plainlyEncoded;

struct Charset {
  const char* name;
  int longestCharacter;
  const char* sample;
  wchar_t character;
};

void PrintTo(const Charset& charset, std::ostream* out) { *out << charset.name; }

// All multibyte encodings for which the platform has a character map.
constexpr Charset charsets[] = {
    {"BIG5", 2, "\xa4\xa4", 0x4e2d},          {"BIG5-HKSCS", 2, "\xa4\xa4", 0x4e2d},
    {"CP949", 2, "\xb0\xa1", 0xac00},         {"EUC-JISX0213", 3, "\xa4\xa2", 0x3042},
    {"EUC-JP", 3, "\xa4\xa2", 0x3042},        {"EUC-JP-MS", 3, "\xa4\xa2", 0x3042},
    {"EUC-KR", 2, "\xb0\xa1", 0xac00},        {"EUC-TW", 4, "\x8e\xa2\xa1\xa1", 0x4e42},
    {"GB18030", 4, "\x81\x30\x81\x30", 0x80}, {"GB2312", 2, "\xd6\xd0", 0x4e2d},
    {"GBK", 2, "\xd6\xd0", 0x4e2d},           {"JOHAB", 2, "\x88\x61", 0xac00},
    {"SHIFT_JIS", 2, "\x82\xa0", 0x3042},     {"SHIFT_JISX0213", 2, "\x82\xa0", 0x3042},
    {"TCVN5712-1", 2, "\xb8", 0xe1},          {"UTF-8", 6, "\xe2\x82\xac", 0x20ac},
    {"WINDOWS-31J", 2, "\x82\xa0", 0x3042}};

// Characters that the locale has, and any others; never 0.
class Characters {
 public:
  explicit Characters(std::mt19937& random) : m_random(random) {
    for (wchar_t c = 0x80; c < 0x30000; c += static_cast<wchar_t>(1 + random() % 7)) {
      char bytes[MB_LEN_MAX];
      std::mbstate_t state{};
      if (std::wcrtomb(bytes, c, &state) != static_cast<size_t>(-1)) {
        m_known.push_back(c);
      }
    }
  }

  // Shorter than `bound`; so many characters in a hundred are any at all.
  std::wstring text(size_t bound, unsigned int othersInAHundred) {
    std::wstring result;
    for (size_t length = m_random() % bound; length > 0; --length) {
      result += m_random() % 100 < othersInAHundred
                    ? static_cast<wchar_t>(1 + m_random() % 0x110000)
                    : known();
    }
    return result;
  }

 private:
  wchar_t known() {
    return m_random() % 4 == 0 ? static_cast<wchar_t>(1 + m_random() % 0x7f)
                               : m_known[m_random() % m_known.size()];
  }

  std::mt19937& m_random;
  std::vector<wchar_t> m_known;
};

class MultibyteLocale : public testing::TestWithParam<Charset> {
 protected:
  void SetUp() override {
    if (!m_locale.converts(GetParam().sample, GetParam().character)) {
      GTEST_SKIP() << "localedef and the platform's converters give no locale of "
                   << GetParam().name;
    }
  }

  static void checkDecoding(const std::string& text) {
    const std::wstring result = Tool::str2wstr(text);
    ASSERT_TRUE(result == plainlyDecoded(text))
        << testing::PrintToString(text) << " gave " << testing::PrintToString(result) << ", not "
        << testing::PrintToString(plainlyDecoded(text));
  }

  static void checkEncoding(const std::wstring& text) {
    const std::string result = Tool::wstr2str(text);
    ASSERT_TRUE(result == plainlyEncoded(text))
        << testing::PrintToString(text) << " gave " << testing::PrintToString(result) << ", not "
        << testing::PrintToString(plainlyEncoded(text));
  }

 private:
  CharsetLocale m_locale{GetParam().name, GetParam().longestCharacter};
};

std::string testName(const testing::TestParamInfo<Charset>& info) {
  std::string name = info.param.name;
  for (char& c : name) {
    c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Of, MultibyteLocale, testing::ValuesIn(charsets), testName);

TEST_P(MultibyteLocale, DecodesEveryTextOfTwoBytesAsCharacterByCharacter) {
  for (int first = 1; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const char bytes[] = {static_cast<char>(first), static_cast<char>(second), '\0'};
      ASSERT_NO_FATAL_FAILURE(checkDecoding(bytes));
    }
  }
}

// Calls `check` with random numbers, the characters to choose from and the number of the round.
template <class Check>
void forManyRounds(Check check) {
  for (unsigned int seed = 1; seed <= 2; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Characters characters(random);
    for (int round = 0; round < 3000; ++round) {
      ASSERT_NO_FATAL_FAILURE(check(random, characters, round));
    }
  }
}

TEST_P(MultibyteLocale, DecodesValidCutAndDamagedTextsAsCharacterByCharacter) {
  forManyRounds([](std::mt19937& random, Characters& characters, int round) {
    std::string text = plainlyEncoded(characters.text(round % 20 == 0 ? 200 : 8, 0));
    ASSERT_NO_FATAL_FAILURE(checkDecoding(text));
    if (!text.empty()) {
      text.resize(random() % text.size() + 1);
      ASSERT_NO_FATAL_FAILURE(checkDecoding(text));
      text[random() % text.size()] = static_cast<char>(1 + random() % 255);
      ASSERT_NO_FATAL_FAILURE(checkDecoding(text));
    }
  });
}

TEST_P(MultibyteLocale, EncodesEveryCharacterAsByItself) {
  for (wchar_t c = 1; c < 0x30000; ++c) {
    // The converter writes two bytes for this one before it refuses it, and what is written stays.
    if (c != 0x327e || GetParam().name != std::string("CP949")) {
      ASSERT_NO_FATAL_FAILURE(checkEncoding(std::wstring(1, c)));
    }
  }
}

TEST_P(MultibyteLocale, EncodesTextsAsCharacterByCharacterUpToTheBudget) {
  forManyRounds([](std::mt19937& /*random*/, Characters& characters, int round) {
    checkEncoding(characters.text(round % 20 == 0 ? 200 : 12, round % 2 == 0 ? 0 : 3));
  });
}

// The platform counts such a text without an error, but writes no terminator.
void expectNothingOf(const Charset& charset, const std::vector<std::string>& texts) {
  const CharsetLocale locale(charset.name, charset.longestCharacter);
  if (!locale.converts(charset.sample, charset.character)) {
    GTEST_SKIP() << "localedef and the platform's converters give no locale of " << charset.name;
  }
  for (const std::string& text : texts) {
    for (const int byte : {0x00, 0x01, 0xa5}) {
      const FreshBytes fresh(static_cast<unsigned char>(byte));
      const std::wstring result = Tool::str2wstr(text);
      EXPECT_TRUE(result.empty()) << testing::PrintToString(text) << " gave "
                                  << testing::PrintToString(result) << " over bytes " << byte;
    }
  }
}

TEST(Str2wstr, GivesNothingForATextThatEndsInsideACharacterOfGb18030) {
  expectNothingOf({"GB18030", 4, "\x81\x30\x81\x30", 0x80},
                  {"\x81", "\x81\x31", "\x81\x31\x81", "a\x81\x31", "ab\x84\x31\xa4",
                   std::string(200, 'x') + "\x81\x31"});
}

TEST(Str2wstr, GivesNothingForATextThatEndsInsideACharacterOfEucTw) {
  expectNothingOf(
      {"EUC-TW", 4, "\x8e\xa2\xa1\xa1", 0x4e42},
      {"\x8e", "\x8e\xa3", "\x8e\xa2\xa1", "a\x8e\xa3", std::string(200, 'x') + "\x8e\xa3"});
}

// The platform counts characters by a window, and in some encodings does not come to an end where
// only the first of two that one sequence stands for has room there.
TEST(Str2wstr, DecodesASequenceForTwoCharactersAtEveryPlace) {
  const struct {
    const char* charset;
    int longestCharacter;
    const char* sequence;
  } cases[] = {{"BIG5-HKSCS", 2, "\x88\x62"},
               {"EUC-JISX0213", 3, "\xab\xe5"},
               {"SHIFT_JISX0213", 2, "\x86\x86"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.charset);
    const CharsetLocale locale(each.charset, each.longestCharacter);
    const std::wstring two = plainlyDecoded(each.sequence);
    if (two.size() != 2) {
      GTEST_SKIP() << "localedef and the platform's converters give no locale of " << each.charset;
    }
    for (size_t before = 0; before < 200; ++before) {
      const std::string text = std::string(before, 'a') + each.sequence + "b" + each.sequence;
      ASSERT_EQ(Tool::str2wstr(text), std::wstring(before, L'a') + two + L"b" + two) << before;
    }
  }
}

TEST(Wstr2str, KeepsWhatTheConverterForCp949WritesOfTheCharacterThatItRefuses) {
  const CharsetLocale locale("CP949", 2);
  if (!locale.converts("\xb0\xa1", 0xac00)) {
    GTEST_SKIP() << "localedef and the platform's converters give no locale of CP949";
  }
  EXPECT_EQ(Tool::wstr2str(std::wstring(L"a\u327ebc")), "a\x22\x68");
}

// ---- the case of bytes, in a thread that is older than the locale

std::string upperCaseOfThePlatform(std::string text) {
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    c = std::isalpha(byte) != 0 ? static_cast<char>(std::toupper(byte)) : c;
  }
  return text;
}

TEST(CaseOfBytes, IsWhatThePlatformMakesOfThemInAThreadThatIsOlderThanTheLocale) {
  std::promise<void> isSet;
  std::thread older([locale = isSet.get_future()] {
    locale.wait();
    for (int byte = 0; byte < 0x100; ++byte) {
      for (const size_t length : {size_t{1}, size_t{300}}) {
        const std::string text(length, static_cast<char>(byte));
        EXPECT_EQ(Tool::tostrupper(text), upperCaseOfThePlatform(text));
      }
    }
    const bool isPair = std::toupper('i') == std::toupper('I');
    EXPECT_EQ(Tool::CompareNoCase("i", "I"), isPair);
  });
  const kelp_test::LettersLocale locale("ISO-8859-9", 1, kelp_test::turkishAlphabet());
  isSet.set_value();
  older.join();
  if (!locale.isSet()) {
    GTEST_SKIP() << "localedef gives no locale";
  }
}

}  // namespace
