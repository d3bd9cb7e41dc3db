#include "cmnicumessage.h"

#include "Q_sscanf.h"
#include "Q_strings.h"
#include "cmnstringtool.h"

#include <unicode/msgfmt.h>
#include <unicode/unistr.h>

#include <string_view>
#include <vector>

namespace kelp_cmn_4_4 {

template class CCmnContextSingletonAllocator<CCmnIcuMessage>;

namespace {

using icu::Formattable;

constexpr char headerOpening[] = "<SERIALIZED_MESSAGE";
constexpr char argumentOpening[] = "<ARGVALUE";
constexpr char argumentClosing[] = "</ARGVALUE>";
constexpr size_t bufferSize = 1024;

// Everything but the values goes through a buffer, which cuts what is longer.
template <class... Values>
std::string formatted(const char* format, Values... values) {
  char buffer[bufferSize];
  Q_snprintf(buffer, sizeof buffer, format, values...);
  return buffer;
}

std::string valueText(const Formattable& argument) {
  switch (argument.getType()) {
    case Formattable::kDate:
      return CCmnStringTool::double2str(argument.getDate());
    case Formattable::kDouble:
      return CCmnStringTool::double2str(argument.getDouble());
    case Formattable::kLong:
      return CCmnStringTool::int2str(static_cast<int>(argument.getLong()));
    case Formattable::kString: {
      icu::UnicodeString text = argument.getString();
      return CCmnStringTool::ustr2str(text);
    }
    default:
      return std::string();  // on purpose: the reader drops these
  }
}

void appendValue(std::vector<Formattable>& arguments, int type, std::string_view text) {
  std::string value(text);
  switch (type) {
    case Formattable::kDate:  // comes back as a number, on purpose
    case Formattable::kDouble:
      arguments.emplace_back(CCmnStringTool::str2double(value));
      break;
    case Formattable::kLong:
      arguments.emplace_back(CCmnStringTool::str2int(value));
      break;
    case Formattable::kString:
      arguments.emplace_back(CCmnStringTool::str2ustr(value));
      break;
    default:
      break;
  }
}

// Drops what stands before a position. Beyond the end it throws what std::string::substr throws.
void cutAt(std::string_view& text, size_t position) {
  if (position > text.size()) {
    static_cast<void>(std::string(text).substr(position));
  }
  text.remove_prefix(position);
}

int scanType(std::string_view text) {
  // Up to the first ">" no conversion can go further, so the rest of the text need not be scanned.
  const std::string tag(text.substr(0, text.find('>')));
  int index = -1;
  int type = -1;
  Q_sscanf(tag.c_str(), "<ARGVALUE INDEX=%d TYPE=%d>", &index, static_cast<int>(sizeof index),
           &type, static_cast<int>(sizeof type));
  return type;
}

// Positions are the plain arithmetic of what the searches give: "not found" plus one is the start.
std::vector<Formattable> readArguments(std::string_view text) {
  std::vector<Formattable> arguments;
  // On purpose, this first search finds any character of the set.
  size_t next = text.find_first_of(argumentOpening, text.find('>'));
  while (next != std::string_view::npos) {
    cutAt(text, next);
    const int type = scanType(text);
    cutAt(text, text.find('>') + 1);
    const size_t valueEnd = text.find('<');
    const std::string_view value = text.substr(0, valueEnd);
    cutAt(text, valueEnd + sizeof argumentClosing - 1);
    next = text.find(argumentOpening);
    appendValue(arguments, type, value);
  }
  return arguments;
}

}  // namespace

CCmnIcuMessage::CCmnIcuMessage() : CCmnIcuMessage(std::string(), 0) {}

CCmnIcuMessage::CCmnIcuMessage(const std::string& messageId, int severity,
                               const std::string& fileName, int lineNumber)
    : CCmnMessage(messageId, severity, fileName, lineNumber), m_info{nullptr, 0} {
  m_arguments.setArray(nullptr, 0);
}

CCmnIcuMessage::~CCmnIcuMessage() = default;

void CCmnIcuMessage::setArguments(const Formattable* arguments, int count) {
  // Formattable::setArray frees the old values before it copies the new ones.
  const std::vector<Formattable> copies(arguments, arguments + count);
  m_arguments.setArray(copies.data(), count);
}

void CCmnIcuMessage::addArgument(const Formattable& argument) {
  int count = 0;
  const Formattable* const arguments = m_arguments.getArray(count);
  std::vector<Formattable> copies(arguments, arguments + count);
  copies.push_back(argument);
  m_arguments.setArray(copies.data(), count + 1);
}

int CCmnIcuMessage::getArgumentCount() const {
  int count = 0;
  m_arguments.getArray(count);
  return count;
}

const Formattable& CCmnIcuMessage::getArgument(int index) const {
  int count = 0;
  return m_arguments.getArray(count)[index];
}

SCmnMessageInfo* CCmnIcuMessage::serialize() {
  int count = 0;
  const Formattable* const arguments = m_arguments.getArray(count);
  std::string text;
  if (count > 0) {  // without arguments nothing at all is written, on purpose
    text =
        formatted("<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>\n", m_messageId.c_str(), m_severity);
    for (int i = 0; i < count; ++i) {
      text +=
          formatted("\t<ARGVALUE INDEX=%d TYPE=%d>", i, static_cast<int>(arguments[i].getType()));
      text += valueText(arguments[i]);
      text += formatted("%s\n", argumentClosing);
    }
    text += "</SERIALIZED_MESSAGE>\n";
  }
  m_serialized.swap(text);
  m_info.text = m_serialized.data();
  m_info.length = static_cast<int>(m_serialized.length());
  return &m_info;
}

void CCmnIcuMessage::deserialize(const SCmnMessageInfo* info) {
  std::string_view text = info->text;
  const size_t start = text.find_first_of(headerOpening);  // any character of the set, on purpose
  if (start == std::string_view::npos) {
    return;
  }
  cutAt(text, start);
  char messageId[bufferSize] = "";
  Q_sscanf(text.data(), "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", messageId,
           static_cast<int>(sizeof messageId), &m_severity, static_cast<int>(sizeof m_severity));
  m_messageId = messageId;
  const std::vector<Formattable> arguments = readArguments(text);
  m_arguments.setArray(arguments.data(), static_cast<int>(arguments.size()));
}

tstr CCmnIcuMessage::formatMessage(tstr pattern) {
  icu::UnicodeString output;
  UErrorCode status = U_ZERO_ERROR;
  int count = 0;
  const Formattable* const arguments = m_arguments.getArray(count);
  icu::MessageFormat::format(icu::UnicodeString(pattern.c_str()), arguments, count, output, status);
  if (U_FAILURE(status) && output.isEmpty()) {
    return pattern;
  }
  return CCmnStringTool::ustr2tstr(output);
}

}  // namespace kelp_cmn_4_4
