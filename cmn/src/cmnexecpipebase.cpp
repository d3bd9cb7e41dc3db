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
    const bool stored = pipe.ReadLine(line, lineBufferSize - 1, &timedOut, timeoutSeconds);
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

// Message and detail stay behind on purpose.
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

// Relaxed: the flag tells all there is to tell; no other data passes with it from the thread that
// asks for the end.
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
  if (IsChildContext() != 0) {
    return ExecCommandInChildContext(command, output);
  }
  const int started = ExecPipe(command, reserved);
  if (started != execPipeOk) {
    return started;
  }
  output.clear();
  try {
    if (readLines(*this, line.get(), output, static_cast<long>(timeoutSeconds)) ==
        Reading::timedOut) {
      // The child is left to a later Close on purpose.
      m_lastError = ECmnExecPipe(command, execPipeReadTimedOut);
      return execPipeReadTimedOut;
    }
    return Close(closeTimeoutSeconds);
  } catch (...) {
    endRun(*this);
    throw;
  }
}

void CCmnExecPipeBase::Abort() { __atomic_store_n(&m_abortRequested, true, __ATOMIC_RELAXED); }

void CCmnExecPipeBase::Init() {}

ECmnExecPipe CCmnExecPipeBase::getLastError() { return m_lastError; }

}  // namespace kelp_cmn_4_4
