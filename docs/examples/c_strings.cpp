// Hands texts in the user's language to a caller that takes C strings.
#include <cmnicucatalog.h>
#include <cmnicumessage.h>
#include <cmnmsgcatalogmgr.h>

#include <cstdio>
#include <string>

using namespace kelp_cmn_4_4;

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
  Factory factory;
  CCmnMessageCatalogManager manager;
  manager.registerFactory(&factory);
  manager.setNativeLanguage("de");

  // As it came from another process.
  char received[] =
      "<SERIALIZED_MESSAGE MSGID=MSG_DISK_FULL SEVERITY=2>\n"
      "\t<ARGVALUE INDEX=0 TYPE=3>/home</ARGVALUE>\n"
      "\t<ARGVALUE INDEX=1 TYPE=2>3</ARGVALUE>\n"
      "</SERIALIZED_MESSAGE>\n";
  SCmnMessageInfo info = {received, static_cast<int>(sizeof received - 1)};
  char* text = nullptr;
  manager.getLocalizedMessage(&info, "native", &text);
  std::puts(text);
  manager.deleteLocalizedMessage(&text);  // the text was the manager's
  return 0;
}
