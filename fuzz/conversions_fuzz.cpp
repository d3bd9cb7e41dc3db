// In locales of many encodings the conversions between narrow and wide text give what they give
// character by character; in UTF-8 one undoes the other.
#include "cmnstringtool.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "locales.h"
#include "plain_text.h"
#include "wide_text.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_cmn_4_4::tstr;
using kelp_fuzz::atEdge;
using kelp_fuzz::ChosenLocale;
using kelp_fuzz::expect;

void checkDecoding(const std::string& text, const ChosenLocale& locale) {
  auto guarded = atEdge(text);
  const std::wstring expected = kelp_test::plainlyDecoded(text);
  expect(Tool::str2wstr(guarded.text()) == expected, "the text character by character");
  expect(Tool::mbs2wcs(guarded.text()) == expected, "the same by its other name");
  const tstr ace(text.data(), text.size());
  expect(Tool::tstr2wstr(ace) == expected, "the same of an ACE string");
  if (locale.isCUtf8() && !expected.empty() && 2 * expected.size() + 2 >= text.size()) {
    expect(Tool::wstr2str(expected) == kelp_test::upToZero(text), "the same text back");
  }
}

void checkEncoding(const std::wstring& text, const ChosenLocale& locale) {
  auto guarded = atEdge(text);
  const std::string expected = kelp_test::plainlyEncoded(text);
  expect(Tool::wstr2str(guarded.text()) == expected, "the text character by character");
  expect(Tool::wcs2mbs(guarded.text()) == expected, "the same by its other name");
  const tstr ace = Tool::wstr2tstr(guarded.text());
  expect(ace.c_str() == expected && ace.length() == expected.size(), "the same as an ACE string");
  if (locale.isCUtf8()) {
    const std::wstring back = Tool::str2wstr(expected);
    expect(text.compare(0, back.size(), back) == 0, "the beginning of the text back");
  }
}

void checkIdentities(const std::string& narrow, const std::wstring& wide) {
  expect(Tool::wstr2str(narrow) == narrow, "a copy of the narrow text");
  expect(Tool::str2wstr(wide) == wide, "a copy of the wide text");
}

// The converter writes two bytes for this one before it refuses it, and what is written stays.
std::wstring withoutTheOneOfCp949(std::wstring text) {
  std::replace(text.begin(), text.end(), L'\u327e', L'~');
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  kelp_fuzz::Input input(data, size);
  const ChosenLocale locale(input);
  const bool narrowOnly = input.choice();
  const std::string narrow = narrowOnly ? input.rest() : input.text();
  const std::wstring wide = kelp_fuzz::wideText(input);
  checkDecoding(narrow, locale);
  checkEncoding(locale.has("CP949") ? withoutTheOneOfCp949(wide) : wide, locale);
  checkIdentities(narrow, wide);
  return 0;
}
