#include "cmnicumessage.h"

#include "Q_sscanf.h"
#include "cmnsmartptr.h"
#include "cmnstringtool.h"
#include "comma_locale.h"
#include "exposed_members.h"
#include "failing_memory.h"
#include "guarded_page.h"
#include "scratch.h"

#include <gtest/gtest.h>
#include <unicode/curramt.h>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using icu::Formattable;
using icu::UnicodeString;
using kelp_cmn_4_4::CCmnIcuMessage;
using kelp_cmn_4_4::CCmnMessagePtr;
using kelp_cmn_4_4::CCmnStringTool;
using kelp_cmn_4_4::SCmnMessageInfo;
using kelp_cmn_4_4::tstr;
using kelp_test::failEachAllocation;
using kelp_test::HeapCall;
using kelp_test::HeapWatch;
using kelp_test::Times;

using Values = std::vector<Formattable>;
using Texts = std::vector<std::string>;

// ---- values

Formattable date(double milliseconds) { return Formattable(milliseconds, Formattable::kIsDate); }

Formattable text(const char* utf8) { return Formattable(UnicodeString::fromUTF8(utf8)); }

Formattable int64(int64_t number) { return Formattable(number); }

Formattable array(const Values& values) {
  return Formattable(values.data(), static_cast<int32_t>(values.size()));
}

Formattable object() {
  UErrorCode status = U_ZERO_ERROR;
  return Formattable(new icu::CurrencyAmount(12.5, u"EUR", status));
}

std::string printed(const char* format, double number) {
  char result[64];
  std::snprintf(result, sizeof result, format, number);
  return result;
}

// "TYPE VALUE", a double with all of its digits.
std::string described(const Formattable& value) {
  std::string utf8;
  switch (value.getType()) {
    case Formattable::kDate:
      return printed("date %.17g", value.getDate());
    case Formattable::kDouble:
      return printed("double %.17g", value.getDouble());
    case Formattable::kLong:
      return "long " + std::to_string(value.getLong());
    case Formattable::kString:
      return "string " + value.getString().toUTF8String(utf8);
    case Formattable::kArray:
      return "array";
    case Formattable::kInt64:
      return "int64 " + std::to_string(value.getInt64());
    default:
      return "object";
  }
}

Texts described(const Values& values) {
  Texts result;
  for (const Formattable& value : values) {
    result.push_back(described(value));
  }
  return result;
}

Values argumentsOf(const CCmnIcuMessage& message) {
  Values result;
  for (int i = 0; i < message.getArgumentCount(); ++i) {
    result.push_back(message.getArgument(i));
  }
  return result;
}

void give(CCmnIcuMessage& message, const Values& values) {
  message.setArguments(values.data(), static_cast<int>(values.size()));
}

void expectArguments(const CCmnIcuMessage& message, const Texts& expected) {
  EXPECT_EQ(described(argumentsOf(message)), expected);
}

// ---- fields and arguments

KELP_EXPOSE(CCmnIcuMessage, m_arguments)

TEST(IcuMessage, IsEmptyByDefault) {
  CCmnIcuMessage message;
  EXPECT_EQ(message.getMessageId(), "");
  EXPECT_EQ(message.getSeverity(), 0);
  EXPECT_EQ(message.getFileName(), "");
  EXPECT_EQ(message.getLineNumber(), 0);
  EXPECT_EQ(message.getArgumentCount(), 0);
}

TEST(IcuMessage, HoldsWhatItIsMadeOf) {
  CCmnIcuMessage message("id", -2, "file.cpp", 42);
  EXPECT_EQ(message.getMessageId(), "id");
  EXPECT_EQ(message.getSeverity(), -2);
  EXPECT_EQ(message.getFileName(), "file.cpp");
  EXPECT_EQ(message.getLineNumber(), 42);
  EXPECT_EQ(message.getArgumentCount(), 0);
}

TEST(IcuMessage, NeedsNoSourcePosition) {
  CCmnIcuMessage message("id", 3);
  EXPECT_EQ(message.getFileName(), "");
  EXPECT_EQ(message.getLineNumber(), 0);
  CCmnIcuMessage withFile("id", 3, "file.cpp");
  EXPECT_EQ(withFile.getFileName(), "file.cpp");
  EXPECT_EQ(withFile.getLineNumber(), 0);
}

TEST(IcuMessage, StartsWithAnArrayOfNoArguments) {
  const CCmnIcuMessage byDefault;
  const CCmnIcuMessage withValues("id", 1, "file", 2);
  for (const CCmnIcuMessage* message : {&byDefault, &withValues}) {
    const Formattable& arguments = message->*memberOf(CCmnIcuMessage_m_arguments{});
    int32_t count = -1;
    ASSERT_EQ(arguments.getType(), Formattable::kArray);
    EXPECT_NE(arguments.getArray(count), nullptr);
    EXPECT_EQ(count, 0);
  }
}

TEST(IcuMessage, CopiesTheArgumentsItIsGiven) {
  CCmnIcuMessage message("id", 1);
  {
    Values values = {Formattable(1), Formattable(0.5), text("text"), date(7), int64(8), object()};
    values.push_back(array(values));
    give(message, values);
    values.assign(values.size(), Formattable(99));
  }
  expectArguments(message,
                  {"long 1", "double 0.5", "string text", "date 7", "int64 8", "object", "array"});
}

TEST(IcuMessage, TakesOnlyAsManyArgumentsAsToldAndDropsTheOldOnes) {
  const Values values = {Formattable(1), Formattable(2), Formattable(3)};
  CCmnIcuMessage message("id", 1);
  message.setArguments(values.data(), 2);
  expectArguments(message, {"long 1", "long 2"});
  message.setArguments(values.data() + 2, 1);
  expectArguments(message, {"long 3"});
  message.setArguments(values.data(), 0);
  expectArguments(message, {});
  message.setArguments(values.data(), 3);
  message.setArguments(nullptr, 0);
  expectArguments(message, {});
}

TEST(IcuMessage, TakesItsOwnArgumentsAgain) {
  CCmnIcuMessage message("id", 1);
  give(message, {text("first"), text("second"), text("third")});
  message.setArguments(&message.getArgument(0), 3);
  expectArguments(message, {"string first", "string second", "string third"});
  message.setArguments(&message.getArgument(1), 2);
  expectArguments(message, {"string second", "string third"});
}

TEST(IcuMessage, AddsArgumentsBehindTheOthers) {
  CCmnIcuMessage message("id", 1);
  message.addArgument(Formattable(1));
  expectArguments(message, {"long 1"});
  Formattable value = text("text");
  message.addArgument(value);
  value.setLong(99);
  message.addArgument(Formattable(0.5));
  expectArguments(message, {"long 1", "string text", "double 0.5"});
}

TEST(IcuMessage, AddsItsOwnArgumentsAgain) {
  CCmnIcuMessage message("id", 1);
  give(message, {text("first"), text("second")});
  message.addArgument(message.getArgument(0));
  message.addArgument(message.getArgument(2));
  message.addArgument(message.getArgument(1));
  expectArguments(
      message, {"string first", "string second", "string first", "string first", "string second"});
}

TEST(IcuMessage, GivesOutItsOwnArguments) {
  CCmnIcuMessage message("id", 1);
  give(message, {Formattable(1), Formattable(2)});
  EXPECT_EQ(&message.getArgument(0), &message.getArgument(0));
  EXPECT_EQ(&message.getArgument(1), &message.getArgument(0) + 1);
}

TEST(IcuMessage, EndsWithItsLastHolder) {
  class Watched : public CCmnIcuMessage {
   public:
    explicit Watched(int& ends) : m_ends(ends) {}
    ~Watched() override { ++m_ends; }

   private:
    int& m_ends;
  };
  int ends = 0;
  {
    const CCmnMessagePtr holder(new Watched(ends));
    EXPECT_EQ(holder->getCount(), 1);
  }
  EXPECT_EQ(ends, 1);
}

// ---- formatting

// ICU's default locale, and GMT as its default time zone.
class ScopedIcuDefaults {
 public:
  explicit ScopedIcuDefaults(const char* locale) : m_zone(icu::TimeZone::createDefault()) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale(locale), status);
    icu::TimeZone::adoptDefault(icu::TimeZone::getGMT()->clone());
  }
  ~ScopedIcuDefaults() {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(m_locale, status);
    icu::TimeZone::adoptDefault(m_zone);
  }
  ScopedIcuDefaults(const ScopedIcuDefaults&) = delete;
  ScopedIcuDefaults& operator=(const ScopedIcuDefaults&) = delete;

 private:
  icu::Locale m_locale;
  icu::TimeZone* m_zone;
};

// The result as bytes, whatever zero bytes are in it.
std::string formatted(const Values& values, const tstr& pattern) {
  CCmnIcuMessage message("id", 1);
  give(message, values);
  const tstr result = message.formatMessage(pattern);
  return std::string(result.c_str(), result.length());
}

struct FormatRow {
  Values values;
  const char* pattern;
  const char* expected;
};

void expectFormatted(const std::vector<FormatRow>& rows) {
  const ScopedIcuDefaults scope("en_US");
  for (const FormatRow& row : rows) {
    EXPECT_EQ(formatted(row.values, row.pattern), row.expected)
        << row.pattern << " with " << testing::PrintToString(described(row.values));
  }
}

TEST(IcuMessageFormat, PutsArgumentsIntoThePlacesOfThePattern) {
  Values letters;
  for (char c = 'a'; c <= 'l'; ++c) {
    letters.push_back(text(std::string(1, c).c_str()));
  }
  expectFormatted({
      {{text("/tmp/a"), Formattable(13)},
       "cannot open {0}: error {1}",
       "cannot open /tmp/a: error 13"},
      {{text("x"), text("y")}, "{1} {0} {1}", "y x y"},
      {{text("x")}, "{0}", "x"},
      {{text("x")}, "no place", "no place"},
      {{text("x"), text("y")}, "{1}", "y"},
      {letters, "{11}{0}{10}", "lak"},
      {{text("{1}"), text("y")}, "{0}", "{1}"},
      {{text("")}, "<{0}>", "<>"},
  });
}

TEST(IcuMessageFormat, WritesEveryTypeAsIcuDoes) {
  expectFormatted({
      {{Formattable(1234567)}, "{0}", "1,234,567"},
      {{Formattable(INT_MIN)}, "{0}", "-2,147,483,648"},
      {{Formattable(1234.5)}, "{0}", "1,234.5"},
      {{Formattable(1234.5)}, "{0,number,integer}", "1,234"},
      {{int64(5000000000)}, "{0}", "5,000,000,000"},
      {{text("text")}, "{0}", "text"},
      {{date(86400000)}, "{0,date,yyyy-MM-dd HH:mm:ss}", "1970-01-02 00:00:00"},
      {{Formattable(86400000.0)}, "{0,date,yyyy-MM-dd}", "1970-01-02"},
      {{object()}, "{0,number}", "12.5"},
      {{Formattable(1)}, "{0,plural,one{# file}other{# files}}", "1 file"},
      {{Formattable(1234)}, "{0,plural,one{# file}other{# files}}", "1,234 files"},
      {{text("a")}, "{0,select,a{A}other{O}}", "A"},
      {{Formattable(2)}, "{0,choice,0#none|1#one|1<many}", "many"},
  });
}

TEST(IcuMessageFormat, WritesADateOfNoFormatInTheShortForm) {
  const ScopedIcuDefaults scope("en_US");
  const std::unique_ptr<icu::DateFormat> format(
      icu::DateFormat::createDateTimeInstance(icu::DateFormat::kShort, icu::DateFormat::kShort));
  UnicodeString output;
  std::string expected;
  format->format(86400000.0, output).toUTF8String(expected);
  EXPECT_NE(expected, "");
  EXPECT_EQ(formatted({date(86400000)}, "{0}"), expected);
}

TEST(IcuMessageFormat, LeavesPlacesWithoutAnArgumentAsTheyAre) {
  expectFormatted({
      {{text("x")}, "{0} {1}", "x {1}"},
      {{text("x")}, "{7}", "{7}"},
      {{}, "{0}", "{0}"},
      {{}, "{1,number} {0}", "{1} {0}"},
  });
}

TEST(IcuMessageFormat, FormatsWithoutArgumentsToo) {
  expectFormatted({
      {{}, "", ""},
      {{}, "plain", "plain"},
      {{}, "it''s", "it's"},
      {{}, "'{0}'", "{0}"},
  });
}

TEST(IcuMessageFormat, MayGiveTheEmptyTextWithSuccess) {
  expectFormatted({
      {{text("")}, "{0}", ""},
      {{text("x")}, "{0,select,a{A}other{}}", ""},
  });
}

TEST(IcuMessageFormat, GivesBackAPatternThatIcuRefuses) {
  expectFormatted({
      {{text("x")}, "{", "{"},
      {{text("x")}, "{0} and {", "{0} and {"},
      {{text("x")}, "it''s {0", "it''s {0"},
      {{text("x")}, "{0,nonsense}", "{0,nonsense}"},
      {{text("x")}, "{0 1}", "{0 1}"},
      {{text("x")}, "{-1}", "{-1}"},
      {{}, "caf\xc3\xa9 {", "caf\xc3\xa9 {"},
      {{}, "\xff {", "\xff {"},
  });
}

TEST(IcuMessageFormat, GivesBackAPatternWhenNothingWasWrittenBeforeTheFailure) {
  expectFormatted({
      {{text("x")}, "{0,number} files", "{0,number} files"},
      {{array({Formattable(1)})}, "{0}", "{0}"},
      {{object()}, "{0}", "{0}"},
      {{text("x")}, "{0,date}", "{0,date}"},
      {{Formattable(1)}, "{0,select,other{''}}", "{0,select,other{''}}"},
  });
}

TEST(IcuMessageFormat, KeepsWhatWasWrittenBeforeTheFailure) {
  expectFormatted({
      {{text("x")}, "caf\xc3\xa9 {0,number} files", "caf\xc3\xa9 "},
      {{text("x"), array({})}, "{0}, {1}, {0}", "x, "},
      {{text("x"), object()}, "{0}{1}", "x"},
      {{text("x")}, "{0} {0,date}", "x "},
  });
}

TEST(IcuMessageFormat, ReadsPatternsAsUtf8InEveryProcessLocale) {
  for (const char* locale : {"C", "C.utf8"}) {
    SCOPED_TRACE(locale);
    const kelp_test::ScopedLocale scope(locale);
    expectFormatted({
        {{text("caf\xc3\xa9")},
         "\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80 {0}",
         "\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80 caf\xc3\xa9"},
        {{Formattable(1234.5)}, "{0}", "1,234.5"},
        {{}, "\xff", "\xef\xbf\xbd"},
    });
  }
}

TEST(IcuMessageFormat, WritesNumbersAsTheDefaultLocaleHasIt) {
  const struct {
    const char* locale;
    const char* expected;
  } rows[] = {{"en_US", "1,234.5 1,234,567"}, {"de_DE", "1.234,5 1.234.567"}};
  for (const auto& row : rows) {
    const ScopedIcuDefaults scope(row.locale);
    EXPECT_EQ(formatted({Formattable(1234.5), Formattable(1234567)}, "{0} {1}"), row.expected);
  }
}

TEST(IcuMessageFormat, SeesAPatternUpToItsFirstZeroByte) {
  EXPECT_EQ(formatted({text("x")}, tstr("{0} ok\0 {", 9)), "x ok");
}

TEST(IcuMessageFormat, GivesBackARefusedPatternWhole) {
  EXPECT_EQ(formatted({text("x")}, tstr("{\0 {0}", 6)), std::string("{\0 {0}", 6));
}

TEST(IcuMessageFormat, EndsItsResultAtAZeroCharacter) {
  const UnicodeString zeroInside(u"a\0b", 3);
  EXPECT_EQ(formatted({Formattable(zeroInside)}, "<{0}>"), "<a");
}

TEST(IcuMessageFormat, IsEmptyWhereTheResultHasNoUtf8Form) {
  EXPECT_EQ(formatted({Formattable(UnicodeString(u'\xd800'))}, "x {0}"), "");
}

TEST(IcuMessageFormat, TakesTextsOfAnyLength) {
  const std::string longText(100000, 'x');
  EXPECT_EQ(formatted({text(longText.c_str())}, (longText + "{0}").c_str()), longText + longText);
}

TEST(IcuMessageFormat, ChangesNothingInTheMessage) {
  CCmnIcuMessage message("id", 1);
  give(message, {text("x"), Formattable(2)});
  const std::string before = message.serialize()->text;
  EXPECT_STREQ(message.formatMessage("{0} {1}").c_str(), "x 2");
  EXPECT_STREQ(message.formatMessage("{1} {0}").c_str(), "2 x");
  EXPECT_STREQ(message.formatMessage("{").c_str(), "{");
  EXPECT_EQ(message.serialize()->text, before);
}

// ---- writing

std::string headerLine(const std::string& messageId, const std::string& severity) {
  return "<SERIALIZED_MESSAGE MSGID=" + messageId + " SEVERITY=" + severity + ">\n";
}

std::string argumentLine(const std::string& index, const std::string& type,
                         const std::string& value) {
  return "\t<ARGVALUE INDEX=" + index + " TYPE=" + type + ">" + value + "</ARGVALUE>\n";
}

const std::string trailer = "</SERIALIZED_MESSAGE>\n";

std::string serialized(const Values& values, const std::string& messageId = "ID",
                       int severity = 1) {
  CCmnIcuMessage message(messageId, severity, "file.cpp", 42);
  give(message, values);
  const SCmnMessageInfo* info = message.serialize();
  return std::string(info->text, static_cast<size_t>(info->length));
}

TEST(SerializedText, IsAHeaderALinePerArgumentAndATrailer) {
  EXPECT_EQ(serialized({text("/tmp/a"), Formattable(13)}, "MSG_OPEN_FAILED", 2),
            "<SERIALIZED_MESSAGE MSGID=MSG_OPEN_FAILED SEVERITY=2>\n"
            "\t<ARGVALUE INDEX=0 TYPE=3>/tmp/a</ARGVALUE>\n"
            "\t<ARGVALUE INDEX=1 TYPE=2>13</ARGVALUE>\n"
            "</SERIALIZED_MESSAGE>\n");
}

TEST(SerializedText, HoldsTheHeaderUnescaped) {
  const struct {
    std::string messageId;
    int severity;
    std::string header;
  } rows[] = {
      {"ID", 0, headerLine("ID", "0")},
      {"ID", -7, headerLine("ID", "-7")},
      {"ID", INT_MAX, headerLine("ID", "2147483647")},
      {"ID", INT_MIN, headerLine("ID", "-2147483648")},
      {"", 1, headerLine("", "1")},
      {"a<b>&\"' %d%s%n\n", 1, headerLine("a<b>&\"' %d%s%n\n", "1")},
      {"caf\xc3\xa9\xff", 1, headerLine("caf\xc3\xa9\xff", "1")},
      {std::string("a\0b", 3), 1, headerLine("a", "1")},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(serialized({Formattable(5)}, row.messageId, row.severity),
              row.header + argumentLine("0", "2", "5") + trailer);
  }
}

TEST(SerializedText, HoldsEveryTypeByItsNumber) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    Formattable value;
    const char* type;
    std::string expected;
  } rows[] = {
      {date(0), "0", "0"},
      {date(1234567), "0", "1.23457e+06"},
      {date(-0.5), "0", "-0.5"},
      {Formattable(0.5), "1", "0.5"},
      {Formattable(0.1), "1", "0.1"},
      {Formattable(13.0), "1", "13"},
      {Formattable(1234567.0), "1", "1.23457e+06"},
      {Formattable(-0.0), "1", "-0"},
      {Formattable(infinity), "1", "inf"},
      {Formattable(-infinity), "1", "-inf"},
      {Formattable(nan), "1", "nan"},
      {Formattable(1e-300), "1", "1e-300"},
      {Formattable(0), "2", "0"},
      {Formattable(13), "2", "13"},
      {Formattable(INT_MAX), "2", "2147483647"},
      {Formattable(INT_MIN), "2", "-2147483648"},
      {text(""), "3", ""},
      {text(" a b\t\n"), "3", " a b\t\n"},
      {text("a<b>&\"' %d%s%n</ARGVALUE>"), "3", "a<b>&\"' %d%s%n</ARGVALUE>"},
      {text("\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80"), "3", "\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80"},
      {Formattable(UnicodeString(u"a\0b", 3)), "3", "a"},
      {Formattable(UnicodeString(u"a\xd800")), "3", ""},
      {Formattable(UnicodeString(u"\xdc00\xd800")), "3", ""},
      {array({}), "4", ""},
      {array({Formattable(1), text("x")}), "4", ""},
      {int64(5000000000), "5", ""},
      {int64(5), "5", ""},
      {object(), "6", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(serialized({row.value}),
              headerLine("ID", "1") + argumentLine("0", row.type, row.expected) + trailer);
  }
}

TEST(SerializedText, NumbersTheArgumentsFromZero) {
  std::string expected = headerLine("ID", "1");
  Values values;
  for (int i = 0; i < 12; ++i) {
    values.push_back(i % 2 == 0 ? Formattable(100 + i) : Formattable(i + 0.5));
    expected += i % 2 == 0 ? argumentLine(std::to_string(i), "2", std::to_string(100 + i))
                           : argumentLine(std::to_string(i), "1", std::to_string(i) + ".5");
  }
  EXPECT_EQ(serialized(values), expected + trailer);
}

TEST(SerializedText, IsEmptyWithoutArguments) {
  CCmnIcuMessage message("ID", 1);
  const SCmnMessageInfo* info = message.serialize();
  EXPECT_STREQ(info->text, "");
  EXPECT_EQ(info->length, 0);
  give(message, {Formattable(1)});
  EXPECT_NE(message.serialize()->length, 0);
  message.setArguments(nullptr, 0);
  info = message.serialize();
  EXPECT_STREQ(info->text, "");
  EXPECT_EQ(info->length, 0);
}

TEST(SerializedText, HasItsLengthInBytesWithoutTheTerminator) {
  CCmnIcuMessage message("ID", 1);
  give(message, {text("caf\xc3\xa9")});
  const SCmnMessageInfo* info = message.serialize();
  const std::string expected =
      headerLine("ID", "1") + argumentLine("0", "3", "caf\xc3\xa9") + trailer;
  EXPECT_EQ(info->length, static_cast<int>(expected.size()));
  EXPECT_EQ(std::string(info->text), expected);
}

TEST(SerializedText, AndItsRecordAreTheMessagesOwn) {
  CCmnIcuMessage first("ID", 1);
  CCmnIcuMessage second("ID", 1);
  give(first, {Formattable(1)});
  give(second, {Formattable(1)});
  SCmnMessageInfo* info = first.serialize();
  EXPECT_NE(second.serialize(), info);
  EXPECT_NE(second.serialize()->text, info->text);
  EXPECT_STREQ(second.serialize()->text, info->text);
  give(first, {text("another, longer text that moves elsewhere")});
  EXPECT_EQ(first.serialize(), info);
  EXPECT_EQ(std::string(info->text),
            headerLine("ID", "1") +
                argumentLine("0", "3", "another, longer text that moves elsewhere") + trailer);
  EXPECT_EQ(static_cast<size_t>(info->length), std::strlen(info->text));
}

TEST(SerializedText, StaysUntilTheNextOneIsWritten) {
  CCmnIcuMessage message("ID", 1);
  CCmnIcuMessage other("OTHER", 2);
  give(message, {Formattable(1)});
  give(other, {Formattable(2)});
  const SCmnMessageInfo* info = message.serialize();
  const char* const position = info->text;
  const std::string before = info->text;
  give(message, {text("new")});
  message.addArgument(text("more"));
  static_cast<void>(message.formatMessage("{0}"));
  message.deserialize(other.serialize());
  EXPECT_EQ(info->text, position);
  EXPECT_EQ(info->text, before);
  EXPECT_EQ(static_cast<size_t>(info->length), before.size());
}

TEST(SerializedText, ChangesNothingInTheMessage) {
  CCmnIcuMessage message("ID", 1, "file.cpp", 42);
  give(message, {text("x"), int64(5), date(7)});
  const std::string before = message.serialize()->text;
  EXPECT_EQ(message.serialize()->text, before);
  EXPECT_EQ(message.getMessageId(), "ID");
  EXPECT_EQ(message.getSeverity(), 1);
  EXPECT_EQ(message.getFileName(), "file.cpp");
  EXPECT_EQ(message.getLineNumber(), 42);
  expectArguments(message, {"string x", "int64 5", "date 7"});
}

TEST(SerializedText, CutsTheHeaderAtTheSizeOfItsBuffer) {
  const size_t around = headerLine("", "2").size();  // what stands around the identifier
  for (const size_t length : {1022 - around, 1023 - around, 1024 - around, 1025 - around,
                              1030 - around, 1024UL, 5000UL}) {
    const std::string messageId(length, 'x');
    EXPECT_EQ(serialized({Formattable(5)}, messageId, 2),
              headerLine(messageId, "2").substr(0, 1023) + argumentLine("0", "2", "5") + trailer)
        << length;
  }
}

TEST(SerializedText, CutsNoValue) {
  for (const size_t length : {1000UL, 1023UL, 1024UL, 1025UL, 100000UL}) {
    const std::string value(length, 'v');
    EXPECT_EQ(serialized({text(value.c_str()), Formattable(5)}),
              headerLine("ID", "1") + argumentLine("0", "3", value) + argumentLine("1", "2", "5") +
                  trailer);
  }
}

// ---- reading

// Reads a text that ends, its terminator included, at a page nobody may touch.
void read(CCmnIcuMessage& message, const std::string& content, int length = -1) {
  kelp_test::GuardedPage<char> memory(content.size() + 1);
  std::memcpy(memory.data(), content.c_str(), content.size() + 1);
  const SCmnMessageInfo info{memory.data(), length};
  message.deserialize(&info);
  EXPECT_STREQ(memory.data(), content.c_str()) << "the reader wrote into the text";
}

// A message with something of everything, to see what a reader replaces.
class Reader : public CCmnIcuMessage {
 public:
  Reader() : CCmnIcuMessage("OLD", 99, "old.cpp", 42) { give(*this, {text("old"), int64(5)}); }
};

void expectMessage(CCmnIcuMessage& message, const std::string& messageId, int severity,
                   const Texts& arguments) {
  EXPECT_EQ(message.getMessageId(), messageId);
  EXPECT_EQ(message.getSeverity(), severity);
  expectArguments(message, arguments);
  EXPECT_EQ(message.getFileName(), "old.cpp");
  EXPECT_EQ(message.getLineNumber(), 42);
}

const Texts oldArguments = {"string old", "int64 5"};

void expectUnchanged(Reader& message) { expectMessage(message, "OLD", 99, oldArguments); }

struct ReadRow {
  std::string content;
  std::string messageId;
  int severity;
  Texts arguments;
};

void expectRead(const std::vector<ReadRow>& rows) {
  for (const ReadRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.content));
    Reader message;
    read(message, row.content);
    expectMessage(message, row.messageId, row.severity, row.arguments);
  }
}

// What the reader makes of arguments behind a good header.
void expectArgumentsRead(const std::vector<std::pair<std::string, Texts>>& rows) {
  for (const auto& row : rows) {
    expectRead({{headerLine("ID", "7") + row.first, "ID", 7, row.second}});
  }
}

void expectOutOfRange(Reader& message, const std::string& content) {
  SCOPED_TRACE(testing::PrintToString(content));
  try {
    read(message, content);
    ADD_FAILURE() << "nothing thrown";
  } catch (const std::out_of_range& error) {
    EXPECT_EQ(std::string(error.what()).substr(0, 20), "basic_string::substr");
  }
}

TEST(SerializedTextReader, TakesIdentifierSeverityAndArguments) {
  expectRead({
      {headerLine("MSG_OPEN_FAILED", "2") + argumentLine("0", "3", "/tmp/a") +
           argumentLine("1", "2", "13") + trailer,
       "MSG_OPEN_FAILED",
       2,
       {"string /tmp/a", "long 13"}},
      {headerLine("ID", "-2147483648") + argumentLine("0", "1", "0.5") + trailer,
       "ID",
       INT_MIN,
       {"double 0.5"}},
  });
}

TEST(SerializedTextReader, LeavesTheMessageAloneForTheEmptyText) {
  Reader message;
  read(message, "");
  expectUnchanged(message);
  CCmnIcuMessage withoutArguments("ID", 1);
  message.deserialize(withoutArguments.serialize());
  expectUnchanged(message);
}

TEST(SerializedTextReader, StartsAtAnyCharacterOfTheHeadersName) {
  const std::string set = "<SERIALZD_MG";
  for (int byte = 1; byte <= 255; ++byte) {
    SCOPED_TRACE(byte);
    const char c = static_cast<char>(byte);
    Reader message;
    read(message, std::string("no ") + c);
    if (set.find(c) == std::string::npos) {
      expectUnchanged(message);
    } else {
      expectMessage(message, "", 99, {});
    }
  }
}

TEST(SerializedTextReader, SkipsWhatBelongsToNoHeader) {
  const std::string content = headerLine("ID", "7") + argumentLine("0", "2", "5") + trailer;
  expectRead({
      {"junk: \n\t" + content, "ID", 7, {"long 5"}},
      // The "E" is where it starts, so the header is not seen; the arguments are.
      {"Error: " + content, "", 99, {"long 5"}},
      {"<" + content, "", 99, {"long 5"}},
  });
}

TEST(SerializedTextReader, ScansTheHeader) {
  const std::string open = "<SERIALIZED_MESSAGE";
  const std::string tail = "\n" + argumentLine("0", "2", "5") + trailer;
  const Texts five = {"long 5"};
  expectRead({
      {open + "\n\t MSGID=  ID \t\n SEVERITY= 7>" + tail, "ID", 7, five},
      {open + "MSGID=ID SEVERITY=7>" + tail, "ID", 7, five},
      {open + " MSGID=ID SEVERITY=+7>" + tail, "ID", 7, five},
      {open + " MSGID=ID SEVERITY=7x>" + tail, "ID", 7, five},
      {open + " MSGID=ID SEVERITY=x>" + tail, "ID", 99, five},
      {open + " MSGID=ID SEVERITY=>" + tail, "ID", 99, five},
      {open + " MSGID=ID severity=7>" + tail, "ID", 99, five},
      {open + " MSGID=ID OF SEVERITY=7>" + tail, "ID", 99, five},
      {open + " msgid=ID SEVERITY=7>" + tail, "", 99, five},
      {"<SERIALIZED MSGID=ID SEVERITY=7>" + tail, "", 99, five},
      {open + " MSGID=caf\xc3\xa9 SEVERITY=7>" + tail, "caf\xc3\xa9", 7, five},
      {open + " MSGID=ID", "ID", 99, {}},
      {open + " MSGID=ID SEVERITY=7", "ID", 7, {}},
      {open + " MSGID=", "", 99, {}},
      // An empty identifier is not seen as one: the scan takes the next word.
      {open + " MSGID= SEVERITY=7>" + tail, "SEVERITY=7>", 99, five},
  });
}

TEST(SerializedTextReader, CutsTheIdentifierAtTheSizeOfItsBuffer) {
  for (const size_t length : {1022UL, 1023UL, 1024UL, 1025UL, 5000UL}) {
    const std::string messageId(length, 'x');
    expectRead({{headerLine(messageId, "7") + argumentLine("0", "2", "5") + trailer,
                 messageId.substr(0, 1023),
                 7,
                 {"long 5"}}});
  }
}

TEST(SerializedTextReader, ReplacesTheArgumentsAlsoByNone) {
  expectArgumentsRead({
      {"", {}},
      {"\n", {}},
      {argumentLine("0", "4", "") + trailer, {}},
  });
}

TEST(SerializedTextReader, TakesATrailerRightBehindTheHeaderForAnArgument) {
  // The first search finds its "<", and behind its ">" there is too little for a value.
  Reader message;
  expectOutOfRange(message, headerLine("NEW", "7") + trailer);
  expectMessage(message, "NEW", 7, oldArguments);
  expectArgumentsRead({{trailer + "0123456789", {}}});
}

TEST(SerializedTextReader, ReadsEveryTypeByItsNumber) {
  const struct {
    int type;
    const char* value;
    Texts expected;
  } rows[] = {
      {0, "1.5e+3", {"double 1500"}},
      {0, "", {"double 0"}},
      {1, "-0", {"double -0"}},
      {1, "0.1", {"double 0.10000000000000001"}},
      {1, "inf", {"double inf"}},
      {1, "nan", {"double nan"}},
      {1, " 12.5 apples", {"double 12.5"}},
      {1, "apples", {"double 0"}},
      {1, "", {"double 0"}},
      {2, "-2147483648", {"long -2147483648"}},
      {2, " +42abc", {"long 42"}},
      {2, "12.5", {"long 12"}},
      {2, "4294967297", {"long 1"}},
      {2, "abc", {"long 0"}},
      {2, "", {"long 0"}},
      {3, "", {"string "}},
      {3, " a\tb\n ", {"string  a\tb\n "}},
      {3, "a>b & </ARGVALUE>", {"string a>b & "}},
      {3, "\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80", {"string \xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80"}},
      {3, "\xff", {"string "}},
      {4, "1", {}},
      {5, "1", {}},
      {6, "1", {}},
      {7, "1", {}},
      {-1, "1", {}},
      {10, "1", {}},
      {30, "1", {}},
      {2147483647, "1", {}},
  };
  for (const auto& row : rows) {
    expectArgumentsRead(
        {{argumentLine("0", std::to_string(row.type), row.value) + trailer, row.expected}});
  }
}

TEST(SerializedTextReader, TakesArgumentsInTheOrderOfTheText) {
  expectArgumentsRead({
      {argumentLine("1", "3", "a") + argumentLine("0", "3", "b") + trailer,
       {"string a", "string b"}},
      {argumentLine("5", "2", "1") + argumentLine("5", "2", "2") + argumentLine("-7", "2", "3"),
       {"long 1", "long 2", "long 3"}},
  });
}

TEST(SerializedTextReader, DropsWhatHasNoKnownTypeAndMovesTheRestDown) {
  expectArgumentsRead({
      {argumentLine("0", "5", "") + argumentLine("1", "2", "6") + argumentLine("2", "6", "") +
           argumentLine("3", "3", "x") + argumentLine("4", "9", "y") + trailer,
       {"long 6", "string x"}},
      // A tag without a type does not take the one before it.
      {argumentLine("0", "3", "a") + "\t<ARGVALUE INDEX=1>b</ARGVALUE>\n" +
           argumentLine("2", "3", "c") + trailer,
       {"string a", "string c"}},
  });
}

TEST(SerializedTextReader, ScansTheTagOfAnArgument) {
  const std::string end = ">5</ARGVALUE>\n";
  const Texts five = {"long 5"};
  expectArgumentsRead({
      {"<ARGVALUE INDEX=0 TYPE=2" + end, five},
      {"<ARGVALUE\n\tINDEX= 0\nTYPE= 2" + end, five},
      {"<ARGVALUEINDEX=0TYPE=2" + end, five},
      {"<ARGVALUE INDEX=+0 TYPE=+2" + end, five},
      {"<ARGVALUE INDEX=0 TYPE=2 " + end, five},
      {"<ARGVALUE INDEX=0 TYPE=2 MORE=1" + end, five},
      {"<ARGVALUE INDEX=99999999999999999999 TYPE=2" + end, five},
      {"<ARGVALUE INDEX=0 TYPE=0x2" + end, {"double 5"}},
      {"<ARGVALUE INDEX=0x1 TYPE=2" + end, {}},
      {"<ARGVALUE INDEX=x TYPE=2" + end, {}},
      {"<ARGVALUE INDEX= TYPE=2" + end, {}},
      {"<ARGVALUE TYPE=2" + end, {}},
      {"<ARGVALUE index=0 TYPE=2" + end, {}},
      {"<ARGVALUE INDEX=0 TYPE=x" + end, {}},
      {"<ARGVALUE INDEX=0 TYPE=" + end, {}},
      {"<ARGVALUE INDEX=0" + end, {}},
      {"<ARGVALUE" + end, {}},
      {"<ARG INDEX=0 TYPE=2" + end, {}},
  });
}

TEST(SerializedTextReader, FindsTheFirstArgumentAtAnyCharacterOfItsName) {
  const std::string set = "<ARGVLUE";
  for (int byte = 1; byte <= 255; ++byte) {
    const char c = static_cast<char>(byte);
    const std::string content = headerLine("ID", "7") + c + argumentLine("0", "2", "5") + "nothing";
    // Where it takes the character for the first tag, the tag itself is lost.
    const Texts expected = set.find(c) == std::string::npos ? Texts{"long 5"} : Texts{};
    expectRead({{content, "ID", 7, expected}});
    if (testing::Test::HasFailure()) {
      return;
    }
  }
}

TEST(SerializedTextReader, FindsTheOtherArgumentsByTheWholeName) {
  const std::string two = argumentLine("1", "2", "6") + trailer;
  expectArgumentsRead({
      {argumentLine("0", "2", "5") + "< ARG <ARGVALU <ARGUE " + two, {"long 5", "long 6"}},
      {argumentLine("0", "2", "5") + two, {"long 5", "long 6"}},
      {"<ARGVALUE INDEX=0 TYPE=2>5</ARGVALUE><ARGVALUE INDEX=1 TYPE=2>6</ARGVALUE>",
       {"long 5", "long 6"}},
  });
}

TEST(SerializedTextReader, LooksForArgumentsOnlyBehindTheHeader) {
  expectRead({
      // No ">" at all.
      {"<SERIALIZED_MESSAGE MSGID=ID SEVERITY=7\n\t<ARGVALUE INDEX=0 TYPE=2", "ID", 7, {}},
      {"<SERIALIZED_MESSAGE MSGID=ID SEVERITY=7 <0123456789<ARGVALUE INDEX=0 TYPE=2", "ID", 7, {}},
      // The header ends at the first ">", which may be the identifier's; "E" then counts as a tag.
      {headerLine("a>b", "7") + argumentLine("0", "2", "5") + argumentLine("1", "2", "6") + trailer,
       "a>b",
       7,
       {"long 6"}},
  });
}

TEST(SerializedTextReader, NeverLooksAtTheTrailer) {
  const std::string start = argumentLine("0", "2", "5");
  expectArgumentsRead({
      {start, {"long 5"}},
      {start + "</SERIALIZED_MES", {"long 5"}},
      {start + trailer + argumentLine("1", "2", "6"), {"long 5", "long 6"}},
      {start + trailer + headerLine("ID2", "8") + argumentLine("0", "2", "6") + trailer,
       {"long 5", "long 6"}},
      {"<ARGVALUE INDEX=0 TYPE=2>5</ARGVALUE>", {"long 5"}},
  });
}

TEST(SerializedTextReader, SkipsTheLengthOfAClosingTagWhereAValueEnds) {
  expectArgumentsRead({
      {"<ARGVALUE INDEX=0 TYPE=2>5<0123456789<ARGVALUE INDEX=1 TYPE=2>6<0123456789",
       {"long 5", "long 6"}},
      // The second tag is swallowed in part, and so lost.
      {"<ARGVALUE INDEX=0 TYPE=2>5<012345678<ARGVALUE INDEX=1 TYPE=2>6<0123456789", {"long 5"}},
      {argumentLine("0", "3", "a<b") + argumentLine("1", "2", "6") + trailer,
       {"string a", "long 6"}},
      {argumentLine("0", "3", "a<ARGVALUE INDEX=0 TYPE=2>6") + trailer, {"string a"}},
  });
}

TEST(SerializedTextReader, TakesAPositionThatIsNotFoundAsOneBeforeTheStart) {
  expectArgumentsRead({
      // No ">": the value begins, and ends, at the tag's own "<".
      {"<ARGVALUE INDEX=0 TYPE=3", {"string "}},
      {"<ARGVALUE INDEX=0 TYPE=2 ", {"long 0"}},
      // No "<": the rest is the value, and the cut is at its character 10.
      {"<ARGVALUE INDEX=0 TYPE=3>0123456789", {"string 0123456789"}},
      {"<ARGVALUE INDEX=0 TYPE=3>0123456789abc", {"string 0123456789abc"}},
  });
}

TEST(SerializedTextReader, LetsACutBeyondTheEndOutAndKeepsTheOldArguments) {
  for (const char* const rest : {
           "<ARGVALUE INDEX=0 TYPE=2>5</ARGVALUE",
           "<ARGVALUE INDEX=0 TYPE=2>5<",
           "<ARGVALUE INDEX=0 TYPE=2>5",
           "<ARGVALUE INDEX=0 TYPE=2>",
           "<ARGVALUE INDEX=0 TYPE=3>012345678",
           "<ARGVALUE>",
           "<ARGVALUE",
           "<012345678",
           "<",
           "A",
           "<ARGVALUE INDEX=0 TYPE=2>5</ARGVALUE>\n\t<ARGVALUE INDEX=1 TYPE=2>6</ARG",
       }) {
    Reader message;
    expectOutOfRange(message, headerLine("NEW", "7") + rest);
    expectMessage(message, "NEW", 7, oldArguments);
  }
}

TEST(SerializedTextReader, KeepsTheOldSeverityAndArgumentsWhereOnlyTheIdentifierWasRead) {
  Reader message;
  expectOutOfRange(message, "<SERIALIZED_MESSAGE MSGID=NEW SEVERITY=>\n\t<ARGVALUE>");
  expectMessage(message, "NEW", 99, oldArguments);
}

TEST(SerializedTextReader, IsReadyForTheNextTextAfterAnException) {
  Reader message;
  expectOutOfRange(message, headerLine("NEW", "7") + "<");
  read(message, headerLine("ID", "8") + argumentLine("0", "2", "5") + trailer);
  expectMessage(message, "ID", 8, {"long 5"});
}

TEST(SerializedTextReader, DoesNotLookAtTheLength) {
  const std::string content = headerLine("ID", "7") + argumentLine("0", "2", "5") + trailer;
  for (const int length : {0, 1, -1, INT_MIN, INT_MAX, static_cast<int>(content.size())}) {
    Reader message;
    read(message, content, length);
    expectMessage(message, "ID", 7, {"long 5"});
  }
}

TEST(SerializedTextReader, KeepsNothingOfTheRecord) {
  Reader message;
  std::string content = headerLine("ID", "7") + argumentLine("0", "3", "text") + trailer;
  {
    const SCmnMessageInfo info{content.data(), 0};
    message.deserialize(&info);
  }
  content.assign(content.size(), '#');
  expectMessage(message, "ID", 7, {"string text"});
}

TEST(SerializedTextReader, ReadsTheMessagesOwnText) {
  Reader message;
  give(message, {text("x"), int64(5), date(7)});
  message.deserialize(message.serialize());
  expectMessage(message, "OLD", 99, {"string x", "double 7"});
}

TEST(SerializedTextReader, MeetsHeadersThatTheWriterHadToCut) {
  const size_t around = headerLine("", "2").size();
  const Values values = {Formattable(5), Formattable(6)};
  const std::string withoutNewline(1024 - around, 'x');
  const std::string withoutEnd(1025 - around, 'x');
  const std::string withoutSeverity(1024, 'x');
  expectRead({
      {serialized(values, withoutNewline, 2), withoutNewline, 2, {"long 5", "long 6"}},
      // The first ">" is then the first tag's, the first "<" behind it the first value's end; with
      // that goes all up to the start of the second tag.
      {serialized(values, withoutEnd, 2), withoutEnd, 2, {}},
      {serialized(values, withoutSeverity, 2), withoutSeverity.substr(0, 1023 - 26), 99, {}},
  });
}

// ---- both ways

TEST(SerializedTextRoundTrip, RestoresDoublesLongsAndStrings) {
  const Texts expected = {"double 0.5",
                          "double -0",
                          "double 1e+22",
                          "double inf",
                          "double -inf",
                          "double nan",
                          "long 0",
                          "long 2147483647",
                          "long -2147483648",
                          "string ",
                          "string  a b\n",
                          "string a>b&amp;",
                          "string \xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80"};
  const Values values = {Formattable(0.5),
                         Formattable(-0.0),
                         Formattable(1e22),
                         Formattable(std::numeric_limits<double>::infinity()),
                         Formattable(-std::numeric_limits<double>::infinity()),
                         Formattable(std::numeric_limits<double>::quiet_NaN()),
                         Formattable(0),
                         Formattable(INT_MAX),
                         Formattable(INT_MIN),
                         text(""),
                         text(" a b\n"),
                         text("a>b&amp;"),
                         text("\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80")};
  expectRead({{serialized(values, "MSG_OPEN_FAILED", -3), "MSG_OPEN_FAILED", -3, expected}});
}

TEST(SerializedTextRoundTrip, MakesADoubleOfADate) {
  expectRead(
      {{serialized({date(86400000), date(-0.5)}), "ID", 1, {"double 86400000", "double -0.5"}}});
}

TEST(SerializedTextRoundTrip, KeepsTheLeadingDigitsOfADouble) {
  expectRead({{serialized({Formattable(1234567.0)}), "ID", 1, {"double 1234570"}}});
}

TEST(SerializedTextRoundTrip, LosesTheOtherTypesAndMovesTheRestDown) {
  expectRead({
      {serialized({int64(5), Formattable(1), array({Formattable(7)}), text("x"), object()}),
       "ID",
       1,
       {"long 1", "string x"}},
      {serialized({int64(5)}), "ID", 1, {}},
  });
}

TEST(SerializedTextRoundTrip, KeepsLongValuesWhole) {
  const std::string value = std::string(5000, 'v') + "\xc3\xa9";
  expectRead({{serialized({text(value.c_str()), Formattable(5)}),
               "ID",
               1,
               {"string " + value, "long 5"}}});
}

TEST(SerializedTextRoundTrip, CarriesWhatFormattingNeeds) {
  const ScopedIcuDefaults scope("en_US");
  CCmnIcuMessage sender("MSG_OPEN_FAILED", 2, "open.cpp", 42);
  sender.addArgument(text("/tmp/a"));
  sender.addArgument(Formattable(13));
  CCmnIcuMessage receiver;
  receiver.deserialize(sender.serialize());
  EXPECT_STREQ(receiver.formatMessage("cannot open {0}: error {1}").c_str(),
               "cannot open /tmp/a: error 13");
  EXPECT_STREQ(receiver.serialize()->text, sender.serialize()->text);
}

TEST(SerializedTextRoundTrip, CarriesVeryManyArguments) {
  Values values;
  for (int i = 0; i < 20000; ++i) {
    values.push_back(i % 3 == 0   ? Formattable(i)
                     : i % 3 == 1 ? Formattable(i + 0.5)
                                  : text(std::to_string(i).c_str()));
  }
  expectRead({{serialized(values), "ID", 1, described(values)}});
}

// ---- damaged texts

// What a message holds, for the plain form of the reader.
struct Reading {
  std::string messageId;
  int severity = 0;
  Values arguments;
};

void appendPlainly(Values& values, int type, std::string& value) {
  if (type == 0 || type == 1) {
    values.emplace_back(CCmnStringTool::str2double(value));
  } else if (type == 2) {
    values.emplace_back(CCmnStringTool::str2int(value));
  } else if (type == 3) {
    values.emplace_back(CCmnStringTool::str2ustr(value));
  }
}

// The reader, slow and plain: nothing but copies and the string's own searches and cuts.
void readPlainly(const char* content, Reading& reading) {
  std::string work = content;
  const size_t start = work.find_first_of("<SERIALIZED_MESSAGE");
  if (start == std::string::npos) {
    return;
  }
  work = work.substr(start);
  char messageId[1024] = "";
  Q_sscanf(work.c_str(), "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", messageId, 1024,
           &reading.severity, 4);
  reading.messageId = messageId;
  Values values;
  const size_t headerEnd = work.find_first_of('>');
  size_t next = work.find_first_of("<ARGVALUE", headerEnd);
  while (next != std::string::npos) {
    work = work.substr(next);
    int index = 0;
    int type = -1;
    Q_sscanf(work.c_str(), "<ARGVALUE INDEX=%d TYPE=%d>", &index, 4, &type, 4);
    work = work.substr(work.find('>') + 1);
    const size_t valueEnd = work.find('<');
    std::string value = work.substr(0, valueEnd);
    work = work.substr(valueEnd + 11);
    next = work.find("<ARGVALUE");
    appendPlainly(values, type, value);
  }
  reading.arguments = values;
}

// So that a number that is none equals itself and -0 differs from 0.
uint64_t bitsOf(double number) {
  uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

bool sameValue(const Formattable& a, const Formattable& b) {
  if (a.getType() != b.getType()) {
    return false;
  }
  if (a.getType() == Formattable::kDouble) {
    return bitsOf(a.getDouble()) == bitsOf(b.getDouble());
  }
  return a == b;
}

bool sameState(CCmnIcuMessage& message, const Reading& reading) {
  const int count = static_cast<int>(reading.arguments.size());
  if (message.getMessageId() != reading.messageId || message.getSeverity() != reading.severity ||
      message.getArgumentCount() != count) {
    return false;
  }
  for (int i = 0; i < count; ++i) {
    if (!sameValue(message.getArgument(i), reading.arguments[static_cast<size_t>(i)])) {
      return false;
    }
  }
  return message.getFileName() == "file.cpp" && message.getLineNumber() == 42;
}

template <class Call>
bool throwsOutOfRange(Call call) {
  try {
    call();
    return false;
  } catch (const std::out_of_range&) {
    return true;
  }
}

class Dice {
 public:
  explicit Dice(unsigned seed) : m_engine(seed) {}
  size_t below(size_t bound) { return static_cast<size_t>(m_engine() % bound); }
  bool oneIn(size_t chances) { return below(chances) == 0; }
  template <class Array>
  auto& oneOf(const Array& choices) {
    return choices[below(std::size(choices))];
  }

 private:
  std::mt19937_64 m_engine;
};

const char* const words[] = {
    "",    "0",   "13",          "-7",          "2147483647", "-2147483648",
    "0.5", "-0",  "1e5",         "1.23457e+06", "inf",        "nan",
    "x",   "a b", "caf\xc3\xa9", "/tmp/a",      "ALARM",      "99999999999"};

const char* const pieces[] = {"<",
                              ">",
                              "</",
                              "=",
                              " ",
                              "\n",
                              "\t",
                              "-",
                              "+",
                              "0",
                              "3",
                              "12",
                              "4294967299",
                              "<SERIALIZED_MESSAGE",
                              "</SERIALIZED_MESSAGE>\n",
                              "<SERIALIZED_MESSAGE MSGID=A SEVERITY=3>",
                              " MSGID=",
                              " SEVERITY=",
                              "<ARGVALUE",
                              "</ARGVALUE>",
                              "<ARGVALUE INDEX=0 TYPE=3>",
                              "<ARGVALUE INDEX=1 TYPE=2>7</ARGVALUE>",
                              " INDEX=",
                              " TYPE=",
                              "TYPE=1",
                              "ARGVALUE",
                              "A",
                              "E",
                              "_",
                              "q",
                              "\xff",
                              "\xc3\xa9"};

std::string goodText(Dice& dice) {
  std::string content = headerLine("MSG_" + std::to_string(dice.below(1000)), dice.oneOf(words));
  const size_t count = dice.below(5);
  for (size_t i = 0; i < count; ++i) {
    content += argumentLine(std::to_string(i), std::to_string(dice.below(7)), dice.oneOf(words));
  }
  return content + trailer;
}

// A short stretch of the text, mostly.
std::pair<size_t, size_t> stretch(Dice& dice, const std::string& content) {
  const size_t start = dice.below(content.size() + 1);
  const size_t most = content.size() - start;
  return {start, dice.below(std::min<size_t>(most, dice.oneIn(4) ? most : 12) + 1)};
}

void damage(Dice& dice, std::string& content) {
  const auto [start, length] = stretch(dice, content);
  const std::string part = content.substr(start, length);
  switch (dice.below(7)) {
    case 0:
      if (start < content.size()) {
        content[start] = static_cast<char>(1 + dice.below(255));
      }
      break;
    case 1:
      if (start < content.size() && content[start] != '\1') {
        content[start] = static_cast<char>(content[start] ^ 1);
      }
      break;
    case 2:
      content.resize(start);
      break;
    case 3:
      content.erase(start, length);
      break;
    case 4:
      content.insert(dice.below(content.size() + 1), part);
      break;
    case 5:
      content.erase(start, length);
      content.insert(dice.below(content.size() + 1), part);
      break;
    default:
      content.insert(start, dice.oneOf(pieces));
      break;
  }
}

// Exactly as long as it must be, so that the address sanitizer sees a step too far on either side.
std::unique_ptr<char[]> exactCopy(const std::string& content) {
  std::unique_ptr<char[]> copy(new char[content.size() + 1]);
  std::memcpy(copy.get(), content.c_str(), content.size() + 1);
  return copy;
}

class DamagedText : public testing::TestWithParam<unsigned> {
 protected:
  // Reads a text in both forms; what a text leaves alone is what the one before it gave.
  void readBoth(const std::string& content, int length) {
    const std::unique_ptr<char[]> memory = exactCopy(content);
    const SCmnMessageInfo info{memory.get(), length};
    const bool throws = throwsOutOfRange([&] { readPlainly(memory.get(), m_expected); });
    ASSERT_EQ(throwsOutOfRange([&] { m_message.deserialize(&info); }), throws);
    ASSERT_TRUE(sameState(m_message, m_expected))
        << "expected " << testing::PrintToString(described(m_expected.arguments)) << "\n     got "
        << testing::PrintToString(described(argumentsOf(m_message)));
    ASSERT_EQ(content, memory.get()) << "the reader wrote into the text";
    m_thrown += throws ? 1 : 0;
    m_withArguments += throws || m_expected.arguments.empty() ? 0 : 1;
  }

  CCmnIcuMessage m_message{"ID", 1, "file.cpp", 42};
  Reading m_expected{"ID", 1, {}};
  size_t m_thrown = 0;
  size_t m_withArguments = 0;
};

TEST_P(DamagedText, IsReadLikeByThePlainForm) {
  Dice dice(GetParam());
  for (int round = 0; round < 8192; ++round) {
    std::string content = goodText(dice);
    for (size_t times = dice.below(6); times > 0; --times) {
      damage(dice, content);
    }
    readBoth(content, static_cast<int>(dice.below(1000)) - 500);
    if (HasFatalFailure()) {
      FAIL() << "seed " << GetParam() << ", round " << round << ": "
             << testing::PrintToString(content);
    }
  }
  // Otherwise the damage is too little or too much to say anything.
  EXPECT_GT(m_thrown, 500U);
  EXPECT_GT(m_withArguments, 2500U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, DamagedText, testing::Range(1U, 17U));

// ---- random messages

std::string valueWrittenPlainly(const Formattable& value) {
  const Formattable::Type type = value.getType();
  std::string utf8;
  return type == Formattable::kDate     ? printed("%g", value.getDate())
         : type == Formattable::kDouble ? printed("%g", value.getDouble())
         : type == Formattable::kLong   ? std::to_string(value.getLong())
         : type == Formattable::kString ? value.getString().toUTF8String(utf8)
                                        : "";
}

Formattable randomValue(Dice& dice) {
  const double number = (static_cast<double>(dice.below(2000001)) - 1000000) / 8;
  switch (dice.below(7)) {
    case 0:
      return date(number);
    case 1:
      return Formattable(number);
    case 2:
      return Formattable(static_cast<int32_t>(dice.below(UINT32_MAX)));
    case 3:
      return text((std::string(dice.oneOf(words)) + dice.oneOf(words)).c_str());
    case 4:
      return array({Formattable(1)});
    case 5:
      return int64(static_cast<int64_t>(dice.below(UINT64_MAX)));
    default:
      return object();
  }
}

TEST(SerializedText, OfRandomMessagesIsWhatAPlainWriterWrites) {
  const unsigned seed = 20;
  SCOPED_TRACE("seed " + std::to_string(seed));
  Dice dice(seed);
  for (int round = 0; round < 2000; ++round) {
    const std::string severity = std::to_string(static_cast<int>(dice.below(UINT32_MAX)));
    std::string expected = headerLine("MSG", severity);
    Values values;
    for (size_t count = 1 + dice.below(8); values.size() < count;) {
      values.push_back(randomValue(dice));
      expected +=
          argumentLine(std::to_string(values.size() - 1), std::to_string(values.back().getType()),
                       valueWrittenPlainly(values.back()));
    }
    ASSERT_EQ(serialized(values, "MSG", std::stoi(severity)), expected + trailer);
  }
}

// ---- memory that runs out

Values valuesOfEveryType() {
  Values values = {Formattable(1),
                   Formattable(0.5),
                   text("text"),
                   date(7),
                   int64(8),
                   object(),
                   text("a text that is too long to stand in the object itself, for certain")};
  values.push_back(array(values));
  values.push_back(array({values[6]}));
  values.push_back(array({}));
  return values;
}

class IcuMessageWithoutMemory : public testing::Test {
 protected:
  void makeAnew() {
    m_message = std::make_unique<CCmnIcuMessage>("old", 1);
    give(*m_message, {Formattable(3), text("old")});
  }

  const Texts m_old = {"long 3", "string old"};
  std::unique_ptr<CCmnIcuMessage> m_message;
};

TEST_F(IcuMessageWithoutMemory, KeepsItsArgumentsWhereNewOnesCannotBeHad) {
  const Values values = valuesOfEveryType();
  failEachAllocation([&] { makeAnew(); }, [&] { give(*m_message, values); },
                     [&](bool threw) {
                       expectArguments(*m_message, threw ? m_old : described(values));
                       EXPECT_TRUE(threw || argumentsOf(*m_message) == values);
                       give(*m_message, values);
                       EXPECT_EQ(argumentsOf(*m_message), values);
                     });
}

TEST_F(IcuMessageWithoutMemory, KeepsItsArgumentsWhereOneMoreCannotBeHad) {
  for (const Formattable& value : valuesOfEveryType()) {
    Texts longer = m_old;
    longer.push_back(described(value));
    failEachAllocation([&] { makeAnew(); }, [&] { m_message->addArgument(value); },
                       [&](bool threw) {
                         expectArguments(*m_message, threw ? m_old : longer);
                         EXPECT_TRUE(threw || m_message->getArgument(2) == value);
                         m_message->addArgument(text("x"));
                         EXPECT_EQ(described(m_message->getArgument(threw ? 2 : 3)), "string x");
                       });
  }
}

TEST_F(IcuMessageWithoutMemory, RefusesAValueForWhichIcuHadNone) {
  const UnicodeString content("text");
  std::unique_ptr<Formattable> broken;
  {
    const HeapWatch watch(2, Times::once, HeapCall::malloc);  // the first is the value itself
    broken = std::make_unique<Formattable>(content);
  }
  UErrorCode status = U_ZERO_ERROR;
  broken->getString(status);
  ASSERT_EQ(status, U_MEMORY_ALLOCATION_ERROR);
  makeAnew();
  EXPECT_THROW(m_message->addArgument(*broken), std::bad_alloc);
  EXPECT_THROW(m_message->setArguments(broken.get(), 1), std::bad_alloc);
  expectArguments(*m_message, m_old);
}

TEST_F(IcuMessageWithoutMemory, KeepsAStringThatItsMakerMadeBogus) {
  UnicodeString bogus;
  bogus.setToBogus();
  makeAnew();
  m_message->addArgument(Formattable(bogus));
  ASSERT_EQ(m_message->getArgumentCount(), 3);
  EXPECT_TRUE(m_message->getArgument(2).getString().isBogus());
}

// A text that ICU only refers to is copied in full, into memory of its own.
TEST_F(IcuMessageWithoutMemory, CopiesABorrowedTextWholeOrNotAtAll) {
  const std::u16string content(200, u'x');
  Formattable value;
  value.adoptString(new UnicodeString(UBool{1}, content.data(), 200));
  int failures = 0;
  failEachAllocation([&] { makeAnew(); }, [&] { m_message->addArgument(value); },
                     [&](bool threw) {
                       failures += threw ? 1 : 0;
                       ASSERT_EQ(m_message->getArgumentCount(), threw ? 2 : 3);
                       EXPECT_TRUE(threw || m_message->getArgument(2) == value);
                     });
  EXPECT_GT(failures, 0);
}

TEST_F(IcuMessageWithoutMemory, KeepsAnAmountThatIsNoNumber) {
  UErrorCode status = U_ZERO_ERROR;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  makeAnew();
  m_message->addArgument(Formattable(new icu::CurrencyAmount(nan, u"EUR", status)));
  EXPECT_EQ(described(m_message->getArgument(2)), "object");
}

TEST_F(IcuMessageWithoutMemory, IsNotMadeHalf) {
  failEachAllocation(
      [&] { m_message.reset(); }, [&] { m_message = std::make_unique<CCmnIcuMessage>("id", 1); },
      [&](bool threw) {
        ASSERT_EQ(m_message == nullptr, threw);
        if (!threw) {
          int32_t count = -1;
          const Formattable& arguments = (*m_message).*memberOf(CCmnIcuMessage_m_arguments{});
          EXPECT_NE(arguments.getArray(count), nullptr);
        }
      });
}

TEST_F(IcuMessageWithoutMemory, IsReadWholeOrNotAtAll) {
  std::string content =
      serialized({Formattable(5), Formattable(0.5), text("text"), text("text"), text("text"),
                  text("a text that is too long to stand in the object itself, for certain")},
                 "AN_IDENTIFIER_THAT_IS_TOO_LONG_TO_STAND_IN_THE_OBJECT_ITSELF", 2);
  const SCmnMessageInfo info{content.data(), 0};
  failEachAllocation([&] { makeAnew(); }, [&] { m_message->deserialize(&info); },
                     [&](bool threw) {
                       if (threw) {
                         EXPECT_EQ(m_message->getMessageId(), "old");
                         EXPECT_EQ(m_message->getSeverity(), 1);
                         expectArguments(*m_message, m_old);
                       } else {
                         EXPECT_EQ(m_message->serialize()->text, content);
                       }
                     });
}

TEST_F(IcuMessageWithoutMemory, IsWrittenWholeOrNotAtAll) {
  const Values values = valuesOfEveryType();
  const std::string content = serialized(values, "old", 1);
  failEachAllocation(
      [&] {
        makeAnew();
        give(*m_message, values);
      },
      [&] { m_message->serialize(); },
      [&](bool) { EXPECT_EQ(m_message->serialize()->text, content); });
}

// Numbers and dates are left out: ICU's own formats of them crash.
TEST_F(IcuMessageWithoutMemory, IsFormattedWholeOrNotAtAll) {
  const ScopedIcuDefaults scope("en_US");
  const std::string longText(200, 'x');
  const struct {
    Values values;
    tstr pattern;
    std::string expected;
  } rows[] = {
      {{text("x"), text("y")}, "{0} has {1}, and that is enough", "x has y, and that is enough"},
      {{text(longText.c_str())}, (longText + "{0}").c_str(), longText + longText},
      {{text("x")}, "a pattern that is refused {", "a pattern that is refused {"},
      {{}, "plain", "plain"},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(formatted(row.values, row.pattern), row.expected);
    std::string result;
    failEachAllocation(
        [&] {
          makeAnew();
          give(*m_message, row.values);
          result.assign(1024, '?');
        },
        [&] {
          const tstr made = m_message->formatMessage(row.pattern);
          result.assign(made.c_str(), made.length());
        },
        [&](bool threw) {
          EXPECT_TRUE(threw || result == row.expected) << result;
          EXPECT_EQ(formatted(row.values, row.pattern), row.expected);
        });
  }
}

// ---- locale

TEST(IcuMessage, WritesAndReadsNumbersWithTheDecimalPointOfTheProcessLocale) {
  CCmnIcuMessage message("id", 1);
  message.addArgument(7.5);
  CCmnIcuMessage target;
  SCmnMessageInfo* info = nullptr;
  {
    const kelp_test::CommaLocale locale;
    if (!locale.isSet()) {
      GTEST_SKIP() << "localedef makes no locale here";
    }
    info = message.serialize();
    EXPECT_NE(std::string(info->text).find(">7,5<"), std::string::npos) << info->text;
    target.deserialize(info);
    EXPECT_EQ(target.getArgument(0).getDouble(), 7.5);
  }
  // A reader in another locale stops at the comma.
  target.deserialize(info);
  EXPECT_EQ(target.getArgument(0).getDouble(), 7);
}

}  // namespace
