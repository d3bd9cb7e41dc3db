// A class that traces as soon as its host registers a log.
#include <cmntraceable.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

class Backup : public CCmnTraceable {
 public:
  void save(const char* path) {
    if (m_traceLog) {
      m_traceLog->trace(1, "%s saved", path);
    }
  }
};

int main() {
  Backup backup;
  backup.save("/home/a");  // traced nowhere

  const CCmnTraceLogPtr log = CCmnTraceLogPtr::create();
  log->initialize("diskwatch", "", "", 1, false);
  backup.registerTraceLog(log);
  backup.save("/home/b");
  backup.registerTraceLog(CCmnTraceLogPtr());  // and no more
  backup.save("/home/c");

  // The process has one log, however many holders ask.
  std::printf("%s log\n", CCmnTraceLogPtr::create() == log ? "the same" : "another");
  return 0;
}
