#include "cmntracelog.h"

#include "Q_strings.h"
#include "cmnacestring.h"
#include "cmnerror.h"
#include "cmnfile.h"
#include "cmnpathtool.h"
#include "cmnqrbconfiguration.h"

#include <ace/ACE.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kelp_cmn_4_4 {

template class CCmnContextSingletonAllocator<CCmnTraceLog>;

namespace {

constexpr char traceSection[] = "DEBUG_TRACE_INFO";
constexpr char dirKey[] = "TRACEDIR";
constexpr char fileKey[] = "TRACEFILE";
constexpr char levelKey[] = "TRACELEVEL";
constexpr char stdoutKey[] = "TRACESTDOUT";

constexpr int minimumOverridingVerbosity = 9;
constexpr size_t firstMessageSize = 1024;
constexpr size_t timestampSize = 128;

constexpr char appending[] = "a+";

// -1 where the host product configures none.
int hostVerbosity() {
  int verbosity = -1;
  tstr dir;
  tstr file;
  CCmnQRBConfiguration::getTraceConfigFileInfo(dir, file);
  CCmnQRBConfiguration::getTraceLevel(dir, file, verbosity);
  return verbosity;
}

// A text on the malloc heap; null where there was no memory for it, also after growing.
class MessageBuffer {
 public:
  explicit MessageBuffer(size_t size) : m_block(std::malloc(size)) {}
  ~MessageBuffer() { std::free(m_block); }
  MessageBuffer(const MessageBuffer&) = delete;
  MessageBuffer& operator=(const MessageBuffer&) = delete;

  char* text() const { return static_cast<char*>(m_block); }
  void grow(size_t size) { Q_dumb_realloc(&m_block, size); }

 private:
  void* m_block;
};

// False when there is no memory for the text.
bool formatMessage(const char* format, va_list args, std::string& message) {
  size_t capacity = firstMessageSize;
  MessageBuffer buffer(capacity);
  while (buffer.text() != nullptr) {
    va_list attempt;
    va_copy(attempt, args);
    const int length = Q_vsnprintf(buffer.text(), capacity, format, attempt);
    va_end(attempt);
    // A text that exactly fills the buffer may have been cut.
    if (static_cast<size_t>(length) < capacity - 1) {
      message = buffer.text();
      return true;
    }
    capacity *= 2;
    buffer.grow(capacity);
  }
  return false;
}

// Deliberate: each of the two below saves the file at once when it had to write, so that a later
// key which cannot be set does not take this one along.
void readOrWriteString(CCmnConfiguration& config, const char* name, tstr& value) {
  if (config.getStringValue(name, value) != 0) {
    config.setStringValue(name, value);
    config.exportConfig();
  }
}

// Deliberate: 0 where there was no number until now, though another is written. A component's first
// run is silent, and its file shows what can be switched on.
unsigned int readOrWriteNumber(CCmnConfiguration& config, const char* name, unsigned int missing) {
  unsigned int value = 0;
  if (config.getIntegerValue(name, value) != 0) {
    config.setIntegerValue(name, missing);
    config.exportConfig();
  }
  return value;
}

// Deliberate: a configured 0, or one just written, never switches off an echo that the caller asked
// for. A program that somebody runs by hand shows its trace.
void readOrWriteEcho(CCmnConfiguration& config, bool& toStdout) {
  if (readOrWriteNumber(config, stdoutKey, toStdout ? 1 : 0) == 1) {
    toStdout = true;
  }
}

// Deliberate: cut to 1, so that set-up traces no more than errors. The first trace() takes the
// configured level as it is.
int initialLevel(unsigned int configuredLevel) {
  return configuredLevel < 2 ? static_cast<int>(configuredLevel) : 1;
}

// Deliberate: a verbosity below 9 lets nothing pass that the trace level holds back. Lower ones
// concern the host product's own output alone.
bool isWanted(int level, int traceLevel, int verbosity) {
  return level <= traceLevel || (level <= verbosity && verbosity >= minimumOverridingVerbosity);
}

void currentTimestamp(char (&timestamp)[timestampSize]) {
  if (ACE::timestamp(timestamp, sizeof timestamp, true) == nullptr) {
    Q_strlncpy(timestamp, "<time error>", sizeof timestamp - 1, sizeof timestamp);
  }
}

// Deliberate: opened for every line, so that a file which was removed or replaced meanwhile does no
// harm, and no descriptor is left to the host's children.
void appendLine(const tstr& path, const char* timestamp, const std::string& message) {
  if (const BriefFile file(path.c_str(), appending); file) {
    std::fprintf(file.get(), "%s %s\n", timestamp, message.c_str());
  }
}

void echoLine(const tstr& component, const char* timestamp, const std::string& message) {
  std::printf("%s:%s %s\n", component.c_str(), timestamp, message.c_str());
}

}  // namespace

CCmnTraceLog::CCmnTraceLog() : m_traceLevel(0), m_initialized(false), m_toStdout(false) {}

CCmnTraceLog::~CCmnTraceLog() = default;

void CCmnTraceLog::initialize(const tstr& component, tstr dir, tstr file, int level,
                              bool toStdout) {
  whole(dir);
  whole(file);
  assign(m_component, component);
  m_toStdout = toStdout;
  try {
    initTraceSettings(dir, file, level);
  } catch (...) {
    std::puts("ERROR: CCmnTraceLog: Failed to initialize log settings");
  }
  // Deliberate: another slash, though the default directory ends with one. A configured one need
  // not, and a doubled one is harmless.
  tstr path = joined(dir.c_str(), "/", file.c_str());
  tstr traceFile = copied(file.c_str());
  tstr traceDir = copied(dir.c_str());
  m_traceFile.swap(traceFile);
  m_traceDir.swap(traceDir);
  m_traceLevel = level;
  m_tracePath.swap(path);
  // Deliberate: a failure does not unset it. A log that was initialized before goes on echoing.
  if (BriefFile(m_tracePath.c_str(), appending)) {
    m_initialized = true;
  } else {
    std::printf("[CCmnTraceLog] Error: Tracefile [%s] initialization failed.[%s][%s]\n",
                m_tracePath.c_str(), m_traceFile.c_str(), m_traceDir.c_str());
  }
}

void CCmnTraceLog::initTraceSettings(tstr& dir, tstr& file, int& level) {
  try {
    if (*dir.c_str() != '\0' && *file.c_str() != '\0') {
      updateConfigFile(dir, file, level);
    }
    loadFromConfigFile(dir, file, level);
  } catch (const CCmnError&) {
    // Deliberate: dropped. A trace works with what was resolved so far.
  }
}

int CCmnTraceLog::updateConfigFile(const tstr& dir, const tstr& file, const int& level) {
  tstr configDir;
  tstr configFile;
  CCmnPathTool::getConfigFileInfo(m_component, configDir, configFile);
  m_config.importConfig(configDir.c_str(), configFile.c_str());
  ACE_Configuration_Section_Key section;
  if (m_config.openSection(traceSection, section, 1) == 0) {
    m_config.setStringValue(dirKey, dir);
    m_config.setStringValue(fileKey, file);
    m_config.setIntegerValue(levelKey, static_cast<unsigned int>(level));
    // Deliberate: always 0, whatever the caller asked for. An echo is for one run and must not be
    // found in the file by the next one.
    m_config.setIntegerValue(stdoutKey, 0);
  }
  return m_config.exportConfig();
}

void CCmnTraceLog::loadFromConfigFile(tstr& dir, tstr& file, int& level) {
  tstr configDir;
  tstr configFile;
  CCmnPathTool::getConfigFileInfo(m_component, configDir, configFile);
  // Deliberate: the defaults, in place of what came in. Explicit names have been written into the
  // file before, from where they come back.
  CCmnPathTool::getTraceFileInfo(m_component, dir, file);
  m_config.importConfig(configDir.c_str(), configFile.c_str());
  ACE_Configuration_Section_Key section;
  unsigned int configuredLevel = 0;
  if (m_config.openSection(traceSection, section, 0) != 0) {
    updateConfigFile(dir, file, level);
  } else {
    readOrWriteString(m_config, dirKey, dir);
    readOrWriteString(m_config, fileKey, file);
    configuredLevel = readOrWriteNumber(m_config, levelKey, static_cast<unsigned int>(level));
    readOrWriteEcho(m_config, m_toStdout);
  }
  level = std::max(initialLevel(configuredLevel), hostVerbosity());
}

void CCmnTraceLog::UpdateTraceLevelFromConfigFile() {
  // Deliberate: 1 where there is none, so that errors are written without a configuration, too.
  m_traceLevel = 1;
  ACE_Configuration_Section_Key section;
  unsigned int level = 0;
  if (m_config.openSection(traceSection, section, 1) == 0 &&
      m_config.getIntegerValue(levelKey, level) == 0) {
    // Deliberate: not cut here, as this is the level that details are switched on by.
    m_traceLevel = static_cast<int>(level);
  }
}

void CCmnTraceLog::trace(int level, const char* format, ...) {
  // Deliberate: both anew in every call, in one that writes nothing, too. A changed verbosity
  // counts at once, and getTraceLevel() tells what counts.
  const int verbosity = hostVerbosity();
  UpdateTraceLevelFromConfigFile();
  if (format == nullptr || *format == '\0' || !m_initialized ||
      !isWanted(level, m_traceLevel, verbosity)) {
    return;
  }
  std::string message;
  va_list args;
  va_start(args, format);
  const bool formatted = formatMessage(format, args, message);
  va_end(args);
  if (!formatted) {
    return;
  }
  char timestamp[timestampSize];
  currentTimestamp(timestamp);
  appendLine(m_tracePath, timestamp, message);
  if (m_toStdout) {
    echoLine(m_component, timestamp, message);
  }
}

}  // namespace kelp_cmn_4_4
