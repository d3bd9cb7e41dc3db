// Serialized messages: a message's text is the one that a plain writer gives; and what any text
// makes of a message is what a plain second reader makes of it.
#include "cmnicumessage.h"
#include "expect.h"
#include "input.h"
#include "plain_text.h"

#include <unicode/curramt.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using icu::Formattable;
using kelp_cmn_4_4::CCmnIcuMessage;
using kelp_cmn_4_4::SCmnMessageInfo;
using kelp_fuzz::expect;

// As a text can say it: a number or a string.
struct PlainArgument {
  Formattable::Type type;
  double number = 0;  // a long as well
  std::u16string text;
};

struct PlainMessage {
  std::string id;
  int severity = 0;
  std::vector<PlainArgument> arguments;
};

std::u16string units(const icu::UnicodeString& text) {
  return {text.getBuffer(), static_cast<size_t>(text.length())};
}

icu::UnicodeString unicode(const std::u16string& text) {
  return {text.data(), static_cast<int32_t>(text.size())};
}

// ---- the plain writer

std::string number(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string valueText(const Formattable& argument) {
  switch (argument.getType()) {
    case Formattable::kDate:
      return number("%g", argument.getDate());
    case Formattable::kDouble:
      return number("%g", argument.getDouble());
    case Formattable::kLong:
      return number("%.0f", argument.getLong());
    case Formattable::kString:
      return kelp_test::plainlyToUtf8(units(argument.getString()));
    default:
      return std::string();
  }
}

std::string plainlyWritten(const std::string& id, int severity,
                           const std::vector<Formattable>& arguments) {
  if (arguments.empty()) {
    return std::string();
  }
  constexpr size_t longestHeader = 1023;
  std::string text = "<SERIALIZED_MESSAGE MSGID=" + kelp_test::upToZero(id) +
                     " SEVERITY=" + std::to_string(severity) + ">\n";
  text.resize(std::min(text.size(), longestHeader));
  for (size_t i = 0; i < arguments.size(); ++i) {
    text += "\t<ARGVALUE INDEX=" + std::to_string(i) +
            " TYPE=" + std::to_string(arguments[i].getType()) + ">" + valueText(arguments[i]) +
            "</ARGVALUE>\n";
  }
  return text + "</SERIALIZED_MESSAGE>\n";
}

// ---- the plain reader

// Reads the beginning of a text step by step. After a step that fails, all others do.
class Scan {
 public:
  explicit Scan(const std::string& text) : m_next(text.c_str()) {}

  // A blank stands for any white space, and for none.
  void literal(const std::string& expected) {
    for (const char c : expected) {
      if (c == ' ') {
        skipBlanks();
      } else if (m_next != nullptr) {
        m_next = *m_next == c ? m_next + 1 : nullptr;
      }
    }
  }

  // Empty where there is none.
  std::string word() {
    skipBlanks();
    std::string word;
    while (m_next != nullptr && *m_next != '\0' && !isBlank(*m_next)) {
      word += *m_next++;
    }
    m_next = word.empty() ? nullptr : m_next;
    return word;
  }

  // Stays within 64 bits, and keeps the low 32 of them.
  int numberOr(int other) {
    if (m_next == nullptr) {
      return other;
    }
    char* end = nullptr;
    const long value = std::strtol(m_next, &end, 10);
    m_next = end == m_next ? nullptr : end;
    return m_next == nullptr ? other : static_cast<int>(value);
  }

 private:
  static bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

  void skipBlanks() {
    while (m_next != nullptr && isBlank(*m_next)) {
      ++m_next;
    }
  }

  const char* m_next;
};

struct Header {
  std::string id;
  int severity;
};

Header plainHeader(const std::string& text, int severity) {
  constexpr size_t longestId = 1023;
  Scan scan(text);
  scan.literal("<SERIALIZED_MESSAGE MSGID=");
  const std::string id = scan.word();
  scan.literal(" SEVERITY=");
  return {id.substr(0, longestId), scan.numberOr(severity)};
}

int plainType(const std::string& text) {
  Scan scan(text);
  scan.literal("<ARGVALUE INDEX=");
  scan.numberOr(-1);
  scan.literal(" TYPE=");
  return scan.numberOr(-1);
}

void addArgument(int type, const std::string& value, std::vector<PlainArgument>& arguments) {
  if (type == Formattable::kDate || type == Formattable::kDouble) {
    arguments.push_back({Formattable::kDouble, std::strtod(value.c_str(), nullptr), u""});
  } else if (type == Formattable::kLong) {
    const auto whole = static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
    arguments.push_back({Formattable::kLong, static_cast<double>(whole), u""});
  } else if (type == Formattable::kString) {
    arguments.push_back({Formattable::kString, 0, kelp_test::plainlyFromUtf8(value)});
  }
}

// A position that was not found is the largest number, and counting on from there begins at zero.
std::vector<PlainArgument> plainArguments(std::string text) {
  constexpr size_t closingLength = 11;
  std::vector<PlainArgument> arguments;
  size_t next = text.find_first_of("<ARGVALUE", text.find('>'));
  while (next != std::string::npos) {
    text = text.substr(next);
    const int type = plainType(text);
    text = text.substr(text.find('>') + 1);
    const size_t end = text.find('<');
    const std::string value = text.substr(0, end);
    text = text.substr(end + closingLength);
    next = text.find("<ARGVALUE");
    addArgument(type, value, arguments);
  }
  return arguments;
}

// True where the text is refused. Its identifier and its severity are taken all the same.
bool plainlyRead(const std::string& text, PlainMessage& message) {
  const size_t start = text.find_first_of("<SERIALIZED_MESSAGE");
  if (start == std::string::npos) {
    return false;
  }
  const Header header = plainHeader(text.substr(start), message.severity);
  message.id = header.id;
  message.severity = header.severity;
  try {
    message.arguments = plainArguments(text.substr(start));
  } catch (const std::out_of_range&) {
    return true;
  }
  return false;
}

// ---- what is compared

bool isSame(double a, double b) {
  return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}

void expectSame(const Formattable& argument, const PlainArgument& plain) {
  expect(argument.getType() == plain.type, "the plain reader's type");
  if (plain.type == Formattable::kString) {
    expect(units(argument.getString()) == plain.text, "the plain reader's text");
  } else {
    const double value =
        plain.type == Formattable::kLong ? argument.getLong() : argument.getDouble();
    expect(isSame(value, plain.number), "the plain reader's number");
  }
}

void expectSame(CCmnIcuMessage& message, const PlainMessage& plain) {
  expect(message.getMessageId() == plain.id, "the plain reader's identifier");
  expect(message.getSeverity() == plain.severity, "the plain reader's severity");
  const auto count = static_cast<size_t>(message.getArgumentCount());
  expect(count == plain.arguments.size(), "the plain reader's number of arguments");
  for (size_t i = 0; i < count; ++i) {
    expectSame(message.getArgument(static_cast<int>(i)), plain.arguments[i]);
  }
}

// Reads a text over what the message holds.
void expectPlainReading(std::string text, CCmnIcuMessage& message, PlainMessage& plain) {
  SCmnMessageInfo info{text.data(), -1};
  bool isRefused = false;
  try {
    message.deserialize(&info);
  } catch (const std::out_of_range&) {
    isRefused = true;
  }
  expect(plainlyRead(text, plain) == isRefused, "refused where the plain reader refuses");
  expectSame(message, plain);
}

// ---- messages that are made

std::u16string someUnits(kelp_fuzz::Input& input) {
  std::u16string text;
  for (size_t count = input.upTo(12); count > 0; --count) {
    text += static_cast<char16_t>(input.number<uint16_t>());
  }
  return text;
}

Formattable someArgument(kelp_fuzz::Input& input) {
  switch (input.upTo(7)) {
    case 0:
      return {input.number<double>(), Formattable::kIsDate};
    case 1:
      return {input.number<double>()};
    case 2:
      return {input.number<int32_t>()};
    case 3:
      return {unicode(someUnits(input))};
    case 4: {
      const Formattable elements[] = {1, 2};
      return {elements, 2};
    }
    case 5:
      return {input.number<int64_t>()};
    case 6: {
      UErrorCode status = U_ZERO_ERROR;
      return {new icu::CurrencyAmount(Formattable(3), u"EUR", status)};
    }
    default:
      return {icu::UnicodeString::fromUTF8(input.text())};
  }
}

// Whether a text can carry it as it is.
bool isCarried(const Formattable& argument) {
  if (argument.getType() != Formattable::kString) {
    return true;
  }
  const std::u16string text = units(argument.getString());
  return text.find(u'<') == std::u16string::npos && text.find(u'\0') == std::u16string::npos;
}

bool isCarried(const std::string& id) {
  constexpr size_t surelyFits = 900;
  return !id.empty() && id.size() < surelyFits &&
         id.find_first_of(std::string(" \t\n\v\f\r>\0", 8)) == std::string::npos;
}

// What such a message is once it was carried.
PlainMessage received(const std::string& id, int severity,
                      const std::vector<Formattable>& arguments) {
  PlainMessage message{id, severity, {}};
  for (const Formattable& argument : arguments) {
    switch (argument.getType()) {
      case Formattable::kString: {
        const std::u16string text = units(argument.getString());
        const bool isWhole = text == kelp_test::plainlyFromUtf8(kelp_test::plainlyToUtf8(text));
        message.arguments.push_back({Formattable::kString, 0, isWhole ? text : u""});
        break;
      }
      case Formattable::kLong:
        message.arguments.push_back(
            {Formattable::kLong, static_cast<double>(argument.getLong()), u""});
        break;
      case Formattable::kDate:
      case Formattable::kDouble:
        message.arguments.push_back(
            {Formattable::kDouble, std::strtod(valueText(argument).c_str(), nullptr), u""});
        break;
      default:
        break;
    }
  }
  return message;
}

void carryMessage(kelp_fuzz::Input& input) {
  const std::string id = input.bytes(input.upTo(2000));
  const int severity = input.number<int>();
  std::vector<Formattable> arguments;
  while (!input.empty()) {
    arguments.push_back(someArgument(input));
  }
  CCmnIcuMessage sender(id, severity);
  sender.setArguments(arguments.data(), static_cast<int>(arguments.size()));
  const SCmnMessageInfo* const info = sender.serialize();
  const std::string text(info->text, static_cast<size_t>(info->length));
  expect(text == plainlyWritten(id, severity, arguments), "the plain writer's text");

  CCmnIcuMessage receiver("OLD", -5);
  PlainMessage plain{"OLD", -5, {}};
  expectPlainReading(text, receiver, plain);
  const auto isCarriedWhole = [](const Formattable& argument) { return isCarried(argument); };
  if (!arguments.empty() && isCarried(id) &&
      std::all_of(arguments.begin(), arguments.end(), isCarriedWhole)) {
    expectSame(receiver, received(id, severity, arguments));
  }
}

void readTexts(kelp_fuzz::Input& input) {
  CCmnIcuMessage message("OLD", -5);
  PlainMessage plain{"OLD", -5, {}};
  while (!input.empty()) {
    expectPlainReading(input.text(), message, plain);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kelp_fuzz::Input input(data, size);
  if (input.choice()) {
    readTexts(input);
  } else {
    carryMessage(input);
  }
  return 0;
}
