// What is left when memory cannot be had: ICU and ACE say so with an unusable text, not with an
// exception.
#include "cmnstringtool.h"
#include "failing_memory.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_cmn_4_4::tstr;
using kelp_test::failEachAllocation;
using kelp_test::HeapCall;
using kelp_test::HeapWatch;
using kelp_test::Times;

// Refuses every request for memory in turn. Each time the job throws or has the right result, as it
// says itself (ICU asks again for less), and leaves all else as it was. Without memory of the kind
// that it needs most it throws.
template <class Job, class Unharmed>
void expectAllOrNothing(HeapCall needed, Job job, Unharmed unharmed) {
  bool right = false;
  failEachAllocation([&] { right = false; }, [&] { right = job(); },
                     [&](bool threw) {
                       EXPECT_TRUE(threw || right);
                       unharmed();
                     });
  HeapWatch watch(1, Times::onwards, needed);
  try {
    right = job();
    watch.end();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const std::bad_alloc&) {
    watch.end();
  }
  unharmed();
}

const std::string hundred(100, 'x');

bool isHundred(const icu::UnicodeString& text) {
  return text.length() == 100 && text.indexOf(u'x', 99) == 99 && text.indexOf(u'x') == 0;
}

bool isHundred(const tstr& text) { return text.c_str() != nullptr && text.c_str() == hundred; }

TEST(Str2ustr, ThrowsWhenIcuCannotAllocate) {
  std::string text = hundred;
  expectAllOrNothing(
      HeapCall::malloc, [&] { return isHundred(Tool::str2ustr(text)); },
      [&] { EXPECT_EQ(text, hundred); });
}

TEST(Tstr2ustr, ThrowsWhenIcuCannotAllocate) {
  tstr text(hundred.c_str());
  expectAllOrNothing(
      HeapCall::malloc, [&] { return isHundred(Tool::tstr2ustr(text)); },
      [&] { EXPECT_TRUE(isHundred(text)); });
}

// Converts a text while memory runs out.
void expectTextKept(icu::UnicodeString& text, HeapCall needed) {
  const UChar* const buffer = text.getBuffer();
  const std::u16string units(buffer, static_cast<size_t>(text.length()));
  const std::string expected(units.begin(), units.end());  // ASCII
  expectAllOrNothing(
      needed, [&] { return Tool::ustr2str(text) == expected; },
      [&] {
        EXPECT_FALSE(text.isBogus());
        EXPECT_EQ(text.getBuffer(), buffer);
        EXPECT_EQ(std::u16string(text.getBuffer(), static_cast<size_t>(text.length())), units);
      });
}

TEST(Ustr2str, KeepsAnAliasThatIcuCannotTerminate) {
  const std::u16string units(100, u'x');
  icu::UnicodeString text(UBool{0}, units.data(), 99);
  expectTextKept(text, HeapCall::malloc);
}

TEST(Ustr2str, KeepsASharedTextThatIcuCannotTerminate) {
  icu::UnicodeString text(100, U'x', 100);
  const icu::UnicodeString other(text);
  ASSERT_EQ(text.getBuffer(), other.getBuffer());
  expectTextKept(text, HeapCall::malloc);
  EXPECT_TRUE(isHundred(other));
}

TEST(Ustr2str, KeepsATextThatFillsItsBufferWhenIcuCannotTerminateIt) {
  icu::UnicodeString text;
  while (text.length() < text.getCapacity()) {
    text.append(u'x');
  }
  expectTextKept(text, HeapCall::malloc);
}

TEST(Ustr2str, KeepsAnOrdinaryTextWhenMemoryRunsOut) {
  icu::UnicodeString text(100, U'x', 100);
  expectTextKept(text, HeapCall::throwingNew);
}

TEST(Str2tstr, ThrowsWhenAceCannotAllocate) {
  expectAllOrNothing(
      HeapCall::nothrowNew, [] { return isHundred(Tool::str2tstr(hundred)); }, [] {});
}

TEST(Str2tstr, NeedsNoMemoryForAnEmptyText) {
  const std::string text;
  HeapWatch watch(1, Times::onwards);
  const tstr result = Tool::str2tstr(text);
  watch.end();
  EXPECT_STREQ(result.c_str(), "");
}

TEST(Wstr2tstr, ThrowsWhenAceCannotAllocate) {
  const std::wstring text(100, L'x');
  expectAllOrNothing(
      HeapCall::nothrowNew, [&] { return isHundred(Tool::wstr2tstr(text)); }, [] {});
}

TEST(Ustr2tstr, ThrowsWhenAceCannotAllocate) {
  icu::UnicodeString text(100, U'x', 100);
  expectAllOrNothing(
      HeapCall::nothrowNew, [&] { return isHundred(Tool::ustr2tstr(text)); },
      [&] { EXPECT_TRUE(isHundred(text)); });
}

}  // namespace
