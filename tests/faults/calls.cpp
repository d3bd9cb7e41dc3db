#include "calls.h"

#include <netdb.h>

#include <algorithm>
#include <cerrno>

namespace kelp_test {

const std::vector<FailingCall>& failingCalls() {
  const std::vector<int> noMemory{ENOMEM};
  const std::vector<int> writing{ENOSPC, EIO, EPIPE};
  const std::vector<int> naming{EAI_AGAIN,  EAI_FAIL,   EAI_NONAME,   EAI_MEMORY,
                                EAI_FAMILY, EAI_SYSTEM, EAI_OVERFLOW, EAI_NODATA};
  static const std::vector<FailingCall> calls{
      {Call::pipe, "pipe", {EMFILE, ENFILE}},
      {Call::fork, "fork", {EAGAIN, ENOMEM}},
      {Call::dup2, "dup2", {EBADF, EBUSY, EINTR, EMFILE}},
      {Call::open, "open", {EACCES, EINTR, EMFILE, ENFILE, ENOENT, ENOMEM}},
      {Call::close, "close", {EIO, EINTR, ENOSPC}},
      {Call::select, "select", {EINTR, EINVAL, ENOMEM, EBADF}},
      {Call::read, "read", {EINTR, EIO, EAGAIN, EBADF}},
      {Call::waitpid, "waitpid", {ECHILD, EINTR, EINVAL}},
      {Call::kill, "kill", {ESRCH, EPERM}},
      {Call::sigaction, "sigaction", {EINVAL}},
      {Call::putenv, "putenv", noMemory},
      {Call::execv, "execv", {E2BIG, EACCES, ENOENT, ENOEXEC, ENOMEM, ETXTBSY, EIO}},
      {Call::access, "access", {EACCES, ENOENT, ELOOP, ENOTDIR, EIO, ENOMEM}},
      {Call::nanosleep, "nanosleep", {EINTR, ENOSYS}},
      {Call::fcntl, "fcntl", {EMFILE, EINVAL}},
      {Call::mmap, "mmap", {ENOMEM, EAGAIN}},
      {Call::fopen, "fopen", {EACCES, EMFILE, ENFILE, ENOENT, ENOMEM, EINTR, ENOSPC, EROFS}},
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
      {Call::stat, "stat", {EACCES, ENOENT, ELOOP, EIO, ENOMEM}},
      {Call::mkdir, "mkdir", {EACCES, EEXIST, ENOSPC, EROFS, ENOENT, EMLINK}},
      {Call::getaddrinfo, "getaddrinfo", naming},
      {Call::getnameinfo, "getnameinfo", naming},
      {Call::gethostname, "gethostname", {ENAMETOOLONG, EPERM}},
      {Call::malloc, "malloc", noMemory},
      {Call::calloc, "calloc", noMemory},
      {Call::realloc, "realloc", noMemory},
      {Call::throwingNew, "new", noMemory},
      {Call::nothrowNew, "new(nothrow)", noMemory},
      {Call::anyMemory, "any memory", noMemory},
  };
  return calls;
}

bool isMemory(Call call) {
  constexpr Call kinds[] = {Call::malloc,      Call::calloc,     Call::realloc,
                            Call::throwingNew, Call::nothrowNew, Call::anyMemory};
  return std::find(std::begin(kinds), std::end(kinds), call) != std::end(kinds);
}

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
