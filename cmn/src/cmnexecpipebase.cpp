#include "cmnexecpipebase.h"

#include <memory>
#include <new>
#include <utility>

namespace kelp_cmn_4_4 {
namespace {

constexpr int lineBufferSize = 8192;
constexpr long closeTimeoutSeconds = 10;

enum class Reading { ended, timedOut };

Reading readLines(CCmnExecPipeBase& pipe, char* line, std::vector<std::string>& output,
                  long timeoutSeconds) {
  while (true) {
    line[0] = '\0';
    if (pipe.IsAbortRequested()) {
      return Reading::ended;
    }
    unsigned char timedOut = 0;
    // Deliberate: a byte less than there is room for. Hosts join the pieces of long lines by their
    // length, 8190.
    const bool stored = pipe.ReadLine(line, lineBufferSize - 1, &timedOut, timeoutSeconds);
    // Deliberate: drops what came of a line. Before its end it is no answer.
    if (timedOut == 1) {
      return Reading::timedOut;
    }
    if (!stored) {
      return Reading::ended;
    }
    output.emplace_back(line);
  }
}

// On an exception's way out, lest the next run overwrite child and read end.
void endRun(CCmnExecPipeBase& pipe) {
  try {
    pipe.Close(closeTimeoutSeconds);
  } catch (const std::bad_alloc&) {
    // The exception under way says the same.
  }
}

}  // namespace

ECmnExecPipe::ECmnExecPipe() : m_code(execPipeOk), m_detail(0) {}

ECmnExecPipe::ECmnExecPipe(const std::string& command, int code)
    : m_command(command), m_code(code), m_detail(0) {}

ECmnExecPipe::ECmnExecPipe(const std::string& command, const std::wstring& message, int code,
                           long detail)
    : m_command(command), m_message(message), m_code(code), m_detail(detail) {}

ECmnExecPipe::ECmnExecPipe(const ECmnExecPipe& other) = default;

// Deliberate: message and detail stay behind. Hosts build their texts from the code, in the user's
// language, and take the message of the last error for empty.
ECmnExecPipe& ECmnExecPipe::operator=(const ECmnExecPipe& other) {
  m_command = other.m_command;
  m_code = other.m_code;
  return *this;
}

ECmnExecPipe::~ECmnExecPipe() = default;

CCmnExecPipeBase::CCmnExecPipeBase() : CCmnExecPipeBase(std::vector<std::string>()) {}

CCmnExecPipeBase::CCmnExecPipeBase(std::vector<std::string> hostList)
    : m_abortRequested(false),
      m_hostList(std::move(hostList)),
      m_pfnIsChildContext(nullptr),
      m_pfnExecInChild(nullptr),
      m_pfnFreeOutput(nullptr) {}

CCmnExecPipeBase::~CCmnExecPipeBase() = default;

// Relaxed, here and in Abort(): the flag tells all there is to tell, no other data passes with
// it. A stronger order would not make it seen sooner; a plain `bool` would be a data race, and the
// compiler could read it once for all lines.
bool CCmnExecPipeBase::IsAbortRequested() {
  return __atomic_load_n(&m_abortRequested, __ATOMIC_RELAXED);
}

int CCmnExecPipeBase::IsChildContext() { return 0; }

int CCmnExecPipeBase::ExecCommandInChildContext(std::string /*command*/,
                                                std::vector<std::string>& /*output*/) {
  return 0;
}

int CCmnExecPipeBase::Exec(std::string command, std::vector<std::string>& output,
                           std::string stdinFile, unsigned long timeoutSeconds,
                           std::string reserved, std::string hostString1, std::string hostString2) {
  const std::unique_ptr<char[]> line(new char[lineBufferSize]);
  m_hostString1 = hostString1;
  m_hostString2 = hostString2;
  m_stdinFile = stdinFile;
  // Deliberate: the output is not cleared here. A host's runner adds to it, and clears
  // it if need be.
  if (IsChildContext() != 0) {
    return ExecCommandInChildContext(command, output);
  }
  const int started = ExecPipe(command, reserved);
  if (started != execPipeOk) {
    return started;
  }
  // Deliberate: not before. A command that cannot be started leaves the last one's lines.
  output.clear();
  try {
    if (readLines(*this, line.get(), output, static_cast<long>(timeoutSeconds)) ==
        Reading::timedOut) {
      // Deliberate: the child is left to a later Close(). The host says how long that may wait.
      m_lastError = ECmnExecPipe(command, execPipeReadTimedOut);
      return execPipeReadTimedOut;
    }
    // Deliberate: ten seconds, whatever the read time-out. A child that has closed its output is
    // about to end.
    return Close(closeTimeoutSeconds);
  } catch (...) {
    endRun(*this);
    throw;
  }
}

// Deliberate: never taken back. A request that comes between two commands must not be lost.
void CCmnExecPipeBase::Abort() { __atomic_store_n(&m_abortRequested, true, __ATOMIC_RELAXED); }

void CCmnExecPipeBase::Init() {}

ECmnExecPipe CCmnExecPipeBase::getLastError() { return m_lastError; }

}  // namespace kelp_cmn_4_4
