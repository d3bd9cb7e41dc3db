#include "Q_vfscanf.h"

#include "Q_strtoimax.h"
#include "Q_strtoumax.h"

#include <algorithm>
#include <bitset>
#include <cctype>
#include <climits>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <string>

namespace {

constexpr int endOfInput = -1;

// How a step of the scan ends.
enum class End { matched, inputFailure, matchingFailure, badFormat };

enum class Modifier { none, hh, h, l, ll, longDouble, j, t, z };

struct Conversion {
  bool assigns = true;
  int width = 0;  // 0 for no limit
  Modifier modifier = Modifier::none;
  char letter = '\0';
  std::bitset<256> set;  // of a scan set
};

struct Argument {
  void* destination = nullptr;
  int size = 0;
};

bool isSpace(int c) { return std::isspace(c) != 0; }

bool isOneOf(int c, const char* characters) {
  return c > 0 && std::strchr(characters, c) != nullptr;
}

bool isDigit(int c, int base) {
  if (base <= 10) {
    return c >= '0' && c < '0' + base;
  }
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// ---- the format

int takeWidth(const char*& format) {
  int width = 0;
  for (; isDigit(*format, 10); ++format) {
    const int digit = *format - '0';
    width = width > (INT_MAX - digit) / 10 ? INT_MAX : width * 10 + digit;
  }
  return width;
}

Modifier takeModifier(const char*& format) {
  const char first = *format;
  if (!isOneOf(first, "hlqLjtz")) {
    return Modifier::none;
  }
  ++format;
  const bool twice = *format == first && isOneOf(first, "hl");
  if (twice) {
    ++format;
  }
  switch (first) {
    case 'h':
      return twice ? Modifier::hh : Modifier::h;
    case 'l':
      return twice ? Modifier::ll : Modifier::l;
    case 'q':
      return Modifier::ll;
    case 'L':
      return Modifier::longDouble;
    case 'j':
      return Modifier::j;
    case 't':
      return Modifier::t;
    default:
      return Modifier::z;
  }
}

// Reads the set after "[" up to its "]". The end of one range may begin the next. False when the
// format ends first.
bool takeSet(const char*& format, std::bitset<256>& set) {
  const bool inverted = *format == '^';
  if (inverted) {
    ++format;
  }
  int previous = UCHAR_MAX + 1;  // no range begins before the first member
  do {
    if (*format == '\0') {
      return false;
    }
    const auto next = static_cast<unsigned char>(format[1]);
    if (*format == '-' && previous <= next && next != ']') {
      for (; previous < next; ++previous) {
        set.set(static_cast<size_t>(previous));
      }
      ++format;
    }
    previous = static_cast<unsigned char>(*format);
    set.set(static_cast<size_t>(previous));
    ++format;
  } while (*format != ']');
  ++format;
  if (inverted) {
    set.flip();
  }
  return true;
}

// Reads a conversion after its "%". False when the format ends inside it.
bool takeConversion(const char*& format, Conversion& conversion) {
  if (*format == '*') {
    conversion.assigns = false;
    ++format;
  }
  conversion.width = takeWidth(format);
  conversion.modifier = takeModifier(format);
  conversion.letter = *format;
  if (conversion.letter == '\0') {
    return false;
  }
  ++format;
  return conversion.letter != '[' || takeSet(format, conversion.set);
}

// ---- the input

class Input {
 public:
  explicit Input(ScanSource& source) : source_(source) {}

  // The next character, or endOfInput.
  int peek() {
    if (source_.unread <= 0 && __Qrefill(&source_) != 0) {
      return endOfInput;
    }
    return static_cast<unsigned char>(*source_.position);
  }

  // Consumes the character that peek() gave.
  void take() {
    ++source_.position;
    --source_.unread;
    ++consumed_;
  }

  void skipSpace() {
    while (isSpace(peek())) {
      take();
    }
  }

  intmax_t consumed() const { return consumed_; }

 private:
  ScanSource& source_;
  intmax_t consumed_ = 0;
};

// The input that a conversion may consume: as much as its width allows.
class Field {
 public:
  Field(Input& input, int width) : input_(input), limit_(width == 0 ? INTMAX_MAX : width) {}

  int peek() { return taken_ == limit_ ? endOfInput : input_.peek(); }

  void take() {
    input_.take();
    ++taken_;
  }

  intmax_t taken() const { return taken_; }

 private:
  Input& input_;
  intmax_t limit_;
  intmax_t taken_ = 0;
};

// ---- numbers

// Collects the longest text that can still become a number.
class NumberText {
 public:
  NumberText(Input& input, int width) : field_(input, width) {}

  bool acceptOneOf(const char* characters) {
    const int c = field_.peek();
    if (!isOneOf(c, characters)) {
      return false;
    }
    accept(c);
    return true;
  }

  bool acceptDigits(int base) {
    const size_t before = text_.size();
    for (int c = field_.peek(); isDigit(c, base); c = field_.peek()) {
      accept(c);
    }
    return text_.size() != before;
  }

  // Collects an integer. A base of 0 becomes the one that the prefix tells.
  bool acceptInteger(int& base) {
    acceptOneOf("+-");
    const bool takesPrefix = base == 0 || base == 16;
    const bool zero = takesPrefix && acceptOneOf("0");
    if (zero && acceptOneOf("xX")) {
      base = 16;
    } else if (base == 0) {
      base = zero ? 8 : 10;
    }
    return acceptDigits(base) || zero;
  }

  bool acceptFloat() {
    acceptOneOf("+-");
    bool digits = acceptDigits(10);
    pointAt_ = text_.size();
    hasPoint_ = acceptOneOf(".");
    if (hasPoint_) {
      digits = acceptDigits(10) || digits;
    }
    if (digits && acceptOneOf("eE")) {
      acceptOneOf("+-");
      acceptDigits(10);
    }
    return digits;
  }

  const char* text() const { return text_.c_str(); }

  // strtod expects the point of the current locale.
  double toDouble() {
    if (hasPoint_) {
      text_.replace(pointAt_, 1, std::localeconv()->decimal_point);
    }
    return std::strtod(text_.c_str(), nullptr);
  }

 private:
  void accept(int c) {
    text_ += static_cast<char>(c);
    field_.take();
  }

  Field field_;
  std::string text_;
  size_t pointAt_ = 0;
  bool hasPoint_ = false;
};

int baseOf(char letter) {
  switch (letter) {
    case 'i':
      return 0;
    case 'o':
    case 'O':
      return 8;
    case 'x':
    case 'X':
    case 'p':
      return 16;
    default:
      return 10;
  }
}

// The modifier that counts: letters of a fixed type, unknown ones among them, have their own.
Modifier integerModifier(const Conversion& conversion) {
  if (isOneOf(conversion.letter, "dinouxX")) {
    return conversion.modifier;
  }
  // Not isupper: what is stored must not depend on the locale.
  const bool isLong = conversion.letter >= 'A' && conversion.letter <= 'Z';
  return isLong ? Modifier::l : Modifier::none;
}

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

// ---- the scan

class Scanner {
 public:
  Scanner(ScanSource& source, va_list* args) : input_(source), args_(args) {}

  int scan(const char* format) {
    End end = End::matched;
    while (end == End::matched && *format != '\0') {
      end = step(format);
    }
    if (end == End::badFormat || (end == End::inputFailure && !converted_)) {
      return -1;
    }
    return assigned_;
  }

 private:
  // Does what the next directive of the format says.
  End step(const char*& format) {
    const auto directive = static_cast<unsigned char>(*format);
    ++format;
    if (isSpace(directive)) {
      input_.skipSpace();
      return End::matched;
    }
    if (directive != '%') {
      return matchLiteral(directive);
    }
    Conversion conversion;
    return takeConversion(format, conversion) ? convert(conversion) : End::badFormat;
  }

  End matchLiteral(int expected) {
    const int c = input_.peek();
    if (c == endOfInput) {
      return End::inputFailure;
    }
    if (c != expected) {
      return End::matchingFailure;
    }
    input_.take();
    return End::matched;
  }

  End convert(const Conversion& conversion) {
    if (conversion.letter == 'n') {
      return storeConsumed(conversion);
    }
    if (!isOneOf(conversion.letter, "c[")) {
      input_.skipSpace();
    }
    if (conversion.letter == '%') {
      return matchLiteral('%');
    }
    if (input_.peek() == endOfInput) {
      return End::inputFailure;
    }
    const End end = convertValue(conversion);
    if (end == End::matched) {
      converted_ = true;
      assigned_ += conversion.assigns ? 1 : 0;
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
      storeInteger(nextArgument().destination, integerModifier(conversion), input_.consumed());
    }
    return End::matched;
  }

  End convertCharacter(const Conversion& conversion) {
    if (conversion.assigns) {
      // One character whatever the width, on purpose.
      store(nextArgument().destination, static_cast<char>(input_.peek()));
      input_.take();
      return End::matched;
    }
    Field field(input_, std::max(conversion.width, 1));
    while (field.peek() != endOfInput) {
      field.take();
    }
    return End::matched;
  }

  template <class Belongs>
  End convertRun(const Conversion& conversion, Belongs belongs) {
    const Argument argument = conversion.assigns ? nextArgument() : Argument();
    char* const text = static_cast<char*>(argument.destination);
    Field field(input_, conversion.width);
    for (int c = field.peek(); c != endOfInput && belongs(c); c = field.peek()) {
      if (field.taken() + 1 < argument.size) {
        // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): what is not assigned has size 0
        text[field.taken()] = static_cast<char>(c);
      }
      field.take();
    }
    if (field.taken() == 0) {
      return End::matchingFailure;
    }
    if (argument.size > 0) {
      text[std::min<intmax_t>(field.taken(), argument.size - 1)] = '\0';
    }
    return End::matched;
  }

  End convertFloat(const Conversion& conversion) {
    NumberText number(input_, conversion.width);
    if (!number.acceptFloat()) {
      return End::matchingFailure;
    }
    if (conversion.assigns) {
      storeFloat(nextArgument().destination, conversion.modifier, number.toDouble());
    }
    return End::matched;
  }

  End convertInteger(const Conversion& conversion) {
    NumberText number(input_, conversion.width);
    int base = baseOf(conversion.letter);
    if (!number.acceptInteger(base)) {
      return End::matchingFailure;
    }
    if (!conversion.assigns) {
      return End::matched;
    }
    const bool isUnsigned = isOneOf(conversion.letter, "oOuxXp");
    const intmax_t value = isUnsigned
                               ? static_cast<intmax_t>(__Qstrtoumax(number.text(), nullptr, base))
                               : __Qstrtoimax(number.text(), nullptr, base);
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
    argument.destination = va_arg(*args_, void*);
    argument.size = va_arg(*args_, int);
    return argument;
  }

  Input input_;
  va_list* args_;
  int assigned_ = 0;
  bool converted_ = false;
};

// ---- the sources

bool isInBufferOf(const FILE* stream, const char* position) {
  const std::less_equal<> notAfter;
  return position != nullptr && notAfter(stream->_IO_read_base, position) &&
         notAfter(position, stream->_IO_read_end);
}

int refillFromStream(ScanSource* source) {
  if (isInBufferOf(source->stream, source->position)) {
    updateFILE(source);
  }
  (void)fflush(nullptr);
  char first = '\0';
  const bool read = fscanf(source->stream, "%c", &first) == 1;
  if (read) {
    (void)ungetc(static_cast<unsigned char>(first), source->stream);
  }
  updateVFILE(source);  // at the end, too: the stream has moved its buffer
  return read ? 0 : -1;
}

int refillFromCallback(ScanSource* source) {
  int count = 0;
  if (source->read != nullptr && source->base != nullptr) {
    count = source->read(source, const_cast<char*>(source->base), source->size);
  }
  if (count <= 0) {
    source->flags |= Q_SCAN_EOF;
    return -1;
  }
  source->position = source->base;
  source->unread = count;
  return 0;
}

}  // namespace

int Q_vfscanf(ScanSource* source, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int result = Scanner(*source, &copy).scan(format);
  va_end(copy);
  return result;
}

int __Qrefill(ScanSource* source) {
  if ((source->flags & Q_SCAN_EOF) != 0) {
    return -1;
  }
  return source->stream != nullptr ? refillFromStream(source) : refillFromCallback(source);
}

int eofread(void* /*cookie*/, char* /*buffer*/, int /*size*/) { return 0; }

void updateFILE(ScanSource* source) {
  source->stream->_IO_read_ptr = const_cast<char*>(source->position);
}

void updateVFILE(ScanSource* source) {
  const ptrdiff_t unread = source->stream->_IO_read_end - source->stream->_IO_read_ptr;
  source->position = source->stream->_IO_read_ptr;
  source->unread = static_cast<int>(std::min<ptrdiff_t>(unread, INT_MAX));
}
