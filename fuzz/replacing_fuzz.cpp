// Searching finds what the plain form finds, which looks at every place, and replacing replaces it.
#include "cmnstringtool.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "plain_text.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_fuzz::expect;

std::vector<std::string> cutEvery(const std::string& text, size_t length) {
  std::vector<std::string> parts;
  for (size_t at = 0; at < text.size(); at += length) {
    parts.push_back(text.substr(at, length));
  }
  return parts;
}

// Hit after hit, from one text of the list on.
void checkFound(const std::vector<std::string>& list, const std::string& pattern,
                unsigned long start, bool trimRight) {
  unsigned long index = start;
  for (unsigned long i = start; i < list.size(); ++i) {
    const size_t expected = kelp_test::plainlyFound(list[i], pattern, trimRight);
    if (expected != std::string::npos) {
      expect(Tool::find(list, pattern.c_str(), index, trimRight) == expected, "the place");
      expect(index == i, "the text of the list");
      ++index;
    }
  }
  const unsigned long last = index;
  expect(Tool::find(list, pattern.c_str(), index, trimRight) == std::string::npos, "no more");
  expect(index == std::max<unsigned long>(last, list.size()), "the end of the list");
}

void checkReplaced(const std::string& text, const std::string& from, const std::string& to) {
  const std::string result = Tool::searchreplace(kelp_fuzz::atEdge(text).text(), from, to);
  expect(result == kelp_test::plainlyReplaced(text, from, to), "the plain form");
  expect(Tool::searchreplace(text, from, from) == (from.empty() ? text : kelp_test::upToZero(text)),
         "the text, where nothing changes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  kelp_fuzz::Input input(data, size);
  const size_t length = 1 + input.upTo(99);
  const size_t start = input.upTo(9);
  const std::string pattern = input.text();
  const std::string to = input.text();
  const std::string text = input.rest();
  for (const bool trimRight : {false, true}) {
    checkFound(cutEvery(text, length), pattern, start, trimRight);
  }
  checkReplaced(text, pattern, to);
  checkReplaced(text, to + '\0' + pattern, pattern);
  return 0;
}
