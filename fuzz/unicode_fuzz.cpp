// Between UTF-8 and UTF-16 the conversions give what they give character by character, and undo one
// another; ACE strings and duplicates hold the bytes of their text.
#include "cmnstringtool.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "plain_text.h"
#include "wide_text.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_cmn_4_4::tstr;
using kelp_fuzz::atEdge;
using kelp_fuzz::expect;
using kelp_test::upToZero;

std::u16string unitsOf(const icu::UnicodeString& text) {
  expect(text.isBogus() == 0, "a text that is not bogus");
  return std::u16string(text.getBuffer(), static_cast<size_t>(text.length()));
}

void checkFromUtf8(const std::string& text) {
  auto guarded = atEdge(text);
  icu::UnicodeString result = Tool::str2ustr(guarded.text());
  const std::u16string expected = kelp_test::plainlyFromUtf8(text);
  expect(unitsOf(result) == expected, "the text character by character");
  tstr ace(text.data(), text.size());
  expect(unitsOf(Tool::tstr2ustr(ace)) == expected, "the same of an ACE string");
  if (!expected.empty()) {
    expect(Tool::ustr2str(result) == upToZero(text), "the same text back");
  }
}

// Of units that a page ends behind, without a terminator, and of units that the text owns.
void checkToUtf8(const std::u16string& units) {
  static kelp_fuzz::EdgeBuffer<char16_t> buffer;
  const auto length = static_cast<int32_t>(units.size());
  const std::string expected = kelp_test::plainlyToUtf8(units);
  icu::UnicodeString alias(UBool{0}, buffer.holding(units), length);
  expect(Tool::ustr2str(alias) == expected, "the text character by character");
  icu::UnicodeString own(units.data(), length);
  std::string narrow = Tool::ustr2str(own);
  expect(narrow == expected, "the same of a text of its own");
  expect(unitsOf(own) == units, "the argument unchanged");
  const tstr ace = Tool::ustr2tstr(own);
  expect(ace.c_str() == expected && ace.length() == expected.size(), "the same as an ACE string");
  if (!expected.empty()) {
    expect(unitsOf(Tool::str2ustr(narrow)) == upToZero(units), "the same units back");
  }
}

void checkAce(const std::string& text) {
  const tstr ace = Tool::str2tstr(atEdge(text).text());
  expect(ace.c_str() == upToZero(text) && ace.length() == upToZero(text).size(),
         "the bytes up to a zero byte");
  expect(Tool::tstr2str(tstr(text.data(), text.size())) == upToZero(text), "and back");
}

size_t requested = 0;

void* request(size_t size) {
  requested = size;
  return std::malloc(size);
}

void checkDuplicates(const std::string& text, const std::wstring& wide) {
  char* const bytes = Tool::strdup(atEdge(text).text(), request);
  expect(requested == text.size() + 1, "the size of the text");
  expect(std::memcmp(bytes, text.c_str(), text.size() + 1) == 0, "the whole text");
  std::free(bytes);
  wchar_t* const characters = Tool::wstrdup(atEdge(wide).text(), request);
  expect(requested == 4 * (wide.size() + 1), "the size of the text");
  expect(std::wmemcmp(characters, wide.c_str(), wide.size() + 1) == 0, "the whole text");
  std::free(characters);
}

// Of the parts between zero bytes.
void checkList(const std::string& text) {
  std::vector<tstr> list;
  for (size_t at = 0; at <= text.size(); at += list.back().length() + 1) {
    list.emplace_back(text.c_str() + at);
  }
  char** copies = Tool::tstrduplist(list);
  for (size_t i = 0; i < list.size(); ++i) {
    expect(list[i] == copies[i], "each text in its place");
  }
  expect(copies[list.size()] == nullptr, "a null pointer at the end");
  Tool::tstrfreelist(copies);
  expect(copies == nullptr, "no list any more");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  kelp_fuzz::Input input(data, size);
  const bool isNarrow = input.choice();
  const std::string narrow = isNarrow ? input.rest() : input.text();
  const std::wstring wide = kelp_fuzz::wideText(input);
  checkFromUtf8(narrow);
  checkToUtf8(std::u16string(wide.begin(), wide.end()));
  checkAce(narrow);
  checkDuplicates(narrow, wide);
  checkList(narrow);
  return 0;
}
