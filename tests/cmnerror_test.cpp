#include "cmnerror.h"

#include "exposed_members.h"
#include "scratch.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>

namespace {

using kelp_cmn_4_4::CCmnError;
using kelp_cmn_4_4::tstr;

KELP_EXPOSE(CCmnError, m_message)
KELP_EXPOSE(CCmnError, m_fileName)
KELP_EXPOSE(CCmnError, m_function)

CCmnError sample() { return CCmnError(7, "message", "file.cpp", 42, "function"); }

CCmnError withCode(int code) { return CCmnError(code, "", "", 0, ""); }

void expectEqual(const CCmnError& error, int code, const char* message, const char* file, int line,
                 const char* function) {
  EXPECT_EQ(error.getCode(), code);
  EXPECT_STREQ(error.what(), message);
  EXPECT_STREQ(error.getFileName(), file);
  EXPECT_EQ(error.getLineNumber(), line);
  EXPECT_STREQ(error.getFunction(), function);
}

TEST(Error, IsEmptyByDefault) { expectEqual(CCmnError(), 0, "", "", 0, ""); }

TEST(Error, HoldsWhatItIsMadeOf) {
  expectEqual(sample(), 7, "message", "file.cpp", 42, "function");
  expectEqual(CCmnError(INT_MIN, "m", "f", INT_MAX, "g"), INT_MIN, "m", "f", INT_MAX, "g");
}

TEST(Error, GivesEmptyTextsNeverNull) {
  expectEqual(CCmnError(1, "", "", 2, ""), 1, "", "", 2, "");
  const tstr null(static_cast<const char*>(nullptr));
  expectEqual(CCmnError(1, null, null, 2, null), 1, "", "", 2, "");
}

TEST(Error, OwnsItsTexts) {
  char message[] = "message";
  char file[] = "file";
  char function[] = "function";
  const CCmnError error(1, tstr(message, nullptr, false), tstr(file, nullptr, false), 2,
                        tstr(function, nullptr, false));
  message[0] = file[0] = function[0] = '#';
  expectEqual(error, 1, "message", "file", 2, "function");
}

TEST(Error, LeavesATextThatWasHandedOutWhereItIs) {
  const CCmnError error = sample();
  const char* const message = error.what();
  const CCmnError other(8, "another message", "other.cpp", 43, "other");
  EXPECT_STREQ(other.what(), "another message");
  EXPECT_STREQ(message, "message");
  EXPECT_EQ(message, (error.*memberOf(CCmnError_m_message{})).c_str());
}

TEST(Error, CopiesMemberByMember) {
  CCmnError original = sample();
  const CCmnError copy(original);
  original = CCmnError();
  expectEqual(original, 0, "", "", 0, "");
  expectEqual(copy, 7, "message", "file.cpp", 42, "function");
}

TEST(Error, AssignsMemberByMember) {
  CCmnError target(1, "a longer message than the other one has", "x", 2, "");
  const CCmnError source = sample();
  EXPECT_EQ(&(target = source), &target);
  expectEqual(target, 7, "message", "file.cpp", 42, "function");
  expectEqual(source, 7, "message", "file.cpp", 42, "function");
}

// As bytes, whatever zero bytes are in it.
std::string bytes(const tstr& text) { return std::string(text.c_str(), text.length()); }

TEST(Error, CopiesAndAssignsTextsBeyondAZeroByte) {
  const CCmnError error(1, tstr("a\0message", 9), tstr("a\0file", 6), 2, tstr("a\0name", 6));
  const CCmnError copy(error);
  CCmnError assigned = sample();
  assigned = error;
  const CCmnError* const records[] = {&copy, &assigned};
  for (const CCmnError* const record : records) {
    EXPECT_EQ(bytes(record->*memberOf(CCmnError_m_message{})), std::string("a\0message", 9));
    EXPECT_EQ(bytes(record->*memberOf(CCmnError_m_fileName{})), std::string("a\0file", 6));
    EXPECT_EQ(bytes(record->*memberOf(CCmnError_m_function{})), std::string("a\0name", 6));
  }
}

TEST(Error, AssignmentToItselfChangesNothing) {
  CCmnError error = sample();
  const CCmnError& itself = error;
  error = itself;
  expectEqual(error, 7, "message", "file.cpp", 42, "function");
}

TEST(Error, MovingCopies) {
  CCmnError source = sample();
  const CCmnError moved(std::move(source));
  CCmnError assigned;
  assigned = std::move(source);
  expectEqual(source, 7, "message", "file.cpp", 42, "function");
  expectEqual(moved, 7, "message", "file.cpp", 42, "function");
  expectEqual(assigned, 7, "message", "file.cpp", 42, "function");
}

TEST(Error, CanBeThrownByValueAndCaughtByReference) {
  try {
    throw sample();
  } catch (const CCmnError& error) {
    expectEqual(error, 7, "message", "file.cpp", 42, "function");
  }
}

TEST(Error, IdentifiersCountFromTheBase) {
  const struct {
    const char* component;
    long base;
    int code;
    const char* id;
  } rows[] = {
      {"config", 1000, 1007, "MSG_ERROR_CONFIG_0007"},
      {"config", 1000, 17, "MSG_ERROR_CONFIG_0017"},
      {"net", 500, 500, "MSG_ERROR_NET_0500"},  // the base itself, deliberately not 0000
      {"net", 500, 501, "MSG_ERROR_NET_0001"},
      {"net", 500, 499, "MSG_ERROR_NET_0499"},
      {"net", 500, 12, "MSG_ERROR_NET_0012"},
      {"x", 0, 0, "MSG_ERROR_X_0000"},
      {"x", 0, 1, "MSG_ERROR_X_0001"},
      {"x", 0, 9999, "MSG_ERROR_X_9999"},
      {"x", 0, 10000, "MSG_ERROR_X_10000"},
      {"x", 0, -7, "MSG_ERROR_X_-007"},
      {"x", 0, -1234, "MSG_ERROR_X_-1234"},
      {"x", -10, -7, "MSG_ERROR_X_0003"},
      {"x", -10, -10, "MSG_ERROR_X_-010"},
      {"x", -10, 5, "MSG_ERROR_X_0015"},
      {"x", -1, INT_MAX, "MSG_ERROR_X_2147483648"},
      {"x", 0, INT_MAX, "MSG_ERROR_X_2147483647"},
      {"x", 0, INT_MIN, "MSG_ERROR_X_-2147483648"},
      {"x", LONG_MAX, INT_MIN, "MSG_ERROR_X_-2147483648"},
      {"x", LONG_MAX, INT_MAX, "MSG_ERROR_X_2147483647"},
      {"x", 4294967296, 5, "MSG_ERROR_X_0005"},
      {"x", -4294967296, 5, "MSG_ERROR_X_4294967301"},
      // The distance from the smallest base is 2^63 and more: 9223372036854775808 + code.
      {"x", LONG_MIN, INT_MIN, "MSG_ERROR_X_9223372034707292160"},
      {"x", LONG_MIN, -1, "MSG_ERROR_X_9223372036854775807"},
      {"x", LONG_MIN, 0, "MSG_ERROR_X_9223372036854775808"},
      {"x", LONG_MIN, INT_MAX, "MSG_ERROR_X_9223372039002259455"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(withCode(row.code).getMessageId(row.component, row.base), row.id)
        << "code " << row.code << ", base " << row.base;
  }
}

std::string identifierIn(const std::string& component) {
  return withCode(3).getMessageId(component, 0);
}

TEST(Error, IdentifiersNameTheComponentInUpperCase) {
  EXPECT_EQ(identifierIn(""), "MSG_ERROR__0003");
  EXPECT_EQ(identifierIn("CONFIG"), "MSG_ERROR_CONFIG_0003");
  EXPECT_EQ(identifierIn("my-Module 2_x"), "MSG_ERROR_MY-MODULE 2_X_0003");
  EXPECT_EQ(identifierIn("%d"), "MSG_ERROR_%D_0003");
}

TEST(Error, IdentifiersKeepBytesThatAreNoLettersOfTheLocale) {
  for (const char* locale : {"C", "C.utf8"}) {
    const kelp_test::ScopedLocale scope(locale);
    EXPECT_EQ(identifierIn("caf\xc3\xa9"), "MSG_ERROR_CAF\xc3\xa9_0003") << locale;
  }
}

TEST(Error, IdentifiersTakeAComponentOfAnyLength) {
  EXPECT_EQ(identifierIn(std::string(100000, 'a')),
            "MSG_ERROR_" + std::string(100000, 'A') + "_0003");
}

}  // namespace
