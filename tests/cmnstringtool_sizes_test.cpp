// Texts of gigabytes, and sizes that no machine has.
#include "cmnstringtool.h"
#include "endless_pages.h"
#include "heap.h"
#include "next_symbol.h"
#include "plain_text.h"
#include "text_over.h"

#include <gtest/gtest.h>
#include <unicode/ustring.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_cmn_4_4::tstr;
using kelp_test::EndlessPages;
using kelp_test::HeapRequest;
using kelp_test::refused;
using kelp_test::TextOver;
using kelp_test::untouched;

constexpr size_t largestInt = INT_MAX;

// The one block of gigabytes that operator new hands out at a time, over a few pages.
std::unique_ptr<EndlessPages> hugeBlock;
constexpr size_t hugeSize = size_t{1} << 30;

bool isGranted(const HeapRequest& request) {
  return request.size < hugeSize || (request.size <= PTRDIFF_MAX && hugeBlock == nullptr);
}

void* lend(size_t size) {
  if (size < hugeSize) {
    return nullptr;
  }
  // Behind the pages, which are all the same, there is room for the text's terminator.
  hugeBlock =
      std::make_unique<EndlessPages>((size - 1) & ~size_t{15}, std::string(1, '\0'), MAP_POPULATE);
  return hugeBlock->data();
}

bool takeBack(void* block) {
  const bool isHuge = hugeBlock != nullptr && block == hugeBlock->data();
  if (isHuge) {
    hugeBlock.reset();
  }
  return isHuge;
}

[[maybe_unused]] const bool heapIsRuled =
    (kelp_test::setHeapRule(isGranted), kelp_test::setHeapLender({lend, takeBack}), true);

}  // namespace

// Counts euro signs as ICU does, in an int32_t that wraps, where ICU needs seconds for gigabytes.
extern "C" char* u_strToUTF8(char* out, int32_t capacity, int32_t* length, const UChar* units,
                             int32_t count, UErrorCode* error) {
  if (out == nullptr && count > (1 << 24) && units[0] == u'\u20ac') {
    *length = static_cast<int32_t>(3 * static_cast<uint32_t>(count) -
                                   (units[count - 1] == u'\u20ac' ? 0U : 2U));
    *error = U_BUFFER_OVERFLOW_ERROR;
    return nullptr;
  }
#define KELP_NAME_OF(function) #function
#define KELP_RENAMED(function) KELP_NAME_OF(function)
  static const auto real = kelp_test::nextSymbol<decltype(u_strToUTF8)>(KELP_RENAMED(u_strToUTF8));
  return real(out, capacity, length, units, count, error);
}

namespace {

#define KELP_SKIP_WITHOUT(pages)                                        \
  if ((pages).data() == nullptr) {                                      \
    GTEST_SKIP() << "not enough address space for a text of this size"; \
  }

TEST(Str2binary, RefusesMoreDigitsThanAnIntCanHalve) {
  const EndlessPages pages(2 * (2 * largestInt + 2), "7");
  KELP_SKIP_WITHOUT(pages);
  // Half of these is, as an int: INT_MIN, -1, 0 and 1.
  for (const size_t half : {largestInt + 1, 2 * largestInt + 1, 2 * largestInt + 2}) {
    for (const size_t length : {2 * half, 2 * half + 1}) {
      TextOver hex(pages.data(), length);
      unsigned char out[] = {untouched};
      for (const int room : {1, 0, -1, INT_MIN, INT_MAX}) {
        int size = room;
        ASSERT_EQ(Tool::str2binary(out, &size, hex.text()), refused) << length << ' ' << room;
        ASSERT_EQ(size, room);
        ASSERT_EQ(out[0], untouched);
      }
    }
  }
}

TEST(Searchreplace, ThrowsWhereNoSizeHoldsItsResult) {
  const size_t count = 16;
  const std::string text(count, 'a');
  // They are not there: nobody may look at them.
  TextOver to("", size_t{1} << 60);
  TextOver shorter("", (size_t{1} << 60) - 1);
  EXPECT_THROW(Tool::searchreplace(text, "a", to.text()), std::bad_alloc);  // 2^64
  EXPECT_THROW(Tool::searchreplace(text, "a", shorter.text()), std::bad_alloc);
  // The replacements fit into a size: with the rest of the text they do not, or not with an end.
  for (const size_t rest : {count, count - 1}) {
    EXPECT_THROW(Tool::searchreplace(text + std::string(rest, 'b'), "a", shorter.text()),
                 std::bad_alloc);
  }
}

TEST(Str2ustr, GivesNothingForATextThatIcuCannotCount) {
  const EndlessPages pages(2 * largestInt + 2, "7");
  KELP_SKIP_WITHOUT(pages);
  for (const size_t length : {largestInt, 2 * largestInt + 2}) {
    const char* const start = pages.data() + (2 * largestInt + 2 - length);
    TextOver text(start, length);
    const icu::UnicodeString result = Tool::str2ustr(text.text());
    EXPECT_TRUE(result.isEmpty()) << length;
    EXPECT_FALSE(result.isBogus()) << length;
  }
}

TEST(Str2ustr, CountsOnlyWhatStandsBeforeAZeroByte) {
  const EndlessPages pages(largestInt + 1, "7");
  KELP_SKIP_WITHOUT(pages);
  char* const zero = pages.data() + 3;
  *zero = '\0';  // and the same byte of all the pages
  TextOver text(pages.data(), largestInt + 1);
  EXPECT_EQ(Tool::str2ustr(text.text()), icu::UnicodeString("777"));
}

TEST(Tstr2ustr, GivesNothingForATextThatIcuCannotCount) {
  const EndlessPages pages(largestInt, "7");
  KELP_SKIP_WITHOUT(pages);
  tstr text(pages.data(), largestInt, nullptr, false);
  const icu::UnicodeString result = Tool::tstr2ustr(text);
  EXPECT_TRUE(result.isEmpty());
  EXPECT_FALSE(result.isBogus());
}

const std::u16string twoEuros = u"\u20ac\u20ac";

EndlessPages pagesOfEuros(int32_t count) {
  return EndlessPages(2 * static_cast<size_t>(count),
                      std::string(reinterpret_cast<const char*>(twoEuros.data()), 4));
}

// How many bytes that many euro signs become, the last of which may be another character.
long bytesOfEuros(int32_t count, UChar last = u'\u20ac') {
  const EndlessPages pages = pagesOfEuros(count);
  auto* const units = reinterpret_cast<UChar*>(pages.data());
  units[count - 1] = last;
  icu::UnicodeString text(count < INT32_MAX ? UBool{1} : UBool{0}, units, count);
  return static_cast<long>(Tool::ustr2str(text).length());
}

TEST(Ustr2str, GivesNothingForATextThatIcuCannotCount) {
  KELP_SKIP_WITHOUT(pagesOfEuros(INT32_MAX));
  EXPECT_EQ(bytesOfEuros(715827883), 0);        // 2^31 + 1 bytes
  EXPECT_EQ(bytesOfEuros(715827883, u'a'), 0);  // 2^31 - 1, which leaves no room for an end
  EXPECT_EQ(bytesOfEuros(1431655766), 0);       // 2^32 + 2
#ifdef __OPTIMIZE__  // counting takes seconds, and it is ICU that counts: one build is enough
  EXPECT_EQ(bytesOfEuros(1431655765), 0);  // 2^32 - 1
  EXPECT_EQ(bytesOfEuros(2147483646), 0);  // 2^32 + 2^31 - 6
  EXPECT_EQ(bytesOfEuros(INT32_MAX), 0);   // 2^32 + 2^31 - 3
#endif
}

}  // namespace
