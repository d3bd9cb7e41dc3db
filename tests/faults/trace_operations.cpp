// The trace log.
#include "cmntraceable.h"
#include "cmntracelog.h"
#include "install_root.h"
#include "job.h"
#include "scratch.h"
#include "words.h"

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

namespace kelp_test {
namespace {

using kelp_cmn_4_4::CCmnTraceLog;
using kelp_cmn_4_4::tstr;

constexpr char configPath[] = "/usr/tulsk/lib/kelp/configfiles/vault.conf";
constexpr char tracePath[] = "/usr/tulsk/krellvane/logs/zorvt/vault.log";
constexpr char otherPath[] = "/usr/tulsk/krellvane/logs/other.log";

std::shared_ptr<void> installRoot() {
  const auto root = std::make_shared<InstallRoot>();
  InstallRoot::makeConfigDir();
  writeFile(InstallRoot::productConfig, "# nothing\nVERBOSE=9\n");
  return root;
}

void beginAnew() {
  for (const char* path : {configPath, tracePath, otherPath}) {
    unlink(path);
  }
}

// The messages in a trace file, without their times.
std::string messagesIn(const std::string& path) {
  std::string messages;
  if (!std::filesystem::is_regular_file(path)) {
    return messages;
  }
  std::istringstream lines(readFile(path));
  for (std::string line; std::getline(lines, line);) {
    constexpr size_t timeLength = 27;
    messages += line.size() < timeLength ? "(cut)" : line.substr(timeLength);
    messages += "|";
  }
  return messages;
}

std::string inWords(CCmnTraceLog& log) {
  return (log.isInitialized() ? "initialized, " : "not initialized, ") +
         words(log.getTraceLevel()) + ", " + words(log.getTracePath());
}

const char* const dirs[] = {"", "/usr/tulsk/krellvane/logs/"};
const char* const files[] = {"", "other.log"};

// Where nothing is configured yet; by the defaults, or with a place of the caller's.
template <int place>
class Initializing : public Job {
 public:
  void run() override {
    beginAnew();
    m_log.reset();
    m_log.emplace();
    m_log->initialize(m_component, m_dir, m_file, 3, false);
  }
  std::string outcome() override {
    const std::string result = inWords(*m_log);
    m_log->trace(1, "a line");
    return result + ", " + messagesIn(words(m_log->getTracePath()));
  }

 private:
  const tstr m_component{"vault"};
  const tstr m_dir{dirs[place]};
  const tstr m_file{files[place]};
  std::optional<CCmnTraceLog> m_log;
};

// A log that is set up.
class LogJob : public Job {
 protected:
  LogJob() {
    beginAnew();
    m_log.initialize("vault", "", "", 3, false);
  }
  CCmnTraceLog m_log;
};

class InitializingAgain : public LogJob {
 public:
  void run() override { m_log.initialize(m_component, m_empty, m_empty, 3, false); }
  std::string outcome() override { return inWords(m_log); }

 private:
  const tstr m_component{"vault"};
  const tstr m_empty;
};

class Tracing : public LogJob {
 public:
  void run() override {
    unlink(tracePath);
    m_log.trace(3, "%d: %s", 12, m_text.c_str());
  }
  std::string outcome() override { return state(); }
  std::string state() override { return messagesIn(tracePath); }

 private:
  const std::string m_text = std::string(2000, 'x');
};

class TracingWithAnEcho : public Job {
 public:
  TracingWithAnEcho() {
    beginAnew();
    m_log.initialize("vault", "", "", 3, true);
  }
  void run() override {
    unlink(tracePath);
    m_log.trace(1, "a line");
  }
  std::string outcome() override { return messagesIn(tracePath); }

 private:
  CCmnTraceLog m_log;
};

class Updating : public LogJob {
 public:
  void run() override { m_result = m_log.updateConfigFile(m_dir, m_file, m_level); }
  std::string outcome() override {
    return words(m_result) + (m_result == 0 ? ": " + readFile(configPath) : "");
  }

 private:
  const tstr m_dir{"/usr/tulsk/krellvane/logs/"};
  const tstr m_file{"other.log"};
  const int m_level = 5;
  int m_result = 0;
};

class Loading : public LogJob {
 public:
  void run() override {
    m_level = 3;
    m_log.loadFromConfigFile(m_dir, m_file, m_level);
  }
  std::string outcome() override {
    return words(m_dir) + " " + words(m_file) + " " + words(m_level);
  }

 private:
  tstr m_dir{"old dir"};
  tstr m_file{"old file"};
  int m_level = 0;
};

class Resolving : public LogJob {
 public:
  void run() override {
    m_run = m_run == nullptr ? m_runs : m_run + 1;
    m_log.initTraceSettings(m_run->dir, m_run->file, m_run->level);
  }
  std::string outcome() override {
    return words(m_run->dir) + " " + words(m_run->file) + " " + words(m_run->level);
  }

 private:
  struct Run {
    tstr dir{"/usr/tulsk/krellvane/logs/"};
    tstr file{"other.log"};
    int level = 3;
  };
  Run m_runs[3];
  Run* m_run = nullptr;
};

class TakingTheLevel : public LogJob {
 public:
  void run() override { m_log.UpdateTraceLevelFromConfigFile(); }
  std::string outcome() override { return words(m_log.getTraceLevel()); }
};

}  // namespace

Operations traceOperations() {
  std::vector<Call> any = memoryCalls();
  any.insert(any.end(), fileCalls().begin(), fileCalls().end());
  // Set-up goes on with what is known, and tells only whether the trace file could be opened.
  const std::vector<Allowance> setUp{
      {any, {"initialized, [0139], */*.log, a line|*", "not initialized, [0139], /*, "}}};
  const std::vector<Allowance> setUpAgain{{any, {"initialized, [0139], /*"}}};
  const std::vector<Allowance> line{{any, {"", asEver}}};
  const std::vector<Allowance> written{{any,
                                        {"-[1-9]*", "0: *"},
                                        Where::here,
                                        {"0: *"}}};  // a file that was not written whole is there
  const std::vector<Allowance> resolved{{any, {"*/ *.log [0139]", "* other.log [0139]"}}};

  Operations all;
  all.push_back(operationOf<Initializing<0>>("trace: initialize", setUp, installRoot));
  all.push_back(operationOf<Initializing<1>>("trace: initialize at a place", setUp, installRoot));
  all.push_back(operationOf<InitializingAgain>("trace: initialize again", setUpAgain, installRoot));
  all.push_back(operationOf<Tracing>("trace: trace", line, installRoot));
  all.push_back(operationOf<TracingWithAnEcho>("trace: trace with an echo", line, installRoot));
  all.push_back(operationOf<Updating>("trace: updateConfigFile", written, installRoot));
  all.push_back(operationOf<Loading>("trace: loadFromConfigFile", resolved, installRoot));
  all.push_back(operationOf<Resolving>("trace: initTraceSettings", resolved, installRoot));
  all.push_back(operationOf<TakingTheLevel>("trace: UpdateTraceLevelFromConfigFile",
                                            {{memoryCalls(), {"1"}}}, installRoot));
  return all;
}

}  // namespace kelp_test
