// What shows in a scan only with texts of gigabytes, or with the last of all bytes.
#include "Q_scanformat.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

using q_scan::Conversion;
using q_scan::ScanSet;

TEST(ScanFormat, WidthsEndAtTheGreatestInt) {
  const struct {
    const char* text;
    int width;
  } cases[] = {{"0", 0},
               {"7", 7},
               {"2000000000", 2000000000},
               {"2147483639", 2147483639},
               {"2147483640", 2147483640},
               {"2147483646", 2147483646},
               {"2147483647", INT_MAX},
               {"2147483648", INT_MAX},
               {"2147483650", INT_MAX},
               {"2300000000", INT_MAX},
               {"4294967297", INT_MAX},
               {"99999999999999999999", INT_MAX}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string format = std::string(c.text) + "d rest";
    const char* position = format.c_str();
    Conversion conversion;
    ScanSet set;
    EXPECT_TRUE(q_scan::parseConversion(position, conversion, set));
    EXPECT_EQ(conversion.width, c.width);
    EXPECT_STREQ(position, " rest");
  }
}

TEST(ScanFormat, NoRangeBeginsASet) {
  for (int last = 1; last <= UCHAR_MAX; ++last) {
    if (last == ']') {
      continue;
    }
    SCOPED_TRACE(last);
    const char format[] = {'[', '-', static_cast<char>(last), ']', '\0'};
    const char* position = format;
    Conversion conversion;
    ScanSet set;
    ScanSet expected;
    expected.set('-');
    expected.set(static_cast<size_t>(last));
    EXPECT_TRUE(q_scan::parseConversion(position, conversion, set));
    EXPECT_EQ(set, expected);
    EXPECT_EQ(position, format + 4);
  }
}

}  // namespace
