// Sends a message as a text, and reads it again.
#include <cmnicumessage.h>
#include <cmnstringtool.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

int main() {
  constexpr int severity = 2;
  auto* const diskFull = new CCmnIcuMessage("MSG_DISK_FULL", severity, __FILE__, __LINE__);
  const CCmnMessagePtr sent(diskFull);
  // Nothing is escaped by itself.
  std::string directory = CCmnStringTool::convertToXmlSpecialCharacters("/home/<all>");
  diskFull->addArgument(CCmnStringTool::str2ustr(directory));
  diskFull->addArgument(3);
  const SCmnMessageInfo* const text = sent->serialize();  // the message's
  std::fputs(text->text, stdout);

  // In another process: all that a reader looks at is the text.
  const CCmnMessagePtr received(new CCmnIcuMessage);
  received->deserialize(text);
  std::printf("%s, severity %d\n", received->getMessageId().c_str(), received->getSeverity());
  const tstr formatted = received->formatMessage("{0} is full; {1} files are waiting.");
  std::puts(CCmnStringTool::convertFromXmlSpecialCharacters(formatted.c_str()).c_str());

  // Without an argument nothing travels, not even the identifier.
  const CCmnMessagePtr bare(new CCmnIcuMessage("MSG_STARTED", 1));
  std::printf("without an argument: \"%s\"\n", bare->serialize()->text);
  return 0;
}
