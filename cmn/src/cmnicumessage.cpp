#include "cmnicumessage.h"

#include "Q_sscanf.h"
#include "Q_strings.h"
#include "cmnacestring.h"
#include "cmnstringtool.h"

#include <unicode/measure.h>
#include <unicode/msgfmt.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <stdexcept>
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
      // Deliberate: nothing, as the text has no form for these. The tag is written all the same,
      // and readers drop it.
      return std::string();
  }
}

using Values = std::unique_ptr<Formattable[]>;

// ICU's own "new" gives null.
Values newValues(size_t count) {
  Values values(new Formattable[count]);
  if (values == nullptr) {
    throw std::bad_alloc();
  }
  return values;
}

// An amount that is no number equals nothing. ICU has no other objects than measures.
bool isNoNumber(const icu::UObject& object) {
  UErrorCode status = U_ZERO_ERROR;
  const Formattable& number = static_cast<const icu::Measure&>(object).getNumber();
  return std::isnan(number.getDouble(status));
}

// Whether a copy has all that ICU needs memory for. A value that is no whole copy of itself crashes
// ICU when it is copied or formatted.
bool isWholeCopy(const Formattable& copy, const Formattable& value) {
  switch (value.getType()) {
    case Formattable::kString: {
      UErrorCode status = U_ZERO_ERROR;
      const UBool bogus = copy.getString(status).isBogus();
      return status == U_ZERO_ERROR && bogus == value.getString().isBogus();
    }
    case Formattable::kArray: {
      int32_t count = 0;
      const Formattable* const copies = copy.getArray(count);
      const Formattable* const values = value.getArray(count);
      return count == 0 ||
             (copies != nullptr && std::equal(copies, copies + count, values, isWholeCopy));
    }
    case Formattable::kObject:
      return copy.getObject() != nullptr && (copy == value || isNoNumber(*copy.getObject()));
    default:
      return true;
  }
}

void copyValue(const Formattable& value, Formattable& copy) {
  if (isWholeCopy(value, value)) {
    copy = value;
    if (isWholeCopy(copy, value)) {
      return;
    }
  }
  throw std::bad_alloc();
}

// The values, and room for one more.
Values copiedValues(const Formattable* values, int count) {
  Values copies = newValues(static_cast<size_t>(count) + 1);
  for (int i = 0; i < count; ++i) {
    copyValue(values[i], copies[static_cast<size_t>(i)]);
  }
  return copies;
}

// A value as it stands in a serialized text.
struct ValueText {
  int type;
  std::string_view text;
};

void readValue(const ValueText& source, Formattable& value) {
  std::string text(source.text);
  if (source.type == Formattable::kLong) {
    value.setLong(CCmnStringTool::str2int(text));
  } else if (source.type == Formattable::kString) {
    value.setString(CCmnStringTool::str2ustr(text));
    UErrorCode status = U_ZERO_ERROR;
    if (value.getString(status).isBogus()) {
      throw std::bad_alloc();
    }
  } else {
    // Deliberate: a date comes back as a number. Its pattern says how it is shown, and
    // takes either.
    value.setDouble(CCmnStringTool::str2double(text));
  }
}

// Drops what stands before a position. Beyond the end it throws what std::string::substr throws.
void cutAt(std::string_view& text, size_t position) {
  if (position > text.size()) {
    static_cast<void>(std::string(text).substr(position));
  }
  text.remove_prefix(position);
}

// Deliberate: INDEX is read and not used. Arguments come in the order of the text, so that one that
// was dropped leaves no hole. The text goes on up to its terminator.
int scanType(std::string_view text) {
  int index = -1;
  int type = -1;
  Q_sscanf(text.data(), "<ARGVALUE INDEX=%d TYPE=%d>", &index, static_cast<int>(sizeof index),
           &type, static_cast<int>(sizeof type));
  return type;
}

// Finds the next ">" of a text that is cut again and again. What was found, or that there is none,
// holds until the text is cut behind it: so nothing is searched twice.
class TagEnd {
 public:
  size_t in(std::string_view text) {
    const char* const end = text.data() + text.size();
    if (m_found == nullptr || m_found < text.data()) {
      const size_t position = text.find('>');
      m_found = position == std::string_view::npos ? end : text.data() + position;
    }
    return m_found == end ? std::string_view::npos : static_cast<size_t>(m_found - text.data());
  }

 private:
  const char* m_found = nullptr;
};

// Deliberate: nothing asks whether a search found anything. "Not found" is the largest number,
// so one behind it is the start: of a damaged text the rest is read from there, in every
// process alike.
std::vector<ValueText> findArguments(std::string_view text) {
  std::vector<ValueText> arguments;
  TagEnd tagEnd;
  // Deliberate: any character of the set, for the first argument as for the header.
  size_t next = text.find_first_of(argumentOpening, tagEnd.in(text));
  while (next != std::string_view::npos) {
    cutAt(text, next);
    const int type = scanType(text);
    cutAt(text, tagEnd.in(text) + 1);
    const size_t valueEnd = text.find('<');
    const std::string_view value = text.substr(0, valueEnd);
    cutAt(text, valueEnd + sizeof argumentClosing - 1);
    next = text.find(argumentOpening);
    if (type >= Formattable::kDate && type <= Formattable::kString) {  // others are dropped
      arguments.push_back({type, value});
    }
  }
  return arguments;
}

Values readArguments(const std::vector<ValueText>& texts) {
  Values values = newValues(texts.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    readValue(texts[i], values[i]);
  }
  return values;
}

}  // namespace

CCmnIcuMessage::CCmnIcuMessage() : CCmnIcuMessage(std::string(), 0) {}

CCmnIcuMessage::CCmnIcuMessage(const std::string& messageId, int severity,
                               const std::string& fileName, int lineNumber)
    : CCmnMessage(messageId, severity, fileName, lineNumber), m_info{nullptr, 0} {
  m_arguments.adoptArray(newValues(0).release(), 0);
}

CCmnIcuMessage::~CCmnIcuMessage() = default;

void CCmnIcuMessage::setArguments(const Formattable* arguments, int count) {
  m_arguments.adoptArray(copiedValues(arguments, count).release(), count);
}

void CCmnIcuMessage::addArgument(const Formattable& argument) {
  int count = 0;
  const Formattable* const arguments = m_arguments.getArray(count);
  Values copies = copiedValues(arguments, count);
  copyValue(argument, copies[static_cast<size_t>(count)]);
  m_arguments.adoptArray(copies.release(), count + 1);
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
  // Deliberate: nothing at all without arguments. Readers leave their message as it is for an empty
  // text, and hosts pass a bare identifier as such.
  if (count > 0) {
    text =
        formatted("<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>\n", m_messageId.c_str(), m_severity);
    for (int i = 0; i < count; ++i) {
      text +=
          formatted("\t<ARGVALUE INDEX=%d TYPE=%d>", i, static_cast<int>(arguments[i].getType()));
      // Deliberate: written as it is. Readers unescape nothing.
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
  // Deliberate: any character of the set, not the whole word. A text that has lost its beginning
  // still gives its arguments.
  const size_t start = text.find_first_of(headerOpening);
  if (start == std::string_view::npos) {
    return;
  }
  cutAt(text, start);
  char buffer[bufferSize] = "";
  int severity = m_severity;
  Q_sscanf(text.data(), "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", buffer,
           static_cast<int>(sizeof buffer), &severity, static_cast<int>(sizeof severity));
  std::string messageId = buffer;
  const auto takeHeader = [&] {
    m_messageId.swap(messageId);
    m_severity = severity;
  };
  try {
    const std::vector<ValueText> texts = findArguments(text);
    Values arguments = readArguments(texts);
    takeHeader();
    m_arguments.adoptArray(arguments.release(), static_cast<int>(texts.size()));
  } catch (const std::out_of_range&) {
    // Deliberate: taken though the arguments stay, so that who catches this knows the message.
    takeHeader();
    throw;
  }
}

tstr CCmnIcuMessage::formatMessage(tstr pattern) {
  const icu::UnicodeString units(whole(pattern).c_str());
  icu::UnicodeString output;
  UErrorCode status = U_ZERO_ERROR;
  int count = 0;
  const Formattable* const arguments = m_arguments.getArray(count);
  icu::MessageFormat::format(units, arguments, count, output, status);
  if (units.isBogus() || output.isBogus() || status == U_MEMORY_ALLOCATION_ERROR) {
    throw std::bad_alloc();
  }
  // Deliberate: what ICU had written before it failed is a result. Only without any, the pattern is
  // shown as it is, which is more than nothing.
  if (U_FAILURE(status) && output.isEmpty()) {
    return copied(pattern);
  }
  return CCmnStringTool::ustr2tstr(output);
}

}  // namespace kelp_cmn_4_4
