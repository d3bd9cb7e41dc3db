// A locale that writes numbers with a comma.
#pragma once

#include "scratch.h"

#include <clocale>
#include <cstdlib>
#include <string>

namespace kelp_test {

// Made and set (LC_NUMERIC) for as long as a test needs it. A machine without localedef has none.
class CommaLocale {
 public:
  CommaLocale() {
    writeFile(m_scratch.path() + "source",
              "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\n"
              "END LC_NUMERIC\n");
    const std::string command = "cd " + m_scratch.path() + " && localedef -c -i source ./comma";
    // It warns about the missing categories, and its status says so: only setlocale tells.
    [[maybe_unused]] const int status = std::system((command + " >/dev/null 2>&1").c_str());
    setenv("LOCPATH", m_scratch.path().c_str(), 1);
    m_isSet = setlocale(LC_NUMERIC, "comma") != nullptr;
  }
  ~CommaLocale() {
    setlocale(LC_NUMERIC, "C");
    unsetenv("LOCPATH");
  }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  bool isSet() const { return m_isSet; }

 private:
  ScratchDirectory m_scratch;
  bool m_isSet = false;
};

}  // namespace kelp_test
