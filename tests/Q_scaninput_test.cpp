// Texts that are longer than the scanner reads, which is more than a test can wait for.
#include "Q_scaninput.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string allOf(q_scan::Input& input) {
  std::string read;
  for (int c = input.peek(); c != q_scan::endOfInput; c = input.peek()) {
    read += static_cast<char>(c);
    input.consume();
  }
  return read;
}

TEST(ScanInput, EndsALongerTextAtItsLimit) {
  std::string text;
  for (int i = 0; i < 2000; ++i) {
    text += static_cast<char>('a' + i % 26);
  }
  constexpr size_t limits[] = {0, 1, 2, 255, 256, 257, 511, 512, 513, 1000, 1999, 2000, 2001, 9999};
  for (const size_t limit : limits) {
    SCOPED_TRACE(limit);
    q_scan::Input input(text.c_str(), limit);
    EXPECT_EQ(allOf(input), text.substr(0, limit));
    EXPECT_EQ(input.peek(), q_scan::endOfInput) << "and no further";
  }
}

}  // namespace
