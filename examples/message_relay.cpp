// Two processes: one raises a message and sends it through a pipe, the other puts it into words in
// the languages that its command line names.
#include <unicode/locid.h>

#include <cmnicucatalog.h>
#include <cmnicumessage.h>
#include <cmnmsgcatalogmgr.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

using namespace kelp_cmn_4_4;

constexpr int wrongUsage = 64;  // EX_USAGE of <sysexits.h>

// Says which classes this host uses, and which message files.
class Factory : public CCmnMessageCatalogFactory {
 public:
  CCmnSmartPtr<CCmnMessageCatalog, CCmnNullAllocator<CCmnMessageCatalog>> createCatalog(
      const char* language) override {
    return new CCmnIcuMessageCatalog(language, "message_relay");
  }

  CCmnSmartPtr<CCmnMessage, CCmnNullAllocator<CCmnMessage>> createMessage(
      const SCmnMessageInfo* info) override {
    const CCmnSmartPtr<CCmnMessage, CCmnNullAllocator<CCmnMessage>> message(new CCmnIcuMessage);
    message->deserialize(info);
    return message;
  }

  std::string getDefaultLanguage() override { return "en"; }
};

// What the program that knows what happened does. It knows nothing of languages.
bool raiseMessage(int pipeEnd) {
  constexpr int severity = 1;
  // Milliseconds since 1970: 1 March 2026, 13:00 UTC. Serialized numbers keep six digits.
  constexpr double endOfBackup = 1.77237e12;
  CCmnIcuMessage message("MSG_BACKUP_ENDED", severity, __FILE__, __LINE__);
  message.addArgument(icu::UnicodeString("/home"));
  message.addArgument(12345);
  message.addArgument(7.5);
  message.addArgument(icu::Formattable(endOfBackup, icu::Formattable::kIsDate));

  const SCmnMessageInfo* const info = message.serialize();
  // So short a text fits into a pipe at once.
  return write(pipeEnd, info->text, static_cast<size_t>(info->length)) == info->length;
}

std::string readAll(int pipeEnd) {
  std::string text;
  char buffer[512];
  for (ssize_t count = 0; (count = read(pipeEnd, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<size_t>(count));
  }
  return text;
}

void printIn(const char* language, SCmnMessageInfo& info, CCmnMessageCatalogManager& manager) {
  // The pattern comes in the language asked for, but ICU writes the numbers, dates and plurals in
  // it as its default locale does.
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale::setDefault(icu::Locale(language), status);
  char* text = nullptr;
  manager.getLocalizedMessage(&info, language, &text);
  std::printf("%s: %s\n", language, text);
  manager.deleteLocalizedMessage(&text);
}

int relay(std::string text, char** languages) {
  std::fprintf(stderr, "received:\n%s", text.c_str());
  Factory factory;
  CCmnMessageCatalogManager manager;
  manager.registerFactory(&factory);
  SCmnMessageInfo info = {text.data(), static_cast<int>(text.length())};
  try {
    for (char** language = languages; *language != nullptr; ++language) {
      printIn(*language, info, manager);
    }
  } catch (const std::out_of_range&) {  // somebody else wrote into our pipe
    std::fputs("message_relay: what arrived is not a whole message\n", stderr);
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: message_relay LANGUAGE …\n", stderr);
    return wrongUsage;
  }
  int ends[2];
  if (pipe(ends) != 0) {
    std::perror("message_relay: pipe");
    return 1;
  }
  const pid_t raiser = fork();
  if (raiser == -1) {
    std::perror("message_relay: fork");
    return 1;
  }
  if (raiser == 0) {
    _exit(raiseMessage(ends[1]) ? 0 : 1);
  }
  close(ends[1]);
  const std::string text = readAll(ends[0]);
  int exitStatus = 0;
  if (waitpid(raiser, &exitStatus, 0) != raiser || exitStatus != 0) {
    std::fputs("message_relay: the message could not be sent\n", stderr);
    return 1;
  }
  return relay(text, argv + 1);
}
