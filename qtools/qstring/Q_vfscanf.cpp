#include "Q_vfscanf.h"

#include "Q_scanformat.h"
#include "Q_scaninput.h"
#include "Q_scannumber.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

using namespace q_scan;

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

class Scanner {
 public:
  Scanner(ScanSource& source, va_list* args) : m_input(source), m_args(args) {}

  int scan(const char* format) {
    End end = End::matched;
    while (end == End::matched && *format != '\0') {
      end = step(format);
    }
    if (end == End::badFormat || (end == End::inputFailure && !m_converted)) {
      return -1;
    }
    return m_assigned;
  }

 private:
  // Does what the next directive of the format says.
  End step(const char*& format) {
    const auto directive = static_cast<unsigned char>(*format);
    ++format;
    if (isSpace(directive)) {
      m_input.skipSpace();
      return End::matched;
    }
    if (directive != '%') {
      return matchLiteral(directive);
    }
    Conversion conversion;
    return parseConversion(format, conversion) ? convert(conversion) : End::badFormat;
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
    if (conversion.letter == 'n') {
      return storeConsumed(conversion);
    }
    if (!isOneOf(conversion.letter, "c[")) {
      m_input.skipSpace();
    }
    if (conversion.letter == '%') {
      return matchLiteral('%');
    }
    if (m_input.peek() == endOfInput) {
      return End::inputFailure;
    }
    const End end = convertValue(conversion);
    if (end == End::matched) {
      m_converted = true;
      m_assigned += conversion.assigns ? 1 : 0;
    }
    return end;
  }

  End convertValue(const Conversion& conversion) {
    switch (conversion.letter) {
      case 'c':
        return convertCharacter(conversion);
      case 's':
        return convertRun(conversion, [](int c) { return !isSpace(c); });
      case '[':
        return convertRun(conversion, [&conversion](int c) {
          return conversion.set.test(static_cast<size_t>(c));
        });
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

  End storeConsumed(const Conversion& conversion) {
    if (conversion.assigns) {
      storeInteger(nextArgument().destination, integerModifier(conversion), m_input.consumed());
    }
    return End::matched;
  }

  End convertCharacter(const Conversion& conversion) {
    if (conversion.assigns) {
      // One character whatever the width, on purpose.
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

  template <class Belongs>
  End convertRun(const Conversion& conversion, Belongs belongs) {
    const Argument argument = conversion.assigns ? nextArgument() : Argument();
    char* const text = static_cast<char*>(argument.destination);
    Field field(m_input, conversion.width);
    for (int c = field.peek(); c != endOfInput && belongs(c); c = field.peek()) {
      if (field.consumed() + 1 < argument.size) {
        // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): what is not assigned has size 0
        text[field.consumed()] = static_cast<char>(c);
      }
      field.consume();
    }
    if (field.consumed() == 0) {
      return End::matchingFailure;
    }
    if (argument.size > 0) {
      text[std::min<intmax_t>(field.consumed(), argument.size - 1)] = '\0';
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

  End convertInteger(const Conversion& conversion) {
    Field field(m_input, conversion.width);
    IntegerNumeral number(integerBase(conversion.letter));
    if (!number.consume(field)) {
      return End::matchingFailure;
    }
    if (!conversion.assigns) {
      return End::matched;
    }
    const bool isUnsigned = isOneOf(conversion.letter, "oOuxXp");
    const intmax_t value =
        isUnsigned ? static_cast<intmax_t>(number.toUnsigned()) : number.toSigned();
    void* const destination = nextArgument().destination;
    if (conversion.letter == 'p') {
      store(destination, reinterpret_cast<void*>(value));  // NOLINT(performance-no-int-to-ptr)
    } else {
      storeInteger(destination, integerModifier(conversion), value);
    }
    return End::matched;
  }

  Argument nextArgument() {
    Argument argument;
    argument.destination = va_arg(*m_args, void*);
    argument.size = va_arg(*m_args, int);
    return argument;
  }

  Input m_input;
  va_list* m_args;
  int m_assigned = 0;
  bool m_converted = false;
};

}  // namespace

int Q_vfscanf(ScanSource* source, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int result = Scanner(*source, &copy).scan(format);
  va_end(copy);
  return result;
}
