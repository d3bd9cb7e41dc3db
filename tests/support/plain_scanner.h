// The slow form of the scanner: it has the whole text, cuts each conversion's out of it, and leaves
// numbers to the platform.
#pragma once

#include <locale.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace kelp_test {

// ---- the longest beginning of a text that can still become a number

inline size_t lengthOf(const std::string& text, size_t at, const char* characters) {
  return std::min(text.find_first_not_of(characters, at), text.size()) - at;
}

inline bool isAt(const std::string& text, size_t at, const char* characters) {
  return at < text.size() && std::strchr(characters, text[at]) != nullptr && text[at] != '\0';
}

struct NumberText {
  size_t length;  // of what is consumed, a number or not
  bool isNumber;
};

// A base of 0 becomes the one that the prefix tells.
inline NumberText integerAtStart(const std::string& text, int& base) {
  const size_t sign = isAt(text, 0, "+-") ? 1 : 0;
  const bool takesPrefix = base == 0 || base == 16;
  if (takesPrefix && isAt(text, sign, "0") && isAt(text, sign + 1, "xX")) {
    base = 16;
    return {sign + 2 + lengthOf(text, sign + 2, "0123456789abcdefABCDEF"), true};
  }
  if (base == 0) {
    base = isAt(text, sign, "0") ? 8 : 10;
  }
  const char* const digits = base == 8    ? "01234567"
                             : base == 10 ? "0123456789"
                                          : "0123456789abcdefABCDEF";
  const size_t count = lengthOf(text, sign, digits);
  return {sign + count, count > 0};
}

inline NumberText floatAtStart(const std::string& text) {
  const char* const digits = "0123456789";
  size_t at = isAt(text, 0, "+-") ? 1 : 0;
  size_t count = lengthOf(text, at, digits);
  at += count;
  if (isAt(text, at, ".")) {
    const size_t fraction = lengthOf(text, ++at, digits);
    count += fraction;
    at += fraction;
  }
  if (count > 0 && isAt(text, at, "eE")) {
    at += isAt(text, at + 1, "+-") ? 2 : 1;
    at += lengthOf(text, at, digits);
  }
  return {at, count > 0};
}

// With a point in every locale.
inline double plainlyToDouble(const std::string& text) {
  static const locale_t pointed = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(text.c_str(), nullptr, pointed);
}

// ---- scan sets

// By what stands between the brackets, of which the first may be the second.
inline bool isInScanSet(char character, const std::string& set) {
  const auto byte = [](char c) { return static_cast<unsigned char>(c); };
  const bool inverted = set[0] == '^';
  const std::string members = set.substr(inverted ? 1 : 0);
  bool found = false;
  for (size_t i = 0; i < members.size(); ++i) {
    const bool isRange = members[i] == '-' && i > 0 && i + 1 < members.size() &&
                         byte(members[i - 1]) <= byte(members[i + 1]);
    if (isRange) {
      found = found ||
              (byte(members[i - 1]) <= byte(character) && byte(character) <= byte(members[i + 1]));
      ++i;  // its end, which may begin the next
    } else {
      found = found || members[i] == character;
    }
  }
  return found != inverted;
}

// ---- the scan

constexpr size_t plainSlotSize = 64;

// A destination of any type, filled so that every byte stored shows.
struct PlainSlot {
  PlainSlot() { bytes.fill('\x5a'); }
  bool operator==(const PlainSlot& other) const { return bytes == other.bytes; }

  alignas(16) std::array<char, plainSlotSize> bytes;
};

class PlainScanner {
 public:
  // The text and, for each value that may be stored, the size that is passed, below plainSlotSize.
  PlainScanner(std::string text, std::vector<int> sizes)
      : m_text(std::move(text)), m_sizes(std::move(sizes)), m_slots(m_sizes.size()) {}

  // What Q_vfscanf() gives. Sets errno as it does.
  int scan(const std::string& format) {
    m_format = format;
    End end = End::matched;
    while (end == End::matched && m_at < m_format.size()) {
      end = matchNext();
    }
    const bool nothing = end == End::input && !m_converted;
    return end == End::format || nothing ? -1 : m_assigned;
  }

  size_t consumed() const { return m_position; }
  const std::vector<PlainSlot>& slots() const { return m_slots; }

 private:
  enum class End { matched, input, matching, format };

  struct Conversion {
    bool assigns;
    size_t width;
    std::string modifier;
    char letter;
    std::string set;
  };

  static bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
  static bool isOneOf(char c, const char* letters) { return std::strchr(letters, c) != nullptr; }

  bool isAtEnd() const { return m_position == m_text.size(); }

  void skipSpace() {
    while (!isAtEnd() && isSpace(m_text[m_position])) {
      ++m_position;
    }
  }

  End matchNext() {
    const char directive = m_format[m_at++];
    if (directive == '%') {
      Conversion conversion;
      return parse(conversion) ? convert(conversion) : End::format;
    }
    if (isSpace(directive)) {
      skipSpace();
      return End::matched;
    }
    return matchLiteral(directive);
  }

  End matchLiteral(char expected) {
    if (isAtEnd()) {
      return End::input;
    }
    if (m_text[m_position] != expected) {
      return End::matching;
    }
    ++m_position;
    return End::matched;
  }

  // ---- the format

  bool takes(const std::string& text) {
    const bool follows = m_format.compare(m_at, text.size(), text) == 0;
    m_at += follows ? text.size() : 0;
    return follows;
  }

  bool parse(Conversion& conversion) {
    conversion.assigns = !takes("*");
    conversion.width = parseWidth();
    for (const char* modifier : {"hh", "h", "ll", "l", "q", "L", "j", "t", "z"}) {
      if (takes(modifier)) {
        conversion.modifier = modifier;
        break;
      }
    }
    if (m_at == m_format.size()) {
      return false;
    }
    conversion.letter = m_format[m_at++];
    return conversion.letter != '[' || parseSet(conversion.set);
  }

  // Ten digits or more are longer than any text that is scanned here.
  size_t parseWidth() {
    m_at += lengthOf(m_format, m_at, "0");
    const size_t digits = lengthOf(m_format, m_at, "0123456789");
    const std::string width = m_format.substr(m_at, digits);
    m_at += digits;
    return digits == 0 ? std::string::npos : digits > 9 ? std::string::npos - 1 : std::stoul(width);
  }

  bool parseSet(std::string& set) {
    const size_t first = m_at + (m_format[m_at] == '^' ? 1 : 0);
    const size_t end = m_format.find(']', first + 1);
    if (end == std::string::npos) {
      return false;
    }
    set = m_format.substr(m_at, end - m_at);
    m_at = end + 1;
    return true;
  }

  // ---- the conversions

  End convert(const Conversion& conversion) {
    if (conversion.letter == 'n') {
      if (conversion.assigns) {
        storeInteger(conversion.modifier, static_cast<intmax_t>(m_position));
      }
      return End::matched;
    }
    if (!isOneOf(conversion.letter, "c[")) {
      skipSpace();
    }
    if (conversion.letter == '%') {
      return matchLiteral('%');
    }
    if (isAtEnd()) {
      return End::input;
    }
    const bool converted = convertValue(conversion);
    m_converted = m_converted || converted;
    m_assigned += converted && conversion.assigns ? 1 : 0;
    return converted ? End::matched : End::matching;
  }

  bool convertValue(const Conversion& conversion) {
    switch (conversion.letter) {
      case 'c':
        return convertCharacter(conversion);
      case 's':
        return convertRun(conversion, [](char c) { return !isSpace(c); });
      case '[':
        return convertRun(conversion,
                          [&conversion](char c) { return isInScanSet(c, conversion.set); });
      case 'e':
      case 'E':
      case 'f':
      case 'g':
      case 'G':
        return convertFloat(conversion);
      default:
        return convertInteger(conversion);
    }
  }

  std::string field(size_t width) const { return m_text.substr(m_position, width); }

  bool convertCharacter(const Conversion& conversion) {
    if (conversion.assigns) {
      store(m_text[m_position++]);
      return true;
    }
    m_position += field(conversion.width == std::string::npos ? 1 : conversion.width).size();
    return true;
  }

  template <class Belongs>
  bool convertRun(const Conversion& conversion, Belongs belongs) {
    const std::string all = field(conversion.width);
    const std::string run(all.begin(), std::find_if_not(all.begin(), all.end(), belongs));
    m_position += run.size();
    if (!run.empty() && conversion.assigns) {
      const int size = m_sizes[m_stored];
      std::array<char, plainSlotSize>& bytes = m_slots[m_stored++].bytes;
      const size_t room = size > 0 ? static_cast<size_t>(size) - 1 : 0;
      const size_t length = run.copy(bytes.data(), room);
      if (size > 0) {
        bytes[length] = '\0';
      }
    }
    return !run.empty();
  }

  bool convertFloat(const Conversion& conversion) {
    const std::string text = field(conversion.width);
    const NumberText number = floatAtStart(text);
    m_position += number.length;
    if (number.isNumber && conversion.assigns) {
      const double value = plainlyToDouble(text.substr(0, number.length));
      conversion.modifier == "l"   ? store(value)
      : conversion.modifier == "L" ? storeLong(static_cast<long double>(value))
                                   : store(static_cast<float>(value));
    }
    return number.isNumber;
  }

  bool convertInteger(const Conversion& conversion) {
    const char letter = conversion.letter;
    int base = letter == 'i' ? 0 : isOneOf(letter, "oO") ? 8 : isOneOf(letter, "xXp") ? 16 : 10;
    const std::string text = field(conversion.width);
    const NumberText number = integerAtStart(text, base);
    m_position += number.length;
    if (number.isNumber && conversion.assigns) {
      const std::string digits = text.substr(0, number.length);
      const intmax_t value =
          isOneOf(letter, "ouxXpO")
              ? static_cast<intmax_t>(std::strtoumax(digits.c_str(), nullptr, base))
              : std::strtoimax(digits.c_str(), nullptr, base);
      storeInteger(typeOf(conversion), value);
    }
    return number.isNumber;
  }

  // The modifier that stands for the type stored.
  static std::string typeOf(const Conversion& conversion) {
    if (isOneOf(conversion.letter, "dioxXu")) {
      return conversion.modifier;
    }
    const bool isLong = conversion.letter == 'p' || isOneOf(conversion.letter, upperCase);
    return isLong ? "l" : "";
  }

  void storeInteger(const std::string& modifier, intmax_t value) {
    if (modifier == "hh") {
      store(static_cast<signed char>(value));
    } else if (modifier == "h") {
      store(static_cast<short>(value));
    } else if (modifier.empty() || modifier == "L") {
      store(static_cast<int>(value));
    } else {
      static_assert(sizeof(long) == 8 && sizeof(long long) == 8 && sizeof(void*) == 8);
      store(value);
    }
  }

  template <class Type>
  void store(Type value) {
    std::memcpy(m_slots[m_stored++].bytes.data(), &value, sizeof value);
  }

  // Ten bytes of a long double are the number; the others nobody stores.
  void storeLong(long double value) { std::memcpy(m_slots[m_stored++].bytes.data(), &value, 10); }

  static constexpr const char* upperCase = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

  std::string m_text;
  size_t m_position = 0;
  std::string m_format;
  size_t m_at = 0;
  std::vector<int> m_sizes;
  std::vector<PlainSlot> m_slots;
  size_t m_stored = 0;
  int m_assigned = 0;
  bool m_converted = false;
};

}  // namespace kelp_test
