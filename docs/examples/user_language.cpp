// Puts a message into the user's language. The message files stand in /usr/tulsk/resources.
#include <unicode/locid.h>

#include <cmnicucatalog.h>
#include <cmnicumessage.h>
#include <cmnmsgcatalogmgr.h>

#include <cstdio>
#include <string>

using namespace kelp_cmn_4_4;

// Says which classes this host uses, and which message files.
class Factory : public CCmnMessageCatalogFactory {
 public:
  CCmnMessageCatalogPtr createCatalog(const char* language) override {
    return new CCmnIcuMessageCatalog(language, "diskwatch");
  }

  CCmnMessagePtr createMessage(const SCmnMessageInfo* info) override {
    CCmnMessagePtr message(new CCmnIcuMessage);
    message->deserialize(info);
    return message;
  }

  std::string getDefaultLanguage() override { return "en"; }
};

int main() {
  // What the patterns' numbers and plurals follow, and what ICU takes for a language without files.
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale::setDefault(icu::Locale::getEnglish(), status);

  Factory factory;  // must outlive the manager
  CCmnMessageCatalogManager manager;
  manager.registerFactory(&factory);

  constexpr int severity = 2;
  auto* const diskFull = new CCmnIcuMessage("MSG_DISK_FULL", severity, __FILE__, __LINE__);
  CCmnMessagePtr message(diskFull);  // deletes it in the end
  diskFull->addArgument(icu::UnicodeString("/home"));
  diskFull->addArgument(3);
  for (const char* language : {"en", "de", "de_AT", "fr"}) {
    std::printf("%s: %s\n", language, manager.getLocalizedMessage(message, language).c_str());
  }

  // A pattern alone; of one that is not there, the fall-back.
  std::printf("%s\n", manager.getMessage("MSG_DISK_FULL", nullptr, "de").c_str());
  std::printf("%s\n", manager.getMessage("MSG_UNHEARD_OF", nullptr, "en").c_str());
  return 0;
}
