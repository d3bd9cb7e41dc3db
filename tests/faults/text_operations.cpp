// Conversions, text functions, duplicates.
#include "cmnstringtool.h"
#include "job.h"
#include "words.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace kelp_test {
namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_cmn_4_4::tstr;

const std::string plain = "a text that is longer than what any string keeps in itself";
const std::string umlauts = "Grüße aus dem Süden, länger als das, was ein Text in sich hält";

template <class Run>
Operation of(const std::string& name, Run run, const std::vector<Allowance>& allowances = {}) {
  return function("text: " + name, run, InWords(), allowances);
}

// The same for a text of ASCII and for one that is not, which go different ways.
template <class Input, class Run>
void addBoth(Operations& operations, const std::string& name, Input (*made)(const std::string&),
             Run run) {
  for (const std::string& text : {plain, umlauts}) {
    const auto input = std::make_shared<Input>(made(text));
    operations.push_back(
        of(name + (text == plain ? "" : ", not ASCII"), [input, run] { return run(*input); }));
  }
}

std::string narrow(const std::string& text) { return text; }
tstr asTstr(const std::string& text) { return Tool::str2tstr(text); }
std::wstring asWstr(const std::string& text) { return Tool::str2wstr(text); }
icu::UnicodeString asUstr(const std::string& text) { return icu::UnicodeString::fromUTF8(text); }

void addConversions(Operations& all) {
  using Str = std::string;
  using Wstr = std::wstring;
  using Ustr = icu::UnicodeString;
  addBoth(all, "str2wstr", narrow, [](Str& s) { return Tool::str2wstr(s); });
  addBoth(all, "mbs2wcs", narrow, [](Str& s) { return Tool::mbs2wcs(s); });
  addBoth(all, "wstr2str", asWstr, [](Wstr& s) { return Tool::wstr2str(s); });
  addBoth(all, "wcs2mbs", asWstr, [](Wstr& s) { return Tool::wcs2mbs(s); });
  addBoth(all, "str2wstr of wide", asWstr, [](Wstr& s) { return Tool::str2wstr(s); });
  addBoth(all, "wstr2str of narrow", narrow, [](Str& s) { return Tool::wstr2str(s); });
  addBoth(all, "str2tstr", narrow, [](Str& s) { return Tool::str2tstr(s); });
  addBoth(all, "tstr2str", asTstr, [](tstr& s) { return Tool::tstr2str(s); });
  addBoth(all, "tstr2wstr", asTstr, [](tstr& s) { return Tool::tstr2wstr(s); });
  addBoth(all, "wstr2tstr", asWstr, [](Wstr& s) { return Tool::wstr2tstr(s); });
  addBoth(all, "str2ustr", narrow, [](Str& s) { return Tool::str2ustr(s); });
  addBoth(all, "ustr2str", asUstr, [](Ustr& s) { return Tool::ustr2str(s); });
  addBoth(all, "tstr2ustr", asTstr, [](tstr& s) { return Tool::tstr2ustr(s); });
  addBoth(all, "ustr2tstr", asUstr, [](Ustr& s) { return Tool::ustr2tstr(s); });
}

void addNumbers(Operations& all) {
  all.push_back(of("int2str", [] { return Tool::int2str(-2147483647 - 1); }));
  all.push_back(of("int2str of long", [] { return Tool::int2str(-9223372036854775807L); }));
  all.push_back(of("uint2str", [] { return Tool::uint2str(4294967295U); }));
  all.push_back(of("uint2str of long", [] { return Tool::uint2str(18446744073709551615UL); }));
  all.push_back(of("double2str", [] { return Tool::double2str(-1.23456e-100); }));
  all.push_back(of("bool2str", [] { return Tool::bool2str(true); }));
  all.push_back(of("int2wstr", [] { return Tool::int2wstr(-2147483647); }));
  all.push_back(of("int2wstr of long", [] { return Tool::int2wstr(-9223372036854775807L); }));
  all.push_back(of("uint2wstr", [] { return Tool::uint2wstr(4294967295U); }));
  all.push_back(of("uint2wstr of long", [] { return Tool::uint2wstr(18446744073709551615UL); }));
  all.push_back(of("str2int", [text = std::string("-12")] { return Tool::str2int(text); }));
  all.push_back(of("str2uint", [text = std::string("12")] { return Tool::str2uint(text); }));
  all.push_back(of("str2uint64", [text = plain] {
    unsigned long number = 7;
    return std::make_pair(Tool::str2uint64(text, number), number);
  }));
  all.push_back(
      of("str2double", [text = "1." + std::string(2000, '1')] { return Tool::str2double(text); }));
}

void addInspections(Operations& all) {
  const std::wstring wide = asWstr(umlauts);
  const std::string longText = plain + plain + plain + plain + plain;
  all.push_back(of("isDigit", [text = plain] { return Tool::isDigit(text); }));
  all.push_back(of("CompareNoCase", [text = plain] { return Tool::CompareNoCase(text, text); }));
  all.push_back(of("CompareNoCase of wide", [wide] { return Tool::CompareNoCase(wide, wide); }));
  all.push_back(of("tostrlower", [text = plain] { return Tool::tostrlower(text); }));
  all.push_back(of("tostrlower, long", [longText] { return Tool::tostrlower(longText); }));
  all.push_back(of("tostrlower of wide", [wide] { return Tool::tostrlower(wide); }));
  all.push_back(of("tostrupper", [text = plain] { return Tool::tostrupper(text); }));
  all.push_back(of("tostrupper, long", [longText] { return Tool::tostrupper(longText); }));
  all.push_back(of("tostrupper of wide", [wide] { return Tool::tostrupper(wide); }));
}

void addSearches(Operations& all) {
  const std::string spacious = " \t" + plain + "\n ";
  all.push_back(of("ltrim", [spacious] { return Tool::ltrim(spacious); }));
  all.push_back(of("rtrim", [spacious] { return Tool::rtrim(spacious); }));
  all.push_back(of("trim", [spacious] { return Tool::trim(spacious); }));
  all.push_back(of("find", [list = std::vector<std::string>{"one", spacious}] {
    unsigned long index = 0;
    const unsigned long position = Tool::find(list, "keeps", index, true);
    return std::make_pair(position, index);
  }));
  all.push_back(
      of("searchreplace", [text = plain, from = std::string("a"), to = std::string("another")] {
        return Tool::searchreplace(text, from, to);
      }));
}

void addMarkup(Operations& all) {
  const std::string marked = "<a href=\"x\">" + plain + " & more</a>";
  all.push_back(of("convertToXmlSpecialCharacters",
                   [marked] { return Tool::convertToXmlSpecialCharacters(marked); }));
  all.push_back(
      of("convertFromXmlSpecialCharacters", [text = Tool::convertToXmlSpecialCharacters(marked)] {
        return Tool::convertFromXmlSpecialCharacters(text);
      }));
  all.push_back(of("xmlBracket", [name = plain] { return Tool::xmlBracket(name, false, true); }));
  all.push_back(of("xmlBracketValue",
                   [name = plain, marked] { return Tool::xmlBracketValue(name, marked); }));
}

void addHexadecimal(Operations& all) {
  std::vector<unsigned char> bytes(100, 0xc3);
  const std::string digits(200, 'c');
  const std::wstring wideDigits(200, L'c');
  const auto stored = [](int result, int size, const std::vector<unsigned char>& room) {
    return words(result) + ", " + words(size) + ": " + words(room);
  };
  all.push_back(
      of("binary2str", [bytes]() mutable { return Tool::binary2str(bytes.data(), 100); }));
  all.push_back(
      of("binary2wstr", [bytes]() mutable { return Tool::binary2wstr(bytes.data(), 100); }));
  all.push_back(
      of("binary2uid", [bytes]() mutable { return Tool::binary2uid(1, bytes.data(), 100); }));
  all.push_back(of("str2uid", [text = umlauts] { return Tool::str2uid(1, text); }));
  all.push_back(of("wstr2uid", [text = asWstr(umlauts)] { return Tool::wstr2uid(1, text); }));
  const auto room = std::make_shared<std::vector<unsigned char>>(100);
  const auto size = std::make_shared<int>();
  all.push_back(function(
      "text: str2binary",
      [digits, room, size] {
        *size = 100;
        return Tool::str2binary(room->data(), size.get(), digits);
      },
      [=](int result) { return stored(result, *size, *room); }));
  all.push_back(function(
      "text: wstr2binary",
      [wideDigits, room, size] {
        *size = 100;
        return Tool::wstr2binary(room->data(), size.get(), wideDigits, false);
      },
      [=](int result) { return stored(result, *size, *room); }));
}

void addTokens(Operations& all) {
  all.push_back(of("tokenize", [text = plain + "|" + umlauts, delimiters = std::string("|")] {
    return Tool::tokenize(text, delimiters);
  }));
  all.push_back(of("isIpAddress",
                   [text = std::string("192.168.100.200")] { return Tool::isIpAddress(text); }));
}

// What a duplicate's caller has to free.
template <class Char>
class Duplicate {
 public:
  explicit Duplicate(Char* text) : m_text(text) {}
  ~Duplicate() { std::free(m_text); }
  Duplicate(const Duplicate&) = delete;
  Duplicate& operator=(const Duplicate&) = delete;
  std::string inWords() const { return words(std::basic_string<Char>(m_text)); }

 private:
  Char* m_text;
};

class List {
 public:
  explicit List(char** list) : m_list(list) {}
  ~List() { Tool::tstrfreelist(m_list); }
  List(const List&) = delete;
  List& operator=(const List&) = delete;
  std::string inWords() const {
    std::string result;
    for (char** text = m_list; text != nullptr && *text != nullptr; ++text) {
      result += words(*text) + "|";
    }
    return m_list == nullptr ? "null" : result;
  }

 private:
  char** m_list;
};

// Never fails, as the duplicates ask of it.
void* allocate(unsigned long size) {
  const Unfailing unfailing;
  return std::malloc(size);
}

void addDuplicates(Operations& all) {
  const auto inWords = [](const auto& duplicate) { return duplicate.inWords(); };
  all.push_back(function(
      "text: strdup", [text = plain] { return Duplicate<char>(Tool::strdup(text, allocate)); },
      inWords));
  all.push_back(function(
      "text: wstrdup",
      [text = asWstr(umlauts)] { return Duplicate<wchar_t>(Tool::wstrdup(text, allocate)); },
      inWords));
  all.push_back(function(
      "text: tstrdup",
      [text = asTstr(umlauts)] { return Duplicate<char>(Tool::tstrdup(text, allocate)); },
      inWords));
  all.push_back(function("text: tstrduplist of none",
                         [list = std::vector<tstr>()] { return List(Tool::tstrduplist(list)); },
                         inWords, {{{Call::malloc, Call::anyMemory}, {"null"}}}));
  // The texts' own malloc must not fail; on purpose nobody looks.
  Operation list = function(
      "text: tstrduplist",
      [list = std::vector<tstr>{asTstr(plain), asTstr(umlauts)}] {
        return List(Tool::tstrduplist(list));
      },
      inWords);
  list.spared = {Call::malloc, Call::anyMemory};
  all.push_back(list);
}

}  // namespace

Operations textOperations() {
  Operations all;
  for (const auto add : {addConversions, addNumbers, addInspections, addSearches, addMarkup,
                         addHexadecimal, addTokens, addDuplicates}) {
    add(all);
  }
  return all;
}

}  // namespace kelp_test
