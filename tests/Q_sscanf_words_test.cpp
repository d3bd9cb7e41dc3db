// The scanner's words beside a plain form, which asks the platform about every byte.
#include "Q_sscanf.h"
#include "letters_locale.h"
#include "long_texts.h"
#include "scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstddef>
#include <string>

namespace {

using kelp_test::forEachLength;
using kelp_test::Ingredients;
using testing::PrintToString;

constexpr int room = 400;  // for any word of these tests

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

struct Read {
  int result;
  std::string word;

  bool operator==(const Read& other) const { return result == other.result && word == other.word; }
};

void PrintTo(const Read& read, std::ostream* out) {
  *out << read.result << ", " << PrintToString(read.word);
}

Read plainWord(const std::string& text, size_t longest) {
  const auto end = std::find(text.begin(), text.end(), '\0');
  const auto first = std::find_if_not(text.begin(), end, isSpace);
  if (first == end) {
    return {-1, ""};
  }
  return {1, std::string(first, std::find_if(first, end, isSpace)).substr(0, longest)};
}

Read scannedWord(const std::string& text, const char* format) {
  char word[room] = "";
  const int result = Q_sscanf(text.c_str(), format, word, room);
  return {result, word};
}

Ingredients<char> bytesIn(const std::string& common) {
  Ingredients<char> ingredients{common, {}};
  for (int byte = 0; byte < 0x100; ++byte) {
    ingredients.rare.emplace_back(1, static_cast<char>(byte));
  }
  return ingredients;
}

void checkWords() {
  forEachLength(bytesIn("abcxyzABCXYZ0123456789!~.-_"), [](const std::string& text) {
    ASSERT_EQ(scannedWord(text, "%s"), plainWord(text, room)) << PrintToString(text);
    ASSERT_EQ(scannedWord(text, "%21s"), plainWord(text, 21)) << PrintToString(text);
  });
}

// The byte stands at each place of a run of eight, with the text's end at each distance behind it.
void checkEveryByteAtEveryPlace() {
  for (int byte = 0; byte < 0x100; ++byte) {
    for (size_t place = 0; place < 20; ++place) {
      std::string text(20, 'w');
      text[place] = static_cast<char>(byte);
      ASSERT_EQ(scannedWord(text, "%s"), plainWord(text, room)) << PrintToString(text);
    }
  }
}

TEST(SscanfWords, HoldWhatIsNoWhiteSpaceInThePlatformsLocales) {
  for (const char* const locale : {"C", "C.utf8"}) {
    std::setlocale(LC_ALL, locale);
    checkWords();
    checkEveryByteAtEveryPlace();
    std::setlocale(LC_ALL, "C");
  }
}

TEST(SscanfWords, HoldWhatIsNoWhiteSpaceWhereANoBreakSpaceIs) {
  const kelp_test::LettersLocale locale("ISO-8859-1", 1, kelp_test::latinAlphabet());
  if (!locale.isSet()) {
    GTEST_SKIP() << "localedef gives no locale";
  }
  ASSERT_TRUE(isSpace('\xa0'));
  checkWords();
  checkEveryByteAtEveryPlace();
}

TEST(SscanfWords, HoldWhatIsNoWhiteSpaceInShiftJis) {
  const kelp_test::LettersLocale locale("SHIFT_JIS", 2, kelp_test::asciiAlphabet());
  if (!locale.isSet()) {
    GTEST_SKIP() << "localedef gives no locale";
  }
  checkWords();
  checkEveryByteAtEveryPlace();
}

class PrintedWhiteSpace : public testing::Test {
 protected:
  void SetUp() override {
    if (!m_locale.isSet()) {
      GTEST_SKIP() << "localedef gives no locale";
    }
    ASSERT_TRUE(isSpace('_'));
    ASSERT_TRUE(isSpace('\x7f'));
  }

  const kelp_test::MadeLocale m_locale{LC_CTYPE,
                                       "LC_CTYPE\nspace <U0009>;<U000A>;<U000B>;<U000C>;<U000D>;"
                                       "<U0020>;<U002B>;<U002D>;<U005F>;<U007F>\nEND LC_CTYPE\n"};
};

TEST_F(PrintedWhiteSpace, EndsWords) {
  checkWords();
  checkEveryByteAtEveryPlace();
}

TEST_F(PrintedWhiteSpace, InAFormatStandsForAnyNumberOfThem) {
  int number = 0;
  EXPECT_EQ(Q_sscanf("id__\x7f 7", "id_%d", &number, 4), 1);
  EXPECT_EQ(number, 7);
  EXPECT_EQ(Q_sscanf("id8", "id_%d", &number, 4), 1);
  EXPECT_EQ(number, 8);
  EXPECT_EQ(Q_sscanf("a__b9", "a_b%d", &number, 4), 1);
  EXPECT_EQ(number, 9);
}

TEST_F(PrintedWhiteSpace, IsNoSignOfANumber) {
  for (const char* format : {"%d", "%2d", "%i", "%u", "%o", "%x"}) {
    for (const char* text : {"-5", "+5", "-_5", "-5 "}) {
      int number = 0;
      EXPECT_EQ(Q_sscanf(text, format, &number, 4), 1) << format << ' ' << text;
      EXPECT_EQ(number, 5) << format << ' ' << text;
      const std::string second = std::string("%*d") + format;
      EXPECT_EQ(Q_sscanf((std::string("7") + text).c_str(), second.c_str(), &number, 4), 1);
      EXPECT_EQ(number, 5) << second << ' ' << text;
    }
  }
  double floating = 0;
  EXPECT_EQ(Q_sscanf("-5", "%lf", &floating, 8), 1);
  EXPECT_EQ(floating, 5);
}

// ---- text that comes in pieces

const char* rest = nullptr;

int readPiece(void* /*source*/, char* buffer, int size) {
  const size_t length = std::min(std::char_traits<char>::length(rest), static_cast<size_t>(size));
  std::copy_n(rest, length, buffer);
  rest += length;
  return static_cast<int>(length);
}

TEST(SscanfWords, ArePutTogetherFromPiecesOfEverySize) {
  const std::string text = "  backup-server.example.com up";
  for (int size = 1; size < 40; ++size) {
    char buffer[40];
    ScanSource source{};
    source.base = buffer;
    source.size = size;
    source.read = readPiece;
    rest = text.c_str();
    char word[room] = "";
    ASSERT_EQ(kelp_test::scan(&source, "%s", word, room), 1) << size;
    EXPECT_STREQ(word, "backup-server.example.com") << size;
  }
}

}  // namespace
