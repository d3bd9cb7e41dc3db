// A locale of any encoding that the platform can convert.
#pragma once

#include "scratch.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kelp_test {

// Made and set (LC_CTYPE) for as long as a test needs it. Its character map names ASCII only,
// because a whole one takes localedef up to 12 seconds; what converts is the platform's converter
// of that name.
class CharsetLocale {
 public:
  CharsetLocale(const std::string& charset, int longestCharacter) {
    writeFile(m_scratch.path() + "source", "LC_CTYPE\nEND LC_CTYPE\n");
    writeFile(m_scratch.path() + "charmap", asciiMap(charset, longestCharacter));
    const std::string command =
        "cd " + m_scratch.path() + " && localedef -c -i source -f ./charmap ./made";
    // It warns about the missing categories, and its status says so: only setlocale tells.
    [[maybe_unused]] const int status = std::system((command + " >/dev/null 2>&1").c_str());
    setenv("LOCPATH", m_scratch.path().c_str(), 1);
    m_isSet = setlocale(LC_CTYPE, "made") != nullptr;
  }
  ~CharsetLocale() {
    setlocale(LC_CTYPE, "C");
    unsetenv("LOCPATH");
  }
  CharsetLocale(const CharsetLocale&) = delete;
  CharsetLocale& operator=(const CharsetLocale&) = delete;

  // Whether the locale is there, and its converter, which shows at a character of several bytes.
  bool converts(const char* sample, wchar_t character) const {
    wchar_t converted[2] = {};
    return m_isSet && std::mbstowcs(converted, sample, 2) == 1 && converted[0] == character;
  }

 private:
  static std::string asciiMap(const std::string& charset, int longestCharacter) {
    std::string map = "<code_set_name> " + charset + "\n<comment_char> %\n<escape_char> /\n" +
                      "<mb_cur_min> 1\n<mb_cur_max> " + std::to_string(longestCharacter) +
                      "\nCHARMAP\n";
    for (unsigned int c = 0; c < 0x80; ++c) {
      char line[32];
      std::snprintf(line, sizeof line, "<U%04X> /x%02x\n", c, c);
      map += line;
    }
    return map + "END CHARMAP\n";
  }

  ScratchDirectory m_scratch;
  bool m_isSet = false;
};

}  // namespace kelp_test
