#include "interposed_calls.h"

#include "next_symbol.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

namespace kelp_test {
namespace {

struct Armed {
  std::atomic<bool> active;
  std::atomic<int> calls;
  std::atomic<int> failed;
  int error;
  int nth;
  Times times;
  Where where;
  pid_t owner;
};

// Shared with forked children, so that what they count is seen here. Null before the first
// failure is armed.
Armed* armedCalls = nullptr;

Replacements current;

void (*callListener)(Call call, int number) = nullptr;

thread_local int unfailing = 0;

Armed& armed(Call call) {
  if (armedCalls == nullptr) {
    void* memory = mmap(nullptr, callCount * sizeof(Armed), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      std::abort();
    }
    armedCalls = static_cast<Armed*>(memory);
  }
  return armedCalls[static_cast<size_t>(call)];
}

bool concerns(const Armed& failure) {
  const bool own = getpid() == failure.owner;
  return failure.where == Where::anywhere || own == (failure.where == Where::here);
}

bool fails(Call call) { return isToFail(call); }

template <class Function>
void find(Function*& function, const char* name) {
  function = nextSymbol<Function>(name);
}

struct AllRealCalls : RealCalls {
  pid_t (*fork)();
  int (*dup2)(int, int);
  int (*open)(const char*, int, ...);
  int (*close)(int);
  int (*putenv)(char*);
  int (*execv)(const char*, char* const*);
  int (*access)(const char*, int);
  int (*fcntl)(int, int, ...);
  FILE* (*fopen)(const char*, const char*);
  int (*fclose)(FILE*);
  char* (*fgets)(char*, int, FILE*);
  size_t (*fread)(void*, size_t, size_t, FILE*);
  int (*fputs)(const char*, FILE*);
  int (*puts)(const char*);
  int (*fflush)(FILE*);
  int (*vfscanf)(FILE*, const char*, va_list);
  int (*setvbuf)(FILE*, char*, int, size_t);
  int (*stat)(const char*, struct stat*);
  int (*mkdir)(const char*, mode_t);
  int (*vsnprintf)(char*, size_t, const char*, va_list);
  int (*vswprintf)(wchar_t*, size_t, const wchar_t*, va_list);

  AllRealCalls() {
    find(pipe, "pipe");
    find(select, "select");
    find(read, "read");
    find(waitpid, "waitpid");
    find(kill, "kill");
    find(nanosleep, "nanosleep");
    find(sleep, "sleep");
    find(time, "time");
    find(fork, "fork");
    find(dup2, "dup2");
    find(open, "open");
    find(close, "close");
    find(sigaction, "sigaction");
    find(schedYield, "sched_yield");
    find(putenv, "putenv");
    find(execv, "execv");
    find(access, "access");
    find(fcntl, "fcntl");
    find(fopen, "fopen");
    find(fclose, "fclose");
    find(fgets, "fgets");
    find(fread, "fread");
    find(fputs, "fputs");
    find(puts, "puts");
    find(fflush, "fflush");
    find(vfscanf, "__isoc99_vfscanf");
    find(setvbuf, "setvbuf");
    find(stat, "stat");
    find(mkdir, "mkdir");
    find(vsnprintf, "vsnprintf");
    find(vswprintf, "vswprintf");
  }
};

const AllRealCalls& real() {
  static const AllRealCalls calls;
  return calls;
}

// Looked up before a signal handler can need them.
[[maybe_unused]] const AllRealCalls& lookedUp = real();

Call kindOf(HeapCall call) {
  switch (call) {
    case HeapCall::malloc:
      return Call::malloc;
    case HeapCall::calloc:
      return Call::calloc;
    case HeapCall::realloc:
      return Call::realloc;
    case HeapCall::throwingNew:
      return Call::throwingNew;
    default:
      return Call::nothrowNew;
  }
}

// Counts in both ways, whatever the other one says.
bool grants(const HeapRequest& request) {
  const bool anyFails = fails(Call::anyMemory);
  return !fails(kindOf(request.call)) && !anyFails;
}

[[maybe_unused]] const bool heapIsRuled = (setHeapRule(grants), true);

}  // namespace

Unfailing::Unfailing() { ++unfailing; }

Unfailing::~Unfailing() { --unfailing; }

bool isToFail(Call call) {
  if (armedCalls == nullptr || unfailing != 0) {
    return false;
  }
  Armed& failure = armedCalls[static_cast<size_t>(call)];
  if (!failure.active.load() || !concerns(failure)) {
    return false;
  }
  const int number = failure.calls.fetch_add(1) + 1;
  if (callListener != nullptr) {
    callListener(call, number);
  }
  if (number != failure.nth && (failure.times == Times::once || number < failure.nth)) {
    return false;
  }
  failure.failed.fetch_add(1);
  errno = failure.error;
  return true;
}

ScopedFailure::ScopedFailure(Call call, int error, int nth, Times times, Where where)
    : m_call(call) {
  Armed& failure = armed(call);
  failure.calls = 0;
  failure.failed = 0;
  failure.error = error;
  failure.nth = nth;
  failure.times = times;
  failure.where = where;
  failure.owner = getpid();
  failure.active = true;
}

ScopedFailure::~ScopedFailure() { armed(m_call).active = false; }

int ScopedFailure::calls() const { return armed(m_call).calls; }

int ScopedFailure::failed() const { return armed(m_call).failed; }

void setCallListener(void (*listener)(Call call, int number)) { callListener = listener; }

ScopedReplacements::ScopedReplacements(const Replacements& replacements) : m_old(current) {
  current = replacements;
}

ScopedReplacements::~ScopedReplacements() { current = m_old; }

const RealCalls& realCalls() { return real(); }

}  // namespace kelp_test

using kelp_test::Call;
using kelp_test::current;
using kelp_test::fails;
using kelp_test::real;

extern "C" {

int pipe(int* ends) noexcept {
  if (fails(Call::pipe)) {
    return -1;
  }
  return current.pipe != nullptr ? current.pipe(ends) : real().pipe(ends);
}

pid_t fork() noexcept { return fails(Call::fork) ? -1 : real().fork(); }

int dup2(int from, int to) noexcept { return fails(Call::dup2) ? -1 : real().dup2(from, to); }

int open(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = va_arg(args, mode_t);
  va_end(args);
  return fails(Call::open) ? -1 : real().open(path, flags, mode);
}

int __open_2(const char* path, int flags) {
  return fails(Call::open) ? -1 : real().open(path, flags);
}

int close(int fd) {
  const bool failing = fails(Call::close);
  const int error = errno;
  const int result = real().close(fd);
  if (failing) {
    errno = error;
  }
  return failing ? -1 : result;
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit) {
  if (fails(Call::select)) {
    return -1;
  }
  return (current.select != nullptr ? current.select : real().select)(count, readable, writable,
                                                                      exceptional, limit);
}

ssize_t read(int fd, void* buffer, size_t size) {
  if (fails(Call::read)) {
    return -1;
  }
  return (current.read != nullptr ? current.read : real().read)(fd, buffer, size);
}

// What a fortified build calls.
ssize_t __read_chk(int fd, void* buffer, size_t size, size_t capacity) {
  if (size > capacity) {
    std::abort();
  }
  return read(fd, buffer, size);
}

pid_t waitpid(pid_t pid, int* status, int options) {
  if (fails(Call::waitpid)) {
    return -1;
  }
  return (current.waitpid != nullptr ? current.waitpid : real().waitpid)(pid, status, options);
}

int kill(pid_t pid, int signalNumber) noexcept {
  if (fails(Call::kill)) {
    return -1;
  }
  return (current.kill != nullptr ? current.kill : real().kill)(pid, signalNumber);
}

int sigaction(int number, const struct sigaction* action, struct sigaction* old) noexcept {
  if (fails(Call::sigaction)) {
    return -1;
  }
  return (current.sigaction != nullptr ? current.sigaction : real().sigaction)(number, action, old);
}

int sched_yield() noexcept {
  return (current.schedYield != nullptr ? current.schedYield : real().schedYield)();
}

int putenv(char* text) noexcept { return fails(Call::putenv) ? -1 : real().putenv(text); }

int execv(const char* path, char* const* arguments) noexcept {
  return fails(Call::execv) ? -1 : real().execv(path, arguments);
}

int access(const char* path, int mode) noexcept {
  return fails(Call::access) ? -1 : real().access(path, mode);
}

int nanosleep(const timespec* duration, timespec* rest) {
  if (fails(Call::nanosleep)) {
    return -1;
  }
  return (current.nanosleep != nullptr ? current.nanosleep : real().nanosleep)(duration, rest);
}

unsigned int sleep(unsigned int seconds) {
  return (current.sleep != nullptr ? current.sleep : real().sleep)(seconds);
}

time_t time(time_t* now) noexcept {
  return (current.time != nullptr ? current.time : real().time)(now);
}

// Called before anything could be looked up, too.
void* mmap(void* address, size_t size, int access, int flags, int fd, off_t offset) noexcept {
  if (fails(Call::mmap)) {
    return MAP_FAILED;
  }
  // NOLINTNEXTLINE(performance-no-int-to-ptr): what the system call gives
  return reinterpret_cast<void*>(syscall(SYS_mmap, address, size, access, flags, fd, offset));
}

int fcntl(int fd, int command, ...) {
  va_list args;
  va_start(args, command);
  const long argument = va_arg(args, long);
  va_end(args);
  return fails(Call::fcntl) ? -1 : real().fcntl(fd, command, argument);
}

FILE* fopen(const char* path, const char* mode) {
  return fails(Call::fopen) ? nullptr : real().fopen(path, mode);
}

int fclose(FILE* stream) {
  const bool failing = fails(Call::fclose);
  const int error = errno;
  const int result = real().fclose(stream);
  if (failing) {
    errno = error;
  }
  return failing ? EOF : result;
}

char* fgets(char* line, int size, FILE* stream) {
  return fails(Call::fgets) ? nullptr : real().fgets(line, size, stream);
}

char* __fgets_chk(char* line, size_t capacity, int size, FILE* stream) {
  if (static_cast<size_t>(size) > capacity) {
    std::abort();
  }
  return fgets(line, size, stream);
}

size_t fread(void* buffer, size_t size, size_t count, FILE* stream) {
  return fails(Call::fread) ? 0 : real().fread(buffer, size, count, stream);
}

size_t __fread_chk(void* buffer, size_t capacity, size_t size, size_t count, FILE* stream) {
  if (size * count > capacity) {
    std::abort();
  }
  return fread(buffer, size, count, stream);
}

int fputs(const char* text, FILE* stream) {
  return fails(Call::fputs) ? EOF : real().fputs(text, stream);
}

int puts(const char* text) { return fails(Call::puts) ? EOF : real().puts(text); }

int fprintf(FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = fails(Call::fprintf) ? -1 : vfprintf(stream, format, args);
  va_end(args);
  return result;
}

int __fprintf_chk(FILE* stream, int /*flag*/, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = fails(Call::fprintf) ? -1 : vfprintf(stream, format, args);
  va_end(args);
  return result;
}

int printf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = fails(Call::printf) ? -1 : vprintf(format, args);
  va_end(args);
  return result;
}

int __printf_chk(int /*flag*/, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = fails(Call::printf) ? -1 : vprintf(format, args);
  va_end(args);
  return result;
}

int fflush(FILE* stream) { return fails(Call::fflush) ? EOF : real().fflush(stream); }

int __isoc99_fscanf(FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = fails(Call::fscanf) ? EOF : real().vfscanf(stream, format, args);
  va_end(args);
  return result;
}

int setvbuf(FILE* stream, char* buffer, int mode, size_t size) noexcept {
  return fails(Call::setvbuf) ? EOF : real().setvbuf(stream, buffer, mode, size);
}

int stat(const char* path, struct stat* status) noexcept {
  return fails(Call::stat) ? -1 : real().stat(path, status);
}

int mkdir(const char* path, mode_t mode) noexcept {
  return fails(Call::mkdir) ? -1 : real().mkdir(path, mode);
}

int vsnprintf(char* text, size_t size, const char* format, va_list args) noexcept {
  return fails(Call::vsnprintf) ? -1 : real().vsnprintf(text, size, format, args);
}

int __vsnprintf_chk(char* text, size_t size, int /*flag*/, size_t capacity, const char* format,
                    va_list args) {
  if (size > capacity) {
    std::abort();
  }
  return vsnprintf(text, size, format, args);
}

int vswprintf(wchar_t* text, size_t size, const wchar_t* format, va_list args) noexcept {
  return fails(Call::vswprintf) ? -1 : real().vswprintf(text, size, format, args);
}

int __vswprintf_chk(wchar_t* text, size_t size, int /*flag*/, size_t capacity,
                    const wchar_t* format, va_list args) {
  if (size > capacity) {
    std::abort();
  }
  return vswprintf(text, size, format, args);
}

}  // extern "C"
