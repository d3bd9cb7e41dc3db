#include "cmnexecchild.h"

#include "Q_strings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kelp_cmn_4_4 {
namespace {

const char* const __loc_names[] = {"LANG",        "LC_ALL",      "LC_COLLATE", "LC_CTYPE",
                                   "LC_MESSAGES", "LC_MONETARY", "LC_NUMERIC", "LC_TIME"};
const char* const __bad_names[] = {"CDPATH", "EDITOR", "ENV", "FPATH", "IFS"};

[[noreturn]] void fail(const CCmnTraceLogPtr& log, const char* format, int error) {
  traceTo(log, traceError, format, error);
  _exit(1);
}

// Above the standard descriptors, where the connecting of those cannot replace it. Its old place is
// free then: there may be no other for the input.
int movedAboveStandard(int fd) {
  if (fd > STDERR_FILENO) {
    return fd;
  }
  const int moved = fcntl(fd, F_DUPFD, STDERR_FILENO + 1);
  if (moved < 0) {
    return fd;
  }
  close(fd);
  return moved;
}

void connectInput(const CCmnTraceLogPtr& log, const std::string& stdinFile) {
  const char* path = stdinFile.empty() ? "/dev/null" : stdinFile.c_str();
  const int fd = open(path, O_RDONLY);
  if (fd < 0 && stdinFile.empty()) {
    fail(log, "CCmnExecPipePosix::ExecPipe ERROR: Could not open /dev/null for reading, errno %d",
         errno);
  }
  if (fd < 0) {
    traceTo(log, traceError,
            "CCmnExecPipePosix::ExecPipe ERROR: Could not open '%s' for reading, errno %d", path,
            errno);
    _exit(1);
  }
  if (fd == STDIN_FILENO) {
    return;
  }
  if (dup2(fd, STDIN_FILENO) < 0) {
    fail(log, "CCmnExecPipePosix::ExecPipe ERROR: dup2(stdin) failed, errno %d", errno);
  }
  close(fd);
}

void connectOutput(const CCmnTraceLogPtr& log, int writeEnd) {
  if (dup2(writeEnd, fileno(stdout)) < 0) {
    fail(log, "CCmnExecPipePosix::ExecPipe ERROR: dup2(stdout) failed, errno %d", errno);
  }
  if (dup2(writeEnd, fileno(stderr)) < 0) {
    fail(log, "CCmnExecPipePosix::ExecPipe ERROR: dup2(stderr) failed, errno %d", errno);
  }
}

// An end that is a standard descriptor, because the host had that one closed and there was no room
// to move it, stays open.
void closeEnd(const CCmnTraceLogPtr& log, int fd, const char* failure) {
  if (fd > STDERR_FILENO && close(fd) < 0) {
    traceTo(log, traceError, failure, errno);
  }
}

// Deliberate: never released. putenv() keeps no copy, so the text belongs to the environment.
bool setVariable(const char* name, const char* value) {
  const size_t size = std::strlen(name) + std::strlen(value) + 2;
  char* text = static_cast<char*>(std::malloc(size));
  if (text == nullptr) {
    return false;
  }
  Q_snprintf(text, size, "%s=%s", name, value);
  return putenv(text) == 0;
}

bool setEnvironment() {
  for (const char* name : __loc_names) {
    if (!setVariable(name, "C")) {
      return false;
    }
  }
  // Deliberate: emptied, not removed. A shell has defaults for what is missing.
  for (const char* name : __bad_names) {
    if (!setVariable(name, "")) {
      return false;
    }
  }
  return true;
}

}  // namespace

void runExecChild(const CCmnTraceLogPtr& log, const PipeEnds& ends, const std::string& stdinFile,
                  char** argv) {
  const int readEnd = movedAboveStandard(ends.readEnd);
  const int writeEnd = movedAboveStandard(ends.writeEnd);
  connectInput(log, stdinFile);
  connectOutput(log, writeEnd);
  closeEnd(log, readEnd,
           "CCmnExecPipePosix::ExecPipe ERROR: child close(pipe[0]) failed, errno %d");
  closeEnd(log, writeEnd,
           "CCmnExecPipePosix::ExecPipe ERROR: child close(pipe[1]) failed, errno %d");
  if (!setEnvironment()) {
    traceTo(log, traceError, "CCmnExecPipePosix::ExecPipe locale modification failed, errno %d",
            errno);
  }
  // Deliberate: every other descriptor stays open. Hosts name some to their commands by number.
  execv(argv[0], argv);
  fail(log, "CCmnExecPipePosix::ExecPipe ERROR: execv() failed, errno %d", errno);
}

}  // namespace kelp_cmn_4_4
