// Two processes: one raises a message and sends it through a pipe, the other puts it into words in
// the languages that its command line names. The message files stand in
// /usr/tulsk/resources/libmessage_relay (see message_relay/ for the sources).
#include <unicode/locid.h>

#include <cmnicucatalog.h>
#include <cmnicumessage.h>
#include <cmnmsgcatalogmgr.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnIcuMessage;
using kelp_cmn_4_4::CCmnIcuMessageCatalog;
using kelp_cmn_4_4::CCmnMessageCatalogFactory;
using kelp_cmn_4_4::CCmnMessageCatalogManager;
using kelp_cmn_4_4::CCmnMessageCatalogPtr;
using kelp_cmn_4_4::CCmnMessagePtr;
using kelp_cmn_4_4::SCmnMessageInfo;

constexpr int wrongUsage = 64;  // EX_USAGE of <sysexits.h>

// Says which classes this host uses, and which message files.
class Factory : public CCmnMessageCatalogFactory {
 public:
  CCmnMessageCatalogPtr createCatalog(const char* language) override {
    return new CCmnIcuMessageCatalog(language, "message_relay");
  }

  CCmnMessagePtr createMessage(const SCmnMessageInfo* info) override {
    CCmnMessagePtr message(new CCmnIcuMessage);
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
  // So short a text goes into a pipe at once, or not at all.
  return write(pipeEnd, info->text, static_cast<size_t>(info->length)) == info->length;
}

bool readAll(int pipeEnd, std::string& text) {
  char buffer[512];
  for (;;) {
    const ssize_t count = read(pipeEnd, buffer, sizeof buffer);
    if (count > 0) {
      text.append(buffer, static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return count == 0;
    }
  }
}

void printIn(const std::string& language, SCmnMessageInfo& info,
             CCmnMessageCatalogManager& manager) {
  // The pattern comes in the language asked for, but ICU writes the numbers, dates and plurals in
  // it as its default locale does. That one is the process's: no other thread may be formatting.
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale::setDefault(icu::Locale(language.c_str()), status);
  char* text = nullptr;
  manager.getLocalizedMessage(&info, language.c_str(), &text);
  std::printf("%s: %s\n", language.c_str(), text);
  manager.deleteLocalizedMessage(&text);
}

void relay(std::string text, const std::vector<std::string>& languages) {
  std::fprintf(stderr, "received:\n%s", text.c_str());
  Factory factory;
  CCmnMessageCatalogManager manager;
  manager.registerFactory(&factory);
  SCmnMessageInfo info = {text.data(), static_cast<int>(text.length())};
  for (const std::string& language : languages) {
    printIn(language, info, manager);
  }
}

// Empty if it did not arrive. Where the writer could be interrupted half-way, a host would send the
// length first: a text that is cut off is not always noticed.
std::string sendAndReceive() {
  int ends[2];
  if (pipe(ends) != 0) {
    return std::string();
  }
  const pid_t raiser = fork();
  if (raiser == 0) {
    close(ends[0]);
    _exit(raiseMessage(ends[1]) ? 0 : 1);
  }
  close(ends[1]);
  std::string text;
  const bool isRead = raiser != -1 && readAll(ends[0], text);
  close(ends[0]);
  int exitStatus = 0;
  const bool isSent = raiser != -1 && waitpid(raiser, &exitStatus, 0) == raiser && exitStatus == 0;
  return isRead && isSent ? text : std::string();
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> languages(argv + 1, argv + argc);
  bool isUsable = !languages.empty();
  for (const std::string& language : languages) {
    isUsable = isUsable && !language.empty() && language[0] != '-';
  }
  if (!isUsable) {
    std::fputs("usage: message_relay LANGUAGE …\n", stderr);
    return wrongUsage;
  }
  const std::string text = sendAndReceive();
  if (text.empty()) {
    std::fputs("message_relay: the message did not arrive\n", stderr);
    return 1;
  }
  relay(text, languages);
  return 0;
}
