#include "Q_scanner.h"

#include "Q_scanformat.h"
#include "Q_scannumber.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace q_scan {
namespace {

// How a step of the scan ends.
enum class End { matched, inputFailure, matchingFailure, badFormat };

struct Argument {
  void* destination = nullptr;
  int size = 0;
};

template <class Type>
void store(void* destination, Type value) {
  *static_cast<Type*>(destination) = value;
}

// Signed and unsigned types share a representation, so that the signed ones serve for both.
void storeInteger(void* destination, Modifier modifier, intmax_t value) {
  switch (modifier) {
    case Modifier::hh:
      return store(destination, static_cast<signed char>(value));
    case Modifier::h:
      return store(destination, static_cast<short>(value));
    case Modifier::l:
      return store(destination, static_cast<long>(value));
    case Modifier::ll:
      return store(destination, static_cast<long long>(value));
    case Modifier::j:
      return store(destination, value);
    case Modifier::t:
    case Modifier::z:
      return store(destination, static_cast<ptrdiff_t>(value));
    default:
      return store(destination, static_cast<int>(value));
  }
}

void storeFloat(void* destination, Modifier modifier, double value) {
  switch (modifier) {
    case Modifier::l:
      return store(destination, value);
    case Modifier::longDouble:
      return store(destination, static_cast<long double>(value));
    default:
      return store(destination, static_cast<float>(value));
  }
}

// How many characters both begin with, up to white space, a conversion, or the end of the format.
size_t matchingLength(const char* format, const char* text, size_t limit) {
  const SpaceTest space;
  for (size_t length = 0; length < limit; ++length) {
    const char c = format[length];
    if (c != text[length] || c == '%' || c == '\0' || space(static_cast<unsigned char>(c))) {
      return length;
    }
  }
  return limit;
}

class Scanner {
 public:
  Scanner(Input& input, va_list* args) : m_input(input), m_args(args) {}

  int scan(const char* format) {
    End end = End::matched;
    while (end == End::matched && *format != '\0') {
      matchAtHand(format);
      end = *format == '\0' ? End::matched : step(format);
    }
    // Deliberate: -1 where the format is cut off, even after values were assigned: it is the
    // program's error, and must not pass for an input that does not match.
    if (end == End::badFormat || (end == End::inputFailure && !m_converted)) {
      return -1;
    }
    return m_assigned;
  }

 private:
  // Does what the next directive of the format says.
  End step(const char*& format) {
    if (*format == '%') {
      ++format;
      if (*format == 'd' && convertShortInt()) {
        ++format;
        return End::matched;
      }
      return convertNext(format);
    }
    const auto directive = static_cast<unsigned char>(*format++);
    if (!isSpace(directive)) {
      return matchLiteral(directive);
    }
    m_input.skipSpace();
    return End::matched;
  }

  End convertNext(const char*& format) {
    Conversion conversion;
    return parseConversion(format, conversion, m_set) ? convert(conversion) : End::badFormat;
  }

  // The plain "%d" of most formats, without what other conversions have to ask. Where it is not of
  // few digits, all at hand, nothing but white space is consumed. In some locales a sign is that.
  bool convertShortInt() {
    m_input.skipSpace();
    q_integertext::Integer integer;
    if (m_input.available() == 0 || !consumeShortDecimal(m_input, integer)) {
      return false;
    }
    store(nextArgument().destination, static_cast<int>(q_integertext::toSigned(integer)));
    countConversion(true);
    return true;
  }

  void countConversion(bool assigns) {
    m_converted = true;
    m_assigned += assigns ? 1 : 0;
  }

  // Most formats begin with what the text begins with.
  void matchAtHand(const char*& format) {
    if (*format != '%') {
      const size_t length = matchingLength(format, m_input.position(), m_input.available());
      format += length;
      m_input.consume(length);
    }
  }

  End matchLiteral(int expected) {
    const int c = m_input.peek();
    if (c == endOfInput) {
      return End::inputFailure;
    }
    if (c != expected) {
      return End::matchingFailure;
    }
    m_input.consume();
    return End::matched;
  }

  End convert(const Conversion& conversion) {
    if (conversion.kind == Kind::consumed) {
      return storeConsumed(conversion);
    }
    if (conversion.kind != Kind::character && conversion.kind != Kind::set) {
      m_input.skipSpace();
    }
    if (conversion.kind == Kind::percent) {
      return matchLiteral('%');
    }
    if (m_input.peek() == endOfInput) {
      return End::inputFailure;
    }
    const End end = convertValue(conversion);
    if (end == End::matched) {
      countConversion(conversion.assigns);
    }
    return end;
  }

  End convertValue(const Conversion& conversion) {
    switch (conversion.kind) {
      case Kind::character:
        return convertCharacter(conversion);
      case Kind::word:
        return convertRun(conversion, wordLength);
      case Kind::set:
        return convertRun(conversion, [this](const unsigned char* text, size_t limit) {
          return runLength(text, limit, [this](unsigned char c) { return m_set.test(c); });
        });
      case Kind::floating:
        return convertFloat(conversion);
      default:
        return convertInteger(conversion);
    }
  }

  End storeConsumed(const Conversion& conversion) {
    if (conversion.assigns) {
      storeInteger(nextArgument().destination, conversion.modifier, m_input.consumed());
    }
    return End::matched;
  }

  End convertCharacter(const Conversion& conversion) {
    if (conversion.assigns) {
      // Deliberate: one character whatever the width. The destination of "%5c" is a char, too.
      store(nextArgument().destination, static_cast<char>(m_input.peek()));
      m_input.consume();
      return End::matched;
    }
    Field field(m_input, std::max(conversion.width, 1));
    while (field.peek() != endOfInput) {
      field.consume();
    }
    return End::matched;
  }

  template <class Measure>
  End convertRun(const Conversion& conversion, Measure measure) {
    const Argument argument = conversion.assigns ? nextArgument() : Argument();
    char* text = static_cast<char*>(argument.destination);
    size_t room = argument.size > 0 ? static_cast<size_t>(argument.size) - 1 : 0;
    Field field(m_input, conversion.width);
    field.consumeRun(measure, [&text, &room](const char* run, size_t length) {
      const size_t stored = std::min(length, room);
      if (stored > 0) {  // else there may be no destination
        std::memcpy(text, run, stored);
        text += stored;
        room -= stored;
      }
    });
    if (field.consumed() == 0) {
      return End::matchingFailure;
    }
    if (argument.size > 0) {
      *text = '\0';
    }
    return End::matched;
  }

  End convertFloat(const Conversion& conversion) {
    Field field(m_input, conversion.width);
    FloatNumeral number;
    if (!number.consume(field)) {
      return End::matchingFailure;
    }
    if (conversion.assigns) {
      storeFloat(nextArgument().destination, conversion.modifier, number.toDouble());
    }
    return End::matched;
  }

  // False when there is no integer.
  bool consumeInteger(const Conversion& conversion, q_integertext::Integer& value) {
    if (conversion.base == 10 && conversion.width == 0 && consumeShortDecimal(m_input, value)) {
      return true;
    }
    Field field(m_input, conversion.width);
    IntegerNumeral number(conversion.base);
    const bool isInteger = number.consume(field);
    value = number.value();
    return isInteger;
  }

  End convertInteger(const Conversion& conversion) {
    q_integertext::Integer integer;
    if (!consumeInteger(conversion, integer)) {
      return End::matchingFailure;
    }
    if (!conversion.assigns) {
      return End::matched;
    }
    const intmax_t value = conversion.isUnsigned
                               ? static_cast<intmax_t>(q_integertext::toUnsigned(integer))
                               : q_integertext::toSigned(integer);
    void* const destination = nextArgument().destination;
    if (conversion.kind == Kind::pointer) {
      store(destination, reinterpret_cast<void*>(value));  // NOLINT(performance-no-int-to-ptr)
    } else {
      storeInteger(destination, conversion.modifier, value);
    }
    return End::matched;
  }

  // Deliberate: two arguments for every value, numbers included, unlike the standard's sscanf: so
  // the caller need not know which conversions store a text, and no text overruns its place.
  Argument nextArgument() {
    Argument argument;
    argument.destination = va_arg(*m_args, void*);
    argument.size = va_arg(*m_args, int);
    return argument;
  }

  Input& m_input;
  va_list* m_args;
  ScanSet m_set;
  int m_assigned = 0;
  bool m_converted = false;
};

}  // namespace

int scan(Input& input, const char* format, va_list* args) {
  return Scanner(input, args).scan(format);
}

}  // namespace q_scan
