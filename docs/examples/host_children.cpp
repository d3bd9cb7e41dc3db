// Waits for a child of the host's own beside commands: the library may have reaped it.
#include <cmnexecpipe.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

using namespace kelp_cmn_4_4;

// The child's exit status; -1 where it is lost.
static int statusOf(CCmnExecPipePosix& pipe, pid_t child) {
  int status = 0;
  pid_t waited = 0;
  do {
    waited = waitpid(child, &status, 0);
  } while (waited < 0 && errno == EINTR);  // the end of any child interrupts
  if (waited == child) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  return pipe.CheckChildStatusMap(child, &status) ? status : -1;
}

int main() {
  CCmnExecPipePosix pipe;
  pipe.ExecPipe("/bin/true", "");
  pipe.Close(10);  // the handler stays

  const pid_t child = fork();
  if (child == 0) {
    _exit(3);
  }
  std::printf("the host's child: %d\n", statusOf(pipe, child));
  return 0;
}
