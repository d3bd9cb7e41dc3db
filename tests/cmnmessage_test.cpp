#include "cmnmessage.h"

#include "cmnsmartptr.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

using kelp_cmn_4_4::CCmnMessage;
using kelp_cmn_4_4::CCmnMessagePtr;
using kelp_cmn_4_4::CCmnRefCount;
using kelp_cmn_4_4::SCmnMessageInfo;
using kelp_cmn_4_4::tstr;

// What a message must have, and no more; counts its ends.
class PlainMessage : public CCmnMessage {
 public:
  using CCmnMessage::CCmnMessage;
  PlainMessage(const char* messageId, int* ends)
      : CCmnMessage(messageId, 1, "file", 2), m_ends(ends) {}
  ~PlainMessage() override {
    if (m_ends != nullptr) {
      ++*m_ends;
    }
  }
  SCmnMessageInfo* serialize() override { return nullptr; }
  void deserialize(const SCmnMessageInfo* /*info*/) override {}
  tstr formatMessage(tstr pattern) override { return pattern; }

  void set(const std::string& messageId, int severity, const std::string& fileName,
           int lineNumber) {
    m_messageId = messageId;
    m_severity = severity;
    m_fileName = fileName;
    m_lineNumber = lineNumber;
  }

 private:
  int* m_ends = nullptr;
};

class OverridingMessage : public PlainMessage {
 public:
  OverridingMessage() : PlainMessage("id", 1, "file", 2) {}
  int getSeverity() override { return 10; }
  int getLineNumber() override { return 20; }
  std::string getFileName() override { return "overridden file"; }
  std::string getMessageId() override { return "overridden id"; }
};

void expectFields(CCmnMessage& message, const std::string& messageId, int severity,
                  const std::string& fileName, int lineNumber) {
  EXPECT_EQ(message.getMessageId(), messageId);
  EXPECT_EQ(message.getSeverity(), severity);
  EXPECT_EQ(message.getFileName(), fileName);
  EXPECT_EQ(message.getLineNumber(), lineNumber);
}

TEST(Message, HoldsWhatItIsMadeOf) {
  const std::string zeroInside("a\0b", 3);
  const struct {
    std::string messageId;
    int severity;
    std::string fileName;
    int lineNumber;
  } rows[] = {
      {"MSG_OPEN_FAILED", 2, "open.cpp", 42},
      {"", 0, "", 0},
      {"id", INT_MIN, "file", INT_MAX},
      {"id", INT_MAX, "file", INT_MIN},
      {"id", -1, "file", -2},
      {zeroInside, 1, zeroInside + "c", 2},
      {std::string(5000, 'i'), 1, std::string(6000, 'f'), 2},
  };
  for (const auto& row : rows) {
    PlainMessage message(row.messageId, row.severity, row.fileName, row.lineNumber);
    expectFields(message, row.messageId, row.severity, row.fileName, row.lineNumber);
  }
}

TEST(Message, TellsWhatItsFieldsHoldNow) {
  PlainMessage message("id", 1, "file", 2);
  message.set("other id", 3, "other file", 4);
  expectFields(message, "other id", 3, "other file", 4);
}

TEST(Message, GivesOutCopies) {
  PlainMessage message("id", 1, "file", 2);
  const std::string messageId = message.getMessageId();
  const std::string fileName = message.getFileName();
  message.getMessageId() += "!";
  message.getFileName() += "!";
  message.set("other id", 1, "other file", 2);
  EXPECT_EQ(messageId, "id");
  EXPECT_EQ(fileName, "file");
  expectFields(message, "other id", 1, "other file", 2);
}

TEST(Message, AsksTheDerivedClassForEveryValue) {
  OverridingMessage message;
  expectFields(message, "overridden id", 10, "overridden file", 20);
}

TEST(Message, IsCountedFromNobody) {
  PlainMessage message("id", 1, "file", 2);
  EXPECT_EQ(message.getCount(), 0);
  EXPECT_EQ(message.increment(), 1);
  EXPECT_EQ(message.decrement(), 0);
}

TEST(Message, EndsWithItsLastHolder) {
  int ends = 0;
  auto* message = new PlainMessage("id", &ends);
  {
    CCmnMessagePtr first(message);
    {
      const CCmnMessagePtr second(message);
      EXPECT_TRUE(second == first);
      EXPECT_EQ(message->getCount(), 2);
    }
    EXPECT_EQ(ends, 0);
    expectFields(*first, "id", 1, "file", 2);
  }
  EXPECT_EQ(ends, 1);
}

TEST(Message, EndsThroughItsBase) {
  int ends = 0;
  CCmnRefCount* const counted = new PlainMessage("id", &ends);
  delete counted;
  EXPECT_EQ(ends, 1);
}

}  // namespace
