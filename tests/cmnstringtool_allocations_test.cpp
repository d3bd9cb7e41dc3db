// What is left when memory cannot be had: ICU and ACE say so with an unusable text, not with an
// exception.
#include "cmnstringtool.h"
#include "interposed_calls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <string>

namespace {

using kelp_cmn_4_4::CCmnStringTool;
using kelp_cmn_4_4::tstr;
using kelp_test::Call;
using kelp_test::ScopedFailure;
using kelp_test::Times;

// How often malloc, and how often operator new, made a job fail.
struct Failures {
  int ofMalloc = 0;
  int ofNew = 0;
};

// Makes the first, second, … allocation of a job fail, until it passes. Each time it throws or has
// the right result, as it says itself (ICU asks again for less), and leaves all else as it was.
template <class Job, class Unharmed>
Failures failEveryAllocation(Job job, Unharmed unharmed) {
  Failures failures;
  for (const Call call : {Call::malloc, Call::throwingNew, Call::nothrowNew}) {
    for (const Times times : {Times::once, Times::onwards}) {
      int failed = 1;
      for (int nth = 1; failed > 0 && !testing::Test::HasFailure(); ++nth) {
        bool thrown = false;
        bool right = false;
        {
          const ScopedFailure failure(call, ENOMEM, nth, times);
          try {
            right = job();
          } catch (const std::bad_alloc&) {
            thrown = true;
          }
          failed = failure.failed();
        }
        EXPECT_TRUE(thrown || right) << "allocation " << nth;
        EXPECT_TRUE(thrown || failed == 0 || times == Times::once) << "allocation " << nth;
        unharmed();
        (call == Call::malloc ? failures.ofMalloc : failures.ofNew) += thrown ? 1 : 0;
      }
    }
  }
  return failures;
}

const std::string hundred(100, 'x');

bool isHundred(const icu::UnicodeString& text) {
  return text.length() == 100 && text.indexOf(u'x', 99) == 99 && text.indexOf(u'x') == 0;
}

bool isHundred(const tstr& text) { return text.c_str() != nullptr && text.c_str() == hundred; }

TEST(Str2ustr, ThrowsWhenIcuCannotAllocate) {
  std::string text = hundred;
  const Failures failures = failEveryAllocation(
      [&] { return isHundred(CCmnStringTool::str2ustr(text)); }, [&] { EXPECT_EQ(text, hundred); });
  EXPECT_GT(failures.ofMalloc, 0);
}

TEST(Tstr2ustr, ThrowsWhenIcuCannotAllocate) {
  tstr text(hundred.c_str());
  const Failures failures =
      failEveryAllocation([&] { return isHundred(CCmnStringTool::tstr2ustr(text)); },
                          [&] { EXPECT_TRUE(isHundred(text)); });
  EXPECT_GT(failures.ofMalloc, 0);
}

// Converts a text while memory runs out.
Failures expectTextKept(icu::UnicodeString& text) {
  const UChar* const buffer = text.getBuffer();
  const std::u16string units(buffer, static_cast<size_t>(text.length()));
  const std::string expected(units.begin(), units.end());  // ASCII
  return failEveryAllocation(
      [&] { return CCmnStringTool::ustr2str(text) == expected; },
      [&] {
        EXPECT_FALSE(text.isBogus());
        EXPECT_EQ(text.getBuffer(), buffer);
        EXPECT_EQ(std::u16string(text.getBuffer(), static_cast<size_t>(text.length())), units);
      });
}

TEST(Ustr2str, KeepsAnAliasThatIcuCannotTerminate) {
  const std::u16string units(100, u'x');
  icu::UnicodeString text(UBool{0}, units.data(), 99);
  EXPECT_GT(expectTextKept(text).ofMalloc, 0);
}

TEST(Ustr2str, KeepsASharedTextThatIcuCannotTerminate) {
  icu::UnicodeString text(100, U'x', 100);
  const icu::UnicodeString other(text);
  ASSERT_EQ(text.getBuffer(), other.getBuffer());
  EXPECT_GT(expectTextKept(text).ofMalloc, 0);
  EXPECT_TRUE(isHundred(other));
}

TEST(Ustr2str, KeepsATextThatFillsItsBufferWhenIcuCannotTerminateIt) {
  icu::UnicodeString text;
  while (text.length() < text.getCapacity()) {
    text.append(u'x');
  }
  EXPECT_GT(expectTextKept(text).ofMalloc, 0);
}

TEST(Ustr2str, KeepsAnOrdinaryTextWhenMemoryRunsOut) {
  icu::UnicodeString text(100, U'x', 100);
  EXPECT_GT(expectTextKept(text).ofNew, 0);
}

TEST(Str2tstr, ThrowsWhenAceCannotAllocate) {
  const Failures failures =
      failEveryAllocation([] { return isHundred(CCmnStringTool::str2tstr(hundred)); }, [] {});
  EXPECT_GT(failures.ofNew, 0);
}

TEST(Str2tstr, NeedsNoMemoryForAnEmptyText) {
  const std::string text;
  const ScopedFailure failure(Call::nothrowNew, ENOMEM, 1, Times::onwards);
  EXPECT_STREQ(CCmnStringTool::str2tstr(text).c_str(), "");
}

TEST(Wstr2tstr, ThrowsWhenAceCannotAllocate) {
  const std::wstring text(100, L'x');
  const Failures failures =
      failEveryAllocation([&] { return isHundred(CCmnStringTool::wstr2tstr(text)); }, [] {});
  EXPECT_GT(failures.ofNew, 0);
}

TEST(Ustr2tstr, ThrowsWhenAceCannotAllocate) {
  icu::UnicodeString text(100, U'x', 100);
  const Failures failures =
      failEveryAllocation([&] { return isHundred(CCmnStringTool::ustr2tstr(text)); },
                          [&] { EXPECT_TRUE(isHundred(text)); });
  EXPECT_GT(failures.ofNew, 0);
}

}  // namespace
