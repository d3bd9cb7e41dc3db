#include "Q_strings.h"

#include "guarded_page.h"
#include "heap.h"
#include "next_symbol.h"
#include "plain_bounded_text.h"
#include "scratch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <type_traits>

// What cannot be allocated gives null under the sanitizer, too.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

// --- in front of the platform's vswprintf

namespace {

enum class Platform { asItIs, leavesNoTerminator, failsWithoutWriting };
Platform wideFormatter = Platform::asItIs;
int wideFormatterCalls = 0;
size_t wideFormatterLimit = 0;

}  // namespace

extern "C" int vswprintf(wchar_t* dst, size_t size, const wchar_t* format, va_list args) noexcept {
  static const auto platforms = kelp_test::nextSymbol<decltype(vswprintf)>("vswprintf");
  ++wideFormatterCalls;
  wideFormatterLimit = size;
  switch (wideFormatter) {
    case Platform::leavesNoTerminator:
      std::wmemset(dst, L'z', size);
      return -1;
    case Platform::failsWithoutWriting:
      return -1;
    default:
      return platforms(dst, size, format, args);
  }
}

namespace {

using kelp_test::GuardedPage;
using kelp_test::HeapWatch;
using kelp_test::readable;
using kelp_test::slowAppend;
using kelp_test::slowAppendAtMost;
using kelp_test::slowCopy;
using kelp_test::slowCopyAndFill;

// --- narrow and wide text alike

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
class BoundedText : public testing::Test {
 public:
  using Element = typename Routines::Char;
  using String = std::basic_string<Element>;

  static String text(const char* narrow) { return String(narrow, narrow + std::strlen(narrow)); }

  // A destination of `size` elements that holds `length` characters; filled up without a terminator
  // when they do not fit.
  static String destination(size_t length, size_t size) {
    String content(size, Element('#'));
    for (size_t i = 0; i < std::min(length, size); ++i) {
      content[i] = static_cast<Element>('A' + i);
    }
    if (length < size) {
      content[length] = Element();
    }
    return content;
  }

  static String sourceText(size_t length) {
    String content;
    for (size_t i = 0; i < length; ++i) {
      content += static_cast<Element>('a' + i);
    }
    return content;
  }
};

using BothWidths = testing::Types<Narrow, Wide>;
TYPED_TEST_SUITE(BoundedText, BothWidths, );

// Every call runs on memory that faults at the first element beyond what it may touch.
template <class Char>
struct Guarded {
  explicit Guarded(const std::basic_string<Char>& content) : page(content) {}
  std::basic_string<Char> content() { return std::basic_string<Char>(page.data(), page.size()); }
  GuardedPage<Char> page;
};

TYPED_TEST(BoundedText, CopyEqualsTheSlowForm) {
  using Char = typename TypeParam::Char;
  for (size_t size = 0; size <= 7; ++size) {
    for (size_t length = 0; length <= 8; ++length) {
      SCOPED_TRACE("size " + std::to_string(size) + " source " + std::to_string(length));
      const auto source = this->sourceText(length);
      auto expected = this->destination(99, size);
      Guarded<Char> dst(expected);
      Guarded<Char> src(readable(source, size == 0 ? 0 : size - 1));
      const size_t result = slowCopy(expected, 0, source, size);
      EXPECT_EQ(TypeParam::copy(dst.page.data(), src.page.data(), size), result);
      EXPECT_EQ(dst.content(), expected);
    }
  }
}

TYPED_TEST(BoundedText, AppendEqualsTheSlowForm) {
  using Char = typename TypeParam::Char;
  for (size_t size = 0; size <= 7; ++size) {
    for (size_t held = 0; held <= 8; ++held) {
      for (size_t length = 0; length <= 6; ++length) {
        SCOPED_TRACE("size " + std::to_string(size) + " held " + std::to_string(held) + " source " +
                     std::to_string(length));
        const auto source = this->sourceText(length);
        auto expected = this->destination(held, size);
        const size_t room = held < size ? size - held - 1 : 0;
        Guarded<Char> dst(expected);
        Guarded<Char> src(readable(source, room));
        const size_t result = slowAppend(expected, source, size);
        EXPECT_EQ(TypeParam::append(dst.page.data(), src.page.data(), size), result);
        EXPECT_EQ(dst.content(), expected);
      }
    }
  }
}

TYPED_TEST(BoundedText, CopyAndFillEqualsTheSlowForm) {
  using Char = typename TypeParam::Char;
  for (size_t size = 0; size <= 7; ++size) {
    for (size_t n = 0; n <= 8; ++n) {
      for (size_t length = 0; length <= 6; ++length) {
        SCOPED_TRACE("size " + std::to_string(size) + " n " + std::to_string(n) + " source " +
                     std::to_string(length));
        const auto source = this->sourceText(length);
        auto expected = this->destination(99, size);
        Guarded<Char> dst(expected);
        Guarded<Char> src(readable(source, size == 0 ? 0 : std::min(n, size - 1)));
        const size_t result = slowCopyAndFill(expected, source, n, size);
        EXPECT_EQ(TypeParam::copyAndFill(dst.page.data(), src.page.data(), n, size), result);
        EXPECT_EQ(dst.content(), expected);
      }
    }
  }
}

TYPED_TEST(BoundedText, AppendAtMostEqualsTheSlowForm) {
  using Char = typename TypeParam::Char;
  for (size_t size = 0; size <= 7; ++size) {
    for (size_t n = 0; n <= 8; ++n) {
      for (size_t held = 0; held <= 7; ++held) {
        for (size_t length = 0; length <= 6; length += 2) {
          SCOPED_TRACE("size " + std::to_string(size) + " n " + std::to_string(n) + " held " +
                       std::to_string(held) + " source " + std::to_string(length));
          const auto source = this->sourceText(length);
          auto expected = this->destination(held, size);
          const size_t room = held < size ? size - held - 1 : 0;
          Guarded<Char> dst(expected);
          Guarded<Char> src(readable(source, std::min(n, room)));
          const size_t result = slowAppendAtMost(expected, source, n, size);
          EXPECT_EQ(TypeParam::appendAtMost(dst.page.data(), src.page.data(), n, size), result);
          EXPECT_EQ(dst.content(), expected);
        }
      }
    }
  }
}

TYPED_TEST(BoundedText, CopyStoresOnlyTheTerminatorWhenSizeIsOne) {
  auto dst = this->text("####");
  EXPECT_EQ(TypeParam::copy(&dst[0], this->text("abc").c_str(), 1), 0U);
  EXPECT_EQ(dst, this->text("") + typename TypeParam::Char() + this->text("###"));
}

TYPED_TEST(BoundedText, CopyCutsTenCharactersToFourWhenSizeIsFive) {
  auto dst = this->text("########");
  EXPECT_EQ(TypeParam::copy(&dst[0], this->text("0123456789").c_str(), 5), 4U);
  EXPECT_EQ(dst, this->text("0123") + typename TypeParam::Char() + this->text("###"));
}

TYPED_TEST(BoundedText, AppendLeavesAFullDestinationAlone) {
  auto dst = this->text("four");
  EXPECT_EQ(TypeParam::append(&dst[0], this->text("x").c_str(), 5), 0U);
  EXPECT_EQ(dst, this->text("four"));
}

TYPED_TEST(BoundedText, AppendToAnEmptyTextOfSizeOneWritesNothing) {
  GuardedPage<typename TypeParam::Char> dst(1);
  EXPECT_EQ(TypeParam::append(dst.data(), this->text("x").c_str(), 1), 0U);
  EXPECT_EQ(dst.data()[0], typename TypeParam::Char());
}

TYPED_TEST(BoundedText, AppendReturnsWhatItAppendedNotTheWholeLength) {
  auto dst = this->destination(3, 10);
  EXPECT_EQ(TypeParam::append(&dst[0], this->text("xy").c_str(), 10), 2U);
  EXPECT_EQ(dst.c_str(), this->text("ABCxy"));
}

TYPED_TEST(BoundedText, CopyAndFillReturnsTheBoundNotTheSourcesLength) {
  const typename TypeParam::Char zero{};
  auto dst = this->text("##########");
  EXPECT_EQ(TypeParam::copyAndFill(&dst[0], this->text("ab").c_str(), 5, 10), 5U);
  auto expected = this->text("ab");
  expected.append(4, zero);
  EXPECT_EQ(dst, expected + this->text("####"));
}

TYPED_TEST(BoundedText, CountsNearTheEndOfSizeDoNotWrapAround) {
  for (const size_t huge : {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 2, SIZE_MAX - 3, SIZE_MAX / 2}) {
    SCOPED_TRACE(huge);
    auto dst = this->destination(2, 8);
    EXPECT_EQ(TypeParam::appendAtMost(&dst[0], this->text("xy").c_str(), huge, 8), 2U);
    EXPECT_EQ(dst.c_str(), this->text("ABxy"));
    EXPECT_EQ(TypeParam::appendAtMost(&dst[0], this->text("uv").c_str(), 1, huge), 1U);
    EXPECT_EQ(dst.c_str(), this->text("ABxyu"));
    EXPECT_EQ(TypeParam::append(&dst[0], this->text("z").c_str(), huge), 1U);
    EXPECT_EQ(dst.c_str(), this->text("ABxyuz"));
    EXPECT_EQ(TypeParam::appendAtMost(&dst[0], this->text("w").c_str(), huge, huge), 1U);
    EXPECT_EQ(dst.c_str(), this->text("ABxyuzw"));
    EXPECT_EQ(TypeParam::copy(&dst[0], this->text("abc").c_str(), huge), 3U);
    EXPECT_EQ(dst.c_str(), this->text("abc"));
    EXPECT_EQ(TypeParam::copyAndFill(&dst[0], this->text("x").c_str(), huge, 8), 7U);
    EXPECT_EQ(dst.c_str(), this->text("x"));
    EXPECT_EQ(TypeParam::copyAndFill(&dst[0], this->text("uvw").c_str(), 2, huge), 2U);
    EXPECT_EQ(dst.c_str(), this->text("uv"));
  }
}

TYPED_TEST(BoundedText, NullArgumentsGiveNothing) {
  using Char = typename TypeParam::Char;
  Char* const none = nullptr;
  auto dst = this->destination(2, 4);
  const auto before = dst;
  const auto src = this->text("x");
  EXPECT_EQ(TypeParam::copy(none, src.c_str(), 4), 0U);
  EXPECT_EQ(TypeParam::copy(&dst[0], none, 4), 0U);
  EXPECT_EQ(TypeParam::copy(none, none, 4), 0U);
  EXPECT_EQ(TypeParam::append(none, src.c_str(), 4), 0U);
  EXPECT_EQ(TypeParam::append(&dst[0], none, 4), 0U);
  EXPECT_EQ(TypeParam::copyAndFill(none, src.c_str(), 2, 4), 0U);
  EXPECT_EQ(TypeParam::copyAndFill(&dst[0], none, 2, 4), 0U);
  EXPECT_EQ(TypeParam::appendAtMost(&dst[0], none, 2, 4), 0U);
  EXPECT_EQ(dst, before);
}

TYPED_TEST(BoundedText, VerifyFindsTheFirstTerminatorWithinItsBytes) {
  using Char = typename TypeParam::Char;
  for (size_t n = 0; n <= 6; ++n) {
    for (size_t terminator = 0; terminator <= 7; ++terminator) {
      SCOPED_TRACE("n " + std::to_string(n) + " terminator at " + std::to_string(terminator));
      std::basic_string<Char> content(n, Char('x'));
      for (size_t i = terminator; i < n; i += 2) {
        content[i] = Char();
      }
      Guarded<Char> buffer(content);
      size_t length = 99;
      const bool terminated = terminator < n;
      EXPECT_EQ(TypeParam::verify(buffer.page.data(), n, &length), terminated ? 0 : -1);
      EXPECT_EQ(length, terminated ? terminator : 0U);
      EXPECT_EQ(TypeParam::verify(buffer.page.data(), n, nullptr), terminated ? 0 : -1);
    }
  }
}

TYPED_TEST(BoundedText, VerifyTakesAnyCountAndNoBuffer) {
  size_t length = 99;
  EXPECT_EQ(TypeParam::verify(this->text("abc").c_str(), SIZE_MAX, &length), 0);
  EXPECT_EQ(length, 3U);
  EXPECT_EQ(TypeParam::verify(nullptr, 5, &length), -1);
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(TypeParam::verify(nullptr, 5, nullptr), -1);
}

// A wide character whose low byte is zero is not a terminator.
TEST(Wstrverify, ComparesWholeCharacters) {
  const wchar_t text[] = {0x100, 0x10000, 0x1000000, 0};
  size_t length = 99;
  EXPECT_EQ(Q_wstrverify(text, 4, &length), 0);
  EXPECT_EQ(length, 3U);
  EXPECT_EQ(Q_wstrverify(text, 3, &length), -1);
}

// --- formatting

int vsnprintfOf(char* dst, size_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = Q_vsnprintf(dst, size, format, args);
  va_end(args);
  return result;
}

int vsnwprintfOf(wchar_t* dst, size_t size, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = Q_vsnwprintf(dst, size, format, args);
  va_end(args);
  return result;
}

class NarrowFormatting : public testing::TestWithParam<int (*)(char*, size_t, const char*, ...)> {};
const auto nameOfForm = [](const auto& info) {
  return std::string(info.index == 0 ? "Variadic" : "WithArgumentList");
};

INSTANTIATE_TEST_SUITE_P(BothForms, NarrowFormatting, testing::Values(Q_snprintf, vsnprintfOf),
                         nameOfForm);

TEST_P(NarrowFormatting, StoresWhatFitsAndReturnsWhatItStored) {
  const std::string whole = "value=1234x";  // 11 characters
  for (size_t size = 1; size <= 13; ++size) {
    SCOPED_TRACE(size);
    GuardedPage<char> dst(std::string(size, '#'));
    const size_t stored = std::min(whole.size(), size - 1);
    EXPECT_EQ(GetParam()(dst.data(), size, "%s=%d%c", "value", 1234, 'x'),
              static_cast<int>(stored));
    EXPECT_EQ(std::string(dst.data(), stored + 1), whole.substr(0, stored) + '\0');
    EXPECT_EQ(std::string(dst.data() + stored + 1, size - stored - 1),
              std::string(size - stored - 1, '#'));
  }
}

TEST_P(NarrowFormatting, RefusesAnEmptyOrAbsentDestination) {
  char untouched = '#';
  EXPECT_EQ(GetParam()(&untouched, 0, "x"), -1);
  EXPECT_EQ(untouched, '#');
  EXPECT_EQ(GetParam()(nullptr, 0, "x"), -1);
  EXPECT_EQ(GetParam()(nullptr, 5, "x"), -1);
}

TEST_P(NarrowFormatting, StoresAnEmptyTextWhenACharacterCannotBeEncoded) {
  const kelp_test::ScopedLocale locale("C");
  char dst[] = "########";
  EXPECT_EQ(GetParam()(dst, sizeof dst, "ab%ls", L"\u20ac"), 0);
  EXPECT_STREQ(dst, "");
}

TEST_P(NarrowFormatting, StoresAnEmptyTextWhenTheWholeOneIsLongerThanAnInt) {
  for (const char* format :
       {"%2147483648d", "%99999999999999999999d", "ab%2147483648d", "%.2147483648d"}) {
    SCOPED_TRACE(format);
    char dst[] = "########";
    EXPECT_EQ(GetParam()(dst, sizeof dst, format, 1), 0);
    EXPECT_STREQ(dst, "");
  }
}

TEST_P(NarrowFormatting, FormatsAnEmptyText) {
  char dst[] = "##";
  EXPECT_EQ(GetParam()(dst, sizeof dst, "%s", ""), 0);
  EXPECT_STREQ(dst, "");
}

TEST_P(NarrowFormatting, PassesCountsInAWritableFormatOn) {
  char format[] = "abc%nde";
  char dst[16];
  int count = 0;
  EXPECT_EQ(GetParam()(dst, sizeof dst, format, &count), 5);
  EXPECT_STREQ(dst, "abcde");
  EXPECT_EQ(count, 3);
}

class WideFormatting
    : public testing::TestWithParam<int (*)(wchar_t*, size_t, const wchar_t*, ...)> {
 protected:
  ~WideFormatting() override { wideFormatter = Platform::asItIs; }
};
INSTANTIATE_TEST_SUITE_P(BothForms, WideFormatting, testing::Values(Q_snwprintf, vsnwprintfOf),
                         nameOfForm);

TEST_P(WideFormatting, StoresWhatFitsAndTellsThatATextWasCut) {
  const std::wstring whole = L"value=1234x";  // 11 characters
  for (size_t size = 1; size <= 13; ++size) {
    SCOPED_TRACE(size);
    GuardedPage<wchar_t> dst(std::wstring(size, L'#'));
    const size_t stored = std::min(whole.size(), size - 1);
    EXPECT_EQ(GetParam()(dst.data(), size, L"%ls=%d%lc", L"value", 1234, L'x'),
              size < 12 ? -1 : 11);
    EXPECT_EQ(std::wstring(dst.data(), stored + 1), whole.substr(0, stored) + L'\0');
    EXPECT_EQ(std::wstring(dst.data() + stored + 1, size - stored - 1),
              std::wstring(size - stored - 1, L'#'));
  }
}

TEST_P(WideFormatting, FormatsWithThePlatformIntoTheWholeSize) {
  wchar_t dst[8];
  wideFormatterCalls = 0;
  EXPECT_EQ(GetParam()(dst, 8, L"%d", 7), 1);
  EXPECT_EQ(wideFormatterCalls, 1);
  EXPECT_EQ(wideFormatterLimit, 8U);
}

TEST_P(WideFormatting, RefusesASizeOfZero) {
  wchar_t untouched = L'#';
  wideFormatterCalls = 0;
  EXPECT_EQ(GetParam()(&untouched, 0, L"x"), -1);
  EXPECT_EQ(untouched, L'#');
  EXPECT_EQ(wideFormatterCalls, 0);
}

TEST_P(WideFormatting, GivesThePlatformsResultWithoutADestination) {
  EXPECT_EQ(GetParam()(nullptr, 6, L"%ls", L"hello"), 5);
  EXPECT_EQ(GetParam()(nullptr, 5, L"%ls", L"hello"), -1);
}

TEST_P(WideFormatting, WritesNothingWhenTheTemporaryCannotBeAllocated) {
  // The first two byte counts are too large for any allocator, the others do not fit a size_t.
  const size_t most = SIZE_MAX / sizeof(wchar_t);
  for (const size_t size : {most, most / 2 + 1, most + 1, most + 2, SIZE_MAX}) {
    SCOPED_TRACE(size);
    wchar_t dst[] = L"###";
    wideFormatterCalls = 0;
    EXPECT_EQ(GetParam()(dst, size, L"x"), -1);
    EXPECT_STREQ(dst, L"###");
    EXPECT_EQ(wideFormatterCalls, 0);
  }
}

TEST_P(WideFormatting, KeepsWhatStandsBeforeTheConversionThatFails) {
  for (const char* locale : {"C", "C.UTF-8"}) {
    SCOPED_TRACE(locale);
    const kelp_test::ScopedLocale scope(locale);
    wchar_t dst[] = L"#######";
    EXPECT_EQ(GetParam()(dst, 8, L"a%db%sz", 7, "c\xff"), -1);
    EXPECT_STREQ(dst, L"a7b");
    wchar_t cut[] = L"#######";
    EXPECT_EQ(GetParam()(cut, 3, L"a%db%sz", 7, "c\xff"), -1);
    EXPECT_STREQ(cut, L"a7");
  }
}

TEST_P(WideFormatting, TerminatesWhatThePlatformLeavesUnterminated) {
  wideFormatter = Platform::leavesNoTerminator;
  GuardedPage<wchar_t> dst(std::wstring(5, L'#'));
  EXPECT_EQ(GetParam()(dst.data(), 5, L"x"), -1);
  EXPECT_EQ(std::wstring(dst.data(), 5), std::wstring(L"zzzz") + L'\0');
}

TEST_P(WideFormatting, StoresAnEmptyTextWhenThePlatformWritesNothing) {
  wideFormatter = Platform::failsWithoutWriting;
  wchar_t dst[] = L"####";
  EXPECT_EQ(GetParam()(dst, 5, L"x"), -1);
  EXPECT_STREQ(dst, L"");
}

TEST_P(WideFormatting, FreesTheTemporaryOfTheWholeSize) {
  wchar_t dst[200];
  GetParam()(dst, 200, L"%d", 7);  // the platform allocates for itself at first need
  HeapWatch watch;
  GetParam()(dst, 200, L"%d", 7);
  watch.end();
  ASSERT_GE(watch.releases(), 1);
  EXPECT_EQ(watch.request(0).size, 200 * sizeof(wchar_t));
  EXPECT_EQ(watch.released(static_cast<size_t>(watch.releases() - 1)), watch.given(0));
  EXPECT_EQ(watch.blocks(), 0);
}

TEST(DumbRealloc, FreesTheOldBlockOnFailure) {
  void* block = std::malloc(10);
  void* const old = block;
  HeapWatch watch;
  Q_dumb_realloc(&block, SIZE_MAX / 2 + 1);
  watch.end();
  EXPECT_EQ(watch.releases(), 1);
  EXPECT_EQ(watch.released(0), old);
}

TEST(DumbRealloc, LeavesTheFreeingToThePlatformWhenTheSizeIsZero) {
  void* block = std::malloc(10);
  HeapWatch watch;
  Q_dumb_realloc(&block, 0);
  watch.end();
  EXPECT_EQ(watch.releases(), 0);
  EXPECT_EQ(watch.blocks(), -1);
}

// --- blocks

TEST(DumbRealloc, AllocatesWhereThereIsNoBlock) {
  void* block = nullptr;
  void* const result = Q_dumb_realloc(&block, 10);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(block, result);
  std::memset(block, 'x', 10);
  std::free(block);
}

TEST(DumbRealloc, AllocatesABlockOfSizeZeroWhereThereIsNone) {
  void* block = nullptr;
  void* const result = Q_dumb_realloc(&block, 0);
  EXPECT_NE(result, nullptr);
  EXPECT_EQ(block, result);
  std::free(result);
}

TEST(DumbRealloc, KeepsTheContentWhenItResizes) {
  void* block = std::malloc(4);
  std::memcpy(block, "abc", 4);
  EXPECT_EQ(Q_dumb_realloc(&block, 100000), block);
  EXPECT_STREQ(static_cast<char*>(block), "abc");
  EXPECT_EQ(Q_dumb_realloc(&block, 2), block);
  EXPECT_EQ(std::memcmp(block, "ab", 2), 0);
  std::free(block);
}

TEST(DumbRealloc, ForgetsTheBlockOnFailure) {
  void* block = std::malloc(10);
  EXPECT_EQ(Q_dumb_realloc(&block, SIZE_MAX / 2 + 1), nullptr);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(Q_dumb_realloc(&block, SIZE_MAX / 2 + 1), nullptr);
  EXPECT_EQ(block, nullptr);
}

TEST(DumbRealloc, ForgetsTheBlockThatASizeOfZeroFreed) {
  void* block = std::malloc(10);
  EXPECT_EQ(Q_dumb_realloc(&block, 0), nullptr);
  EXPECT_EQ(block, nullptr);
}

TEST(DumbRealloc, GivesNullWithoutAPlaceForTheBlock) {
  EXPECT_EQ(Q_dumb_realloc(nullptr, 10), nullptr);
  EXPECT_EQ(Q_dumb_realloc(nullptr, 0), nullptr);
}

}  // namespace
