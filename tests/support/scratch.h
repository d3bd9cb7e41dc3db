// Things that last as long as a test: a directory, a locale, an environment variable.
#pragma once

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace kelp_test {

// A directory of the test's own, removed with all it holds.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kelp_test.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("ScratchDirectory: mkdtemp failed for " + pattern);
    }
    m_path = pattern + "/";
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::string& path() const { return m_path; }  // ends with "/"

 private:
  std::string m_path;
};

// Sets the process locale and puts the old one back.
class ScopedLocale {
 public:
  explicit ScopedLocale(const char* name) : m_old(setlocale(LC_ALL, nullptr)) {
    if (setlocale(LC_ALL, name) == nullptr) {
      throw std::runtime_error(std::string("ScopedLocale: no locale ") + name);
    }
  }
  ~ScopedLocale() { setlocale(LC_ALL, m_old.c_str()); }
  ScopedLocale(const ScopedLocale&) = delete;
  ScopedLocale& operator=(const ScopedLocale&) = delete;

 private:
  std::string m_old;
};

inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!(file << content) || !file.flush()) {
    throw std::runtime_error("writeFile: cannot write " + path);
  }
}

inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

}  // namespace kelp_test
