// Stands in front of the system calls that the library makes, so that a test can make them fail or
// do something else. A test program that links this in has every such call go through it, in forked
// children too. Memory is among them: what a HeapWatch tells of one thread, this does of processes.
//
// Some calls are not made to fail: pthread_atfork, which the library calls while it is loaded,
// before a test can ask for anything; pthread_sigmask, clock_gettime and munmap, which fail for
// wrong arguments alone, and get constant ones, or a block that mmap gave; the bare system call
// nanosleep and sched_yield, whose results nobody looks at, as what they wait for is looked at
// anew; and ungetc, which always has room for the character that was just read.
#pragma once

#include "heap.h"

#include <signal.h>
#include <sys/select.h>
#include <sys/types.h>
#include <time.h>

#include <atomic>
#include <cstddef>

namespace kelp_test {

enum class Call {
  pipe,
  fork,
  dup2,
  open,
  close,  // a close that fails has closed the descriptor all the same
  select,
  read,
  waitpid,
  kill,
  sigaction,
  putenv,
  execv,
  malloc,
  realloc,
  access,
  nanosleep,
  sleep,
  time,
  fcntl,
  mmap,
  calloc,
  throwingNew,  // operator new in its ordinary forms
  nothrowNew,   // and in those that give null
  anyMemory,    // every request of these five kinds
  fopen,
  fclose,  // has closed the stream all the same
  fgets,
  fread,
  fputs,
  fprintf,
  printf,
  puts,
  fflush,
  fscanf,
  setvbuf,
  stat,
  mkdir,
  getaddrinfo,  // in a program that has scripted_resolver.cpp, too; "errno" is its result
  getnameinfo,  // likewise
  gethostname,  // likewise
  vsnprintf,    // writes nothing then; so does the next one
  vswprintf,
};
constexpr size_t callCount = static_cast<size_t>(Call::vswprintf) + 1;

// Which processes a failure concerns: the one that armed it, its children, or both.
enum class Where { here, child, anywhere };

// Makes the n-th call from now on fail, or all from the n-th on. One failure for each kind of
// call at a time.
class ScopedFailure {
 public:
  ScopedFailure(Call call, int error, int nth = 1, Times times = Times::once,
                Where where = Where::here);
  ~ScopedFailure();
  ScopedFailure(const ScopedFailure&) = delete;
  ScopedFailure& operator=(const ScopedFailure&) = delete;

  // Calls seen and calls failed, in all processes concerned.
  int calls() const;
  int failed() const;

 private:
  Call m_call;
};

// Is told of every call that an armed failure counts, with its number, in the process that makes
// it. It may not make such calls itself. Null for none, as at first.
void setCallListener(void (*listener)(Call call, int number));

// While it lives, no call of its thread fails or is counted.
class Unfailing {
 public:
  Unfailing();
  ~Unfailing();
  Unfailing(const Unfailing&) = delete;
  Unfailing& operator=(const Unfailing&) = delete;
};

// For what stands in front of a call elsewhere: counts it, and tells whether it is to fail, with
// errno then set.
bool isToFail(Call call);

// What runs instead of a call; null for the call itself. Called functions may use realCalls().
struct Replacements {
  int (*pipe)(int* ends) = nullptr;
  int (*select)(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                timeval* limit) = nullptr;
  ssize_t (*read)(int fd, void* buffer, size_t size) = nullptr;
  pid_t (*waitpid)(pid_t pid, int* status, int options) = nullptr;
  int (*kill)(pid_t pid, int signalNumber) = nullptr;
  int (*nanosleep)(const timespec* duration, timespec* rest) = nullptr;
  unsigned int (*sleep)(unsigned int seconds) = nullptr;
  time_t (*time)(time_t* now) = nullptr;
  int (*sigaction)(int number, const struct sigaction* action, struct sigaction* old) = nullptr;
  int (*schedYield)() = nullptr;
};

// Sets replacements, all of them, for as long as it lives; then those of before hold again.
class ScopedReplacements {
 public:
  explicit ScopedReplacements(const Replacements& replacements);
  ~ScopedReplacements();
  ScopedReplacements(const ScopedReplacements&) = delete;
  ScopedReplacements& operator=(const ScopedReplacements&) = delete;

 private:
  Replacements m_old;
};

// The calls themselves.
struct RealCalls {
  int (*pipe)(int*);
  int (*select)(int, fd_set*, fd_set*, fd_set*, timeval*);
  ssize_t (*read)(int, void*, size_t);
  pid_t (*waitpid)(pid_t, int*, int);
  int (*kill)(pid_t, int);
  int (*nanosleep)(const timespec*, timespec*);
  unsigned int (*sleep)(unsigned int);
  time_t (*time)(time_t*);
  int (*sigaction)(int, const struct sigaction*, struct sigaction*);
  int (*schedYield)();
};
const RealCalls& realCalls();
}  // namespace kelp_test
