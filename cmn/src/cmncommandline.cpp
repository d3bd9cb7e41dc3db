#include "cmncommandline.h"

namespace kelp_cmn_4_4 {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool isQuote(char c) { return c == '\'' || c == '"'; }

}  // namespace

const char* skipBlanks(const char* text) {
  while (isBlank(*text)) {
    ++text;
  }
  return text;
}

const char* endOfWord(const char* word) {
  char quote = '\0';
  for (const char* p = word;; ++p) {
    if (*p == '\0') {
      return quote == '\0' ? p : nullptr;
    }
    if (quote != '\0') {
      if (*p == quote) {
        quote = '\0';
      }
    } else if (*p == '\\') {
      if (*++p == '\0') {
        return nullptr;
      }
    } else if (isQuote(*p)) {
      quote = *p;
    } else if (isBlank(*p)) {
      return p;
    }
  }
}

bool decodeArgument(const char* text, int length, char* out) {
  char quote = '\0';
  for (int i = 0; i < length; ++i) {
    const char c = text[i];
    // Deliberate: a backslash within quotes is a byte like others, also before a double quote,
    // unlike a shell's. Quoted words need no second layer of escapes.
    if (quote == '\0' && c == '\\') {
      // Deliberate: without a terminator. The caller gives up the whole vector.
      if (++i == length) {
        return false;
      }
      *out++ = text[i];
    } else if (quote == '\0' && isQuote(c)) {
      quote = c;
    } else if (quote != '\0' && c == quote) {
      quote = '\0';
    } else {
      *out++ = c;
    }
  }
  *out = '\0';
  return true;
}

}  // namespace kelp_cmn_4_4
