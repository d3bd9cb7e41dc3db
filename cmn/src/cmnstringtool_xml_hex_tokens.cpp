// XML escaping, hexadecimal, identifiers and tokens.
#include "cmnbytesum.h"
#include "cmnhexdigits.h"
#include "cmnnumbertext.h"
#include "cmnstringtool.h"
#include "cmntextsearch.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <string_view>

namespace kelp_cmn_4_4 {
namespace {

constexpr char marked[] = {'&', '<', '>', '"', '\''};

// Empty for a character that is written as it is.
std::string_view entityOf(char character) {
  switch (character) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      // Deliberate: not "&apos;", which readers of HTML 4 do not know; nor is that read back.
      return "&#39;";
    default:
      return {};
  }
}

// The character whose entity a text begins with; zero where it begins with none.
char markedOf(std::string_view text) {
  for (const char character : marked) {
    if (text.substr(0, entityOf(character).size()) == entityOf(character)) {
      return character;
    }
  }
  return '\0';
}

// Five quick searches cost less than one look at every byte.
bool holdsMarked(std::string_view text) {
  return std::any_of(std::begin(marked), std::end(marked), [text](char character) {
    return text.find(character) != std::string_view::npos;
  });
}

// Looks at the whole text, so that compilers make vector code of the loop.
bool areHexDigits(const char* text, size_t length) {
  unsigned char others = 0;
  for (size_t i = 0; i < length; ++i) {
    const auto decimal = static_cast<unsigned char>(text[i] - '0');
    const auto letter = static_cast<unsigned char>((text[i] | 0x20) - 'a');  // of either case
    others |= static_cast<unsigned char>((decimal >= 10 ? 1 : 0) & (letter >= 6 ? 1 : 0));
  }
  return others == 0;
}

// Computed, not looked up, for the same reason. Of letters alone bit 6 is set.
unsigned char hexValue(char digit) {
  const auto byte = static_cast<unsigned char>(digit);
  return static_cast<unsigned char>((byte & 0xf) + 9 * (byte >> 6));
}

void readHexDigits(const char* digits, size_t count, unsigned char* bytes) {
  for (size_t i = 0; i < count; ++i) {
    bytes[i] =
        static_cast<unsigned char>(hexValue(digits[2 * i]) << 4 | hexValue(digits[2 * i + 1]));
  }
}

// Deliberate: a pair that is no hexadecimal number is what strtol makes of it, so that one bad pair
// does not cost the caller the others.
void readHexPairs(const char* pairs, size_t count, unsigned char* bytes) {
  for (size_t i = 0; i < count; ++i) {
    const char pair[] = {pairs[2 * i], pairs[2 * i + 1], '\0'};
    if (areHexDigits(pair, 2)) {
      readHexDigits(pair, 1, &bytes[i]);
    } else {
      bytes[i] = static_cast<unsigned char>(std::strtol(pair, nullptr, 16));
    }
  }
}

// What is stored behind the beginning of the text itself is read again as digits.
bool isStoredInto(std::string_view text, const unsigned char* bytes) {
  const auto* const first = reinterpret_cast<const char*>(bytes);
  return std::less<>()(text.data(), first) && std::less<>()(first, text.data() + text.size());
}

// A token begins behind a delimiter.
size_t countTokens(std::string_view text, char delimiter) {
  if (text.empty()) {
    return 0;
  }
  const auto beginsBehind = [text, delimiter](size_t i) {
    return (text[i] == delimiter ? 1 : 0) & (text[i + 1] != delimiter ? 1 : 0);
  };
  return (text[0] != delimiter ? 1U : 0U) + sumInBlocks(text.size() - 1, beginsBehind);
}

size_t countTokens(std::string_view text, const ByteSet& delimiter) {
  size_t count = 0;
  bool inside = false;
  for (const char c : text) {
    const bool wasInside = inside;
    inside = !delimiter.holds(c);
    count += inside && !wasInside ? 1 : 0;
  }
  return count;
}

}  // namespace

std::string CCmnStringTool::convertToXmlSpecialCharacters(const std::string& text) {
  const std::string_view source = text.c_str();
  if (!holdsMarked(source)) {
    return std::string(source);
  }
  std::string result;
  result.reserve(source.size() + source.size() / 2);
  for (const char c : source) {
    const std::string_view entity = entityOf(c);
    if (entity.empty()) {
      result += c;
    } else {
      result += entity;
    }
  }
  return result;
}

// Deliberate: no parser. It knows the five entities that are written above, and what else looks
// like one belongs to the text.
std::string CCmnStringTool::convertFromXmlSpecialCharacters(const std::string& text) {
  std::string_view rest = text.c_str();
  std::string result;
  result.reserve(rest.size());
  for (size_t next = rest.find('&'); next != std::string_view::npos; next = rest.find('&')) {
    result += rest.substr(0, next);
    rest.remove_prefix(next);
    const char character = markedOf(rest);
    result += character == '\0' ? '&' : character;
    rest.remove_prefix(character == '\0' ? 1 : entityOf(character).size());
  }
  result += rest;
  return result;
}

std::string CCmnStringTool::xmlBracket(std::string name, bool open, bool newline) {
  return (open ? "<" : "</") + name + (newline ? ">\n" : ">");
}

std::string CCmnStringTool::xmlBracketValue(std::string name, std::string value) {
  return "\t" + xmlBracket(name, true, false) + convertToXmlSpecialCharacters(value) +
         xmlBracket(name, false, true);
}

// NOLINTNEXTLINE(readability-non-const-parameter): hosts are compiled against it
std::string CCmnStringTool::binary2str(unsigned char* data, int count) {
  if (count < 1) {
    return std::string();
  }
  std::string result(2 * static_cast<size_t>(count), '\0');
  writeHexDigits(data, static_cast<size_t>(count), result.data());
  return result;
}

std::wstring CCmnStringTool::binary2wstr(unsigned char* data, int count) {
  return str2wstr(binary2str(data, count));
}

int CCmnStringTool::str2binary(unsigned char* out, int* size, const std::string& hex) {
  // As long, which is wide enough: as int, half of 4 GiB is negative.
  if (*size < static_cast<long>(hex.length() / 2)) {
    return -1;
  }
  // Deliberate: an empty text throws, with that byte stored. After a status of 0 callers would take
  // what `out` held before for the result.
  if (hex.empty()) {
    *out = 0;
    static_cast<void>(hex.substr(2));
  }
  const char* const digits = hex.data();
  // Deliberate: the last digit of an odd number is dropped, as half a byte is none.
  const size_t count = hex.length() / 2;
  const bool areAllDigits = !isStoredInto(hex, out) && areHexDigits(digits, 2 * count);
  (areAllDigits ? readHexDigits : readHexPairs)(digits, count, out);
  *size = static_cast<int>(count);
  return 0;
}

// Deliberate: the flag means nothing. Hosts are compiled against it.
int CCmnStringTool::wstr2binary(unsigned char* out, int* size, std::wstring hex, bool /*ignored*/) {
  return str2binary(out, size, wstr2str(hex));
}

std::string CCmnStringTool::str2uid(unsigned int type, const std::string& bytes) {
  std::string result = formatted<64>("%04x", type);
  for (const char byte : bytes) {
    // Deliberate: widened with its sign, unlike the bytes of binary2uid(). Identifiers are kept and
    // compared as texts, and in another form they are not found again.
    result += formatted<64>("%02x", static_cast<int>(static_cast<signed char>(byte)));
  }
  return result;
}

std::string CCmnStringTool::wstr2uid(unsigned int type, const std::wstring& bytes) {
  return str2uid(type, wstr2str(bytes));
}

std::wstring CCmnStringTool::binary2uid(unsigned int type, unsigned char* data, int count) {
  return str2wstr(formatted<64>("%04x", type)) + binary2wstr(data, count);
}

// Deliberate: no empty tokens, as strtok gives none: hosts split lists with blanks and doubled
// separators in them.
std::vector<std::string> CCmnStringTool::tokenize(const std::string& text,
                                                  const std::string& delimiters) {
  const ByteSet delimiter(delimiters.c_str());
  const std::string_view source = text.c_str();
  std::vector<std::string> tokens;
  const bool isOne = delimiters.size() == 1;
  tokens.reserve(isOne ? countTokens(source, delimiters[0]) : countTokens(source, delimiter));
  std::string_view rest = source.substr(delimiter.leading(source));
  while (!rest.empty()) {
    const size_t length = delimiter.leadingOthers(rest);
    tokens.emplace_back(rest.substr(0, length));
    rest.remove_prefix(length);
    rest.remove_prefix(delimiter.leading(rest));
  }
  return tokens;
}

// Deliberate: looks at the shape alone, so that "999.1.1.1" and "1..2.3.4" pass. Whether there is
// such an address is for the resolver to say.
bool CCmnStringTool::isIpAddress(const std::string& text) {
  const std::vector<std::string> tokens = tokenize(text, ".");
  return tokens.size() == 4 && std::all_of(tokens.begin(), tokens.end(), isDigit);
}

}  // namespace kelp_cmn_4_4
