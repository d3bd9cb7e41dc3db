#include "cmntraceable.h"

#include "install_root.h"
#include "scratch.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using kelp_cmn_4_4::CCmnTraceable;
using kelp_cmn_4_4::CCmnTraceLog;
using kelp_cmn_4_4::CCmnTraceLogPtr;

class Worker : public CCmnTraceable {
 public:
  const CCmnTraceLogPtr& log() const { return m_traceLog; }
  CCmnTraceLogPtr& log() { return m_traceLog; }
  bool work() {
    if (m_traceLog) {
      m_traceLog->trace(1, "worked %d", 7);
      return true;
    }
    return false;
  }
};

class WatchedLog : public CCmnTraceLog {
 public:
  explicit WatchedLog(bool& destroyed) : m_destroyed(destroyed) {}
  ~WatchedLog() override { m_destroyed = true; }

 private:
  bool& m_destroyed;
};

TEST(Traceable, HoldsNoLogAtFirst) {
  Worker worker;
  EXPECT_FALSE(worker.log());
  EXPECT_FALSE(worker.work());
}

TEST(Traceable, TakesAShareInARegisteredLog) {
  const CCmnTraceLogPtr log(new CCmnTraceLog);
  {
    Worker worker;
    worker.registerTraceLog(log);
    EXPECT_EQ(worker.log(), log);
    EXPECT_EQ(log->getCount(), 2);
    Worker other;
    other.registerTraceLog(log);
    EXPECT_EQ(log->getCount(), 3);
  }
  EXPECT_EQ(log->getCount(), 1) << "destruction gives the shares up";
}

TEST(Traceable, TheLastShareDestroysTheLog) {
  bool destroyed = false;
  {
    Worker worker;
    worker.registerTraceLog(CCmnTraceLogPtr(new WatchedLog(destroyed)));
    EXPECT_EQ(worker.log()->getCount(), 1);
    EXPECT_FALSE(destroyed);
  }
  EXPECT_TRUE(destroyed);
}

TEST(Traceable, DestructionThroughTheBaseGivesTheShareUp) {
  const CCmnTraceLogPtr log(new CCmnTraceLog);
  std::unique_ptr<CCmnTraceable> worker = std::make_unique<Worker>();
  worker->registerTraceLog(log);
  EXPECT_EQ(log->getCount(), 2);
  worker.reset();
  EXPECT_EQ(log->getCount(), 1);
}

TEST(Traceable, AnotherLogReplacesTheOldOne) {
  bool firstDestroyed = false;
  const CCmnTraceLogPtr second(new CCmnTraceLog);
  Worker worker;
  worker.registerTraceLog(CCmnTraceLogPtr(new WatchedLog(firstDestroyed)));
  worker.registerTraceLog(second);
  EXPECT_TRUE(firstDestroyed);
  EXPECT_EQ(worker.log(), second);
  EXPECT_EQ(second->getCount(), 2);
}

TEST(Traceable, AnEmptyHolderEndsTracing) {
  const CCmnTraceLogPtr log(new CCmnTraceLog);
  Worker worker;
  worker.registerTraceLog(log);
  worker.registerTraceLog(CCmnTraceLogPtr());
  EXPECT_FALSE(worker.log());
  EXPECT_FALSE(worker.work());
  EXPECT_EQ(log->getCount(), 1);
  worker.registerTraceLog(CCmnTraceLogPtr());
  EXPECT_FALSE(worker.log());
}

TEST(Traceable, RegisteringItsOwnHolderChangesNothing) {
  bool destroyed = false;
  Worker worker;
  worker.registerTraceLog(CCmnTraceLogPtr(new WatchedLog(destroyed)));
  worker.registerTraceLog(worker.log());
  EXPECT_FALSE(destroyed);
  ASSERT_TRUE(worker.log());
  EXPECT_EQ(worker.log()->getCount(), 1);
}

TEST(Traceable, RegisteringTheSameLogAgainKeepsTheCount) {
  const CCmnTraceLogPtr log(new CCmnTraceLog);
  const CCmnTraceLogPtr again(log);
  Worker worker;
  worker.registerTraceLog(log);
  worker.registerTraceLog(again);
  EXPECT_EQ(worker.log(), log);
  EXPECT_EQ(log->getCount(), 3);
}

TEST(Traceable, TheProcesssOneLogServesAllWorkers) {
  Worker first;
  Worker second;
  first.registerTraceLog(CCmnTraceLogPtr::create());
  second.registerTraceLog(CCmnTraceLogPtr::create());
  EXPECT_EQ(first.log(), second.log());
  EXPECT_EQ(first.log()->getCount(), 2);
}

TEST(Traceable, RegisteringCanBeOverridden) {
  class Refusing : public Worker {
   public:
    void registerTraceLog(const CCmnTraceLogPtr& /*log*/) override {}
  };
  const CCmnTraceLogPtr log(new CCmnTraceLog);
  Refusing refusing;
  CCmnTraceable& base = refusing;
  base.registerTraceLog(log);
  EXPECT_FALSE(refusing.log());
}

TEST(Traceable, WritesThroughItsLog) {
  const kelp_test::InstallRoot root;
  kelp_test::InstallRoot::makeProductTree();
  const CCmnTraceLogPtr log(new CCmnTraceLog);
  log->initialize("vault", "", "", 1, false);
  Worker worker;
  worker.registerTraceLog(log);
  EXPECT_TRUE(worker.work());
  const std::string traced =
      kelp_test::readFile(kelp_test::InstallRoot::traceDir + std::string("vault.log"));
  EXPECT_EQ(traced.substr(traced.find("worked")), "worked 7\n");
}

}  // namespace
