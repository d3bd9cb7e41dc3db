#include "calls.h"

#include <netdb.h>

#include <algorithm>
#include <cerrno>

namespace kelp_test {

namespace {

std::vector<FailingCall> everyCall() {
  const std::vector<int> noMemory{ENOMEM};
  const std::vector<int> writing{ENOSPC, EIO, EPIPE};
  const std::vector<int> naming{EAI_AGAIN,  EAI_FAIL,   EAI_NONAME,   EAI_MEMORY,
                                EAI_FAMILY, EAI_SYSTEM, EAI_OVERFLOW, EAI_NODATA};
  std::vector<int> resolving = naming;
  resolving.insert(resolving.end(), {EAI_SERVICE, EAI_SOCKTYPE, EAI_BADFLAGS, EAI_ADDRFAMILY});
  const std::vector<int> opening{EACCES, EINTR,   EMFILE,       ENFILE, ENOENT, ENOMEM, ENOSPC,
                                 EROFS,  ENOTDIR, ENAMETOOLONG, EPERM,  EISDIR, ELOOP};
  const std::vector<int> formatting{EOVERFLOW, EILSEQ, ENOMEM};
  return {
      {Call::pipe, "pipe", {EMFILE, ENFILE}},
      {Call::fork, "fork", {EAGAIN, ENOMEM}},
      {Call::dup2, "dup2", {EBADF, EBUSY, EINTR, EMFILE}},
      {Call::open, "open", opening},
      {Call::close, "close", {EIO, EINTR, ENOSPC, EBADF, EDQUOT}},
      {Call::select, "select", {EINTR, EINVAL, ENOMEM, EBADF}},
      {Call::read, "read", {EINTR, EIO, EAGAIN, EBADF}},
      {Call::waitpid, "waitpid", {ECHILD, EINTR, EINVAL}},
      {Call::kill, "kill", {ESRCH, EPERM}},
      {Call::sigaction, "sigaction", {EINVAL}},
      {Call::putenv, "putenv", noMemory},
      {Call::execv,
       "execv",
       {E2BIG, EACCES, ENOENT, ENOEXEC, ENOMEM, ETXTBSY, EIO, EPERM, ELOOP, ENOTDIR, ENAMETOOLONG,
        EMFILE, ENFILE, EAGAIN, EISDIR}},
      {Call::access,
       "access",
       {EACCES, ENOENT, ELOOP, ENOTDIR, EIO, ENOMEM, ENAMETOOLONG, EROFS, EPERM}},
      {Call::nanosleep, "nanosleep", {EINTR, ENOSYS}},
      {Call::fcntl, "fcntl", {EMFILE, EINVAL, EBADF}},
      {Call::mmap, "mmap", {ENOMEM, EAGAIN, ENFILE}},
      {Call::fopen, "fopen", opening},
      {Call::fclose, "fclose", writing},
      {Call::fgets, "fgets", {EIO, EINTR, EISDIR}},
      {Call::fread, "fread", {EIO, EINTR, EISDIR}},
      {Call::fputs, "fputs", writing},
      {Call::fprintf, "fprintf", writing},
      {Call::printf, "printf", writing},
      {Call::puts, "puts", writing},
      {Call::fflush, "fflush", writing},
      {Call::fscanf, "fscanf", {EIO, EINTR}},
      {Call::setvbuf, "setvbuf", noMemory},
      {Call::stat, "stat", {EACCES, ENOENT, ELOOP, EIO, ENOMEM, ENOTDIR, ENAMETOOLONG}},
      {Call::mkdir,
       "mkdir",
       {EACCES, EEXIST, ENOSPC, EROFS, ENOENT, EMLINK, ENOTDIR, ELOOP, ENOMEM, EDQUOT, EPERM,
        ENAMETOOLONG}},
      {Call::getaddrinfo, "getaddrinfo", resolving},
      {Call::getnameinfo, "getnameinfo", naming},
      {Call::gethostname, "gethostname", {ENAMETOOLONG, EPERM}},
      {Call::vsnprintf, "vsnprintf", formatting},
      {Call::vswprintf, "vswprintf", formatting},
      {Call::malloc, "malloc", noMemory},
      {Call::calloc, "calloc", noMemory},
      {Call::realloc, "realloc", noMemory},
      {Call::throwingNew, "new", noMemory},
      {Call::nothrowNew, "new(nothrow)", noMemory},
      {Call::anyMemory, "any memory", noMemory},
  };
}

}  // namespace

const std::vector<FailingCall>& failingCalls() {
  static const std::vector<FailingCall> calls = everyCall();
  return calls;
}

bool isMemory(Call call) {
  constexpr Call kinds[] = {Call::malloc,      Call::calloc,     Call::realloc,
                            Call::throwingNew, Call::nothrowNew, Call::anyMemory};
  return std::find(std::begin(kinds), std::end(kinds), call) != std::end(kinds);
}

bool isFormatting(Call call) { return call == Call::vsnprintf || call == Call::vswprintf; }

std::string describe(const Fault& fault) {
  std::string text;
  for (const FailingCall& failing : failingCalls()) {
    if (failing.call == fault.call) {
      text = failing.name;
    }
  }
  text += " " + std::to_string(fault.nth) + (fault.times == Times::once ? "" : " and all after") +
          ", errno " + std::to_string(fault.error);
  return text + (fault.where == Where::child ? ", in the child" : "");
}

}  // namespace kelp_test
