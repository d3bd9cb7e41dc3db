// Raises a message and puts it into words in several languages. The message files stand in
// /usr/tulsk/resources/libdiskwatch (see messages/ for the sources).
#include <unicode/locid.h>

#include <cmnicucatalog.h>
#include <cmnicumessage.h>
#include <cmnmsgcatalogmgr.h>

#include <cstdio>
#include <string>

using namespace kelp_cmn_4_4;
using Catalog = CCmnSmartPtr<CCmnMessageCatalog, CCmnNullAllocator<CCmnMessageCatalog>>;
using Message = CCmnSmartPtr<CCmnMessage, CCmnNullAllocator<CCmnMessage>>;

// Says which classes this host uses, and which message files.
class Factory : public CCmnMessageCatalogFactory {
 public:
  Catalog createCatalog(const char* language) override {
    return new CCmnIcuMessageCatalog(language, "diskwatch");
  }

  Message createMessage(const SCmnMessageInfo* info) override {
    Message message(new CCmnIcuMessage);
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
  Message message(diskFull);  // deletes it in the end
  diskFull->addArgument(icu::UnicodeString("/home"));
  diskFull->addArgument(3);
  for (const char* language : {"en", "de", "de_AT", "fr"}) {
    std::printf("%s: %s\n", language, manager.getLocalizedMessage(message, language).c_str());
  }

  // As it travels to another process, and what that one makes of it for its user.
  SCmnMessageInfo* const info = message->serialize();  // the message's
  std::fputs(info->text, stdout);
  manager.setNativeLanguage("de");
  char* text = nullptr;
  manager.getLocalizedMessage(info, "native", &text);
  std::printf("native: %s\n", text);
  manager.deleteLocalizedMessage(&text);  // the text was the manager's

  std::printf("%s\n", manager.getMessage("MSG_UNHEARD_OF", nullptr, "en").c_str());
  return 0;
}
