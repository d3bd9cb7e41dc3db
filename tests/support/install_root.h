// The library's fixed install root, as long as a test needs it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace kelp_test {

// An install root of the test's own, empty of everything at first: not even "/usr/tulsk" exists.
// Removed with all it holds. Works in the private view only, so that the machine's own /usr is
// never written.
class InstallRoot {
 public:
  InstallRoot() {
    if (std::getenv("KELP_PRIVATE_VIEW") == nullptr) {
      throw std::runtime_error(
          "this test writes /usr/tulsk: run it through tests/support/private_view");
    }
    std::filesystem::remove_all(path);
  }
  ~InstallRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  InstallRoot(const InstallRoot&) = delete;
  InstallRoot& operator=(const InstallRoot&) = delete;

  // The directories that an installed host product has. The three that the library creates itself
  // are missing.
  static void makeProductTree() {
    std::filesystem::create_directories("/usr/tulsk/krellvane/logs");
    std::filesystem::create_directories("/usr/tulsk/lib/kelp");
  }
  // The same, with the directory of settings, for a test that puts a file there.
  static void makeConfigDir() {
    makeProductTree();
    std::filesystem::create_directories(configDir);
  }

  static constexpr const char* path = "/usr/tulsk";
  static constexpr const char* resourceDir = "/usr/tulsk/resources/";
  static constexpr const char* configDir = "/usr/tulsk/lib/kelp/configfiles/";
  static constexpr const char* traceDir = "/usr/tulsk/krellvane/logs/zorvt/";
  static constexpr const char* productConfig = "/usr/tulsk/krellvane/rk.conf";
};

}  // namespace kelp_test
