#include "all_texts.h"
#include "cmnstringtool.h"
#include "guarded_page.h"
#include "plain_text.h"
#include "scratch.h"
#include "until_failure.h"

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_test::BinaryRead;
using kelp_test::Bytes;
using kelp_test::done;
using kelp_test::forEachText;
using kelp_test::forEachTextOf;
using kelp_test::GuardedPage;
using kelp_test::plainHexadecimal;
using kelp_test::plainlyIsIpAddress;
using kelp_test::plainlyRead;
using kelp_test::plainTokens;
using kelp_test::refused;
using kelp_test::ScopedLocale;
using kelp_test::untilFailure;
using kelp_test::untouched;
using Texts = std::vector<std::string>;

const std::string zeroByte(1, '\0');

// A text with all the zero bytes of a literal, but its terminator.
template <size_t size>
std::string literal(const char (&characters)[size]) {
  return std::string(characters, size - 1);
}

std::string randomText(const Texts& pieces, size_t count, std::mt19937& random) {
  std::string text;
  while (count-- > 0) {
    text += pieces[random() % pieces.size()];
  }
  return text;
}

BinaryRead readBinary(const std::string& hex, int size, size_t room = 8) {
  BinaryRead read = {done, size, Bytes(room, untouched)};
  read.status = Tool::str2binary(read.out.data(), &read.size, hex);
  return read;
}

BinaryRead bytesRead(const Bytes& bytes) {
  BinaryRead read = {done, static_cast<int>(bytes.size()), bytes};
  read.out.resize(8, untouched);
  return read;
}

// ---- XML

struct Conversion {
  std::string from;
  std::string to;
};

void expectConversions(std::string (*convert)(const std::string&),
                       const std::vector<Conversion>& conversions) {
  for (const auto& [from, to] : conversions) {
    EXPECT_EQ(convert(from), to);
  }
}

TEST(ConvertToXmlSpecialCharacters, WritesEntitiesForTheSpecialCharacters) {
  expectConversions(Tool::convertToXmlSpecialCharacters, {{"", ""},
                                                          {"plain text", "plain text"},
                                                          {"&", "&amp;"},
                                                          {"<", "&lt;"},
                                                          {">", "&gt;"},
                                                          {"\"", "&quot;"},
                                                          {"'", "&#39;"},
                                                          {"&<>\"'", "&amp;&lt;&gt;&quot;&#39;"},
                                                          {"a<b", "a&lt;b"},
                                                          {"&&", "&amp;&amp;"},
                                                          {"<<>>", "&lt;&lt;&gt;&gt;"},
                                                          {"&lt;", "&amp;lt;"},
                                                          {"&amp;", "&amp;amp;"},
                                                          {"&#39;", "&amp;#39;"},
                                                          {"\xc3\xa9<\xff", "\xc3\xa9&lt;\xff"}});
}

TEST(ConvertToXmlSpecialCharacters, LeavesEveryOtherByte) {
  for (int byte = 1; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const bool special = std::string("&<>\"'").find(text) != std::string::npos;
    EXPECT_EQ(Tool::convertToXmlSpecialCharacters(text) != text, special) << byte;
    EXPECT_EQ(Tool::convertFromXmlSpecialCharacters(text), text) << byte;
  }
}

TEST(ConvertToXmlSpecialCharacters, EndsAtTheFirstZeroByte) {
  EXPECT_EQ(Tool::convertToXmlSpecialCharacters(literal("a<\0<b")), "a&lt;");
  EXPECT_EQ(Tool::convertToXmlSpecialCharacters(literal("ab\0cd")), "ab");
  EXPECT_EQ(Tool::convertToXmlSpecialCharacters(literal("\0&")), "");
}

TEST(ConvertFromXmlSpecialCharacters, PutsTheCharactersOfTheEntities) {
  expectConversions(Tool::convertFromXmlSpecialCharacters, {{"", ""},
                                                            {"&amp;", "&"},
                                                            {"&lt;", "<"},
                                                            {"&gt;", ">"},
                                                            {"&quot;", "\""},
                                                            {"&#39;", "'"},
                                                            {"&amp;&lt;&gt;&quot;&#39;", "&<>\"'"},
                                                            {"x&lt;y&lt;z", "x<y<z"},
                                                            {"&<>\"'", "&<>\"'"},
                                                            {"&&lt;;", "&<;"}});
}

TEST(ConvertFromXmlSpecialCharacters, LooksAtAnAmpersandsEntityLast) {
  expectConversions(Tool::convertFromXmlSpecialCharacters, {{"&amp;lt;", "&lt;"},
                                                            {"&amp;gt;", "&gt;"},
                                                            {"&amp;quot;", "&quot;"},
                                                            {"&amp;#39;", "&#39;"},
                                                            {"&amp;amp;", "&amp;"},
                                                            {"&amp;amp;lt;", "&amp;lt;"},
                                                            {"&&amp;lt;", "&&lt;"}});
}

TEST(ConvertFromXmlSpecialCharacters, KnowsNoOtherEntity) {
  for (const char* text : {"&apos;", "&#38;", "&#60;", "&#x27;", "&#039;", "&#39", "&lt", "&LT;",
                           "&Amp;", "&nbsp;", "& amp;", "amp;", "&;", "&", "&quot", "&#39 ;"}) {
    EXPECT_EQ(Tool::convertFromXmlSpecialCharacters(text), text);
  }
}

TEST(ConvertFromXmlSpecialCharacters, EndsAtTheFirstZeroByte) {
  EXPECT_EQ(Tool::convertFromXmlSpecialCharacters(literal("&lt;\0&gt;")), "<");
  EXPECT_EQ(Tool::convertFromXmlSpecialCharacters(literal("&l\0t;")), "&l");
  EXPECT_EQ(Tool::convertFromXmlSpecialCharacters(literal("\0&lt;")), "");
}

const Texts entityPieces = {"&amp;", "&lt;", "&gt;",  "&quot;", "&#39;", "&apos;", "&",
                            "amp;",  "lt;",  "quot;", "#39;",   ";",     "a",      "<"};

TEST(ConvertFromXmlSpecialCharacters, UndoesTheEscaping) {
  forEachTextOf(
      entityPieces, 3, untilFailure([](const std::string& text) {
        EXPECT_EQ(Tool::convertFromXmlSpecialCharacters(Tool::convertToXmlSpecialCharacters(text)),
                  text);
      }));
  Texts pieces = entityPieces;
  for (int byte = 1; byte < 256; ++byte) {
    pieces.emplace_back(1, static_cast<char>(byte));
  }
  for (unsigned seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::string text = randomText(pieces, random() % 200, random);
    const std::string escaped = Tool::convertToXmlSpecialCharacters(text);
    EXPECT_EQ(escaped.find_first_of("<>\"'"), std::string::npos);
    EXPECT_EQ(Tool::convertFromXmlSpecialCharacters(escaped), text);
  }
}

TEST(XmlBracket, OpensOrClosesWithOrWithoutANewline) {
  EXPECT_EQ(Tool::xmlBracket("A", true, false), "<A>");
  EXPECT_EQ(Tool::xmlBracket("A", true, true), "<A>\n");
  EXPECT_EQ(Tool::xmlBracket("A", false, false), "</A>");
  EXPECT_EQ(Tool::xmlBracket("A", false, true), "</A>\n");
}

TEST(XmlBracket, TakesTheNameAsItIs) {
  EXPECT_EQ(Tool::xmlBracket("", true, false), "<>");
  EXPECT_EQ(Tool::xmlBracket("", false, true), "</>\n");
  EXPECT_EQ(Tool::xmlBracket("a b='<&>'", true, false), "<a b='<&>'>");
  EXPECT_EQ(Tool::xmlBracket(literal("a\0b"), false, false), literal("</a\0b>"));
}

TEST(XmlBracketValue, WritesAnIndentedLine) {
  EXPECT_EQ(Tool::xmlBracketValue("ID", "a<b"), "\t<ID>a&lt;b</ID>\n");
  EXPECT_EQ(Tool::xmlBracketValue("ID", ""), "\t<ID></ID>\n");
  EXPECT_EQ(Tool::xmlBracketValue("", "x"), "\t<>x</>\n");
}

TEST(XmlBracketValue, EscapesTheValueButNotTheName) {
  EXPECT_EQ(Tool::xmlBracketValue("a&b", "&<>\"'"), "\t<a&b>&amp;&lt;&gt;&quot;&#39;</a&b>\n");
  EXPECT_EQ(Tool::xmlBracketValue(literal("a\0b"), literal("c\0d")), literal("\t<a\0b>c</a\0b>\n"));
}

// ---- Hexadecimal

TEST(Binary2str, WritesTwoLowerCaseDigitsForEachByte) {
  unsigned char bytes[] = {0x00, 0xff, 0x10};
  EXPECT_EQ(Tool::binary2str(bytes, 3), "00ff10");
  EXPECT_EQ(Tool::binary2str(bytes, 1), "00");
  for (int byte = 0; byte < 256; ++byte) {
    auto one = static_cast<unsigned char>(byte);
    EXPECT_EQ(Tool::binary2str(&one, 1), plainHexadecimal({one}));
  }
}

TEST(Binary2str, OfNoBytesIsEmpty) {
  unsigned char byte = 'x';
  for (const int count : {0, -1, -2, INT_MIN}) {
    EXPECT_EQ(Tool::binary2str(&byte, count), "");
    EXPECT_EQ(Tool::binary2str(nullptr, count), "");
    EXPECT_EQ(Tool::binary2wstr(&byte, count), L"");
    EXPECT_EQ(Tool::binary2wstr(nullptr, count), L"");
  }
}

TEST(Binary2wstr, WritesTwoLowerCaseDigitsForEachByte) {
  unsigned char bytes[] = {0x00, 0xff, 0x10};
  EXPECT_EQ(Tool::binary2wstr(bytes, 3), L"00ff10");
}

TEST(Str2binary, ReadsPairsInEitherCase) {
  EXPECT_EQ(readBinary("0aFF", 2), bytesRead({0x0a, 0xff}));
  EXPECT_EQ(readBinary("aBcDeF09", 4), bytesRead({0xab, 0xcd, 0xef, 0x09}));
  EXPECT_EQ(readBinary("00", 1), bytesRead({0x00}));
}

TEST(Str2binary, SetsTheSizeToTheNumberOfBytesStored) {
  EXPECT_EQ(readBinary("0aFF", 8), bytesRead({0x0a, 0xff}));
  EXPECT_EQ(readBinary("0aFF", INT_MAX), bytesRead({0x0a, 0xff}));
  EXPECT_EQ(readBinary("0aF", 8), bytesRead({0x0a}));
}

TEST(Str2binary, RefusesTooLittleRoomAndLeavesAllAsItWas) {
  const struct {
    const char* hex;
    int size;
  } cases[] = {{"0aFF", 1}, {"0aFF", 0}, {"0aFF", -1}, {"0aFF", INT_MIN}, {"0aFF1", 1},
               {"12", 0},   {"123", 0},  {"1", -1},    {"", -1},          {"zz", 0}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.hex);
    EXPECT_EQ(readBinary(each.hex, each.size),
              (BinaryRead{refused, each.size, Bytes(8, untouched)}));
  }
}

TEST(Str2binary, DropsTheLastOfAnOddNumberOfDigits) {
  EXPECT_EQ(readBinary("abc", 1), bytesRead({0xab}));
  EXPECT_EQ(readBinary("12345", 2), bytesRead({0x12, 0x34}));
}

TEST(Str2binary, OfOneCharacterStoresNothing) {
  for (const std::string& hex : {std::string("a"), std::string("z"), literal("\0")}) {
    for (const int size : {0, 1, 8}) {
      EXPECT_EQ(readBinary(hex, size), bytesRead({}));
    }
    int size = 3;
    EXPECT_EQ(Tool::str2binary(nullptr, &size, hex), done);
    EXPECT_EQ(size, 0);
  }
}

TEST(Str2binary, TakesOfAnyPairWhatStrtolMakesOfIt) {
  const struct {
    std::string pair;
    unsigned char byte;
  } cases[] = {{"zz", 0},
               {"1z", 1},
               {"z1", 0},
               {"-1", 0xff},
               {"-f", 0xf1},
               {"+f", 0x0f},
               {" a", 0x0a},
               {"\ta", 0x0a},
               {"\na", 0x0a},
               {"a ", 0x0a},
               {"0x", 0},
               {"0X", 0},
               {"x0", 0},
               {"--", 0},
               {"- ", 0},
               {"  ", 0},
               {"g0", 0},
               {"0g", 0},
               {"/:", 0},
               {"@G", 0},
               {"`g", 0},
               {"1" + zeroByte, 1},
               {zeroByte + "1", 0},
               {"\xff"
                "1",
                0}};
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.pair));
    EXPECT_EQ(readBinary(each.pair, 1), bytesRead({each.byte}));
    EXPECT_EQ(readBinary("12" + each.pair + "34", 3), bytesRead({0x12, each.byte, 0x34}));
  }
}

TEST(Str2binary, ReadsEveryPairOfDigits) {
  const std::string digits[] = {"0123456789abcdef", "0123456789ABCDEF"};
  for (const std::string& firsts : digits) {
    for (const std::string& seconds : digits) {
      for (int byte = 0; byte < 256; ++byte) {
        const std::string pair = {firsts[static_cast<size_t>(byte / 16)],
                                  seconds[static_cast<size_t>(byte % 16)]};
        EXPECT_EQ(readBinary(pair, 1), bytesRead({static_cast<unsigned char>(byte)})) << pair;
      }
    }
  }
}

TEST(Str2binary, AgreesWithThePlainFormOnAllShortTexts) {
  forEachText(literal("09afFgxX+- \0"), 4, untilFailure([](const std::string& hex) {
                for (int size = -1; !hex.empty() && size <= 3; ++size) {
                  EXPECT_EQ(readBinary(hex, size), plainlyRead(hex, size)) << size;
                }
              }));
}

// Callers must not do this, but those that do rely on what happens then.
TEST(Str2binary, OfAnEmptyTextStoresOneZeroByteAndThrows) {
  for (const int capacity : {0, 1, 5}) {
    SCOPED_TRACE(capacity);
    GuardedPage<unsigned char> out(1);
    out.data()[0] = untouched;
    int size = capacity;
    try {
      Tool::str2binary(out.data(), &size, "");
      ADD_FAILURE() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
      EXPECT_EQ(std::string(error.what()).find("basic_string::substr"), 0U) << error.what();
    }
    EXPECT_EQ(out.data()[0], 0);
    EXPECT_EQ(size, capacity);
  }
}

TEST(Str2binary, WritesNothingBehindItsBytes) {
  for (size_t length = 2; length <= 40; ++length) {
    GuardedPage<unsigned char> out(length / 2);
    int size = static_cast<int>(length / 2);
    EXPECT_EQ(Tool::str2binary(out.data(), &size, std::string(length, '7')), done);
    EXPECT_EQ(size, static_cast<int>(length / 2));
    EXPECT_TRUE(std::all_of(out.data(), out.data() + length / 2,
                            [](unsigned char byte) { return byte == 0x77; }));
  }
}

TEST(Str2binary, ReadsWhatItHasStoredIntoTheTextItself) {
  std::string hex = "0a30ffff";
  int size = 4;
  ASSERT_EQ(Tool::str2binary(reinterpret_cast<unsigned char*>(&hex[2]), &size, hex), done);
  // "\n0" is what the second pair has become.
  EXPECT_EQ(hex, std::string("0a\x0a\0\xff\xff"
                             "ff",
                             8));
}

TEST(Str2binary, ReadsATextInItsOwnPlace) {
  std::string hex = "0a30ffff";
  int size = 4;
  ASSERT_EQ(Tool::str2binary(reinterpret_cast<unsigned char*>(hex.data()), &size, hex), done);
  EXPECT_EQ(hex.substr(0, 4), "\x0a\x30\xff\xff");
}

TEST(Str2binary, UndoesBinary2str) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Bytes bytes(1 + random() % 500);
    std::generate(bytes.begin(), bytes.end(),
                  [&] { return static_cast<unsigned char>(random() & 0xff); });
    const int count = static_cast<int>(bytes.size());
    Bytes out(bytes.size());
    int size = count;
    EXPECT_EQ(Tool::str2binary(out.data(), &size, Tool::binary2str(bytes.data(), count)), done);
    EXPECT_EQ(size, count);
    EXPECT_EQ(out, bytes);
    size = count;
    std::fill(out.begin(), out.end(), untouched);
    EXPECT_EQ(Tool::wstr2binary(out.data(), &size, Tool::binary2wstr(bytes.data(), count), false),
              done);
    EXPECT_EQ(size, count);
    EXPECT_EQ(out, bytes);
  }
}

TEST(Wstr2binary, ReadsTheNarrowTextWhateverTheFlag) {
  for (const bool flag : {false, true}) {
    unsigned char out[] = {untouched, untouched, untouched};
    int size = 3;
    EXPECT_EQ(Tool::wstr2binary(out, &size, L"0aFFc", flag), done);
    EXPECT_EQ(size, 2);
    EXPECT_EQ(Bytes(out, out + 3), (Bytes{0x0a, 0xff, untouched}));
    size = 1;
    EXPECT_EQ(Tool::wstr2binary(out, &size, L"1234", flag), refused);
    EXPECT_EQ(size, 1);
    EXPECT_EQ(Bytes(out, out + 3), (Bytes{0x0a, 0xff, untouched}));
    size = 3;
    EXPECT_EQ(Tool::wstr2binary(out, &size, L"a", flag), done);
    EXPECT_EQ(size, 0);
    EXPECT_THROW(Tool::wstr2binary(out, &size, L"", flag), std::out_of_range);
    EXPECT_EQ(out[0], 0);
  }
}

TEST(Wstr2binary, ThrowsWhereTheLocaleHasNoNarrowText) {
  unsigned char out[] = {untouched};
  int size = 1;
  EXPECT_THROW(Tool::wstr2binary(out, &size, L"\u00e912", false), std::out_of_range);
  EXPECT_EQ(size, 1);
}

TEST(Wstr2binary, CountsTheBytesOfTheNarrowText) {
  const ScopedLocale locale("C.UTF-8");
  unsigned char out[] = {untouched, untouched};
  int size = 2;
  EXPECT_EQ(Tool::wstr2binary(out, &size, L"12\u00e9", false), done);
  EXPECT_EQ(size, 2);
  EXPECT_EQ(Bytes(out, out + 2), (Bytes{0x12, 0x00}));
  size = 1;
  EXPECT_EQ(Tool::wstr2binary(out, &size, L"12\u00e9", false), refused);
  EXPECT_EQ(Tool::wstr2binary(out, &size,
                              std::wstring(L"34\0"
                                           L"56",
                                           5),
                              false),
            done);
  EXPECT_EQ(size, 1);
  EXPECT_EQ(out[0], 0x34);
}

// ---- Identifiers

TEST(Str2uid, BeginsWithTheTypeInAtLeastFourDigits) {
  const struct {
    unsigned int type;
    const char* digits;
  } cases[] = {{0, "0000"},
               {1, "0001"},
               {0xab, "00ab"},
               {0xffff, "ffff"},
               {0x10000, "10000"},
               {0x12345, "12345"},
               {0x7fffffff, "7fffffff"},
               {0x80000000, "80000000"},
               {0xffffffff, "ffffffff"}};
  for (const auto& each : cases) {
    EXPECT_EQ(Tool::str2uid(each.type, ""), each.digits);
    EXPECT_EQ(Tool::wstr2uid(each.type, L""), each.digits);
    const std::string digits = each.digits;
    EXPECT_EQ(Tool::binary2uid(each.type, nullptr, 0), std::wstring(digits.begin(), digits.end()));
  }
}

TEST(Str2uid, AppendsTheBytes) {
  EXPECT_EQ(Tool::str2uid(1, "A"), "000141");
  EXPECT_EQ(Tool::str2uid(1, "AB"), "00014142");
  EXPECT_EQ(Tool::str2uid(2, literal("\0a\0\n")),
            "000200"
            "61000a");
}

TEST(Str2uid, WidensBytesWithTheirSign) {
  EXPECT_EQ(Tool::str2uid(1, "\x80"), "0001ffffff80");
  EXPECT_EQ(Tool::str2uid(1, "\x7f\xff\x01"), "00017fffffffff01");
  for (int byte = 0; byte < 256; ++byte) {
    const std::string expected = std::string("0007") + (byte >= 0x80 ? "ffffff" : "") +
                                 plainHexadecimal({static_cast<unsigned char>(byte)});
    EXPECT_EQ(Tool::str2uid(7, std::string(1, static_cast<char>(byte))), expected);
  }
}

TEST(Wstr2uid, IsThatOfTheNarrowText) {
  EXPECT_EQ(Tool::wstr2uid(1, L"A"), "000141");
  EXPECT_EQ(Tool::wstr2uid(0x12345, L"ab"), "123456162");
  EXPECT_EQ(Tool::wstr2uid(1, std::wstring(L"A\0"
                                           L"B",
                                           3)),
            "000141");
  const ScopedLocale locale("C.UTF-8");
  EXPECT_EQ(Tool::wstr2uid(1, L"\u00e9"), "0001ffffffc3ffffffa9");
}

TEST(Binary2uid, TakesBytesWithoutSign) {
  unsigned char bytes[] = {0x80, 0x00, 0xff, 0x7f};
  EXPECT_EQ(Tool::binary2uid(1, bytes, 1), L"000180");
  EXPECT_EQ(Tool::binary2uid(0x12345, bytes, 4), L"123458000ff7f");
  EXPECT_EQ(Tool::binary2uid(1, bytes, -1), L"0001");
}

// ---- Tokens

TEST(Tokenize, GivesTheTextsBetweenDelimiters) {
  const struct {
    std::string text, delimiters;
    Texts tokens;
  } cases[] = {{",a,,b,", ",", {"a", "b"}},
               {"", ",", {}},
               {"", "", {}},
               {",", ",", {}},
               {",,,", ",", {}},
               {", ,", " ,", {}},
               {"a", ",", {"a"}},
               {"a,b;c d", ",; ", {"a", "b", "c", "d"}},
               {"a,b;c d", ",", {"a", "b;c d"}},
               {"a, b", ", ", {"a", "b"}},
               {"a,b", "", {"a,b"}},
               {"\"a,b\",c\\,d", ",", {"\"a", "b\"", "c\\", "d"}},
               {"a\n\tb", "\t\n", {"a", "b"}},
               {"a\xff"
                "b\x80"
                "c",
                "\xff",
                {"a",
                 "b\x80"
                 "c"}},
               {"same,same", ",", {"same", "same"}}};
  for (const auto& each : cases) {
    EXPECT_EQ(Tool::tokenize(each.text, each.delimiters), each.tokens) << each.text;
  }
}

TEST(Tokenize, EndsAtTheFirstZeroByte) {
  EXPECT_EQ(Tool::tokenize(literal("a,b\0,c"), ","), (Texts{"a", "b"}));
  EXPECT_EQ(Tool::tokenize(literal("\0a,b"), ","), Texts{});
  EXPECT_EQ(Tool::tokenize("a,b;c", literal(",\0;")), (Texts{"a", "b;c"}));
  EXPECT_EQ(Tool::tokenize("a,b", literal("\0,")), (Texts{"a,b"}));
}

TEST(Tokenize, AgreesWithStrtokOnAllShortTexts) {
  const Texts delimiterSets = {
      "", ",", " ", ", ", "a", ",a", "\xff", ",,", literal(",\0 "), literal("\0,")};
  forEachText(literal("ab, \xff\0"), 5, untilFailure([&](const std::string& text) {
                for (const std::string& delimiters : delimiterSets) {
                  EXPECT_EQ(Tool::tokenize(text, delimiters), plainTokens(text, delimiters))
                      << testing::PrintToString(delimiters);
                }
              }));
}

TEST(Tokenize, TakesNoMoreRoomThanItsTokensNeed) {
  for (const std::string& text : kelp_test::allTexts("ab,;", 6)) {
    for (const char* delimiters : {",", ",;", ""}) {
      const Texts tokens = Tool::tokenize(text, delimiters);
      ASSERT_EQ(tokens.capacity(), tokens.size()) << text << ' ' << delimiters;
    }
  }
}

TEST(Tokenize, TakesManyTokens) {
  std::string text;
  for (int i = 0; i < 1000000; ++i) {
    text += "a,";
  }
  EXPECT_EQ(Tool::tokenize(text, ",").size(), 1000000U);
  EXPECT_EQ(Tool::tokenize(text, "a,").size(), 0U);
  EXPECT_EQ(Tool::tokenize(text, ";"), Texts{text});
}

TEST(Tokenize, TakesAsManyDelimitersAsTokens) {
  std::string text;
  for (int i = 0; i < 200000; ++i) {
    text += "a,";
  }
  // One by one, or by a table for each token: 10^12 steps.
  const std::string delimiters = std::string(size_t{1} << 23, 'b') + ",";
  EXPECT_EQ(Tool::tokenize(text, delimiters), Texts(200000, "a"));
}

TEST(Tokenize, DoesNotDisturbACallersOwnStrtok) {
  char text[] = "a,b,c,d";
  EXPECT_STREQ(strtok(text, ","), "a");
  Tool::tokenize("x;y", ";");
  EXPECT_STREQ(strtok(nullptr, ","), "b");
  Tool::isIpAddress("10.0.0.1");
  EXPECT_STREQ(strtok(nullptr, ","), "c");
  Tool::tokenize("", "");
  EXPECT_STREQ(strtok(nullptr, ","), "d");
  EXPECT_EQ(strtok(nullptr, ","), nullptr);
}

TEST(IsIpAddress, IsTrueForFourTokensOfDigits) {
  const Texts addresses = {"10.0.0.1", "0.0.0.0", "255.255.255.255", "01.002.0003.00004",
                           literal("1.2.3.4\0.x")};
  for (const std::string& address : addresses) {
    EXPECT_TRUE(Tool::isIpAddress(address)) << address;
  }
}

// On purpose: it tells the shape alone.
TEST(IsIpAddress, TestsNoRangeAndCollapsesPoints) {
  const Texts addresses = {"999.1.1.1",  "256.256.256.256", "99999999999999999999.1.1.1",
                           "1..2.3.4",   ".1.2.3.4.",       ".1..2.3.4.",
                           "...1.2.3.4", "1...2...3...4..."};
  for (const std::string& address : addresses) {
    EXPECT_TRUE(Tool::isIpAddress(address)) << address;
  }
}

TEST(IsIpAddress, IsFalseForEveryOtherText) {
  const Texts others = {"",
                        ".",
                        "....",
                        "10",
                        "10.0.0",
                        "10.0.0.",
                        "10.0.0.1.5",
                        "10.0.0.x",
                        "x.0.0.1",
                        "0.x.0.1",
                        "0.0.x.1",
                        "10.0.0.1x",
                        "-1.0.0.1",
                        "+1.0.0.1",
                        " 1.0.0.1",
                        "1.0.0.1 ",
                        "1. 0.0.1",
                        "1.2.3.4\n",
                        "0x1.0.0.1",
                        "a.b.c.d",
                        "::1",
                        "::ffff:10.0.0.1",
                        "fe80::1",
                        "1,2,3,4",
                        "localhost",
                        literal("1.2.3\0.4"),
                        literal("\0"
                                "1.2.3.4"),
                        "1.2.3./",
                        "1.2.3.:",
                        "\xd9\xa1.\xd9\xa2.\xd9\xa3.\xd9\xa4"};
  for (const std::string& other : others) {
    EXPECT_FALSE(Tool::isIpAddress(other)) << other;
  }
}

TEST(IsIpAddress, AgreesWithThePlainFormOnAllShortTexts) {
  forEachText("1.x", 9, untilFailure([](const std::string& text) {
                EXPECT_EQ(Tool::isIpAddress(text), plainlyIsIpAddress(text));
              }));
  forEachTextOf({"0", ".", "9.", ".8", literal("\0")}, 6, untilFailure([](const std::string& text) {
                  EXPECT_EQ(Tool::isIpAddress(text), plainlyIsIpAddress(text));
                }));
}

}  // namespace
