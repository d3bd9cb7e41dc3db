// The bounded routines give what their slow forms give, on memory that faults at the first element
// they may not touch; the formatters store what fits of what the platform makes of a text.
#include "Q_strings.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "plain_bounded_text.h"
#include "plain_text.h"
#include "scratch.h"
#include "wide_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

namespace {

using kelp_fuzz::EdgeBuffer;
using kelp_fuzz::expect;
using kelp_fuzz::Input;

// ---- copying, appending and verifying

struct Narrow {
  using Char = char;
  static constexpr auto copy = Q_strlcpy;
  static constexpr auto append = Q_strlcat;
  static constexpr auto copyAndFill = Q_strlncpy;
  static constexpr auto appendAtMost = Q_strlncat;
  static constexpr auto verify = Q_strverify;
};

struct Wide {
  using Char = wchar_t;
  static constexpr auto copy = Q_wcslcpy;
  static constexpr auto append = Q_wcslcat;
  static constexpr auto copyAndFill = Q_wcslncpy;
  static constexpr auto appendAtMost = Q_wcslncat;
  static constexpr auto verify = Q_wstrverify;
};

template <class Routines>
class Bounded {
 public:
  using Text = std::basic_string<typename Routines::Char>;

  // A destination with all its elements, of which none need be zero, and a source.
  Bounded(Text destination, const Text& source, size_t n)
      : m_held(std::move(destination)), m_source(kelp_test::upToZero(source)), m_n(n) {}

  void check() const {
    const size_t size = m_held.size();
    const size_t length = std::min(m_held.find(typename Routines::Char()), size);
    const size_t room = length < size ? size - length - 1 : 0;
    const size_t most = size == 0 ? 0 : size - 1;
    checkCall(
        most, [size](auto* dst, auto* src) { return Routines::copy(dst, src, size); },
        [size](Text& dst, const Text& src) { return kelp_test::slowCopy(dst, 0, src, size); });
    checkCall(
        room, [size](auto* dst, auto* src) { return Routines::append(dst, src, size); },
        [size](Text& dst, const Text& src) { return kelp_test::slowAppend(dst, src, size); });
    const size_t n = m_n;
    checkCall(
        std::min(n, most),
        [size, n](auto* dst, auto* src) { return Routines::copyAndFill(dst, src, n, size); },
        [size, n](Text& dst, const Text& src) {
          return kelp_test::slowCopyAndFill(dst, src, n, size);
        });
    checkCall(
        std::min(n, room),
        [size, n](auto* dst, auto* src) { return Routines::appendAtMost(dst, src, n, size); },
        [size, n](Text& dst, const Text& src) {
          return kelp_test::slowAppendAtMost(dst, src, n, size);
        });
    checkVerified(length);
  }

 private:
  // Of the source only so many elements may be read.
  template <class Call, class Slow>
  void checkCall(size_t readableSource, Call call, Slow slow) const {
    static EdgeBuffer<typename Routines::Char> destination;
    static EdgeBuffer<typename Routines::Char> source;
    Text expected = m_held;
    const size_t expectedResult = slow(expected, m_source);
    const auto* const from = source.holding(kelp_test::readable(m_source, readableSource));
    const size_t result = call(destination.holding(m_held), from);
    expect(result == expectedResult, "the result of the slow form");
    expect(destination.content() == expected, "the destination of the slow form");
  }

  void checkVerified(size_t length) const {
    static EdgeBuffer<typename Routines::Char> buffer;
    const bool terminated = length < m_held.size();
    size_t found = 1;
    expect(Routines::verify(buffer.holding(m_held), m_held.size(), &found) == (terminated ? 0 : -1),
           "a terminator where there is one");
    expect(found == (terminated ? length : 0), "its place");
  }

  Text m_held;
  Text m_source;
  size_t m_n;
};

// ---- formatting

constexpr size_t longestFormatted = 4096;

struct Values {
  size_t form;
  int width;
  int precision;
  int number;
  double floating;
  std::string narrow;
  std::wstring wide;
};

// Calls a printf-like function with one of several formats, and what belongs to it.
template <class Char, class Print>
int printed(const Values& v, const Char* const (&formats)[6], Print print) {
  const Char* const format = formats[v.form];
  switch (v.form) {
    case 0:
      return print(format, v.width, v.number, v.width, static_cast<unsigned int>(v.number));
    case 1:
      return print(format, v.width, v.precision, v.narrow.c_str());
    case 2:
      return print(format, v.narrow.c_str(), v.wide.c_str());
    case 3:
      return print(format, v.number & 0xff, static_cast<wint_t>(v.number), v.narrow.c_str());
    case 4:
      return print(format, v.width, v.precision, v.floating);
    default:
      return print(format, v.width, v.precision, v.wide.c_str());
  }
}

constexpr const char* narrowFormats[] = {"%*d|%-*x|", "%*.*s!",   "%s, %ls",
                                         "%c%lc%s",   "%*.*g %%", "%-*.*ls"};
constexpr const wchar_t* wideFormats[] = {L"%*d|%-*x|", L"%*.*s!",   L"%s, %ls",
                                          L"%c%lc%s",   L"%*.*g %%", L"%-*.*ls"};

void checkNarrowFormat(const Values& values, size_t size) {
  static EdgeBuffer<char> buffer;
  char* const dst = buffer.holding(std::string(size, '#'));
  char whole[longestFormatted];
  const int length = printed(values, narrowFormats, [&whole](auto... arguments) {
    return std::snprintf(whole, sizeof whole, arguments...);
  });
  const int result = printed(values, narrowFormats, [dst, size](auto... arguments) {
    return Q_snprintf(dst, size, arguments...);
  });
  if (size == 0) {
    return expect(result == -1, "nothing for a size of 0");
  }
  const std::string expected =
      length < 0 ? std::string() : std::string(whole, static_cast<size_t>(length));
  const size_t stored = std::min(expected.size(), size - 1);
  expect(result == static_cast<int>(stored), "as many characters as fit");
  expect(buffer.content().substr(0, stored) == expected.substr(0, stored), "the text, cut to fit");
  expect(dst[stored] == '\0', "a terminator behind it");
}

void checkWideFormat(const Values& values, size_t size) {
  static EdgeBuffer<wchar_t> buffer;
  wchar_t* const dst = buffer.holding(std::wstring(size, L'#'));
  wchar_t whole[longestFormatted] = {};
  const int length = printed(values, wideFormats, [&whole](auto... arguments) {
    return std::swprintf(whole, longestFormatted, arguments...);
  });
  const int result = printed(values, wideFormats, [dst, size](auto... arguments) {
    return Q_snwprintf(dst, size, arguments...);
  });
  const bool fits = length >= 0 && static_cast<size_t>(length) < size;
  expect(result == (fits ? length : -1), "the length, where all fits");
  if (size > 0) {
    const std::wstring expected = whole;
    expect(dst == expected.substr(0, size - 1), "the text, cut to fit");
  }
}

void checkFormats(Input& input) {
  std::optional<kelp_test::ScopedLocale> locale;
  if (input.choice()) {
    locale.emplace("C.utf8");
  }
  Values values;
  values.form = input.upTo(5);
  values.width = static_cast<int>(input.upTo(255)) - 128;
  values.precision = static_cast<int>(input.upTo(255)) - 100;
  values.number = input.number<int>();
  values.floating = input.number<double>();
  const size_t size = input.upTo(300);
  values.narrow = kelp_test::upToZero(input.bytes(input.upTo(255)));
  values.wide = kelp_test::upToZero(kelp_fuzz::wideText(input).substr(0, 255));
  checkNarrowFormat(values, size);
  checkWideFormat(values, size);
}

// ---- resizing

void checkBlocks(Input& input) {
  void* block = nullptr;
  std::string content;
  while (!input.empty()) {
    const size_t size = 1 + input.upTo(1000);
    const void* const resized = Q_dumb_realloc(&block, size);
    expect(resized == block && block != nullptr, "the new block, twice");
    content.resize(std::min(content.size(), size));
    expect(content.empty() || std::memcmp(block, content.data(), content.size()) == 0,
           "what the old block held");
    content.assign(size, static_cast<char>(size));
    std::memcpy(block, content.data(), size);
  }
  std::free(block);
}

void checkNarrowText(Input& input) {
  const auto n = input.choice() ? input.number<size_t>() : input.upTo(40);
  const std::string destination = input.bytes(input.upTo(255));
  Bounded<Narrow>(destination, input.rest(), n).check();
}

void checkWideText(Input& input) {
  const auto n = input.choice() ? input.number<size_t>() : input.upTo(40);
  const size_t length = input.upTo(255);
  const std::wstring text = kelp_fuzz::wideText(input);
  const std::wstring destination = text.substr(0, length);
  Bounded<Wide>(destination, text.substr(destination.size()), n).check();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  Input input(data, size);
  void (*const checks[])(Input&) = {checkNarrowText, checkWideText, checkFormats, checkBlocks};
  checks[input.upTo(3)](input);
  return 0;
}
