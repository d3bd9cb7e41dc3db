// A command that ended well, and result code 8: what its last line tells is not lost.
#include <Q_strings.h>
#include <cmnexecpipe.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

using namespace kelp_cmn_4_4;

class Pipe : public CCmnExecPipePosix {
 public:
  // Leaves the child to be reaped by whoever comes first.
  void waitForEnd() const { waitForEnd(m_childPid); }

  static void waitForEnd(int pid) {
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
  }
};

int main() {
  sigset_t childSignal;
  sigemptyset(&childSignal);
  sigaddset(&childSignal, SIGCHLD);
  pthread_sigmask(SIG_BLOCK, &childSignal, nullptr);  // as a thread of the host may do

  int gate[2];
  if (pipe(gate) != 0 || fcntl(gate[1], F_SETFD, FD_CLOEXEC) != 0) {
    return 1;
  }
  Pipe pipe;
  const std::string gateFile = "/dev/fd/" + std::to_string(gate[0]);
  pipe.ExecPipe("/bin/sh -c 'read line <" + gateFile + "; echo saved; echo status 0'", "");

  // A child of the host's own ends first, the command then: the second signal merges with the
  // first. The handler reaps the older child, the command, and records the one that the signal
  // names.
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  Pipe::waitForEnd(child);
  close(gate[1]);
  pipe.waitForEnd();
  pthread_sigmask(SIG_UNBLOCK, &childSignal, nullptr);

  char line[80];
  char last[80] = "";
  unsigned char timedOut = 0;
  while (pipe.ReadLine(line, sizeof line, &timedOut, 10)) {
    Q_strlcpy(last, line, sizeof last);
  }
  std::printf("result %d, last line: %s", pipe.Close(10), last);
  waitpid(child, nullptr, 0);  // a zombie until now
  return 0;
}
