// Locales of a test's own, for what the few that every machine has do not show.
#pragma once

#include "scratch.h"

#include <iconv.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kelp_test {

// Compiled and set in one category for as long as a test needs it. A machine without
// localedef has none.
class MadeLocale {
 public:
  MadeLocale(int category, const std::string& source, const std::string& charmap = "")
      : m_category(category) {
    writeFile(m_scratch.path() + "source", source);
    std::string command = "cd " + m_scratch.path() + " && localedef -c -i source";
    if (!charmap.empty()) {
      writeFile(m_scratch.path() + "charmap", charmap);
      command += " -f ./charmap";
    }
    // It warns about the missing categories, and its status says so: only setlocale tells.
    [[maybe_unused]] const int status = std::system((command + " ./made >/dev/null 2>&1").c_str());
    setenv("LOCPATH", m_scratch.path().c_str(), 1);
    m_isSet = setlocale(category, "made") != nullptr;
  }
  ~MadeLocale() {
    setlocale(m_category, "C");
    unsetenv("LOCPATH");
  }
  MadeLocale(const MadeLocale&) = delete;
  MadeLocale& operator=(const MadeLocale&) = delete;

  bool isSet() const { return m_isSet; }

 private:
  ScratchDirectory m_scratch;
  int m_category;
  bool m_isSet = false;
};

// One character in an encoding; empty where it has none.
inline std::string encoded(wchar_t character, const std::string& charset) {
  char bytes[16];
  char* in = reinterpret_cast<char*>(&character);
  char* out = bytes;
  size_t inLeft = sizeof character;
  size_t outLeft = sizeof bytes;
  iconv_t converter = iconv_open(charset.c_str(), "WCHAR_T");
  const bool converted = iconv(converter, &in, &inLeft, &out, &outLeft) == 0;
  iconv_close(converter);
  return converted ? std::string(bytes, out) : std::string();
}

// A character map of ASCII and some further characters, because a whole one takes localedef up to
// 12 seconds. What converts is the platform's converter of that name.
inline std::string charmapOf(const std::string& charset, int longestCharacter,
                             const std::wstring& more = L"") {
  std::string map = "<code_set_name> " + charset + "\n<comment_char> %\n<escape_char> /\n" +
                    "<mb_cur_min> 1\n<mb_cur_max> " + std::to_string(longestCharacter) +
                    "\nCHARMAP\n";
  char field[32];
  const auto add = [&](wchar_t character, const std::string& bytes) {
    std::snprintf(field, sizeof field, "<U%04X> ", static_cast<unsigned int>(character));
    map += field;
    for (const char byte : bytes) {
      std::snprintf(field, sizeof field, "/x%02x", static_cast<unsigned char>(byte));
      map += field;
    }
    map += '\n';
  };
  for (wchar_t c = 0; c < 0x80; ++c) {
    add(c, std::string(1, static_cast<char>(c)));
  }
  for (const wchar_t c : more) {
    const std::string bytes = encoded(c, charset);
    if (!bytes.empty()) {
      add(c, bytes);
    }
  }
  return map + "END CHARMAP\n";
}

}  // namespace kelp_test
