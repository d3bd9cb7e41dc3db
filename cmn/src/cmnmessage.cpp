#include "cmnmessage.h"

namespace kelp_cmn_4_4 {

CCmnMessage::~CCmnMessage() = default;

int CCmnMessage::getSeverity() { return m_severity; }

int CCmnMessage::getLineNumber() { return m_lineNumber; }

std::string CCmnMessage::getFileName() { return m_fileName; }

std::string CCmnMessage::getMessageId() { return m_messageId; }

}  // namespace kelp_cmn_4_4
