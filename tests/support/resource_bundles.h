// Compiled message files in the library's fixed install root, and what hosts read them with.
#pragma once

#include "cmnicucatalog.h"
#include "cmnicumessage.h"
#include "cmnmsgcatalogmgr.h"
#include "install_root.h"

#include <unicode/locid.h>
#include <unicode/uclean.h>

#include <filesystem>
#include <ostream>
#include <string>

namespace kelp_test {

// ICU's process-wide state, as long as a test needs it: a default locale, and an empty cache of
// bundles before and after, since ICU otherwise remembers what was and was not there. No ICU object
// of the test may outlive it.
class ScopedIcu {
 public:
  explicit ScopedIcu(const char* defaultLocale) {
    u_cleanup();
    setDefaultLocale(defaultLocale);
  }
  ~ScopedIcu() { u_cleanup(); }
  ScopedIcu(const ScopedIcu&) = delete;
  ScopedIcu& operator=(const ScopedIcu&) = delete;

  static void setDefaultLocale(const char* name) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale(name), status);
  }
};

enum class BundleForm { directory, package };

inline void PrintTo(BundleForm form, std::ostream* out) {
  *out << (form == BundleForm::directory ? "directory" : "package");
}

// Installs one of the bundles of tests/resources under its own name.
inline void installBundle(const std::string& name, BundleForm form) {
  const std::filesystem::path file = "lib" + name + (form == BundleForm::package ? ".dat" : "");
  std::filesystem::create_directories(InstallRoot::resourceDir);
  std::filesystem::copy(std::filesystem::path(KELP_TEST_RESOURCES) / file,
                        InstallRoot::resourceDir / file, std::filesystem::copy_options::recursive);
}

// A host's factory for the bundle "messages".
class IcuFactory : public kelp_cmn_4_4::CCmnMessageCatalogFactory {
 public:
  template <class Class>
  using Holder = kelp_cmn_4_4::CCmnSmartPtr<Class, kelp_cmn_4_4::CCmnNullAllocator<Class>>;

  Holder<kelp_cmn_4_4::CCmnMessageCatalog> createCatalog(const char* language) override {
    return new kelp_cmn_4_4::CCmnIcuMessageCatalog(language, "messages");
  }
  Holder<kelp_cmn_4_4::CCmnMessage> createMessage(
      const kelp_cmn_4_4::SCmnMessageInfo* info) override {
    Holder<kelp_cmn_4_4::CCmnMessage> message(new kelp_cmn_4_4::CCmnIcuMessage);
    message->deserialize(info);
    return message;
  }
  std::string getDefaultLanguage() override { return "en"; }
};

}  // namespace kelp_test
